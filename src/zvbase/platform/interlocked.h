// Interlocked operations: the only way to share a variable without a lock (extenders).
//
// All of them are inline. Read-modify-write operations are full barriers, like the system's
// operations of the same names. A `compareExchange` that fails only acquires. The names of the
// others say what they order. In the simulated form of the platform each of them is a scheduling
// point.
#pragma once

#include <cstdint>

namespace ZvPlatform::Interlocked {

#ifdef ZV_PLATFORM_SIMULATED
/// Lets the scheduler switch to another thread.
__attribute__((visibility("default"))) void schedulingPoint();
#else
/// Does nothing. Lets the scheduler switch to another thread if the services are simulated.
inline void schedulingPoint() {}
#endif

/// Returns the value. Later accesses of the thread are ordered after it.
template <class T>
[[nodiscard]] inline T loadAcquire(T const &variable)
{
    schedulingPoint();
    T value;
    __atomic_load(const_cast<T *>(&variable), &value, __ATOMIC_ACQUIRE);
    return value;
}

/// Returns the value, without any order. For statistics and hints, and for a word that only the
/// calling thread changes.
template <class T>
[[nodiscard]] inline T loadRelaxed(T const &variable)
{
    schedulingPoint();
    T value;
    __atomic_load(const_cast<T *>(&variable), &value, __ATOMIC_RELAXED);
    return value;
}

/// Stores a value. Earlier accesses of the thread are ordered before it.
template <class T>
inline void storeRelease(T &variable, T value)
{
    schedulingPoint();
    __atomic_store(&variable, &value, __ATOMIC_RELEASE);
}

/// Stores a value, without any order.
template <class T>
inline void storeRelaxed(T &variable, T value)
{
    schedulingPoint();
    __atomic_store(&variable, &value, __ATOMIC_RELAXED);
}

/// Adds `amount` and returns the new value.
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

/// Stores `value` and returns the former value.
template <class T>
inline T exchange(T &variable, T value)
{
    schedulingPoint();
    T former;
    __atomic_exchange(&variable, &value, &former, __ATOMIC_SEQ_CST);
    return former;
}

/// Stores `desired` if the variable equals `expected`, and returns true. Otherwise sets `expected`
/// to the value of the variable and returns false.
template <class T>
inline bool compareExchange(T &variable, T &expected, T desired)
{
    schedulingPoint();
    return __atomic_compare_exchange(&variable, &expected, &desired, false, __ATOMIC_SEQ_CST,
                                     __ATOMIC_ACQUIRE);
}

} // namespace ZvPlatform::Interlocked
