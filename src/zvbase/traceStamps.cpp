#include "zvbase/traceStamps.private.h"

#include "platform/services.h"

#include <algorithm>
#include <cstddef>

namespace Zv {

namespace {

/// Keeps the memory bounded. Two days fit if there is always an event.
constexpr std::size_t MAX_READINGS = 4096;

} // namespace

TraceStamps::TraceStamps()
{
    _readings.reserve(MAX_READINGS);
    _readings.push_back(read());
}

TraceStamps::Reading TraceStamps::read()
{
    LARGE_INTEGER frequency;
    ::QueryPerformanceFrequency(&frequency);
    ZvPlatform::Moment const moment = ZvPlatform::readMoment();
    return {moment.stamp,
            static_cast<double>(moment.clock) / static_cast<double>(frequency.QuadPart) * 1e6};
}

void TraceStamps::add(Reading const &reading)
{
    if (reading.stamp < _readings.back().stamp) // the machine has slept
        _readings.clear();
    if (_readings.size() == MAX_READINGS) {
        // Every other one of the earlier half goes. Only spans that last since then would notice.
        std::size_t kept = 0;
        for (std::size_t i = 0; i < MAX_READINGS / 2; i += 2)
            _readings[kept++] = _readings[i];
        _readings.erase(_readings.begin() + static_cast<std::ptrdiff_t>(kept),
                        _readings.begin() + MAX_READINGS / 2);
    }
    _readings.push_back(reading);
}

double TraceStamps::toMicroseconds(std::uint64_t stamp)
{
    if (stamp > _readings.back().stamp)
        add(read());
    auto const next = std::lower_bound(
        _readings.begin(), _readings.end(), stamp,
        [](Reading const &reading, std::uint64_t value) { return reading.stamp < value; });
    if (next == _readings.begin() || next == _readings.end())
        return next == _readings.end() ? _readings.back().microseconds : next->microseconds;
    Reading const &former = next[-1];
    double const share =
        static_cast<double>(stamp - former.stamp) / static_cast<double>(next->stamp - former.stamp);
    return former.microseconds + share * (next->microseconds - former.microseconds);
}

} // namespace Zv
