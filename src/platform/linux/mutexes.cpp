#include "platform/linux/object.h"

namespace ZvPlatform::Linux {

void passOn(Queue &queue, WakeList &wakes)
{
    Object &object = queue.object();
    queue.word = withValue(queue.word, 0);
    // Only one waiter at a time tries again. It passes the mutex on to those behind it.
    if (!object.first || queue.word & WAKING)
        return;
    Waiter *next = queue.pop();
    if (queue.word & HAND_OVER) {
        DWORD const result = queue.word & ABANDONED ? WAIT_ABANDONED : WAIT_OBJECT_0;
        queue.word = withValue(queue.word & ~Word{HAND_OVER | ABANDONED}, next->number);
        --object.pins;
        wakes.grant(next, result);
    } else {
        queue.word |= WAKING;
        next->woken = true;
        wakes.look(next);
    }
}

namespace {

// Not inline, so that the fast path saves no registers for it.
[[gnu::noinline]] BOOL releaseSlowly(Object *object)
{
    Service service;
    WakeList wakes;
    Queue queue(object, MUTEX, Queue::CLOSED_TOO);
    if (!queue)
        return fail(ERROR_INVALID_HANDLE);
    if (valueOf(queue.word) != service.thread().number)
        return fail(queue.word & CLOSED ? ERROR_INVALID_HANDLE : ERROR_NOT_OWNER);
    if (object->again) {
        --object->again;
        return TRUE;
    }
    --local.held;
    passOn(queue, wakes);
    return TRUE;
}

} // namespace

void abandonMutexes()
{
    // Nearly every thread ends without a mutex. Only the others pay for this search, so that
    // locking needs no list of mutexes.
    for (std::size_t i = 0; local.held && i < objects.size(); ++i) {
        Word const word = objects[i].word.load(Order::RELAXED);
        if ((word & TYPE) != MUTEX || valueOf(word) != local.number)
            continue;
        WakeList wakes;
        Queue queue(&objects[i], MUTEX, Queue::CLOSED_TOO);
        objects[i].again = 0;
        queue.word |= ABANDONED;
        passOn(queue, wakes);
        --local.held;
    }
}

} // namespace ZvPlatform::Linux

namespace ZvPlatform {

using namespace Linux;

HANDLE CreateMutexA(SECURITY_ATTRIBUTES *, BOOL initiallyOwned, char const *name)
{
    return createObject(name, MUTEX, [&](Object &) -> Word {
        if (!initiallyOwned)
            return MUTEX;
        ++local.held;
        return withValue(MUTEX, local.number);
    });
}

BOOL ReleaseMutex(HANDLE mutex)
{
    Object *object = objectOf(mutex);
    if (!object) [[unlikely]]
        return fail(ERROR_INVALID_HANDLE);
    Word word = object->word.load(Order::RELAXED);
    // Both the owner of a free mutex and the number of a thread unknown to the layer are 0. The
    // slow path handles these cases.
    if ((word & TYPE) == MUTEX && valueOf(word) == local.number && local.number) [[likely]] {
        if (object->again) {
            --object->again;
            return TRUE;
        }
        Word const flags = word & FLAGS;
        if (flags == MUTEX || flags == (MUTEX | WAKING) || flags == (MUTEX | WAKING | WAITERS)) {
            if (object->word.compare_exchange_strong(word, flags, Order::RELEASE, Order::RELAXED))
                [[likely]] {
                __atomic_signal_fence(__ATOMIC_SEQ_CST);
                --local.held;
                return TRUE;
            }
        }
    }
    return releaseSlowly(object);
}

} // namespace ZvPlatform
