#include "resmgt/xml/xmlElement.h"

#include "resmgt/containers/iteratorEx.h"
#include "resmgt/containers/iteratorSTL.h"
#include "resmgt/smartPtrs/rcProxy.h"
#include "resmgt/xml/xmlBlocks.private.h"
#include "resmgt/xml/xmlEx.h"
#include "resmgt/xml/xmlPiece.private.h"
#include "zvbase/containers.h"
#include "zvbase/failures.h"

#include <cstdlib>
#include <sstream>
#include <utility>
#include <vector>

namespace Zv {

namespace {

using Elements = std::vector<UnownedObjPtr<XmlElement>>;

/// More than these are not looked through one by one.
constexpr std::size_t MANY_ATTRIBUTES = 16;

template <class X>
LiString format(X value)
{
    std::ostringstream stream;
    stream << value;
    return LiString(stream);
}

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
    bool isAt(IteratorImp<UnownedObjPtr<XmlElement>> const &other) const override
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

/// The attributes of an element that has too many to look through.
class XmlElement::AttributeIndex
{
public:
    explicit AttributeIndex(XmlAttribute *first)
    {
        for (XmlAttribute *attribute = first; attribute; attribute = attribute->_next)
            add(*attribute);
    }

    void add(XmlAttribute &attribute) { _attributes.emplace(attribute.getNodeName(), &attribute); }
    XmlAttribute *find(LiString const &name) const
    {
        auto const found = _attributes.find(name);
        return found == _attributes.end() ? nullptr : found->second;
    }

private:
    HashMap<LiString, XmlAttribute *> _attributes;
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
    while (XmlAttribute * const attribute = _firstAttribute) {
        _firstAttribute = attribute->_next;
        delete attribute;
    }
}

void *XmlElement::operator new(std::size_t size)
{
    return XmlBlocks::allocateAlone(size);
}

void *XmlElement::operator new(std::size_t size, XmlBlocks *blocks)
{
    return blocks ? blocks->allocate(size) : XmlBlocks::allocateAlone(size);
}

void XmlElement::operator delete(void *memory)
{
    XmlBlocks::release(memory);
}

void XmlElement::operator delete(void *memory, XmlBlocks *)
{
    XmlBlocks::release(memory);
}

XmlAttribute *XmlElement::findAttribute(LiString const &name) const
{
    if (_nbAttributes > MANY_ATTRIBUTES) {
        if (_attributeIndex.isNull())
            _attributeIndex.reset(new AttributeIndex(_firstAttribute));
        return _attributeIndex->find(name);
    }
    for (XmlAttribute *attribute = _firstAttribute; attribute; attribute = attribute->_next)
        if (attribute->isNamed(name))
            return attribute;
    return nullptr;
}

XmlAttribute const &XmlElement::attribute(LiString const &name) const
{
    XmlAttribute const * const found = findAttribute(name);
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
    value = static_cast<int>(std::strtol(attribute(name)._value.getChars(), nullptr, 10));
}

void XmlElement::getAttribute(LiString const &name, unsigned int &value) const
{
    value = static_cast<unsigned int>(std::strtoul(attribute(name)._value.getChars(), nullptr, 10));
}

void XmlElement::getAttribute(LiString const &name, double &value) const
{
    value = std::strtod(attribute(name)._value.getChars(), nullptr);
}

void XmlElement::setAttribute(LiString const &name, LiString const &value)
{
    setAttribute(name, value, nullptr);
}

void XmlElement::setAttribute(LiString const &name, LiString const &value, XmlBlocks *blocks)
{
    if (XmlAttribute * const present = findAttribute(name)) {
        present->_value.assign(value, blocks);
        return;
    }
    ObjPtr<XmlAttribute> attribute(XmlAttribute::make(name, value, blocks));
    if (!_attributeIndex.isNull())
        _attributeIndex->add(*attribute);
    (_lastAttribute ? _lastAttribute->_next : _firstAttribute) = attribute.get();
    _lastAttribute = attribute.release();
    ++_nbAttributes;
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
    XmlAttribute *previous = nullptr;
    XmlAttribute *attribute = _firstAttribute;
    while (attribute && !attribute->isNamed(name)) {
        previous = attribute;
        attribute = attribute->_next;
    }
    if (!attribute)
        return;
    _attributeIndex.reset();
    (previous ? previous->_next : _firstAttribute) = attribute->_next;
    if (attribute == _lastAttribute)
        _lastAttribute = previous;
    --_nbAttributes;
    delete attribute;
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

// What nested guards would write, in large pieces and without a call for each level.
void XmlElement::streamToOutput(XmlStreamer &streamer) const
{
    XmlStreamer::NodeGuard &document = streamer.getDocument();
    document.setContent();
    using Output = XmlPiece<4096>;
    Output output(document.getOutput());
    for (XmlElement const *element = this; element;) {
        output.addStart(element->name());
        for (XmlAttribute const *a = element->_firstAttribute; a; a = a->_next)
            output.addAttribute(Output::bytesOf(a->name()), a->_value.getChars());
        if (element->_firstChild) {
            output.addContent();
            element = element->_firstChild;
            continue;
        }
        output.addEmptyEnd();
        while (element != this && !element->_next) {
            element = element->_parent;
            output.addEnd(element->name());
        }
        element = element == this ? nullptr : element->_next;
    }
    output.write();
}

} // namespace Zv
