#include "resmgt/xml/xmlElement.h"

#include "resmgt/containers/iteratorEx.h"
#include "resmgt/containers/iteratorSTL.h"
#include "resmgt/smartPtrs/rcProxy.h"
#include "resmgt/xml/xmlEx.h"
#include "zvbase/containers.h"
#include "zvbase/failures.h"

#include <cstdlib>
#include <deque>
#include <new>
#include <sstream>
#include <utility>

namespace Zv {

namespace {

using Elements = std::vector<UnownedObjPtr<XmlElement>>;

/// What most elements have at most.
constexpr std::size_t FEW_ATTRIBUTES = 4;
/// More than these are not looked through one by one.
constexpr std::size_t MANY_ATTRIBUTES = 16;

template <class X>
LiString format(X value)
{
    std::ostringstream stream;
    stream << value;
    return LiString(stream);
}

/// The guards of the elements that are being written, the innermost last. They go in the reverse order, and what the
/// stream throws then passes through.
class OpenGuards
{
public:
    using Guard = XmlStreamer::ElementGuard;

    OpenGuards() = default;
    OpenGuards(OpenGuards const &) = delete;
    OpenGuards &operator=(OpenGuards const &) = delete;
    ~OpenGuards() noexcept(false)
    {
        while (!_guards.empty())
            close();
    }

    Guard &open(Guard &parent, LiString const &name)
    {
        Guard &around = _guards.empty() ? parent : *innermost();
        _guards.emplace_back();
        try {
            return *::new (static_cast<void *>(_guards.back().memory)) Guard(around, name);
        } catch (...) {
            _guards.pop_back();
            throw;
        }
    }
    void close()
    {
        struct Pop
        {
            std::deque<Room> &guards;
            ~Pop() { guards.pop_back(); }
        } const pop{_guards};
        innermost()->~Guard();
    }

private:
    struct Room
    {
        alignas(Guard) std::byte memory[sizeof(Guard)];
    };

    Guard *innermost() { return std::launder(reinterpret_cast<Guard *>(_guards.back().memory)); }

    std::deque<Room> _guards; // which stay where they are
};

} // namespace

/// A position among the children of an element.
class XmlElementChildren : public IteratorImp<UnownedObjPtr<XmlElement>>
{
public:
    explicit XmlElementChildren(XmlElement const &element)
        : _element(element), _child(element._firstChild)
    {}

    UnownedObjPtr<XmlElement> &item() const override
    {
        if (atEnd())
            IteratorExUtil::throwExOutOfRange();
        return _child;
    }
    void first() override { _child = _element._firstChild; }
    void last() override { _child = _element._lastChild; }
    void end() override { _child = nullptr; }
    bool atEnd() const override { return _child.isNull(); }
    bool atBegin() const override { return _child.get() == _element._firstChild; }
    void next() override { _child = item()->_next; }
    void previous() override
    {
        if (atBegin())
            IteratorExUtil::throwExOutOfRange();
        _child = atEnd() ? _element._lastChild : _child->_previous;
    }
    std::size_t getCardinality() const override { return _element._nbChildren; }
    bool isAt(IteratorImp const &other) const override
    {
        auto const * const same = dynamic_cast<XmlElementChildren const *>(&other);
        return same && &_element == &same->_element && _child == same->_child;
    }
    XmlElementChildren *clone() const override { return new XmlElementChildren(*this); }

protected:
    XmlElementChildren(XmlElementChildren const &) = default;
    ~XmlElementChildren() noexcept(false) override = default;

private:
    XmlElement const &_element;
    UnownedObjPtr<XmlElement> mutable _child; // handed out by reference
};

/// Where the attributes of an element stand that has too many to look through.
class XmlElement::AttributeIndex
{
public:
    explicit AttributeIndex(std::vector<XmlAttribute> const &attributes)
    {
        for (std::size_t i = 0; i != attributes.size(); ++i)
            add(attributes[i].getNodeName(), i);
    }

    void add(LiString const &name, std::size_t position) { _positions.emplace(name, position); }
    XmlAttribute *find(LiString const &name, std::vector<XmlAttribute> &attributes) const
    {
        auto const found = _positions.find(name);
        return found == _positions.end() ? nullptr : &attributes[found->second];
    }

private:
    HashMap<LiString, std::size_t> _positions;
};

XmlElement::XmlElement(LiString const &name) : XmlNode(name) {}

// A child's own children become the next ones here before it goes, so that no destructor calls another one deeper down.
XmlElement::~XmlElement() noexcept(false)
{
    while (XmlElement * const child = _firstChild) {
        _firstChild = child->_next;
        if (child->_firstChild) {
            child->_lastChild->_next = _firstChild;
            _firstChild = std::exchange(child->_firstChild, nullptr);
            child->_lastChild = nullptr;
            child->_nbChildren = 0;
        }
        delete child;
    }
}

XmlAttribute *XmlElement::findAttribute(LiString const &name)
{
    if (_attributes.size() > MANY_ATTRIBUTES) {
        if (_attributeIndex.isNull())
            _attributeIndex.reset(new AttributeIndex(_attributes));
        return _attributeIndex->find(name, _attributes);
    }
    for (XmlAttribute &attribute : _attributes)
        if (attribute.isNamed(name))
            return &attribute;
    return nullptr;
}

XmlAttribute const &XmlElement::attribute(LiString const &name) const
{
    XmlAttribute const * const found = const_cast<XmlElement *>(this)->findAttribute(name);
    if (!found)
        ZV_THROW(XmlEx::ExNonExistentAttribute);
    return *found;
}

LiString XmlElement::getAttribute(LiString const &name) const
{
    return attribute(name).getValue();
}

void XmlElement::getAttribute(LiString const &name, int &value) const
{
    value = static_cast<int>(std::strtol(attribute(name).getValue().getChars(), nullptr, 10));
}

void XmlElement::getAttribute(LiString const &name, unsigned int &value) const
{
    value =
        static_cast<unsigned int>(std::strtoul(attribute(name).getValue().getChars(), nullptr, 10));
}

void XmlElement::getAttribute(LiString const &name, double &value) const
{
    value = std::strtod(attribute(name).getValue().getChars(), nullptr);
}

void XmlElement::setAttribute(LiString const &name, LiString const &value)
{
    if (XmlAttribute * const present = findAttribute(name)) {
        present->setValue(value);
        return;
    }
    // Room first: the index must not know of what is not there.
    std::size_t const position = _attributes.size();
    if (position == _attributes.capacity())
        _attributes.reserve(position == 0 ? FEW_ATTRIBUTES : 2 * position);
    if (!_attributeIndex.isNull())
        _attributeIndex->add(name, position);
    _attributes.emplace_back(name, value);
}

void XmlElement::setAttribute(LiString const &name, int value)
{
    setAttribute(name, format(value));
}

void XmlElement::setAttribute(LiString const &name, unsigned int value)
{
    setAttribute(name, format(value));
}

void XmlElement::setAttribute(LiString const &name, double value)
{
    setAttribute(name, format(value));
}

void XmlElement::removeAttribute(LiString const &name)
{
    if (XmlAttribute const * const present = findAttribute(name)) {
        _attributes.erase(_attributes.begin() + (present - _attributes.data()));
        _attributeIndex.reset();
    }
}

Iterator<UnownedObjPtr<XmlElement>> XmlElement::getChildren() const
{
    return Iterator<UnownedObjPtr<XmlElement>>(new XmlElementChildren(*this));
}

Iterator<UnownedObjPtr<XmlElement>> XmlElement::getElementsByTagName(LiString const &tag)
{
    using Holder = RCProxyShdPtr<Elements>;
    Holder const found(ObjPtr<Elements>(new Elements));
    bool const all = tag == "*";
    for (XmlElement *element = this; element;) {
        if (all || element->name() == tag)
            found->push_back(element);
        if (element->_firstChild) {
            element = element->_firstChild;
            continue;
        }
        while (element != this && !element->_next)
            element = element->_parent;
        element = element == this ? nullptr : element->_next;
    }
    return Iterator<UnownedObjPtr<XmlElement>>(new IteratorSTL<Elements, Holder>(found));
}

XmlElement &XmlElement::childOf(UnownedObjPtr<XmlElement> reference) const
{
    if (reference.isNull() || reference->_parent != this)
        ZV_THROW(XmlEx::ExChildNotFound);
    return *reference;
}

void XmlElement::link(XmlElement &child, XmlElement *next) noexcept
{
    child._parent = this;
    child._next = next;
    child._previous = next ? next->_previous : _lastChild;
    (child._previous ? child._previous->_next : _firstChild) = &child;
    (next ? next->_previous : _lastChild) = &child;
    ++_nbChildren;
}

void XmlElement::unlink(XmlElement &child) noexcept
{
    (child._previous ? child._previous->_next : _firstChild) = child._next;
    (child._next ? child._next->_previous : _lastChild) = child._previous;
    child._parent = child._previous = child._next = nullptr;
    --_nbChildren;
}

void XmlElement::appendChild(ObjPtr<XmlElement> child)
{
    link(*child, nullptr);
    static_cast<void>(child.release());
}

void XmlElement::insertBefore(ObjPtr<XmlElement> child, UnownedObjPtr<XmlElement> reference)
{
    XmlElement &next = childOf(reference);
    link(*child, &next);
    static_cast<void>(child.release());
}

void XmlElement::replaceChild(ObjPtr<XmlElement> child, UnownedObjPtr<XmlElement> reference)
{
    XmlElement &former = childOf(reference);
    link(*child, &former);
    static_cast<void>(child.release());
    unlink(former);
    delete &former;
}

void XmlElement::removeChild(UnownedObjPtr<XmlElement> reference)
{
    XmlElement &former = childOf(reference);
    unlink(former);
    delete &former;
}

void XmlElement::streamToOutput(XmlStreamer &streamer) const
{
    XmlStreamer::ElementGuard guard(streamer, name());
    streamAttributes(guard);
    streamChildren(guard);
}

void XmlElement::streamAttributes(XmlStreamer::ElementGuard &guard) const
{
    for (XmlAttribute const &attribute : _attributes)
        attribute.streamToOutput(guard);
}

void XmlElement::streamChildren(XmlStreamer::ElementGuard &guard) const
{
    OpenGuards guards;
    for (XmlElement const *element = _firstChild; element;) {
        element->streamAttributes(guards.open(guard, element->name()));
        if (element->_firstChild) {
            element = element->_firstChild;
            continue;
        }
        guards.close();
        while (!element->_next && element->_parent != this) {
            element = element->_parent;
            guards.close();
        }
        element = element->_next;
    }
}

} // namespace Zv
