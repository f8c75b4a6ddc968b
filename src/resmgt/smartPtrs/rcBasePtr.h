// Base class of the counted pointers (applications).
#pragma once

#include "zvbase/rcEx.h"

#include <compare>
#include <concepts>
#include <cstddef>
#include <utility>

namespace Zv {

/// Base of `RCShdPtr`, `RCShdEngPtr`, `RCPvtEngPtr` and `RCProxyShdPtr`. A counted pointer holds
/// one reference to its object, unless it is null. A copy costs one interlocked operation, a move
/// costs none. A pointer that releases the last reference destroys the object at once.
///
/// An assignment releases the old object before it takes the new one. During the old object's
/// destructor the pointer still has its address. The destructor must not copy or change the
/// pointer. If only the old object keeps the new one alive, as in `p = p->next`, copy or move the
/// new one first.
///
/// **Threads**: one thread at a time. But any threads may read or copy a pointer that no thread
/// changes, if the object's counter is an `LkCounter<long>`. Threads that share an object and
/// change their pointers need a pointer each.
///
/// The destructors of the counted pointers, and of all handles that contain one, may throw. For
/// that reason `thread`, `jthread`, `async` and `packaged_task` of the standard library do not
/// compile with a lambda that captures one by value. Pass a `std::function` instead:
///
///     #include <functional>
///     #include <future>
///
///     Zv::RCProxyShdPtr<int> const gain(Zv::makeObj<int>(3));
///     auto done = std::async(std::launch::async, std::function<void()>([gain] { ++*gain; }));
///     done.wait();
///
/// **Throws**: if the destructor of the object throws, the exception leaves the destructor or the
/// assignment that has released it. The assignment has taken its new value all the same. `->` and
/// `*` throw `RCEx::ExNullPtr` if the pointer is null.
template <class T>
class RCBasePtr
{
public:
    using element_type = T;

    /// Returns the raw pointer. It holds no reference.
    T *get() const noexcept { return _pointee; }
    bool isNull() const noexcept { return !_pointee; }
    explicit operator bool() const noexcept { return _pointee; }

    friend bool operator==(RCBasePtr const &pointer, std::nullptr_t) noexcept
    {
        return !pointer._pointee;
    }
    /// Compares the addresses of the objects.
    template <class U>
    friend bool operator==(RCBasePtr const &a, RCBasePtr<U> const &b) noexcept
    {
        return a.get() == b.get();
    }
    template <class U>
    friend auto operator<=>(RCBasePtr const &a, RCBasePtr<U> const &b) noexcept
    {
        return std::compare_three_way()(a.get(), b.get());
    }

protected:
    constexpr RCBasePtr() noexcept : _pointee(nullptr) {}
    /// Takes a reference to `pointee`, which may be null.
    RCBasePtr(T *pointee) : _pointee(pointee)
    {
        if (_pointee)
            _pointee->incReferenceCount();
    }
    RCBasePtr(RCBasePtr const &other) : RCBasePtr(other._pointee) {}
    RCBasePtr(RCBasePtr &&other) noexcept : _pointee(std::exchange(other._pointee, nullptr)) {}
    /// Takes the reference of a pointer to a related class, which becomes null.
    template <class U>
    RCBasePtr(RCBasePtr<U> &&other) noexcept : _pointee(other.giveUp())
    {}
    ~RCBasePtr() noexcept(false)
    {
        if (_pointee)
            _pointee->decReferenceCount();
    }
    RCBasePtr &operator=(RCBasePtr const &other)
    {
        assign(other._pointee);
        return *this;
    }
    RCBasePtr &operator=(RCBasePtr &&other)
    {
        if (this != &other)
            replace(other.giveUp());
        return *this;
    }

    /// Releases the old object, then takes the new one, even if the old one's destructor throws.
    void assign(T *newValue)
    {
        if (newValue != _pointee)
            replace(newValue, [newValue] {
                if (newValue)
                    newValue->incReferenceCount();
            });
    }

    /// Returns the raw pointer. Throws `RCEx::ExNullPtr` if it is null.
    T *checked() const
    {
        if (!_pointee) [[unlikely]]
            RCExUtil::throwExNullPtr();
        return _pointee;
    }

    /// Returns the number of references to the object. Other threads may change it at any time. The
    /// pointer must not be null.
    long getReferenceCount() const { return _pointee->getReferenceCount(); }

private:
    template <class U>
    friend class RCBasePtr;

    T *giveUp() noexcept { return std::exchange(_pointee, nullptr); }
    /// Replaces the object. `count` counts the new reference, unless another pointer has passed it
    /// on.
    template <class Count>
    void replace(T *newValue, Count const &count)
    {
        if (_pointee) {
            try {
                _pointee->decReferenceCount();
            } catch (...) {
                _pointee = newValue;
                count();
                throw;
            }
        }
        _pointee = newValue;
        count();
    }
    void replace(T *newValue)
    {
        replace(newValue, [] {});
    }

    T *_pointee;
};

/// True if a pointer to a `U` can be converted to a pointer to a `T`.
template <class U, class T>
concept RCRelated = !std::same_as<U, T> && std::convertible_to<U *, T *>;

} // namespace Zv
