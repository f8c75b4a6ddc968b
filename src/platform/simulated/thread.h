// State of the simulated threads, and of the objects behind handles.
//
// Only the thread that has the baton uses this state, so no lock guards it. Only the names of
// objects are allocated on the heap.
#pragma once

#include "platform/common/arguments.h"
#include "platform/common/clock.h"
#include "platform/common/objectName.h"
#include "platform/common/slots.h"
#include "platform/common/waitList.h"
#include "platform/scheduler/scheduler.h"

namespace ZvPlatform::Simulated {

struct Object;
struct Section;
struct Thread;

struct Thread : Task
{
    enum Kind : std::uint8_t
    {
        OBJECT,
        SECTION,
        ADDRESS,
        SLEEP
    };

    Thread *nextFree = nullptr;
    /// References to this block: one of the thread until it has been joined, one of its object. The
    /// block and its number are reused when there are none.
    std::uint32_t holders = 0;
    ThreadNumber number = 0;
    bool created = false;
    LPTHREAD_START_ROUTINE function = nullptr;
    void *argument = nullptr;
    Object *object = nullptr; ///< of its handles, null until a handle is requested
    DWORD exitCode = 0;
    DWORD lastError = 0;
    int level = THREAD_PRIORITY_NORMAL;
    DWORD_PTR mask = 0;

    // The current wait, or the last one.
    Kind kind = OBJECT;
    DWORD result = 0;
    Object *awaited = nullptr;
    Section *section = nullptr;
    void const *address = nullptr;
    Thread *next = nullptr;
    Thread *previous = nullptr;

    Object *held = nullptr;     ///< the first of the mutexes that it owns
    std::uint32_t sections = 0; ///< number of critical sections that it owns

    TlsSlot slots[TLS_SLOTS];
};

struct Object
{
    enum Type : std::uint8_t
    {
        DEAD,
        MUTEX,
        EVENT,
        SEMAPHORE,
        TIMER,
        THREAD
    };

    Type type = DEAD;
    bool signalled = false;
    bool manual = false; ///< of an event, a timer or a thread: stays signalled after a wait
    bool abandoned = false;
    bool closed = false; ///< the last handle has been closed
    std::uint32_t handles = 0;
    std::uint32_t pins = 0; ///< one for each waiter, and one for the thread until it ends
    std::uint32_t serial = 0;
    Thread *owner = nullptr;
    std::uint32_t recursion = 0;
    Object *nextHeld = nullptr;
    std::uint32_t count = 0;
    std::uint32_t maximum = 0;
    TimerState timer{NEVER, 0};
    Thread *thread = nullptr; ///< null once it has ended
    Thread *block = nullptr;  ///< of the thread, also after its end
    DWORD exitCode = 0;
    int level = 0;
    WaitList<Thread> queue;
    char *name = nullptr;
    Object *nextFree = nullptr;
    Place made;
};

/// Returns the calling thread.
inline Thread &currentThread()
{
    return static_cast<Thread &>(currentTask());
}

/// Ends one use of a block. Without any, the block is free for a new thread.
void release(Thread &);

inline BOOL fail(DWORD code)
{
    currentThread().lastError = code;
    return FALSE;
}

inline std::nullptr_t refuse(DWORD code)
{
    currentThread().lastError = code;
    return nullptr;
}

// ---- Objects.

/// Returns the object of the given type behind a handle, or null with the last error set.
Object *objectOf(HANDLE, Object::Type);
/// Returns the object of any type behind a handle, or null with the last error set.
Object *objectOf(HANDLE);

/// Returns a new object with one handle, or null with the last error set.
Object *newObject(Object::Type);
/// Destroys an object that has no handle, no pin and, if it is a mutex, no owner. Otherwise it has
/// no effect.
void release(Object &);

Object *findName(char const *);
bool addName(Object &, char const *);
void removeName(Object &);

/// Returns a handle of the object with the given name, or of a new object that `make` initialises.
/// Returns null with the last error set if this fails.
template <class Make>
HANDLE createObject(char const *name, Object::Type type, Resource resource, Make make)
{
    bool const named = name && *name;
    if (DWORD const error = named ? resolveName(name) : ERROR_SUCCESS)
        return refuse(error);
    if (Object *existing = named ? findName(name) : nullptr) {
        if (existing->type != type)
            return refuse(ERROR_INVALID_HANDLE);
        ++existing->handles;
        currentThread().lastError = ERROR_ALREADY_EXISTS;
        return existing;
    }
    if (isRefused(resource))
        return refuse(ERROR_NOT_ENOUGH_MEMORY);
    Object *object = newObject(type);
    if (!object)
        return nullptr;
    if (named && !addName(*object, name)) {
        object->handles = 0;
        release(*object);
        return nullptr;
    }
    make(*object);
    currentThread().lastError = ERROR_SUCCESS;
    return object;
}

/// Calls `what` with the object of the given type behind a handle. Returns FALSE with the last
/// error set if there is none.
template <class What>
BOOL withObject(HANDLE handle, Object::Type type, What what)
{
    Object *object = objectOf(handle, type);
    if (!object)
        return FALSE;
    what(*object);
    return TRUE;
}

// ---- Functions that the sources share.

/// Satisfies the waiters of an object in their order, until it has nothing left to consume. The
/// object must not be a mutex.
void serve(Object &);
/// Takes from an object what satisfies one wait. Returns false if there is nothing to take. The
/// object must not be a mutex.
bool consume(Object &);
/// Satisfies the wait of a thread.
void grant(Thread &, DWORD result);

/// Makes a thread the owner of a free mutex.
void claim(Object &, Thread &);
/// Makes a mutex free.
void disclaim(Object &);
/// Makes the mutexes of a thread that ends free, and marks them as abandoned.
void abandonMutexes(Thread &);

/// Calls the callbacks of `FlsAlloc` for the values that the ending thread has stored.
void callBack(Thread &);
/// Clears the values that the previous thread of this block has stored.
void forgetSlots(Thread &);

/// Removes a thread from the threads that wait for an address.
void leaveAddress(Thread &);

/// Signals a timer whose due time has been reached, and sets its next due time.
void updateTimer(Object &);

/// State of a critical section, in the storage of the section.
struct Section
{
    Thread *owner;
    std::uint32_t recursion;
    std::uint32_t serial;
    std::uint32_t waiters;
};
static_assert(sizeof(Section) <= sizeof(CRITICAL_SECTION));

} // namespace ZvPlatform::Simulated
