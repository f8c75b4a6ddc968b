// Pool of pulses for reuse (extenders).
#pragma once

#include "resmgt/locks/lkLock.h"
#include "resmgt/locks/lkPulse.h"
#include "zvbase/objPtr.h"

#include <vector>

namespace Zv {

/// Keeps pulses that are not in use, because the creation of a pulse is a system call.
///
///     Zv::LkPulsePool pool;
///     Zv::ObjPtr<Zv::LkPulse> pulse(pool.getPulse());
///     pool.recyclePulse(pulse);
///
/// The pulses are `WAKE_ALL` and are not reset: a pulse that was sent once stays latched.
///
/// **Threads**: thread-safe.
///
/// **Owns** the pulses that it keeps and deletes them in its destructor.
class ZVRESMGT_EXPORT LkPulsePool
{
public:
    LkPulsePool();
    LkPulsePool(LkPulsePool const &) = delete;
    LkPulsePool &operator=(LkPulsePool const &) = delete;
    /// Deletes the pulses. **Throws** the first failure among them, after all have been tried.
    ~LkPulsePool() noexcept(false);

    /// Returns the pulse that came back last, or a new one named "LkPulsePool_pulse". The caller
    /// owns it.
    [[nodiscard]] ObjPtrRet<LkPulse> getPulse();
    /// Takes the pulse over and sets the argument to null. A null argument is kept as well, and the
    /// next `getPulse` returns it. **Throws** `std::bad_alloc` if there is no memory; the caller
    /// keeps the pulse then.
    void recyclePulse(ObjPtr<LkPulse> &pulse);

private:
    LkLock _lock;
    std::vector<LkPulse *> _pulses ZV_GUARDED_BY(_lock);
};

} // namespace Zv
