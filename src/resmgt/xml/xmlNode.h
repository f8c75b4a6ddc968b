// Named parts of an XML document: node, document type, attribute, text (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/xml/xmlStreamer.h"
#include "zvbase/objPtr.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Zv {

class XmlBlocks;

/// The base of all parts of a document that have a name: elements, attributes and the document
/// type.
///
/// **Threads**: one thread at a time for a document and all its parts.
class ZVRESMGT_EXPORT XmlNode
{
public:
    virtual ~XmlNode() noexcept(false);
    LiString getNodeName() const { return _name; }
    /// Returns whether the part has this name. This is cheaper than a comparison with
    /// `getNodeName`.
    bool isNamed(LiString const &name) const { return _name == name; }

protected:
    explicit XmlNode(LiString const &name) : _name(name) {}
    XmlNode(XmlNode const &) = default;
    XmlNode(XmlNode &&) noexcept = default;
    XmlNode &operator=(XmlNode const &) = default;
    XmlNode &operator=(XmlNode &&) noexcept = default;

    /// Returns the name without a copy.
    LiString const &name() const { return _name; }

private:
    LiString _name;
};

/// The type of a document: the name in `<!DOCTYPE name>`.
///
///     XmlDocument document(true);
///     ObjPtr<XmlDocumentType> type = makeObj<XmlDocumentType>("show");
///     document.setDocumentType(type);
class ZVRESMGT_EXPORT XmlDocumentType : public XmlNode
{
public:
    explicit XmlDocumentType(LiString const &name) : XmlNode(name) {}
    ~XmlDocumentType() noexcept(false) override;
};

/// A text in the memory of its document. It is handed out as a copy, because documents have many
/// short texts, and few of them are ever asked for.
///
///     XmlText text;
///     text.assign("25");
///     std::cout << text.get() << '\n';
///
/// **Threads**: one thread at a time.
class ZVRESMGT_EXPORT XmlText
{
public:
    XmlText() = default;
    XmlText(XmlText const &) = delete;
    XmlText &operator=(XmlText const &) = delete;
    ~XmlText();

    /// Copies the bytes of the string. If the present memory is too small, the text takes new
    /// memory from `blocks`, or from the heap if `blocks` is null.
    void assign(LiString const &text, XmlBlocks *blocks = nullptr);
    LiString get() const { return LiString(_chars, _length); }
    /// Returns the bytes with a zero byte behind them. They are valid until the next `assign`.
    char const *getChars() const { return _chars ? _chars : ""; }
    /// Returns all bytes, zero bytes included. They are valid until the next `assign`.
    std::string_view getBytes() const { return {getChars(), _length}; }

private:
    friend class XmlAttribute;

    /// Copies the string to `room`, which has one byte more than the string and outlives the text.
    XmlText(LiString const &text, char *room);
    /// Copies the string to the present memory.
    void copy(LiString const &text);
    void release() noexcept;

    char *_chars = nullptr;
    std::uint32_t _length = 0;
    std::uint32_t _room : 31 = 0; // for bytes before the terminator
    bool _ownsRoom : 1 = false;
};

/// A name and a value of an element. `XmlElement` owns its attributes and shows only their values.
///
///     XmlStreamer streamer(std::cout, true, "show");
///     XmlStreamer::ElementGuard show(streamer, "show");
///     XmlAttribute("frames", "25").streamToOutput(show);
class ZVRESMGT_EXPORT XmlAttribute final : public XmlNode
{
public:
    XmlAttribute(LiString const &name, LiString const &value);
    XmlAttribute(XmlAttribute const &) = delete;
    XmlAttribute &operator=(XmlAttribute const &) = delete;
    ~XmlAttribute() noexcept(false) override;

    LiString getValue() const { return _value.get(); }
    /// Replaces the value.
    void setValue(LiString const &value) { _value.assign(value); }
    /// Writes the attribute into the open start tag of an element. Throws `XmlEx::ExSyntaxError` if
    /// the element has content already. Name and value end at their first zero byte.
    void streamToOutput(XmlStreamer::ElementGuard &guard) const;

    /// Allocates an attribute that is part of no block of a document.
    static void *operator new(std::size_t size);
    /// Frees the memory of an attribute.
    static void operator delete(void *memory);

private:
    friend class XmlElement;

    /// Returns an attribute with its value behind it in one piece of `blocks`, or of the heap if
    /// `blocks` is null.
    static ObjPtrRet<XmlAttribute> make(LiString const &name, LiString const &value,
                                        XmlBlocks *blocks);
    XmlAttribute(LiString const &name, LiString const &value, char *room);

    XmlText _value;
    XmlAttribute *_next = nullptr; // of the same element
};

} // namespace Zv
