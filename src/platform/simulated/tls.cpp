#include "platform/simulated/thread.h"

#include <algorithm>

namespace ZvPlatform {

using namespace Simulated;

namespace {

constinit SlotTable table;
/// One more than the highest slot that was ever allocated. The values of a thread are searched up
/// to this one.
constinit DWORD bound = 0;

} // namespace

void Simulated::forgetSlots(Thread &thread)
{
    for (DWORD index = 0; index < bound; ++index)
        thread.slots[index] = {};
}

void Simulated::callBack(Thread &thread)
{
    table.callBack(bound, [&](DWORD index) -> TlsSlot & { return thread.slots[index]; });
}

DWORD FlsAlloc(PFLS_CALLBACK_FUNCTION callback)
{
    enter("TlsAlloc");
    DWORD const index = isRefused(SLOTS) ? TLS_OUT_OF_INDEXES : table.allocate(callback);
    if (index == TLS_OUT_OF_INDEXES)
        fail(ERROR_NO_MORE_ITEMS);
    else
        bound = std::max(bound, index + 1);
    return index;
}

BOOL TlsFree(DWORD index)
{
    enter("TlsFree");
    return table.free(index) ? TRUE : fail(ERROR_INVALID_PARAMETER);
}

// These calls only concern the calling thread, so they are no points of the schedule.

void *TlsGetValue(DWORD index)
{
    if (index >= TLS_SLOTS) {
        fail(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    Thread &me = currentThread();
    me.lastError = ERROR_SUCCESS;
    return table.valueOf(me.slots[index], index);
}

BOOL TlsSetValue(DWORD index, void *value)
{
    if (index >= TLS_SLOTS)
        return fail(ERROR_INVALID_PARAMETER);
    table.store(currentThread().slots[index], index, value);
    return TRUE;
}

} // namespace ZvPlatform
