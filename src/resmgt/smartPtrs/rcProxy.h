// Shared ownership of what does not count its references.
#pragma once

#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcBasePtr.h"
#include "zvbase/objPtr.h"

namespace Zv {

/// Counts on behalf of a `T` that does not: owns it, and deletes it in its destructor.
template <class T>
class RCProxy : public RCBase<LkCounter<long>>
{
public:
    explicit RCProxy(T *object) noexcept : _object(object) {}
    explicit RCProxy(ObjPtr<T> object) noexcept : _object(std::move(object)) {}
    RCProxy(RCProxy const &) = delete;
    RCProxy &operator=(RCProxy const &) = delete;

    /// The object; may be null.
    T *get() const noexcept { return _object.get(); }

protected:
    ~RCProxy() noexcept(false) override = default;

private:
    ObjPtr<T> _object;
};

/// A shared owner of a `T` through its `RCProxy`; `->` and `*` go through to the `T`.
template <class T>
class RCProxyShdPtr : public RCBasePtr<RCProxy<T>>
{
public:
    constexpr RCProxyShdPtr() noexcept = default;
    constexpr RCProxyShdPtr(std::nullptr_t) noexcept {}
    RCProxyShdPtr(RCProxy<T> *proxy) : RCBasePtr<RCProxy<T>>(proxy) {}
    /// Makes the proxy, which owns the object; null gives a null pointer.
    explicit RCProxyShdPtr(ObjPtr<T> object)
        : RCBasePtr<RCProxy<T>>(object.isNull() ? nullptr : new RCProxy<T>(std::move(object)))
    {}
    RCProxyShdPtr(RCProxyShdPtr const &) = default;
    RCProxyShdPtr(RCProxyShdPtr &&) noexcept = default;
    RCProxyShdPtr &operator=(RCProxyShdPtr const &) = default;
    RCProxyShdPtr &operator=(RCProxyShdPtr &&) = default;

    /// Null throws `RCEx::ExNullPtr`, "Dereferencing a null pointer".
    T *operator->() const { return checkedObject(); }
    T &operator*() const { return *checkedObject(); }
    bool isUnique() const { return !this->isNull() && this->getReferenceCount() == 1; }

private:
    T *checkedObject() const
    {
        T * const object = this->checked()->get();
        if (!object) [[unlikely]]
            RCExUtil::throwExNullPtr();
        return object;
    }
};

} // namespace Zv
