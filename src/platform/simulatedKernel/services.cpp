// What the scheduler asks about the threads and objects of the services, for its reports.
#include "platform/linux/object.h"
#include "platform/scheduler/scheduler.h"
#include "platform/simulatedKernel/task.h"

namespace ZvPlatform::Simulated {

using namespace Linux;
using KernelTask = Kernel::Task;

namespace {

/// Data of the thread that has loaded the program.
constinit Local *firstLocal = nullptr;

/// While it exists, words can be read without a point of the schedule.
class Unscheduled
{
public:
    Unscheduled() { scheduler.suspend(1); }
    ~Unscheduled() { scheduler.suspend(-1); }
    Unscheduled(Unscheduled const &) = delete;
    Unscheduled &operator=(Unscheduled const &) = delete;
};

Word wordOf(Linux::Object const &object)
{
    return object.word.load(Order::RELAXED);
}

/// Calls `what` with each living object.
template <class What>
void forEachObject(What what)
{
    Unscheduled const unscheduled;
    for (std::size_t i = 0; i < objects.size(); ++i)
        if ((wordOf(objects[i]) & TYPE) != DEAD)
            what(objects[i]);
}

/// Returns the object that contains an address, or null.
Linux::Object *objectAround(void const *address)
{
    auto const bits = reinterpret_cast<std::uintptr_t>(address);
    Linux::Object *found = nullptr;
    forEachObject([&](Linux::Object &object) {
        auto const begin = reinterpret_cast<std::uintptr_t>(&object);
        if (bits >= begin && bits < begin + sizeof object)
            found = &object;
    });
    return found;
}

/// Returns the name of the thread with a number of the services.
char const *nameOfThread(ThreadNumber number)
{
    Unscheduled const unscheduled;
    std::size_t const index = number / 4 - 1;
    return number && index < threads.size() && threads[index].id ? threads[index].id->name
                                                                 : "no thread";
}

/// Returns the services' block of a task that has not ended, or null.
Linux::Thread *threadOf(Task const &task)
{
    Unscheduled const unscheduled;
    for (std::size_t i = 0; i < threads.size(); ++i)
        if (threads[i].id == &task && threads[i].holders.load(Order::RELAXED))
            return &threads[i];
    return nullptr;
}

} // namespace

void noteFirst()
{
    firstLocal = &local;
}

void tookPlace()
{
    local = *firstLocal;
}

bool isEnding(Task const &task)
{
    Unscheduled const unscheduled;
    Linux::Thread const *thread = threadOf(task);
    return static_cast<KernelTask const &>(task).isEnding ||
           (thread && thread->dying.load(Order::RELAXED));
}

char const *lockHeldBy(Task const &task)
{
    if (&task != self)
        return nullptr; // the services abandon the mutexes of a thread that ends
    char const *held = nullptr;
    forEachObject([&](Linux::Object &object) {
        if ((wordOf(object) & TYPE) == MUTEX && valueOf(wordOf(object)) == local.number &&
            local.number)
            held = "a mutex is held";
    });
    return held;
}

std::uint32_t countObjects()
{
    std::uint32_t count = 0;
    forEachObject([&](Linux::Object &) { ++count; });
    return count;
}

// The objects of the services have no serial numbers.

std::uint32_t latestObject()
{
    return 0;
}

std::uint32_t serialOf(void const *)
{
    return 0;
}

char const *ownNameOf(void const *)
{
    return "";
}

void listObjects(std::uint32_t, char *&text, char *end)
{
    forEachObject([&](Linux::Object &object) {
        append(text, end, "  ");
        describe(&object, text, end);
        append(text, end, "\n");
    });
}

void describe(void const *address, char *&text, char *end)
{
    static constexpr char const *names[] = {"closed handle",   "mutex", "event",
                                            "semaphore",       "timer", "handle of thread",
                                            "named semaphore", "object"};
    Linux::Object *object = objectAround(address);
    if (!object) {
        append(text, end, "%p %s", address, nameOf(address));
        return;
    }
    Unscheduled const unscheduled;
    Word const word = wordOf(*object);
    append(text, end, "%s %zu", names[word & TYPE], objects.indexOf(object));
    if (char const *name = nameOf(object); *name)
        append(text, end, " \"%s\"", name);
    append(text, end, " (%#llx)", static_cast<unsigned long long>(word & FLAGS));
    if ((word & TYPE) == MUTEX)
        append(text, end, ", held by %s", nameOfThread(valueOf(word)));
}

void describeWait(Task const &task, char *&text, char *end)
{
    auto const &mine = static_cast<KernelTask const &>(task);
    switch (mine.wait) {
    case KernelTask::FUTEX:
        append(text, end, "sleeps on ");
        if (Linux::Thread *thread = threadOf(task); thread && mine.address == &thread->waiter.park)
            append(text, end, "its own word");
        else
            describe(mine.address, text, end);
        break;
    case KernelTask::JOIN:
        append(text, end, "joins %s", mine.awaited->name);
        break;
    default:
        append(text, end, "sleeps");
        break;
    }
}

void describeHeld(Task const &task, char *&text, char *end)
{
    Linux::Thread const *thread = threadOf(task);
    if (!thread)
        return;
    forEachObject([&](Linux::Object &object) {
        Word const word = wordOf(object);
        bool isQueued = false;
        unsigned looks = 0;
        if (Waiter *waiter = object.first; waiter && word & WAITERS)
            do
                isQueued = isQueued || waiter == &thread->waiter;
            while ((waiter = waiter->next) != object.first && waiter && ++looks < 100);
        bool const isOwner = (word & TYPE) == MUTEX && valueOf(word) == thread->number;
        if (!isOwner && !isQueued)
            return;
        append(text, end, isOwner ? "    holds " : "    waits for ");
        describe(&object, text, end);
        append(text, end, "\n");
    });
}

} // namespace ZvPlatform::Simulated
