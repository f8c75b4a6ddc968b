// Copy-on-write pointer of a handle class to its engine (applications).
#pragma once

#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcBasePtr.h"

namespace Zv {

/// A pointer of a handle class, such as `LiString`, to its engine. Copies of a handle share the
/// engine until one of them is written. See `RCBasePtr` for threads and exceptions.
///
/// The engine's class derives from `RCBase` and has an operation `T *clone() const`, which returns
/// a copy made with `new`. `->` and `*` give a const engine for reading. `write()` gives an engine
/// that is not shared.
///
///     class Engine : public Zv::RCBase<Zv::LkCounter<long>>
///     {
///     public:
///         Engine *clone() const { return new Engine(*this); }
///
///         double gain = 0;
///     };
///
///     class Setting
///     {
///     public:
///         double getGain() const { return _engine->gain; }
///         void setGain(double gain) { _engine.write().gain = gain; } // of this copy alone
///
///     private:
///         Zv::RCPvtEngPtr<Engine> _engine{new Engine};
///     };
template <class T>
class RCPvtEngPtr : public RCBasePtr<T>
{
public:
    constexpr RCPvtEngPtr() noexcept = default;
    constexpr RCPvtEngPtr(std::nullptr_t) noexcept {}
    /// Shares the engine. The conversion is implicit.
    RCPvtEngPtr(T *engine) : RCBasePtr<T>(engine) {}
    RCPvtEngPtr(RCPvtEngPtr const &) = default;
    RCPvtEngPtr(RCPvtEngPtr &&) noexcept = default;
    RCPvtEngPtr &operator=(RCPvtEngPtr const &) = default;
    RCPvtEngPtr &operator=(RCPvtEngPtr &&) = default;

    /// Throws `RCEx::ExNullPtr` if the pointer is null.
    T const *operator->() const { return this->checked(); }
    /// Throws `RCEx::ExNullPtr` if the pointer is null.
    T const &operator*() const { return *this->checked(); }
    /// Returns the engine for writing. Clones it first if other pointers share it. The result may
    /// be written until this pointer is copied. Throws `RCEx::ExNullPtr` if the pointer or the
    /// clone is null.
    T &write()
    {
        T * const engine = this->checked();
        if (this->getReferenceCount() == 1)
            return *engine;
        T * const clone = engine->clone();
        if (!clone)
            RCExUtil::throwExNullPtr();
        this->assign(clone);
        return *clone;
    }
    /// Returns true if no other pointer shares the engine. False if the pointer is null.
    bool isUnique() const { return !this->isNull() && this->getReferenceCount() == 1; }
};

} // namespace Zv
