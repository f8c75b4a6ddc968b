#include "platform/linux/thread.h"

#include <cstdlib>
#include <new>

namespace ZvPlatform::Linux {

namespace {

/// Odd while the slot is allocated. A thread's value counts only if it was stored under the present generation, so that
/// a slot is empty in all threads when it is given out anew.
constinit std::atomic<std::uint32_t> generations[TLS_SLOTS] = {};
constinit Lock slotsLock;

TlsSlot *slotOf(Thread &thread, DWORD index)
{
    if (index < TLS_MINIMUM_AVAILABLE)
        return &thread.slots[index];
    return thread.moreSlots ? &thread.moreSlots[index - TLS_MINIMUM_AVAILABLE] : nullptr;
}

} // namespace

} // namespace ZvPlatform::Linux

namespace ZvPlatform {

using namespace Linux;

DWORD TlsAlloc()
{
    Service service;
    Locked locked(slotsLock);
    for (DWORD index = 0; index < TLS_SLOTS; ++index)
        if (generations[index].load(std::memory_order_relaxed) % 2 == 0) {
            generations[index].fetch_add(1, std::memory_order_release);
            return index;
        }
    fail(ERROR_NOT_ENOUGH_MEMORY);
    return TLS_OUT_OF_INDEXES;
}

BOOL TlsFree(DWORD index)
{
    Service service;
    Locked locked(slotsLock);
    if (index >= TLS_SLOTS || generations[index].load(std::memory_order_relaxed) % 2 == 0)
        return fail(ERROR_INVALID_PARAMETER);
    generations[index].fetch_add(1, std::memory_order_release);
    return TRUE;
}

void *TlsGetValue(DWORD index)
{
    if (index >= TLS_SLOTS) {
        fail(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    local.lastError = ERROR_SUCCESS;
    TlsSlot const *slot = slotOf(currentThread(), index);
    return slot && slot->generation == generations[index].load(std::memory_order_relaxed)
               ? slot->value
               : nullptr;
}

BOOL TlsSetValue(DWORD index, void *value)
{
    if (index >= TLS_SLOTS)
        return fail(ERROR_INVALID_PARAMETER);
    Service service;
    Thread &thread = service.thread();
    if (index >= TLS_MINIMUM_AVAILABLE && !thread.moreSlots) {
        // It stays with the block, for the threads that come after.
        thread.moreSlots = new (std::nothrow) TlsSlot[TLS_SLOTS - TLS_MINIMUM_AVAILABLE];
        if (!thread.moreSlots)
            return fail(ERROR_NOT_ENOUGH_MEMORY);
    }
    if (thread.usedSlots <= index)
        thread.usedSlots = index + 1;
    *slotOf(thread, index) = {value, generations[index].load(std::memory_order_relaxed)};
    return TRUE;
}

} // namespace ZvPlatform
