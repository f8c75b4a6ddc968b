#include "resmgt/xml/xmlScanner.private.h"

#include "resmgt/xml/xmlBlocks.private.h"
#include "resmgt/xml/xmlEx.h"
#include "zvbase/failures.h"

#include <cstring>

namespace Zv {

using namespace XmlBytes;

namespace {

constexpr int END_OF_INPUT = -1;

} // namespace

XmlScanner::XmlScanner(std::istream &stream, XmlBlocks *keeper)
    : _input(stream, keeper), _cursor(_input.begin()), _token(_cursor)
{}

bool XmlScanner::more()
{
    holdName();
    _cursor = _input.limit();
    return _input.more(_cursor);
}

bool XmlScanner::more(char const *&position)
{
    holdName();
    std::ptrdiff_t const scanned = position - _token;
    bool const read = _input.more(_token);
    position = _token + scanned;
    return read;
}

void XmlScanner::holdName()
{
    if (!_nameIsInWindow || _input.getKeeper())
        return;
    _heldName = _name;
    _name = _heldName;
    _nameIsInWindow = false;
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
        char const * const end = skipWhite(_cursor);
        skipped |= end != _cursor;
        _cursor = end;
        if (_cursor != _input.limit() || !more())
            return skipped;
    }
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
    while (*(position = skipWhite(position)) == '\0' && position == _input.limit())
        if (!more(position))
            break;
    if (position != _token &&
        (*position == '<' || *position == '&' || position == _input.limit())) {
        _cursor = position;
        return XmlToken::SPACE;
    }
    for (;;) {
        position = skipText(position);
        if (*position == ']') {
            while (_input.limit() - position < 3 && more(position)) {
            }
            if (std::memcmp(position, "]]>", 3) == 0) {
                if (position == _token) {
                    _cursor = position + 3;
                    return XmlToken::CDATA_END;
                }
                position += 2; // the text is cut in two, because it has no end of a CDATA section
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
    _value = tokenUntil(position);
    return XmlToken::TEXT;
}

XmlToken XmlScanner::scanReference()
{
    ++_cursor;
    _value = single(takeReference());
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
    _value = tokenUntil(position);
    return XmlToken::CDATA_CONTENT;
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
    while ((position = skipName(position)) == _input.limit())
        if (!more(position))
            break;
    _cursor = position;
    _name = tokenUntil(position);
    _nameIsInWindow = true;
    return XmlToken::NAME;
}

XmlToken XmlScanner::scanAttributeValue(char quote)
{
    ++_cursor;
    bool hasPieces = false;
    for (;;) {
        _token = _cursor;
        char const *position = _cursor;
        while (*(position = skipValue(position)) == '\0') {
            if (position != _input.limit())
                ++position; // a zero byte of the value's own
            else if (!more(position))
                return XmlToken::END;
        }
        _cursor = position;
        std::string_view const piece = tokenUntil(position);
        if (*position == quote && !hasPieces) {
            ++_cursor;
            _value = piece;
            return XmlToken::ATTRIBUTE_VALUE;
        }
        if (!hasPieces)
            _pieces.clear();
        hasPieces = true;
        _pieces += piece;
        if (*position == quote) {
            ++_cursor;
            _value = valueOfPieces();
            return XmlToken::ATTRIBUTE_VALUE;
        }
        if (*position != '&')
            ZV_THROW(XmlEx::ExLexicalError);
        ++_cursor;
        _pieces += takeReference();
    }
}

std::string_view XmlScanner::valueOfPieces()
{
    XmlBlocks * const keeper = _input.getKeeper();
    return keeper ? keeper->copy(_pieces) : _pieces;
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
    _value = tokenUntil(position);
    return XmlToken::VERSION_VALUE;
}

} // namespace Zv
