// Spinning before a sleep, if that pays.
//
// A sleep and its wake-up cost some microseconds. A hand-over from a thread that runs on another
// processor costs a fraction of that. Each object learns by itself: a success gives it the longest
// time to spin, and a failure halves its time. Spinning between two threads pays only if both are
// awake. After waits that slept at once, a try therefore includes the next few waits of the whole
// process. Tries that fail, such as those of threads on one processor, become ever rarer.
#include "platform/linux/object.h"

#include <algorithm>
#include <sched.h>
#include <unistd.h>

namespace ZvPlatform::Linux {

namespace {

constexpr Instant LONGEST_SPIN = 5000; // nanoseconds, about the cost of a sleep and a wake-up
constexpr std::uint16_t SHORTEST = 16; // pauses
constexpr std::uint32_t TRIES = 16;
constexpr std::uint16_t REFUSALS = 64;
constexpr std::uint8_t MOST_FAILURES = 8;

/// In pauses. 0 if it is not measured yet.
constinit std::atomic<std::uint32_t> longestSpin{0};

/// Waits that still belong to the present try.
constinit std::atomic<std::uint32_t> triesLeft{0};

/// The recent results of the waits for all objects. A new object begins with them.
constinit SpinCredit lately{};

template <class T>
T get(T const &value)
{
    return __atomic_load_n(&value, __ATOMIC_RELAXED);
}

template <class T>
void set(T &value, T wanted)
{
    // All waits share this variable, so it is not written without need.
    if (get(value) != wanted)
        __atomic_store_n(&value, wanted, __ATOMIC_RELAXED);
}

/// Returns the number of processors that this thread and the main thread may use together. A thread
/// that is tied to one processor says little about the others.
int usableProcessors()
{
    cpu_set_t mine, main;
    CPU_ZERO(&mine);
    CPU_ZERO(&main);
    ::sched_getaffinity(0, sizeof mine, &mine);
    ::sched_getaffinity(::getpid(), sizeof main, &main);
    CPU_OR(&mine, &mine, &main);
    return CPU_COUNT(&mine);
}

std::uint32_t measure()
{
    // The fastest of a few short runs counts, because the others were interrupted.
    constexpr std::uint32_t PAUSES = 64;
    Instant best = NEVER;
    for (int run = 0; run < 4; ++run) {
        Instant const start = now();
        for (std::uint32_t i = 0; i < PAUSES; ++i)
            pause();
        best = std::min(best, now() - start);
    }
    Instant const pauses = LONGEST_SPIN * PAUSES / std::max<Instant>(best, 1);
    return static_cast<std::uint32_t>(std::clamp<Instant>(pauses, SHORTEST, 4000));
}

/// Returns whether a wait without credit must spin all the same.
bool tries(SpinCredit &credit)
{
    std::uint32_t left = triesLeft.load(std::memory_order_relaxed);
    if (left) {
        triesLeft.compare_exchange_strong(left, left - 1, std::memory_order_relaxed);
        return true;
    }
    if (std::uint16_t const refusals = get(credit.refusals)) {
        set<std::uint16_t>(credit.refusals, refusals - 1);
        return false;
    }
    std::uint8_t const failures = get(credit.failures);
    set<std::uint16_t>(credit.refusals, REFUSALS << failures);
    set<std::uint8_t>(credit.failures, std::min<std::uint8_t>(failures + 1, MOST_FAILURES));
    set(lately.refusals, get(credit.refusals));
    set(lately.failures, get(credit.failures));
    if (usableProcessors() < 2)
        return false;
    triesLeft.store(TRIES, std::memory_order_relaxed);
    return true;
}

} // namespace

std::uint32_t spinBudget(SpinCredit &credit)
{
    if (GetPriorityClass(CURRENT_PROCESS) == REALTIME_PRIORITY_CLASS)
        return 0;
    std::uint16_t const pauses = get(credit.pauses);
    if (pauses >= SHORTEST)
        return pauses;
    if (!tries(credit))
        return 0;
    std::uint32_t longest = longestSpin.load(std::memory_order_relaxed);
    if (!longest) {
        longest = measure();
        longestSpin.store(longest, std::memory_order_relaxed);
    }
    return longest;
}

SpinCredit newSpinCredit()
{
    return {get(lately.pauses), get(lately.refusals), get(lately.failures)};
}

void spinPaid(SpinCredit &credit)
{
    auto const longest = static_cast<std::uint16_t>(longestSpin.load(std::memory_order_relaxed));
    for (SpinCredit *each : {&credit, &lately}) {
        set(each->pauses, longest);
        set<std::uint8_t>(each->failures, 0);
    }
}

void spinFailed(SpinCredit &credit)
{
    for (SpinCredit *each : {&credit, &lately})
        set<std::uint16_t>(each->pauses, get(each->pauses) / 2);
}

} // namespace ZvPlatform::Linux
