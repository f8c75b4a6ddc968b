#include "zvbase/periodicTimer.h"

#include "platform/services.h"
#include "zvbase/baseLock.private.h"
#include "zvbase/failures.h"

#include <algorithm>
#include <cmath>

namespace Zv {

namespace {

/// The shortest interval. The system does not wake threads more exactly.
constexpr double FINEST_INTERVAL = 0.001;
/// The system's timer is set for a day at most, and then set again. So its unit and its number of
/// bits do not matter.
constexpr double LONGEST_STRETCH = 86'400.0;

double toSeconds(LONGLONG ticks)
{
    LARGE_INTEGER frequency;
    ZV_SYS_ASSERT(::QueryPerformanceFrequency( &frequency ));
    return static_cast<double>(ticks) / static_cast<double>(frequency.QuadPart);
}

LONGLONG getNow()
{
    LARGE_INTEGER now;
    ZV_SYS_ASSERT(::QueryPerformanceCounter( &now ));
    return now.QuadPart;
}

/// The grid of the beats, and a timer of the system that is set to the next beat while a thread
/// waits.
class PeriodicTimerImp : public PeriodicTimer
{
public:
    explicit PeriodicTimerImp(double interval);
    ~PeriodicTimerImp() noexcept(false) override;

    void reset() override;
    double getTimeToNextBeat() const override;
    unsigned long wait() override;
    double setInterval(double interval) override;
    unsigned long getCurrentCount() const override;
    double getInterval() const override;

private:
    double getElapsed() const ZV_REQUIRES(_lock);
    std::uint64_t getBeats(double elapsed) const ZV_REQUIRES(_lock);
    std::uint64_t getCount(double elapsed) const ZV_REQUIRES(_lock);
    void arm(double elapsed) ZV_REQUIRES(_lock);

    static double adjust(double interval)
    {
        return interval > FINEST_INTERVAL ? interval : FINEST_INTERVAL;
    }

    mutable BaseLock _lock;
    LONGLONG _origin ZV_GUARDED_BY(_lock);
    double _interval ZV_GUARDED_BY(_lock);
    HANDLE _timer;                                // made last: if the clock fails, there is none
    std::uint64_t _base ZV_GUARDED_BY(_lock) = 0; // beats of earlier grids
    std::uint64_t _returned ZV_GUARDED_BY(_lock) = 0; // by the latest wait
    bool _isAwaited ZV_GUARDED_BY(_lock) = false;
};

PeriodicTimerImp::PeriodicTimerImp(double interval)
    : _origin(getNow()),
      _interval(adjust(interval)),
      _timer(::CreateWaitableTimerA(nullptr, FALSE, nullptr))
{
    ZV_SYS_ASSERT(_timer != 0);
}

PeriodicTimerImp::~PeriodicTimerImp() noexcept(false)
{
    ZV_SYS_ASSERT_IN_DESTRUCTOR(::CloseHandle( _timer ));
}

double PeriodicTimerImp::getElapsed() const
{
    return toSeconds(getNow() - _origin);
}

std::uint64_t PeriodicTimerImp::getBeats(double elapsed) const
{
    auto beats = static_cast<std::uint64_t>(std::max(elapsed / _interval, 0.0));
    // The quotient is rounded. The products decide.
    while (beats > 0 && static_cast<double>(beats) * _interval > elapsed)
        --beats;
    while (static_cast<double>(beats + 1) * _interval <= elapsed)
        ++beats;
    return beats;
}

std::uint64_t PeriodicTimerImp::getCount(double elapsed) const
{
    return _base + getBeats(elapsed);
}

void PeriodicTimerImp::arm(double elapsed)
{
    double const next = static_cast<double>(getBeats(elapsed) + 1) * _interval;
    double const stretch = std::min(next - elapsed, LONGEST_STRETCH);
    LARGE_INTEGER due;
    due.QuadPart = -std::max<LONGLONG>(static_cast<LONGLONG>(std::ceil(stretch * 1e7)), 1);
    ZV_SYS_ASSERT(::SetWaitableTimer( _timer, &due, 0, nullptr, nullptr, FALSE ));
}

void PeriodicTimerImp::reset()
{
    BaseGuard const guard(_lock);
    _origin = getNow();
    _base = 0;
    _returned = 0;
    if (_isAwaited)
        arm(0);
}

double PeriodicTimerImp::getTimeToNextBeat() const
{
    BaseGuard const guard(_lock);
    double const elapsed = getElapsed();
    return static_cast<double>(getBeats(elapsed) + 1) * _interval - elapsed;
}

unsigned long PeriodicTimerImp::wait()
{
    for (;;) {
        {
            BaseGuard const guard(_lock);
            double const elapsed = getElapsed();
            std::uint64_t const count = getCount(elapsed);
            if (count > _returned) {
                _isAwaited = false;
                _returned = count;
                return static_cast<std::uint32_t>(count);
            }
            _isAwaited = true;
            arm(elapsed);
        }
        DWORD const waitResult = ::WaitForSingleObject(_timer, INFINITE);
        ZV_SYS_ASSERT(waitResult == WAIT_OBJECT_0);
    }
}

double PeriodicTimerImp::setInterval(double interval)
{
    BaseGuard const guard(_lock);
    LONGLONG const now = getNow();
    _base = getCount(toSeconds(now - _origin));
    _origin = now;
    _interval = adjust(interval);
    if (_isAwaited)
        arm(0);
    return _interval;
}

unsigned long PeriodicTimerImp::getCurrentCount() const
{
    BaseGuard const guard(_lock);
    return static_cast<std::uint32_t>(getCount(getElapsed()));
}

double PeriodicTimerImp::getInterval() const
{
    BaseGuard const guard(_lock);
    return _interval;
}

} // namespace

PeriodicTimer::PeriodicTimer() = default;
PeriodicTimer::~PeriodicTimer() noexcept(false) = default;

double PeriodicTimer::getResolution()
{
    return FINEST_INTERVAL;
}

ObjPtrRet<PeriodicTimer> PeriodicTimer::create(double interval)
{
    return ObjPtrRet<PeriodicTimer>(new PeriodicTimerImp(interval));
}

} // namespace Zv
