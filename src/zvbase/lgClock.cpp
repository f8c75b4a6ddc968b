#include "zvbase/lgClock.private.h"

#include "platform/services.h"

#include <algorithm>
#include <cmath>

namespace Zv {

namespace {

std::int64_t getFrequency()
{
    LARGE_INTEGER frequency;
    ::QueryPerformanceFrequency(&frequency);
    return frequency.QuadPart;
}

double inSeconds(std::int64_t ticks)
{
    return static_cast<double>(ticks) / static_cast<double>(getFrequency());
}

} // namespace

std::uint64_t LgClock::read()
{
    ZvPlatform::Moment const moment = ZvPlatform::readMoment();
    Reading const now = {moment.stamp, moment.clock};
    bool const isFirst = _latest.stamp == 0;
    if (isFirst || now.stamp < _latest.stamp || now.ticks < _latest.ticks) {
        _earliest = _middle = now;
        _converted = {};
    } else if (_latest.ticks - _middle.ticks >= getFrequency()) {
        _earliest = _middle;
        _middle = _latest;
    }
    _latest = now;
    return now.stamp;
}

std::int64_t LgClock::toTicks(std::uint64_t stamp) const
{
    if (stamp >= _latest.stamp)
        return _latest.ticks;
    std::uint64_t const span = _latest.stamp - _earliest.stamp;
    double const rate =
        span ? static_cast<double>(_latest.ticks - _earliest.ticks) / static_cast<double>(span) : 1;
    return _latest.ticks - std::llround(static_cast<double>(_latest.stamp - stamp) * rate);
}

double LgClock::toSeconds(std::uint64_t stamp)
{
    std::int64_t ticks = toTicks(stamp);
    if (stamp >= _converted.stamp && stamp <= _latest.stamp) {
        // A new reading may move earlier stamps by a fraction of a microsecond.
        ticks = std::max(ticks, _converted.ticks);
        _converted = {stamp, ticks};
    }
    return inSeconds(ticks);
}

double LgClock::getSeconds()
{
    return inSeconds(ZvPlatform::readMoment().clock);
}

} // namespace Zv
