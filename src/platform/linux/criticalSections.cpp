#include "platform/linux/object.h"

namespace ZvPlatform {

using namespace Linux;

namespace {

/// The calls to the sleepers of the sections. Another thread may destroy a section as soon as it is
/// free, so the call is not noted in the section.
constinit Call calls[64];

Call &callOf(Section const &section)
{
    auto const bits = reinterpret_cast<std::uintptr_t>(&section);
    return calls[(bits >> 4 ^ bits >> 10) % std::size(calls)];
}

void enterSlowly(Section &section)
{
    Service service;
    ThreadNumber const me = service.thread().number;
    auto const tryIt = [&] { return section.word.load(Order::RELAXED) == 0 && take(section, me); };
    Spin spin(section.spin, callOf(section), now());
    bool isTaken = spin.run(tryIt);
    // A thread that has slept cannot know whether others still sleep, so it takes the section with
    // SLEEPERS set.
    while (!isTaken && !(isTaken = take(section, me | Section::SLEEPERS))) {
        std::uint32_t seen = section.word.load(Order::RELAXED);
        if (seen == 0)
            continue;
        if (seen & Section::SLEEPERS ||
            section.word.compare_exchange_strong(seen, seen | Section::SLEEPERS, Order::RELAXED)) {
            sleepOn(service, &section.word, seen | Section::SLEEPERS, NEVER);
            spin.learn();
        }
        if (service.killed()) {
            // The wake-up may have been for this thread, so it is passed on.
            futexWake(&section.word, 1);
            return;
        }
    }
    // A thread that was killed in here must not keep the section. It has written nothing, and the
    // exchange leaves in force what the owner before it has released.
    if (service.killed() && section.word.exchange(0, Order::RELAXED) & Section::SLEEPERS)
        wakeSleeper(section);
}

} // namespace

void Linux::wakeSleeper(Section &section)
{
    callOf(section).note();
    futexWake(&section.word, 1);
}

void InitializeCriticalSection(CRITICAL_SECTION *section)
{
    new (section->storage) Section;
}

void EnterCriticalSection(CRITICAL_SECTION *section)
{
    if (!TryEnterCriticalSection(section))
        enterSlowly(sectionOf(section));
}

BOOL TryEnterCriticalSection(CRITICAL_SECTION *section)
{
    currentNumber();
    return enterAtOnce(section);
}

void DeleteCriticalSection(CRITICAL_SECTION *) {}

} // namespace ZvPlatform
