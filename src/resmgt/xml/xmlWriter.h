// Writes objects of application classes as XML text (applications).
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

/// Writes `XmlBaseElement`s into a text. Each level is indented by four blanks, each attribute has
/// a line of its own, and each element has a start tag and an end tag.
///
///     XmlWriter writer;
///     writer.startElement("show");
///     writer.writeAttribute("frames", 25);
///     writer.endElement("show");
///     std::cout << writer.getXml();
///
/// By design, values are not escaped. If a value contains a quote, the parser rejects the text.
/// `XmlReader` has an example with a class of its own.
///
/// **Threads**: one thread at a time.
///
/// **Throws** every exception of an element. The writer then keeps a part of the text, until the
/// next `reset`, `toXml` or `toXmlDocument`.
class ZVRESMGT_EXPORT XmlWriter
{
public:
    XmlWriter();
    XmlWriter(XmlWriter const &) = delete;
    XmlWriter &operator=(XmlWriter const &) = delete;
    virtual ~XmlWriter() noexcept(false);

    /// Empties the text and closes all elements.
    void reset();
    /// Writes the start of an element.
    void startElement(LiString const &name);
    /// Writes an attribute. It must be called between the start of an element and its first child.
    /// This is not checked. Numbers are written in the "C" locale, and the forms for single bytes
    /// write a number.
    void writeAttribute(LiString const &name, LiString const &value);
    void writeAttribute(LiString const &name, int value);
    void writeAttribute(LiString const &name, short value);
    void writeAttribute(LiString const &name, signed char value);
    void writeAttribute(LiString const &name, unsigned char value);
    void writeAttribute(LiString const &name, unsigned int value);
    void writeAttribute(LiString const &name, unsigned short value);
    /// Writes the end of an element. The name must be that of the innermost open one, which is not
    /// checked. Throws `LiStringEx::ExOutOfBounds` if no element is open.
    void endElement(LiString const &name);
    /// Writes an element with its tags.
    void writeElement(XmlBaseElement &element);

    /// Returns the text of one element. The writer is emptied before and afterwards.
    LiString toXml(XmlBaseElement &element);
    /// Returns the text of a document with a declaration, a DOCTYPE and the root. The writer is
    /// emptied before and afterwards.
    LiString toXmlDocument(XmlTopElement &top);
    /// Returns the text of a document with another name in its DOCTYPE.
    LiString toXmlDocument(XmlTopElement &top, LiString const &docType);
    /// Returns the text that was written so far.
    LiString getXml();

private:
    void initialize();
    /// Returns the text, which is created at first use.
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
