#include "resmgt/xml/xmlElement.h"

#include "resmgt/containers/iteratorEx.h"
#include "resmgt/containers/iteratorSTL.h"
#include "resmgt/literals/liStringUtil.h"
#include "resmgt/smartPtrs/rcProxy.h"
#include "resmgt/xml/xmlElementParts.private.h"
#include "resmgt/xml/xmlEx.h"
#include "resmgt/xml/xmlPiece.private.h"
#include "zvbase/failures.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>
#include <locale>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace Zv {

namespace {

using Elements = std::vector<UnownedObjPtr<XmlElement>>;

/// Skips the white space that `atoi` skips before a number, and a plus sign.
std::string_view skipToNumber(std::string_view text)
{
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
    if (text.starts_with('+') && !text.starts_with("+-"))
        text.remove_prefix(1);
    return text;
}

/// Returns the nearest number that fits.
template <class T>
T readInteger(std::string_view text)
{
    using Limits = std::numeric_limits<T>;
    text = skipToNumber(text);
    long long number = 0;
    auto const result = std::from_chars(text.data(), text.data() + text.size(), number);
    if (result.ec == std::errc::result_out_of_range)
        return text.front() == '-' ? Limits::min() : Limits::max();
    return static_cast<T>(std::clamp<long long>(number, Limits::min(), Limits::max()));
}

// `strtod` depends on the locale of the program.
double readDouble(std::string_view text)
{
    text = skipToNumber(text);
    double number = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc::result_out_of_range) {
        // The stream gives the nearest number that fits.
        std::istringstream stream(std::string(text.data(), end));
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
    void last() override { _child = _element.lastChild(); }
    void end() override { _child = nullptr; }
    bool atEnd() const override { return _child.isNull(); }
    bool atBegin() const override { return _child.get() == _element._firstChild; }
    void next() override { _child = item()->_next; }
    void previous() override
    {
        if (atBegin())
            IteratorExUtil::throwExOutOfRange();
        _child = atEnd() ? _element.lastChild() : _child->_previous;
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

XmlElement::XmlElement(LiString const &name) : XmlNode(name) {}

XmlElement::~XmlElement() noexcept(false)
{
    if (!_blocks || _blocks->isOwning())
        destroyParts();
    if (_blocks && _blocks->isRoot(*this))
        delete _blocks;
}

// The children of a child are moved to this element before the child is destroyed, so that the
// destructors do not nest.
void XmlElement::destroyParts()
{
    while (XmlElement * const child = _firstChild) {
        _firstChild = child->_next;
        if (child->_firstChild) {
            child->lastChild()->_next = _firstChild;
            _firstChild = std::exchange(child->_firstChild, nullptr);
            child->_nbChildren = 0;
        }
        destroy(child);
    }
    while (Attribute * const attribute = _firstAttribute) {
        _firstAttribute = attribute->next;
        Attribute::destroy(attribute);
    }
}

void XmlElement::destroy(XmlElement *element)
{
    if (element->_blocks)
        element->~XmlElement();
    else
        delete element;
}

XmlElement::Attribute *XmlElement::Attribute::make(LiString const &name, LiString const &value)
{
    std::string_view const bytes = name;
    auto * const memory = static_cast<char *>(::operator new(sizeof(Attribute) + bytes.size()));
    char * const copy = memory + sizeof(Attribute);
    std::memcpy(copy, bytes.data(), bytes.size());
    return ::new (memory) Attribute({copy, bytes.size()}, value, true); // which does not throw
}

void XmlElement::Attribute::destroy(Attribute *attribute)
{
    bool const alone = attribute->isAlone;
    attribute->~Attribute();
    if (alone)
        ::operator delete(attribute);
}

LiString XmlElement::viewedName() const
{
    return _blocks->nameOf(_name.getBytes());
}

void XmlElement::setData(LiString const &data)
{
    _data.assign(data);
    setOwning();
}

XmlElement::Attribute **XmlElement::placeOfAttribute(std::string_view name)
{
    if (_nbAttributes > AttributeIndex::MANY)
        return index().placeOf(name);
    Attribute **place = &_firstAttribute;
    while (*place && !(*place)->isNamed(name))
        place = &(*place)->next;
    return place;
}

XmlElement::Attribute *XmlElement::findAttribute(std::string_view name) const
{
    return *const_cast<XmlElement &>(*this).placeOfAttribute(name);
}

XmlElement::AttributeIndex &XmlElement::index() const
{
    if (_attributeIndex.isNull()) {
        setOwning();
        _attributeIndex.reset(new AttributeIndex(const_cast<Attribute **>(&_firstAttribute)));
    }
    return *_attributeIndex;
}

XmlText const &XmlElement::attribute(LiString const &name) const
{
    Attribute const * const found = findAttribute(name);
    if (!found)
        ZV_THROW(XmlEx::ExNonExistentAttribute);
    return found->value;
}

LiString XmlElement::getAttribute(LiString const &name) const
{
    return attribute(name).get();
}

void XmlElement::getAttribute(LiString const &name, int &value) const
{
    value = readInteger<int>(attribute(name).getBytes());
}

void XmlElement::getAttribute(LiString const &name, unsigned int &value) const
{
    value = readInteger<unsigned int>(attribute(name).getBytes());
}

void XmlElement::getAttribute(LiString const &name, double &value) const
{
    value = readDouble(attribute(name).getBytes());
}

void XmlElement::addAttribute(Attribute &attribute, Attribute **place)
{
    if (!_attributeIndex.isNull())
        _attributeIndex->add(attribute, place);
    *place = &attribute;
    ++_nbAttributes;
}

void XmlElement::viewAttribute(std::string_view name, std::string_view value)
{
    Attribute ** const place = placeOfAttribute(name);
    if (*place) {
        (*place)->value.view(value);
        return;
    }
    void * const memory = _blocks->allocate(sizeof(Attribute));
    addAttribute(*::new (memory) Attribute(name, value, false), place);
}

void XmlElement::setAttribute(LiString const &name, LiString const &value)
{
    setOwning();
    Attribute ** const place = placeOfAttribute(name);
    if (*place) {
        (*place)->value.assign(value);
        return;
    }
    Attribute * const attribute = Attribute::make(name, value);
    try {
        addAttribute(*attribute, place);
    } catch (...) {
        Attribute::destroy(attribute);
        throw;
    }
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
    Attribute **place = &_firstAttribute;
    while (*place && !(*place)->isNamed(name))
        place = &(*place)->next;
    Attribute * const attribute = *place;
    if (!attribute)
        return;
    _attributeIndex.reset();
    *place = attribute->next;
    --_nbAttributes;
    Attribute::destroy(attribute);
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
        if (all || element->isNamed(tag))
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

void XmlElement::unlink(XmlElement &child) noexcept
{
    XmlElement * const last = lastChild();
    if (&child == _firstChild)
        _firstChild = child._next;
    else
        child._previous->_next = child._next;
    if (&child != last)
        child._next->_previous = child._previous;
    else if (_firstChild)
        _firstChild->_previous = child._previous;
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
    destroy(&former);
}

void XmlElement::removeChild(UnownedObjPtr<XmlElement> reference)
{
    XmlElement &former = childOf(reference);
    unlink(former);
    destroy(&former);
}

template <class Output>
void XmlElement::writeStart(Output &output) const
{
    if (_name._isView) [[likely]]
        output.addViewedStart(_name.getBytes());
    else
        output.addStart(_name.getWritten());
    for (Attribute const *a = _firstAttribute; a; a = a->next) {
        if (a->isViewed()) [[likely]]
            output.addViewedAttribute(a->getName(), a->value.getBytes());
        else
            output.addAttribute(a->getWrittenName(), a->value.getBytes());
    }
}

template <class Output>
void XmlElement::writeEnd(Output &output) const
{
    if (_name._isView) [[likely]]
        output.addViewedEnd(_name.getBytes());
    else
        output.addEnd(_name.getWritten());
}

// Writes what nested guards would write, but in large pieces and without recursion.
void XmlElement::streamToOutput(XmlStreamer &streamer) const
{
    XmlStreamer::NodeGuard &document = streamer.getDocument();
    document.setContent();
    using Output = XmlPiece<4096>;
    Output output(document.getOutput());
    for (XmlElement const *element = this; element;) {
        element->writeStart(output);
        if (element->_firstChild) {
            output.addContent();
            element = element->_firstChild;
            continue;
        }
        output.addEmptyEnd();
        while (element != this && !element->_next) {
            element = element->_parent;
            element->writeEnd(output);
        }
        element = element == this ? nullptr : element->_next;
    }
    output.write();
}

} // namespace Zv
