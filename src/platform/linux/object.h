// Kernel objects behind handles: a word for the state, and a queue of waiters.
//
// A handle is the address of an object. `word` contains all that decides about an operation,
// including the type. An operation that concerns no other thread is therefore one
// compare-and-exchange, and an operation on a handle that was just closed fails cleanly. A bit of
// the word guards the queue and the counts. One store releases the queue and sets the new state,
// and is the last access to the object. Waiters are woken only after it, because any of them may
// close the object at once.
#pragma once

#include "platform/common/objectName.h"
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

    QUEUE = 1 << 3,       ///< a thread is at the queue
    QUEUE_SLEEP = 1 << 4, ///< a thread sleeps until the queue is free
    WAITERS = 1 << 5,     ///< the queue is not empty
    CLOSED = 1 << 6,      ///< no handle is left, but waiters, an owner or a thread keep the object
    SIGNALLED = 1 << 7,   ///< event, timer, thread
    MANUAL = 1 << 8,      ///< event, timer: stays signalled
    ABANDONED = 1 << 9,   ///< mutex: its last owner ended
    WAKING = 1 << 10,     ///< mutex: a waiter is about to try again
    HAND_OVER = 1 << 11,  ///< mutex: the next release makes the first waiter the owner

    FLAGS = 0xFFFFFFFF
};

static_assert(MUTEX == FREE_MUTEX && SEMAPHORE == EMPTY_SEMAPHORE);

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
    struct ThreadState
    {
        Thread *thread; ///< stays set when the thread has ended
        DWORD exitCode;
        int level;
    };
    struct SharedState
    {
        SharedSegment *segment;
        int file;
        int childFile; ///< during a fork, the child's
    };

    // The queue guards the following members, except `spin`.
    std::uint32_t handles = 0;
    std::uint32_t pins = 0; ///< uses without a handle, as by waiters and the running thread
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
    Shared<SpinCredit> spin{};
};
static_assert(sizeof(Object) == 64);

using Objects = Arena<Object, 1 << 22>;
extern constinit Objects objects;

inline Object *objectOf(HANDLE handle)
{
    return objects.holds(handle) ? static_cast<Object *>(handle) : nullptr;
}

/// Waiters that a change has satisfied. They are woken after the object's queue is released.
class WakeList
{
public:
    WakeList() = default;
    WakeList(WakeList const &) = delete;
    WakeList &operator=(WakeList const &) = delete;

    /// Wakes the waiters in the order in which they were added.
    ~WakeList();

    void grant(Waiter *, DWORD result);
    /// Adds a waiter that was taken off the queue to try again. A list holds at most one. The
    /// waiter may time out and enter another queue before its wake-up, so this list has no link to
    /// it.
    void look(Waiter *waiter) { _looking = waiter; }

private:
    Waiter *_first = nullptr;
    Waiter *_last = nullptr;
    Waiter *_looking = nullptr;
};

/// Sets a bit in the waiter's `park`, and wakes its thread if it sleeps.
void unpark(Waiter &, std::uint32_t bit);

/// Access to an object's queue, held until the destructor. Must be declared after the wake list, so
/// that the queue is free before a waiter is woken.
class Queue
{
public:
    /// Whether the access needs a handle that is not closed.
    enum Access
    {
        BY_HANDLE,
        CLOSED_TOO
    };

    Queue(Object *, Word type, Access = BY_HANDLE);
    /// Stores `word`, and frees the object if nothing keeps it.
    ~Queue();

    Queue(Queue const &) = delete;
    Queue &operator=(Queue const &) = delete;

    /// Returns whether the access was granted: the object must have the wanted type, and a handle
    /// if the access needs one. If not, only this operator may be called.
    explicit operator bool() const { return _good; }

    Object &object() { return *_object; }
    Word word;

    void append(Waiter &);
    void prepend(Waiter &);
    void remove(Waiter &);
    Waiter *pop();

    /// Takes from the object what a waiter wants. Returns false if the object does not have it.
    bool consume();
    /// Grants waiters what they want, from the first one on, as long as the object has it.
    void serve(WakeList &);

private:
    void insert(Waiter &);

    Object *_object;
    bool _good;
};

inline constexpr Word ANY_TYPE = TYPE;

/// Returns the thread of an object whose queue the caller holds, or null if the thread has ended.
/// The thread cannot end meanwhile, because for that it needs the queue.
inline Thread *livingThread(Queue &queue)
{
    return queue.word & SIGNALLED ? nullptr : queue.object().thread.thread;
}

/// Returns a new object, which has no handle yet and is unknown to other threads. Returns null,
/// with the last error set, if there is no memory.
Object *newObject();
/// Gives a new object its word and its first handle.
HANDLE publish(Object *, Word word);
void discard(Object *);

// ---- names --------------------------------------------------------------------------------------

extern constinit Lock namesLock;

/// Returns the object of a name, or null. The caller of this function and of the following ones that
/// take a name must hold `namesLock`, and so must the caller of `removeName`.
Object *findName(char const *);
/// Returns false, with the last error set, if there is no memory.
bool addName(Object *, char const *);
void removeName(Object *);
/// Returns one more handle of an object. Returns null, with the last error set, if the object has
/// another type or no handle.
HANDLE openExisting(Object *, Word type);
/// Like `openExisting`, for a service that would have created the object.
HANDLE createExisting(Object *, Word type);
/// Returns a new object with a name. Returns null, with the last error set, if there is no memory.
Object *newObject(char const *name);

/// Returns a handle of the object of a name, or of a new object. `make` initialises a new object
/// and returns its word.
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
    if (DWORD const error = resolveName(name))
        return refuse(error);
    Locked locked(namesLock);
    if (Object *existing = findName(name))
        return createExisting(existing, type);
    Object *object = newObject(name);
    if (!object)
        return nullptr;
    local.lastError = ERROR_SUCCESS;
    return publish(object, make(*object));
}

/// Carries out a wait that could not be settled without the queue, and returns its result.
DWORD waitSlowly(Service &, Object *, DWORD milliseconds, Queue::Access = Queue::BY_HANDLE);

// ---- functions that the sources share -----------------------------------------------------------

/// Frees a mutex, and makes the next waiter try again or makes it the owner. The caller must hold
/// the queue, and must own the mutex or have found it free. It must correct `Local::held` itself.
void passOn(Queue &, WakeList &);
/// Releases all mutexes of the calling thread, and marks them as abandoned.
void abandonMutexes();

/// Take and release the locks of the address waits, for a fork.
void lockAddresses();
void unlockAddresses();
/// Empties the queues of the address waits in the child of a fork, in which no other thread waits.
void forgetAddressWaits();

/// Updates a timer's state to the clock. Returns when the state will change next.
Instant updateTimer(Queue &);

DWORD waitShared(Service &, Object *, DWORD milliseconds);
/// Give the child of a fork file locks of its own. The caller must hold `namesLock`. The parent
/// calls the first before and the second after the fork, and the child calls the third.
void prepareSharedForFork();
void leaveSharedToChild();
void takeSharedFromParent();
/// Closes a shared semaphore whose last user in this process has gone.
void leaveShared(Object::SharedState);

// ---- parking ------------------------------------------------------------------------------------

/// Sleeps until a bit other than SLEEPING is set in the waiter's `park`. Returns false if the
/// deadline is reached first. Acquires nothing. The caller must look under the lock that guards the
/// waiter, or call `awaitGrant`.
bool park(Waiter &, Instant deadline);

/// Sleeps until the bit GRANTED is set, which must be certain.
void awaitGrant(Waiter &);

} // namespace ZvPlatform::Linux
