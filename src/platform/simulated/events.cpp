#include "platform/simulated/thread.h"

namespace ZvPlatform {

using namespace Simulated;

namespace {

void signal(Object &event)
{
    synchroniseRelease(&event);
    event.signalled = true;
    serve(event);
}

} // namespace

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
    return withObject(event, Object::EVENT, signal);
}

BOOL ResetEvent(HANDLE event)
{
    enter("ResetEvent", event);
    return withObject(event, Object::EVENT, [](Object &object) {
        synchroniseAcquire(&object);
        object.signalled = false;
    });
}

BOOL PulseEvent(HANDLE event)
{
    enter("PulseEvent", event);
    return withObject(event, Object::EVENT, [](Object &object) {
        signal(object);
        object.signalled = false;
    });
}

} // namespace ZvPlatform
