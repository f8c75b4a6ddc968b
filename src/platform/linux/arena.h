// Arena: memory for elements of one type that stays mapped until the process ends.
//
// What an arena has given out remains a `T`. A late reader finds a dead object instead of unmapped
// memory: a handle that was closed a moment ago is refused, and a late wake-up wakes nothing.
//
// An arena grows by segments, each twice as large as the one before. The address space that it
// takes is at most about twice what the process uses.
#pragma once

#include "platform/linux/futex.h"

#include <bit>
#include <cstddef>
#include <new>

/// Present in programs that are checked for leaks.
extern "C" void __lsan_register_root_region(void const *begin, std::size_t size)
    __attribute__((weak));

namespace ZvPlatform::Linux {

/// `T` must have a member `T *nextFree`. `take` and `give` must be called inside a `Service`. An
/// arena holds about CAPACITY elements, as many as fit into whole segments.
template <class T, std::size_t CAPACITY>
class Arena
{
public:
    constexpr Arena() = default;

    /// Returns null if the address space or the capacity is used up. An element that was used
    /// before is returned as it was given back.
    T *take()
    {
        Locked locked(_lock);
        if (_free) {
            T *element = _free;
            _free = element->nextFree;
            return element;
        }
        std::size_t const index = _used.load(Order::RELAXED);
        Place const place = placeOf(index);
        if (place.segment == SEGMENTS || (place.index == 0 && !map(place.segment)))
            return nullptr;
        T *element = new (addressOf(place)) T;
        _used.store(index + 1, Order::RELEASE);
        return element;
    }

    void give(T *element)
    {
        Locked locked(_lock);
        element->nextFree = _free;
        _free = element;
    }

    /// Returns whether an address is that of an element, in use or not.
    bool holds(void const *address) const
    {
        std::size_t left = _used.load(Order::ACQUIRE);
        for (std::size_t segment = 0; left; ++segment) {
            std::size_t const here = left < sizeOf(segment) ? left : sizeOf(segment);
            std::uintptr_t const offset = offsetIn(segment, address);
            if (offset < here * sizeof(T))
                return offset % sizeof(T) == 0;
            left -= here;
        }
        return false;
    }

    std::size_t size() const { return _used.load(Order::ACQUIRE); }

    T &operator[](std::size_t index)
    {
        return *std::launder(static_cast<T *>(addressOf(placeOf(index))));
    }

    std::size_t indexOf(T const *element) const
    {
        std::size_t first = 0;
        for (std::size_t segment = 0;; first += sizeOf(segment), ++segment) {
            std::uintptr_t const offset = offsetIn(segment, element);
            if (offset < sizeOf(segment) * sizeof(T))
                return first + offset / sizeof(T);
        }
    }

    /// A fork takes this lock, so that the arena does not change meanwhile.
    constexpr Lock &lock() { return _lock; }

private:
    static constexpr std::size_t FIRST = std::bit_ceil(32 * 1024 / sizeof(T)); ///< elements
    static constexpr std::size_t SEGMENTS =
        static_cast<std::size_t>(std::bit_width((CAPACITY - 1) / FIRST));

    struct Place
    {
        std::size_t segment;
        std::size_t index;
    };

    static constexpr std::size_t sizeOf(std::size_t segment) { return FIRST << segment; }

    static constexpr Place placeOf(std::size_t index)
    {
        // The segments before segment s have FIRST * (2^s - 1) elements.
        auto const segment = static_cast<std::size_t>(std::bit_width(index / FIRST + 1)) - 1;
        return {segment, index - FIRST * ((std::size_t{1} << segment) - 1)};
    }

    void *addressOf(Place place) const
    {
        return reinterpret_cast<void *>(_segments[place.segment].load(Order::RELAXED) +
                                        place.index * sizeof(T));
    }

    std::uintptr_t offsetIn(std::size_t segment, void const *address) const
    {
        return reinterpret_cast<std::uintptr_t>(address) - _segments[segment].load(Order::RELAXED);
    }

    bool map(std::size_t segment)
    {
        std::size_t const size = sizeOf(segment) * sizeof(T);
        void *memory = Kernel::reserve(size);
        if (!memory)
            return false;
        // Memory to which only a thread's slots or a handle lead is not a leak.
        if (__lsan_register_root_region)
            __lsan_register_root_region(memory, size);
        _segments[segment].store(reinterpret_cast<std::uintptr_t>(memory), Order::RELAXED);
        return true;
    }

    Shared<std::uintptr_t> _segments[SEGMENTS] = {};
    Shared<std::size_t> _used{0};
    T *_free = nullptr;
    Lock _lock;
};

} // namespace ZvPlatform::Linux
