#include "resmgt/xml/xmlAttributeList.h"

#include "resmgt/xml/xmlEx.h"
#include "zvbase/failures.h"

#include <cstring>
#include <locale>
#include <sstream>
#include <utility>

namespace Zv {

// The number is read as a long one. A stream would wrap a negative number for an unsigned type, and
// would read a character for a type of 8 bits.
template <class T>
T XmlAttributeList::convert(LiString const &name) const
{
    std::istringstream stream(getValue(name).getChars());
    stream.imbue(std::locale::classic());
    long long number = 0;
    stream >> number;
    if (stream.fail() || !std::in_range<T>(number))
        ZV_THROW(XmlEx::ExConversionError);
    return static_cast<T>(number);
}

void XmlAttributeList::addAttribute(LiString const &name, LiString const &value)
{
    auto const nameLength = static_cast<std::size_t>(name.getLength());
    auto const valueLength = static_cast<std::size_t>(value.getLength());
    std::size_t const start = _bytes.size();
    _bytes.append(name.getChars(), nameLength);
    _bytes.append(value.getChars(), valueLength);
    _attributes.push_back({start, nameLength, valueLength});
}

void XmlAttributeList::removeAttribute(LiString const &name)
{
    int const position = index(name);
    if (position >= 0)
        _attributes.erase(_attributes.begin() + position);
}

void XmlAttributeList::clear()
{
    _attributes.clear();
    _bytes.clear();
}

int XmlAttributeList::getLength() const
{
    return static_cast<int>(_attributes.size());
}

int XmlAttributeList::index(LiString const &name) const
{
    auto const length = static_cast<std::size_t>(name.getLength());
    for (std::size_t i = 0; i != _attributes.size(); ++i)
        if (_attributes[i].nameLength == length &&
            std::memcmp(_bytes.data() + _attributes[i].start, name.getChars(), length) == 0)
            return static_cast<int>(i);
    return -1;
}

bool XmlAttributeList::exists(LiString const &name) const
{
    return index(name) >= 0;
}

XmlAttributeList::Attribute const &XmlAttributeList::at(int index) const
{
    if (index < 0 || index >= getLength())
        ZV_THROW(XmlEx::ExNonExistentAttribute);
    return _attributes[static_cast<std::size_t>(index)];
}

LiString XmlAttributeList::getName(int index) const
{
    Attribute const &attribute = at(index);
    return LiString(_bytes.data() + attribute.start, attribute.nameLength);
}

LiString XmlAttributeList::getValue(int index) const
{
    Attribute const &attribute = at(index);
    return LiString(_bytes.data() + attribute.start + attribute.nameLength, attribute.valueLength);
}

LiString XmlAttributeList::getValue(LiString const &name) const
{
    return getValue(index(name));
}

int XmlAttributeList::getInt(LiString const &name) const
{
    return convert<int>(name);
}

long XmlAttributeList::getLong(LiString const &name) const
{
    return convert<long>(name);
}

std::int8_t XmlAttributeList::getInt8(LiString const &name) const
{
    return convert<std::int8_t>(name);
}

std::uint8_t XmlAttributeList::getUInt8(LiString const &name) const
{
    return convert<std::uint8_t>(name);
}

std::int16_t XmlAttributeList::getInt16(LiString const &name) const
{
    return convert<std::int16_t>(name);
}

std::uint16_t XmlAttributeList::getUInt16(LiString const &name) const
{
    return convert<std::uint16_t>(name);
}

std::int32_t XmlAttributeList::getInt32(LiString const &name) const
{
    return convert<std::int32_t>(name);
}

std::uint32_t XmlAttributeList::getUInt32(LiString const &name) const
{
    return convert<std::uint32_t>(name);
}

} // namespace Zv
