// What the scheduler knows of each thread, and of the objects behind handles.
//
// Only the thread that has the baton touches any of this, so nothing here is guarded. Nothing here allocates either: a
// program finds the same memory whether its steps are written down or not.
#pragma once

#include "platform/services.h"
#include "platform/simulated/simulation.h"

#include <pthread.h>

namespace ZvPlatform::Simulated {

/// Virtual nanoseconds.
using Instant = std::int64_t;

inline constexpr Instant NEVER = INT64_MAX;
inline constexpr Instant MILLISECOND = 1'000'000;

struct Object;
struct Section;
struct Thread;

/// Threads in the order in which they came.
class Queue
{
public:
    void append(Thread &);
    void remove(Thread &);
    Thread *first() const { return _first; }
    bool isEmpty() const { return !_first; }

private:
    Thread *_first = nullptr;
    Thread *_last = nullptr;
};

struct TlsSlot
{
    void *value = nullptr;
    std::uint32_t generation = 0;
};

inline constexpr DWORD TLS_SLOTS = 1088;
inline constexpr unsigned FRAMES = 24;

/// Return addresses, the innermost first.
struct Place
{
    void *frames[FRAMES];
    unsigned count = 0;
};

struct Thread
{
    enum State : std::uint8_t
    {
        UNUSED,
        RUNNABLE,
        WAITING,
        ENDED
    };
    enum Kind : std::uint8_t
    {
        OBJECT,
        SECTION,
        ADDRESS,
        SLEEP
    };

    Thread *nextFree = nullptr;
    /// The thread until it is gone, and its object: a number is not given out anew while a handle is open.
    std::uint32_t holders = 0;
    std::uint32_t baton = 0;
    ThreadNumber number = 0;
    std::uint32_t serial = 0; ///< unlike the number it never comes again
    State state = UNUSED;
    bool created = false;
    char name[16] = {};
    pthread_t pthread{};
    LPTHREAD_START_ROUTINE function = nullptr;
    void *argument = nullptr;
    Object *object = nullptr; ///< its handle's, null until one is wanted
    DWORD exitCode = 0;
    DWORD lastError = 0;
    int level = THREAD_PRIORITY_NORMAL;
    DWORD_PTR mask = 0;

    // What it waits for.
    Kind kind = OBJECT;
    bool granted = false; ///< what it waited for is its own
    bool isStray = false;
    bool hasYielded = false;
    DWORD result = 0;
    Instant deadline = NEVER;
    std::uint32_t since = 0; ///< the step
    std::uint32_t moves = 0; ///< of the clock, while it has waited
    Object *awaited = nullptr;
    Section *section = nullptr;
    void const *address = nullptr;
    Thread *next = nullptr;
    Thread *previous = nullptr;

    Object *held = nullptr; ///< the mutexes that it owns
    std::uint32_t sections = 0;
    WaitingFor *stated = nullptr;
    char const *doing = "";
    Place place;
    std::int64_t priority = 0;

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
    bool manual = false; ///< event, timer: stays signalled
    bool abandoned = false;
    bool closed = false; ///< no handle is left
    std::uint32_t handles = 0;
    std::uint32_t pins = 0; ///< waiters, and the running thread
    std::uint32_t serial = 0;
    Thread *owner = nullptr;
    std::uint32_t recursion = 0;
    Object *nextHeld = nullptr;
    std::uint32_t count = 0;
    std::uint32_t maximum = 0;
    Instant due = NEVER;
    Instant period = 0;
    Thread *thread = nullptr; ///< null once it has ended
    Thread *block = nullptr;  ///< also when it has ended
    DWORD exitCode = 0;
    int level = 0;
    Queue queue;
    char *name = nullptr;
    Object *nextFree = nullptr;
    Place made;
};

extern Thread *self;

/// The calling thread. One that the layer has not made may call only as long as it is the only one.
Thread &currentThread();

inline BOOL fail(DWORD code)
{
    currentThread().lastError = code;
    return FALSE;
}

// ---- objects --------------------------------------------------------------------------------------------

inline HANDLE const CURRENT_PROCESS = reinterpret_cast<HANDLE>(std::intptr_t{-1});
inline HANDLE const CURRENT_THREAD = reinterpret_cast<HANDLE>(std::intptr_t{-2});

/// An object of the wanted type that has a handle; null with the last error set.
Object *objectOf(HANDLE, Object::Type);
/// The same of any type.
Object *objectOf(HANDLE);

/// A new one, with a handle; null with the last error set.
Object *newObject(Object::Type);
/// Buries an object that nothing holds any more.
void release(Object &);

/// An object by its name, or a new one that `make` brings into shape.
template <class Make>
HANDLE createObject(char const *name, Object::Type type, Resource resource, Make make);

Object *findName(char const *);
bool isGoodName(char const *&);
bool addName(Object &, char const *);
void removeName(Object &);

template <class Make>
HANDLE createObject(char const *name, Object::Type type, Resource resource, Make make)
{
    bool const named = name && *name;
    if (named && !isGoodName(name))
        return nullptr;
    if (Object *existing = named ? findName(name) : nullptr) {
        if (existing->type != type) {
            fail(ERROR_INVALID_HANDLE);
            return nullptr;
        }
        ++existing->handles;
        currentThread().lastError = ERROR_ALREADY_EXISTS;
        return existing;
    }
    if (isRefused(resource)) {
        fail(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
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

// ---- what the parts have of each other ------------------------------------------------------------------

/// Satisfies waiters as far as it goes.
void serve(Object &);
/// Takes from the object what a waiter wants, if it is there.
bool consume(Object &);
void grant(Thread &, DWORD result);

/// Enters a mutex that the thread has just come to own among those that it holds.
void claim(Object &, Thread &);
void disclaim(Object &);
void abandonMutexes(Thread &);

/// Calls those who want to know that the calling thread ends.
void callBack(Thread &);
/// The block's former thread has left its slots filled.
void forgetSlots(Thread &);

/// Brings a timer's state up to the clock.
void updateTimer(Object &);

/// What the simulation knows of a critical section.
struct Section
{
    Thread *owner;
    std::uint32_t recursion;
    std::uint32_t serial;
    std::uint32_t waiters;
};
static_assert(sizeof(Section) <= sizeof(CRITICAL_SECTION));

// What the thread sanitizer is told: what was done before a release is seen after the acquire that follows.
void synchroniseRelease(void const *);
void synchroniseAcquire(void const *);

/// While it lives the thread sanitizer takes no notice of the thread. What the simulation writes down is its own affair:
/// where the simulation's code is not seen, calls of the C library still are, and what a program has handed over.
class Unseen
{
public:
    Unseen();
    ~Unseen();
    Unseen(Unseen const &) = delete;
    Unseen &operator=(Unseen const &) = delete;
};

} // namespace ZvPlatform::Simulated
