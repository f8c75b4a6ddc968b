#include "platform/simulated/thread.h"

namespace ZvPlatform::Simulated {

void updateTimer(Object &timer)
{
    if (timer.timer.update(scheduler.now()))
        timer.signalled = true;
}

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
    if (DWORD const error = checkTimer(dueTime, period, routine))
        return fail(error);
    return withObject(timer, Object::TIMER, [=](Object &object) {
        synchroniseRelease(&object);
        object.timer = {scheduler.now() + timeUntil(dueTime->QuadPart),
                        Instant{period} * MILLISECOND};
        object.signalled = false;
        updateTimer(object);
        serve(object);
    });
}

BOOL CancelWaitableTimer(HANDLE timer)
{
    enter("CancelWaitableTimer", timer);
    return withObject(timer, Object::TIMER, [](Object &object) {
        updateTimer(object);
        object.timer = {NEVER, 0};
    });
}

} // namespace ZvPlatform
