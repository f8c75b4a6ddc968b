// Stamps of moments. The kernel's choice of its own clock tells whether the processors' counter may
// be used.

#include "platform/linux/futex.h"
#include "platform/services.h"

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
constinit Shared<Source> source{Source::UNDECIDED};

[[gnu::cold]] std::uint64_t decideAndRead()
{
    Source undecided = Source::UNDECIDED;
    source.compare_exchange_strong(
        undecided, Kernel::hasTrustedCounter() ? Source::COUNTER : Source::CLOCK, Order::RELAXED);
    return readStamp();
}

} // namespace

std::uint64_t readStamp()
{
    Source const known = source.load(Order::RELAXED);
    if (known == Source::COUNTER) [[likely]]
        return Kernel::readCounter();
    if (known == Source::UNDECIDED)
        return decideAndRead();
    Kernel::completeMemory();
    return static_cast<std::uint64_t>(now());
}

Moment readMoment()
{
    // So many ticks are less than half a microsecond, and more than two readings take.
    constexpr std::uint64_t CLOSE_ENOUGH = 500;
    constexpr int TRIES = 8;

    std::uint64_t before = readStamp();
    if (source.load(Order::RELAXED) == Source::CLOCK)
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
