#include "platform/linux/object.h"

namespace ZvPlatform::Linux {

void passOn(Queue &queue, WakeList &wakes)
{
    Object &object = queue.object();
    queue.word = withValue(queue.word, 0);
    // One at a time tries again; whoever is on its way sees to those behind it.
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

bool isHeld(Object const *object)
{
    for (Object const *held = local.held; held; held = held->mutex.nextHeld)
        if (held == object)
            return true;
    return false;
}

// Out of line, so that the fast way saves no registers for it.
[[gnu::noinline]] BOOL releaseSlowly(Object *object)
{
    Service service;
    WakeList wakes;
    Queue queue(object, MUTEX, Queue::CLOSED_TOO);
    if (!queue)
        return fail(ERROR_INVALID_HANDLE);
    if (valueOf(queue.word) != service.thread().number)
        return fail(queue.word & CLOSED ? ERROR_INVALID_HANDLE : ERROR_NOT_OWNER);
    if (object->mutex.recursion > 1) {
        --object->mutex.recursion;
        return TRUE;
    }
    forget(object);
    passOn(queue, wakes);
    return TRUE;
}

} // namespace

void abandonMutexes()
{
    // A thread that was killed between taking a mutex and entering it in its list, or the other way round.
    if (Object *pending = local.pending) {
        Word const word = pending->word.load(std::memory_order_relaxed);
        if ((word & TYPE) == MUTEX && valueOf(word) == local.number && !isHeld(pending))
            claim(pending);
        local.pending = nullptr;
    }
    while (Object *object = local.held) {
        local.held = object->mutex.nextHeld;
        WakeList wakes;
        Queue queue(object, MUTEX, Queue::CLOSED_TOO);
        if (!queue || valueOf(queue.word) != local.number)
            continue;
        queue.word |= ABANDONED;
        passOn(queue, wakes);
    }
}

} // namespace ZvPlatform::Linux

namespace ZvPlatform {

using namespace Linux;

HANDLE CreateMutexA(SECURITY_ATTRIBUTES *, BOOL initiallyOwned, char const *name)
{
    return createObject(name, MUTEX, [&](Object &object) -> Word {
        if (!initiallyOwned)
            return MUTEX;
        claim(&object);
        return withValue(MUTEX, local.number);
    });
}

BOOL ReleaseMutex(HANDLE mutex)
{
    Object *object = objectOf(mutex);
    if (!object) [[unlikely]]
        return fail(ERROR_INVALID_HANDLE);
    Word word = object->word.load(std::memory_order_relaxed);
    // A free mutex has the owner 0, a thread that the layer does not know the number 0: the slow path tells.
    if ((word & TYPE) == MUTEX && valueOf(word) == local.number && local.number) [[likely]] {
        if (object->mutex.recursion > 1) {
            --object->mutex.recursion;
            return TRUE;
        }
        Word const flags = word & FLAGS;
        if (flags == MUTEX || flags == (MUTEX | WAKING) || flags == (MUTEX | WAKING | WAITERS)) {
            local.pending = object;
            std::atomic_signal_fence(std::memory_order_seq_cst);
            forget(object);
            if (object->word.compare_exchange_strong(word, flags, std::memory_order_release,
                                                     std::memory_order_relaxed)) [[likely]]
                return TRUE;
        }
    }
    return releaseSlowly(object);
}

} // namespace ZvPlatform
