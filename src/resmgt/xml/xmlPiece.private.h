// Collects XML text for a stream, and knows how tags are written.
#pragma once

#include "resmgt/literals/liString.h"
#include "resmgt/xml/xmlBytes.private.h"

#include <algorithm>
#include <array>
#include <concepts>
#include <cstddef>
#include <ostream>
#include <string_view>

namespace Zv {

/// Collects bytes, so that the stream gets many of them in one call. Bytes that were not written by
/// `write` before the destructor are lost.
template <std::size_t SIZE>
class XmlPiece
{
public:
    explicit XmlPiece(std::ostream &stream) : _stream(stream) {}
    XmlPiece(XmlPiece const &) = delete;
    XmlPiece &operator=(XmlPiece const &) = delete;

    /// Returns the bytes of a name up to its first zero byte.
    static std::string_view bytesOf(LiString const &name) { return name.getChars(); }

    /// Adds texts, one behind the other.
    template <std::convertible_to<std::string_view>... Texts>
    void add(Texts const &...texts)
    {
        if ((std::string_view(texts).size() + ...) > SIZE - _used) [[unlikely]]
            return (addAcross(texts), ...);
        char *end = _bytes.data() + _used;
        ((XmlBytes::copy(end, texts), end += std::string_view(texts).size()), ...);
        _used = static_cast<std::size_t>(end - _bytes.data());
    }

    /// Adds a start tag without its end. Attributes may follow.
    void addStart(std::string_view name) { add("<", name, " "); }
    void addAttribute(std::string_view name, std::string_view value)
    {
        if (!XmlBytes::hasSpecial(value))
            return add(name, "=\"", value, "\" ");
        addStartOfAttribute(name);
        addEscaped(value);
        add("\" ");
    }
    /// Adds an attribute up to the quote before its value.
    void addStartOfAttribute(std::string_view name) { add(name, "=\""); }
    /// Adds the end of a start tag.
    void addContent() { add(">\n"); }
    void addEnd(std::string_view name) { add("</", name, ">\n"); }
    /// Adds the end of an element without content.
    void addEmptyEnd() { add("/>\n"); }

    // Like the functions above, for texts of which `XmlBytes::MARGIN` bytes behind the last one may
    // be read.

    void addViewedStart(std::string_view name)
    {
        if (!addViewed("<", name, " ")) [[unlikely]]
            addStart(name);
    }
    void addViewedAttribute(std::string_view name, std::string_view value)
    {
        if (!addPlain(name, value)) [[unlikely]]
            addAttribute(name, value);
    }
    void addViewedEnd(std::string_view name)
    {
        if (!addViewed("</", name, ">\n")) [[unlikely]]
            addEnd(name);
    }

    void write()
    {
        if (_used != 0)
            _stream.write(_bytes.data(), static_cast<std::streamsize>(_used));
        _used = 0;
    }

private:
#ifdef __SSE2__
    /// Returns whether there is room for so many bytes and those that are overwritten behind them.
    bool hasRoom(std::size_t size) const
    {
        return size + XmlBytes::OVERRUN <= SIZE - _used;
    }
    /// Adds a viewed name between two other texts. Returns false if there is too little room.
    [[nodiscard]] bool addViewed(std::string_view before, std::string_view name,
                                 std::string_view after)
    {
        std::size_t const size = before.size() + name.size() + after.size();
        if (!hasRoom(size)) [[unlikely]]
            return false;
        char * const start = _bytes.data() + _used;
        XmlBytes::copy(start, before);
        XmlBytes::copyBySixteens(start + before.size(), name);
        XmlBytes::copy(start + size - after.size(), after);
        _used += size;
        return true;
    }
    /// Adds a viewed attribute. Returns false if there is too little room, or if a byte of the value
    /// is written as a reference.
    [[nodiscard]] bool addPlain(std::string_view name, std::string_view value)
    {
        std::size_t const size = name.size() + value.size() + 4;
        if (!hasRoom(size)) [[unlikely]]
            return false;
        char * const start = _bytes.data() + _used;
        char * const startOfValue = start + name.size() + 2;
        XmlBytes::copyBySixteens(start, name);
        XmlBytes::copy(startOfValue - 2, "=\"");
        if (XmlBytes::copyAndFindSpecial(startOfValue, value)) [[unlikely]]
            return false;
        XmlBytes::copy(startOfValue + value.size(), "\" ");
        _used += size;
        return true;
    }
#else
    [[nodiscard]] bool addViewed(std::string_view, std::string_view, std::string_view)
    {
        return false;
    }
    [[nodiscard]] bool addPlain(std::string_view, std::string_view)
    {
        return false;
    }
#endif
    /// Adds a text that may have to be written in several pieces.
    void addAcross(std::string_view text)
    {
        if (text.size() > SIZE - _used)
            write();
        if (text.size() > SIZE)
            _stream.write(text.data(), static_cast<std::streamsize>(text.size()));
        else
            add(text);
    }
    /// Adds a text. The five special bytes become references.
    void addEscaped(std::string_view text)
    {
        for (;;) {
            auto const special = std::find_if(text.begin(), text.end(), XmlBytes::isSpecial);
            auto const length = static_cast<std::size_t>(special - text.begin());
            add(text.substr(0, length));
            if (length == text.size())
                return;
            addReference(*special);
            text.remove_prefix(length + 1);
        }
    }
    void addReference(char c)
    {
        switch (c) {
        case '"':
            return add("&quot;");
        case '&':
            return add("&amp;");
        case '\'':
            return add("&apos;");
        case '<':
            return add("&lt;");
        default:
            return add("&gt;");
        }
    }

    std::ostream &_stream;
    std::size_t _used = 0;
    std::array<char, SIZE> _bytes;
};

} // namespace Zv
