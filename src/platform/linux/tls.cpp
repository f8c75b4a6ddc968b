#include "platform/linux/thread.h"

#include <cstdlib>
#include <new>

namespace ZvPlatform::Linux {

constinit Lock slotsLock;

namespace {

constinit SlotTable table;

/// Returns null if the thread has never stored a value in a slot of such a high index.
TlsSlot *slotOf(Thread &thread, DWORD index)
{
    if (index < TLS_MINIMUM_AVAILABLE)
        return &thread.slots[index];
    return thread.moreSlots ? &thread.moreSlots[index - TLS_MINIMUM_AVAILABLE] : nullptr;
}

} // namespace

void callBack(Thread &thread)
{
    table.callBack(thread.usedSlots,
                   [&](DWORD index) -> TlsSlot & { return *slotOf(thread, index); });
}

} // namespace ZvPlatform::Linux

namespace ZvPlatform {

using namespace Linux;

DWORD FlsAlloc(PFLS_CALLBACK_FUNCTION callback)
{
    Service service;
    Locked locked(slotsLock);
    DWORD const index = table.allocate(callback);
    if (index == TLS_OUT_OF_INDEXES)
        fail(ERROR_NO_MORE_ITEMS);
    return index;
}

BOOL TlsFree(DWORD index)
{
    Service service;
    Locked locked(slotsLock);
    return table.free(index) ? TRUE : fail(ERROR_INVALID_PARAMETER);
}

void *TlsGetValue(DWORD index)
{
    if (index >= TLS_SLOTS) {
        fail(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    local.lastError = ERROR_SUCCESS;
    TlsSlot const *slot = slotOf(currentThread(), index);
    return slot ? table.valueOf(*slot, index) : nullptr;
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
    table.store(*slotOf(thread, index), index, value);
    return TRUE;
}

} // namespace ZvPlatform
