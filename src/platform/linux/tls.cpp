#include "platform/linux/thread.h"

#include <cstdlib>
#include <new>
#include <utility>

namespace ZvPlatform::Linux {

constinit Lock slotsLock;

namespace {

/// Generations of the slots, odd while a slot is allocated. A thread's value is valid only if it
/// was stored in the present generation. A slot that is allocated again is therefore empty in all
/// threads.
constinit std::atomic<std::uint32_t> generations[TLS_SLOTS] = {};
/// Callbacks of the slots that FlsAlloc has allocated.
constinit std::atomic<PFLS_CALLBACK_FUNCTION> callbacks[TLS_SLOTS] = {};
TlsSlot *slotOf(Thread &thread, DWORD index)
{
    if (index < TLS_MINIMUM_AVAILABLE)
        return &thread.slots[index];
    return thread.moreSlots ? &thread.moreSlots[index - TLS_MINIMUM_AVAILABLE] : nullptr;
}

} // namespace

void callBack(Thread &thread)
{
    for (DWORD index = 0; index < thread.usedSlots; ++index) {
        PFLS_CALLBACK_FUNCTION const callback = callbacks[index].load(std::memory_order_acquire);
        if (!callback)
            continue;
        TlsSlot &slot = *slotOf(thread, index);
        if (slot.generation != generations[index].load(std::memory_order_relaxed))
            continue;
        if (void * const value = std::exchange(slot.value, nullptr))
            callback(value);
    }
}

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
    fail(ERROR_NO_MORE_ITEMS);
    return TLS_OUT_OF_INDEXES;
}

BOOL TlsFree(DWORD index)
{
    Service service;
    Locked locked(slotsLock);
    if (index >= TLS_SLOTS || generations[index].load(std::memory_order_relaxed) % 2 == 0)
        return fail(ERROR_INVALID_PARAMETER);
    callbacks[index].store(nullptr, std::memory_order_relaxed);
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
        // The memory stays with the block, for later threads.
        thread.moreSlots = new (std::nothrow) TlsSlot[TLS_SLOTS - TLS_MINIMUM_AVAILABLE];
        if (!thread.moreSlots)
            return fail(ERROR_NOT_ENOUGH_MEMORY);
    }
    if (thread.usedSlots <= index)
        thread.usedSlots = index + 1;
    *slotOf(thread, index) = {value, generations[index].load(std::memory_order_relaxed)};
    return TRUE;
}

// Allocates a slot like TlsAlloc, and gives it a callback.
DWORD FlsAlloc(PFLS_CALLBACK_FUNCTION callback)
{
    DWORD const index = TlsAlloc();
    if (index != TLS_OUT_OF_INDEXES)
        callbacks[index].store(callback, std::memory_order_release);
    return index;
}

BOOL FlsSetValue(DWORD index, void *value)
{
    return TlsSetValue(index, value);
}

} // namespace ZvPlatform
