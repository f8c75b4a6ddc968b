// Base classes for application classes that are read from and written to XML (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"

namespace Zv {

class XmlAttributeList;
class XmlBaseElement;
class XmlReader;
class XmlWriter;

/// Creates elements for an `XmlReader`. The builder that the reader was made with creates the root,
/// and each element creates its own children. `XmlReader` has an example.
class ZVRESMGT_EXPORT XmlBaseElementBuilder
{
public:
    virtual ~XmlBaseElementBuilder() noexcept(false);
    /// Returns a new element for a tag. To refuse the tag, throw an exception. If it returns null,
    /// the reading fails with `RCEx::ExNullPtr`.
    ///
    /// **Owns**: the reader owns the root, until it hands it out or destroys it. An element that is
    /// created by another element belongs to that one, which must destroy it.
    virtual XmlBaseElement *createElement(XmlReader &reader, LiString const &name,
                                          XmlAttributeList const &attributes) = 0;

protected:
    XmlBaseElementBuilder();
    XmlBaseElementBuilder(XmlBaseElementBuilder const &) = default;
    XmlBaseElementBuilder &operator=(XmlBaseElementBuilder const &) = default;
};

/// An object that reads itself from an element of XML and writes itself as one. Derive an
/// application's class from it.
class ZVRESMGT_EXPORT XmlBaseElement : public XmlBaseElementBuilder
{
public:
    virtual LiString getTagName() const = 0;
    /// Writes attributes, then children, with `XmlWriter::writeAttribute` and
    /// `XmlWriter::writeElement`. The writer has written the start of the tag before, and writes
    /// the closing tag afterwards.
    virtual void performWrite(XmlWriter &writer) = 0;
    /// Called when the element has started, before its children are created.
    virtual void performRead(XmlAttributeList const &attributes) = 0;
    /// Called when the element has ended, after all its children.
    virtual void performReadEnd() = 0;

protected:
    XmlBaseElement();
    XmlBaseElement(XmlBaseElement const &) = default;
    XmlBaseElement &operator=(XmlBaseElement const &) = default;
};

/// An element that can be the root of a document.
class ZVRESMGT_EXPORT XmlTopElement : public XmlBaseElement
{
public:
    /// Returns the name for the DOCTYPE that `XmlWriter::toXmlDocument` writes. It is the tag name
    /// if the operation is not overridden.
    virtual LiString getDocumentTypeName() const;

protected:
    XmlTopElement();
    XmlTopElement(XmlTopElement const &) = default;
    XmlTopElement &operator=(XmlTopElement const &) = default;
};

} // namespace Zv
