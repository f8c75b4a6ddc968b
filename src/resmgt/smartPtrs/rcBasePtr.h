// What all counted pointers have in common.
#pragma once

#include "zvbase/rcEx.h"

#include <compare>
#include <concepts>
#include <cstddef>
#include <functional>
#include <utility>

namespace Zv {

/// The base of the counted pointers: one word, null when empty, which counts for as long as it points.
///
/// Two threads may share the object, but not the pointer: each has its own. A copy costs one interlocked operation, a
/// move none. Letting go of the last reference destroys the object there and then; what its destructor throws comes
/// out of the assignment or the destructor that let go, and an assignment has taken its new value all the same.
///
/// An assignment lets go of the old object before it takes the new one. Where the new one lives only through the old
/// one, as in `p = p->next`, move it or copy it first.
template <class T>
class RCBasePtr
{
public:
    using element_type = T;

    /// The raw pointer; it does not count.
    T *get() const noexcept { return _pointee; }
    bool isNull() const noexcept { return !_pointee; }
    explicit operator bool() const noexcept { return _pointee; }

    friend bool operator==(RCBasePtr const &pointer, std::nullptr_t) noexcept
    {
        return !pointer._pointee;
    }
    /// By address.
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
    RCBasePtr(T *pointee) : _pointee(pointee)
    {
        if (_pointee)
            _pointee->incReferenceCount();
    }
    RCBasePtr(RCBasePtr const &other) : RCBasePtr(other._pointee) {}
    RCBasePtr(RCBasePtr &&other) noexcept : _pointee(std::exchange(other._pointee, nullptr)) {}
    /// Takes the reference over that a pointer to a related type gave up.
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
        if (this != &other) {
            T * const former = std::exchange(_pointee, other.giveUp());
            if (former)
                former->decReferenceCount();
        }
        return *this;
    }

    /// The one place where a value changes: lets go of the old object, then takes the new one, also where the old
    /// one's end throws.
    void assign(T *newValue)
    {
        if (newValue == _pointee)
            return;
        if (_pointee) {
            try {
                _pointee->decReferenceCount();
            } catch (...) {
                take(newValue);
                throw;
            }
        }
        take(newValue);
    }

    /// The pointer, or `RCEx::ExNullPtr`.
    T *checked() const
    {
        if (!_pointee) [[unlikely]]
            RCExUtil::throwExNullPtr();
        return _pointee;
    }

    /// References to the object; true at the moment of the reading. Not for null.
    long getReferenceCount() const { return _pointee->getReferenceCount(); }

private:
    template <class U>
    friend class RCBasePtr;

    T *giveUp() noexcept { return std::exchange(_pointee, nullptr); }
    void take(T *newValue)
    {
        _pointee = newValue;
        if (_pointee)
            _pointee->incReferenceCount();
    }

    T *_pointee;
};

/// A pointer to a U may stand where one to a T is asked for.
template <class U, class T>
concept RCRelated = !std::same_as<U, T> && std::convertible_to<U *, T *>;

} // namespace Zv
