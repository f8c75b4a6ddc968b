// Sources of beats: the interface, and the clock of the library (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkSingleton.h"
#include "zvbase/objPtr.h"
#include "zvbase/periodicTimer.h"

#include <chrono>
#include <cstdint>
#include <iosfwd>

namespace Zv {

/// A source of beats. It can be started and stopped, and a thread can wait for the next beat.
/// Derive from it to pace threads by something other than `SeSourceClock`, for example by the
/// interrupt of a card.
///
///     class CardSource : public SeSourceProtocol
///     {
///     public:
///         void start() override {}
///         void stop() override {}
///         std::uint32_t waitSync() override { return ++_count; } // waits for the interrupt first
///         double getRate() override { return 25; }
///         char const *getName() override { return "Card"; }
///         std::ostream &dump(std::ostream &stream) override { return stream << "Card"; }
///
///     private:
///         std::uint32_t _count = 0;
///     };
///
/// **Threads**: `start`, `stop` and `waitSync` are called on the thread of the generator. Any
/// thread may call the other operations.
class ZVRESMGT_EXPORT SeSourceProtocol
{
public:
    virtual ~SeSourceProtocol() noexcept(false) = 0;
    /// Called once before the first wait. Must not block, because the generator's mutex is held.
    /// All calls of `SeSyncEngine` that concern this source wait for that mutex, and all other
    /// calls of the engine wait for them.
    virtual void start() = 0;
    /// Called once after the last wait. Must not block, because the generator's mutex is held.
    virtual void stop() = 0;
    /// Blocks until the next beat, and returns the running count of 32 bits. Must not return 0 on
    /// the first call, or an assertion fails. No lock is held. The thread has a stack of 64 KiB.
    virtual std::uint32_t waitSync() = 0;
    /// Returns the number of beats in a second.
    virtual double getRate() = 0;
    /// Returns the name of the source, which becomes the name of the generator's thread. It must be
    /// valid as long as the source.
    virtual char const *getName() = 0;
    /// Writes a description of the source. Must not block, because the generator's mutex is held.
    virtual std::ostream &dump(std::ostream &stream) = 0;

protected:
    SeSourceProtocol() = default;
    SeSourceProtocol(SeSourceProtocol const &) = default;
    SeSourceProtocol &operator=(SeSourceProtocol const &) = default;
};

/// Calls `dump`.
ZVRESMGT_EXPORT std::ostream &operator<<(std::ostream &stream, SeSourceProtocol &source);

/// The source of beats that the library supplies: one periodic timer for the process. It serves one
/// generator at a time, and can serve a new one after the earlier one has stopped.
///
///     SeSourceClock &clock = SeSourceClock::getInstance();
///     clock.setInterval(std::chrono::milliseconds(40));
///     double const beatsPerSecond = clock.getRate();
///
/// Beats that no thread has waited for are not lost, because the count goes on.
///
/// **Threads**: thread-safe. Only the generator's thread may call `waitSync`.
///
/// **Throws** what `PeriodicTimer` throws.
class ZVRESMGT_EXPORT SeSourceClock : public SeSourceProtocol
{
public:
    /// The shortest default interval in seconds.
    static constexpr double DEF_WAIT_INTERVAL = 0.01;

    /// Returns the clock. It is made at the first call, and is never destroyed.
    static SeSourceClock &getInstance();
    /// Returns the greater of `DEF_WAIT_INTERVAL` and the timer's resolution, in seconds.
    static double getDefaultInterval();

    /// Sets the seconds between two beats. If `interval` is less than the timer's resolution, sets
    /// the resolution. Returns the interval that is now in force.
    double setInterval(double interval);
    /// Sets the time between two beats as the other overload does. Returns the interval that is now
    /// in force.
    std::chrono::duration<double> setInterval(std::chrono::duration<double> interval)
    {
        return std::chrono::duration<double>(setInterval(interval.count()));
    }
    /// Returns the seconds between two beats.
    double getInterval() const;

    /// Sets the count to 0. The next beat is one interval after this moment.
    void start() override;
    /// Sets the count to 0, as `start` does.
    void stop() override;
    std::uint32_t waitSync() override;
    /// Returns 1.0 divided by the interval.
    double getRate() override;
    /// Returns "Clock".
    char const *getName() override;
    /// Writes the name, the interval and the present count.
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
