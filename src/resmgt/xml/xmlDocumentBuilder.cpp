#include "resmgt/xml/xmlDocumentBuilder.h"

#include "resmgt/smartPtrs/unownedObjPtr.h"
#include "resmgt/xml/xmlDocument.h"
#include "resmgt/xml/xmlElementParts.private.h"
#include "resmgt/xml/xmlEx.h"
#include "resmgt/xml/xmlParsing.private.h"
#include "zvbase/failures.h"

#include <cstdint>
#include <cstring>
#include <new>
#include <string_view>

namespace Zv {

namespace {

/// Returns whether an element may view such a name.
bool isPlain(LiString const &name)
{
    return !name.isEmpty() && std::strlen(name.getChars()) == std::string_view(name).size();
}

} // namespace

template <class Name>
inline void XmlDocumentBuilder::beginElement(Name const &name)
{
    if (_current) {
        XmlBlocks &blocks = *_current->_blocks;
        void * const memory = blocks.allocate(sizeof(XmlElement));
        auto * const child = ::new (memory) XmlElement(name, blocks);
        _current->link(*child, nullptr);
        _current = child;
    } else {
        XmlBlocks &blocks = memory();
        _root.reset(new XmlElement(name, blocks));
        blocks.setRoot(*_root);
        static_cast<void>(_blocks.release());
        _current = _root.get();
    }
}

/// Builds a document from views that are valid as long as its memory.
class XmlDocumentBuilder::Sink
{
public:
    explicit Sink(XmlDocumentBuilder &builder) : _builder(builder) {}

    void createXmlDeclaration(std::string_view version) { _builder.createXmlDeclaration(version); }
    void createDocumentType(std::string_view name) { _builder.createDocumentType(name); }
    void notifyBeginElement(std::string_view name)
    {
        _builder.beginElement(name);
        _nextAttribute = &current()._firstAttribute;
        _marks = 0;
    }
    void notifyEmptyElementEnd() { _builder.endElement(); }
    void notifyStartTagEnd() {}
    void notifyClosingElement(std::string_view name)
    {
        if (!current().hasName(name))
            ZV_THROW(XmlEx::ExSyntaxError);
        _builder.endElement();
    }
    void pushAttribute(std::string_view name, std::string_view value)
    {
        // Two equal names have equal marks, so most names need not be compared with the others.
        XmlElement &element = current();
        std::uint64_t const mark = std::uint64_t{1} << ((name.size() + name.back()) & 63);
        if (_marks & mark || element._nbAttributes >= XmlElement::AttributeIndex::MANY) {
            element.viewAttribute(name, value);
            while (*_nextAttribute)
                _nextAttribute = &(*_nextAttribute)->next;
            return;
        }
        _marks |= mark;
        void * const memory = element._blocks->allocate(sizeof(XmlElement::Attribute));
        auto * const attribute = ::new (memory) XmlElement::Attribute(name, value, false);
        *_nextAttribute = attribute;
        _nextAttribute = &attribute->next;
        ++element._nbAttributes;
    }
    void notifyTextData(std::string_view data) { current().viewData(data); }
    void notifyCharacterData(std::string_view data) { current().viewData(data); }

private:
    XmlElement &current() const { return *_builder._current; }

    XmlDocumentBuilder &_builder;
    // Of the element that began last:
    XmlElement::Attribute **_nextAttribute = nullptr; // the link to one more
    std::uint64_t _marks = 0;
};

XmlDocumentBuilder::XmlDocumentBuilder() = default;

XmlDocumentBuilder::~XmlDocumentBuilder() noexcept(false)
{
    destroyUnattached();
}

void XmlDocumentBuilder::destroyUnattached()
{
    _current = nullptr;
    _root.reset();
    _blocks.reset();
}

void XmlDocumentBuilder::parseKept(std::istream &input)
{
    XmlBlocks &keeper = memory();
    Sink sink(*this);
    XmlParsing<Sink>(sink, input, &keeper).parse();
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

XmlBlocks &XmlDocumentBuilder::memory()
{
    if (_current)
        return *_current->_blocks;
    if (_blocks.isNull())
        _blocks.reset(new XmlBlocks);
    return *_blocks;
}

XmlElement &XmlDocumentBuilder::current() const
{
    if (!_current)
        ZV_THROW(XmlEx::ExSyntaxError);
    return *_current;
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
    if (isPlain(name))
        return beginElement(memory().copy(name));
    memory().setOwning();
    beginElement(name);
}

void XmlDocumentBuilder::pushAttribute(LiString const &name, LiString const &value)
{
    if (isPlain(name))
        current().viewAttribute(memory().copy(name), memory().copy(value));
    else
        current().setAttribute(name, value);
}

void XmlDocumentBuilder::notifyTextData(LiString const &data)
{
    current().viewData(memory().copy(data));
}

void XmlDocumentBuilder::notifyCharacterData(LiString const &data)
{
    current().viewData(memory().copy(data));
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
    if (_current != _root.get()) {
        _current = _current->_parent;
        return;
    }
    XmlDocument &target = document();
    _current = nullptr;
    target.setRoot(_root);
}

} // namespace Zv
