#include "resmgt/locks/lkPulsePool.h"

#include "zvbase/firstFailure.private.h"

namespace Zv {

LkPulsePool::LkPulsePool() : _lock("LkPulsePool_lock") {}

LkPulsePool::~LkPulsePool() noexcept(false)
{
    FirstFailure failure;
    for (LkPulse *pulse : _pulses)
        failure.attempt([pulse] { delete pulse; });
    failure.rethrow();
}

ObjPtrRet<LkPulse> LkPulsePool::getPulse()
{
    LkGuard const guard(_lock);
    if (_pulses.empty())
        return makeObj<LkPulse>("LkPulsePool_pulse", LkPulse::WAKE_ALL);
    ObjPtrRet<LkPulse> pulse(_pulses.back());
    _pulses.pop_back();
    return pulse;
}

void LkPulsePool::recyclePulse(ObjPtr<LkPulse> &pulse)
{
    LkGuard const guard(_lock);
    _pulses.push_back(pulse.get());
    static_cast<void>(pulse.release());
}

} // namespace Zv
