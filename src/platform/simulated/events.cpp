#include "platform/simulated/scheduler.h"

namespace ZvPlatform {

using namespace Simulated;

HANDLE CreateEventA(SECURITY_ATTRIBUTES *, BOOL manualReset, BOOL initialState, char const *name)
{
    enter("CreateEvent");
    return createObject(name, Object::EVENT, EVENTS, [&](Object &object) {
        object.manual = manualReset;
        object.signalled = initialState;
    });
}

BOOL SetEvent(HANDLE event)
{
    enter("SetEvent", event);
    Object *object = objectOf(event, Object::EVENT);
    if (!object)
        return FALSE;
    synchroniseRelease(object);
    object->signalled = true;
    serve(*object);
    return TRUE;
}

BOOL ResetEvent(HANDLE event)
{
    enter("ResetEvent", event);
    Object *object = objectOf(event, Object::EVENT);
    if (!object)
        return FALSE;
    synchroniseAcquire(object);
    object->signalled = false;
    return TRUE;
}

BOOL PulseEvent(HANDLE event)
{
    enter("PulseEvent", event);
    Object *object = objectOf(event, Object::EVENT);
    if (!object)
        return FALSE;
    synchroniseRelease(object);
    object->signalled = true;
    serve(*object);
    object->signalled = false;
    return TRUE;
}

} // namespace ZvPlatform
