#include "resmgt/threads/mtTraceMgr.private.h"

#include "resmgt/threads/mtThreadMgr.h"
#include "resmgt/threads/threadsStatics.private.h"
#include "zvbase/lgTrace.h"
#include "zvbase/scope.private.h"

#include <cstring>
#include <iomanip>
#include <ostream>

namespace Zv {

// ---- MtTrace

MtTrace::MtTrace()
{
    ThreadsStatics::threadEnd->ask();
    MtThread const * const thread = MtThreadMgr::findCurrentThread();
    LiString const name = thread ? thread->getName() : LiString("unknown");
    std::strncpy(_name, name.getChars(), sizeof(_name) - 1);
    _name[sizeof(_name) - 1] = '\0';
}

MtTrace::~MtTrace() = default;

void MtTrace::writeTag(std::ostream &stream) const
{
    // The stream may belong to the caller. The rest of the line must have the caller's flags.
    std::ios_base::fmtflags const flags = stream.flags();
    stream << std::left << std::setw(15) << _name << ' ';
    stream.flags(flags);
}

// ---- MtTraceMgr

MtTraceMgr::MtTraceMgr(int isInCharge)
{
    if (isInCharge)
        install();
}

MtTraceMgr::~MtTraceMgr()
{
    retire();
}

// A failure during the creation of a trace may be traced. That line must not ask for the trace.
Trace *MtTraceMgr::getTrace()
{
    static thread_local bool isCreating = false;
    if (isCreating)
        return &_fallback;
    TemporaryValue const creating(isCreating, true);
    try {
        return ThreadsStatics::traces->getPointee();
    } catch (...) {
        return &_fallback; // the line is written without a name
    }
}

void MtTraceMgr::print(char const *text)
{
    LgTrace::print(text);
}

void MtTraceMgr::prepareThread()
{
    ThreadsStatics::traces->getPointee();
}

} // namespace Zv
