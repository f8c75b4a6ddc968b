// Waitable timers. They need no thread: a waiter sleeps until the timer is due, and then updates
// its state to the clock.
#include "platform/linux/object.h"

namespace ZvPlatform::Linux {

Instant updateTimer(Queue &queue)
{
    TimerState &timer = queue.object().timer;
    if (timer.due != NEVER && timer.update(now()))
        queue.word |= SIGNALLED;
    return timer.due;
}

} // namespace ZvPlatform::Linux

namespace ZvPlatform {

using namespace Linux;

HANDLE CreateWaitableTimerA(SECURITY_ATTRIBUTES *, BOOL manualReset, char const *name)
{
    return createObject(name, TIMER, [&](Object &object) -> Word {
        object.timer = {NEVER, 0};
        return TIMER | (manualReset ? Word{MANUAL} : 0);
    });
}

BOOL SetWaitableTimer(HANDLE timer, LARGE_INTEGER const *dueTime, LONG period, void *routine,
                      void *, BOOL)
{
    if (DWORD const error = checkTimer(dueTime, period, routine))
        return fail(error);
    Service service;
    WakeList wakes;
    Queue queue(objectOf(timer), TIMER);
    if (!queue)
        return fail(ERROR_INVALID_HANDLE);
    Object &object = queue.object();
    object.timer = {now() + timeUntil(dueTime->QuadPart), Instant{period} * MILLISECOND};
    queue.word &= ~Word{SIGNALLED};
    updateTimer(queue);
    queue.serve(wakes);
    // The other waiters must now sleep until another time. They keep their places in the queue.
    if (Waiter *first = object.first) {
        Waiter *waiter = first;
        do {
            unpark(*waiter, Waiter::LOOK);
            waiter = waiter->next;
        } while (waiter != first);
    }
    return TRUE;
}

BOOL CancelWaitableTimer(HANDLE timer)
{
    Service service;
    Queue queue(objectOf(timer), TIMER);
    if (!queue)
        return fail(ERROR_INVALID_HANDLE);
    updateTimer(queue);
    queue.object().timer = {NEVER, 0};
    return TRUE;
}

} // namespace ZvPlatform
