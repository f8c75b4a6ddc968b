// Engines over standard containers.
#pragma once

#include "resmgt/containers/iteratorEx.h"
#include "resmgt/containers/iteratorImp.h"
#include "zvbase/rcEx.h"

#include <cstddef>
#include <type_traits>
#include <utility>

namespace Zv {

namespace Detail {

template <class Container>
using ElementOf =
    std::conditional_t<std::is_const_v<Container>, typename Container::value_type const,
                       typename Container::value_type>;

} // namespace Detail

/// The engine over a standard container; over a const one its elements are const as well. The holder is a raw pointer,
/// whose owner keeps the container and does not change it while the engine is used, or an `RCProxyShdPtr`, which keeps
/// it itself.
template <class Container, class ContainerHolder>
class BasicIteratorSTL : public BasicIteratorImp<Detail::ElementOf<Container>>
{
public:
    using Element = Detail::ElementOf<Container>;

    /// Stands at the first element. A null holder throws `RCEx::ExNullPtr`.
    explicit BasicIteratorSTL(ContainerHolder const &holder)
        : _holder(holder), _position(container().begin())
    {}

    Element &item() const override
    {
        if (atEnd())
            IteratorExUtil::throwExOutOfRange();
        return *_position;
    }
    void first() override { _position = container().begin(); }
    void last() override
    {
        end();
        if (!atBegin())
            --_position;
    }
    void end() override { _position = container().end(); }
    bool atEnd() const override { return _position == container().end(); }
    bool atBegin() const override { return _position == container().begin(); }
    void next() override
    {
        if (atEnd())
            IteratorExUtil::throwExOutOfRange();
        ++_position;
    }
    void previous() override
    {
        if (atBegin())
            IteratorExUtil::throwExOutOfRange();
        --_position;
    }
    std::size_t getCardinality() const override { return container().size(); }
    bool isAt(BasicIteratorImp<Element> const &other) const override
    {
        auto const * const same = dynamic_cast<BasicIteratorSTL const *>(&other);
        return same && &container() == &same->container() && _position == same->_position;
    }
    BasicIteratorSTL *clone() const override { return new BasicIteratorSTL(*this); }

protected:
    BasicIteratorSTL(BasicIteratorSTL const &) = default;
    ~BasicIteratorSTL() noexcept(false) override = default;

private:
    Container &container() const
    {
        if constexpr (std::is_pointer_v<ContainerHolder>) {
            if (!_holder)
                RCExUtil::throwExNullPtr();
        }
        return *_holder;
    }

    ContainerHolder _holder;
    decltype(std::declval<Container &>().begin()) _position;
};

/// The engine over a container that is not to be changed.
template <class Container, class ContainerHolder = Container const *>
using ConstIteratorSTL = BasicIteratorSTL<Container const, ContainerHolder>;

/// The engine over a container whose elements may be changed.
template <class Container, class ContainerHolder = Container *>
using IteratorSTL = BasicIteratorSTL<Container, ContainerHolder>;

} // namespace Zv
