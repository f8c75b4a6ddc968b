// Beats by the clock.
#pragma once

#include "resmgt/locks/lkSingleton.h"
#include "resmgt/syncEngine/seSourceProtocol.h"
#include "zvbase/objPtr.h"
#include "zvbase/periodicTimer.h"

namespace Zv {

/// The source that the library supplies itself: a periodic timer, one for the process. It serves one generator at a
/// time, and a new one after the earlier one has stopped.
///
/// `waitSync` is for the generator's thread; all else may be called by any thread and does not block. Beats that
/// nobody waited for are not lost: the count goes on. The timer's failures pass through.
class ZVRESMGT_EXPORT SeSourceClock : public SeSourceProtocol
{
public:
    /// Seconds.
    static constexpr double DEF_WAIT_INTERVAL = 0.01;

    /// The clock, made at the first call and never destroyed.
    static SeSourceClock &getInstance();
    /// The greater of `DEF_WAIT_INTERVAL` and the timer's resolution, in seconds.
    static double getDefaultInterval();

    /// Sets the seconds between two beats, no less than the timer's resolution. Returns the interval in force.
    double setInterval(double interval);
    double getInterval() const;

    /// Starts a new grid of beats at this moment, with the count at 0.
    void start() override;
    /// The same.
    void stop() override;
    std::uint32_t waitSync() override;
    /// 1.0 divided by the interval.
    double getRate() override;
    /// "Clock".
    char const *getName() override;
    /// Name, interval and present count.
    std::ostream &dump(std::ostream &stream) override;

private:
    friend class LkSingleton<SeSourceClock>;
    friend struct LkSingletonCreator<SeSourceClock>;

    SeSourceClock();
    ~SeSourceClock() noexcept(false) override;

    static double adjustInterval(double interval);

    ObjPtr<PeriodicTimer> _timer;
};

ZV_DECLARE_SINGLETON(SeSourceClock);

} // namespace Zv
