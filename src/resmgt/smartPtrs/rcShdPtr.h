// Smart pointer for shared ownership (applications).
#pragma once

#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcBasePtr.h"

#include <string_view> // std::hash

namespace Zv {

/// A shared owner of an object, whose class derives from `RCBase`. See `RCBasePtr` for threads and
/// exceptions.
///
/// A raw pointer can be converted at any time, even implicitly and more than once, because the
/// object contains the count.
///
///     class Clip : public Zv::RCBase<Zv::LkCounter<long>>
///     {
///     };
///
///     Zv::RCShdPtr<Clip> const clip(new Clip);
///     Zv::RCShdPtr<Clip const> const sharing = clip;
template <class T>
class RCShdPtr : public RCBasePtr<T>
{
public:
    constexpr RCShdPtr() noexcept = default;
    constexpr RCShdPtr(std::nullptr_t) noexcept {}
    /// Shares the object. The conversion is implicit.
    RCShdPtr(T *object) : RCBasePtr<T>(object) {}
    RCShdPtr(RCShdPtr const &) = default;
    RCShdPtr(RCShdPtr &&) noexcept = default;
    /// Shares the object of a pointer to a derived class.
    template <RCRelated<T> U>
    RCShdPtr(RCShdPtr<U> const &other) : RCBasePtr<T>(other.get())
    {}
    /// Takes the reference of a pointer to a derived class.
    template <RCRelated<T> U>
    RCShdPtr(RCShdPtr<U> &&other) noexcept : RCBasePtr<T>(std::move(other))
    {}
    RCShdPtr &operator=(RCShdPtr const &) = default;
    RCShdPtr &operator=(RCShdPtr &&) = default;

    /// Throws `RCEx::ExNullPtr` if the pointer is null.
    T *operator->() const { return this->checked(); }
    /// Throws `RCEx::ExNullPtr` if the pointer is null.
    T &operator*() const { return *this->checked(); }
    /// Returns true if this is the only reference. False if the pointer is null.
    bool isUnique() const { return !this->isNull() && this->getReferenceCount() == 1; }
    /// Exchanges the objects of two pointers.
    void swap(RCShdPtr &other) noexcept
    {
        RCShdPtr held(std::move(other));
        other = std::move(*this);
        *this = std::move(held);
    }
};

/// Makes an object and returns its first owner.
template <class T, class... Arguments>
[[nodiscard]] RCShdPtr<T> makeShd(Arguments &&...arguments)
{
    return RCShdPtr<T>(new T(std::forward<Arguments>(arguments)...));
}

/// Returns a pointer to the same object as a `U`, or null if it is not a `U`.
template <class U, class T>
[[nodiscard]] RCShdPtr<U> rcDynamicCast(RCShdPtr<T> const &pointer)
{
    return RCShdPtr<U>(dynamic_cast<U *>(pointer.get()));
}

} // namespace Zv

/// Agrees with `==`.
template <class T>
struct std::hash<Zv::RCShdPtr<T>>
{
    std::size_t operator()(Zv::RCShdPtr<T> const &pointer) const noexcept
    {
        return std::hash<T *>()(pointer.get());
    }
};
