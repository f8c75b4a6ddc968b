#include "platform/scheduler/sharedWords.h"

#include "platform/scheduler/scheduler.h"
#include "zvbase/platform/shared.h"

#include <algorithm>
#include <cstdio>

namespace ZvPlatform::Simulated {

constinit WeakMemory weakMemory;

namespace {

constexpr unsigned MAX_PLACES = 1 << 15;
constexpr unsigned MAX_OLDER = 8;

struct Access
{
    std::uint32_t step;
    char thread[sizeof Task::name];
    Place const *place;
};

/// A load that has not read the newest value.
struct OlderValue
{
    void const *word;
    std::uint64_t value;
    std::uint64_t newest;
    Access load;
    Access store; ///< of the newest value
};

// Only used if the steps are traced.
constinit Place places[MAX_PLACES] = {};
constinit unsigned nbPlaces = 0;
constinit OlderValue older[MAX_OLDER] = {};
constinit unsigned nbOlder = 0;

unsigned me()
{
    return indexOf(currentTask());
}

Place *newPlace()
{
    if (!scheduler.isTracing() || nbPlaces == MAX_PLACES)
        return nullptr;
    Place &place = places[nbPlaces++];
    scheduler.mark(place);
    return &place;
}

WeakMemory::Origin here()
{
    return {scheduler.getStep(), currentTask().serial, newPlace()};
}

Access accessOf(WeakMemory::Origin const &origin)
{
    Access access = {origin.step, {}, static_cast<Place const *>(origin.place)};
    std::snprintf(access.thread, sizeof access.thread, "thread %u", origin.thread);
    scheduler.forEach([&](Task const &thread) {
        if (thread.serial == origin.thread)
            std::copy_n(thread.name, sizeof access.thread, access.thread);
    });
    return access;
}

unsigned chooseStore(unsigned count)
{
    return scheduler.chooseStore(count);
}

void appendAccess(char *&text, char *end, Access const &access)
{
    append(text, end, "step %u, by %s", access.step, access.thread);
    if (access.place)
        append(text, end, *access.place);
    append(text, end, "\n");
}

void appendOlder(char *&text, char *end, OlderValue const &one)
{
    append(text, end, "  %#llx instead of %#llx was read from %p %s, in ",
           static_cast<unsigned long long>(one.value), static_cast<unsigned long long>(one.newest),
           one.word, nameOf(one.word));
    appendAccess(text, end, one.load);
    append(text, end, "    the newer value was stored in ");
    appendAccess(text, end, one.store);
}

/// Keeps what a load has read for reports, if that is an older value.
void noteLoad(void const *word, WeakMemory::Loaded const &loaded)
{
    if (!loaded.isOlder())
        return;
    OlderValue &one = older[nbOlder++ % MAX_OLDER];
    one = {word, loaded.value, loaded.newest->value, accessOf(here()),
           accessOf(loaded.newest->origin)};
    if (!scheduler.isTracing())
        return;
    char text[2048];
    char *next = text;
    appendOlder(next, text + sizeof text, one);
    scheduler.traceText(text);
}

} // namespace

void listOlderValues(char *&text, char *end)
{
    unsigned const first = nbOlder > MAX_OLDER ? nbOlder - MAX_OLDER : 0;
    for (unsigned i = first; i < nbOlder; ++i)
        appendOlder(text, end, older[i % MAX_OLDER]);
}

void reachShared(char const *operation, void const *word)
{
    if (!scheduler.isRunning())
        return;
    scheduler.point({operation, word});
    WeakMemory::Origin const *origin = word ? weakMemory.findUnpublished(me(), word) : nullptr;
    if (!origin)
        return;
    static char text[2048];
    char *next = text;
    append(next, text + sizeof text, "%s need not see that %p %s was constructed, in ",
           currentTask().name, word, nameOf(word));
    appendAccess(next, text + sizeof text, accessOf(*origin));
    scheduler.report("unpublished word", text);
}

void constructShared(void const *word, std::uint64_t value)
{
    if (scheduler.isRunning())
        weakMemory.construct(me(), word, value, here());
}

std::uint64_t loadShared(void const *word, std::uint64_t newest, std::memory_order order)
{
    if (!scheduler.isRunning())
        return newest;
    WeakMemory::Loaded const loaded = weakMemory.load(me(), word, newest, order, chooseStore);
    noteLoad(word, loaded);
    return loaded.value;
}

void storeShared(void const *word, std::uint64_t former, std::uint64_t value,
                 std::memory_order order)
{
    if (scheduler.isRunning())
        weakMemory.store(me(), word, former, value, order, here());
}

void changeShared(void const *word, std::uint64_t former, std::uint64_t value,
                  std::memory_order order)
{
    if (!scheduler.isRunning())
        return;
    weakMemory.change(me(), word, former, value, order, here());
#ifdef ZV_KERNEL_SIMULATED
    // What the thread still does with what it has released, others may meet.
    if (order != std::memory_order_relaxed && order != std::memory_order_acquire)
        scheduler.point({"released", word});
#endif
}

bool refuseShared(void const *word, std::uint64_t &value, std::uint64_t expected, bool isWeak,
                  std::memory_order failure)
{
    if (!scheduler.isRunning())
        return value != expected;
    WeakMemory::Compared const compared =
        weakMemory.compare(me(), word, value, expected, isWeak, failure, chooseStore);
    noteLoad(word, compared);
    value = compared.value;
    return compared.isRefused;
}

void fenceShared(std::memory_order order)
{
    if (scheduler.isRunning())
        weakMemory.fence(me(), order);
}

} // namespace ZvPlatform::Simulated
