#include "platform/simulated/thread.h"

namespace ZvPlatform {

using namespace Simulated;

HANDLE CreateSemaphoreA(SECURITY_ATTRIBUTES *, LONG initialCount, LONG maximumCount,
                        char const *name)
{
    enter("CreateSemaphore");
    if (DWORD const error = checkCounts(initialCount, maximumCount))
        return refuse(error);
    return createObject(name, Object::SEMAPHORE, SEMAPHORES, [&](Object &object) {
        object.count = static_cast<std::uint32_t>(initialCount);
        object.maximum = static_cast<std::uint32_t>(maximumCount);
    });
}

HANDLE OpenSemaphoreA(DWORD, BOOL, char const *name)
{
    enter("OpenSemaphore");
    if (DWORD const error = checkNameToOpen(name))
        return refuse(error);
    if (DWORD const error = resolveName(name))
        return refuse(error);
    Object *object = findName(name);
    if (!object || object->type != Object::SEMAPHORE)
        return refuse(object ? ERROR_INVALID_HANDLE : ERROR_FILE_NOT_FOUND);
    ++object->handles;
    return object;
}

BOOL ReleaseSemaphore(HANDLE semaphore, LONG count, LONG *previousCount)
{
    enter("ReleaseSemaphore", semaphore);
    // An invalid count is reported before a handle of another type.
    if (!objectOf(semaphore))
        return FALSE;
    if (count <= 0)
        return fail(ERROR_INVALID_PARAMETER);
    Object *object = objectOf(semaphore, Object::SEMAPHORE);
    if (!object)
        return FALSE;
    auto const amount = static_cast<std::uint32_t>(count);
    if (amount > object->maximum - object->count)
        return fail(ERROR_TOO_MANY_POSTS);
    synchroniseRelease(object);
    if (previousCount)
        *previousCount = static_cast<LONG>(object->count);
    object->count += amount;
    serve(*object);
    return TRUE;
}

} // namespace ZvPlatform
