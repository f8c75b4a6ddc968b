#include "platform/linux/fork.h"
#include "platform/linux/killing.h"
#include "platform/linux/scheduling.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZV_SANITIZED
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ZV_SANITIZED
#endif
#endif

namespace ZvPlatform::Linux {

constinit Threads threads;
constinit Lock deadThreadsLock;
constinit thread_local Local local __attribute__((tls_model("initial-exec"))) = {};

namespace {

constexpr std::size_t DEFAULT_STACK = 1024 * 1024;

constinit Lock setUpLock;
constinit Shared<bool> isSetUp{false};
Kernel::EndKey endKey;
std::size_t stackOverhead;

/// Threads that were killed, whose stacks the C library regards as used.
constinit Thread *deadThreads = nullptr;

void onThreadEnd(void *);

void setUp()
{
    if (isSetUp.load(Order::ACQUIRE))
        return;
    Locked locked(setUpLock);
    if (isSetUp.load(Order::RELAXED))
        return;
    if (!Kernel::makeEndKey(endKey, onThreadEnd)) {
        std::fputs("no thread-specific key is left\n", stderr);
        std::abort();
    }
    prepareForForks();
    stackOverhead = Kernel::stackOverhead();
    isSetUp.store(true, Order::RELEASE);
}

/// Returns a thread block with the values of a new thread, or null if there are too many threads.
Thread *newThread()
{
    Thread *thread = threads.take();
    if (!thread)
        return nullptr;
    thread->number = static_cast<ThreadNumber>(threads.indexOf(thread) + 1) * 4;
    thread->waiter.number = thread->number;
    thread->holders.store(1, Order::RELAXED);
    thread->object = nullptr;
    thread->exitCode = 0;
    thread->dying.store(0, Order::RELAXED);
    thread->level.store(THREAD_PRIORITY_NORMAL, Order::RELAXED);
    for (DWORD i = 0; i < thread->usedSlots; ++i)
        (i < TLS_MINIMUM_AVAILABLE ? thread->slots[i]
                                   : thread->moreSlots[i - TLS_MINIMUM_AVAILABLE]) = {};
    thread->usedSlots = 0;
    return thread;
}

/// Returns the object of a thread that runs or is about to run, or null, with the last error set, if
/// there is no memory.
Object *newThreadObject(Thread &thread)
{
    Object *object = newObject();
    if (!object)
        return nullptr;
    object->thread = {&thread, STILL_ACTIVE, THREAD_PRIORITY_NORMAL};
    object->pins = 1;
    thread.object = object;
    thread.holders.fetch_add(1, Order::RELAXED);
    return object;
}

/// Ends the calling thread as other threads see it.
void end(Thread &thread, DWORD exitCode)
{
    abandonMutexes();
    if (Object *object = thread.object) {
        WakeList wakes;
        Queue queue(object, THREAD, Queue::CLOSED_TOO);
        object->thread = {&thread, exitCode, thread.level.load(Order::RELAXED)};
        queue.word |= SIGNALLED;
        --object->pins;
        queue.serve(wakes);
    }
    // Must come after the handle is signalled. A thread that holds the queue of an unsignalled
    // handle waits for its thread to get a number.
    endScheduling(thread);
}

/// Runs when the thread's thread-local objects have been destroyed, so that other threads see its
/// end as the last thing that it does.
void onThreadEnd(void *data)
{
    Thread &thread = *static_cast<Thread *>(data);
    callBack(thread);
    // From here on the destructor of a `Service` must not call `die`.
    ++local.depth;
    end(thread, thread.exitCode);
    if (thread.created)
        Kernel::detach(thread.id);
    local = {};
    release(thread);
}

void *run(void *data)
{
    Thread &thread = *static_cast<Thread *>(data);
    local.thread = &thread;
    local.number = thread.number;
    ++local.depth;
    thread.id = Kernel::currentThread();
    Kernel::setEndValue(endKey, &thread);
    acceptKilling();
    beginScheduling(thread);
    __atomic_signal_fence(__ATOMIC_SEQ_CST);
    --local.depth;
    // The thread was killed before it had a number to which a signal could be sent.
    if (thread.dying.load(Order::RELAXED))
        die();
    thread.exitCode = thread.function(thread.argument);
    return nullptr;
}

/// Waits until the system, too, has ended a thread whose handle is signalled. Until then a `setuid`
/// of the process would wait for an answer that the thread never gives. Does not wait for the main
/// thread, which stays until the process ends.
void awaitKernel(std::uint32_t kernelId)
{
    if (kernelId == Kernel::processNumber())
        return;
    while (Kernel::sendSignal(kernelId, 0))
        Kernel::sleep(20'000);
}

/// Gives back the blocks of killed threads. Calls `prepare` with each before that.
template <class Prepare>
void releaseDead(Prepare prepare)
{
    Thread *thread;
    {
        Locked locked(deadThreadsLock);
        thread = std::exchange(deadThreads, nullptr);
    }
    while (thread) {
        Thread * const next = thread->nextFree;
        prepare(*thread);
        release(*thread);
        thread = next;
    }
}

/// Gives back the stacks and blocks of killed threads.
void bury()
{
    releaseDead([]([[maybe_unused]] Thread const &thread) {
#ifndef ZV_SANITIZED
        // A sanitizer does not notice the end of a killed thread and believes that it still runs. A
        // join would never return.
        Kernel::join(thread.id);
#endif
    });
}

std::size_t stackFor(SIZE_T wanted)
{
    std::size_t size = wanted ? wanted : DEFAULT_STACK;
    if (size > SIZE_MAX / 8)
        return 0;
#ifdef ZV_SANITIZED
    // A sanitizer makes frames several times as large.
    size = size * 4 + 256 * 1024;
#endif
    std::size_t const page = Kernel::pageSize();
    return (size + stackOverhead + page - 1) / page * page;
}

/// Returns ERROR_SUCCESS, or why there is no thread.
DWORD createKernelThread(Thread *thread, SIZE_T stackSize)
{
    std::size_t const stack = stackFor(stackSize);
    Kernel::ThreadId made;
    Kernel::ProcessorSet processors;
    bool const isPlaced = findProcessorsForNewThreads(processors);
    int error = Kernel::createThread(made, stack, isPlaced ? &processors : nullptr, run, thread);
    // The system may have taken processors away from the process meanwhile. The thread then gets
    // those of its creator.
    if (error == EINVAL)
        error = Kernel::createThread(made, stack, nullptr, run, thread);
    if (!error)
        return ERROR_SUCCESS;
    return error == EAGAIN ? refusalOfThread(stack) : ERROR_NOT_ENOUGH_MEMORY;
}

} // namespace

void attach()
{
    setUp();
    ++local.depth;
    Thread *thread = newThread();
    if (!thread) {
        std::fputs("there is no memory for what belongs to a thread\n", stderr);
        std::abort();
    }
    thread->created = false;
    thread->id = Kernel::currentThread();
    thread->realTime = thread->nice = thread->askedNice = 0;
    thread->kernelId.store(Kernel::threadNumber(), Order::RELEASE);
    local.thread = thread;
    local.number = thread->number;
    Kernel::setEndValue(endKey, thread);
    --local.depth;
}

DWORD refusalOfThread(std::size_t stack)
{
    return Kernel::hasMemoryForStack(stack) ? ERROR_MAX_THRDS_REACHED : ERROR_NOT_ENOUGH_MEMORY;
}

void releaseDeadThreads()
{
    releaseDead([](Thread const &) {});
}

void release(Thread &thread)
{
    if (thread.holders.fetch_sub(1, Order::ACQ_REL) == 1)
        threads.give(&thread);
}

void die()
{
    Thread &thread = *local.thread;
    // A second signal must not call this function again.
    local.depth = 1;
    bool const created = thread.created;
    end(thread, static_cast<DWORD>(thread.dying.load(Order::RELAXED)));
    // The C library keeps the value of a thread that ends without it. The end of the next thread in
    // its place would then be taken for the end of this one.
    Kernel::setEndValue(endKey, nullptr);
    if (created) {
        Locked locked(deadThreadsLock);
        thread.nextFree = deadThreads;
        deadThreads = &thread;
    } else {
        release(thread);
    }
    Kernel::endThread();
}

} // namespace ZvPlatform::Linux

namespace ZvPlatform {

using namespace Linux;

DWORD GetLastError()
{
    return local.lastError;
}

void SetLastError(DWORD code)
{
    local.lastError = code;
}

DWORD GetCurrentProcessId()
{
    return Kernel::processNumber();
}

HANDLE CreateThread(SECURITY_ATTRIBUTES *, SIZE_T stackSize, LPTHREAD_START_ROUTINE function,
                    void *argument, DWORD flags, DWORD *threadId)
{
    if (DWORD const error = checkThread(function, flags))
        return refuse(error);
    Service service;
    setUp();
    bury();
    Thread *thread = newThread();
    if (!thread)
        return refuse(ERROR_NOT_ENOUGH_MEMORY);
    Object *object = newThreadObject(*thread);
    if (!object) {
        release(*thread);
        return nullptr;
    }
    thread->created = true;
    thread->function = function;
    thread->argument = argument;
    inheritScheduling(*thread, service.thread());
    // Once it has begun, the thread may end at any time. Its number is therefore read before.
    DWORD const number = thread->number;
    publish(object, THREAD | MANUAL);
    if (DWORD const refusal = createKernelThread(thread, stackSize)) {
        object->word.store(DEAD, Order::RELAXED);
        discard(object);
        threads.give(thread);
        return refuse(refusal);
    }
    if (threadId)
        *threadId = number;
    return object;
}

BOOL TerminateThread(HANDLE handle, DWORD exitCode)
{
    Service service;
    std::uint64_t const sentence = SENTENCED | exitCode;
    if (handle == CURRENT_THREAD) {
        service.thread().dying.store(sentence, Order::RELAXED);
        return TRUE;
    }
    Object *object = objectOf(handle);
    bool isSent = false;
    std::uint32_t kernelId = 0;
    for (DWORD pause = 1;; pause = pause < 32 ? 2 * pause : pause) {
        {
            Queue queue(object, THREAD, pause == 1 ? Queue::BY_HANDLE : Queue::CLOSED_TOO);
            if (!queue)
                return fail(ERROR_INVALID_HANDLE);
            if (pause == 1)
                ++object->pins;
            Thread *thread = livingThread(queue);
            if (!thread || service.killed()) {
                --object->pins;
                break;
            }
            std::uint64_t living = 0;
            thread->dying.compare_exchange_strong(living, sentence, Order::RELAXED);
            if (thread == &service.thread()) {
                --object->pins;
                return TRUE;
            }
            // A thread that has not begun yet checks `dying` when it begins.
            if (std::uint32_t const id = thread->kernelId.load(Order::RELAXED)) {
                kernelId = id;
                isSent = isSent || sendKill(id);
                wakeVictim(*thread);
            }
        }
        // The thread misses a wake-up between its check and its sleep, and may begin without having
        // seen `dying`. It is therefore killed again until it has ended.
        waitSlowly(service, object, pause, Queue::CLOSED_TOO);
    }
    // Two threads that kill each other would wait for each other.
    if (kernelId && !service.killed())
        awaitKernel(kernelId);
    bury();
    return TRUE;
}

BOOL GetExitCodeThread(HANDLE handle, DWORD *exitCode)
{
    if (!exitCode)
        return fail(ERROR_INVALID_PARAMETER);
    if (handle == CURRENT_THREAD) {
        *exitCode = STILL_ACTIVE;
        return TRUE;
    }
    Service service;
    Queue queue(objectOf(handle), THREAD);
    if (!queue)
        return fail(ERROR_INVALID_HANDLE);
    *exitCode = queue.object().thread.exitCode;
    return TRUE;
}

namespace {

/// Returns a handle of the calling thread, or null, with the last error set, if there is no memory.
HANDLE ownHandle(Thread &thread)
{
    if (!thread.object) {
        Object *object = newThreadObject(thread);
        return object ? publish(object, THREAD | MANUAL) : nullptr;
    }
    Queue queue(thread.object, THREAD, Queue::CLOSED_TOO);
    ++thread.object->handles;
    queue.word &= ~Word{CLOSED};
    return thread.object;
}

} // namespace

BOOL DuplicateHandle(HANDLE sourceProcess, HANDLE source, HANDLE targetProcess, HANDLE *target,
                     DWORD, BOOL, DWORD options)
{
    if (DWORD const error = checkDuplication(sourceProcess, source, targetProcess, target))
        return fail(error);
    Service service;
    HANDLE handle = source == CURRENT_THREAD ? ownHandle(service.thread())
                                             : openExisting(objectOf(source), ANY_TYPE);
    if (!handle)
        return FALSE;
    *target = handle;
    return options & DUPLICATE_CLOSE_SOURCE ? CloseHandle(source) : TRUE;
}

} // namespace ZvPlatform
