// Iterators that hide the container.
#pragma once

#include "resmgt/containers/iteratorImp.h"
#include "resmgt/smartPtrs/rcPvtEngPtr.h"

#include <cstddef>
#include <iterator>
#include <type_traits>

namespace Zv {

/// Walks through the elements of a container that its owner does not show. A handle of the size of a pointer and a
/// table: copies share one engine until one of them moves, so each copy keeps its own position.
///
///     for (ConstIterator<T> i = ...; !i.atEnd(); ++i)
///         use(i.item());
///
/// It serves the standard algorithms as an input iterator: a copy that was sent to `end()`, or
/// `std::default_sentinel`, ends the range. One handle is for one thread at a time; copies may go to other threads.
/// All operations of a handle without an engine throw `RCEx::ExNullPtr`.
///
/// Its destructor does not throw: the algorithms forbid it.
template <class Element>
class BasicIterator
{
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = std::remove_const_t<Element>;
    using difference_type = std::ptrdiff_t;
    using pointer = value_type *;
    using reference = value_type &;

    /// Of no container.
    BasicIterator() = default;
    /// Shares the engine: a new one, as a rule.
    explicit BasicIterator(BasicIteratorImp<Element> *imp) : _imp(imp) {}
    BasicIterator(BasicIterator const &) = default;
    BasicIterator(BasicIterator &&) noexcept = default;
    BasicIterator &operator=(BasicIterator const &) = default;
    BasicIterator &operator=(BasicIterator &&) noexcept = default;

    /// The element. Behind the last one: throws `IteratorEx::ExOutOfRange`.
    virtual Element &operator*() const { return item(); }
    virtual Element &item() const { return read().item(); }
    /// Goes to the first element; in an empty container to the end.
    virtual void first() { write().first(); }
    /// Goes to the last element; in an empty container to the end.
    virtual void last() { write().last(); }
    /// Goes behind the last element.
    virtual void end() { write().end(); }
    virtual bool atEnd() const { return read().atEnd(); }
    virtual bool atBegin() const { return read().atBegin(); }
    /// Throws `IteratorEx::ExOutOfRange` at the end.
    virtual BasicIterator &next()
    {
        write().next();
        return *this;
    }
    /// Throws `IteratorEx::ExOutOfRange` at the beginning.
    virtual BasicIterator &previous()
    {
        write().previous();
        return *this;
    }
    /// The number of elements in the container.
    virtual std::size_t getCardinality() const { return read().getCardinality(); }
    virtual BasicIterator &operator++() { return next(); }
    virtual BasicIterator operator++(int)
    {
        BasicIterator former(*this);
        next();
        return former;
    }
    virtual BasicIterator &operator--() { return previous(); }
    virtual BasicIterator operator--(int)
    {
        BasicIterator former(*this);
        previous();
        return former;
    }
    virtual ~BasicIterator() noexcept = default;

    Element *operator->() const { return &item(); }

    /// At the same position of the same container. Unlike all other operations they take handles without an engine.
    friend bool operator==(BasicIterator const &left, BasicIterator const &right)
    {
        if (left._imp.isNull() || right._imp.isNull())
            return left._imp.isNull() && right._imp.isNull();
        return left.read().isAt(right.read());
    }
    friend bool operator==(BasicIterator const &iterator, std::default_sentinel_t)
    {
        return iterator.atEnd();
    }

private:
    BasicIteratorImp<Element> const &read() const { return *_imp; }
    /// The engine of this handle alone.
    BasicIteratorImp<Element> &write() { return _imp.write(); }

    RCPvtEngPtr<BasicIteratorImp<Element>> _imp;
};

/// Walks through elements that stay as they are.
template <class T>
using ConstIterator = BasicIterator<T const>;

/// Walks through elements that may be changed.
template <class T>
using Iterator = BasicIterator<T>;

} // namespace Zv
