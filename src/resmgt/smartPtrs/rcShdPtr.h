// Shared ownership.
#pragma once

#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcBasePtr.h"

namespace Zv {

/// A shared owner of an object whose class derives from `RCBase`. A raw pointer may become one at any time, also
/// implicitly and more than once: the count stands in the object. See RCBasePtr for what holds of all such pointers.
///
///     RCShdPtr<DevMDStdFifo> fifo(new DevMDStdFifo(10));
template <class T>
class RCShdPtr : public RCBasePtr<T>
{
public:
    constexpr RCShdPtr() noexcept = default;
    constexpr RCShdPtr(std::nullptr_t) noexcept {}
    RCShdPtr(T *object) : RCBasePtr<T>(object) {}
    RCShdPtr(RCShdPtr const &) = default;
    RCShdPtr(RCShdPtr &&) noexcept = default;
    template <class U>
    requires RCRelated<U, T> RCShdPtr(RCShdPtr<U> const &other) : RCBasePtr<T>(other.get()) {}
    template <class U>
    requires RCRelated<U, T> RCShdPtr(RCShdPtr<U> &&other)
    noexcept : RCBasePtr<T>(std::move(other)) {}
    RCShdPtr &operator=(RCShdPtr const &) = default;
    RCShdPtr &operator=(RCShdPtr &&) = default;

    /// Null throws `RCEx::ExNullPtr`, "Dereferencing a null pointer".
    T *operator->() const { return this->checked(); }
    T &operator*() const { return *this->checked(); }
    /// Whether this is the only reference. False for null.
    bool isUnique() const { return !this->isNull() && this->getReferenceCount() == 1; }
    void swap(RCShdPtr &other) noexcept
    {
        RCShdPtr held(std::move(other));
        other = std::move(*this);
        *this = std::move(held);
    }
};

/// A new object in shared ownership.
template <class T, class... Arguments>
[[nodiscard]] RCShdPtr<T> makeShd(Arguments &&...arguments)
{
    return RCShdPtr<T>(new T(std::forward<Arguments>(arguments)...));
}

/// The same object as a U, or null where it is none.
template <class U, class T>
[[nodiscard]] RCShdPtr<U> rcDynamicCast(RCShdPtr<T> const &pointer)
{
    return RCShdPtr<U>(dynamic_cast<U *>(pointer.get()));
}

} // namespace Zv

template <class T>
struct std::hash<Zv::RCShdPtr<T>>
{
    std::size_t operator()(Zv::RCShdPtr<T> const &pointer) const noexcept
    {
        return std::hash<T *>()(pointer.get());
    }
};
