// Counters that threads share.
#pragma once

#include "resmgt/locks/lkCounterWindows.h"
#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkLock.h"

namespace Zv {

/// A value with atomic counting operators. Any thread may use it. Pre-forms, `+=`, `-=` and `=` answer the new value,
/// post-forms the old one.
///
/// `LkCounter<long>` has 32 bits, wraps around and takes no lock; it is what reference counts are made of. Any other
/// kind of value lies behind a lock of its own.
template <class T>
class LkCounter
{
public:
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

template <>
class LkCounter<long>
{
public:
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
    /// The difference, which wraps around as the counter does.
    static long minus(long left, long right)
    {
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(left) -
                                         static_cast<std::uint32_t>(right));
    }

    LkCounterWindows<long> _imp;
};

} // namespace Zv
