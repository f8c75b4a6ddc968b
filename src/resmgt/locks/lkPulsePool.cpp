#include "resmgt/locks/lkPulsePool.h"

#include <exception>

namespace Zv {

LkPulsePool::LkPulsePool() : _lock("LkPulsePool_lock") {}

LkPulsePool::~LkPulsePool() noexcept(false)
{
    // The failure of one leaves the others to be destroyed still.
    std::exception_ptr failure;
    for (LkPulse *pulse : _pulses)
        try {
            delete pulse;
        } catch (...) {
            failure = std::current_exception();
        }
    if (failure && !std::uncaught_exceptions())
        std::rethrow_exception(failure);
}

ObjPtrRet<LkPulse> LkPulsePool::getPulse()
{
    LkGuard<LkLock const> guard(_lock);
    if (_pulses.empty())
        return makeObj<LkPulse>("LkPulsePool_pulse", LkPulse::WAKE_ALL);
    ObjPtrRet<LkPulse> pulse(_pulses.back());
    _pulses.pop_back();
    return pulse;
}

void LkPulsePool::recyclePulse(ObjPtr<LkPulse> &pulse)
{
    LkGuard<LkLock const> guard(_lock);
    _pulses.push_back(pulse.get());
    static_cast<void>(pulse.release());
}

} // namespace Zv
