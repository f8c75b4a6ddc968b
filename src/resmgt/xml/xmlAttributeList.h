// Attributes of one XML element as they were read (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Zv {

/// A list of names and values in the order of the text. Readers of elements get one. A name that
/// was read twice is in the list twice, and is found at its first position. Positions count from 0.
///
///     XmlAttributeList attributes;
///     attributes.addAttribute("frames", "25");
///     if (attributes.exists("frames"))
///         std::cout << attributes.getInt("frames") << " frames\n";
///
/// A value. It keeps bytes, and each returned string is a copy of its own.
class ZVRESMGT_EXPORT XmlAttributeList
{
public:
    /// Appends an attribute, also if the name is in the list already.
    void addAttribute(LiString const &name, LiString const &value);
    /// Removes the first attribute of this name. Does nothing if there is none.
    void removeAttribute(LiString const &name);
    /// Removes all attributes.
    void clear();

    int getLength() const;
    /// Returns the first position of a name, or -1 if there is none.
    int index(LiString const &name) const;
    /// Returns true if there is an attribute of that name.
    bool exists(LiString const &name) const;
    /// Returns the name at a position. Throws `XmlEx::ExNonExistentAttribute` if there is no such
    /// position.
    LiString getName(int index) const;
    /// Returns the value at a position. Throws `XmlEx::ExNonExistentAttribute` if there is no such
    /// position.
    LiString getValue(int index) const;
    /// Returns the first value of a name. Throws `XmlEx::ExNonExistentAttribute` if there is none.
    LiString getValue(LiString const &name) const;

    /// Each of the following returns the number at the start of a value, as a stream reads it in
    /// the "C" locale: white space before the number is skipped, and what follows it is ignored.
    /// The forms for 8 bits also read a number, not a character.
    ///
    /// They throw `XmlEx::ExNonExistentAttribute` if there is no such attribute, and
    /// `XmlEx::ExConversionError` if its value does not start with a number or if the number does
    /// not fit. A negative number does not fit an unsigned type.
    int getInt(LiString const &name) const;
    long getLong(LiString const &name) const;
    std::int8_t getInt8(LiString const &name) const;
    std::uint8_t getUInt8(LiString const &name) const;
    std::int16_t getInt16(LiString const &name) const;
    std::uint16_t getUInt16(LiString const &name) const;
    std::int32_t getInt32(LiString const &name) const;
    std::uint32_t getUInt32(LiString const &name) const;

private:
    /// The place of a name, and of the value right behind it, among the bytes.
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
