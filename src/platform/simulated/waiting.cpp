#include "platform/scheduler/sharedWords.h"
#include "platform/simulated/thread.h"

namespace ZvPlatform::Simulated {

bool consume(Object &object)
{
    if (object.type == Object::SEMAPHORE) {
        if (object.count == 0)
            return false;
        --object.count;
        return true;
    }
    if (!object.signalled)
        return false;
    if (!object.manual)
        object.signalled = false;
    return true;
}

void grant(Thread &thread, DWORD result)
{
    thread.granted = true;
    thread.result = result;
}

void serve(Object &object)
{
    while (Thread *first = object.queue.first()) {
        if (!consume(object))
            return;
        object.queue.remove(*first);
        --object.pins;
        // What is published later is not published to this waiter.
        if (scheduler.isRunning())
            weakMemory.acquire(indexOf(*first), &object);
        grant(*first, WAIT_OBJECT_0);
    }
}

namespace {

/// Takes from an object what satisfies a wait of the calling thread, and sets `result`. Returns
/// false if the thread has to wait.
bool take(Object &object, DWORD &result)
{
    result = WAIT_OBJECT_0;
    if (object.type != Object::MUTEX)
        return consume(object);
    Thread &me = currentThread();
    if (object.owner == &me) {
        ++object.recursion;
        return true;
    }
    if (object.owner)
        return false;
    if (object.abandoned)
        result = WAIT_ABANDONED;
    object.abandoned = false;
    claim(object, me);
    return true;
}

DWORD waitInQueue(Object &object, DWORD milliseconds)
{
    Thread &me = currentThread();
    me.kind = Thread::OBJECT;
    me.awaited = &object;
    object.queue.append(me);
    ++object.pins;
    scheduler.wait(scheduler.deadlineAfter(milliseconds));
    DWORD result = me.result;
    if (!me.granted) {
        object.queue.remove(me);
        --object.pins;
        // No thread has run since the scheduler found the mutex free, so it still is.
        if (object.type != Object::MUTEX || !take(object, result))
            result = WAIT_TIMEOUT;
    }
    me.awaited = nullptr;
    if (me.granted)
        tellAcquire(&object);
    else if (result != WAIT_TIMEOUT)
        synchroniseAcquire(&object);
    release(object);
    return result;
}

DWORD waitFor(HANDLE handle, DWORD milliseconds)
{
    if (handle == CURRENT_THREAD || handle == CURRENT_PROCESS) {
        // The calling thread waits for its own end, or for the end of its process.
        ZvPlatform::Sleep(milliseconds);
        return WAIT_TIMEOUT;
    }
    enter("WaitForSingleObject", handle);
    Object *object = objectOf(handle);
    if (!object)
        return WAIT_FAILED;
    if (object->type == Object::TIMER) {
        updateTimer(*object);
        serve(*object);
    }
    DWORD result;
    if (take(*object, result)) {
        synchroniseAcquire(object);
        return result;
    }
    return milliseconds ? waitInQueue(*object, milliseconds) : WAIT_TIMEOUT;
}

} // namespace

} // namespace ZvPlatform::Simulated

namespace ZvPlatform {

using namespace Simulated;

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds)
{
    DWORD const result = waitFor(handle, milliseconds);
    scheduler.note(result);
    return result;
}

DWORD WaitForSingleObjectEx(HANDLE handle, DWORD milliseconds, BOOL)
{
    return WaitForSingleObject(handle, milliseconds);
}

} // namespace ZvPlatform
