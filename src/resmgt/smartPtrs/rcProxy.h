// Shared ownership of objects that do not count their references (applications).
#pragma once

#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcBasePtr.h"
#include "zvbase/objPtr.h"

namespace Zv {

/// Counts the references to a `T` that has no count itself. Use it through `RCProxyShdPtr`.
///
/// **Owns**: the object. The destructor deletes it.
template <class T>
class RCProxy : public RCBase<LkCounter<long>>
{
public:
    /// Takes ownership of `object`, which may be null.
    explicit RCProxy(T *object) noexcept : _object(object) {}
    /// Takes ownership of `object`, which may be null.
    explicit RCProxy(ObjPtr<T> object) noexcept : _object(std::move(object)) {}
    RCProxy(RCProxy const &) = delete;
    RCProxy &operator=(RCProxy const &) = delete;

    /// Returns the object, which may be null.
    T *get() const noexcept { return _object.get(); }

protected:
    ~RCProxy() noexcept(false) override = default;

private:
    ObjPtr<T> _object;
};

/// A shared owner of a `T`, with an `RCProxy` that counts the references. See `RCBasePtr` for
/// threads and exceptions. `get` returns the proxy. `->` and `*` access the `T`.
///
///     #include <vector>
///
///     Zv::RCProxyShdPtr<std::vector<int>> const numbers(Zv::makeObj<std::vector<int>>(3, 0));
///     Zv::RCProxyShdPtr<std::vector<int>> const sharing = numbers;
///     sharing->push_back(7);
template <class T>
class RCProxyShdPtr : public RCBasePtr<RCProxy<T>>
{
public:
    constexpr RCProxyShdPtr() noexcept = default;
    constexpr RCProxyShdPtr(std::nullptr_t) noexcept {}
    /// Shares a proxy and its object. The conversion is implicit.
    RCProxyShdPtr(RCProxy<T> *proxy) : RCBasePtr<RCProxy<T>>(proxy) {}
    /// Makes a proxy that owns the object. If `object` is null, the pointer is null.
    explicit RCProxyShdPtr(ObjPtr<T> object)
        : RCBasePtr<RCProxy<T>>(object.isNull() ? nullptr : new RCProxy<T>(std::move(object)))
    {}
    RCProxyShdPtr(RCProxyShdPtr const &) = default;
    RCProxyShdPtr(RCProxyShdPtr &&) noexcept = default;
    RCProxyShdPtr &operator=(RCProxyShdPtr const &) = default;
    RCProxyShdPtr &operator=(RCProxyShdPtr &&) = default;

    /// Throws `RCEx::ExNullPtr` if the pointer or the object is null.
    T *operator->() const { return checkedObject(); }
    /// Throws `RCEx::ExNullPtr` if the pointer or the object is null.
    T &operator*() const { return *checkedObject(); }
    /// Returns true if this is the only reference. False if the pointer is null.
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
