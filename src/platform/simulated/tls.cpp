#include "platform/simulated/scheduler.h"

#include <algorithm>
#include <utility>

namespace ZvPlatform {

using namespace Simulated;

namespace {

/// Generation of each slot, odd while the slot is allocated. A thread's value is valid only if it
/// was stored under the current generation.
constinit std::uint32_t generations[TLS_SLOTS] = {};
/// Callbacks of the slots that `FlsAlloc` has allocated.
constinit PFLS_CALLBACK_FUNCTION callbacks[TLS_SLOTS] = {};
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
    for (DWORD index = 0; index < bound; ++index) {
        TlsSlot &slot = thread.slots[index];
        if (!callbacks[index] || slot.generation != generations[index])
            continue;
        if (void * const value = std::exchange(slot.value, nullptr))
            callbacks[index](value);
    }
}

DWORD TlsAlloc()
{
    enter("TlsAlloc");
    for (DWORD index = 0; index < TLS_SLOTS && !isRefused(SLOTS); ++index)
        if (generations[index] % 2 == 0) {
            ++generations[index];
            bound = std::max(bound, index + 1);
            return index;
        }
    fail(ERROR_NO_MORE_ITEMS);
    return TLS_OUT_OF_INDEXES;
}

BOOL TlsFree(DWORD index)
{
    enter("TlsFree");
    if (index >= TLS_SLOTS || generations[index] % 2 == 0)
        return fail(ERROR_INVALID_PARAMETER);
    ++generations[index];
    callbacks[index] = nullptr;
    return TRUE;
}

// Allocates a slot of `TlsAlloc` and gives it a callback.
DWORD FlsAlloc(PFLS_CALLBACK_FUNCTION callback)
{
    DWORD const index = TlsAlloc();
    if (index != TLS_OUT_OF_INDEXES)
        callbacks[index] = callback;
    return index;
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

BOOL FlsSetValue(DWORD index, void *value)
{
    return TlsSetValue(index, value);
}

} // namespace ZvPlatform
