#include "platform/simulated/scheduler.h"

namespace ZvPlatform::Simulated {

void updateTimer(Object &timer)
{
    Instant const now = scheduler.now();
    if (timer.due == NEVER || now < timer.due)
        return;
    timer.signalled = true;
    // The next due time is a whole number of periods after the first one, however late it is now.
    timer.due =
        timer.period ? timer.due + ((now - timer.due) / timer.period + 1) * timer.period : NEVER;
}

namespace {

/// Returns the instant of a due time in units of 100 ns, which is a date, or relative to now if it
/// is negative.
Instant instantOf(LONGLONG due)
{
    constexpr LONGLONG UNIT = 100;
    constexpr LONGLONG FURTHEST = NEVER / 4 / UNIT;
    Instant const now = scheduler.now();
    if (due < 0)
        return now + (due < -FURTHEST ? FURTHEST : -due) * UNIT;
    LONGLONG const today = getSystemTime();
    if (due <= today)
        return now;
    return now + (due - today > FURTHEST ? FURTHEST : due - today) * UNIT;
}

} // namespace

} // namespace ZvPlatform::Simulated

namespace ZvPlatform {

using namespace Simulated;

HANDLE CreateWaitableTimerA(SECURITY_ATTRIBUTES *, BOOL manualReset, char const *name)
{
    enter("CreateWaitableTimer");
    return createObject(name, Object::TIMER, EVENTS,
                        [&](Object &object) { object.manual = manualReset; });
}

BOOL SetWaitableTimer(HANDLE timer, LARGE_INTEGER const *dueTime, LONG period, void *routine,
                      void *, BOOL)
{
    enter("SetWaitableTimer", timer);
    if (!dueTime || period < 0)
        return fail(ERROR_INVALID_PARAMETER);
    if (routine)
        return fail(ERROR_NOT_SUPPORTED);
    Object *object = objectOf(timer, Object::TIMER);
    if (!object)
        return FALSE;
    synchroniseRelease(object);
    object->due = instantOf(dueTime->QuadPart);
    object->period = Instant{period} * MILLISECOND;
    object->signalled = false;
    updateTimer(*object);
    serve(*object);
    return TRUE;
}

BOOL CancelWaitableTimer(HANDLE timer)
{
    enter("CancelWaitableTimer", timer);
    Object *object = objectOf(timer, Object::TIMER);
    if (!object)
        return FALSE;
    updateTimer(*object);
    object->due = NEVER;
    object->period = 0;
    return TRUE;
}

} // namespace ZvPlatform
