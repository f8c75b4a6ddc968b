// Strings of the names that an XML text repeats.
#pragma once

#include "resmgt/literals/liString.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>
#include <vector>

namespace Zv {

/// Keeps the strings of names that were asked for, because a text repeats few names. Keeps a
/// limited number of them.
class XmlNames
{
public:
    XmlNames();

    /// Returns the string of a name, which is not empty. The reference is valid until the next
    /// call.
    LiString const &get(std::string_view name)
    {
        std::uint64_t const head = headOf(name);
        Known * const place = &_names[placeOf(head, name)];
        return place->is(head, name) ? *place->name : getNear(place, head, name);
    }

private:
    /// A name that was asked for before. It is near the place that its bytes determine.
    struct Known
    {
        bool is(std::uint64_t itsHead, std::string_view itsName) const
        {
            return head == itsHead && length == itsName.size() &&
                   (length <= sizeof(head) ||
                    std::memcmp(name->getChars(), itsName.data(), length) == 0);
        }

        std::uint64_t head = 0;
        std::size_t length = 0; // 0 for none
        std::optional<LiString> name;
    };
    template <class Word>
    static std::uint64_t load(char const *bytes)
    {
        Word word;
        std::memcpy(&word, bytes, sizeof(word));
        return word;
    }

    /// Returns a number that is equal for two names of one length if, and only if, their first eight
    /// bytes are equal.
    static std::uint64_t headOf(std::string_view name)
    {
        char const * const bytes = name.data();
        std::size_t const length = name.size();
        if (length >= 8)
            return load<std::uint64_t>(bytes);
        if (length >= 4) // the two loads may overlap
            return load<std::uint32_t>(bytes) | load<std::uint32_t>(bytes + length - 4) << 32;
        return load<std::uint8_t>(bytes) | load<std::uint8_t>(bytes + length / 2) << 8 |
               load<std::uint8_t>(bytes + length - 1) << 16;
    }

    static std::size_t placeOf(std::uint64_t head, std::string_view name)
    {
        constexpr std::uint64_t MIX = 0x9E3779B97F4A7C15;
        std::uint64_t word = head + name.size();
        if (name.size() > sizeof(head))
            word ^= load<std::uint64_t>(name.data() + name.size() - sizeof(head)) * MIX;
        return static_cast<std::size_t>(word * MIX >> 56);
    }

    LiString const &getNear(Known *place, std::uint64_t head, std::string_view name);

    static constexpr std::size_t PLACES = 256;
    static constexpr std::size_t NEAR = 4;

    std::vector<Known> _names;
};

} // namespace Zv
