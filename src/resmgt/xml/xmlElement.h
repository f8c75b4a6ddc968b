// Element of an XML document (applications).
#pragma once

#include "resmgt/containers/iterator.h"
#include "resmgt/smartPtrs/unownedObjPtr.h"
#include "resmgt/xml/xmlNode.h"
#include "zvbase/objPtr.h"

#include <cstdint>
#include <string_view>

namespace Zv {

class XmlBlocks;
class XmlElementChildren;

/// An element with a name, attributes, children and one text value.
///
///     XmlElement show("show");
///     show.setAttribute("name", "Evening");
///     show.appendChild(makeObj<XmlElement>("clip"));
///     for (auto child = show.getChildren(); !child.atEnd(); ++child)
///         (*child)->setAttribute("frames", 25);
///
/// By design, the data of an element is the last piece of text or CDATA section that was read
/// between its tags: `<a>x&amp;y</a>` has the data "y". Data is not written by `operator<<` and
/// `streamToOutput`. No operation uses more stack if elements are nested deeper.
///
/// **Threads**: one thread at a time for a document and all its parts.
///
/// **Owns** its attributes and children. An iterator over children is valid until a child of the
/// element is added or removed. The memory of a parsed document, which includes its text, is freed
/// as a whole when the root is destroyed.
class ZVRESMGT_EXPORT XmlElement : public XmlNode
{
public:
    explicit XmlElement(LiString const &name);
    XmlElement(XmlElement const &) = delete;
    XmlElement &operator=(XmlElement const &) = delete;
    ~XmlElement() noexcept(false) override;

    LiString getData() const { return _data.get(); }
    /// Replaces the data.
    void setData(LiString const &data);

    /// Returns the value of an attribute. Throws `XmlEx::ExNonExistentAttribute` if there is none.
    LiString getAttribute(LiString const &name) const;
    /// Sets `value` to the number at the start of an attribute's value, as `atoi` reads it in the
    /// "C" locale. It is 0 if there is no number, and the nearest number that fits if the number
    /// does not fit, such as 0 if a negative number is read as an unsigned one. Throws
    /// `XmlEx::ExNonExistentAttribute` if there is no such attribute.
    void getAttribute(LiString const &name, int &value) const;
    void getAttribute(LiString const &name, unsigned int &value) const;
    void getAttribute(LiString const &name, double &value) const;
    /// Adds an attribute, or replaces its value if there is one. A number is formatted as a stream
    /// formats it in the "C" locale. Attributes are written in an unspecified order.
    void setAttribute(LiString const &name, LiString const &value);
    void setAttribute(LiString const &name, int value);
    void setAttribute(LiString const &name, unsigned int value);
    void setAttribute(LiString const &name, double value);
    /// Removes an attribute. Does nothing if there is none of this name.
    void removeAttribute(LiString const &name);

    /// Returns an iterator over the children, in their order. Its operator `*` returns a reference
    /// to a pointer inside the iterator, which is valid until the iterator moves. Assigning to that
    /// pointer changes neither the children nor the iterator.
    Iterator<UnownedObjPtr<XmlElement>> getChildren() const;
    /// Returns this element and those below it that have this name, each before its children. The
    /// name "*" selects all elements. The iterator has a list of its own, which later changes do
    /// not reach.
    Iterator<UnownedObjPtr<XmlElement>> getElementsByTagName(LiString const &tag);

    /// Adds a child at the end. Throws `RCEx::ExNullPtr` if the child is null.
    void appendChild(ObjPtr<XmlElement> child);
    /// Adds a child in front of another one. Throws `XmlEx::ExChildNotFound` if `reference` is no
    /// child of this element, and `RCEx::ExNullPtr` if the new child is null. Nothing has changed
    /// then, and the new child is destroyed.
    void insertBefore(ObjPtr<XmlElement> child, UnownedObjPtr<XmlElement> reference);
    /// Puts a child into the place of another one, and destroys that one. Throws what
    /// `insertBefore` throws.
    void replaceChild(ObjPtr<XmlElement> child, UnownedObjPtr<XmlElement> reference);
    /// Destroys a child. Throws `XmlEx::ExChildNotFound` if `reference` is no child of this
    /// element.
    void removeChild(UnownedObjPtr<XmlElement> reference);

    /// Writes the element, with its attributes and all elements below it, as the root of a
    /// document. Throws `XmlEx::ExSyntaxError` if the streamer has a root already.
    void streamToOutput(XmlStreamer &streamer) const;

private:
    friend class XmlDocumentBuilder;
    friend class XmlElementChildren;
    friend class XmlNode;
    struct Attribute;
    class AttributeIndex;

    /// Makes an element of a parsed document. The name is a string, or a view that is valid as long
    /// as the memory of the document.
    template <class Name>
    XmlElement(Name const &name, XmlBlocks &blocks) : XmlNode(name), _blocks(&blocks)
    {}

    bool hasName(std::string_view name) const;
    /// Returns the name as a string, if the element views it.
    LiString viewedName() const;
    /// Sets the data to a view that is valid as long as the memory of the document.
    void viewData(std::string_view data) { _data.view(data); }
    /// Adds an attribute, or replaces its value. The views are valid as long as the memory of the
    /// document.
    void viewAttribute(std::string_view name, std::string_view value);

    /// Returns the attribute, or null if there is none.
    Attribute *findAttribute(std::string_view name) const;
    /// Returns the place of the pointer to the attribute. If there is no such attribute, returns
    /// the place for the pointer to one more, which is null.
    Attribute **placeOfAttribute(std::string_view name);
    void addAttribute(Attribute &attribute, Attribute **place);
    AttributeIndex &index() const;
    XmlText const &attribute(LiString const &name) const;

    /// Returns the child. Throws `XmlEx::ExChildNotFound` if it is no child of this element.
    XmlElement &childOf(UnownedObjPtr<XmlElement> reference) const;
    /// Puts a child before `next`, or at the end if `next` is null.
    void link(XmlElement &child, XmlElement *next) noexcept;
    XmlElement *lastChild() const { return _firstChild ? _firstChild->_previous : nullptr; }
    void unlink(XmlElement &child) noexcept;

    /// Writes the start tag, of which only the end is left out.
    template <class Output>
    void writeStart(Output &output) const;
    template <class Output>
    void writeEnd(Output &output) const;

    /// Called when the element gets something that its destructor has to release.
    void setOwning() const;
    void destroyParts();
    static void destroy(XmlElement *element);

    std::uint32_t _nbChildren = 0;

    // Children are a list through their own pointers. The first one points to the last one.
    XmlElement *_firstChild = nullptr;

    // Attributes are a list, and have an index if there are many.
    Attribute *_firstAttribute = nullptr;
    ObjPtr<AttributeIndex> mutable _attributeIndex;

    [[no_unique_address]] XmlText _data; // whose padding the next member uses
    std::uint32_t _nbAttributes = 0;

    XmlElement *_parent = nullptr;
    XmlElement *_next = nullptr;
    XmlElement *_previous = nullptr; // of the first child: the last one

    /// The memory of a parsed document. The root of the document owns it, and all other elements
    /// of the document are in it. Null if the application has made the element.
    XmlBlocks *_blocks = nullptr;
};

} // namespace Zv
