#include "platform/simulated/scheduler.h"

namespace ZvPlatform {

using namespace Simulated;

namespace {

/// Odd while the slot is allocated. A thread's value counts only if it was stored under the present generation.
constinit std::uint32_t generations[TLS_SLOTS] = {};

} // namespace

DWORD TlsAlloc()
{
    enter("TlsAlloc");
    for (DWORD index = 0; index < TLS_SLOTS && !isRefused(SLOTS); ++index)
        if (generations[index] % 2 == 0) {
            ++generations[index];
            return index;
        }
    fail(ERROR_NOT_ENOUGH_MEMORY);
    return TLS_OUT_OF_INDEXES;
}

BOOL TlsFree(DWORD index)
{
    enter("TlsFree");
    if (index >= TLS_SLOTS || generations[index] % 2 == 0)
        return fail(ERROR_INVALID_PARAMETER);
    ++generations[index];
    return TRUE;
}

// What belongs to the calling thread alone is no point of the schedule.

void *TlsGetValue(DWORD index)
{
    if (index >= TLS_SLOTS) {
        fail(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    Thread &me = currentThread();
    me.lastError = ERROR_SUCCESS;
    TlsSlot const &slot = me.slots[index];
    return slot.generation == generations[index] ? slot.value : nullptr;
}

BOOL TlsSetValue(DWORD index, void *value)
{
    if (index >= TLS_SLOTS)
        return fail(ERROR_INVALID_PARAMETER);
    currentThread().slots[index] = {value, generations[index]};
    return TRUE;
}

} // namespace ZvPlatform
