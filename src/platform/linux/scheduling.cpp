#include "platform/linux/scheduling.h"

#include "platform/common/threadName.h"
#include "platform/priorityTable.h"

#include <algorithm>
#include <bit>

namespace ZvPlatform::Linux {

constinit Lock schedulingLock;

namespace {

constinit Shared<DWORD> processClass{NORMAL_PRIORITY_CLASS};
/// Counts the changes that a new thread could inherit.
constinit Shared<std::uint32_t> generation{0};
/// The processors of the process are those of its main thread, until that thread is placed. Their
/// set at that time is kept here.
constinit Kernel::ProcessorSet setBefore{};
constinit Shared<bool> isMainPlaced{false};

constexpr int HIGHEST_BASE = 31;
constexpr int NORMAL_BASE = 8;
/// In place of a real-time priority: the policy is the application's, or is not known yet.
constexpr int FOREIGN = -1;

int lowestNiceAllowed()
{
    return 20 - static_cast<int>(std::min<std::uint64_t>(Kernel::getNiceLimit(), 40));
}

/// Sets the nice value as near to the wanted one as the process may. Does not lower the thread if
/// it could not be raised again.
void changeNice(Thread &thread, std::uint32_t kernelId, int nice)
{
    if (nice == thread.askedNice)
        return;
    thread.askedNice = nice;
    if (nice > thread.nice) {
        // Only the kernel knows whether a thread may be raised, because capabilities count in the
        // first user namespace. So it is tried.
        bool const canRaise = thread.nice == -20 || Kernel::setNice(kernelId, thread.nice - 1) ||
                              lowestNiceAllowed() <= thread.nice;
        if (canRaise && Kernel::setNice(kernelId, nice))
            thread.nice = nice;
    } else if (nice < thread.nice) {
        int nearest = nice;
        bool isSet = Kernel::setNice(kernelId, nearest);
        if (!isSet) {
            nearest = std::max(nice, lowestNiceAllowed());
            isSet = nearest < thread.nice && Kernel::setNice(kernelId, nearest);
        }
        if (isSet)
            thread.nice = nearest;
    }
}

/// Tells the system what a class and a level ask for. Returns false if real-time operation is
/// refused.
bool apply(Thread &thread, DWORD priorityClass, int level)
{
    std::uint32_t const kernelId = thread.kernelId.load(Order::RELAXED);
    Scheduling const asked = schedulingOf(priorityClass, level);
    int const realTime = asked.isRealTime ? asked.priority : 0;
    int const nice = asked.isRealTime ? thread.askedNice : asked.priority;
    if (realTime == thread.realTime && (realTime || nice == thread.askedNice))
        return true;
    generation.fetch_add(1, Order::RELAXED);
    if (realTime != thread.realTime) {
        if (Kernel::setPolicy(kernelId, realTime ? SCHED_RR : SCHED_OTHER, realTime))
            thread.realTime = realTime;
        else if (realTime)
            return false;
    }
    if (!realTime)
        changeNice(thread, kernelId, nice);
    return true;
}

/// Returns why the process may not run threads in real time, or 0 if it may. A thread of its own
/// tries it.
DWORD refusalOfRealTime()
{
    bool may = false;
    auto const tryIt = [](void *result) -> void * {
        *static_cast<bool *>(result) = Kernel::setPolicy(0, SCHED_RR, HIGHEST_BASE);
        return nullptr;
    };
    constexpr std::size_t STACK = 1024 * 1024;
    Kernel::ThreadId probe;
    if (Kernel::createThread(probe, STACK, nullptr, tryIt, &may) != 0)
        return refusalOfThread(STACK);
    Kernel::join(probe);
    return may ? 0 : ERROR_PRIVILEGE_NOT_HELD;
}

/// Asks the system for the scheduling of the calling thread, which has just begun.
void askWhatWasInherited(Thread &thread)
{
    int const policy = Kernel::getPolicy(0);
    bool const isOurs = policy == SCHED_RR || policy == SCHED_OTHER;
    thread.realTime = isOurs ? Kernel::getPriority(0) : FOREIGN;
    thread.nice = thread.askedNice = Kernel::getNice(0);
}

bool applyToAll(DWORD priorityClass)
{
    bool good = true;
    for (std::size_t i = 0; i < threads.size() && good; ++i) {
        Thread &thread = threads[i];
        // The number must be checked first. While it is set, the block belongs to one thread,
        // because it is cleared under `schedulingLock`.
        if (thread.kernelId.load(Order::SEQ_CST) && thread.created)
            good = apply(thread, priorityClass, thread.level.load(Order::RELAXED));
    }
    return good;
}

/// Gives the process another class. Returns false if real-time operation is refused to a thread.
///
/// A thread that begins stores its number before it reads the class and its level, and another
/// thread that changes one of them does so before it reads the number. These operations are
/// sequentially consistent, so at least one of the two threads sees what the other one has stored.
/// If a thread that begins reads this class, it also sees the generations of the classes before it.
bool changeClass(DWORD priorityClass)
{
    processClass.store(priorityClass, Order::SEQ_CST);
    generation.fetch_add(1, Order::RELAXED);
    return applyToAll(priorityClass);
}

/// Returns the processors of a thread. The set is empty if the system refuses.
Kernel::ProcessorSet setOf(std::uint32_t kernelId)
{
    Kernel::ProcessorSet set;
    CPU_ZERO(&set);
    if (!Kernel::getProcessors(kernelId, set))
        CPU_ZERO(&set);
    return set;
}

Kernel::ProcessorSet processSet()
{
    return isMainPlaced.load(Order::ACQUIRE) ? setBefore : setOf(Kernel::processNumber());
}

constexpr unsigned MASK_BITS = sizeof(DWORD_PTR) * CHAR_BIT;

/// Returns the mask of a set. A mask has a bit for each of the first MASK_BITS processors.
DWORD_PTR maskOf(Kernel::ProcessorSet const &set)
{
    DWORD_PTR mask = 0;
    for (unsigned i = 0; i < MASK_BITS; ++i)
        if (CPU_ISSET(i, &set))
            mask |= DWORD_PTR{1} << i;
    return mask;
}

Kernel::ProcessorSet setFrom(DWORD_PTR mask)
{
    Kernel::ProcessorSet set;
    CPU_ZERO(&set);
    for (unsigned i = 0; i < MASK_BITS; ++i)
        if (mask >> i & 1)
            CPU_SET(i, &set);
    return set;
}

/// Calls `what` with the thread of a handle, or with null if it has ended. Returns false, with the
/// last error set, if the handle is bad.
template <class What>
bool withThread(Service &service, HANDLE handle, What what)
{
    if (handle == CURRENT_THREAD) {
        what(&service.thread(), nullptr);
        return true;
    }
    Queue queue(objectOf(handle), THREAD);
    if (!queue)
        return fail(ERROR_INVALID_HANDLE);
    what(livingThread(queue), &queue.object());
    return true;
}

/// Returns the kernel's number of a thread. A thread that has not begun yet soon has its number.
/// The wait for it sleeps, so that it does not keep the thread from beginning.
std::uint32_t kernelIdOf(Thread &thread)
{
    std::uint32_t id;
    while (!(id = thread.kernelId.load(Order::ACQUIRE)))
        futexWait(&thread.kernelId, 0, now() + MILLISECOND);
    return id;
}

} // namespace

void inheritScheduling(Thread &child, Thread const &parent)
{
    Locked locked(schedulingLock);
    child.generation = generation.load(Order::RELAXED);
    child.realTime = parent.created ? parent.realTime : FOREIGN;
    child.nice = child.askedNice = parent.nice;
}

bool findProcessorsForNewThreads(Kernel::ProcessorSet &all)
{
    Kernel::ProcessorSet const mine = setOf(0);
    all = processSet();
    return CPU_COUNT(&all) != 0 && !CPU_EQUAL(&mine, &all);
}

void beginScheduling(Thread &thread)
{
    bool const inheritedNothing = !thread.realTime && !thread.nice;
    // From here on other threads may apply their changes. Changes that they made before are found
    // below.
    thread.kernelId.store(Kernel::threadNumber(), Order::SEQ_CST);
    DWORD const priorityClass = processClass.load(Order::SEQ_CST);
    int const level = thread.level.load(Order::SEQ_CST);
    if (inheritedNothing && priorityClass == NORMAL_PRIORITY_CLASS &&
        level == THREAD_PRIORITY_NORMAL && generation.load(Order::RELAXED) == thread.generation)
        return;
    Locked locked(schedulingLock);
    // If the inherited scheduling is unknown, or may have changed since the parent was looked at,
    // the system is asked.
    if (thread.realTime == FOREIGN || generation.load(Order::RELAXED) != thread.generation)
        askWhatWasInherited(thread);
    apply(thread, processClass.load(Order::RELAXED), thread.level.load(Order::RELAXED));
}

void endScheduling(Thread &thread)
{
    Locked locked(schedulingLock);
    thread.kernelId.store(0, Order::RELAXED);
}

} // namespace ZvPlatform::Linux

namespace ZvPlatform {

using namespace Linux;

BOOL SetThreadPriority(HANDLE handle, int priority)
{
    Service service;
    BOOL result = TRUE;
    bool const good = withThread(service, handle, [&](Thread *thread, Object *object) {
        if (PriorityTable::findLevel(priority) < 0) {
            result = fail(ERROR_INVALID_PARAMETER);
            return;
        }
        if (!thread) {
            object->thread.level = priority;
            return;
        }
        int const before = thread->level.exchange(priority, Order::SEQ_CST);
        // A thread that has not begun yet applies its level itself when it begins.
        if (before == priority || !thread->created || !thread->kernelId.load(Order::SEQ_CST))
            return;
        Locked locked(schedulingLock);
        if (thread->kernelId.load(Order::RELAXED) &&
            !apply(*thread, processClass.load(Order::RELAXED), priority)) {
            thread->level.store(before, Order::RELAXED);
            result = fail(ERROR_PRIVILEGE_NOT_HELD);
        }
    });
    return good && result;
}

int GetThreadPriority(HANDLE handle)
{
    Service service;
    int level = THREAD_PRIORITY_ERROR_RETURN;
    withThread(service, handle, [&](Thread *thread, Object *object) {
        level = thread ? thread->level.load(Order::RELAXED) : object->thread.level;
    });
    return level;
}

BOOL SetPriorityClass(HANDLE process, DWORD priorityClass)
{
    Service service;
    if (process != CURRENT_PROCESS)
        return fail(ERROR_INVALID_HANDLE);
    if (!PriorityTable::findRow(priorityClass))
        return fail(ERROR_INVALID_PARAMETER);
    if (priorityClass == processClass.load(Order::RELAXED))
        return TRUE;
    if (priorityClass == REALTIME_PRIORITY_CLASS)
        if (DWORD const refusal = refusalOfRealTime())
            return fail(refusal);
    Locked locked(schedulingLock);
    DWORD const before = processClass.load(Order::RELAXED);
    if (changeClass(priorityClass))
        return TRUE;
    changeClass(before);
    return fail(ERROR_PRIVILEGE_NOT_HELD);
}

DWORD GetPriorityClass(HANDLE process)
{
    if (process != CURRENT_PROCESS) {
        fail(ERROR_INVALID_HANDLE);
        return 0;
    }
    return processClass.load(Order::RELAXED);
}

Scheduling schedulingOf(DWORD priorityClass, int level)
{
    PriorityTable::Row const &row = *PriorityTable::findRow(priorityClass);
    int const base = row.basePriorities[PriorityTable::findLevel(level)];
    if (priorityClass == REALTIME_PRIORITY_CLASS)
        return {true, base};
    return {false, std::clamp(2 * (NORMAL_BASE - base), -20, 19)};
}

DWORD readScheduling(HANDLE handle, Scheduling &scheduling)
{
    Service service;
    std::uint32_t number = 0;
    withThread(service, handle, [&](Thread *thread, Object *) {
        if (!thread)
            return;
        Locked locked(schedulingLock); // a thread that has its number runs on meanwhile
        number = thread->kernelId.load(Order::RELAXED);
        if (!number)
            return;
        int const policy = Kernel::getPolicy(number);
        bool const isRealTime = policy == SCHED_RR || policy == SCHED_FIFO;
        scheduling = {isRealTime,
                      isRealTime ? Kernel::getPriority(number) : Kernel::getNice(number)};
    });
    return number;
}

BOOL GetProcessAffinityMask(HANDLE process, DWORD_PTR *process_, DWORD_PTR *system)
{
    if (process != CURRENT_PROCESS)
        return fail(ERROR_INVALID_HANDLE);
    if (!process_ || !system)
        return fail(ERROR_INVALID_PARAMETER);
    long const processors = Kernel::nbConfiguredProcessors();
    *process_ = maskOf(processSet());
    *system = *process_ |
              (processors >= long{MASK_BITS} ? ~DWORD_PTR{0} : (DWORD_PTR{1} << processors) - 1);
    return TRUE;
}

DWORD_PTR SetThreadAffinityMask(HANDLE handle, DWORD_PTR mask)
{
    Service service;
    DWORD_PTR before = 0;
    withThread(service, handle, [&](Thread *thread, Object *) {
        Kernel::ProcessorSet const all = processSet();
        DWORD_PTR const allowed = maskOf(all);
        if (!thread || (mask == 0 && allowed != 0) || mask & ~allowed) {
            fail(ERROR_INVALID_PARAMETER);
            return;
        }
        std::uint32_t const kernelId = kernelIdOf(*thread);
        if (kernelId == Kernel::processNumber() && !isMainPlaced.load(Order::RELAXED)) {
            Locked locked(schedulingLock);
            if (!isMainPlaced.load(Order::RELAXED)) {
                setBefore = all;
                isMainPlaced.store(true, Order::RELEASE);
            }
        }
        // The mask of the process means all of its processors, including those that have no bit in
        // a mask.
        Kernel::ProcessorSet const set = mask == allowed ? all : setFrom(mask);
        DWORD_PTR const former = maskOf(setOf(kernelId));
        if (Kernel::setProcessors(kernelId, set))
            before = former ? former : ~DWORD_PTR{0}; // 0 would be a failure
        else
            fail(ERROR_INVALID_PARAMETER);
    });
    return before;
}

long SetThreadDescription(HANDLE handle, wchar_t const *name)
{
    return describeThread(name, [=](char const *text) {
        Service service;
        return withThread(service, handle, [=](Thread *thread, Object *) {
            if (!thread)
                return;
            kernelIdOf(*thread);
            Kernel::setName(thread->id, text);
        });
    });
}

} // namespace ZvPlatform
