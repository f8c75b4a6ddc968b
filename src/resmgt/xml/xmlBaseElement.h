// Clients' own classes that read themselves from XML and write themselves.
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"

namespace Zv {

class XmlAttributeList;
class XmlBaseElement;
class XmlReader;
class XmlWriter;

/// Makes elements for an `XmlReader`: one that is given to the reader makes the root, and each element makes its own
/// children.
class ZVRESMGT_EXPORT XmlBaseElementBuilder
{
public:
    virtual ~XmlBaseElementBuilder() noexcept(false);
    /// A new element for a tag of this name. One that stands for the root belongs to the reader, which hands it out or
    /// destroys it. One that is made by an element belongs to that element, which keeps it as its child. Null makes the
    /// reading fail with `RCEx::ExNullPtr`; throw to refuse a tag.
    virtual XmlBaseElement *createElement(XmlReader &reader, LiString const &name,
                                          XmlAttributeList const &attributes) = 0;

protected:
    XmlBaseElementBuilder();
    XmlBaseElementBuilder(XmlBaseElementBuilder const &) = default;
    XmlBaseElementBuilder &operator=(XmlBaseElementBuilder const &) = default;
};

/// A class of a client's that stands for a tag.
class ZVRESMGT_EXPORT XmlBaseElement : public XmlBaseElementBuilder
{
public:
    virtual LiString getTagName() const = 0;
    /// Writes attributes, then children, between the tags, which the writer writes: by `XmlWriter::writeAttribute` and
    /// `XmlWriter::writeElement`.
    virtual void performWrite(XmlWriter &writer) = 0;
    /// The element has started.
    virtual void performRead(XmlAttributeList const &attributes) = 0;
    /// The element has ended, with all its children.
    virtual void performReadEnd() = 0;

protected:
    XmlBaseElement();
    XmlBaseElement(XmlBaseElement const &) = default;
    XmlBaseElement &operator=(XmlBaseElement const &) = default;
};

/// An element that may stand at the top of a document.
class ZVRESMGT_EXPORT XmlTopElement : public XmlBaseElement
{
public:
    /// The name in the DOCTYPE of `XmlWriter::toXmlDocument`: the tag name.
    virtual LiString getDocumentTypeName() const;

protected:
    XmlTopElement();
    XmlTopElement(XmlTopElement const &) = default;
    XmlTopElement &operator=(XmlTopElement const &) = default;
};

} // namespace Zv
