// Iterators that hide the container.
#pragma once

#include "resmgt/containers/iteratorImp.h"
#include "resmgt/smartPtrs/rcPvtEngPtr.h"

#include <cstddef>
#include <iterator>

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
template <class T>
class ConstIterator
{
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = T;
    using difference_type = std::ptrdiff_t;
    using pointer = T *;
    using reference = T &;

    /// Of no container.
    ConstIterator() = default;
    /// Shares the engine: a new one, as a rule.
    explicit ConstIterator(ConstIteratorImp<T> *imp) : _imp(imp) {}
    ConstIterator(ConstIterator const &) = default;
    ConstIterator(ConstIterator &&) noexcept = default;
    ConstIterator &operator=(ConstIterator const &) = default;
    ConstIterator &operator=(ConstIterator &&) noexcept = default;

    /// The element. Behind the last one: throws `IteratorEx::ExOutOfRange`.
    virtual T const &operator*() const { return item(); }
    virtual T const &item() const { return read().item(); }
    /// Goes to the first element; in an empty container to the end.
    virtual void first() { write().first(); }
    /// Goes to the last element; in an empty container to the end.
    virtual void last() { write().last(); }
    /// Goes behind the last element.
    virtual void end() { write().end(); }
    virtual bool atEnd() const { return read().atEnd(); }
    virtual bool atBegin() const { return read().atBegin(); }
    /// Throws `IteratorEx::ExOutOfRange` at the end.
    virtual ConstIterator &next()
    {
        write().next();
        return *this;
    }
    /// Throws `IteratorEx::ExOutOfRange` at the beginning.
    virtual ConstIterator &previous()
    {
        write().previous();
        return *this;
    }
    /// The number of elements in the container.
    virtual std::size_t getCardinality() const { return read().getCardinality(); }
    virtual ConstIterator &operator++() { return next(); }
    virtual ConstIterator operator++(int)
    {
        ConstIterator former(*this);
        next();
        return former;
    }
    virtual ConstIterator &operator--() { return previous(); }
    virtual ConstIterator operator--(int)
    {
        ConstIterator former(*this);
        previous();
        return former;
    }
    virtual ~ConstIterator() noexcept = default;

    T const *operator->() const { return &item(); }

    /// At the same position of the same container. Unlike all other operations they take handles without an engine.
    friend bool operator==(ConstIterator const &left, ConstIterator const &right)
    {
        if (left._imp.isNull() || right._imp.isNull())
            return left._imp.isNull() && right._imp.isNull();
        return left.read().isAt(right.read());
    }
    friend bool operator==(ConstIterator const &iterator, std::default_sentinel_t)
    {
        return iterator.atEnd();
    }

private:
    ConstIteratorImp<T> const &read() const { return *_imp; }
    /// The engine of this handle alone.
    ConstIteratorImp<T> &write() { return _imp.write(); }

    RCPvtEngPtr<ConstIteratorImp<T>> _imp;
};

/// The same for elements that may be changed.
template <class T>
class Iterator
{
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = T;
    using difference_type = std::ptrdiff_t;
    using pointer = T *;
    using reference = T &;

    Iterator() = default;
    explicit Iterator(IteratorImp<T> *imp) : _imp(imp) {}
    Iterator(Iterator const &) = default;
    Iterator(Iterator &&) noexcept = default;
    Iterator &operator=(Iterator const &) = default;
    Iterator &operator=(Iterator &&) noexcept = default;

    virtual T &operator*() const { return item(); }
    virtual T &item() const { return read().item(); }
    virtual void first() { write().first(); }
    virtual void last() { write().last(); }
    virtual void end() { write().end(); }
    virtual bool atEnd() const { return read().atEnd(); }
    virtual bool atBegin() const { return read().atBegin(); }
    virtual Iterator &next()
    {
        write().next();
        return *this;
    }
    virtual Iterator &previous()
    {
        write().previous();
        return *this;
    }
    virtual std::size_t getCardinality() const { return read().getCardinality(); }
    virtual Iterator &operator++() { return next(); }
    virtual Iterator operator++(int)
    {
        Iterator former(*this);
        next();
        return former;
    }
    virtual Iterator &operator--() { return previous(); }
    virtual Iterator operator--(int)
    {
        Iterator former(*this);
        previous();
        return former;
    }
    virtual ~Iterator() noexcept = default;

    T *operator->() const { return &item(); }

    friend bool operator==(Iterator const &left, Iterator const &right)
    {
        if (left._imp.isNull() || right._imp.isNull())
            return left._imp.isNull() && right._imp.isNull();
        return left.read().isAt(right.read());
    }
    friend bool operator==(Iterator const &iterator, std::default_sentinel_t)
    {
        return iterator.atEnd();
    }

private:
    IteratorImp<T> const &read() const { return *_imp; }
    IteratorImp<T> &write() { return _imp.write(); }

    RCPvtEngPtr<IteratorImp<T>> _imp;
};

} // namespace Zv
