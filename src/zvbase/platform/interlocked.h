// Interlocked operations: the only way in which a variable is shared without a lock.
//
// All of them are inline. Read-modify-write operations are full barriers, as their namesakes of the system are;
// the plain forms say in their names what they order. In the simulated form each of them is a scheduling point.
#pragma once

#include <cstdint>

namespace ZvPlatform::Interlocked {

#ifdef ZV_PLATFORM_SIMULATED
/// The scheduler's chance to let another thread go on.
__attribute__((visibility("default"))) void schedulingPoint();
#else
inline void schedulingPoint() {}
#endif

template <class T>
[[nodiscard]] inline T loadAcquire(T const &variable)
{
    schedulingPoint();
    T value;
    __atomic_load(const_cast<T *>(&variable), &value, __ATOMIC_ACQUIRE);
    return value;
}

/// For figures that order nothing: statistics, hints, an owner compared with oneself.
template <class T>
[[nodiscard]] inline T loadRelaxed(T const &variable)
{
    schedulingPoint();
    T value;
    __atomic_load(const_cast<T *>(&variable), &value, __ATOMIC_RELAXED);
    return value;
}

template <class T>
inline void storeRelease(T &variable, T value)
{
    schedulingPoint();
    __atomic_store(&variable, &value, __ATOMIC_RELEASE);
}

template <class T>
inline void storeRelaxed(T &variable, T value)
{
    schedulingPoint();
    __atomic_store(&variable, &value, __ATOMIC_RELAXED);
}

/// Adds and returns the new value.
template <class T>
inline T add(T &variable, T amount)
{
    schedulingPoint();
    return __atomic_add_fetch(&variable, amount, __ATOMIC_SEQ_CST);
}

/// Adds 1 and returns the new value.
template <class T>
inline T increment(T &variable)
{
    return add(variable, T{1});
}

/// Subtracts 1 and returns the new value.
template <class T>
inline T decrement(T &variable)
{
    schedulingPoint();
    return __atomic_sub_fetch(&variable, T{1}, __ATOMIC_SEQ_CST);
}

/// Stores `value` and returns what stood there.
template <class T>
inline T exchange(T &variable, T value)
{
    schedulingPoint();
    T former;
    __atomic_exchange(&variable, &value, &former, __ATOMIC_SEQ_CST);
    return former;
}

/// Stores `desired` where `expected` stands. On failure `expected` becomes what stands there.
template <class T>
inline bool compareExchange(T &variable, T &expected, T desired)
{
    schedulingPoint();
    return __atomic_compare_exchange(&variable, &expected, &desired, false, __ATOMIC_SEQ_CST,
                                     __ATOMIC_ACQUIRE);
}

} // namespace ZvPlatform::Interlocked
