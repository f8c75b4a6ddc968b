// Pulses for reuse.
#pragma once

#include "resmgt/locks/lkLock.h"
#include "resmgt/locks/lkPulse.h"
#include "zvbase/objPtr.h"

#include <vector>

namespace Zv {

/// Keeps pulses that are not needed at the moment: making one is a system call. Any thread may use the pool.
///
/// Pulses are `WAKE_ALL`, and are not reset when they come back: one that has been pulsed stays latched.
class ZVRESMGT_EXPORT LkPulsePool
{
public:
    LkPulsePool();
    LkPulsePool(LkPulsePool const &) = delete;
    LkPulsePool &operator=(LkPulsePool const &) = delete;
    ~LkPulsePool() noexcept(false);

    /// The pulse that came back last, or a new one named "LkPulsePool_pulse". The caller owns it.
    [[nodiscard]] ObjPtrRet<LkPulse> getPulse();
    /// Takes the pulse over; the argument is null afterwards. A null one is kept and handed out like any other.
    void recyclePulse(ObjPtr<LkPulse> &pulse);

private:
    LkLock _lock;
    std::vector<LkPulse *> _pulses ZV_GUARDED_BY(_lock);
};

} // namespace Zv
