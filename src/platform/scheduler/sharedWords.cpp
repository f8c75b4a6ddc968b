#include "platform/scheduler/sharedWords.h"

#include "platform/scheduler/plainData.h"
#include "platform/scheduler/scheduler.h"
#include "zvbase/platform/shared.h"

#include <algorithm>
#include <cstdio>
#include <optional>

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

// Numbers of the memory orders of the latest operation, if the run lists them.
constinit std::uint32_t listedOrder = 0;
constinit std::uint32_t listedFailure = 0;

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
    return {scheduler.getStep(), currentTask().serial, newPlace(), listedOrder};
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

/// Notes which memory orders have let the calling thread learn something, while it reads.
class Learning
{
public:
    Learning()
    {
        if (scheduler.listsOrders())
            _before = weakMemory.getHappened(me());
    }
    /// `reading` and `releasing` are the numbers of the orders.
    void note(std::uint32_t reading, std::uint32_t releasing) const
    {
        if (!_before)
            return;
        auto const &after = weakMemory.getHappened(me()).events;
        for (unsigned i = 0; i < WeakMemory::THREADS; ++i)
            if (i != me() % WeakMemory::THREADS && after[i] > _before->events[i]) {
                scheduler.setUsed(reading);
                scheduler.setUsed(releasing);
            }
    }

private:
    std::optional<WeakMemory::Clock> _before;
};

Order follow(OrderPlace const &place, bool isFailure = false)
{
    if (scheduler.listsOrders()) {
        std::uint32_t const number = scheduler.list(place);
        if (place.order == Order::SEQ_CST)
            scheduler.setUsed(number);
        listedFailure = number;
        if (!isFailure)
            listedOrder = number;
    }
    return scheduler.follow(place);
}

} // namespace

void append(char *&text, char *end, WeakMemory::Origin const &origin)
{
    appendAccess(text, end, accessOf(origin));
}

void listOlderValues(char *&text, char *end)
{
    unsigned const first = nbOlder > MAX_OLDER ? nbOlder - MAX_OLDER : 0;
    for (unsigned i = first; i < nbOlder; ++i)
        appendOlder(text, end, older[i % MAX_OLDER]);
}

Order reachShared(char const *operation, void const *word, Order order, char const *file,
                  unsigned line)
{
    if (!scheduler.isRunning())
        return order;
    scheduler.point({operation, word});
    plainData.expectShared(word);
    WeakMemory::Origin const *origin = word ? weakMemory.findUnpublished(me(), word) : nullptr;
    if (!origin)
        return follow({operation, file, line, order});
    static char text[2048];
    char *next = text;
    append(next, text + sizeof text, "%s need not see that %p %s was constructed, in ",
           currentTask().name, word, nameOf(word));
    append(next, text + sizeof text, *origin);
    scheduler.report("unpublished word", text);
}

Order reachFailure(Order order, char const *file, unsigned line)
{
    return scheduler.isRunning() ? follow({"failure", file, line, order}, true) : order;
}

void constructShared(void const *word, std::uint64_t value)
{
    if (scheduler.isRunning())
        weakMemory.construct(me(), word, value, here());
}

std::uint64_t loadShared(void const *word, std::uint64_t newest, Order order)
{
    if (!scheduler.isRunning())
        return newest;
    Learning const learning;
    WeakMemory::Loaded const loaded = weakMemory.load(me(), word, newest, order, chooseStore);
    if (loaded.read)
        learning.note(listedOrder, loaded.read->releasing);
    noteLoad(word, loaded);
    return loaded.value;
}

void storeShared(void const *word, std::uint64_t former, std::uint64_t value, Order order)
{
    if (scheduler.isRunning())
        weakMemory.store(me(), word, former, value, order, here());
}

void changeShared(void const *word, std::uint64_t former, std::uint64_t value, Order order)
{
    if (!scheduler.isRunning())
        return;
    Learning const learning;
    learning.note(listedOrder, weakMemory.change(me(), word, former, value, order, here()));
#ifdef ZV_KERNEL_SIMULATED
    if (order == Order::RELAXED || order == Order::ACQUIRE)
        return;
    // What the thread still does with what it has released, others may meet.
    Task &thread = currentTask();
    thread.hasReleased = true;
    scheduler.point({"released", word});
    thread.hasReleased = false;
#endif
}

bool refuseShared(void const *word, std::uint64_t &value, std::uint64_t expected, bool isWeak,
                  Order failure)
{
    if (!scheduler.isRunning())
        return value != expected;
    Learning const learning;
    WeakMemory::Compared const compared =
        weakMemory.compare(me(), word, value, expected, isWeak, failure, chooseStore);
    if (compared.read && compared.isRefused)
        learning.note(listedFailure, compared.read->releasing);
    noteLoad(word, compared);
    value = compared.value;
    return compared.isRefused;
}

void fenceShared(Order order)
{
    if (!scheduler.isRunning())
        return;
    Learning const learning;
    weakMemory.fence(me(), order);
    learning.note(listedOrder, 0);
}

} // namespace ZvPlatform::Simulated
