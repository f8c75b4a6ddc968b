#include "resmgt/xml/xmlAttributeList.h"

#include "resmgt/xml/xmlEx.h"
#include "zvbase/failures.h"

#include <limits>
#include <sstream>

namespace Zv {

namespace {

/// `Read` is what the stream reads as a number, `T` what it has to fit.
template <class T, class Read = T>
T convert(LiString const &value)
{
    std::istringstream stream(value.getChars());
    Read number{};
    stream >> number;
    if (stream.fail() || number < std::numeric_limits<T>::min() ||
        number > std::numeric_limits<T>::max())
        ZV_THROW(XmlEx::ExConversionError);
    return static_cast<T>(number);
}

} // namespace

void XmlAttributeList::addAttribute(LiString const &name, LiString const &value)
{
    _attributes.push_back({name, value});
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
}

int XmlAttributeList::getLength() const
{
    return static_cast<int>(_attributes.size());
}

int XmlAttributeList::index(LiString const &name) const
{
    for (std::size_t i = 0; i != _attributes.size(); ++i)
        if (_attributes[i].name == name)
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

LiString const &XmlAttributeList::getName(int index) const
{
    return at(index).name;
}

LiString const &XmlAttributeList::getValue(int index) const
{
    return at(index).value;
}

LiString const &XmlAttributeList::getValue(LiString const &name) const
{
    return at(index(name)).value;
}

int XmlAttributeList::getInt(LiString const &name) const
{
    return convert<int>(getValue(name));
}

long XmlAttributeList::getLong(LiString const &name) const
{
    return convert<long>(getValue(name));
}

std::int8_t XmlAttributeList::getInt8(LiString const &name) const
{
    return convert<std::int8_t, int>(getValue(name));
}

std::uint8_t XmlAttributeList::getUInt8(LiString const &name) const
{
    return convert<std::uint8_t, int>(getValue(name));
}

std::int16_t XmlAttributeList::getInt16(LiString const &name) const
{
    return convert<std::int16_t>(getValue(name));
}

std::uint16_t XmlAttributeList::getUInt16(LiString const &name) const
{
    return convert<std::uint16_t>(getValue(name));
}

std::int32_t XmlAttributeList::getInt32(LiString const &name) const
{
    return convert<std::int32_t>(getValue(name));
}

std::uint32_t XmlAttributeList::getUInt32(LiString const &name) const
{
    return convert<std::uint32_t>(getValue(name));
}

} // namespace Zv
