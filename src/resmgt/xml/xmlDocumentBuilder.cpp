#include "resmgt/xml/xmlDocumentBuilder.h"

#include "resmgt/smartPtrs/unownedObjPtr.h"
#include "resmgt/xml/xmlBlocks.private.h"
#include "resmgt/xml/xmlDocument.h"
#include "resmgt/xml/xmlEx.h"
#include "zvbase/failures.h"

namespace Zv {

XmlDocumentBuilder::XmlDocumentBuilder() : _blocks(new XmlBlocks) {}

XmlDocumentBuilder::~XmlDocumentBuilder() noexcept(false)
{
    destroyUnattached();
}

void XmlDocumentBuilder::destroyUnattached()
{
    while (!_openElements.empty()) {
        ObjPtr<XmlElement> const element(_openElements.back());
        _openElements.pop_back();
    }
    _root.reset();
    _blocks->retire();
}

void XmlDocumentBuilder::setDocument(XmlDocument *document)
{
    destroyUnattached();
    _document = document;
}

XmlDocument *XmlDocumentBuilder::getDocument() const
{
    return _document;
}

XmlDocument &XmlDocumentBuilder::document() const
{
    return *UnownedObjPtr<XmlDocument>(_document);
}

XmlElement &XmlDocumentBuilder::current() const
{
    if (!_openElements.empty())
        return *_openElements.back();
    if (_root.isNull())
        ZV_THROW(XmlEx::ExSyntaxError);
    return *_root;
}

void XmlDocumentBuilder::createXmlDeclaration(LiString const &version)
{
    if (version != "1.0")
        ZV_THROW(XmlEx::ExXmlVersionNotSupported);
    document().enableXmlDecl();
}

void XmlDocumentBuilder::createDocumentType(LiString const &name)
{
    ObjPtr<XmlDocumentType> type(new XmlDocumentType(name));
    document().setDocumentType(type);
}

void XmlDocumentBuilder::notifyBeginElement(LiString const &name)
{
    ObjPtr<XmlElement> element(new (_blocks.get()) XmlElement(name));
    if (_root.isNull()) {
        _root = element;
        return;
    }
    _openElements.push_back(element.get());
    static_cast<void>(element.release());
}

void XmlDocumentBuilder::pushAttribute(LiString const &name, LiString const &value)
{
    current().setAttribute(name, value, _blocks.get());
}

void XmlDocumentBuilder::notifyTextData(LiString const &data)
{
    current()._data.assign(data, _blocks.get());
}

void XmlDocumentBuilder::notifyCharacterData(LiString const &data)
{
    current()._data.assign(data, _blocks.get());
}

void XmlDocumentBuilder::notifyEmptyElementEnd()
{
    static_cast<void>(current());
    endElement();
}

void XmlDocumentBuilder::notifyClosingElement(LiString const &name)
{
    if (!current().isNamed(name))
        ZV_THROW(XmlEx::ExSyntaxError);
    endElement();
}

void XmlDocumentBuilder::endElement()
{
    if (_openElements.empty()) {
        document().setRoot(_root);
        _blocks->retire(); // the document may go to another thread now
        return;
    }
    ObjPtr<XmlElement> element(_openElements.back());
    _openElements.pop_back();
    current().appendChild(element);
}

} // namespace Zv
