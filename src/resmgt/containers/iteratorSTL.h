// Iterator engines for standard containers (applications and device writers).
#pragma once

#include "resmgt/containers/iterator.h"
#include "resmgt/containers/iteratorEx.h"
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

/// The engine of an iterator over a standard container. The elements of a const container are
/// const. Use it as `ConstIteratorSTL` or `IteratorSTL`.
///
/// The container must not be changed while the engine is used.
///
///     #include <list>
///
///     std::list<int> numbers{1, 2, 3};
///     Zv::Iterator<int> iterator(new Zv::IteratorSTL<std::list<int>>(&numbers));
///     *iterator = 7;
///
/// **Owns**: if the holder is an `RCProxyShdPtr`, the engine shares the container. If it is a raw
/// pointer, the container must outlive the engine and its clones.
template <class Container, class ContainerHolder>
class BasicIteratorSTL : public BasicIteratorImp<Detail::ElementOf<Container>>
{
public:
    /// The class of the elements. It is `const` if the container is.
    using Element = Detail::ElementOf<Container>;

    /// The position is the first element. Throws `RCEx::ExNullPtr` if the holder is null.
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
    /// Returns true if `other` is an engine of this class, on the same container and at the same
    /// position.
    bool isAt(BasicIteratorImp<Element> const &other) const override
    {
        auto const * const same = dynamic_cast<BasicIteratorSTL const *>(&other);
        return same && &container() == &same->container() && _position == same->_position;
    }
    [[nodiscard]] BasicIteratorSTL *clone() const override { return new BasicIteratorSTL(*this); }

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

/// The engine of an iterator over a container whose elements cannot be changed.
template <class Container, class ContainerHolder = Container const *>
using ConstIteratorSTL = BasicIteratorSTL<Container const, ContainerHolder>;

/// The engine of an iterator over a container whose elements may be changed.
template <class Container, class ContainerHolder = Container *>
using IteratorSTL = BasicIteratorSTL<Container, ContainerHolder>;

} // namespace Zv
