// What the layer knows of each thread.
#pragma once

#include "platform/linux/arena.h"
#include "platform/services.h"

#include <pthread.h>

namespace ZvPlatform::Linux {

struct Object;
struct Thread;

/// A thread's place in the queue of whatever it waits for. A thread waits for one thing at a time.
struct Waiter
{
    /// Bits of `park`.
    enum : std::uint32_t
    {
        SLEEPING = 1, ///< the thread sleeps, or is about to
        LOOK = 2,     ///< something has changed
        GRANTED = 4,  ///< what it waited for is its own; `result` tells how
        KILLED = 8    ///< the thread is to end
    };

    Waiter *next = nullptr;
    Waiter *previous = nullptr;
    std::atomic<std::uint32_t> park{0};
    ThreadNumber number = 0;
    DWORD result = 0;
    // Guarded by the queue, as the links are.
    bool queued = false;
    /// Taken off a mutex's queue to try again.
    bool woken = false;
    /// Taken off a queue for good: the bit GRANTED is there or is about to come.
    bool granted = false;
    void const *address = nullptr;
    /// The word of another kind that the thread sleeps on, or is about to: a killer wakes it there.
    std::atomic<void const *> sleepsOn{nullptr};
};

struct TlsSlot
{
    void *value = nullptr;
    std::uint32_t generation = 0;
};

inline constexpr std::uint64_t SENTENCED = std::uint64_t{1} << 32;

inline constexpr DWORD TLS_SLOTS = 1088;

/// Never freed, for another thread may still wake a thread that has ended.
struct alignas(64) Thread
{
    Thread *nextFree = nullptr;
    /// The thread until it has ended, and its object: a number is not given out anew while a handle is open.
    std::atomic<std::uint32_t> holders{0};
    Waiter waiter;
    ThreadNumber number = 0;
    /// The kernel's number; 0 before the thread has begun and once it ends. Goes to 0 under `schedulingLock`.
    std::atomic<std::uint32_t> kernelId{0};
    /// Its handle's object, null until one is wanted. Written by the thread itself or before it begins.
    Object *object = nullptr;
    pthread_t pthread{};
    /// Made by CreateThread.
    bool created = false;
    DWORD exitCode = 0;
    /// The exit code of a thread that is to be killed, and the bit SENTENCED; 0 otherwise.
    std::atomic<std::uint64_t> dying{0};
    LPTHREAD_START_ROUTINE function = nullptr;
    void *argument = nullptr;

    std::atomic<int> level{THREAD_PRIORITY_NORMAL};
    /// Of the scheduling when the thread was made; what it inherited is known as long as that has not moved.
    std::uint32_t generation = 0;
    /// What the system was last told, under `schedulingLock`: a real-time priority, 0, or less where the application's
    /// own policy was inherited; a nice value, and the latter as it was asked for.
    int realTime = 0;
    int nice = 0;
    int askedNice = 0;

    DWORD usedSlots = 0;
    TlsSlot slots[TLS_MINIMUM_AVAILABLE];
    TlsSlot *moreSlots = nullptr;
};

using Threads = Arena<Thread, 1 << 17>;
extern constinit Threads threads;

/// One of the holders has done with the block.
void release(Thread &);

/// Guards the threads that were killed and not given back yet.
extern constinit Lock deadThreadsLock;
/// In the child of a fork, for which the C library has taken their stacks back.
void forgetDeadThreads();

/// Returns what is the matter if a thread with that stack cannot be made. The C library does not tell.
DWORD refusalOfThread(std::size_t stack);

/// Guards the slots' generations.
extern constinit Lock slotsLock;

/// Calls those who want to know that the calling thread ends.
void callBack(Thread &);

inline Thread &currentThread()
{
    if (!local.number) [[unlikely]]
        attach();
    return *local.thread;
}

/// Ends the calling thread on the spot, after its last duties.
[[noreturn]] void die();

/// While one exists the thread cannot be killed: whoever tries it waits until the outermost is left.
class Service
{
public:
    Service() : _thread(currentThread())
    {
        ++local.depth;
        std::atomic_signal_fence(std::memory_order_seq_cst);
    }

    ~Service()
    {
        std::atomic_signal_fence(std::memory_order_seq_cst);
        if (--local.depth == 0 && _thread.dying.load(std::memory_order_relaxed)) [[unlikely]]
            die();
    }

    Service(Service const &) = delete;
    Service &operator=(Service const &) = delete;

    Thread &thread() { return _thread; }
    bool killed() const { return _thread.dying.load(std::memory_order_relaxed) != 0; }

private:
    Thread &_thread;
};

/// `futexWait` inside a service that ends when the thread is killed. The caller looks for that afterwards.
inline void sleepOn(Service &service, void const *word, std::uint32_t value, Instant deadline,
                    Scope scope = Scope::PRIVATE)
{
    std::atomic<void const *> &place = service.thread().waiter.sleepsOn;
    place.store(word, std::memory_order_seq_cst);
    if (!service.killed())
        futexWait(word, value, deadline, scope);
    place.store(nullptr, std::memory_order_relaxed);
}

inline BOOL fail(DWORD code)
{
    local.lastError = code;
    return FALSE;
}

} // namespace ZvPlatform::Linux
