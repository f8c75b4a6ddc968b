// The platform form of LkCounter<long>.
#pragma once

#include "zvbase/platform/interlocked.h"

#include <cstdint>

namespace Zv {

template <class T>
class LkCounterWindows;

/// A counter of 32 bits on every platform; it wraps around. See LkCounter.
template <>
class LkCounterWindows<long>
{
public:
    explicit LkCounterWindows(long value = 0) noexcept : _value(static_cast<std::int32_t>(value)) {}
    LkCounterWindows(LkCounterWindows const &) = delete;
    LkCounterWindows &operator=(LkCounterWindows const &) = delete;

    long add(long amount)
    {
        return ZvPlatform::Interlocked::add(_value, static_cast<std::int32_t>(amount));
    }
    long increment() { return ZvPlatform::Interlocked::increment(_value); }
    long decrement() { return ZvPlatform::Interlocked::decrement(_value); }
    void set(long value)
    {
        ZvPlatform::Interlocked::exchange(_value, static_cast<std::int32_t>(value));
    }
    long getValue() const { return ZvPlatform::Interlocked::loadAcquire(_value); }

private:
    std::int32_t _value;
};

} // namespace Zv
