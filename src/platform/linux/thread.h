// Thread blocks: what the layer knows about each thread.
#pragma once

#include "platform/common/arguments.h"
#include "platform/common/slots.h"
#include "platform/linux/arena.h"
#include "platform/linux/spinning.h"

namespace ZvPlatform::Linux {

struct Object;
struct Thread;

/// A thread's place in the queue of what it waits for. A thread waits for one thing at a time.
struct Waiter
{
    /// Bits of `park`.
    enum : std::uint32_t
    {
        SLEEPING = 1, ///< the thread sleeps, or is about to sleep
        LOOK = 2,     ///< something has changed
        GRANTED = 4,  ///< the thread has what it waited for, and `result` tells how
        KILLED = 8    ///< the thread must end
    };

    Waiter *next = nullptr;
    Waiter *previous = nullptr;
    Shared<std::uint32_t> park{0};
    ThreadNumber number = 0;
    DWORD result = 0;
    // Guarded by the queue, like the links.
    bool queued = false;
    /// The waiter was taken off a mutex's queue to try again.
    bool woken = false;
    /// The waiter was taken off a queue and has what it waited for. The bit GRANTED is set, or will
    /// be soon.
    bool granted = false;
    void const *address = nullptr;
    /// A word other than `park` on which the thread sleeps, or is about to sleep. A killer wakes
    /// the thread there.
    Shared<void const *> sleepsOn{nullptr};
    Call call;
};

inline constexpr std::uint64_t SENTENCED = std::uint64_t{1} << 32;

/// What the layer knows about a thread. Never unmapped, because another thread may still wake a
/// thread that has ended.
struct alignas(64) Thread
{
    Thread *nextFree = nullptr;
    /// How many use the block: the thread until it has ended, and its object. A thread number is
    /// not reused while a handle is open.
    Shared<std::uint32_t> holders{0};
    Waiter waiter;
    ThreadNumber number = 0;
    /// The kernel's number of the thread. 0 before the thread has begun and after its end. Set to 0
    /// under `schedulingLock`.
    Shared<std::uint32_t> kernelId{0};
    /// The object of the thread's handle, or null if there is none yet. Written by the thread
    /// itself, or before it begins.
    Object *object = nullptr;
    Kernel::ThreadId id{};
    /// Whether CreateThread has made the thread.
    bool created = false;
    DWORD exitCode = 0;
    /// The exit code of a thread that is being killed, with the bit SENTENCED, otherwise 0.
    Shared<std::uint64_t> dying{0};
    LPTHREAD_START_ROUTINE function = nullptr;
    void *argument = nullptr;

    Shared<int> level{THREAD_PRIORITY_NORMAL};
    /// The generation of the scheduling when the thread was made. What the thread inherited is
    /// known as long as the generation has not changed.
    std::uint32_t generation = 0;
    /// What the system was last told. `schedulingLock` guards it. `realTime` is a real-time
    /// priority, 0 if there is none, or negative if the policy is the application's own or unknown.
    /// `nice` is the nice value, and `askedNice` is the value that was asked for.
    int realTime = 0;
    int nice = 0;
    int askedNice = 0;

    DWORD usedSlots = 0;
    TlsSlot slots[TLS_MINIMUM_AVAILABLE];
    TlsSlot *moreSlots = nullptr;
};

using Threads = Arena<Thread, 1 << 17>;
extern constinit Threads threads;

/// Ends one use of the block. The last one makes the block free for a new thread.
void release(Thread &);

/// Guards the list of killed threads whose blocks have not been given back yet.
extern constinit Lock deadThreadsLock;
/// Gives back the blocks of killed threads in the child of a fork, in which the C library has
/// already taken back their stacks. Blocks of threads that lived when the process was copied are
/// never given back in the child. A critical section may still have the number of such a thread, and
/// a new thread with that number would be taken for its owner.
void releaseDeadThreads();

/// Returns why a thread with a stack of that size could not be made. The C library does not tell.
DWORD refusalOfThread(std::size_t stack);

/// Guards the allocation of slots.
extern constinit Lock slotsLock;

/// Guards the regions of `VirtualAlloc`.
extern constinit Lock regionsLock;

/// Calls the callbacks of the slots of the calling thread, which ends.
void callBack(Thread &);

inline Thread &currentThread()
{
    if (!local.number) [[unlikely]]
        attach();
    return *local.thread;
}

/// Ends the calling thread at once. Its mutexes become abandoned and its handle is signalled, but
/// its stack is not unwound.
[[noreturn]] void die();

/// While an object of this class exists, its thread cannot be killed. A kill takes effect when the
/// outermost one is destroyed.
class Service
{
public:
    Service() : _thread(currentThread())
    {
        ++local.depth;
        __atomic_signal_fence(__ATOMIC_SEQ_CST);
    }

    ~Service()
    {
        __atomic_signal_fence(__ATOMIC_SEQ_CST);
        if (--local.depth == 0 && _thread.dying.load(Order::RELAXED)) [[unlikely]]
            die();
    }

    Service(Service const &) = delete;
    Service &operator=(Service const &) = delete;

    Thread &thread() { return _thread; }
    bool killed() const { return _thread.dying.load(Order::RELAXED) != 0; }

private:
    Thread &_thread;
};

/// Calls `futexWait` inside a service, and returns when the thread is killed. The caller must check
/// `Service::killed` afterwards.
inline void sleepOn(Service &service, void const *word, std::uint32_t value, Instant deadline,
                    Scope scope = Scope::PRIVATE)
{
    Shared<void const *> &place = service.thread().waiter.sleepsOn;
    place.store(word, Order::RELAXED);
    if (!service.killed())
        futexWait(word, value, deadline, scope);
    place.store(nullptr, Order::RELAXED);
}

inline BOOL fail(DWORD code)
{
    local.lastError = code;
    return FALSE;
}

inline std::nullptr_t refuse(DWORD code)
{
    local.lastError = code;
    return nullptr;
}

} // namespace ZvPlatform::Linux
