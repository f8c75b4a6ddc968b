// Failures of XML: of its text, of documents and of attributes.
#pragma once

#include "resmgt/export.h"
#include "zvbase/exBase.h"

#include <stdexcept>

namespace Zv {

/// Failures of reading, changing and writing XML. `file` is `__FILE__` of the throwing source.
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

/// The text is no document, or a document is written in a wrong order. "Syntax error."
class ZVRESMGT_EXPORT XmlEx::ExSyntaxError : public std::domain_error, public XmlEx
{
public:
    ExSyntaxError(char const *file, int line);
    ~ExSyntaxError() override;
    ZV_EXCEPTION_MEMBERS(ExSyntaxError)
};

/// A byte where it cannot stand, or a numeric reference above 255. "Lexical error."
class ZVRESMGT_EXPORT XmlEx::ExLexicalError : public std::domain_error, public XmlEx
{
public:
    ExLexicalError(char const *file, int line);
    ~ExLexicalError() override;
    ZV_EXCEPTION_MEMBERS(ExLexicalError)
};

/// A document declares another version than 1.0. "XML version not supported."
class ZVRESMGT_EXPORT XmlEx::ExXmlVersionNotSupported : public std::domain_error, public XmlEx
{
public:
    ExXmlVersionNotSupported(char const *file, int line);
    ~ExXmlVersionNotSupported() override;
    ZV_EXCEPTION_MEMBERS(ExXmlVersionNotSupported)
};

/// "The reference element is not a child of this element."
class ZVRESMGT_EXPORT XmlEx::ExChildNotFound : public std::domain_error, public XmlEx
{
public:
    ExChildNotFound(char const *file, int line);
    ~ExChildNotFound() override;
    ZV_EXCEPTION_MEMBERS(ExChildNotFound)
};

/// "Non existent attribute."
class ZVRESMGT_EXPORT XmlEx::ExNonExistentAttribute : public std::domain_error, public XmlEx
{
public:
    ExNonExistentAttribute(char const *file, int line);
    ~ExNonExistentAttribute() override;
    ZV_EXCEPTION_MEMBERS(ExNonExistentAttribute)
};

/// The value of an attribute is not of the type asked for. "Conversion error."
class ZVRESMGT_EXPORT XmlEx::ExConversionError : public std::domain_error, public XmlEx
{
public:
    ExConversionError(char const *file, int line);
    ~ExConversionError() override;
    ZV_EXCEPTION_MEMBERS(ExConversionError)
};

/// For clients' handlers that find something wrong in what they read: "Xml parsing error: '…'." with the first 256
/// bytes of the text. Not caught as `XmlEx`.
class ZVRESMGT_EXPORT XmlEx::ExSaxParsingError : public std::invalid_argument, public ExBase
{
public:
    /// The text is copied; null stands for an empty one.
    ExSaxParsingError(char const *file, int line, char const *text);
    ~ExSaxParsingError() override;
    ZV_EXCEPTION_MEMBERS(ExSaxParsingError)
};

} // namespace Zv
