// Mutex of the base library itself.
#pragma once

#include "zvbase/platform/shared.h"
#include "zvbase/platform/types.h"
#include "zvbase/threadAnnotations.h"

#include <cstdint>

namespace Zv {

/// A recursive mutex that needs no construction at run time and no destruction. So statics can use
/// it at any moment of the process. Other packages use the locks of the `locks` package instead,
/// which have names and report deadlocks.
class ZV_CAPABILITY("lock") BaseLock
{
public:
    constexpr BaseLock() = default;
    BaseLock(BaseLock const &) = delete;
    BaseLock &operator=(BaseLock const &) = delete;

    void lock() ZV_ACQUIRE();
    void unlock() ZV_RELEASE();

private:
    void initialise();

    ZvPlatform::CriticalSection _section = {};
    ZvPlatform::Shared<std::uint32_t> _state{0};
};

/// Holds a `BaseLock` during its lifetime.
class ZV_SCOPED_CAPABILITY BaseGuard
{
public:
    explicit BaseGuard(BaseLock &lock) ZV_ACQUIRE(lock) : _lock(lock) { _lock.lock(); }
    ~BaseGuard() ZV_RELEASE() { _lock.unlock(); }
    BaseGuard(BaseGuard const &) = delete;
    BaseGuard &operator=(BaseGuard const &) = delete;

private:
    BaseLock &_lock;
};

} // namespace Zv
