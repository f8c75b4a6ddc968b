// Spinning before a sleep, if that pays.
//
// A hand-over between two threads that are awake takes a fraction of a microsecond. If a processor
// went idle, a sleep and its wake-up take tens of microseconds. A wait that first spins for as long
// as a wake-up takes, and only then sleeps, costs at most twice as much as the better of the two.
//
// Each object learns from its waits. They spin as long as that succeeds. After a few failures they
// sleep at once, and a sleep that was short enough for a spin leads to the next try. A thread whose
// waits are long therefore does not spin.
#pragma once

#include "platform/common/clock.h"
#include "platform/linux/fastWays.h"
#include "platform/linux/futex.h"

#include <algorithm>

namespace ZvPlatform::Linux {

// ---- the rules ----------------------------------------------------------------------------------

inline constexpr Instant LONGEST_SPIN = 50'000;

/// A processor without work is idle after this time. A thread that is called earlier wakes sooner
/// than others, and does not count.
inline constexpr Instant IDLE_AFTER = 3'000;

/// Returns the cost of a sleep after one more wake-up, which took `wakeUp` from the call until the
/// thread ran. A cost of 0 is unknown. Cheap wake-ups count more. Under full load, no processor is
/// idle, many wake-ups take only as long as a change of threads, and a longer spin would take the
/// processor from another thread.
constexpr Instant nextSleepCost(Instant cost, Instant wakeUp)
{
    wakeUp = std::clamp<Instant>(wakeUp, 1, LONGEST_SPIN);
    if (cost == 0)
        return wakeUp;
    return wakeUp < cost ? cost - (cost - wakeUp) / 4 : cost + (wakeUp - cost) / 16;
}

inline constexpr std::uint8_t MOST_TRUST = 4;
inline constexpr std::uint8_t MOST_FAILURES = 6;

/// Returns the credit of an object after a spin that was long enough.
constexpr SpinCredit afterSuccess()
{
    return {.trust = MOST_TRUST, .failures = 0, .refusals = 0};
}

/// Returns the credit of an object after a spin that was too short. When the trust is used up, each
/// failure doubles the number of short waits before the next try.
constexpr SpinCredit afterFailure(SpinCredit credit)
{
    credit.trust /= 2;
    if (credit.trust == 0) {
        credit.failures = std::min<std::uint8_t>(credit.failures + 1, MOST_FAILURES);
        credit.refusals = static_cast<std::uint16_t>(1 << credit.failures);
    }
    return credit;
}

/// Returns the credit of an object after a sleep for which a spin would have been long enough.
constexpr SpinCredit afterShortSleep(SpinCredit credit)
{
    if (credit.refusals)
        --credit.refusals;
    else if (credit.trust == 0)
        credit.trust = 1;
    return credit;
}

// ---- their use ----------------------------------------------------------------------------------

/// The last call that was to wake a thread.
struct Call
{
    Shared<Instant> at{0};
    Shared<int> from{-1}; ///< the processor

    /// Notes a call that the calling thread is about to make.
    void note();
};

/// A wait that may spin before it sleeps.
class Spin
{
public:
    /// `call` notes the call that ends the sleep, and `start` is the present time.
    Spin(Shared<SpinCredit> &credit, Call const &call, Instant start)
        : _credit(credit),
          _call(call),
          _start(start),
          _sleepsSince(start),
          _processor(Kernel::currentProcessor())
    {}

    /// Calls `tryIt` until it succeeds, as long as that may pay. Returns whether it has succeeded.
    template <class Try>
    bool run(Try tryIt)
    {
        Instant const limit = getLimit();
        if (limit == 0)
            return false;
        do {
            for (int i = 0; i < LOOKS; ++i) {
                if (tryIt()) {
                    setCredit(afterSuccess());
                    return true;
                }
                Kernel::pause();
            }
            _sleepsSince = now();
        } while (_sleepsSince - _start < limit);
        setCredit(afterFailure(getCredit()));
        return false;
    }

    /// Learns from a sleep. To be called as soon as the thread is awake.
    void learn();

    Instant getStart() const { return _start; }

private:
    /// Calls of `tryIt` for each look at the clock.
    static constexpr int LOOKS = 16;

    /// Returns how long this wait may spin. Returns 0 in real-time operation, and if spinning does
    /// not pay.
    Instant getLimit() const;
    SpinCredit getCredit() const { return _credit.load(Order::RELAXED); }
    void setCredit(SpinCredit credit)
    {
        // All waits for the object share the credit, so it is not written without need.
        if (getCredit() != credit)
            _credit.store(credit, Order::RELAXED);
    }

    Shared<SpinCredit> &_credit;
    Call const &_call;
    Instant const _start;
    Instant _sleepsSince;
    int const _processor;
};

} // namespace ZvPlatform::Linux
