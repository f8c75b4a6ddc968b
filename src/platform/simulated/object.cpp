#include "platform/scheduler/pool.h"
#include "platform/scheduler/sharedWords.h"
#include "platform/simulated/thread.h"

#include <cstdlib>
#include <cstring>

namespace ZvPlatform::Simulated {

namespace {

constexpr std::size_t MAX_OBJECTS = 1 << 14;

constinit Object *objects = nullptr;
constinit std::size_t used = 0;
constinit Object *freeObjects = nullptr;
constinit std::uint32_t serial = 0;

bool holds(void const *address)
{
    std::uintptr_t const offset =
        reinterpret_cast<std::uintptr_t>(address) - reinterpret_cast<std::uintptr_t>(objects);
    return objects && offset < used * sizeof(Object) && offset % sizeof(Object) == 0;
}

char const *typeName(Object::Type type)
{
    static char const * const names[] = {"closed handle", "mutex", "event",
                                         "semaphore",     "timer", "handle of thread"};
    return names[type];
}

} // namespace

Object *objectOf(HANDLE handle)
{
    Object *object = holds(handle) ? static_cast<Object *>(handle) : nullptr;
    if (object && object->type != Object::DEAD && !object->closed)
        return object;
    return refuse(ERROR_INVALID_HANDLE);
}

Object *objectOf(HANDLE handle, Object::Type type)
{
    Object *object = objectOf(handle);
    if (object && object->type == type)
        return object;
    return refuse(ERROR_INVALID_HANDLE);
}

Object *newObject(Object::Type type)
{
    if (!objects)
        objects = static_cast<Object *>(takeFromPool(MAX_OBJECTS * sizeof(Object)));
    Object *object = freeObjects;
    if (object)
        freeObjects = object->nextFree;
    else if (objects && used < MAX_OBJECTS)
        object = &objects[used++];
    if (!object)
        return refuse(ERROR_NOT_ENOUGH_MEMORY);
    *object = {};
    object->type = type;
    object->handles = 1;
    object->serial = ++serial;
    forgetPublished(object);
    forgetPublished(&object->handles);
    if (scheduler.isTracing())
        scheduler.mark(object->made);
    return object;
}

void release(Object &object)
{
    bool const isOwned = object.type == Object::MUTEX && object.owner;
    if (object.handles || object.pins || isOwned)
        return;
    if (object.block)
        release(*object.block);
    object.type = Object::DEAD;
    object.nextFree = freeObjects;
    freeObjects = &object;
}

// ---- Names.

// For the thread sanitizer the names are a table with a lock: a thread that looks for a name sees
// all that happened before names were removed.

Object *findName(char const *name)
{
    synchroniseAcquire(&objects);
    Unseen const unseen;
    for (std::size_t i = 0; i < used; ++i)
        if (objects[i].type != Object::DEAD && objects[i].name &&
            std::strcmp(objects[i].name, name) == 0)
            return &objects[i];
    return nullptr;
}

bool addName(Object &object, char const *name)
{
    Unseen const unseen;
    object.name = static_cast<char *>(std::malloc(std::strlen(name) + 1));
    if (!object.name)
        return fail(ERROR_NOT_ENOUGH_MEMORY);
    std::strcpy(object.name, name);
    return true;
}

void removeName(Object &object)
{
    if (!object.name)
        return;
    synchroniseRelease(&objects);
    Unseen const unseen;
    std::free(object.name);
    object.name = nullptr;
}

// ---- Texts for reports.

std::uint32_t serialOf(void const *address)
{
    return holds(address) ? static_cast<Object const *>(address)->serial : 0;
}

char const *ownNameOf(void const *address)
{
    char const *name = holds(address) ? static_cast<Object const *>(address)->name : nullptr;
    return name ? name : "";
}

void describe(void const *address, char *&text, char *end)
{
    if (!holds(address)) {
        append(text, end, "%p %s", address, nameOf(address));
        return;
    }
    Object const &object = *static_cast<Object const *>(address);
    append(text, end, "%s %u", typeName(object.type), object.serial);
    if (char const *name = nameOf(&object); *name)
        append(text, end, " \"%s\"", name);
    if (object.type == Object::THREAD && object.thread)
        append(text, end, " (%s)", object.thread->name);
    if (object.type == Object::MUTEX)
        append(text, end, ", held by %s", object.owner ? object.owner->name : "no thread");
}

std::uint32_t countObjects()
{
    std::uint32_t count = 0;
    for (std::size_t i = 0; i < used; ++i)
        count += objects[i].type != Object::DEAD;
    return count;
}

void listObjects(std::uint32_t since, char *&text, char *end)
{
    for (std::size_t i = 0; i < used; ++i) {
        if (objects[i].type == Object::DEAD || objects[i].serial <= since)
            continue;
        append(text, end, "  ");
        describe(&objects[i], text, end);
        append(text, end, objects[i].made);
        append(text, end, "\n");
    }
}

std::uint32_t latestObject()
{
    return serial;
}

} // namespace ZvPlatform::Simulated

namespace ZvPlatform {

using namespace Simulated;

BOOL CloseHandle(HANDLE handle)
{
    // The constants for the current process and thread need not be closed.
    if (handle == CURRENT_PROCESS || handle == CURRENT_THREAD)
        return TRUE;
    enter("CloseHandle", handle);
    Object *object = objectOf(handle);
    if (!object)
        return FALSE;
    // A thread that creates an object of this name later sees what each owner of a handle has
    // written. No waiter of the object does.
    synchroniseRelease(&object->handles);
    if (--object->handles)
        return TRUE;
    object->closed = true;
    synchroniseAcquire(&object->handles);
    removeName(*object);
    // A mutex that has no waiter and belongs to the calling thread is destroyed. If it belongs to
    // another thread, it exists until that thread releases it.
    if (object->type == Object::MUTEX && object->pins == 0 && object->owner == &currentThread())
        disclaim(*object);
    release(*object);
    return TRUE;
}

} // namespace ZvPlatform
