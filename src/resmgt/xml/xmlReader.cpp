#include "resmgt/xml/xmlReader.h"

#include "resmgt/locks/lkGuard.h"
#include "resmgt/smartPtrs/unownedObjPtr.h"
#include "resmgt/xml/xmlEx.h"
#include "resmgt/xml/xmlMemoryStream.private.h"
#include "resmgt/xml/xmlParser.h"
#include "zvbase/failures.h"

#include <fstream>
#include <utility>

namespace Zv {

/// One parse of a reader. The state of a parse that the same thread has begun before is put aside
/// meanwhile.
class XmlReader::Build
{
public:
    explicit Build(XmlReader &reader) : _reader(reader) { swap(); }
    Build(Build const &) = delete;
    Build &operator=(Build const &) = delete;
    ~Build() noexcept(false) { swap(); }

private:
    void swap()
    {
        std::swap(_reader._attributes, _attributes);
        std::swap(_reader._openNames, _openNames);
        std::swap(_reader._elements, _elements);
        _reader._root.swap(_root);
    }

    XmlReader &_reader;
    XmlAttributeList _attributes;
    std::deque<LiString> _openNames;
    std::vector<XmlBaseElement *> _elements;
    ObjPtr<XmlBaseElement> _root;
};

XmlReader::XmlReader(XmlBaseElementBuilder &builder) : _builder(builder), _lock("XmlReader") {}

XmlReader::~XmlReader() noexcept(false) = default;

ObjPtrRet<XmlBaseElement> XmlReader::buildElement(std::istream &input)
{
    LkGuard guard(_lock);
    Build build(*this);
    XmlParser::parse(*this, input);
    return ObjPtrRet<XmlBaseElement>(_root);
}

ObjPtrRet<XmlBaseElement> XmlReader::buildElement(LiString const &text)
{
    XmlMemoryStream stream(text.getChars(), static_cast<std::size_t>(text.getLength()));
    return buildElement(stream);
}

ObjPtrRet<XmlBaseElement> XmlReader::buildElementFromFile(LiString const &fileName)
{
    std::ifstream file(fileName.getChars(), std::ios_base::in | std::ios_base::binary);
    return buildElement(file);
}

XmlBaseElementBuilder &XmlReader::getElementBuilder() const
{
    return _builder;
}

// Only elements and attributes are read.
void XmlReader::createXmlDeclaration(LiString const &) {}
void XmlReader::createDocumentType(LiString const &) {}
void XmlReader::notifyTextData(LiString const &) {}
void XmlReader::notifyCharacterData(LiString const &) {}

void XmlReader::startElement(LiString const &name, XmlAttributeList const &attributes)
{
    XmlBaseElement *element = nullptr;
    if (_elements.empty()) {
        _root.reset(_builder.createElement(*this, name, attributes));
        element = _root.get();
    } else {
        element = _elements.back()->createElement(*this, name, attributes);
    }
    UnownedObjPtr<XmlBaseElement> const made(element);
    _elements.push_back(element);
    made->performRead(attributes);
}

void XmlReader::endElement(LiString const &)
{
    if (_elements.empty())
        ZV_THROW(XmlEx::ExSyntaxError);
    _elements.back()->performReadEnd();
    _elements.pop_back();
}

} // namespace Zv
