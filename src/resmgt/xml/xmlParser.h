// XML parser, and the protocol that it calls while it reads (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"

#include <iosfwd>

namespace Zv {

/// Receives what the parser reads. Derive from it and override the operations of interest. The
/// implementations here do nothing.
///
///     #include <sstream>
///
///     class ElementCounter : public XmlParserProtocol
///     {
///     public:
///         void notifyBeginElement(LiString const &) override { ++nbElements; }
///         int nbElements = 0;
///     };
///
///     int countElements()
///     {
///         std::istringstream text("<show><clip/><clip/></show>");
///         ElementCounter counter;
///         XmlParser::parse(counter, text);
///         return counter.nbElements; // 3
///     }
///
/// The calls have the order of the text. Each is made as soon as its piece of text has been read.
/// An exception of an operation ends the parse and leaves `XmlParser::parse`. The strings may be
/// kept without a copy of their bytes, because strings share their bodies.
///
/// **Threads**: all calls are made on the thread that called `XmlParser::parse`.
class ZVRESMGT_EXPORT XmlParserProtocol
{
public:
    /// Called for the declaration `<?xml version="1.0"?>`, at most once and before all other calls.
    virtual void createXmlDeclaration(LiString const &version);
    /// Called for the document type `<!DOCTYPE name>`, at most once and before the root.
    virtual void createDocumentType(LiString const &name);
    /// Called for `<name`. The attributes of the element follow.
    virtual void notifyBeginElement(LiString const &name);
    /// Called for `/>`, the end of a tag without content, which also ends the element.
    virtual void notifyEmptyElementEnd();
    /// Called for `>`, the end of a start tag. The content of the element follows.
    virtual void notifyStartTagEnd();
    /// Called for `</name>`. The parser does not compare the name with the start tag. A protocol
    /// that needs matching names must compare them.
    virtual void notifyClosingElement(LiString const &name);
    /// Called for one attribute of the element that began last. The same name may be read twice.
    virtual void pushAttribute(LiString const &name, LiString const &value);
    /// Called for a run of text with the white space at its ends, or for one reference as one byte.
    /// A text with references is reported in several pieces. White space between tags is not
    /// reported.
    virtual void notifyTextData(LiString const &data);
    /// Called for the content of one CDATA section.
    virtual void notifyCharacterData(LiString const &data);
    virtual ~XmlParserProtocol() noexcept(false);

protected:
    XmlParserProtocol();
    XmlParserProtocol(XmlParserProtocol const &) = default;
    XmlParserProtocol &operator=(XmlParserProtocol const &) = default;
};

/// Reads a dialect of XML 1.0: one root element, attributes, text, CDATA sections, comments, a
/// declaration that has only a version, and a DOCTYPE that has only a name.
///
/// - Processing instructions, encodings and entities other than the five named ones are not
///   supported. Numeric references go up to 255, and a byte is a character.
/// - A name begins with a letter, `_`, `:` or a Latin-1 letter. Digits, `-`, `.` and the byte 0xB7
///   may follow.
/// - White space that is alone before a tag, a comment, a reference or the end is dropped.
/// - If a value contains a quote of either kind, the quote must be written as a reference.
/// - Only comments may be in front of a declaration. A byte order mark is not white space.
/// - Elements may nest 2000 deep.
namespace XmlParser {

/// Reads a whole document, up to the end of the stream, and calls `protocol`. A failure to read
/// counts as the end of the stream.
///
/// **Threads**: thread-safe, because no state is kept between calls. A protocol may parse another
/// stream in one of its operations.
///
/// **Blocks** while reading from the stream blocks.
///
/// **Throws** `XmlEx::ExLexicalError` or `XmlEx::ExSyntaxError` if the text is no document or nests
/// too deep, and every exception of the protocol. Ends the process with exit code 2 if there is no
/// memory to read into.
ZVRESMGT_EXPORT void parse(XmlParserProtocol &protocol, std::istream &input);

} // namespace XmlParser

} // namespace Zv
