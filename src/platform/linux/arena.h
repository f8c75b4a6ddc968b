// Memory that keeps its type for ever.
//
// What an arena once gave out stays mapped and stays a `T`, so that a late reader finds a dead object rather than a
// hole: a handle that was closed a moment ago is refused, and a wake-up that comes late wakes nobody.
#pragma once

#include "platform/linux/futex.h"

#include <cstddef>
#include <new>
#include <sys/mman.h>

/// There in programs that are searched for leaks.
extern "C" void __lsan_register_root_region(void const *begin, std::size_t size)
    __attribute__((weak));

namespace ZvPlatform::Linux {

/// `T` has a member `T *nextFree`. Used inside a `Service`.
template <class T, std::size_t CAPACITY>
class Arena
{
public:
    constexpr Arena() = default;

    /// Null when the address space or the capacity is used up. A used element comes back as it was given.
    T *take()
    {
        Locked locked(_lock);
        if (_free) {
            T *element = _free;
            _free = element->nextFree;
            return element;
        }
        std::size_t const used = _used.load(std::memory_order_relaxed);
        if (used + sizeof(T) > _usable && !grow())
            return nullptr;
        T *element = new (reinterpret_cast<void *>(_base.load(std::memory_order_relaxed) + used)) T;
        _used.store(used + sizeof(T), std::memory_order_release);
        return element;
    }

    void give(T *element)
    {
        Locked locked(_lock);
        element->nextFree = _free;
        _free = element;
    }

    /// Whether an address is that of an element, whatever its state.
    bool holds(void const *address) const
    {
        std::size_t const used = _used.load(std::memory_order_acquire);
        std::uintptr_t const offset =
            reinterpret_cast<std::uintptr_t>(address) - _base.load(std::memory_order_relaxed);
        return offset < used && offset % sizeof(T) == 0;
    }

    std::size_t size() const { return _used.load(std::memory_order_acquire) / sizeof(T); }

    T &operator[](std::size_t index)
    {
        return *std::launder(reinterpret_cast<T *>(_base.load(std::memory_order_relaxed)) + index);
    }

    std::size_t indexOf(T const *element) const
    {
        return (reinterpret_cast<std::uintptr_t>(element) - _base.load(std::memory_order_relaxed)) /
               sizeof(T);
    }

private:
    static constexpr std::size_t STEP = 64 * 1024;
    static constexpr std::size_t RESERVED = (CAPACITY * sizeof(T) + STEP - 1) / STEP * STEP;

    // Only what is in use is accessible, so that a process that locks its memory does not lock the whole reserve.
    bool grow()
    {
        std::uintptr_t base = _base.load(std::memory_order_relaxed);
        if (!base) {
            void *reserve = ::mmap(nullptr, RESERVED, PROT_NONE,
                                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
            if (reserve == MAP_FAILED)
                return false;
            base = reinterpret_cast<std::uintptr_t>(reserve);
            _base.store(base, std::memory_order_relaxed);
        }
        if (_usable + STEP > RESERVED ||
            ::mprotect(reinterpret_cast<void *>(base + _usable), STEP, PROT_READ | PROT_WRITE) != 0)
            return false;
        // What only a thread's slots or a handle lead to is no leak.
        if (__lsan_register_root_region)
            __lsan_register_root_region(reinterpret_cast<void *>(base + _usable), STEP);
        _usable += STEP;
        return true;
    }

    std::atomic<std::uintptr_t> _base{0};
    std::atomic<std::size_t> _used{0};
    std::size_t _usable = 0;
    T *_free = nullptr;
    Lock _lock;
};

} // namespace ZvPlatform::Linux
