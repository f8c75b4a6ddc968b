// Smart pointer of a handle class to its shared engine (applications).
#pragma once

#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcBasePtr.h"

#include <string_view> // std::hash

namespace Zv {

/// A shared owner of an engine, whose class derives from `RCBaseWithDestroy`. A handle class
/// contains only this pointer. A copy of a handle shares the engine. See `RCBasePtr` for threads
/// and exceptions.
///
///     class Engine : public Zv::RCBaseWithDestroy<Zv::LkCounter<long>>
///     {
///     public:
///         double gain = 0;
///     };
///
///     class Fader
///     {
///     public:
///         void setGain(double gain) { _engine->gain = gain; } // of all copies
///
///     private:
///         Zv::RCShdEngPtr<Engine> _engine{new Engine};
///     };
template <class T>
class RCShdEngPtr : public RCBasePtr<T>
{
public:
    constexpr RCShdEngPtr() noexcept = default;
    constexpr RCShdEngPtr(std::nullptr_t) noexcept {}
    /// Shares the engine. The conversion is implicit.
    RCShdEngPtr(T *engine) : RCBasePtr<T>(engine) {}
    RCShdEngPtr(RCShdEngPtr const &) = default;
    RCShdEngPtr(RCShdEngPtr &&) noexcept = default;
    /// Shares the object of a pointer to a derived class.
    template <RCRelated<T> U>
    RCShdEngPtr(RCShdEngPtr<U> const &other) : RCBasePtr<T>(other.get())
    {}
    /// Takes the reference of a pointer to a derived class.
    template <RCRelated<T> U>
    RCShdEngPtr(RCShdEngPtr<U> &&other) noexcept : RCBasePtr<T>(std::move(other))
    {}
    RCShdEngPtr &operator=(RCShdEngPtr const &) = default;
    RCShdEngPtr &operator=(RCShdEngPtr &&) = default;

    /// Throws `RCEx::ExNullPtr` if the pointer is null.
    T *operator->() const { return this->checked(); }
    /// Throws `RCEx::ExNullPtr` if the pointer is null.
    T &operator*() const { return *this->checked(); }
    /// Returns true if this is the only reference. False if the pointer is null.
    bool isUnique() const { return !this->isNull() && this->getReferenceCount() == 1; }
};

} // namespace Zv

/// Agrees with `==`.
template <class T>
struct std::hash<Zv::RCShdEngPtr<T>>
{
    std::size_t operator()(Zv::RCShdEngPtr<T> const &pointer) const noexcept
    {
        return std::hash<T *>()(pointer.get());
    }
};
