// Collects XML text for a stream, and knows how tags are written.
#pragma once

#include "resmgt/literals/liString.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
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

    void add(std::string_view bytes)
    {
        if (bytes.size() > SIZE - _used) {
            write();
            if (bytes.size() > SIZE) {
                _stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
                return;
            }
        }
        std::memcpy(_bytes.data() + _used, bytes.data(), bytes.size());
        _used += bytes.size();
    }

    /// Adds a start tag without its end. Attributes may follow.
    void addStart(std::string_view name)
    {
        add("<");
        add(name);
        add(" ");
    }
    void addAttribute(std::string_view name, std::string_view value)
    {
        addStartOfAttribute(name);
        addEscaped(value);
        add("\" ");
    }
    /// Adds an attribute up to the quote before its value.
    void addStartOfAttribute(std::string_view name)
    {
        add(name);
        add("=\"");
    }
    /// Adds the end of a start tag.
    void addContent() { add(">\n"); }
    void addEnd(std::string_view name)
    {
        add("</");
        add(name);
        add(">\n");
    }
    /// Adds the end of an element without content.
    void addEmptyEnd() { add("/>\n"); }

    void write()
    {
        if (_used != 0)
            _stream.write(_bytes.data(), static_cast<std::streamsize>(_used));
        _used = 0;
    }

private:
    static constexpr auto SPECIAL = [] {
        std::array<bool, 256> table{};
        for (unsigned char const c : {'"', '&', '\'', '<', '>'})
            table[c] = true;
        return table;
    }();

    /// Adds a text. The five special bytes become references.
    void addEscaped(std::string_view text)
    {
        auto const isSpecial = [](char c) { return SPECIAL[static_cast<unsigned char>(c)]; };
        for (;;) {
            auto const special = std::find_if(text.begin(), text.end(), isSpecial);
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
