#include "platform/simulated/thread.h"

namespace ZvPlatform::Simulated {

void claim(Object &object, Thread &thread)
{
    object.owner = &thread;
    object.recursion = 1;
    object.nextHeld = thread.held;
    thread.held = &object;
}

void disclaim(Object &object)
{
    for (Object **link = &object.owner->held; *link; link = &(*link)->nextHeld)
        if (*link == &object) {
            *link = object.nextHeld;
            break;
        }
    object.owner = nullptr;
    object.recursion = 0;
}

void abandonMutexes(Thread &thread)
{
    while (Object *object = thread.held) {
        disclaim(*object);
        object->abandoned = true;
        synchroniseRelease(object);
        release(*object);
    }
}

} // namespace ZvPlatform::Simulated

namespace ZvPlatform {

using namespace Simulated;

HANDLE CreateMutexA(SECURITY_ATTRIBUTES *, BOOL initiallyOwned, char const *name)
{
    enter("CreateMutex");
    return createObject(name, Object::MUTEX, MUTEXES, [&](Object &object) {
        if (initiallyOwned)
            claim(object, currentThread());
    });
}

BOOL ReleaseMutex(HANDLE mutex)
{
    enter("ReleaseMutex", mutex);
    // The owner may release a mutex whose last handle has been closed.
    Thread &me = currentThread();
    Object *object = nullptr;
    for (Object *held = me.held; held && !object; held = held->nextHeld)
        object = held == mutex ? held : nullptr;
    if (!object)
        return objectOf(mutex, Object::MUTEX) ? fail(ERROR_NOT_OWNER) : FALSE;
    if (--object->recursion)
        return TRUE;
    synchroniseRelease(object);
    disclaim(*object);
    release(*object);
    return TRUE;
}

} // namespace ZvPlatform
