// A pointer that owns nothing, and says so.
#pragma once

#include "zvbase/rcEx.h"

#include <compare>
#include <cstddef>
#include <functional>

namespace Zv {

/// The address of an object that somebody else owns, for use in containers and as argument. It deletes nothing. Two
/// of them compare by address.
template <class T>
class UnownedObjPtr
{
public:
    using element_type = T;

    constexpr UnownedObjPtr(T *object = nullptr) noexcept : _object(object) {}

    /// Null throws `RCEx::ExNullPtr`.
    T *operator->() const { return checked(); }
    T &operator*() const { return *checked(); }
    T *get() const noexcept { return _object; }
    bool isNull() const noexcept { return !_object; }
    explicit operator bool() const noexcept { return _object; }

    friend bool operator==(UnownedObjPtr const &a, UnownedObjPtr const &b) noexcept
    {
        return a._object == b._object;
    }
    friend bool operator==(UnownedObjPtr const &pointer, std::nullptr_t) noexcept
    {
        return !pointer._object;
    }
    friend std::strong_ordering operator<=>(UnownedObjPtr const &a, UnownedObjPtr const &b) noexcept
    {
        return std::compare_three_way()(a._object, b._object);
    }

private:
    T *checked() const
    {
        if (!_object) [[unlikely]]
            RCExUtil::throwExNullPtr();
        return _object;
    }

    T *_object;
};

} // namespace Zv

template <class T>
struct std::hash<Zv::UnownedObjPtr<T>>
{
    std::size_t operator()(Zv::UnownedObjPtr<T> const &pointer) const noexcept
    {
        return std::hash<T *>()(pointer.get());
    }
};
