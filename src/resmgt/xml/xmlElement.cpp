#include "resmgt/xml/xmlElement.h"

#include "resmgt/containers/iteratorEx.h"
#include "resmgt/containers/iteratorSTL.h"
#include "resmgt/literals/liStringUtil.h"
#include "resmgt/smartPtrs/rcProxy.h"
#include "resmgt/xml/xmlBlocks.private.h"
#include "resmgt/xml/xmlEx.h"
#include "resmgt/xml/xmlPiece.private.h"
#include "zvbase/failures.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <locale>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace Zv {

namespace {

using Elements = std::vector<UnownedObjPtr<XmlElement>>;

/// If an element has more attributes, they have an index.
constexpr std::size_t MANY_ATTRIBUTES = 16;

/// Skips the characters that `atoi` skips before a number.
char const *skipSpace(char const *text)
{
    while (*text == ' ' || (*text >= '\t' && *text <= '\r'))
        ++text;
    return text;
}

/// Returns the nearest number that fits.
template <class T>
T readInteger(char const *text)
{
    long long const number = std::strtoll(skipSpace(text), nullptr, 10);
    return static_cast<T>(std::clamp<long long>(number, std::numeric_limits<T>::min(),
                                                std::numeric_limits<T>::max()));
}

// `strtod` depends on the locale of the program.
double readDouble(char const *text)
{
    text = skipSpace(text);
    if (text[0] == '+' && text[1] != '-')
        ++text;
    double number = 0;
    auto const [end, error] = std::from_chars(text, text + std::strlen(text), number);
    if (error == std::errc::result_out_of_range) {
        // The stream gives the nearest number that fits.
        std::istringstream stream(std::string(text, end));
        stream.imbue(std::locale::classic());
        stream >> number;
    }
    return number;
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
        _item = _child;
        return _item;
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
    UnownedObjPtr<XmlElement> _child;
    UnownedObjPtr<XmlElement> mutable _item; // handed out by reference, whatever becomes of it
};

/// Finds an attribute of an element that has many. They are sorted, because the author of a text
/// could choose names that all have the same hash.
class XmlElement::AttributeIndex
{
public:
    explicit AttributeIndex(XmlAttribute *first)
    {
        for (XmlAttribute *attribute = first; attribute; attribute = attribute->_next)
            add(*attribute);
    }

    void add(XmlAttribute &attribute)
    {
        _attributes.emplace(bytesOf(attribute.name()), &attribute);
    }
    XmlAttribute *find(LiString const &name) const
    {
        auto const found = _attributes.find(bytesOf(name));
        return found == _attributes.end() ? nullptr : found->second;
    }

private:
    static std::string_view bytesOf(LiString const &name)
    {
        return {name.getChars(), static_cast<std::size_t>(name.getLength())};
    }

    std::map<std::string_view, XmlAttribute *> _attributes; // by the attributes' own names
};

XmlElement::XmlElement(LiString const &name) : XmlNode(name) {}

// The children of a child are moved to this element before the child is destroyed, so that the
// destructors do not nest.
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
    value = readInteger<int>(attribute(name)._value.getChars());
}

void XmlElement::getAttribute(LiString const &name, unsigned int &value) const
{
    value = readInteger<unsigned int>(attribute(name)._value.getChars());
}

void XmlElement::getAttribute(LiString const &name, double &value) const
{
    value = readDouble(attribute(name)._value.getChars());
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
    setAttribute(name, LiStringUtil::convertNb(value));
}

void XmlElement::setAttribute(LiString const &name, unsigned int value)
{
    setAttribute(name, LiStringUtil::convertNb(value));
}

void XmlElement::setAttribute(LiString const &name, double value)
{
    setAttribute(name, LiStringUtil::convertNb(value));
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

// Writes what nested guards would write, but in large pieces and without recursion.
void XmlElement::streamToOutput(XmlStreamer &streamer) const
{
    XmlStreamer::NodeGuard &document = streamer.getDocument();
    document.setContent();
    using Output = XmlPiece<4096>;
    Output output(document.getOutput());
    for (XmlElement const *element = this; element;) {
        output.addStart(element->name());
        for (XmlAttribute const *a = element->_firstAttribute; a; a = a->_next)
            output.addAttribute(Output::bytesOf(a->name()), a->_value.getBytes());
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
