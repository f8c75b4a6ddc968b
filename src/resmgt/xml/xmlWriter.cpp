#include "resmgt/xml/xmlWriter.h"

#include "resmgt/xml/xmlBaseElement.h"
#include "resmgt/xml/xmlStatics.private.h"

#include <locale>

namespace Zv {

XmlWriter::XmlWriter() = default;
XmlWriter::~XmlWriter() noexcept(false) = default;

void XmlWriter::initialize()
{
    _text.reset(new std::ostringstream);
    _text->imbue(std::locale::classic());
    // Otherwise the stream would not report that there is no memory.
    _text->exceptions(std::ios_base::badbit);
    _indentation = LiString();
    _openTags.reset(new std::vector<bool>);
    _depth = -1;
}

void XmlWriter::reset()
{
    initialize();
}

std::ostringstream &XmlWriter::text()
{
    if (_text.isNull())
        reset();
    return *_text;
}

void XmlWriter::endStartTag()
{
    if (_depth >= 0 && _openTags->back()) {
        text() << ">\n";
        _openTags->back() = false;
    }
}

void XmlWriter::startElement(LiString const &name)
{
    std::ostringstream &stream = text();
    endStartTag();
    ++_depth;
    _openTags->push_back(true);
    stream << '\n' << _indentation << '<' << name;
    _indentation += *XmlStatics::indentStep;
}

template <class X>
void XmlWriter::writeValue(LiString const &name, X const &value)
{
    text() << '\n' << _indentation << name << "=\"" << value << '"';
}

void XmlWriter::writeAttribute(LiString const &name, LiString const &value)
{
    writeValue(name, value);
}

void XmlWriter::writeAttribute(LiString const &name, int value)
{
    writeValue(name, value);
}

void XmlWriter::writeAttribute(LiString const &name, short value)
{
    writeValue(name, value);
}

void XmlWriter::writeAttribute(LiString const &name, signed char value)
{
    writeValue(name, int{value});
}

void XmlWriter::writeAttribute(LiString const &name, unsigned char value)
{
    writeValue(name, int{value});
}

void XmlWriter::writeAttribute(LiString const &name, unsigned int value)
{
    writeValue(name, value);
}

void XmlWriter::writeAttribute(LiString const &name, unsigned short value)
{
    writeValue(name, value);
}

void XmlWriter::endElement(LiString const &name)
{
    std::ostringstream &stream = text();
    _indentation =
        LiString(_indentation, 0, _indentation.getLength() - XmlStatics::indentStep->getLength());
    endStartTag();
    _openTags->pop_back();
    stream << _indentation << "</" << name << ">\n";
    --_depth;
}

void XmlWriter::writeElement(XmlBaseElement &element)
{
    startElement(element.getTagName());
    element.performWrite(*this);
    endElement(element.getTagName());
}

LiString XmlWriter::toXml(XmlBaseElement &element)
{
    reset();
    writeElement(element);
    LiString xml(getXml());
    initialize();
    return xml;
}

LiString XmlWriter::toXmlDocument(XmlTopElement &top)
{
    return toXmlDocument(top, top.getDocumentTypeName());
}

LiString XmlWriter::toXmlDocument(XmlTopElement &top, LiString const &docType)
{
    reset();
    text() << "<?xml version='1.0'?>\n\n<!DOCTYPE " << docType << ">\n";
    writeElement(top);
    LiString xml(getXml());
    initialize();
    return xml;
}

LiString XmlWriter::getXml()
{
    return LiString(text());
}

} // namespace Zv
