#include "resmgt/threads/mtTraceMgr.private.h"

#include "resmgt/threads/making.private.h"
#include "resmgt/threads/mtThreadMgr.h"
#include "resmgt/threads/threadsStatics.private.h"
#include "zvbase/lgTrace.h"

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

Trace *MtTraceMgr::getTrace()
{
    static thread_local bool isMaking = false;
    if (isMaking)
        return &_nobodys;
    Making const making(isMaking);
    try {
        return ThreadsStatics::traces->getPointee();
    } catch (...) {
        return &_nobodys; // the line is written without a name
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
