// Named parts of an XML document: node, document type, attribute, text (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/xml/xmlStreamer.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Zv {

/// A text that is a string, or a view of bytes in the memory of a document. It is handed out as a
/// string, because documents have many short texts, and few of them are ever asked for.
///
///     XmlText text;
///     text.assign("25");
///     std::cout << text.get() << '\n';
///
/// **Threads**: one thread at a time.
class ZVRESMGT_EXPORT XmlText
{
public:
    XmlText() noexcept : _bytes(""), _viewedLength(0), _isView(true) {}
    /// Shares the bytes of a string.
    explicit XmlText(LiString const &text) : _string(text), _viewedLength(0), _isView(false) {}
    XmlText(XmlText const &source);
    XmlText(XmlText &&source) noexcept;
    XmlText &operator=(XmlText source) noexcept;
    ~XmlText()
    {
        if (!_isView)
            _string.~LiString();
    }

    /// Replaces the text. Both strings share their bytes.
    void assign(LiString const &text) { *this = XmlText(text); }
    LiString get() const { return _isView ? LiString(getBytes()) : _string; }
    /// Returns the bytes with a zero byte behind them. They are valid until the next `assign`.
    char const *getChars() const { return _isView ? "" : _string.getChars(); }
    /// Returns all bytes, zero bytes included. They are valid until the next `assign`.
    std::string_view getBytes() const
    {
        return _isView ? std::string_view(_bytes, _viewedLength) : std::string_view(_string);
    }

private:
    friend class XmlElement;
    friend class XmlNode;

    /// Views bytes that outlive the text. Only elements have such texts, and do not call `getChars`
    /// for them. Throws `std::length_error` if there are too many bytes for a string.
    explicit XmlText(std::string_view bytes)
        : _bytes(bytes.data()), _viewedLength(checkedLength(bytes.size())), _isView(true)
    {}
    /// Returns the bytes up to the first zero byte, which a viewed name does not have.
    std::string_view getWritten() const
    {
        return _isView ? getBytes() : std::string_view(_string.getChars());
    }
    void take(XmlText &source) noexcept;
    void view(std::string_view bytes)
    {
        std::uint32_t const length = checkedLength(bytes.size());
        if (!_isView)
            _string.~LiString();
        _bytes = bytes.data();
        _viewedLength = length & 0x7FFFFFFF;
        _isView = true;
    }
    static std::uint32_t checkedLength(std::size_t length)
    {
        if (length > MAX_LENGTH) [[unlikely]]
            throwTooLong();
        return static_cast<std::uint32_t>(length) & 0x7FFFFFFF;
    }
    [[noreturn]] static void throwTooLong();

    static constexpr std::size_t MAX_LENGTH = 0x7FFFFFFE;

    union
    {
        LiString _string;
        char const *_bytes;
    };
    std::uint32_t _viewedLength : 31;
    std::uint32_t _isView : 1;
};

/// The base of all parts of a document that have a name: elements, attributes and the document
/// type.
///
/// **Threads**: one thread at a time for a document and all its parts.
class ZVRESMGT_EXPORT XmlNode
{
public:
    virtual ~XmlNode() noexcept(false);
    LiString getNodeName() const;
    /// Returns whether the part has this name. This is cheaper than a comparison with
    /// `getNodeName`.
    bool isNamed(LiString const &name) const { return _name.getBytes() == name; }

protected:
    explicit XmlNode(LiString const &name) : _name(name) {}
    XmlNode(XmlNode const &) = default;
    XmlNode(XmlNode &&) noexcept = default;
    XmlNode &operator=(XmlNode const &) = default;
    XmlNode &operator=(XmlNode &&) noexcept = default;

    /// Returns the name without a copy.
    LiString const &name() const { return _name._string; }

private:
    friend class XmlElement;

    /// Makes an element of a parsed document, which views its name.
    explicit XmlNode(std::string_view name) : _name(name) {}

    [[no_unique_address]] XmlText _name; // whose padding the members of elements use
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

/// A name and a value, to be written. `XmlElement` has attributes of its own and shows only their
/// values.
///
///     XmlStreamer streamer(std::cout, true, "show");
///     XmlStreamer::ElementGuard show(streamer, "show");
///     XmlAttribute("frames", "25").streamToOutput(show);
class ZVRESMGT_EXPORT XmlAttribute final : public XmlNode
{
public:
    XmlAttribute(LiString const &name, LiString const &value) : XmlNode(name), _value(value) {}
    XmlAttribute(XmlAttribute const &) = delete;
    XmlAttribute &operator=(XmlAttribute const &) = delete;
    ~XmlAttribute() noexcept(false) override;

    LiString getValue() const { return _value.get(); }
    /// Replaces the value.
    void setValue(LiString const &value) { _value.assign(value); }
    /// Writes the attribute into the open start tag of an element. Throws `XmlEx::ExSyntaxError` if
    /// the element has content already. Name and value end at their first zero byte.
    void streamToOutput(XmlStreamer::ElementGuard &guard) const;

private:
    XmlText _value;
};

} // namespace Zv
