#include "platform/scheduler/pool.h"
#include "platform/scheduler/sharedWords.h"
#include "platform/simulated/thread.h"

#include <cstdlib>

namespace ZvPlatform::Simulated {

namespace {

constexpr std::size_t DEFAULT_STACK = 1024 * 1024;

// Blocks of threads, in memory that is zero at the beginning.
constinit Thread *threads = nullptr;
constinit unsigned used = 0;
constinit Thread *freeThreads = nullptr;

/// Returns a block for a new thread, or null if there are too many.
Thread *newThread()
{
    if (!threads) {
        threads = static_cast<Thread *>(takeFromPool(Scheduler::MAX_TASKS * sizeof(Thread)));
        if (!threads)
            std::abort();
    }
    Thread *thread = freeThreads;
    if (thread)
        freeThreads = thread->nextFree;
    else if (used < Scheduler::MAX_TASKS)
        thread = &threads[used++];
    else
        return nullptr;
    forgetSlots(*thread);
    thread->number = static_cast<ThreadNumber>(thread - threads + 1) * 4;
    thread->holders = 1;
    thread->created = false;
    thread->object = nullptr;
    thread->exitCode = 0;
    thread->lastError = 0;
    thread->level = THREAD_PRIORITY_NORMAL;
    thread->mask = 0;
    thread->awaited = nullptr;
    thread->held = nullptr;
    thread->sections = 0;
    scheduler.add(*thread);
    return thread;
}

/// Abandons the mutexes of an ended thread, and wakes the threads that wait for its end.
void end(Thread &thread, DWORD exitCode)
{
    abandonMutexes(thread);
    Object *object = thread.object;
    if (!object)
        return;
    thread.object = nullptr;
    object->thread = nullptr;
    object->exitCode = exitCode;
    object->level = thread.level;
    object->signalled = true;
    synchroniseRelease(object);
    serve(*object);
    --object->pins;
    release(*object);
}

Thread const &threadOf(Task const &task)
{
    return static_cast<Thread const &>(task);
}

/// Returns what a task waits for, if it waits for an object, otherwise null.
Object *awaitedBy(Task const &task)
{
    Thread const &thread = threadOf(task);
    return thread.kind == Thread::OBJECT ? thread.awaited : nullptr;
}

} // namespace

void release(Thread &thread)
{
    if (--thread.holders)
        return;
    thread.state = Thread::UNUSED;
    thread.nextFree = freeThreads;
    freeThreads = &thread;
}

// ---- What the scheduler asks.

Task &adoptFirst()
{
    return *newThread();
}

void tookPlace() {}

void arrived(Task &) {}

void execute(Task &task)
{
    Thread &thread = static_cast<Thread &>(task);
    DWORD const exitCode = thread.function(thread.argument);
    Bearer::destroyValues();
    callBack(thread);
    enter("end");
    end(thread, exitCode);
}

void joined(Task &task)
{
    release(static_cast<Thread &>(task));
}

bool isSatisfied(Task const &task)
{
    if (Object const *awaited = awaitedBy(task))
        return awaited->type == Object::MUTEX && !awaited->owner;
    Thread const &thread = threadOf(task);
    return thread.kind == Thread::SECTION && !thread.section->owner;
}

Instant dueTime(Task const &task)
{
    Object const *awaited = awaitedBy(task);
    return awaited && awaited->type == Object::TIMER ? awaited->timer.due : NEVER;
}

void timeHasAdvanced()
{
    scheduler.forEach([](Task &task) {
        Object *awaited = task.state == Task::WAITING ? awaitedBy(task) : nullptr;
        if (awaited && awaited->type == Object::TIMER) {
            updateTimer(*awaited);
            serve(*awaited);
        }
    });
}

bool isEnding(Task const &)
{
    return false; // a thread ends in one step
}

char const *lockHeldBy(Task const &task)
{
    Thread const &thread = threadOf(task);
    if (thread.sections)
        return "a critical section is held";
    return thread.held ? "a mutex is held" : nullptr;
}

void describeWait(Task const &task, char *&text, char *end)
{
    Thread const &thread = threadOf(task);
    if (thread.kind == Thread::SLEEP)
        append(text, end, "sleeps");
    if (thread.kind == Thread::ADDRESS)
        append(text, end, "waits for the address %p %s", thread.address, nameOf(thread.address));
    if (thread.kind == Thread::SECTION)
        append(text, end, "waits for critical section %u %s, held by %s", thread.section->serial,
               nameOf(thread.section),
               thread.section->owner ? thread.section->owner->name : "no thread");
    if (Object *awaited = awaitedBy(task)) {
        append(text, end, "waits for ");
        describe(awaited, text, end);
    }
}

void describeHeld(Task const &task, char *&text, char *end)
{
    Object const *awaited = task.state == Task::WAITING ? awaitedBy(task) : nullptr;
    if (awaited && awaited->made.count) {
        append(text, end, "    which was made");
        append(text, end, awaited->made);
        append(text, end, "\n");
    }
    for (Object *held = threadOf(task).held; held; held = held->nextHeld) {
        append(text, end, "    holds ");
        describe(held, text, end);
        append(text, end, held->made);
        append(text, end, "\n");
    }
}

namespace {

/// Returns the object of a thread that has not ended, or null with the last error set.
Object *newThreadObject(Thread &thread)
{
    Object *object = newObject(Object::THREAD);
    if (!object)
        return nullptr;
    object->manual = true;
    object->exitCode = STILL_ACTIVE;
    object->pins = 1;
    object->thread = object->block = &thread;
    ++thread.holders;
    thread.object = object;
    return object;
}

} // namespace

} // namespace ZvPlatform::Simulated

namespace ZvPlatform {

using namespace Simulated;

// These calls only concern the calling thread, so they are no points of the schedule.

DWORD GetLastError()
{
    return currentThread().lastError;
}

void SetLastError(DWORD code)
{
    currentThread().lastError = code;
}

DWORD GetCurrentThreadId()
{
    return currentThread().number;
}

DWORD GetCurrentProcessId()
{
    return 1000;
}

HANDLE CreateThread(SECURITY_ATTRIBUTES *, SIZE_T stackSize, LPTHREAD_START_ROUTINE function,
                    void *argument, DWORD flags, DWORD *threadId)
{
    enter("CreateThread");
    if (DWORD const error = checkThread(function, flags))
        return refuse(error);
    Thread *thread = isRefused(THREADS) ? nullptr : newThread();
    Object *object = thread ? newThreadObject(*thread) : nullptr;
    if (object) {
        thread->created = true;
        thread->function = function;
        thread->argument = argument;
    }
    if (!object || !scheduler.start(*thread, stackSize ? stackSize : DEFAULT_STACK)) {
        if (object) {
            object->handles = object->pins = 0;
            release(*object);
        }
        if (thread)
            release(*thread);
        return refuse(ERROR_NOT_ENOUGH_MEMORY);
    }
    if (threadId)
        *threadId = thread->number;
    // A second point: the new thread may run, and even end, before the caller continues.
    enter("CreateThread, done", object);
    return object;
}

BOOL TerminateThread(HANDLE handle, DWORD exitCode)
{
    enter("TerminateThread", handle);
    Thread *thread = &currentThread();
    if (handle != CURRENT_THREAD) {
        Object *object = objectOf(handle, Object::THREAD);
        if (!object)
            return FALSE;
        thread = object->thread;
    }
    if (!thread)
        return TRUE;
    if (thread->state == Thread::WAITING && !thread->granted) {
        if (thread->kind == Thread::OBJECT) {
            thread->awaited->queue.remove(*thread);
            --thread->awaited->pins;
            release(*thread->awaited);
        } else if (thread->kind == Thread::SECTION) {
            --thread->section->waiters;
        } else if (thread->kind == Thread::ADDRESS) {
            leaveAddress(*thread);
        }
    }
    tellAcquire(thread);
    if (scheduler.isRunning())
        weakMemory.join(indexOf(currentThread()), indexOf(*thread));
    end(*thread, exitCode);
    // The killed thread keeps its block, its stack and its critical sections.
    if (thread == &currentThread())
        scheduler.abandon();
    thread->state = Thread::ENDED;
    return TRUE;
}

BOOL GetExitCodeThread(HANDLE handle, DWORD *exitCode)
{
    enter("GetExitCodeThread", handle);
    if (!exitCode)
        return fail(ERROR_INVALID_PARAMETER);
    Object *object = handle == CURRENT_THREAD ? nullptr : objectOf(handle, Object::THREAD);
    if (!object && handle != CURRENT_THREAD)
        return FALSE;
    *exitCode = object ? object->exitCode : STILL_ACTIVE;
    return TRUE;
}

namespace {

/// Returns an additional handle of the calling thread, or null with the last error set.
HANDLE ownHandle(Thread &thread)
{
    if (Object *object = thread.object) {
        ++object->handles;
        object->closed = false;
        return object;
    }
    return newThreadObject(thread);
}

} // namespace

BOOL DuplicateHandle(HANDLE sourceProcess, HANDLE source, HANDLE targetProcess, HANDLE *target,
                     DWORD, BOOL, DWORD options)
{
    enter("DuplicateHandle", source);
    if (DWORD const error = checkDuplication(sourceProcess, source, targetProcess, target))
        return fail(error);
    HANDLE handle;
    if (source == CURRENT_THREAD) {
        handle = ownHandle(currentThread());
    } else {
        Object *object = objectOf(source);
        if (object)
            ++object->handles;
        handle = object;
    }
    if (!handle)
        return FALSE;
    *target = handle;
    return options & DUPLICATE_CLOSE_SOURCE ? CloseHandle(source) : TRUE;
}

} // namespace ZvPlatform
