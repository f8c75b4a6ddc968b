// Iterators that hide the container, and the interface of their engines (applications and device
// writers).
#pragma once

#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcPvtEngPtr.h"

#include <cstddef>
#include <string_view> // the tags of iterators. <iterator> brings the streams as well
#include <type_traits>

namespace Zv {

/// The engine of an iterator: a position in a container. Use `BasicIteratorSTL` for a standard
/// container. Derive from this class for any other container. Copies of an iterator share the
/// engine until one of them moves, which clones the engine first.
///
///     class Countdown : public Zv::ConstIteratorImp<int>
///     {
///     public:
///         int const &item() const override { return _value; }
///         void first() override { _value = 9; }
///         void last() override { _value = 1; }
///         void end() override { _value = 0; }
///         bool atEnd() const override { return _value == 0; }
///         bool atBegin() const override { return _value == 9; }
///         void next() override { --_value; }
///         void previous() override { ++_value; }
///         std::size_t getCardinality() const override { return 9; }
///         bool isAt(Zv::ConstIteratorImp<int> const &other) const override
///         {
///             return other.item() == _value;
///         }
///         Countdown *clone() const override { return new Countdown(*this); }
///
///     private:
///         int _value = 9;
///     };
///
/// **Threads**: the library calls an engine on the threads of the iterators that share it. Several
/// threads may call its const operations at the same time. The others are called only while a
/// single iterator has the engine.
template <class Element>
class BasicIteratorImp : public RCBase<LkCounter<long>>
{
public:
    /// Returns the element at the position. Throws `IteratorEx::ExOutOfRange` at the end.
    virtual Element &item() const = 0;
    /// Goes to the first element, or to the end if the container is empty.
    virtual void first() = 0;
    /// Goes to the last element, or to the end if the container is empty.
    virtual void last() = 0;
    /// Goes behind the last element.
    virtual void end() = 0;
    /// Returns true behind the last element.
    virtual bool atEnd() const = 0;
    /// Returns true at the first element, and in an empty container.
    virtual bool atBegin() const = 0;
    /// Goes to the next element. Throws `IteratorEx::ExOutOfRange` at the end.
    virtual void next() = 0;
    /// Goes to the previous element. Throws `IteratorEx::ExOutOfRange` at the beginning.
    virtual void previous() = 0;
    /// Returns the number of elements in the container.
    virtual std::size_t getCardinality() const = 0;
    /// Returns true if both engines have the same position in the same container.
    virtual bool isAt(BasicIteratorImp const &other) const = 0;
    /// Returns a new engine at the same position. The caller owns it.
    [[nodiscard]] virtual BasicIteratorImp *clone() const = 0;

protected:
    BasicIteratorImp() = default;
    BasicIteratorImp(BasicIteratorImp const &) = default;
    BasicIteratorImp &operator=(BasicIteratorImp const &) = delete;
    ~BasicIteratorImp() noexcept(false) override = default;
};

/// The engine of a `ConstIterator`.
template <class T>
using ConstIteratorImp = BasicIteratorImp<T const>;

/// The engine of an `Iterator`, whose elements may be changed.
template <class T>
using IteratorImp = BasicIteratorImp<T>;

/// Walks through the elements of a container without showing the class of the container. Each copy
/// has its own position. Use it as `ConstIterator<T>` or `Iterator<T>`.
///
///     #include <vector>
///
///     int addAll(Zv::ConstIterator<int> numbers)
///     {
///         int sum = 0;
///         for (numbers.first(); !numbers.atEnd(); ++numbers)
///             sum += numbers.item();
///         return sum;
///     }
///
///     int addThree()
///     {
///         std::vector<int> const numbers{1, 2, 3};
///         return addAll(
///             Zv::ConstIterator<int>(new Zv::ConstIteratorSTL<std::vector<int>>(&numbers)));
///     }
///
/// It is an input iterator for the standard algorithms. A copy at `end()`, or
/// `std::default_sentinel`, ends the range. The destructor does not throw, because the algorithms
/// do not allow it.
///
/// **Threads**: one thread at a time. Different threads may use different copies.
///
/// **Throws**: all operations but the comparison with another iterator throw `RCEx::ExNullPtr` if
/// the iterator has no engine.
template <class Element>
class BasicIterator
{
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = std::remove_const_t<Element>;
    using difference_type = std::ptrdiff_t;
    using pointer = value_type *;
    using reference = value_type &;

    /// Constructs an iterator without an engine.
    BasicIterator() = default;
    /// Shares the engine, which is usually a new one.
    explicit BasicIterator(BasicIteratorImp<Element> *imp) : _imp(imp) {}
    BasicIterator(BasicIterator const &) = default;
    BasicIterator(BasicIterator &&) noexcept = default;
    BasicIterator &operator=(BasicIterator const &) = default;
    BasicIterator &operator=(BasicIterator &&) noexcept = default;

    /// Returns the element. Throws `IteratorEx::ExOutOfRange` at the end.
    virtual Element &operator*() const { return item(); }
    /// Returns the element. Throws `IteratorEx::ExOutOfRange` at the end.
    virtual Element &item() const { return read().item(); }
    /// Goes to the first element, or to the end if the container is empty.
    virtual void first() { write().first(); }
    /// Goes to the last element, or to the end if the container is empty.
    virtual void last() { write().last(); }
    /// Goes behind the last element.
    virtual void end() { write().end(); }
    /// Returns true behind the last element.
    virtual bool atEnd() const { return read().atEnd(); }
    /// Returns true at the first element, and in an empty container.
    virtual bool atBegin() const { return read().atBegin(); }
    /// Goes to the next element. Throws `IteratorEx::ExOutOfRange` at the end.
    virtual BasicIterator &next()
    {
        write().next();
        return *this;
    }
    /// Goes to the previous element. Throws `IteratorEx::ExOutOfRange` at the beginning.
    virtual BasicIterator &previous()
    {
        write().previous();
        return *this;
    }
    /// Returns the number of elements in the container.
    virtual std::size_t getCardinality() const { return read().getCardinality(); }
    /// As `next`.
    virtual BasicIterator &operator++() { return next(); }
    /// As `next`. Returns a copy with the former position.
    virtual BasicIterator operator++(int)
    {
        BasicIterator former(*this);
        next();
        return former;
    }
    /// As `previous`.
    virtual BasicIterator &operator--() { return previous(); }
    /// As `previous`. Returns a copy with the former position.
    virtual BasicIterator operator--(int)
    {
        BasicIterator former(*this);
        previous();
        return former;
    }
    virtual ~BasicIterator() noexcept = default;

    /// Returns the address of the element. Throws `IteratorEx::ExOutOfRange` at the end.
    Element *operator->() const { return &item(); }

    /// Returns true if both have the same position in the same container, or both have no engine.
    friend bool operator==(BasicIterator const &left, BasicIterator const &right)
    {
        if (left._imp.isNull() || right._imp.isNull())
            return left._imp.isNull() && right._imp.isNull();
        return left.read().isAt(right.read());
    }
    /// Returns true at the end.
    friend bool operator==(BasicIterator const &iterator, std::default_sentinel_t)
    {
        return iterator.atEnd();
    }

private:
    BasicIteratorImp<Element> const &read() const { return *_imp; }
    /// Returns the engine for writing. It is not shared with another iterator.
    BasicIteratorImp<Element> &write() { return _imp.write(); }

    RCPvtEngPtr<BasicIteratorImp<Element>> _imp;
};

/// Walks through elements that cannot be changed.
template <class T>
using ConstIterator = BasicIterator<T const>;

/// Walks through elements that may be changed.
template <class T>
using Iterator = BasicIterator<T>;

} // namespace Zv
