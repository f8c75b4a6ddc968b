// Waitable timers. They need no thread: a waiter sleeps until the timer is due, and then updates
// its state to the clock.
#include "platform/linux/object.h"

#include <ctime>

namespace ZvPlatform::Linux {

Instant updateTimer(Queue &queue)
{
    Object::TimerState &timer = queue.object().timer;
    if (timer.due == NEVER)
        return NEVER;
    Instant const time = now();
    if (time >= timer.due) {
        queue.word |= SIGNALLED;
        // The next due time is on the grid of the period, however late it is now.
        timer.due = timer.period
                        ? timer.due + ((time - timer.due) / timer.period + 1) * timer.period
                        : NEVER;
    }
    return timer.due;
}

namespace {

/// Returns the instant of a due time in the unit of the services.
Instant instantOf(LONGLONG due)
{
    constexpr LONGLONG UNIT = 100;
    constexpr LONGLONG FURTHEST = NEVER / 4 / UNIT;
    if (due < 0)
        return now() + (due < -FURTHEST ? FURTHEST : -due) * UNIT;
    FILETIME file;
    GetSystemTimePreciseAsFileTime(&file);
    LONGLONG const today = LONGLONG{file.dwHighDateTime} << 32 | file.dwLowDateTime;
    if (due <= today)
        return now();
    return now() + (due - today > FURTHEST ? FURTHEST : due - today) * UNIT;
}

} // namespace

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
    if (!dueTime || period < 0)
        return fail(ERROR_INVALID_PARAMETER);
    if (routine)
        return fail(ERROR_NOT_SUPPORTED);
    Service service;
    WakeList wakes;
    Queue queue(objectOf(timer), TIMER);
    if (!queue)
        return fail(ERROR_INVALID_HANDLE);
    Object &object = queue.object();
    object.timer = {instantOf(dueTime->QuadPart), Instant{period} * MILLISECOND};
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
