#include "platform/linux/object.h"

#include "platform/linux/sharedSemaphore.h"

namespace ZvPlatform {

using namespace Linux;

namespace {

// Not inline, so that the fast path saves no registers for it.
[[gnu::noinline]] BOOL releaseSlowly(Object *object, std::uint32_t amount, LONG *previousCount)
{
    Service service;
    Word const word = object->word.load(Order::RELAXED);
    if ((word & TYPE) == SHARED_SEMAPHORE)
        return releaseShared(object, amount, previousCount);
    WakeList wakes;
    Queue queue(object, SEMAPHORE);
    if (!queue)
        return fail(ERROR_INVALID_HANDLE);
    std::uint32_t const before = valueOf(queue.word);
    if (amount > object->semaphore.maximum - before)
        return fail(ERROR_TOO_MANY_POSTS);
    if (previousCount)
        *previousCount = static_cast<LONG>(before);
    queue.word += amount * ONE;
    queue.serve(wakes);
    return TRUE;
}

} // namespace

HANDLE CreateSemaphoreA(SECURITY_ATTRIBUTES *, LONG initialCount, LONG maximumCount,
                        char const *name)
{
    if (DWORD const error = checkCounts(initialCount, maximumCount))
        return refuse(error);
    // A name makes the semaphore known to other processes.
    if (name && *name)
        return createShared(name, initialCount, maximumCount);
    return createObject(nullptr, SEMAPHORE, [&](Object &object) {
        object.semaphore.maximum = static_cast<std::uint32_t>(maximumCount);
        return withValue(SEMAPHORE, static_cast<std::uint32_t>(initialCount));
    });
}

HANDLE OpenSemaphoreA(DWORD, BOOL, char const *name)
{
    if (DWORD const error = checkNameToOpen(name))
        return refuse(error);
    return openShared(name);
}

BOOL ReleaseSemaphore(HANDLE semaphore, LONG count, LONG *previousCount)
{
    Object *object = objectOf(semaphore);
    if (!object)
        return fail(ERROR_INVALID_HANDLE);
    if (count <= 0)
        return fail(ERROR_INVALID_PARAMETER);
    auto const amount = static_cast<std::uint32_t>(count);
    Word word = object->word.load(Order::RELAXED);
    while ((word & FLAGS) == SEMAPHORE) {
        std::uint32_t const maximum = __atomic_load_n(&object->semaphore.maximum, __ATOMIC_RELAXED);
        // A sum could overflow.
        if (amount > maximum - valueOf(word))
            return fail(ERROR_TOO_MANY_POSTS);
        if (object->word.compare_exchange_weak(word, word + amount * ONE, Order::RELEASE,
                                               Order::RELAXED)) {
            if (previousCount)
                *previousCount = static_cast<LONG>(valueOf(word));
            return TRUE;
        }
    }
    return releaseSlowly(object, amount, previousCount);
}

} // namespace ZvPlatform
