#include "resmgt/xml/xmlScanner.private.h"

#include "resmgt/xml/xmlEx.h"
#include "zvbase/failures.h"

#include <bit>
#include <cstdint>
#include <cstring>

namespace Zv {

namespace {

constexpr int END_OF_INPUT = -1;

enum : unsigned char
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

constexpr auto CLASSES = [] {
    std::array<unsigned char, 256> table{};
    for (int c = 0; c < 256; ++c)
        table[static_cast<std::size_t>(c)] = classOf(c);
    return table;
}();

inline bool is(char c, unsigned char kind)
{
    return CLASSES[static_cast<unsigned char>(c)] & kind;
}

/// Returns the first byte that is not of the kind. A zero byte is of no kind, so the search ends at
/// the end of the window.
inline char const *skip(char const *position, unsigned char kind)
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

inline std::uint64_t load(char const *bytes)
{
    std::uint64_t word;
    std::memcpy(&word, bytes, sizeof(word));
    return word;
}

/// Returns the first bytes of a name. `XmlInput::MARGIN` bytes behind the window may be read.
inline std::uint64_t headOf(char const *bytes, std::size_t length)
{
    constexpr std::uint64_t ALL = ~std::uint64_t{0};
    std::uint64_t const word = load(bytes);
    if (length >= sizeof(word))
        return word;
    if constexpr (std::endian::native == std::endian::little)
        return word & ~(ALL << (8 * length));
    else
        return word & ~(ALL >> (8 * length));
}

inline std::size_t placeOf(std::uint64_t head, char const *bytes, std::size_t length)
{
    constexpr std::uint64_t MIX = 0x9E3779B97F4A7C15;
    std::uint64_t word = head + length;
    if (length > sizeof(word))
        word ^= load(bytes + length - sizeof(word)) * MIX;
    return static_cast<std::size_t>(word * MIX >> 56);
}

} // namespace

XmlScanner::XmlScanner(std::istream &stream)
    : _input(stream), _cursor(_input.begin()), _token(_cursor), _names(NAMES + NEAR)
{}

bool XmlScanner::more()
{
    char const *kept = _cursor = _input.limit();
    bool const read = _input.more(kept);
    _cursor = kept;
    return read;
}

bool XmlScanner::more(char const *&position)
{
    std::ptrdiff_t const scanned = position - _token;
    bool const read = _input.more(_token);
    position = _token + scanned;
    return read;
}

int XmlScanner::peek()
{
    if (_cursor == _input.limit() && !more())
        return END_OF_INPUT;
    return static_cast<unsigned char>(*_cursor);
}

bool XmlScanner::take(std::string_view text)
{
    for (char const c : text) {
        if (peek() != static_cast<unsigned char>(c))
            return false;
        ++_cursor;
    }
    return true;
}

bool XmlScanner::skipSpace()
{
    bool skipped = false;
    for (;;) {
        char const * const end = skip(_cursor, WHITE);
        skipped |= end != _cursor;
        _cursor = end;
        if (_cursor != _input.limit() || !more())
            return skipped;
    }
}

void XmlScanner::setName(char const *bytes, std::size_t length)
{
    std::uint64_t const head = headOf(bytes, length);
    std::size_t const place = placeOf(head, bytes, length);
    KnownName *free = &_names[place];
    for (std::size_t i = 0; i != NEAR; ++i) {
        KnownName &known = _names[place + i];
        if (known.head == head && known.length == length &&
            (length <= sizeof(head) || std::memcmp(known.name->getChars(), bytes, length) == 0)) {
            _name = &*known.name;
            return;
        }
        if (known.length == 0) {
            free = &known;
            break;
        }
    }
    free->length = 0; // for good if there is no memory
    free->name.emplace(bytes, length);
    free->head = head;
    free->length = length;
    _name = &*free->name;
}

void XmlScanner::setValue(char const *bytes, std::size_t length)
{
    _turn = (_turn + 1) % VALUES;
    _values[_turn].assign(bytes, length);
}

XmlToken XmlScanner::next()
{
    switch (_condition) {
    case Condition::TAG:
        return nextInTag();
    case Condition::DECLARATION:
        return nextInDeclaration();
    case Condition::CDATA:
        return scanCdata();
    case Condition::MALFORMED:
        ZV_THROW(XmlEx::ExLexicalError);
    default:
        return nextInContent();
    }
}

XmlToken XmlScanner::nextInContent()
{
    for (;;) {
        switch (peek()) {
        case END_OF_INPUT:
            return XmlToken::END;
        case '<': {
            XmlToken const token = scanMarkup();
            if (token != XmlToken::SPACE)
                return token;
            break; // a comment
        }
        case '&':
            return scanReference();
        default:
            return scanText();
        }
    }
}

/// Scans a token that begins with `<`. Returns `SPACE` for a comment.
XmlToken XmlScanner::scanMarkup()
{
    ++_cursor;
    _condition = Condition::TAG;
    switch (peek()) {
    case '/':
        ++_cursor;
        return XmlToken::END_TAG;
    case '!':
        ++_cursor;
        return scanExclamation();
    case '?':
        return scanDeclarationStart();
    default:
        return XmlToken::START_TAG;
    }
}

/// Returns a start of a tag for a `<` that begins none of the longer tokens. No token can follow
/// it.
XmlToken XmlScanner::startOfNothing()
{
    _condition = Condition::MALFORMED;
    return XmlToken::START_TAG;
}

XmlToken XmlScanner::scanExclamation()
{
    switch (peek()) {
    case '-':
        if (!take("--") || !skipComment())
            return startOfNothing();
        _condition = Condition::INITIAL;
        return XmlToken::SPACE;
    case '[':
        if (!take("[CDATA["))
            return startOfNothing();
        _condition = Condition::CDATA;
        return XmlToken::CDATA_START;
    default:
        return take("DOCTYPE") && skipSpace() ? XmlToken::DOCTYPE_START : startOfNothing();
    }
}

XmlToken XmlScanner::scanDeclarationStart()
{
    if (!take("?xml") || !skipSpace() || !take("version"))
        return startOfNothing();
    skipSpace();
    if (!take("="))
        return startOfNothing();
    skipSpace();
    _condition = Condition::DECLARATION;
    return XmlToken::DECLARATION_START;
}

/// Skips a comment whose `<!--` was read. The first `--` must be that of its end.
bool XmlScanner::skipComment()
{
    for (;;) {
        auto const rest = static_cast<std::size_t>(_input.limit() - _cursor);
        auto const * const dash = static_cast<char const *>(std::memchr(_cursor, '-', rest));
        if (!dash) {
            if (!more())
                return false;
            continue;
        }
        _cursor = dash + 1;
        if (peek() == '-') {
            ++_cursor;
            return take(">");
        }
        if (_cursor == _input.limit())
            return false;
    }
}

XmlToken XmlScanner::scanText()
{
    _token = _cursor;
    char const *position = _cursor;
    while (*(position = skip(position, WHITE)) == '\0' && position == _input.limit())
        if (!more(position))
            break;
    if (position != _token &&
        (*position == '<' || *position == '&' || position == _input.limit())) {
        _cursor = position;
        return XmlToken::SPACE;
    }
    for (;;) {
        position = skip(position, TEXT);
        if (*position == ']') {
            while (_input.limit() - position < 3 && more(position)) {
            }
            if (std::memcmp(position, "]]>", 3) == 0) {
                if (position == _token) {
                    _cursor = position + 3;
                    return XmlToken::CDATA_END;
                }
                position +=
                    2; // what ends a CDATA section does not stand in a text: it is cut in two
                break;
            }
            ++position;
        } else if (*position != '\0') {
            break;
        } else if (position != _input.limit()) {
            ++position; // a zero byte of the text's own
        } else if (!more(position)) {
            break;
        }
    }
    _cursor = position;
    setValue(_token, static_cast<std::size_t>(position - _token));
    return XmlToken::TEXT;
}

XmlToken XmlScanner::scanReference()
{
    ++_cursor;
    char const byte = takeReference();
    setValue(&byte, 1);
    return XmlToken::TEXT;
}

/// Reads a reference whose `&` was read, and returns its byte.
char XmlScanner::takeReference()
{
    switch (peek()) {
    case 'l':
        if (take("lt;"))
            return '<';
        break;
    case 'g':
        if (take("gt;"))
            return '>';
        break;
    case 'q':
        if (take("quot;"))
            return '"';
        break;
    case 'a':
        ++_cursor;
        if (peek() == 'm') {
            if (take("mp;"))
                return '&';
        } else if (take("pos;")) {
            return '\'';
        }
        break;
    case '#':
        ++_cursor;
        if (peek() != 'x')
            return takeNumber(10);
        ++_cursor;
        return takeNumber(16);
    default:
        break;
    }
    ZV_THROW(XmlEx::ExLexicalError);
}

char XmlScanner::takeNumber(unsigned base)
{
    constexpr unsigned LARGEST = 255;
    unsigned number = 0;
    bool hasDigits = false;
    for (;; ++_cursor) {
        int const c = peek();
        unsigned digit = base;
        if (isDigit(c))
            digit = static_cast<unsigned>(c - '0');
        else if ((c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f'))
            digit = static_cast<unsigned>((c & ~0x20) - 'A') + 10;
        if (digit >= base)
            break;
        hasDigits = true;
        number = number * base + digit;
        if (number > LARGEST)
            ZV_THROW(XmlEx::ExLexicalError);
    }
    if (!hasDigits || !take(";"))
        ZV_THROW(XmlEx::ExLexicalError);
    return static_cast<char>(number);
}

XmlToken XmlScanner::scanCdata()
{
    _condition = Condition::INITIAL;
    _token = _cursor;
    if (peek() == END_OF_INPUT)
        return XmlToken::END;
    _token = _cursor;
    char const *position = _cursor;
    for (;;) {
        auto const rest = static_cast<std::size_t>(_input.limit() - position);
        auto const * const bracket = static_cast<char const *>(std::memchr(position, ']', rest));
        position = bracket ? bracket : _input.limit();
        while (_input.limit() - position < 3)
            if (!more(position))
                ZV_THROW(XmlEx::ExLexicalError);
        if (std::memcmp(position, "]]>", 3) == 0)
            break;
        position += *position == ']';
    }
    _cursor = position;
    setValue(_token, static_cast<std::size_t>(position - _token));
    return XmlToken::CDATA_CONTENT;
}

bool XmlScanner::takePlainAttribute()
{
    if (_cursor[0] != ' ' || !is(_cursor[1], NAME_START))
        return false;
    char const * const name = _cursor + 1;
    char const * const nameEnd = skip(name, NAME);
    if (nameEnd[0] != '=' || nameEnd[1] != '"')
        return false;
    char const * const value = nameEnd + 2;
    char const * const valueEnd = skip(value, VALUE);
    if (*valueEnd != '"') // which the end of the window is not
        return false;
    setName(name, static_cast<std::size_t>(nameEnd - name));
    setValue(value, static_cast<std::size_t>(valueEnd - value));
    _cursor = valueEnd + 1;
    return true;
}

XmlToken XmlScanner::nextInTag()
{
    if (is(*_cursor, NAME_START))
        return scanName();
    bool const spaceBefore = skipSpace();
    return afterSpaceInTag(spaceBefore);
}

/// Makes white space a part of a following `>`, `/>` or `=`, and otherwise a token of its own.
XmlToken XmlScanner::afterSpaceInTag(bool spaceBefore)
{
    switch (int const c = peek()) {
    case '>':
        ++_cursor;
        _condition = Condition::INITIAL;
        return XmlToken::TAG_CLOSE;
    case '=':
        ++_cursor;
        skipSpace();
        return XmlToken::EQUALS;
    case '/':
        ++_cursor;
        if (peek() != '>') {
            if (!spaceBefore)
                ZV_THROW(XmlEx::ExLexicalError);
            _condition = Condition::MALFORMED;
            return XmlToken::SPACE;
        }
        ++_cursor;
        _condition = Condition::INITIAL;
        return XmlToken::EMPTY_CLOSE;
    default:
        if (spaceBefore)
            return XmlToken::SPACE;
        if (c == END_OF_INPUT)
            return XmlToken::END;
        if (c == '"' || c == '\'')
            return scanAttributeValue(static_cast<char>(c));
        if (is(static_cast<char>(c), NAME_START))
            return scanName();
        ZV_THROW(XmlEx::ExLexicalError);
    }
}

XmlToken XmlScanner::scanName()
{
    _token = _cursor;
    char const *position = _cursor;
    while ((position = skip(position, NAME)) == _input.limit())
        if (!more(position))
            break;
    _cursor = position;
    setName(_token, static_cast<std::size_t>(position - _token));
    return XmlToken::NAME;
}

XmlToken XmlScanner::scanAttributeValue(char quote)
{
    ++_cursor;
    bool hasPieces = false;
    for (;;) {
        _token = _cursor;
        char const *position = _cursor;
        while (*(position = skip(position, VALUE)) == '\0') {
            if (position != _input.limit())
                ++position; // a zero byte of the value's own
            else if (!more(position))
                return XmlToken::END;
        }
        _cursor = position;
        auto const length = static_cast<std::size_t>(position - _token);
        if (*position == quote && !hasPieces) {
            ++_cursor;
            setValue(_token, length);
            return XmlToken::ATTRIBUTE_VALUE;
        }
        if (!hasPieces)
            _pieces.clear();
        hasPieces = true;
        _pieces.append(_token, length);
        if (*position == quote) {
            ++_cursor;
            setValue(_pieces.data(), _pieces.size());
            return XmlToken::ATTRIBUTE_VALUE;
        }
        if (*position != '&')
            ZV_THROW(XmlEx::ExLexicalError);
        ++_cursor;
        _pieces += takeReference();
    }
}

XmlToken XmlScanner::nextInDeclaration()
{
    bool const spaceBefore = skipSpace();
    int const c = peek();
    if (c == '?') {
        ++_cursor;
        if (peek() == '>') {
            ++_cursor;
            _condition = Condition::INITIAL;
            return XmlToken::DECLARATION_END;
        }
    }
    if (spaceBefore) {
        _condition = Condition::MALFORMED;
        return XmlToken::SPACE;
    }
    if (c == END_OF_INPUT)
        return XmlToken::END;
    if (c == '"' || c == '\'')
        return scanVersionValue(static_cast<char>(c));
    ZV_THROW(XmlEx::ExLexicalError);
}

XmlToken XmlScanner::scanVersionValue(char quote)
{
    ++_cursor;
    _token = _cursor;
    char const *position = _cursor;
    while ((position = skip(position, VERSION)) == _input.limit())
        if (!more(position))
            break;
    if (position == _token || *position != quote)
        ZV_THROW(XmlEx::ExLexicalError);
    _cursor = position + 1;
    setValue(_token, static_cast<std::size_t>(position - _token));
    return XmlToken::VERSION_VALUE;
}

} // namespace Zv
