// The engines behind iterators.
#pragma once

#include "resmgt/smartPtrs/rcBase.h"

#include <cstddef>

namespace Zv {

/// What moves behind an iterator: a position in some container. Copies of the handle share it until one of them moves,
/// which clones it first. Derive from it to hand out the elements of a container of another kind.
template <class Element>
class BasicIteratorImp : public RCBase<LkCounter<long>>
{
public:
    /// The element at the position. At the end there is none: throws `IteratorEx::ExOutOfRange`.
    virtual Element &item() const = 0;
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
    virtual bool isAt(BasicIteratorImp const &other) const = 0;
    /// A new engine at the same position.
    virtual BasicIteratorImp *clone() const = 0;

protected:
    BasicIteratorImp() = default;
    BasicIteratorImp(BasicIteratorImp const &) = default;
    BasicIteratorImp &operator=(BasicIteratorImp const &) = delete;
    ~BasicIteratorImp() noexcept(false) override = default;
};

/// Behind a `ConstIterator`.
template <class T>
using ConstIteratorImp = BasicIteratorImp<T const>;

/// Behind an `Iterator`, whose elements may be changed.
template <class T>
using IteratorImp = BasicIteratorImp<T>;

} // namespace Zv
