#include "resmgt/locks/lkPulse.h"

namespace Zv {

LkPulse::~LkPulse() noexcept(false) = default;

void LkPulse::performWait(LkMutex const &mutex) const
{
    _imp.wait(mutex);
}

bool LkPulse::performTimedWait(LkMutex const &mutex, double seconds) const
{
    return _imp.timedWait(mutex, seconds);
}

} // namespace Zv
