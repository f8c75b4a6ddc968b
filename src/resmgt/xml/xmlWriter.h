// Writes clients' own classes as XML text.
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "zvbase/objPtr.h"

#include <cstdint>
#include <sstream>
#include <vector>

namespace Zv {

class XmlBaseElement;
class XmlTopElement;

/// Collects a text of elements that are indented by four blanks a level, attributes each on a line of its own.
///
///     LiString const text(writer.toXmlDocument(show));
///
/// Each element is written with a start and an end tag. Values are not escaped: one that holds a quote gives a text
/// that the parser rejects. One thread at a time. What an element throws passes through; the next `reset`, `toXml` or
/// `toXmlDocument` starts afresh.
class ZVRESMGT_EXPORT XmlWriter
{
public:
    XmlWriter();
    XmlWriter(XmlWriter const &) = delete;
    XmlWriter &operator=(XmlWriter const &) = delete;
    virtual ~XmlWriter() noexcept(false);

    /// An empty text again.
    void reset();
    void startElement(LiString const &name);
    /// Between the start of an element and its first child. Numbers are written in the "C" locale, and the forms for
    /// single bytes write a number.
    void writeAttribute(LiString const &name, LiString const &value);
    void writeAttribute(LiString const &name, int value);
    void writeAttribute(LiString const &name, short value);
    void writeAttribute(LiString const &name, signed char value);
    void writeAttribute(LiString const &name, unsigned char value);
    void writeAttribute(LiString const &name, unsigned int value);
    void writeAttribute(LiString const &name, unsigned short value);
    /// Where no element is open it throws `LiStringEx::ExOutOfBounds`.
    void endElement(LiString const &name);
    /// The element between its tags.
    void writeElement(XmlBaseElement &element);

    /// The text of one element alone, or with a declaration and a DOCTYPE before it. The writer is empty before and
    /// afterwards.
    LiString toXml(XmlBaseElement &element);
    LiString toXmlDocument(XmlTopElement &top);
    LiString toXmlDocument(XmlTopElement &top, LiString const &docType);
    /// The text so far.
    LiString getXml();

private:
    void initialize();
    /// The text, made at first use.
    std::ostringstream &text();
    template <class X>
    void writeValue(LiString const &name, X const &value);
    void endStartTag();

    ObjPtr<std::ostringstream> _text;
    LiString _indentation;
    ObjPtr<std::vector<bool>> _openTags; // true while a start tag has no `>` yet
    std::int32_t _depth = -1;
};

} // namespace Zv
