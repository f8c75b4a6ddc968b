#include "shownText.h"

#include <algorithm>

namespace {

constexpr std::string_view ELLIPSIS = "...";

/// Returns the number of bytes of the first character of a text, or 0 if it is not UTF-8.
std::size_t measureCharacter(std::string_view text)
{
    auto const byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    std::size_t const length = byte(0) < 0x80                      ? 1
                               : byte(0) >= 0xC2 && byte(0) < 0xE0 ? 2
                               : byte(0) >= 0xE0 && byte(0) < 0xF0 ? 3
                               : byte(0) >= 0xF0 && byte(0) < 0xF5 ? 4
                                                                   : 0;
    if (length == 0 || length > text.size())
        return 0;
    for (std::size_t i = 1; i < length; ++i)
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
    bool const isTooLong =
        (byte(0) == 0xE0 && byte(1) < 0xA0) || (byte(0) == 0xF0 && byte(1) < 0x90);
    return isTooLong ? 0 : length;
}

bool isControl(std::string_view character)
{
    auto const first = static_cast<unsigned char>(character[0]);
    return first < 0x20 || first == 0x7F ||
           (first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0);
}

} // namespace

std::string toShownText(std::string_view text)
{
    static constexpr char DIGITS[] = "0123456789abcdef";
    std::string shown;
    while (!text.empty()) {
        std::size_t const length = measureCharacter(text);
        std::string_view const character = text.substr(0, std::max<std::size_t>(length, 1));
        if (length > 0 && !isControl(character))
            shown += character;
        else
            for (char const c : character) {
                auto const byte = static_cast<unsigned char>(c);
                shown += {'\\', 'x', DIGITS[byte / 16], DIGITS[byte % 16]};
            }
        text.remove_prefix(character.size());
    }
    return shown;
}

std::string shorten(std::string_view text, std::size_t most)
{
    if (text.size() <= most)
        return std::string(text);
    std::size_t const kept = most - ELLIPSIS.size();
    std::size_t const begin = kept / 2;
    return std::string(text.substr(0, begin)) + std::string(ELLIPSIS) +
           std::string(text.substr(text.size() - (kept - begin)));
}
