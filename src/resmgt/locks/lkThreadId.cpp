#include "resmgt/locks/lkThreadId.h"

#include "platform/services.h"

#include <iomanip>
#include <ostream>

namespace Zv {

LkThreadId::LkThreadId(ReservedId id) : _number(id == CURRENT_THREAD ? ::GetCurrentThreadId() : 0)
{}

void LkThreadId::setCurrentThread()
{
    _number = ::GetCurrentThreadId();
}

bool LkThreadId::isCurrentThread() const
{
    return _number == ::GetCurrentThreadId();
}

std::ostream &operator<<(std::ostream &stream, LkThreadId const &id)
{
    return stream << "0x" << std::hex << std::setw(6) << id._number << std::dec;
}

} // namespace Zv
