// Cuts XML text into tokens.
#pragma once

#include "resmgt/literals/liString.h"
#include "resmgt/xml/xmlInput.private.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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

/// Cuts a stream into tokens.
class XmlScanner
{
public:
    explicit XmlScanner(std::istream &stream);

    /// Returns the next token. Throws `XmlEx::ExLexicalError` if no token can begin with the next
    /// byte.
    XmlToken next();
    /// Takes a whole attribute of a tag and returns true, if it is written as most are: a blank, a
    /// name, `=`, and a value without references in double quotes. Otherwise takes nothing and
    /// returns false.
    bool takePlainAttribute();
    /// Returns the text of the last `NAME`. It is valid until the next one.
    LiString const &name() const { return *_name; }
    /// Returns the text of the last `ATTRIBUTE_VALUE`, `VERSION_VALUE`, `TEXT` or `CDATA_CONTENT`.
    /// It is valid until the next one of them.
    LiString const &value() const { return _values[_turn]; }

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

    /// A name that was read before. A text repeats few names, so each is created once, and kept
    /// near the place that its bytes determine.
    struct KnownName
    {
        std::uint64_t head = 0; // the first bytes
        std::size_t length = 0; // 0 for none
        std::optional<LiString> name;
    };
    static constexpr std::size_t NAMES = 256;
    static constexpr std::size_t NEAR = 4;

    /// So many values are kept in turn. The memory of a value is used again if no handler keeps it.
    static constexpr std::size_t VALUES = 8;

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
    XmlToken scanVersionValue(char quote);
    XmlToken scanCdata();
    XmlToken afterSpaceInTag(bool spaceBefore);
    XmlToken startOfNothing();

    bool skipComment();
    bool skipSpace();
    bool take(std::string_view text);
    char takeReference();
    char takeNumber(unsigned base);
    /// Reads the next block at `_cursor`. No bytes are kept.
    bool more();
    /// Reads the next block for a loop that has reached the end of the window. The bytes from
    /// `_token` on are kept, and `position` moves with them.
    bool more(char const *&position);
    /// Returns the byte at the cursor, or `END_OF_INPUT`.
    int peek();

    void setName(char const *bytes, std::size_t length);
    void setValue(char const *bytes, std::size_t length);

    XmlInput _input;
    Condition _condition = Condition::INITIAL;
    char const *_cursor;
    char const *_token; // the beginning of the present token
    LiString const *_name = nullptr;
    std::size_t _turn = 0;
    std::array<LiString, VALUES> _values;
    std::string _pieces; // of a value with references
    std::vector<KnownName> _names;
};

} // namespace Zv
