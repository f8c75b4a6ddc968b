// Objects that count their references.
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkCounter.h"

namespace Zv {

template <class T>
class RCBasePtr;

namespace Detail {

inline long countOf(LkCounter<long> const &counter)
{
    return counter.getValue();
}
inline long countOf(int counter)
{
    return counter;
}

} // namespace Detail

/// The base of objects in shared ownership. `Counter` is `LkCounter<long>` for objects that threads share and `int`
/// for objects that stay in one thread.
///
/// A new object has count 0 and belongs to nobody until a counted pointer takes it; the pointer that lets go last
/// deletes it, in its own thread. A copy starts at 0 as well: counts are never copied. Only counted pointers count,
/// through pointers to const too.
///
/// The destructor may throw; whoever lets go last gets the exception.
template <class Counter>
class RCBase
{
protected:
    RCBase() noexcept : _refCount(0) {}
    RCBase(RCBase const &) noexcept : _refCount(0) {}
    RCBase &operator=(RCBase const &) noexcept { return *this; }
    virtual ~RCBase() noexcept(false);

private:
    template <class T>
    friend class RCBasePtr;

    void incReferenceCount() const { ++_refCount; }
    void decReferenceCount() const
    {
        if (--_refCount == 0)
            delete this;
    }
    long getReferenceCount() const { return Detail::countOf(_refCount); }

    Counter mutable _refCount;
};

/// An `RCBase` that decides itself what becomes of it when nobody refers to it any more: a class overrides `destroy`
/// to go back into a pool or to a manager. A new pointer may take such an object later; it starts again from count 0.
template <class Counter>
class RCBaseWithDestroy
{
protected:
    RCBaseWithDestroy() noexcept : _refCount(0) {}
    RCBaseWithDestroy(RCBaseWithDestroy const &) noexcept : _refCount(0) {}
    RCBaseWithDestroy &operator=(RCBaseWithDestroy const &) noexcept { return *this; }
    virtual ~RCBaseWithDestroy() noexcept(false);

private:
    template <class T>
    friend class RCBasePtr;

    /// Called where the count reaches 0. Deletes the object.
    virtual void destroy();

    void incReferenceCount() const { ++_refCount; }
    void decReferenceCount() const
    {
        // An object behind a pointer to const is shared as well, and dies as well.
        if (--_refCount == 0)
            const_cast<RCBaseWithDestroy *>(this)->destroy();
    }
    long getReferenceCount() const { return Detail::countOf(_refCount); }

    Counter mutable _refCount;
};

extern template class ZVRESMGT_EXPORT RCBase<LkCounter<long>>;
extern template class ZVRESMGT_EXPORT RCBase<int>;
extern template class ZVRESMGT_EXPORT RCBaseWithDestroy<LkCounter<long>>;
extern template class ZVRESMGT_EXPORT RCBaseWithDestroy<int>;

} // namespace Zv
