#include "resmgt/xml/xmlEx.h"

namespace Zv {

XmlEx::XmlEx(char const *file, int line) noexcept : ExBase(file, line) {}

XmlEx::ExSyntaxError::ExSyntaxError(char const *file, int line)
    : std::domain_error(""), XmlEx(file, line)
{
    setReason("Syntax error.");
}

XmlEx::ExSyntaxError::~ExSyntaxError() = default;

XmlEx::ExLexicalError::ExLexicalError(char const *file, int line)
    : std::domain_error(""), XmlEx(file, line)
{
    setReason("Lexical error.");
}

XmlEx::ExLexicalError::~ExLexicalError() = default;

XmlEx::ExXmlVersionNotSupported::ExXmlVersionNotSupported(char const *file, int line)
    : std::domain_error(""), XmlEx(file, line)
{
    setReason("XML version not supported.");
}

XmlEx::ExXmlVersionNotSupported::~ExXmlVersionNotSupported() = default;

XmlEx::ExChildNotFound::ExChildNotFound(char const *file, int line)
    : std::domain_error(""), XmlEx(file, line)
{
    setReason("The reference element is not a child of this element.");
}

XmlEx::ExChildNotFound::~ExChildNotFound() = default;

XmlEx::ExNonExistentAttribute::ExNonExistentAttribute(char const *file, int line)
    : std::domain_error(""), XmlEx(file, line)
{
    setReason("Non existent attribute.");
}

XmlEx::ExNonExistentAttribute::~ExNonExistentAttribute() = default;

XmlEx::ExConversionError::ExConversionError(char const *file, int line)
    : std::domain_error(""), XmlEx(file, line)
{
    setReason("Conversion error.");
}

XmlEx::ExConversionError::~ExConversionError() = default;

XmlEx::ExSaxParsingError::ExSaxParsingError(char const *file, int line, char const *text)
    : std::invalid_argument(""), ExBase(file, line)
{
    constexpr int SHOWN = 256;
    formatReason("Xml parsing error: '%.*s'.", SHOWN, text ? text : "");
}

XmlEx::ExSaxParsingError::~ExSaxParsingError() = default;

} // namespace Zv
