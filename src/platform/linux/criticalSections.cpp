#include "platform/linux/object.h"

namespace ZvPlatform {

using namespace Linux;

namespace {

/// The owner's number, and in a bit that numbers do not have whether somebody sleeps.
constexpr std::uint32_t SLEEPERS = 1;

struct Section
{
    std::atomic<std::uint32_t> word{0};
    std::uint32_t recursion = 0;
    SpinCredit spin{};
};
static_assert(sizeof(Section) <= sizeof(CRITICAL_SECTION));

Section &sectionOf(CRITICAL_SECTION *section)
{
    return *reinterpret_cast<Section *>(section->storage);
}

bool take(Section &section, std::uint32_t mine)
{
    std::uint32_t free = 0;
    return section.word.compare_exchange_strong(free, mine, std::memory_order_acquire,
                                                std::memory_order_relaxed);
}

// Out of line, so that the fast way saves no registers for it.
[[gnu::noinline]] void enterSlowly(Section &section)
{
    Service service;
    ThreadNumber const me = service.thread().number;
    auto const tryIt = [&] {
        return section.word.load(std::memory_order_relaxed) == 0 && take(section, me);
    };
    if (spin(section.spin, tryIt)) {
        section.recursion = 1;
        return;
    }
    // Having slept, one cannot know whether others still do, and takes the section with the bit set.
    while (!take(section, me | SLEEPERS)) {
        std::uint32_t seen = section.word.load(std::memory_order_relaxed);
        if (seen == 0)
            continue;
        if (seen & SLEEPERS ||
            section.word.compare_exchange_strong(seen, seen | SLEEPERS, std::memory_order_relaxed))
            futexWait(&section.word, seen | SLEEPERS, NEVER);
        if (service.killed()) {
            // This may have been the one that was woken.
            futexWake(&section.word, 1);
            return;
        }
    }
    section.recursion = 1;
}

} // namespace

void InitializeCriticalSection(CRITICAL_SECTION *section)
{
    new (section->storage) Section;
}

void EnterCriticalSection(CRITICAL_SECTION *section)
{
    Section &mine = sectionOf(section);
    ThreadNumber const me = currentNumber();
    if (take(mine, me)) [[likely]]
        mine.recursion = 1;
    else if ((mine.word.load(std::memory_order_relaxed) & ~SLEEPERS) == me)
        ++mine.recursion;
    else
        enterSlowly(mine);
}

BOOL TryEnterCriticalSection(CRITICAL_SECTION *section)
{
    Section &mine = sectionOf(section);
    ThreadNumber const me = currentNumber();
    if (take(mine, me)) {
        mine.recursion = 1;
        return TRUE;
    }
    if ((mine.word.load(std::memory_order_relaxed) & ~SLEEPERS) != me)
        return FALSE;
    ++mine.recursion;
    return TRUE;
}

void LeaveCriticalSection(CRITICAL_SECTION *section)
{
    Section &mine = sectionOf(section);
    if (mine.recursion > 1) {
        --mine.recursion;
        return;
    }
    if (mine.word.exchange(0, std::memory_order_release) & SLEEPERS) [[unlikely]]
        futexWake(&mine.word, 1);
}

void DeleteCriticalSection(CRITICAL_SECTION *) {}

} // namespace ZvPlatform
