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
/// An assignment lets go of the old object before it takes the new one, whether it copies, moves, or takes a raw
/// pointer or null: the old object's destructor still finds its address in the pointer, and must not copy or change it.
/// If the new object lives only through the old one, as in `p = p->next`, move it or copy it first.
///
/// Standard threads: the destructors of the counted pointers, and of all handles that consist of one, may throw. The
/// standard library's `thread`, `jthread`, `async` and `packaged_task` therefore do not compile with a lambda that
/// captures one by value. Give them a `std::function`:
///
///     thread(std::function<void()>([fifo] { fifo->flush(); }));
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
        if (this != &other)
            replace(other.giveUp());
        return *this;
    }

    /// Lets go of the old object, then takes the new one, even if the old one's end throws.
    void assign(T *newValue)
    {
        if (newValue != _pointee)
            replace(newValue, [newValue] {
                if (newValue)
                    newValue->incReferenceCount();
            });
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
    /// The only function that changes the value. `count` makes the new object's reference, unless one was given up.
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

/// A pointer to a U may stand where one to a T is asked for.
template <class U, class T>
concept RCRelated = !std::same_as<U, T> && std::convertible_to<U *, T *>;

} // namespace Zv
