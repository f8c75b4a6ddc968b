#include "resmgt/threads/mtTrace.private.h"

#include "resmgt/threads/mtThreadMgr.h"
#include "resmgt/threads/threadsStatics.private.h"

#include <cstring>
#include <iomanip>
#include <ostream>

namespace Zv {

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
    // The stream may be the caller's own, and its line goes on behind the tag.
    std::ios_base::fmtflags const flags = stream.flags();
    stream << std::left << std::setw(15) << _name << ' ';
    stream.flags(flags);
}

} // namespace Zv
