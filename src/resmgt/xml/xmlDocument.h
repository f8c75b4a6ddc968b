// XML document in memory (applications).
#pragma once

#include "resmgt/containers/iterator.h"
#include "resmgt/smartPtrs/unownedObjPtr.h"
#include "resmgt/xml/xmlElement.h"
#include "zvbase/objPtr.h"

#include <iosfwd>

namespace Zv {

class XmlDocumentBuilder;

/// A document with a root element, a document type and an optional declaration.
///
///     XmlDocument const show("<show><clip file='a.wav'/><clip file='b.wav'/></show>");
///     for (auto clip = show.getElementsByTagName("clip"); !clip.atEnd(); ++clip)
///         std::cout << (*clip)->getAttribute("file") << '\n';
///
/// **Threads**: one thread at a time for a document and all its parts. Different threads may parse
/// different documents at the same time.
///
/// **Owns** the root and the document type. A pointer that it returns is valid until the object is
/// replaced, removed or destroyed with the document.
class ZVRESMGT_EXPORT XmlDocument
{
public:
    /// Creates an empty document.
    explicit XmlDocument(bool withDeclaration);
    /// Parses the stream. Throws what `XmlParser::parse` and `XmlDocumentBuilder` throw.
    explicit XmlDocument(std::istream &input);
    /// Parses a text. Throws what `XmlParser::parse` and `XmlDocumentBuilder` throw.
    explicit XmlDocument(LiString const &text);
    /// Parses a text up to its zero byte. A null pointer is read as an empty text.
    explicit XmlDocument(char const *text);
    /// Parses the stream with a builder of the caller's. The builder refers to this document
    /// afterwards, or to none if the parse has failed.
    XmlDocument(std::istream &input, XmlDocumentBuilder &builder);
    XmlDocument(XmlDocument const &) = delete;
    XmlDocument &operator=(XmlDocument const &) = delete;
    ~XmlDocument() noexcept(false);

    /// Returns the root, or null if there is none.
    UnownedObjPtr<XmlElement> getRoot() const;
    /// Returns the document type, or null if there is none.
    UnownedObjPtr<XmlDocumentType> getDocumentType() const;
    /// Takes over a new root, which may be null, and destroys the former one.
    void setRoot(ObjPtr<XmlElement> &root);
    /// Takes over a new document type, which may be null, and destroys the former one.
    void setDocumentType(ObjPtr<XmlDocumentType> &type);

    /// Lets `operator<<` write `<?xml version="1.0"?>`. A parsed document writes a declaration if
    /// its text had one.
    void enableXmlDecl();
    /// Lets `operator<<` write no declaration.
    void disableXmlDecl();
    /// Returns whether `operator<<` writes a declaration.
    bool hasXmlDecl() const;

    /// Does what `XmlElement::getElementsByTagName` of the root does. Returns an iterator over
    /// nothing if there is no root.
    Iterator<UnownedObjPtr<XmlElement>> getElementsByTagName(LiString const &tag) const;

private:
    void parse(std::istream &input);
    void parse(char const *text, std::size_t length);

    ObjPtr<XmlDocumentType> _documentType;
    ObjPtr<XmlElement> _root;
    bool _withDeclaration;
};

/// Writes the declaration if the document has one, the DOCTYPE, the elements and the attributes. By
/// design, the DOCTYPE has the name of the root, also if the document type has another one, and the
/// data of elements is not written. To write data, use an `XmlStreamer`.
ZVRESMGT_EXPORT std::ostream &operator<<(std::ostream &stream, XmlDocument const &document);

} // namespace Zv
