// The attributes of one element as they were read.
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Zv {

/// A list of names and values in the order of the text, for those who are told of elements. A name that comes twice
/// stands in it twice; it is found at its first place. Positions count from 0.
///
/// A value type, for one thread at a time. It keeps bytes and hands out strings of their own.
class ZVRESMGT_EXPORT XmlAttributeList
{
public:
    void addAttribute(LiString const &name, LiString const &value);
    /// Removes the first attribute of this name; without one it does nothing.
    void removeAttribute(LiString const &name);
    void clear();

    int getLength() const;
    /// The position of a name, or -1.
    int index(LiString const &name) const;
    bool exists(LiString const &name) const;
    /// Throws `XmlEx::ExNonExistentAttribute` where there is no such position.
    LiString getName(int index) const;
    LiString getValue(int index) const;
    /// Throws `XmlEx::ExNonExistentAttribute`.
    LiString getValue(LiString const &name) const;

    /// The number at the start of a value, read as a stream reads it in the "C" locale: white space before it is
    /// skipped and what follows it is not looked at. The forms for 8 bits read a number too. They throw
    /// `XmlEx::ExNonExistentAttribute`, and `XmlEx::ExConversionError` if there is no number or it does not fit. A
    /// negative number does not fit an unsigned type.
    int getInt(LiString const &name) const;
    long getLong(LiString const &name) const;
    std::int8_t getInt8(LiString const &name) const;
    std::uint8_t getUInt8(LiString const &name) const;
    std::int16_t getInt16(LiString const &name) const;
    std::uint16_t getUInt16(LiString const &name) const;
    std::int32_t getInt32(LiString const &name) const;
    std::uint32_t getUInt32(LiString const &name) const;

private:
    /// Where a name and, right behind it, a value stand among the bytes.
    struct Attribute
    {
        std::size_t start;
        std::size_t nameLength;
        std::size_t valueLength;
    };

    Attribute const &at(int index) const;
    template <class T>
    T convert(LiString const &name) const;

    std::vector<Attribute> _attributes;
    std::string _bytes;
};

} // namespace Zv
