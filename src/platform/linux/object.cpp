#include "platform/linux/object.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>

namespace ZvPlatform::Linux {

constinit Objects objects;
constinit Lock namesLock;

static_assert(std::endian::native == std::endian::little,
              "the futex of a word is its lower half, at the word's own address");

// ---- queues -------------------------------------------------------------------------------------

Queue::Queue(Object *object, Word type, Access access) : _object(object)
{
    int looks = 0;
    bool slept = false;
    Word seen = object ? object->word.load(Order::RELAXED) : Word{DEAD};
    for (;;) {
        bool const wanted = (seen & TYPE) == type || type == ANY_TYPE;
        if ((seen & TYPE) == DEAD || !wanted || (access == BY_HANDLE && (seen & CLOSED))) {
            // Another sleeper needs the wake-up that this thread has got.
            if (slept)
                futexWake(&object->word, INT_MAX);
            _good = false;
            return;
        }
        if (!(seen & QUEUE)) {
            // A thread that has slept cannot know whether others still sleep, so it wakes one more
            // when it leaves the queue.
            Word const mine = seen | QUEUE | (slept ? Word{QUEUE_SLEEP} : 0);
            if (object->word.compare_exchange_weak(seen, mine, Order::ACQUIRE)) {
                word = seen & ~Word{QUEUE_SLEEP};
                _good = true;
                return;
            }
        } else if (looks < 20) {
            ++looks;
            Kernel::pause();
            seen = object->word.load(Order::RELAXED);
        } else if (seen & QUEUE_SLEEP ||
                   object->word.compare_exchange_weak(seen, seen | QUEUE_SLEEP, Order::RELAXED)) {
            futexWait(&object->word, static_cast<std::uint32_t>(seen | QUEUE_SLEEP), NEVER);
            slept = true;
            seen = object->word.load(Order::RELAXED);
        }
    }
}

Queue::~Queue()
{
    if (!_good)
        return;
    word = _object->first ? word | WAITERS : word & ~Word{WAITERS | HAND_OVER};
    bool const owned = (word & TYPE) == MUTEX && valueOf(word) != 0;
    bool const dead = _object->handles == 0 && _object->pins == 0 && !owned;
    Word const former = _object->word.exchange(dead ? Word{DEAD} : word, Order::RELEASE);
    if (former & QUEUE_SLEEP)
        futexWake(&_object->word, dead ? INT_MAX : 1);
    if (dead) {
        if ((word & TYPE) == SHARED_SEMAPHORE)
            leaveShared(_object->shared);
        else if ((word & TYPE) == THREAD)
            release(*_object->thread.thread);
        objects.give(_object);
    }
}

void Queue::insert(Waiter &waiter)
{
    waiter.queued = true;
    if (Waiter *first = _object->first) {
        waiter.next = first;
        waiter.previous = first->previous;
        first->previous->next = &waiter;
        first->previous = &waiter;
    } else {
        waiter.next = waiter.previous = &waiter;
        _object->first = &waiter;
    }
}

void Queue::append(Waiter &waiter)
{
    insert(waiter);
}

void Queue::prepend(Waiter &waiter)
{
    insert(waiter);
    _object->first = &waiter;
}

void Queue::remove(Waiter &waiter)
{
    waiter.queued = false;
    if (waiter.next == &waiter) {
        _object->first = nullptr;
        return;
    }
    waiter.next->previous = waiter.previous;
    waiter.previous->next = waiter.next;
    if (_object->first == &waiter)
        _object->first = waiter.next;
}

Waiter *Queue::pop()
{
    Waiter *waiter = _object->first;
    if (waiter)
        remove(*waiter);
    return waiter;
}

bool Queue::consume()
{
    if ((word & TYPE) == SEMAPHORE) {
        if (valueOf(word) == 0)
            return false;
        word -= ONE;
        return true;
    }
    if (!(word & SIGNALLED))
        return false;
    if (!(word & MANUAL))
        word &= ~Word{SIGNALLED};
    return true;
}

void Queue::serve(WakeList &wakes)
{
    while (_object->first && consume()) {
        --_object->pins;
        wakes.grant(pop(), WAIT_OBJECT_0);
    }
}

void WakeList::grant(Waiter *waiter, DWORD result)
{
    waiter->result = result;
    waiter->granted = true;
    waiter->next = nullptr;
    (_last ? _last->next : _first) = waiter;
    _last = waiter;
}

WakeList::~WakeList()
{
    // A woken waiter may already be in another queue, so its link is read first.
    while (Waiter *waiter = _first) {
        _first = waiter->next;
        unpark(*waiter, Waiter::GRANTED);
    }
    if (_looking)
        unpark(*_looking, Waiter::LOOK);
}

// ---- parking ------------------------------------------------------------------------------------

void unpark(Waiter &waiter, std::uint32_t bit)
{
    waiter.call.note();
    if (waiter.park.fetch_or(bit, Order::RELEASE) & Waiter::SLEEPING)
        futexWake(&waiter.park, 1);
}

bool park(Waiter &waiter, Instant deadline)
{
    std::uint32_t seen = waiter.park.load(Order::RELAXED);
    for (;;) {
        if (seen & ~std::uint32_t{Waiter::SLEEPING})
            return true;
        if (!(seen & Waiter::SLEEPING)) {
            waiter.park.compare_exchange_strong(seen, Waiter::SLEEPING, Order::RELAXED,
                                                Order::RELAXED);
            if (seen != 0)
                continue;
        }
        int const error = futexWait(&waiter.park, Waiter::SLEEPING, deadline);
        seen = waiter.park.load(Order::RELAXED);
        if (error == ETIMEDOUT && seen == Waiter::SLEEPING)
            return false;
    }
}

void awaitGrant(Waiter &waiter)
{
    for (;;) {
        std::uint32_t const seen =
            waiter.park.fetch_or(Waiter::SLEEPING, Order::ACQUIRE) | Waiter::SLEEPING;
        if (seen & Waiter::GRANTED)
            return;
        futexWait(&waiter.park, seen, NEVER);
    }
}

// ---- objects and their names --------------------------------------------------------------------

Object *newObject()
{
    Object *object = objects.take();
    if (!object)
        return refuse(ERROR_NOT_ENOUGH_MEMORY);
    object->handles = 0;
    object->pins = 0;
    object->first = nullptr;
    object->name = nullptr;
    object->semaphore = {};
    object->again = 0;
    object->spin.store({}, Order::RELAXED);
    return object;
}

HANDLE publish(Object *object, Word word)
{
    object->handles = 1;
    object->word.store(word, Order::RELEASE);
    return object;
}

void discard(Object *object)
{
    objects.give(object);
}

struct Name
{
    Name *next;
    Object *object;
    char text[1];
};

namespace {

constexpr unsigned NAME_CHAINS = 64;
constinit Name *names[NAME_CHAINS] = {};

Name *&chainOf(char const *text)
{
    std::uint32_t hash = 2166136261;
    for (; *text; ++text)
        hash = (hash ^ static_cast<unsigned char>(*text)) * 16777619;
    return names[hash % NAME_CHAINS];
}

} // namespace

Object *findName(char const *text)
{
    for (Name *name = chainOf(text); name; name = name->next)
        if (::strcmp(name->text, text) == 0)
            return name->object;
    return nullptr;
}

bool addName(Object *object, char const *text)
{
    std::size_t const length = ::strlen(text);
    Name *name = static_cast<Name *>(::malloc(sizeof(Name) + length));
    if (!name)
        return fail(ERROR_NOT_ENOUGH_MEMORY);
    Name *&chain = chainOf(text);
    name->next = chain;
    name->object = object;
    ::memcpy(name->text, text, length + 1);
    chain = name;
    object->name = name;
    return true;
}

void removeName(Object *object)
{
    Name *name = object->name;
    Name **link = &chainOf(name->text);
    while (*link != name)
        link = &(*link)->next;
    *link = name->next;
    object->name = nullptr;
    ::free(name);
}

HANDLE openExisting(Object *object, Word type)
{
    Queue queue(object, type);
    if (!queue)
        return refuse(ERROR_INVALID_HANDLE);
    ++object->handles;
    return object;
}

HANDLE createExisting(Object *object, Word type)
{
    HANDLE handle = openExisting(object, type);
    if (handle)
        local.lastError = ERROR_ALREADY_EXISTS;
    return handle;
}

Object *newObject(char const *name)
{
    Object *object = newObject();
    if (object && !addName(object, name)) {
        discard(object);
        return nullptr;
    }
    return object;
}

} // namespace ZvPlatform::Linux

namespace ZvPlatform {

using namespace Linux;

namespace {

enum class Closing
{
    DONE,
    NAMED,
    BAD
};

/// Drops a handle. The last handle of an object with a name is dropped only under `namesLock`, so
/// that no thread finds a dying object by its name. Returns NAMED if the caller must repeat the
/// call under that lock.
Closing closeHandle(Object *object, bool locked)
{
    Queue queue(object, ANY_TYPE);
    if (!queue)
        return Closing::BAD;
    if (object->handles > 1) {
        --object->handles;
        return Closing::DONE;
    }
    if (object->name && !locked)
        return Closing::NAMED;
    if (object->name)
        removeName(object);
    object->handles = 0;
    queue.word |= CLOSED;
    // A mutex without waiters dies with its last handle if the calling thread owns it. If another
    // thread owns it, it lives until that thread releases it.
    if ((queue.word & TYPE) == MUTEX && object->pins == 0 && valueOf(queue.word) == local.number) {
        --local.held;
        queue.word = withValue(queue.word, 0);
    }
    return Closing::DONE;
}

} // namespace

BOOL CloseHandle(HANDLE handle)
{
    // The pseudo-handles of the current process and thread need not be closed.
    if (handle == CURRENT_PROCESS || handle == CURRENT_THREAD)
        return TRUE;
    Service service;
    Object *object = objectOf(handle);
    Closing result = closeHandle(object, false);
    if (result == Closing::NAMED) {
        Locked locked(namesLock);
        result = closeHandle(object, true);
    }
    return result == Closing::DONE ? TRUE : fail(ERROR_INVALID_HANDLE);
}

} // namespace ZvPlatform
