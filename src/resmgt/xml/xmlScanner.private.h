// Cuts XML text into tokens.
#pragma once

#include "resmgt/xml/xmlBytes.private.h"
#include "resmgt/xml/xmlInput.private.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace Zv {

/// A token of XML. Comments are no tokens.
enum class XmlToken
{
    END,
    DECLARATION_START, // <?xml version=
    DECLARATION_END,   // ?>
    VERSION_VALUE,
    DOCTYPE_START, // <!DOCTYPE
    START_TAG,     // <
    END_TAG,       // </
    TAG_CLOSE,     // >
    EMPTY_CLOSE,   // />
    NAME,
    EQUALS,
    ATTRIBUTE_VALUE,
    TEXT,
    CDATA_START, // <![CDATA[
    CDATA_CONTENT,
    CDATA_END, // ]]>
    SPACE,
};

/// A piece of XML that is written as most are and lies in the window as a whole.
enum class XmlPlain
{
    NONE, // anything else
    START_TAG,
    END_TAG,
    TEXT,
    TAG_CLOSE,
    EMPTY_CLOSE,
};

/// Cuts a stream into tokens.
class XmlScanner
{
public:
    /// If `keeper` is not null, it keeps the bytes of names and values.
    XmlScanner(std::istream &stream, XmlBlocks *keeper);

    /// Returns the next token. Throws `XmlEx::ExLexicalError` if no token can begin with the next
    /// byte.
    XmlToken next();

    /// Each of the following takes some tokens in one step if the next bytes are plain. If they are
    /// not, it takes nothing.
    ///
    /// Takes the white space before a tag, and `<name` or `</name>`, or takes a text.
    XmlPlain takePlainContent();
    /// Takes an attribute, with the white space before it, and returns true. The name is followed
    /// by `=` at once, and the value has no references. Does not set `name` and `value`.
    bool takePlainAttribute(std::string_view &name, std::string_view &value);
    /// Takes `>` or `/>`.
    XmlPlain takePlainTagEnd();

    /// Returns the text of the last `NAME`. If no keeper keeps it, it is valid until the next one.
    std::string_view name() const { return _name; }
    /// Returns the text of the last `ATTRIBUTE_VALUE`, `VERSION_VALUE`, `TEXT` or `CDATA_CONTENT`.
    /// If no keeper keeps it, it is valid until the next token.
    std::string_view value() const { return _value; }

private:
    /// Which tokens may follow.
    enum class Condition
    {
        INITIAL,
        DECLARATION,
        TAG,
        CDATA,
        MALFORMED, // behind the start of what is no tag, no comment and no declaration
    };

    XmlToken nextInContent();
    XmlToken nextInTag();
    XmlToken nextInDeclaration();
    XmlToken scanMarkup();
    XmlToken scanExclamation();
    XmlToken scanDeclarationStart();
    XmlToken scanText();
    XmlToken scanReference();
    XmlToken scanName();
    XmlToken scanAttributeValue(char quote);
    std::string_view valueOfPieces();
    XmlToken scanVersionValue(char quote);
    XmlToken scanCdata();
    XmlToken afterSpaceInTag(bool spaceBefore);
    XmlToken startOfNothing();

    bool skipComment();
    bool skipSpace();
    bool take(std::string_view text);
    char takeReference();
    char takeNumber(unsigned base);
    /// Reads the next block at `_cursor`. No bytes of the window are needed any longer.
    bool more();
    /// Reads the next block for a loop that has reached the end of the window. The bytes from
    /// `_token` on are needed, and `position` moves with them.
    bool more(char const *&position);
    /// Copies the last name before its bytes move.
    void holdName();
    /// Returns the byte at the cursor, or `END_OF_INPUT`.
    int peek();

    /// Ends a name or a value that began at `_token`.
    std::string_view tokenUntil(char const *end) const
    {
        return {_token, static_cast<std::size_t>(end - _token)};
    }

    XmlInput _input;
    Condition _condition = Condition::INITIAL;
    char const *_cursor;
    char const *_token; // the beginning of the present token
    std::string_view _name;
    std::string_view _value;
    bool _nameIsInWindow = false;
    std::string _heldName;
    std::string _pieces; // of a value with references
};

inline XmlPlain XmlScanner::takePlainContent()
{
    char const * const start = XmlBytes::skipWhite(_cursor);
    if (*start != '<') {
        char const * const end = XmlBytes::skipText(start);
        if (*end != '<' && (*end != '&' || end == start))
            return XmlPlain::NONE;
        _value = {_cursor, static_cast<std::size_t>(end - _cursor)};
        _cursor = end;
        return XmlPlain::TEXT;
    }
    bool const closes = start[1] == '/';
    char const * const name = start + 1 + closes;
    if (!XmlBytes::is(*name, XmlBytes::NAME_START))
        return XmlPlain::NONE;
    char const * const end = XmlBytes::skipName(name + 1);
    if (closes ? *end != '>' : *end == '\0') // a zero byte may be the end of the window
        return XmlPlain::NONE;
    _name = {name, static_cast<std::size_t>(end - name)};
    _nameIsInWindow = true;
    if (closes) {
        _cursor = end + 1;
        return XmlPlain::END_TAG;
    }
    _cursor = end;
    _condition = Condition::TAG;
    return XmlPlain::START_TAG;
}

inline bool XmlScanner::takePlainAttribute(std::string_view &name, std::string_view &value)
{
    char const *start = _cursor + 1;
    if (*_cursor != ' ' || !XmlBytes::is(*start, XmlBytes::NAME_START)) {
        start = XmlBytes::skipWhite(_cursor);
        if (start == _cursor || !XmlBytes::is(*start, XmlBytes::NAME_START))
            return false;
    }
    char const * const nameEnd = XmlBytes::skipName(start + 1);
    char const quote = *nameEnd == '=' ? nameEnd[1] : '\0';
    if (quote != '"' && quote != '\'')
        return false;
    char const * const valueStart = nameEnd + 2;
    char const * const valueEnd = XmlBytes::skipValue(valueStart);
    if (*valueEnd != quote) // which the end of the window is not
        return false;
    name = {start, static_cast<std::size_t>(nameEnd - start)};
    value = {valueStart, static_cast<std::size_t>(valueEnd - valueStart)};
    _cursor = valueEnd + 1;
    return true;
}

inline XmlPlain XmlScanner::takePlainTagEnd()
{
    bool const isEmpty = *_cursor == '/';
    if (_cursor[isEmpty] != '>')
        return XmlPlain::NONE;
    _cursor += 1 + isEmpty;
    _condition = Condition::INITIAL;
    return isEmpty ? XmlPlain::EMPTY_CLOSE : XmlPlain::TAG_CLOSE;
}

} // namespace Zv
