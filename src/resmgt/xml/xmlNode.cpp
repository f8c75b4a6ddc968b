#include "resmgt/xml/xmlNode.h"

#include "resmgt/xml/xmlElement.h"

#include <new>
#include <stdexcept>
#include <utility>

namespace Zv {

XmlText::XmlText(XmlText const &source) : XmlText()
{
    XmlText copy = source._isView ? XmlText(source.getBytes()) : XmlText(source._string);
    take(copy);
}

XmlText::XmlText(XmlText &&source) noexcept : XmlText()
{
    take(source);
}

XmlText &XmlText::operator=(XmlText source) noexcept
{
    if (!_isView)
        _string.~LiString();
    take(source);
    return *this;
}

/// Takes the text of another one over. This one has no string.
void XmlText::take(XmlText &source) noexcept
{
    _isView = source._isView;
    _viewedLength = source._viewedLength;
    if (_isView)
        _bytes = source._bytes;
    else
        ::new (static_cast<void *>(&_string)) LiString(std::move(source._string));
}

void XmlText::throwTooLong()
{
    throw std::length_error("LiString");
}

XmlNode::~XmlNode() noexcept(false) = default;

LiString XmlNode::getNodeName() const
{
    if (!_name._isView)
        return _name._string;
    return static_cast<XmlElement const &>(*this).viewedName();
}

XmlDocumentType::~XmlDocumentType() noexcept(false) = default;

XmlAttribute::~XmlAttribute() noexcept(false) = default;

void XmlAttribute::streamToOutput(XmlStreamer::ElementGuard &guard) const
{
    guard.addAttribute(name().getChars(), _value.getChars());
}

} // namespace Zv
