#include "resmgt/locks/lkTicket.h"

#include "zvbase/failures.h"

namespace Zv {

LkTicket::LkTicket(char const *name) : _current(0), _lock(name), _pulse(name, LkPulse::WAKE_ALL) {}

void LkTicket::next()
{
    LkGuard const guard(_lock);
    ++_current;
    _pulse.pulse();
}

bool LkTicket::waitForTicket(long long ticket) const
{
    LkGuard const guard(_lock);
    ZV_ASSERT(ticket >= _current);
    bool const hasToWait = ticket != _current;
    while (ticket != _current)
        _pulse.waitNextPulse(guard);
    return hasToWait;
}

bool LkTicket::waitForNextTicket(long long &counter) const
{
    bool const hadToWait = waitForTicket(counter + 1);
    ++counter;
    return hadToWait;
}

} // namespace Zv
