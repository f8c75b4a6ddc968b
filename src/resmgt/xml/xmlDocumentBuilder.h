// Builds a document from what the parser tells.
#pragma once

#include "resmgt/xml/xmlElement.h"
#include "resmgt/xml/xmlParserProtocol.h"
#include "zvbase/objPtr.h"

#include <vector>

namespace Zv {

class XmlBlocks;
class XmlDocument;

/// Fills a document. Derive from it to see what is read on its way into the document, or to leave something out.
///
/// The document gets the root when the root has ended, declaration and document type as soon as they are read. What
/// is not attached yet belongs to the builder: after a parse that failed it is destroyed with the builder, or by the
/// next `setDocument`. A text without a document throws `RCEx::ExNullPtr`.
class ZVRESMGT_EXPORT XmlDocumentBuilder : public XmlParserProtocol
{
public:
    XmlDocumentBuilder();
    XmlDocumentBuilder(XmlDocumentBuilder const &) = delete;
    XmlDocumentBuilder &operator=(XmlDocumentBuilder const &) = delete;
    ~XmlDocumentBuilder() noexcept(false) override;

    /// The document to fill from now on; it outlives the parse.
    void setDocument(XmlDocument *document);
    XmlDocument *getDocument() const;

    /// Throws `XmlEx::ExXmlVersionNotSupported` for any version but "1.0".
    void createXmlDeclaration(LiString const &version) override;
    void createDocumentType(LiString const &name) override;
    void notifyBeginElement(LiString const &name) override;
    void notifyEmptyElementEnd() override;
    /// Throws `XmlEx::ExSyntaxError` where the element that ends has another name.
    void notifyClosingElement(LiString const &name) override;
    /// A name that comes again replaces the value. Without an open element, this and the next two throw
    /// `XmlEx::ExSyntaxError`.
    void pushAttribute(LiString const &name, LiString const &value) override;
    void notifyTextData(LiString const &data) override;
    void notifyCharacterData(LiString const &data) override;

private:
    /// The innermost open element.
    XmlElement &current() const;
    void endElement();
    XmlDocument &document() const;
    void destroyUnattached();

    XmlDocument *_document = nullptr;
    std::vector<XmlElement *> _openElements; // owned until attached
    ObjPtr<XmlElement> _root;
    ObjPtr<XmlBlocks> _blocks; // what the document is made of
};

} // namespace Zv
