// The objects behind handles: a word that says all of their state, and a queue of those who wait.
//
// A handle is the address of an object. All that decides about an operation stands in `word`, the type included, so
// that an operation that needs nobody else is one compare-and-exchange, and one on a handle that was just closed
// fails cleanly. The queue and the counts are guarded by a bit of the same word; letting go of the queue and giving
// the object its new state are one store, the last access to the object. Only then are waiters woken: any of them
// may close the object at once.
#pragma once

#include "platform/linux/arena.h"
#include "platform/linux/thread.h"

namespace ZvPlatform::Linux {

enum : Word
{
    TYPE = 7,
    DEAD = 0,
    MUTEX = 1,
    EVENT = 2,
    SEMAPHORE = 3,
    TIMER = 4,
    THREAD = 5,
    SHARED_SEMAPHORE = 6,

    QUEUE = 1 << 3,       ///< somebody is at the queue
    QUEUE_SLEEP = 1 << 4, ///< somebody sleeps until the queue is free
    WAITERS = 1 << 5,     ///< the queue is not empty
    CLOSED = 1 << 6, ///< no handle is left; waiters, an owner or the running thread keep the object
    SIGNALLED = 1 << 7, ///< event, timer, thread
    MANUAL = 1 << 8,    ///< event, timer: stays signalled
    ABANDONED = 1 << 9, ///< mutex: its last owner ended
    WAKING = 1 << 10,   ///< mutex: a waiter is on its way to try again
    HAND_OVER =
        1 << 11, ///< mutex: the first waiter has waited long; the next release makes it the owner

    FLAGS = 0xFFFFFFFF
};

static_assert(MUTEX == FREE_MUTEX);

inline constexpr Word ONE = Word{1} << VALUE_SHIFT;

inline std::uint32_t valueOf(Word word)
{
    return static_cast<std::uint32_t>(word >> VALUE_SHIFT);
}
inline Word withValue(Word word, std::uint32_t value)
{
    return (word & FLAGS) | Word{value} << VALUE_SHIFT;
}

struct Name;
struct SharedSegment;

struct alignas(64) Object : ObjectHead
{
    struct SemaphoreState
    {
        std::uint32_t maximum;
    };
    struct TimerState
    {
        Instant due;
        Instant period;
    };
    struct ThreadState
    {
        Thread *thread; ///< also when it has ended
        DWORD exitCode;
        int level;
    };
    struct SharedState
    {
        SharedSegment *segment;
        int file;
        int childFile; ///< during a fork, the child's
    };

    // The queue guards what follows.
    std::uint32_t handles = 0;
    std::uint32_t pins = 0; ///< waiters, and the running thread
    union
    {
        Waiter *first = nullptr; ///< of a ring
        Object *nextFree;
    };
    Name *name = nullptr;
    union
    {
        SemaphoreState semaphore{};
        TimerState timer;
        ThreadState thread;
        SharedState shared;
    };
    SpinCredit spin{};
};
static_assert(sizeof(Object) == 64);

using Objects = Arena<Object, 1 << 22>;
extern constinit Objects objects;

inline HANDLE const CURRENT_PROCESS = reinterpret_cast<HANDLE>(std::intptr_t{-1});
inline HANDLE const CURRENT_THREAD = reinterpret_cast<HANDLE>(std::intptr_t{-2});

inline Object *objectOf(HANDLE handle)
{
    return objects.holds(handle) ? static_cast<Object *>(handle) : nullptr;
}

/// The waiters that a change has satisfied, to be woken when the object has been let go.
class WakeList
{
public:
    WakeList() = default;
    WakeList(WakeList const &) = delete;
    WakeList &operator=(WakeList const &) = delete;

    /// Wakes them all, the first first.
    ~WakeList();

    void grant(Waiter *, DWORD result);
    /// For one that was taken off the queue to try again; at most one in a list. Its time may be up before the wake-up
    /// comes, and its links be another queue's by then, so none of this list's leads to it.
    void look(Waiter *waiter) { _looking = waiter; }

private:
    Waiter *_first = nullptr;
    Waiter *_last = nullptr;
    Waiter *_looking = nullptr;
};

/// Lets the waiter's thread go on.
void unpark(Waiter &, std::uint32_t bit);

/// A stay at an object's queue. Declared after the wake list, so that the queue is free before anyone is woken.
class Queue
{
public:
    /// Whether the handle may be closed already.
    enum Access
    {
        BY_HANDLE,
        CLOSED_TOO
    };

    Queue(Object *, Word type, Access = BY_HANDLE);
    /// Stores the word, and buries the object when nothing holds it any more.
    ~Queue();

    Queue(Queue const &) = delete;
    Queue &operator=(Queue const &) = delete;

    /// Whether the object is one of the wanted type. If not, nothing but this may be asked.
    explicit operator bool() const { return _good; }

    Object &object() { return *_object; }
    Word word;

    void append(Waiter &);
    void prepend(Waiter &);
    void remove(Waiter &);
    Waiter *pop();

    /// Takes from the object what a waiter wants, if it is there.
    bool consume();
    /// Satisfies waiters as far as it goes.
    void serve(WakeList &);

private:
    void insert(Waiter &);

    Object *_object;
    bool _good;
};

inline constexpr Word ANY_TYPE = TYPE;

/// The thread behind its object, at the queue; null once it has ended. It cannot end meanwhile: for that it needs the
/// queue.
inline Thread *livingThread(Queue &queue)
{
    return queue.word & SIGNALLED ? nullptr : queue.object().thread.thread;
}

/// A new object, with no handle yet and unknown to others; null with the last error set.
Object *newObject();
/// Gives a new object its word and its first handle.
HANDLE publish(Object *, Word word);
void discard(Object *);

// ---- names ----------------------------------------------------------------------------------------------

extern constinit Lock namesLock;

/// Sets the last error when a name cannot be one. Leads past a prefix that changes nothing.
bool isGoodName(char const *&);
/// Under `namesLock`.
Object *findName(char const *);
/// False with the last error set when there is no memory.
bool addName(Object *, char const *);
void removeName(Object *);
/// One more handle for an object that was found by its name; null with the last error set when it is of another type.
HANDLE openExisting(Object *, Word type);

/// An object by its name, or a new one that `make` brings into shape and gives its word.
template <class Make>
HANDLE createObject(char const *name, Word type, Make make)
{
    Service service;
    if (!name || !*name) {
        Object *object = newObject();
        if (!object)
            return nullptr;
        local.lastError = ERROR_SUCCESS;
        return publish(object, make(*object));
    }
    if (!isGoodName(name))
        return nullptr;
    Locked locked(namesLock);
    if (Object *existing = findName(name)) {
        HANDLE handle = openExisting(existing, type);
        if (handle)
            local.lastError = ERROR_ALREADY_EXISTS;
        return handle;
    }
    Object *object = newObject();
    if (!object)
        return nullptr;
    if (!addName(object, name)) {
        discard(object);
        return nullptr;
    }
    local.lastError = ERROR_SUCCESS;
    return publish(object, make(*object));
}

/// Waits, to the end, for an object that was not available a moment ago.
DWORD waitSlowly(Service &, Object *, DWORD milliseconds, Queue::Access = Queue::BY_HANDLE);

// ---- what the parts have of each other ------------------------------------------------------------------

/// Gives the mutex to the next, at the queue and by its owner. The count of what it holds is the caller's business.
void passOn(Queue &, WakeList &);
/// Ends the calling thread's ownership of all its mutexes.
void abandonMutexes();

/// For a fork.
void lockAddresses();
void unlockAddresses();
/// In its child, in which no other thread waits.
void forgetAddressWaits();

/// Brings a timer's state up to the clock. Returns when it will change next.
Instant updateTimer(Queue &);

DWORD waitShared(Service &, Object *, DWORD milliseconds);
/// A child of a fork has file locks of its own. Called under `namesLock`, the first two by the parent.
void prepareSharedForFork();
void leaveSharedToChild();
void takeSharedFromParent();
/// The object's last user has gone.
void leaveShared(Object::SharedState);

// ---- looking again before sleeping ----------------------------------------------------------------------

/// How many pauses may be spent now; 0 on one processor, in real-time operation, and where it did not pay.
std::uint32_t spinBudget(SpinCredit &);
/// What an object begins with.
SpinCredit newSpinCredit();
void spinPaid(SpinCredit &);
void spinFailed(SpinCredit &);

inline void pause()
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    __asm__ volatile("yield");
#else
    std::atomic_signal_fence(std::memory_order_seq_cst);
#endif
}

/// Looks again while it may pay.
template <class Try>
bool spin(SpinCredit &credit, Try tryIt)
{
    std::uint32_t const budget = spinBudget(credit);
    for (std::uint32_t i = 0; i < budget; ++i) {
        if (tryIt()) {
            spinPaid(credit);
            return true;
        }
        pause();
    }
    if (budget)
        spinFailed(credit);
    return false;
}

/// Sleeps until a bit other than SLEEPING is set in the waiter's word; false when the deadline came first.
bool park(Waiter &, Instant deadline);

/// Sleeps until a grant that is certain has come.
void awaitGrant(Waiter &);

} // namespace ZvPlatform::Linux
