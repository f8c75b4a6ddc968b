// Builds an XML document from the calls of the parser (applications).
#pragma once

#include "resmgt/xml/xmlElement.h"
#include "resmgt/xml/xmlParser.h"
#include "zvbase/objPtr.h"

#include <iosfwd>

namespace Zv {

class XmlBlocks;
class XmlDocument;

/// Fills a document while it is parsed. Derive from it to look at what is read, or to leave
/// something out:
///
///     #include <sstream>
///
///     class WithoutData : public XmlDocumentBuilder
///     {
///         void notifyTextData(LiString const &) override {}
///     };
///
///     void parseWithoutData()
///     {
///         std::istringstream text("<show>Evening<clip/></show>");
///         WithoutData builder;
///         XmlDocument const show(text, builder);
///     }
///
/// The document gets declaration and document type as soon as they are read, and the root when the
/// root has ended.
///
/// **Threads**: one thread at a time.
///
/// **Throws**: every operation that is called without a document throws `RCEx::ExNullPtr` when it
/// needs one.
///
/// **Owns** what is not attached to the document yet. After a failed parse this is destroyed with
/// the builder, or by the next `setDocument`. The builder does not own the document.
class ZVRESMGT_EXPORT XmlDocumentBuilder : public XmlParserProtocol
{
public:
    XmlDocumentBuilder();
    XmlDocumentBuilder(XmlDocumentBuilder const &) = delete;
    XmlDocumentBuilder &operator=(XmlDocumentBuilder const &) = delete;
    ~XmlDocumentBuilder() noexcept(false) override;

    /// Sets the document to fill from now on. The document must outlive the parse.
    void setDocument(XmlDocument *document);
    XmlDocument *getDocument() const;

    /// Throws `XmlEx::ExXmlVersionNotSupported` if the version is not "1.0".
    void createXmlDeclaration(LiString const &version) override;
    void createDocumentType(LiString const &name) override;
    void notifyBeginElement(LiString const &name) override;
    /// Throws `XmlEx::ExSyntaxError` if no element is open.
    void notifyEmptyElementEnd() override;
    /// Throws `XmlEx::ExSyntaxError` if the innermost open element has another name, or if no
    /// element is open.
    void notifyClosingElement(LiString const &name) override;
    /// Adds an attribute to the innermost open element, or replaces its value if the name was read
    /// before. Throws `XmlEx::ExSyntaxError` if no element is open.
    void pushAttribute(LiString const &name, LiString const &value) override;
    /// Replaces the data of the innermost open element. Throws `XmlEx::ExSyntaxError` if no element
    /// is open.
    void notifyTextData(LiString const &data) override;
    /// Replaces the data of the innermost open element. Throws `XmlEx::ExSyntaxError` if no element
    /// is open.
    void notifyCharacterData(LiString const &data) override;

private:
    friend class XmlDocument;
    class Sink;

    /// Reads a document that keeps its text.
    void parseKept(std::istream &input);

    /// Returns the memory of the document that is being built.
    XmlBlocks &memory();
    /// Returns the innermost open element. Throws `XmlEx::ExSyntaxError` if there is none.
    XmlElement &current() const;
    /// Begins an element with a string, or a view that is valid as long as the memory, as its name.
    template <class Name>
    void beginElement(Name const &name);
    void endElement();
    XmlDocument &document() const;
    void destroyUnattached();

    XmlDocument *_document = nullptr;
    ObjPtr<XmlBlocks> _blocks;      // for a root that has not begun
    ObjPtr<XmlElement> _root;       // until attached
    XmlElement *_current = nullptr; // the innermost open element
};

} // namespace Zv
