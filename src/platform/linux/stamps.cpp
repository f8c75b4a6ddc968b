// Stamps of moments. The kernel's choice of its own clock tells whether the processors' counter may
// be used.

#include "platform/linux/futex.h"
#include "platform/services.h"

#include <atomic>

#ifdef __x86_64__
#include <cpuid.h>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <x86intrin.h>
#endif

namespace ZvPlatform {

using namespace Linux;

namespace {

enum class Source : std::uint8_t
{
    UNDECIDED,
    CLOCK,
    COUNTER
};

/// All stamps of the process have the same source.
constinit std::atomic<Source> source{Source::UNDECIDED};

#ifdef __x86_64__

/// Returns true if the counter runs at the same rate in all states of the processor.
bool isInvariant()
{
    constexpr unsigned LEAF = 0x80000007;
    constexpr unsigned INVARIANT = 1 << 8;
    unsigned a, b, c, d;
    return ::__get_cpuid(LEAF, &a, &b, &c, &d) && (d & INVARIANT);
}

/// Returns true if the kernel's clock is the counter. The kernel has found then that the counters
/// of all processors agree.
bool isTrustedByKernel()
{
    int const file = ::open("/sys/devices/system/clocksource/clocksource0/current_clocksource",
                            O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return false;
    char name[4] = {};
    ssize_t const length = ::read(file, name, sizeof name);
    ::close(file);
    return length == sizeof name && std::memcmp(name, "tsc\n", sizeof name) == 0;
}

/// Reads the counter when all earlier instructions are executed.
std::uint64_t readCounter()
{
    ::_mm_lfence();
    return ::__rdtsc();
}

#else

bool isInvariant()
{
    return false;
}

bool isTrustedByKernel()
{
    return false;
}

std::uint64_t readCounter()
{
    return 0;
}

#endif

[[gnu::cold]] std::uint64_t decideAndRead()
{
    Source undecided = Source::UNDECIDED;
    source.compare_exchange_strong(undecided, isInvariant() && isTrustedByKernel() ? Source::COUNTER
                                                                                   : Source::CLOCK);
    return readStamp();
}

} // namespace

std::uint64_t readStamp()
{
    Source const known = source.load(std::memory_order_relaxed);
    if (known == Source::COUNTER) [[likely]]
        return readCounter();
    return known == Source::CLOCK ? static_cast<std::uint64_t>(now()) : decideAndRead();
}

Moment readMoment()
{
    // So many ticks are less than half a microsecond, and more than two readings take.
    constexpr std::uint64_t CLOSE_ENOUGH = 500;
    constexpr int TRIES = 8;

    std::uint64_t before = readStamp();
    if (source.load(std::memory_order_relaxed) == Source::CLOCK)
        return {before, static_cast<LONGLONG>(before)};
    Moment best{};
    std::uint64_t closest = UINT64_MAX;
    for (int i = 0; i < TRIES && closest > CLOSE_ENOUGH; ++i) {
        Instant const clock = now();
        std::uint64_t const after = readStamp();
        if (after - before < closest) {
            closest = after - before;
            best = {before + closest / 2, clock};
        }
        before = after;
    }
    return best;
}

} // namespace ZvPlatform
