// The engines behind iterators.
#pragma once

#include "resmgt/smartPtrs/rcBase.h"

#include <cstddef>

namespace Zv {

/// What moves behind a `ConstIterator`: a position in some container. Copies of the handle share it until one of them
/// moves, which clones it first. Derive from it to hand out the elements of a container of another kind.
template <class T>
class ConstIteratorImp : public RCBase<LkCounter<long>>
{
public:
    /// The element at the position. At the end there is none: throws `IteratorEx::ExOutOfRange`.
    virtual T const &item() const = 0;
    /// Goes to the first element; in an empty container to the end.
    virtual void first() = 0;
    /// Goes to the last element; in an empty container to the end.
    virtual void last() = 0;
    /// Goes behind the last element.
    virtual void end() = 0;
    virtual bool atEnd() const = 0;
    virtual bool atBegin() const = 0;
    /// Throws `IteratorEx::ExOutOfRange` at the end.
    virtual void next() = 0;
    /// Throws `IteratorEx::ExOutOfRange` at the beginning.
    virtual void previous() = 0;
    /// The number of elements.
    virtual std::size_t getCardinality() const = 0;
    /// True for the same position in the same container.
    virtual bool isAt(ConstIteratorImp const &other) const = 0;
    /// A new engine at the same position.
    virtual ConstIteratorImp *clone() const = 0;

protected:
    ConstIteratorImp() = default;
    ConstIteratorImp(ConstIteratorImp const &) = default;
    ConstIteratorImp &operator=(ConstIteratorImp const &) = delete;
    ~ConstIteratorImp() noexcept(false) override = default;
};

/// The same behind an `Iterator`, whose elements may be changed.
template <class T>
class IteratorImp : public RCBase<LkCounter<long>>
{
public:
    virtual T &item() const = 0;
    virtual void first() = 0;
    virtual void last() = 0;
    virtual void end() = 0;
    virtual bool atEnd() const = 0;
    virtual bool atBegin() const = 0;
    virtual void next() = 0;
    virtual void previous() = 0;
    virtual std::size_t getCardinality() const = 0;
    virtual bool isAt(IteratorImp const &other) const = 0;
    virtual IteratorImp *clone() const = 0;

protected:
    IteratorImp() = default;
    IteratorImp(IteratorImp const &) = default;
    IteratorImp &operator=(IteratorImp const &) = delete;
    ~IteratorImp() noexcept(false) override = default;
};

} // namespace Zv
