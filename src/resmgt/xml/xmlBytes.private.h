// Classes of the bytes of XML text, and searches for the end of a run of them.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace Zv::XmlBytes {

/// The number of bytes behind the zero byte of a text that a search may read. Their values do not
/// matter.
constexpr std::size_t MARGIN = 15;

/// Classes of bytes. A byte may have several.
enum Class : unsigned char
{
    WHITE = 1,
    NAME_START = 2,
    NAME = 4,
    TEXT = 8,   // goes on with a text without a further look
    VALUE = 16, // goes on with a value of an attribute
    VERSION = 32,
};

constexpr bool isLetter(int c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

constexpr bool isDigit(int c)
{
    return c >= '0' && c <= '9';
}

constexpr unsigned char classOf(int c)
{
    bool const white = c == '\t' || c == '\n' || c == '\r' || c == ' ';
    bool const nameStart =
        isLetter(c) || c == '_' || c == ':' || (c >= 0xC0 && c != 0xD7 && c != 0xF7);
    bool const name = nameStart || isDigit(c) || c == '-' || c == '.' || c == 0xB7;
    bool const text = c != '<' && c != '&' && c != ']' && c != 0;
    bool const value = c != '"' && c != '\'' && c != '&' && c != '<' && c != '>' && c != 0;
    bool const version = isLetter(c) || isDigit(c) || c == '-' || c == '.' || c == ':' || c == '_';
    return static_cast<unsigned char>((white ? WHITE : 0) | (nameStart ? NAME_START : 0) |
                                      (name ? NAME : 0) | (text ? TEXT : 0) | (value ? VALUE : 0) |
                                      (version ? VERSION : 0));
}

inline constexpr auto CLASSES = [] {
    std::array<unsigned char, 256> table{};
    for (int c = 0; c < 256; ++c)
        table[static_cast<std::size_t>(c)] = classOf(c);
    return table;
}();

inline bool is(char c, Class kind)
{
    return CLASSES[static_cast<unsigned char>(c)] & kind;
}

/// Returns the first byte that is not of the class. A zero byte is of no class, so the search ends
/// at the end of a text.
inline char const *skip(char const *position, Class kind)
{
    for (;; position += 4) {
        if (!is(position[0], kind))
            return position;
        if (!is(position[1], kind))
            return position + 1;
        if (!is(position[2], kind))
            return position + 2;
        if (!is(position[3], kind))
            return position + 3;
    }
}

/// Returns whether the next bytes are all blanks.
template <class Word>
bool areBlanks(char const *position)
{
    Word word;
    std::memcpy(&word, position, sizeof(Word));
    return word == static_cast<Word>(0x2020202020202020);
}

/// The white space before a tag is a line end and some blanks.
inline char const *skipWhite(char const *position)
{
    if (!is(*position, WHITE))
        return position;
    ++position;
    while (areBlanks<std::uint64_t>(position))
        position += 8;
    if (areBlanks<std::uint32_t>(position))
        position += 4;
    return skip(position, WHITE);
}

inline char const *skipName(char const *position)
{
    return skip(position, NAME);
}

#ifdef __SSE2__

/// Sixteen bytes that are compared at once.
class Sixteen
{
public:
    explicit Sixteen(char const *bytes)
        : _bytes(_mm_loadu_si128(reinterpret_cast<__m128i const *>(bytes)))
    {}

    /// Returns the bytes at both ends of a text, which may overlap, and zero bytes.
    template <class Word>
    static Sixteen ends(std::string_view text)
    {
        Word first, last;
        std::memcpy(&first, text.data(), sizeof(Word));
        std::memcpy(&last, text.data() + text.size() - sizeof(Word), sizeof(Word));
        return Sixteen(_mm_set_epi64x(static_cast<long long>(first), static_cast<long long>(last)));
    }

    void store(char *target) const
    {
        _mm_storeu_si128(reinterpret_cast<__m128i *>(target), _bytes);
    }

    /// Each of the following returns a number with a bit for each byte, the lowest for the first.
    unsigned endsOfText() const
    {
        return bits(either(either(equal('<'), equal('&')), either(equal(']'), equal('\0'))));
    }
    /// The five special bytes and the zero byte.
    unsigned endsOfValue() const { return bits(either(anySpecial(), equal('\0'))); }
    unsigned specials() const { return bits(anySpecial()); }

private:
    explicit Sixteen(__m128i bytes) : _bytes(bytes) {}

    __m128i equal(char c, char ignored = 0) const
    {
        return _mm_cmpeq_epi8(_mm_or_si128(_bytes, _mm_set1_epi8(ignored)), _mm_set1_epi8(c));
    }
    __m128i anySpecial() const
    {
        static_assert(('<' | 2) == '>' && ('&' | 1) == '\'');
        return either(equal('"'), either(equal('>', 2), equal('\'', 1)));
    }
    static __m128i either(__m128i a, __m128i b) { return _mm_or_si128(a, b); }
    static unsigned bits(__m128i mask) { return static_cast<unsigned>(_mm_movemask_epi8(mask)); }

    __m128i _bytes;
};

inline char const *skipText(char const *position)
{
    for (;; position += 16)
        if (unsigned const ends = Sixteen(position).endsOfText())
            return position + std::countr_zero(ends);
}

inline char const *skipValue(char const *position)
{
    for (int i = 0; i != 8; ++i, ++position)
        if (!is(*position, VALUE))
            return position;
    for (;; position += 16)
        if (unsigned const ends = Sixteen(position).endsOfValue())
            return position + std::countr_zero(ends);
}

#else

inline char const *skipText(char const *position)
{
    return skip(position, TEXT);
}

inline char const *skipValue(char const *position)
{
    return skip(position, VALUE);
}

#endif

template <class Word>
bool equalWords(char const *a, char const *b)
{
    Word left, right;
    std::memcpy(&left, a, sizeof(Word));
    std::memcpy(&right, b, sizeof(Word));
    return left == right;
}

/// Returns whether two names are equal. Most names are short.
inline bool equal(std::string_view a, std::string_view b)
{
    std::size_t const size = a.size();
    if (size != b.size())
        return false;
    auto const equalEnds = [&]<class Word>(Word) { // the two ends may overlap
        std::size_t const last = size - sizeof(Word);
        return equalWords<Word>(a.data(), b.data()) &&
               equalWords<Word>(a.data() + last, b.data() + last);
    };
    if (size > 16)
        return std::memcmp(a.data(), b.data(), size) == 0;
    if (size >= 8)
        return equalEnds(std::uint64_t{});
    if (size >= 4)
        return equalEnds(std::uint32_t{});
    if (size >= 2)
        return equalEnds(std::uint16_t{});
    return size == 0 || a[0] == b[0];
}

/// Copies a text. Most are short.
inline void copy(char *target, std::string_view text)
{
    std::size_t const size = text.size();
    auto const copyEnds = [&]<class Word>(Word) { // the two ends may overlap
        Word first, last;
        std::memcpy(&first, text.data(), sizeof(Word));
        std::memcpy(&last, text.data() + size - sizeof(Word), sizeof(Word));
        std::memcpy(target, &first, sizeof(Word));
        std::memcpy(target + size - sizeof(Word), &last, sizeof(Word));
    };
    if (size > 16)
        std::memcpy(target, text.data(), size);
    else if (size >= 8)
        copyEnds(std::uint64_t{});
    else if (size >= 4)
        copyEnds(std::uint32_t{});
    else if (size >= 2)
        copyEnds(std::uint16_t{});
    else if (size == 1)
        *target = text.front();
}

#ifdef __SSE2__

/// The number of bytes behind a copy by sixteens that may be overwritten.
constexpr std::size_t OVERRUN = 15;

/// Copies a text of which `MARGIN` bytes behind the last one may be read.
inline void copyBySixteens(char *target, std::string_view text)
{
    char const * const bytes = text.data();
    for (std::size_t i = 0; i < text.size(); i += 16)
        Sixteen(bytes + i).store(target + i);
}

/// Copies a text like `copyBySixteens`. Returns whether it has one of the five bytes that are
/// written as references.
inline bool copyAndFindSpecial(char *target, std::string_view text)
{
    char const *bytes = text.data();
    std::size_t rest = text.size();
    unsigned specials = 0;
    for (; rest > 16; rest -= 16, bytes += 16, target += 16) {
        Sixteen const sixteen(bytes);
        specials |= sixteen.specials();
        sixteen.store(target);
    }
    if (rest == 0) // `bytes` may be null
        return false;
    Sixteen const last(bytes);
    last.store(target);
    return (specials | (last.specials() & ((1U << rest) - 1))) != 0;
}

#endif

inline bool isSpecial(char c)
{
    return c != '\0' && !is(c, VALUE);
}

/// Returns whether a text has one of the five bytes that are written as references.
inline bool hasSpecial(std::string_view text)
{
#ifdef __SSE2__
    char const * const bytes = text.data();
    std::size_t const size = text.size();
    if (size > 16) {
        unsigned specials = Sixteen(bytes + size - 16).specials();
        for (std::size_t i = 0; i + 16 < size; i += 16)
            specials |= Sixteen(bytes + i).specials();
        return specials != 0;
    }
    if (size >= 8)
        return Sixteen::ends<std::uint64_t>(text).specials() != 0;
    if (size >= 4)
        return Sixteen::ends<std::uint32_t>(text).specials() != 0;
#endif
    return std::any_of(text.begin(), text.end(), isSpecial);
}

/// One byte of each value.
inline constexpr auto ALL = [] {
    std::array<char, 256> bytes{};
    for (std::size_t c = 0; c < bytes.size(); ++c)
        bytes[c] = static_cast<char>(c);
    return bytes;
}();

/// Returns a text of one byte, which is valid for the whole run of the program.
inline std::string_view single(char c)
{
    return {&ALL[static_cast<unsigned char>(c)], 1};
}

} // namespace Zv::XmlBytes
