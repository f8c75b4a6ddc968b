// Slots of thread-local values: which slots are allocated, and which values are valid.
#pragma once

#include "platform/services.h"

#include <atomic>
#include <utility>

namespace ZvPlatform {

inline constexpr DWORD TLS_SLOTS = 1088;

/// What a thread has stored in a slot.
struct TlsSlot
{
    void *value = nullptr;
    std::uint32_t generation = 0;
};

/// The slots of all threads. A slot has a generation, which is odd while the slot is allocated. A
/// thread's value is valid only if it was stored in the present generation. A slot that is
/// allocated again is therefore empty in all threads.
class SlotTable
{
public:
    constexpr SlotTable() = default;

    /// Returns a new slot, or TLS_OUT_OF_INDEXES if all are allocated. The callback may be null.
    /// The caller must see to it that only one call of `allocate` or `free` runs at a time.
    DWORD allocate(PFLS_CALLBACK_FUNCTION callback)
    {
        for (DWORD index = 0; index < TLS_SLOTS; ++index)
            if (generationOf(index) % 2 == 0) {
                _callbacks[index].store(callback, std::memory_order_release);
                _generations[index].fetch_add(1, std::memory_order_release);
                return index;
            }
        return TLS_OUT_OF_INDEXES;
    }

    /// Returns false if the slot is not allocated.
    bool free(DWORD index)
    {
        if (index >= TLS_SLOTS || generationOf(index) % 2 == 0)
            return false;
        _callbacks[index].store(nullptr, std::memory_order_relaxed);
        _generations[index].fetch_add(1, std::memory_order_release);
        return true;
    }

    /// Returns the value of a thread, or null if it is not valid. `index` must be below TLS_SLOTS.
    void *valueOf(TlsSlot const &slot, DWORD index) const
    {
        return slot.generation == generationOf(index) ? slot.value : nullptr;
    }
    /// Stores a value of a thread. `index` must be below TLS_SLOTS.
    void store(TlsSlot &slot, DWORD index, void *value) const
    {
        slot = {value, generationOf(index)};
    }

    /// Calls the callbacks for the values of a thread that ends, in the slots below `end`, which a
    /// callback may raise. `slotOf` returns the thread's slot of an index.
    template <class SlotOf>
    void callBack(DWORD const &end, SlotOf slotOf) const
    {
        for (DWORD index = 0; index < end; ++index) {
            auto const callback = _callbacks[index].load(std::memory_order_acquire);
            if (!callback)
                continue;
            TlsSlot &slot = slotOf(index);
            if (!valueOf(slot, index))
                continue;
            callback(std::exchange(slot.value, nullptr));
        }
    }

private:
    std::uint32_t generationOf(DWORD index) const
    {
        return _generations[index].load(std::memory_order_relaxed);
    }

    std::atomic<std::uint32_t> _generations[TLS_SLOTS] = {};
    /// Null for the slots of `TlsAlloc`.
    std::atomic<PFLS_CALLBACK_FUNCTION> _callbacks[TLS_SLOTS] = {};
};

} // namespace ZvPlatform
