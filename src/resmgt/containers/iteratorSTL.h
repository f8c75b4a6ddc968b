// Engines over standard containers.
#pragma once

#include "resmgt/containers/iteratorEx.h"
#include "resmgt/containers/iteratorImp.h"
#include "zvbase/rcEx.h"

#include <cstddef>
#include <iterator>
#include <type_traits>

namespace Zv {

namespace Detail {

/// A position in a container. The holder is a raw pointer, whose owner keeps the container and does not change it
/// while the position is used, or an `RCProxyShdPtr`, which keeps it itself.
template <class Container, class ContainerHolder, class Position>
class StlPosition
{
public:
    explicit StlPosition(ContainerHolder const &holder)
        : _holder(holder), _position(container().begin())
    {}

    decltype(auto) item() const
    {
        if (atEnd())
            IteratorExUtil::throwExOutOfRange();
        return *_position;
    }
    void first() { _position = container().begin(); }
    void last()
    {
        end();
        if (!atBegin())
            --_position;
    }
    void end() { _position = container().end(); }
    bool atEnd() const { return _position == Position(container().end()); }
    bool atBegin() const { return _position == Position(container().begin()); }
    void next()
    {
        if (atEnd())
            IteratorExUtil::throwExOutOfRange();
        ++_position;
    }
    void previous()
    {
        if (atBegin())
            IteratorExUtil::throwExOutOfRange();
        --_position;
    }
    std::size_t getCardinality() const { return container().size(); }
    bool isAt(StlPosition const &other) const
    {
        return &container() == &other.container() && _position == other._position;
    }

private:
    auto &container() const
    {
        if constexpr (std::is_pointer_v<ContainerHolder>) {
            if (!_holder)
                RCExUtil::throwExNullPtr();
        }
        return *_holder;
    }

    ContainerHolder _holder;
    Position _position;
};

} // namespace Detail

/// The engine over a standard container that is not to be changed.
template <class Container, class ContainerHolder = Container const *>
class ConstIteratorSTL : public ConstIteratorImp<typename Container::value_type>
{
public:
    using Base = ConstIteratorImp<typename Container::value_type>;

    /// Stands at the first element. A null holder throws `RCEx::ExNullPtr`.
    explicit ConstIteratorSTL(ContainerHolder const &holder) : _position(holder) {}

    typename Container::value_type const &item() const override { return _position.item(); }
    void first() override { _position.first(); }
    void last() override { _position.last(); }
    void end() override { _position.end(); }
    bool atEnd() const override { return _position.atEnd(); }
    bool atBegin() const override { return _position.atBegin(); }
    void next() override { _position.next(); }
    void previous() override { _position.previous(); }
    std::size_t getCardinality() const override { return _position.getCardinality(); }
    bool isAt(Base const &other) const override
    {
        auto const * const same = dynamic_cast<ConstIteratorSTL const *>(&other);
        return same && _position.isAt(same->_position);
    }
    ConstIteratorSTL *clone() const override { return new ConstIteratorSTL(*this); }

protected:
    ConstIteratorSTL(ConstIteratorSTL const &) = default;
    ~ConstIteratorSTL() noexcept(false) override = default;

private:
    Detail::StlPosition<Container, ContainerHolder, typename Container::const_iterator> _position;
};

/// The engine over a standard container whose elements may be changed.
template <class Container, class ContainerHolder = Container *>
class IteratorSTL : public IteratorImp<typename Container::value_type>
{
public:
    using Base = IteratorImp<typename Container::value_type>;

    /// Stands at the first element. A null holder throws `RCEx::ExNullPtr`.
    explicit IteratorSTL(ContainerHolder const &holder) : _position(holder) {}

    typename Container::value_type &item() const override { return _position.item(); }
    void first() override { _position.first(); }
    void last() override { _position.last(); }
    void end() override { _position.end(); }
    bool atEnd() const override { return _position.atEnd(); }
    bool atBegin() const override { return _position.atBegin(); }
    void next() override { _position.next(); }
    void previous() override { _position.previous(); }
    std::size_t getCardinality() const override { return _position.getCardinality(); }
    bool isAt(Base const &other) const override
    {
        auto const * const same = dynamic_cast<IteratorSTL const *>(&other);
        return same && _position.isAt(same->_position);
    }
    IteratorSTL *clone() const override { return new IteratorSTL(*this); }

protected:
    IteratorSTL(IteratorSTL const &) = default;
    ~IteratorSTL() noexcept(false) override = default;

private:
    Detail::StlPosition<Container, ContainerHolder, typename Container::iterator> _position;
};

} // namespace Zv
