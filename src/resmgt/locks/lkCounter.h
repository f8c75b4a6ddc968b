// Counter with atomic operators (applications).
#pragma once

#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkLock.h"
#include "zvbase/platform/shared.h"

#include <cstdint>

namespace Zv {

/// Value with atomic counting operators.
///
///     Zv::LkCounter<long> nbFrames;
///     long const number = ++nbFrames; // 1
///
/// `++` and `--` before the counter, `+=`, `-=` and `=` return the new value. `++` and `--` behind
/// it return the old value. `getValue` returns the present one.
///
/// `LkCounter<long>` has 32 bits on every platform, wraps around and takes no lock. For every other
/// type the counter holds an `LkLock`, and each operation takes it.
///
/// **Threads**: thread-safe.
template <class T>
class LkCounter
{
public:
    /// Starts at `value`.
    explicit LkCounter(T const &value = T()) : _lock("LkCounterLock"), _value(value) {}
    LkCounter(LkCounter const &) = delete;
    LkCounter &operator=(LkCounter const &) = delete;

    T operator++()
    {
        LkGuard const guard(_lock);
        return ++_value;
    }
    T operator++(int)
    {
        LkGuard const guard(_lock);
        return _value++;
    }
    T operator--()
    {
        LkGuard const guard(_lock);
        return --_value;
    }
    T operator--(int)
    {
        LkGuard const guard(_lock);
        return _value--;
    }
    T operator+=(T const &amount)
    {
        LkGuard const guard(_lock);
        return _value += amount;
    }
    T operator-=(T const &amount)
    {
        LkGuard const guard(_lock);
        return _value -= amount;
    }
    T operator=(T const &value)
    {
        LkGuard const guard(_lock);
        return _value = value;
    }
    T getValue() const
    {
        LkGuard const guard(_lock);
        return _value;
    }

private:
    LkLock _lock;
    T _value ZV_GUARDED_BY(_lock);
};

template <class T>
class LkCounterWindows;

/// Platform form of `LkCounter<long>`: 32 bits that wrap around.
template <>
class LkCounterWindows<long>
{
public:
    explicit LkCounterWindows(long value = 0) noexcept : _value(static_cast<std::int32_t>(value)) {}
    LkCounterWindows(LkCounterWindows const &) = delete;
    LkCounterWindows &operator=(LkCounterWindows const &) = delete;

    /// Adds `amount` and returns the new value.
    long add(long amount)
    {
        auto const number = static_cast<std::int32_t>(amount);
        std::int32_t const former = _value.fetch_add(number, ZvPlatform::Order::SEQ_CST);
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(former) +
                                         static_cast<std::uint32_t>(number));
    }
    /// Adds 1 and returns the new value.
    long increment() { return add(1); }
    /// Subtracts 1 and returns the new value.
    long decrement() { return add(-1); }
    void set(long value)
    {
        _value.exchange(static_cast<std::int32_t>(value), ZvPlatform::Order::SEQ_CST);
    }
    // An interlocked read is in one order with all changes of counters.
    long getValue() const { return _value.load(ZvPlatform::Order::SEQ_CST); }

private:
    ZvPlatform::Shared<std::int32_t> _value;
};

/// Counter without a lock, which reference counts are made of.
template <>
class LkCounter<long>
{
public:
    /// Starts at the low 32 bits of `value`.
    explicit LkCounter(long value = 0) noexcept : _imp(value) {}
    LkCounter(LkCounter const &) = delete;
    LkCounter &operator=(LkCounter const &) = delete;

    long operator++() { return _imp.increment(); }
    long operator++(int) { return minus(_imp.increment(), 1); }
    long operator--() { return _imp.decrement(); }
    long operator--(int) { return minus(_imp.decrement(), -1); }
    long operator+=(long amount) { return _imp.add(amount); }
    long operator-=(long amount) { return _imp.add(minus(0, amount)); }
    long operator=(long value)
    {
        _imp.set(value);
        return minus(value, 0);
    }
    long getValue() const { return _imp.getValue(); }

private:
    /// Returns the difference, which wraps around as the counter does.
    static long minus(long left, long right)
    {
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(left) -
                                         static_cast<std::uint32_t>(right));
    }

    LkCounterWindows<long> _imp;
};

} // namespace Zv
