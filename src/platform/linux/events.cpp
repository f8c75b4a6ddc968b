#include "platform/linux/object.h"

namespace ZvPlatform {

using namespace Linux;

HANDLE CreateEventA(SECURITY_ATTRIBUTES *, BOOL manualReset, BOOL initialState, char const *name)
{
    return createObject(name, EVENT, [&](Object &) -> Word {
        return EVENT | (manualReset ? Word{MANUAL} : 0) | (initialState ? Word{SIGNALLED} : 0);
    });
}

BOOL SetEvent(HANDLE event)
{
    Object *object = objectOf(event);
    if (!object)
        return fail(ERROR_INVALID_HANDLE);
    Word word = object->word.load(Order::RELAXED);
    // Stores even if the event is set already. The thread that takes the event then sees what the
    // caller has written.
    while ((word & ~Word{SIGNALLED | MANUAL}) == EVENT)
        if (object->word.compare_exchange_weak(word, word | SIGNALLED, Order::RELEASE,
                                               Order::RELAXED))
            return TRUE;
    Service service;
    WakeList wakes;
    Queue queue(object, EVENT);
    if (!queue)
        return fail(ERROR_INVALID_HANDLE);
    queue.word |= SIGNALLED;
    queue.serve(wakes);
    return TRUE;
}

BOOL ResetEvent(HANDLE event)
{
    Object *object = objectOf(event);
    if (!object)
        return fail(ERROR_INVALID_HANDLE);
    Word word = object->word.load(Order::RELAXED);
    // The caller sees what the threads that have set the event until now have written before.
    while ((word & ~Word{SIGNALLED | MANUAL}) == EVENT)
        if (object->word.compare_exchange_weak(word, word & ~Word{SIGNALLED}, Order::ACQUIRE,
                                               Order::RELAXED))
            return TRUE;
    Service service;
    Queue queue(object, EVENT);
    if (!queue)
        return fail(ERROR_INVALID_HANDLE);
    queue.word &= ~Word{SIGNALLED};
    return TRUE;
}

BOOL PulseEvent(HANDLE event)
{
    Service service;
    WakeList wakes;
    Queue queue(objectOf(event), EVENT);
    if (!queue)
        return fail(ERROR_INVALID_HANDLE);
    queue.word |= SIGNALLED;
    queue.serve(wakes);
    queue.word &= ~Word{SIGNALLED};
    return TRUE;
}

} // namespace ZvPlatform
