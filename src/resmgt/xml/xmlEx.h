// Exceptions of XML texts, documents and attributes (applications).
#pragma once

#include "resmgt/export.h"
#include "zvbase/exBase.h"

#include <stdexcept>

namespace Zv {

/// Exceptions of reading, changing and writing XML.
class ZVRESMGT_EXPORT XmlEx : public ExBase
{
public:
    class ExSyntaxError;
    class ExLexicalError;
    class ExXmlVersionNotSupported;
    class ExChildNotFound;
    class ExNonExistentAttribute;
    class ExConversionError;
    class ExSaxParsingError;

    XmlEx(char const *file, int line) noexcept;
};

/// Thrown if a text is not a document, or a document is written in a wrong order. "Syntax error."
ZV_EXCEPTION(ZVRESMGT_EXPORT, XmlEx, ExSyntaxError, std::domain_error, XmlEx);

/// Thrown if a text has a byte that is not allowed there, or a numeric reference above 255.
/// "Lexical error."
ZV_EXCEPTION(ZVRESMGT_EXPORT, XmlEx, ExLexicalError, std::domain_error, XmlEx);

/// Thrown if a document declares another version than 1.0. "XML version not supported."
ZV_EXCEPTION(ZVRESMGT_EXPORT, XmlEx, ExXmlVersionNotSupported, std::domain_error, XmlEx);

/// Thrown if an element that marks a position is not a child of the element that is changed.
/// "The reference element is not a child of this element."
ZV_EXCEPTION(ZVRESMGT_EXPORT, XmlEx, ExChildNotFound, std::domain_error, XmlEx);

/// Thrown if an element has no attribute of a name. "Non existent attribute."
ZV_EXCEPTION(ZVRESMGT_EXPORT, XmlEx, ExNonExistentAttribute, std::domain_error, XmlEx);

/// Thrown if the value of an attribute cannot be converted to the requested type.
/// "Conversion error."
ZV_EXCEPTION(ZVRESMGT_EXPORT, XmlEx, ExConversionError, std::domain_error, XmlEx);

/// For handlers of applications to throw if they reject what the parser reads.
/// "Xml parsing error: '%.*s'.", with the first 256 bytes of `text`. The text is copied. A null
/// pointer is an empty text. Cannot be caught as `XmlEx`.
ZV_EXCEPTION(ZVRESMGT_EXPORT, XmlEx, ExSaxParsingError, std::invalid_argument, ExBase,
             char const *text);

} // namespace Zv
