// Attributes of XML elements, and what builds the elements of a parsed document.
#pragma once

#include "resmgt/xml/xmlBlocks.private.h"
#include "resmgt/xml/xmlBytes.private.h"
#include "resmgt/xml/xmlElement.h"

#include <cstdint>
#include <map>
#include <new>
#include <string_view>
#include <utility>

namespace Zv {

/// An attribute that was parsed is in the memory of its document and views its name there. Another
/// one has a piece of memory of its own, with its name behind it.
struct XmlElement::Attribute
{
    template <class Value>
    Attribute(std::string_view itsName, Value const &itsValue, bool alone)
        : value(itsValue),
          nameLength(XmlText::checkedLength(itsName.size())),
          isAlone(alone),
          name(itsName.data())
    {}

    /// Returns an attribute in memory of its own.
    static Attribute *make(LiString const &name, LiString const &value);
    static void destroy(Attribute *attribute);

    /// Returns whether both texts are in the memory of the document, of which `XmlBytes::MARGIN`
    /// bytes behind each text may be read.
    bool isViewed() const { return !isAlone && value._isView; }
    std::string_view getName() const { return {name, nameLength}; }
    bool isNamed(std::string_view other) const { return XmlBytes::equal(getName(), other); }
    /// Returns the name up to the first zero byte, which a viewed name does not have.
    std::string_view getWrittenName() const
    {
        return isAlone ? getName().substr(0, getName().find('\0')) : getName();
    }

    [[no_unique_address]] XmlText value; // whose padding the next two members use
    std::uint32_t nameLength : 31;
    std::uint32_t isAlone : 1;
    char const *name;
    Attribute *next = nullptr;
};

/// Finds an attribute of an element that has many. They are sorted, because the author of a text
/// could choose names that all have the same hash.
class XmlElement::AttributeIndex
{
public:
    /// If an element has more attributes, they have an index.
    static constexpr std::uint32_t MANY = 16;

    explicit AttributeIndex(Attribute **first) : _end(first)
    {
        while (*_end)
            add(**_end, _end);
    }

    void add(Attribute &attribute, Attribute **place)
    {
        _places.emplace(attribute.getName(), place);
        _end = &attribute.next;
    }
    Attribute **placeOf(std::string_view name) const
    {
        auto const found = _places.find(name);
        return found == _places.end() ? _end : found->second;
    }

private:
    std::map<std::string_view, Attribute **> _places; // by the attributes' own names
    Attribute **_end;
};

inline bool XmlElement::hasName(std::string_view name) const
{
    return XmlBytes::equal(_name.getBytes(), name);
}

inline void XmlElement::setOwning() const
{
    if (_blocks)
        _blocks->setOwning();
}

inline void XmlElement::link(XmlElement &child, XmlElement *next) noexcept
{
    child._parent = this;
    child._next = next;
    if (!_firstChild) {
        _firstChild = child._previous = &child;
    } else if (!next) {
        child._previous = std::exchange(_firstChild->_previous, &child);
        child._previous->_next = &child;
    } else {
        child._previous = std::exchange(next->_previous, &child);
        (next == _firstChild ? _firstChild : child._previous->_next) = &child;
    }
    ++_nbChildren;
    if (!child._blocks)
        setOwning();
}

} // namespace Zv
