// Base classes of objects that count their references (applications).
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

/// Base of objects with shared ownership. `Counter` is `LkCounter<long>` if threads share the
/// object, and `int` if only one thread uses it.
///
///     class Clip : public Zv::RCBase<Zv::LkCounter<long>>
///     {
///     public:
///         explicit Clip(int length) : _length(length) {}
///         int getLength() const { return _length; }
///
///     private:
///         int _length;
///     };
///
///     int measure()
///     {
///         Zv::RCShdPtr<Clip> const clip = Zv::makeShd<Clip>(25);
///         return clip->getLength();
///     }
///
/// A new object has count 0 and no owner. Counted pointers (`RCBasePtr`) count their references.
/// The pointer that releases the last one deletes the object, on its own thread. A copy of an
/// object has count 0, too.
///
/// **Threads**: with `LkCounter<long>`, any threads may copy and release pointers to the object at
/// the same time. The count protects nothing else.
///
/// **Throws**: the destructor may throw. The pointer that releases the last reference passes the
/// exception on.
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

/// Base of objects with shared ownership that decide themselves what happens when the last
/// reference is released. As `RCBase`, but a derived class can override `destroy`, for example to
/// return the object to a pool. A pointer may take such an object again later. It then starts from
/// count 0.
///
///     class Region : public Zv::RCBaseWithDestroy<int>
///     {
///     private:
///         void destroy() override {} // its manager keeps it
///     };
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

    /// Called when the count becomes 0. This implementation deletes the object.
    virtual void destroy();

    void incReferenceCount() const { ++_refCount; }
    void decReferenceCount() const
    {
        // A pointer to const owns the object, too.
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
