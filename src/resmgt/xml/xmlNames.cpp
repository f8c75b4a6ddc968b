#include "resmgt/xml/xmlNames.private.h"

#include <cstring>

namespace Zv {

namespace {

template <class Word>
std::uint64_t load(char const *bytes)
{
    Word word;
    std::memcpy(&word, bytes, sizeof(word));
    return word;
}

/// Returns a number that is equal for two names of one length if, and only if, their first eight
/// bytes are equal.
std::uint64_t headOf(std::string_view name)
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

std::size_t placeOf(std::uint64_t head, std::string_view name)
{
    constexpr std::uint64_t MIX = 0x9E3779B97F4A7C15;
    std::uint64_t word = head + name.size();
    if (name.size() > sizeof(head))
        word ^= load<std::uint64_t>(name.data() + name.size() - sizeof(head)) * MIX;
    return static_cast<std::size_t>(word * MIX >> 56);
}

} // namespace

XmlNames::XmlNames() : _names(PLACES + NEAR) {}

LiString const &XmlNames::get(std::string_view name)
{
    std::uint64_t const head = headOf(name);
    std::size_t const place = placeOf(head, name);
    Known *free = &_names[place];
    for (std::size_t i = 0; i != NEAR; ++i) {
        Known &known = _names[place + i];
        if (known.head == head && known.length == name.size() &&
            (name.size() <= sizeof(head) ||
             std::memcmp(known.name->getChars(), name.data(), name.size()) == 0))
            return *known.name;
        if (known.length == 0) {
            free = &known;
            break;
        }
    }
    free->length = 0; // for good if there is no memory
    free->name.emplace(name);
    free->head = head;
    free->length = name.size();
    return *free->name;
}

} // namespace Zv
