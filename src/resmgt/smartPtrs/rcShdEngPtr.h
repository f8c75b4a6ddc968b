// Shared ownership of an engine behind a handle class.
#pragma once

#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcBasePtr.h"

namespace Zv {

/// A shared owner of an engine whose class derives from `RCBaseWithDestroy`: handle classes hold one and nothing else,
/// and copying a handle shares the engine.
template <class T>
class RCShdEngPtr : public RCBasePtr<T>
{
public:
    constexpr RCShdEngPtr() noexcept = default;
    constexpr RCShdEngPtr(std::nullptr_t) noexcept {}
    RCShdEngPtr(T *engine) : RCBasePtr<T>(engine) {}
    RCShdEngPtr(RCShdEngPtr const &) = default;
    RCShdEngPtr(RCShdEngPtr &&) noexcept = default;
    template <class U>
    requires RCRelated<U, T> RCShdEngPtr(RCShdEngPtr<U> const &other) : RCBasePtr<T>(other.get()) {}
    template <class U>
    requires RCRelated<U, T> RCShdEngPtr(RCShdEngPtr<U> &&other)
    noexcept : RCBasePtr<T>(std::move(other)) {}
    RCShdEngPtr &operator=(RCShdEngPtr const &) = default;
    RCShdEngPtr &operator=(RCShdEngPtr &&) = default;

    /// Null throws `RCEx::ExNullPtr`, "Dereferencing a null pointer".
    T *operator->() const { return this->checked(); }
    T &operator*() const { return *this->checked(); }
    /// Whether this is the only reference. False for null.
    bool isUnique() const { return !this->isNull() && this->getReferenceCount() == 1; }
};

} // namespace Zv

template <class T>
struct std::hash<Zv::RCShdEngPtr<T>>
{
    std::size_t operator()(Zv::RCShdEngPtr<T> const &pointer) const noexcept
    {
        return std::hash<T *>()(pointer.get());
    }
};
