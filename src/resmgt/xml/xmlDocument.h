// A document in memory.
#pragma once

#include "resmgt/containers/iterator.h"
#include "resmgt/smartPtrs/unownedObjPtr.h"
#include "resmgt/xml/xmlDocumentType.h"
#include "resmgt/xml/xmlElement.h"
#include "zvbase/objPtr.h"

#include <iosfwd>

namespace Zv {

class XmlDocumentBuilder;

/// A document: a root element, a document type and whether it has a declaration.
///
///     XmlDocument const show(stream);
///     for (auto clip = show.getElementsByTagName("clip"); !clip.atEnd(); ++clip)
///         load((*clip)->getAttribute("file"));
///
/// For one thread at a time; different documents may be parsed by different threads at once. The pointers that it
/// hands out are valid as long as the document keeps the objects.
class ZVRESMGT_EXPORT XmlDocument
{
public:
    /// An empty document.
    explicit XmlDocument(bool withDeclaration);
    /// Parse at once; see `XmlParser::parse`. Throw its failures and those of `XmlDocumentBuilder`.
    explicit XmlDocument(std::istream &input);
    explicit XmlDocument(LiString const &text);
    explicit XmlDocument(char const *text);
    /// With a builder of the caller's, which is given this document and points to it afterwards, or to none after a
    /// failure.
    XmlDocument(std::istream &input, XmlDocumentBuilder &builder);
    XmlDocument(XmlDocument const &) = delete;
    XmlDocument &operator=(XmlDocument const &) = delete;
    ~XmlDocument() noexcept(false);

    /// Null where there is none.
    UnownedObjPtr<XmlElement> getRoot() const;
    UnownedObjPtr<XmlDocumentType> getDocumentType() const;
    /// Takes the object over and destroys the one before; null for none.
    void setRoot(ObjPtr<XmlElement> &root);
    void setDocumentType(ObjPtr<XmlDocumentType> &type);

    /// Whether `operator<<` writes `<?xml version="1.0"?>`. A document that is parsed has the declaration that its text
    /// has.
    void enableXmlDecl();
    void disableXmlDecl();
    bool hasXmlDecl() const;

    /// As `XmlElement::getElementsByTagName` of the root; empty without a root.
    Iterator<UnownedObjPtr<XmlElement>> getElementsByTagName(LiString const &tag) const;

private:
    void parse(std::istream &input);
    void parse(char const *text, std::size_t length);

    ObjPtr<XmlDocumentType> _documentType;
    ObjPtr<XmlElement> _root;
    bool _withDeclaration;
};

/// Writes the declaration if the document has one, the DOCTYPE with the name of the root, whatever the document type
/// says, then elements and attributes. The data of elements is not written: who needs it writes through an
/// `XmlStreamer`.
ZVRESMGT_EXPORT std::ostream &operator<<(std::ostream &stream, XmlDocument const &document);

} // namespace Zv
