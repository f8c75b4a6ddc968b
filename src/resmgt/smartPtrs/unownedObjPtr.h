// Pointer without ownership (applications).
#pragma once

#include "zvbase/rcEx.h"

#include <compare>
#include <cstddef>
#include <string_view> // std::hash

namespace Zv {

/// Points to an object that it does not own. A raw pointer would not say so.
/// Compared by address. A value.
///
///     double gain = 0.5;
///     Zv::UnownedObjPtr<double> const pointer(&gain);
///     *pointer = 0.7;
template <class T>
class UnownedObjPtr
{
public:
    using element_type = T;

    /// The object must outlive the pointer. The conversion is implicit.
    constexpr UnownedObjPtr(T *object = nullptr) noexcept : _object(object) {}

    /// Throws `RCEx::ExNullPtr` if the pointer is null.
    T *operator->() const { return checked(); }
    /// Throws `RCEx::ExNullPtr` if the pointer is null.
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

/// Agrees with `==`.
template <class T>
struct std::hash<Zv::UnownedObjPtr<T>>
{
    std::size_t operator()(Zv::UnownedObjPtr<T> const &pointer) const noexcept
    {
        return std::hash<T *>()(pointer.get());
    }
};
