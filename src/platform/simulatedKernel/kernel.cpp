#include "platform/simulatedKernel/kernel.h"

#include "platform/common/waitList.h"
#include "platform/scheduler/pool.h"
#include "platform/scheduler/scheduler.h"
#include "platform/scheduler/sharedWords.h"
#include "platform/simulatedKernel/task.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>
#include <utility>

namespace ZvPlatform::Linux::Kernel {

using Simulated::enter;
using Simulated::scheduler;
using Simulated::weakMemory;

namespace {

/// The clocks begin one hour after the start of the machine, at the beginning of 2026.
constexpr Instant UPTIME = 3'600'000 * MILLISECOND;
constexpr Instant BEGINNING = 20'454ll * 24 * 60 * 60 * 1'000'000'000;
/// What a turn of a spin takes.
constexpr Instant TURN = 50;
constexpr std::uint32_t PROCESS = 1000;
constexpr unsigned PROCESSORS = 4;
constexpr int SIGNALS = 64;

constinit Task tasks[Simulated::Scheduler::MAX_TASKS] = {};
constinit unsigned used = 0;
constinit Task *freeTasks = nullptr;
/// The threads that sleep on any word, in the order in which they went to sleep.
constinit WaitList<Task> sleepers;
using Handler = void (*)(int);
using AtEnd = void (*)(void *);
constinit AtEnd onEnd = nullptr;
constinit Handler handlers[SIGNALS + 1] = {};

Task &current()
{
    return static_cast<Task &>(Simulated::currentTask());
}

/// Returns null if there are too many.
Task *newTask()
{
    Task *task = freeTasks;
    if (task)
        freeTasks = task->nextFree;
    else if (used < Simulated::Scheduler::MAX_TASKS)
        task = &tasks[used++];
    else
        return nullptr;
    static constinit std::uint32_t latest = PROCESS;
    task->number = latest++;
    task->isEnding = task->isJoined = task->isReleased = false;
    task->endValue = nullptr;
    task->pending = task->blocked = 0;
    task->policy = SCHED_OTHER;
    task->realTime = task->nice = 0;
    CPU_ZERO(&task->processors);
    for (unsigned i = 0; i < PROCESSORS; ++i)
        CPU_SET(i, &task->processors);
    scheduler.add(*task);
    return task;
}

/// Frees a block whose thread has ended and is neither joined nor asked for again.
void freeIfDone(Task &task)
{
    if (!task.isJoined || !task.isReleased)
        return;
    task.state = Task::UNUSED;
    task.nextFree = freeTasks;
    freeTasks = &task;
}

Task *find(std::uint32_t number)
{
    if (number == 0)
        return &current();
    for (unsigned i = 0; i < used; ++i)
        if (tasks[i].number == number && tasks[i].state != Task::UNUSED &&
            tasks[i].state != Task::ENDED)
            return &tasks[i];
    return nullptr;
}

std::uint64_t bitOf(int signal)
{
    return std::uint64_t{1} << (signal - 1);
}

/// Runs the handlers of the signals that have arrived for the calling thread.
bool deliverSignals(Task &task)
{
    bool any = false;
    while (std::uint64_t const ready = task.pending & ~task.blocked) {
        int const signal = __builtin_ctzll(ready) + 1;
        task.pending &= ~bitOf(signal);
        if (scheduler.isRunning())
            weakMemory.acquire(indexOf(task), &task.pending);
        // A handler is not interrupted by its own signal.
        task.blocked |= bitOf(signal);
        if (handlers[signal])
            handlers[signal](signal);
        task.blocked &= ~bitOf(signal);
        any = true;
    }
    return any;
}

void const *addressOf(void const *word, Scope scope)
{
    return static_cast<char const *>(word) + (scope == Scope::SHARED);
}

/// Waits until the thread is granted something, is interrupted, or the deadline.
void block(Task &task, Task::Wait kind, Instant deadline, bool mayStray)
{
    task.wait = kind;
    task.isInterrupted = false;
    task.isUnasked = kind != Task::JOIN;
    scheduler.wait(deadline, mayStray);
    task.wait = Task::NONE;
}

} // namespace

// ---- futexes and time ---------------------------------------------------------------------------

int wait(void const *word, std::uint32_t value, Instant deadline, Scope scope)
{
    enter("futex wait", word);
    Task &me = current();
    // The kernel compares with the newest value. The thread reads none older afterwards.
    auto const newest = __atomic_load_n(static_cast<std::uint32_t const *>(word), __ATOMIC_SEQ_CST);
    if (scheduler.isRunning())
        weakMemory.see(indexOf(me), word);
    if (newest != value)
        return EAGAIN;
    if (!scheduler.isRunning() && deadline != NEVER)
        return ETIMEDOUT;
    me.address = addressOf(word, scope);
    sleepers.append(me);
    block(me, Task::FUTEX, deadline == NEVER ? NEVER : deadline - UPTIME, true);
    bool const isWoken = me.granted;
    if (!isWoken)
        sleepers.remove(me);
    bool const isStray = me.isStray;
    if (deliverSignals(me) && me.isInterrupted)
        return EINTR;
    if (isWoken)
        return 0;
    // A wait without a cause ends as if there were a wake-up or a signal.
    return !isStray ? ETIMEDOUT : scheduler.random() % 2 ? EINTR : 0;
}

void wake(void const *word, int count, Scope scope)
{
    enter("futex wake", word);
    sleepers.wake(addressOf(word, scope), count != 1, [](Task &task) { task.granted = true; });
}

Instant now()
{
    return UPTIME + scheduler.now();
}

Instant date()
{
    return BEGINNING + scheduler.now();
}

void sleep(long nanoseconds)
{
    if (!scheduler.isRunning())
        return;
    enter("sleep");
    Task &me = current();
    block(me, Task::SLEEP, scheduler.now() + nanoseconds, false);
    deliverSignals(me);
}

void yield()
{
    if (scheduler.isRunning())
        scheduler.point({"yield"}, true);
}

void pause()
{
    enter("pause");
    if (scheduler.isRunning())
        scheduler.pass(TURN);
}

bool hasTrustedCounter()
{
    return false;
}

std::uint64_t readCounter()
{
    return 0;
}

// ---- threads ------------------------------------------------------------------------------------

bool makeEndKey(EndKey &, void (*atEnd)(void *))
{
    onEnd = atEnd;
    return true;
}

void setEndValue(EndKey, void *value)
{
    current().endValue = value;
}

std::size_t stackOverhead()
{
    return 0;
}

int createThread(ThreadId &id, std::size_t stack, ProcessorSet const *processors,
                 ThreadFunction function, void *argument)
{
    enter("create thread");
    Task *task = stack && !Simulated::isRefused(Simulated::THREADS) ? newTask() : nullptr;
    if (!task)
        return ENOMEM;
    Task const &me = current();
    task->blocked = me.blocked;
    task->policy = me.policy;
    task->realTime = me.realTime;
    task->nice = me.nice;
    task->processors = processors ? *processors : me.processors;
    task->function = function;
    task->argument = argument;
    id = task;
    if (!scheduler.start(*task, stack)) {
        task->isJoined = task->isReleased = true;
        freeIfDone(*task);
        return ENOMEM;
    }
    // A second point: the new thread may run, and even end, before the caller continues.
    enter("create thread, done");
    return 0;
}

ThreadId currentThread()
{
    return &current();
}

void detach(ThreadId id)
{
    id->isReleased = true;
    freeIfDone(*id);
}

void join(ThreadId id)
{
    enter("join");
    Task &me = current();
    while (id->state != Task::ENDED) {
        me.awaited = id;
        block(me, Task::JOIN, NEVER, false);
        deliverSignals(me);
    }
    weakMemory.join(indexOf(me), indexOf(*id));
    detach(id);
}

void setName(ThreadId id, char const *name)
{
    std::snprintf(id->name, sizeof id->name, "%s", name);
}

void endThread()
{
    // The thread of the C library sleeps until the process ends.
    current().isJoined = true;
    scheduler.abandon();
}

std::uint32_t threadNumber()
{
    return current().number;
}

std::uint32_t processNumber()
{
    return PROCESS;
}

bool sendSignal(std::uint32_t thread, int signal)
{
    enter("send signal");
    Task *task = find(thread);
    if (!task)
        return false;
    if (signal == 0)
        return true;
    task->pending |= bitOf(signal);
    // The kernel passes a signal on under a lock, so the handler sees what was done before.
    if (scheduler.isRunning())
        weakMemory.release(indexOf(current()), &task->pending);
    if (task->state == Task::WAITING && !task->granted && !(task->blocked & bitOf(signal))) {
        if (task->wait == Task::FUTEX)
            sleepers.remove(*task);
        task->isInterrupted = task->granted = true;
    }
    return true;
}

void atFork(void (*)(), void (*)(), void (*)()) {}

bool isFree(int signal)
{
    return !handlers[signal];
}

bool handle(int signal, void (*handler)(int))
{
    handlers[signal] = handler;
    return true;
}

void unblock(int signal)
{
    current().blocked &= ~bitOf(signal);
}

// ---- scheduling ---------------------------------------------------------------------------------

bool setPolicy(std::uint32_t thread, int policy, int priority)
{
    enter("set policy");
    Task *task = find(thread);
    bool const may = policy == SCHED_OTHER || scheduler.isPrivileged();
    if (!task || !may || Simulated::isRefused(Simulated::PRIORITIES))
        return false;
    task->policy = policy;
    task->realTime = priority;
    return true;
}

int getPolicy(std::uint32_t thread)
{
    Task const *task = find(thread);
    return task ? task->policy : -1;
}

int getPriority(std::uint32_t thread)
{
    Task const *task = find(thread);
    return task ? task->realTime : 0;
}

bool setNice(std::uint32_t thread, int nice)
{
    enter("set nice");
    Task *task = find(thread);
    bool const may = task && (nice >= task->nice || scheduler.isPrivileged());
    if (!may || Simulated::isRefused(Simulated::PRIORITIES))
        return false;
    task->nice = nice;
    return true;
}

int getNice(std::uint32_t thread)
{
    Task const *task = find(thread);
    return task ? task->nice : 0;
}

std::uint64_t getNiceLimit()
{
    return scheduler.isPrivileged() ? 40 : 0;
}

bool getProcessors(std::uint32_t thread, ProcessorSet &set)
{
    Task const *task = find(thread);
    if (task)
        set = task->processors;
    return task;
}

bool setProcessors(std::uint32_t thread, ProcessorSet const &set)
{
    enter("set processors");
    Task *task = find(thread);
    if (task)
        task->processors = set;
    return task;
}

int currentProcessor()
{
    return static_cast<int>(current().number % PROCESSORS);
}

long nbConfiguredProcessors()
{
    return PROCESSORS;
}

long nbOnlineProcessors()
{
    return PROCESSORS;
}

unsigned processorSignature()
{
    return 0;
}

// ---- memory -------------------------------------------------------------------------------------

std::size_t pageSize()
{
    return static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

void *reserve(std::size_t size)
{
    return Simulated::isRefused(Simulated::MEMORY) ? nullptr : Simulated::takeFromPool(size);
}

bool hasMemoryForStack(std::size_t)
{
    return false;
}

// ---- random bytes, and the system's version -----------------------------------------------------

ssize_t getRandom(void *bytes, std::size_t size)
{
    enter("random bytes");
    for (std::size_t i = 0; i < size; ++i)
        static_cast<unsigned char *>(bytes)[i] = static_cast<unsigned char>(scheduler.random());
    return static_cast<ssize_t>(size);
}

bool getVersion(Version &version)
{
    version = {"1.0.0", "simulated"};
    return true;
}

} // namespace ZvPlatform::Linux::Kernel

// ---- what the scheduler asks --------------------------------------------------------------------

namespace ZvPlatform::Simulated {

using KernelTask = Linux::Kernel::Task;

Task &adoptFirst()
{
    noteFirst();
    return *Linux::Kernel::newTask();
}

void execute(Task &task)
{
    auto &mine = static_cast<KernelTask &>(task);
    mine.function(mine.argument);
    Bearer::destroyValues();
    mine.isEnding = true;
    if (void *value = std::exchange(mine.endValue, nullptr))
        Linux::Kernel::onEnd(value);
}

void joined(Task &task)
{
    auto &ended = static_cast<KernelTask &>(task);
    ended.isJoined = true;
    Linux::Kernel::freeIfDone(ended);
}

void arrived(Task &task)
{
    Linux::Kernel::deliverSignals(static_cast<KernelTask &>(task));
}

bool isSatisfied(Task const &task)
{
    auto const &mine = static_cast<KernelTask const &>(task);
    return mine.wait == KernelTask::JOIN && mine.awaited->state == Task::ENDED;
}

Instant dueTime(Task const &)
{
    return NEVER;
}

void timeHasAdvanced() {}

} // namespace ZvPlatform::Simulated
