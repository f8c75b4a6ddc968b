#include "resmgt/xml/xmlEx.h"

#include "zvbase/exBody.private.h"

namespace Zv {

ZV_EXCEPTION_FAMILY_BODY(XmlEx)
ZV_EXCEPTION_BODY(XmlEx, ExSyntaxError, std::domain_error, (), setReason("Syntax error."))
ZV_EXCEPTION_BODY(XmlEx, ExLexicalError, std::domain_error, (), setReason("Lexical error."))
ZV_EXCEPTION_BODY(XmlEx, ExXmlVersionNotSupported, std::domain_error, (),
                  setReason("XML version not supported."))
ZV_EXCEPTION_BODY(XmlEx, ExChildNotFound, std::domain_error, (),
                  setReason("The reference element is not a child of this element."))
ZV_EXCEPTION_BODY(XmlEx, ExNonExistentAttribute, std::domain_error, (),
                  setReason("Non existent attribute."))
ZV_EXCEPTION_BODY(XmlEx, ExConversionError, std::domain_error, (), setReason("Conversion error."))

XmlEx::ExSaxParsingError::ExSaxParsingError(char const *file, int line, char const *text)
    : std::invalid_argument(""), ExBase(file, line)
{
    constexpr int SHOWN = 256;
    formatReason("Xml parsing error: '%.*s'.", SHOWN, text ? text : "");
}

XmlEx::ExSaxParsingError::~ExSaxParsingError() = default;

} // namespace Zv
