// Looking again for a moment before sleeping, where that pays.
//
// A sleep and the wake-up from it cost some microseconds; a hand-over from a thread that runs on another processor
// costs a fraction of one. Each object learns for itself how long its waits last.
#include "platform/linux/object.h"

#include <algorithm>
#include <sched.h>

namespace ZvPlatform::Linux {

namespace {

constexpr Instant LONGEST_SPIN = 5000; // nanoseconds, about what a sleep and a wake-up cost
constexpr std::uint32_t SHORTEST = 16;
constexpr std::uint8_t REFUSALS = 64;

// 0: not measured yet; 1: never, there is one processor.
constinit std::atomic<std::uint32_t> longestSpin{0};

// What the waits of all objects have lately come to: where an object begins that has no waits of its own.
constinit SpinCredit lately{};

void set(SpinCredit &credit, std::uint32_t pauses)
{
    __atomic_store_n(&credit.pauses, static_cast<std::uint16_t>(pauses), __ATOMIC_RELAXED);
}

std::uint8_t refuse(SpinCredit &credit)
{
    std::uint8_t const refusals = __atomic_load_n(&credit.refusals, __ATOMIC_RELAXED);
    __atomic_store_n(&credit.refusals, static_cast<std::uint8_t>((refusals + 1) % REFUSALS),
                     __ATOMIC_RELAXED);
    return refusals;
}

void paid(SpinCredit &credit, std::uint32_t used)
{
    std::uint32_t const longest = longestSpin.load(std::memory_order_relaxed);
    std::uint32_t const pauses = __atomic_load_n(&credit.pauses, __ATOMIC_RELAXED);
    std::uint32_t const wanted = std::min(longest, 2 * used + 2 * SHORTEST);
    set(credit, pauses < wanted ? wanted : pauses - (pauses - wanted) / 8);
}

void failed(SpinCredit &credit)
{
    set(credit, __atomic_load_n(&credit.pauses, __ATOMIC_RELAXED) / 2);
}

std::uint32_t measure()
{
    cpu_set_t usable;
    CPU_ZERO(&usable);
    if (::sched_getaffinity(0, sizeof usable, &usable) == 0 && CPU_COUNT(&usable) < 2)
        return 1;
    // The fastest of a few short runs: the others were interrupted.
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

} // namespace

std::uint32_t spinBudget(SpinCredit &credit)
{
    if (GetPriorityClass(CURRENT_PROCESS) == REALTIME_PRIORITY_CLASS)
        return 0;
    std::uint32_t longest = longestSpin.load(std::memory_order_relaxed);
    if (!longest) {
        longest = measure();
        longestSpin.store(longest, std::memory_order_relaxed);
    }
    if (longest == 1)
        return 0;
    std::uint16_t const pauses = __atomic_load_n(&credit.pauses, __ATOMIC_RELAXED);
    if (pauses >= SHORTEST)
        return std::min<std::uint32_t>(pauses, longest);
    // Tried in vain lately: times may have changed, so one wait in many tries again.
    refuse(lately);
    return refuse(credit) == 0 ? longest : 0;
}

SpinCredit newSpinCredit()
{
    return {__atomic_load_n(&lately.pauses, __ATOMIC_RELAXED),
            __atomic_load_n(&lately.refusals, __ATOMIC_RELAXED)};
}

void spinPaid(SpinCredit &credit, std::uint32_t used)
{
    paid(credit, used);
    paid(lately, used);
}

void spinFailed(SpinCredit &credit)
{
    failed(credit);
    failed(lately);
}

} // namespace ZvPlatform::Linux
