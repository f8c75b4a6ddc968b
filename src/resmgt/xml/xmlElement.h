// An element of a document.
#pragma once

#include "resmgt/containers/iterator.h"
#include "resmgt/smartPtrs/unownedObjPtr.h"
#include "resmgt/xml/xmlAttribute.h"
#include "resmgt/xml/xmlNode.h"
#include "resmgt/xml/xmlText.h"
#include "zvbase/objPtr.h"

#include <cstddef>
#include <cstdint>

namespace Zv {

class XmlBlocks;
class XmlElementChildren;

/// An element: a name, attributes, children, one text value. It owns its attributes and children; a child that is
/// removed is destroyed. No depth of nesting is too deep for any operation.
///
/// The data is the last piece of text or CDATA section that was read between the tags: `<a>x&amp;y</a>` has the data
/// "y". Data is not written by `operator<<` and `streamToOutput`.
///
/// One thread at a time works on a document. Iterators are valid until a child of the element is added or removed.
class ZVRESMGT_EXPORT XmlElement : public XmlNode
{
public:
    explicit XmlElement(LiString const &name);
    XmlElement(XmlElement const &) = delete;
    XmlElement &operator=(XmlElement const &) = delete;
    ~XmlElement() noexcept(false) override;

    LiString getData() const { return _data.get(); }
    void setData(LiString const &data) { _data.assign(data); }

    /// The value of an attribute. Throws `XmlEx::ExNonExistentAttribute`, as the forms below do.
    LiString getAttribute(LiString const &name) const;
    /// The number at the start of the value, as `atoi` reads it in the "C" locale. 0 if there is none, and the nearest
    /// number that fits if it does not fit: 0 for a negative number that is read as an unsigned one.
    void getAttribute(LiString const &name, int &value) const;
    void getAttribute(LiString const &name, unsigned int &value) const;
    void getAttribute(LiString const &name, double &value) const;
    /// Adds an attribute or replaces its value. Numbers are formatted as a stream formats them in the "C" locale.
    /// Attributes are written in no promised order.
    void setAttribute(LiString const &name, LiString const &value);
    void setAttribute(LiString const &name, int value);
    void setAttribute(LiString const &name, unsigned int value);
    void setAttribute(LiString const &name, double value);
    /// Does nothing where there is none.
    void removeAttribute(LiString const &name);

    /// The children in their order. What the iterator refers to is its own copy of the pointer: it is valid until the
    /// iterator moves, and assigning to it changes neither the children nor the iterator.
    Iterator<UnownedObjPtr<XmlElement>> getChildren() const;
    /// This element and those below it that have this name, each before its children; "*" stands for every name. The
    /// iterator holds a list made now.
    Iterator<UnownedObjPtr<XmlElement>> getElementsByTagName(LiString const &tag);

    /// Adds a child at the end. A null child throws `RCEx::ExNullPtr`, also below.
    void appendChild(ObjPtr<XmlElement> child);
    /// These throw `XmlEx::ExChildNotFound` where the reference is no child of this element; nothing is changed then,
    /// and the new child is destroyed.
    void insertBefore(ObjPtr<XmlElement> child, UnownedObjPtr<XmlElement> reference);
    /// Destroys the reference and puts the child in its place.
    void replaceChild(ObjPtr<XmlElement> child, UnownedObjPtr<XmlElement> reference);
    /// Destroys the reference.
    void removeChild(UnownedObjPtr<XmlElement> reference);

    /// Writes the element as the root of a document.
    void streamToOutput(XmlStreamer &streamer) const;

    /// The elements of a text lie together in blocks, which go when the last of them goes; those that a client makes
    /// stand alone.
    static void *operator new(std::size_t size);
    static void operator delete(void *memory);

private:
    friend class XmlDocumentBuilder;
    friend class XmlElementChildren;
    class AttributeIndex;

    static void *operator new(std::size_t size, XmlBlocks *blocks);
    static void operator delete(void *memory, XmlBlocks *blocks);

    void setAttribute(LiString const &name, LiString const &value, XmlBlocks *blocks);
    /// The attribute, or null.
    XmlAttribute *findAttribute(LiString const &name) const;
    XmlAttribute const &attribute(LiString const &name) const;
    /// Throws unless it is a child of this element.
    XmlElement &childOf(UnownedObjPtr<XmlElement> reference) const;
    /// Puts a child before `next`, or at the end for null.
    void link(XmlElement &child, XmlElement *next) noexcept;
    void unlink(XmlElement &child) noexcept;

    // Attributes form a list, and have an index where there are many.
    XmlAttribute *_firstAttribute = nullptr;
    XmlAttribute *_lastAttribute = nullptr;
    ObjPtr<AttributeIndex> mutable _attributeIndex;

    // Children form a list through themselves.
    XmlElement *_firstChild = nullptr;
    XmlElement *_lastChild = nullptr;

    XmlText _data;

    std::uint32_t _nbAttributes = 0;
    std::uint32_t _nbChildren = 0;

    XmlElement *_parent = nullptr;
    XmlElement *_previous = nullptr;
    XmlElement *_next = nullptr;
};

} // namespace Zv
