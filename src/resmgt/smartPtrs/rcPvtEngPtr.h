// A private engine, shared until it is written.
#pragma once

#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcBasePtr.h"

namespace Zv {

/// The copy-on-write pointer of a handle class such as `LiString` to its engine, whose class derives from `RCBase` and
/// has `T *clone() const`, a copy made with `new`. Copies share the engine for as long as they only read.
///
/// Reading goes through `->` and `*` and gives a const engine; writing goes through `write()`, and has the engine for
/// itself. What `write()` returned is good for writing until the pointer is copied.
template <class T>
class RCPvtEngPtr : public RCBasePtr<T>
{
public:
    constexpr RCPvtEngPtr() noexcept = default;
    constexpr RCPvtEngPtr(std::nullptr_t) noexcept {}
    RCPvtEngPtr(T *engine) : RCBasePtr<T>(engine) {}
    RCPvtEngPtr(RCPvtEngPtr const &) = default;
    RCPvtEngPtr(RCPvtEngPtr &&) noexcept = default;
    RCPvtEngPtr &operator=(RCPvtEngPtr const &) = default;
    RCPvtEngPtr &operator=(RCPvtEngPtr &&) = default;

    /// Null throws `RCEx::ExNullPtr`, "Dereferencing a null pointer".
    T const *operator->() const { return this->checked(); }
    T const &operator*() const { return *this->checked(); }
    /// The engine, after it has been cloned where others share it. Throws `RCEx::ExNullPtr` where the pointer or the
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
    /// Whether nobody shares the engine. False for null.
    bool isUnique() const { return !this->isNull() && this->getReferenceCount() == 1; }
};

} // namespace Zv
