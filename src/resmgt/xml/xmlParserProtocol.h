// What the parser tells.
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"

namespace Zv {

/// Told what the parser reads, in the order of the text, each call as soon as the text that it tells of has been read.
/// All calls come from the thread that called `XmlParser::parse`. Derive from it and override what is of interest; the
/// bodies here do nothing. What an operation throws comes out of `parse`.
///
/// Strings may be kept: they share their bodies.
class ZVRESMGT_EXPORT XmlParserProtocol
{
public:
    /// The declaration: `<?xml version="1.0"?>`. Once at most, before all else.
    virtual void createXmlDeclaration(LiString const &version);
    /// The document type: `<!DOCTYPE name>`. Once at most, before the root.
    virtual void createDocumentType(LiString const &name);
    /// `<name`: the attributes of the element follow.
    virtual void notifyBeginElement(LiString const &name);
    /// `/>`: the end of a tag without content, and of the element.
    virtual void notifyEmptyElementEnd();
    /// `>`: the end of a start tag; the content follows.
    virtual void notifyStartTagEnd();
    /// `</name>`. Nobody has compared the name with that of the start tag: it is for the protocol to do.
    virtual void notifyClosingElement(LiString const &name);
    /// One attribute of the element that began last. A name may come twice.
    virtual void pushAttribute(LiString const &name, LiString const &value);
    /// A run of text, white space at its ends included, or one reference, as one byte: a text with references comes in
    /// several pieces. White space alone between tags is not told.
    virtual void notifyTextData(LiString const &data);
    /// The content of one CDATA section.
    virtual void notifyCharacterData(LiString const &data);
    virtual ~XmlParserProtocol() noexcept(false);

protected:
    XmlParserProtocol();
    XmlParserProtocol(XmlParserProtocol const &) = default;
    XmlParserProtocol &operator=(XmlParserProtocol const &) = default;
};

} // namespace Zv
