// The tokens of XML.
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

/// What the scanner finds. Comments are no tokens.
enum class XmlToken
{
    end,
    declarationStart, // <?xml version=
    declarationEnd,   // ?>
    versionValue,
    doctypeStart, // <!DOCTYPE
    startTag,     // <
    endTag,       // </
    tagClose,     // >
    emptyClose,   // />
    name,
    equals,
    attributeValue,
    text,
    cdataStart, // <![CDATA[
    cdataContent,
    cdataEnd, // ]]>
    space,
};

/// Cuts the input into tokens. A byte that can begin none throws `XmlEx::ExLexicalError`.
class XmlScanner
{
public:
    explicit XmlScanner(std::istream &stream);

    XmlToken next();
    /// In a tag: takes a whole attribute, with the `space` before it, where it is written as most are: a blank, a name,
    /// a `=`, a value without references between double quotes. Where it is not, this takes nothing and answers false.
    bool takePlainAttribute();
    /// The text of the last `name`. Valid until the next one.
    LiString const &name() const { return *_name; }
    /// The text of the last `attributeValue`, `versionValue`, `text` or `cdataContent`. Valid until the next one of
    /// them.
    LiString const &value() const { return _values[_turn]; }

private:
    /// What may come depends on where it comes.
    enum class Condition
    {
        initial,
        declaration,
        tag,
        cdata,
        malformed, // behind the start of what is no tag, no comment and no declaration
    };

    /// The same few names come again and again: each of them is made once, and kept near the place that its bytes
    /// give.
    struct KnownName
    {
        std::uint64_t head = 0; // the first bytes
        std::size_t length = 0; // 0 for none
        std::optional<LiString> name;
    };
    static constexpr std::size_t NAMES = 256;
    static constexpr std::size_t NEAR = 4;

    /// A handler that keeps the last few values lets the ones before be used again.
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
    /// Reads on at `_cursor`, with nothing kept.
    bool more();
    /// Reads on where a loop has come to the end of the window; `position` moves with what is kept from `_token` on.
    bool more(char const *&position);
    /// The byte at the cursor, or `END_OF_INPUT`.
    int peek();

    void setName(char const *bytes, std::size_t length);
    void setValue(char const *bytes, std::size_t length);

    XmlInput _input;
    Condition _condition = Condition::initial;
    char const *_cursor;
    char const *_token; // where the token begins that is being scanned
    LiString const *_name = nullptr;
    std::size_t _turn = 0;
    std::array<LiString, VALUES> _values;
    std::string _pieces; // of a value with references
    std::vector<KnownName> _names;
};

} // namespace Zv
