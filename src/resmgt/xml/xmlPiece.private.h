// Text on its way to a stream.
#pragma once

#include "resmgt/literals/liString.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <ostream>
#include <string_view>

namespace Zv {

/// Collects bytes, so that the stream gets many of them in one call. What is not written when it goes is lost. Knows
/// what tags look like, for all who write them.
template <std::size_t SIZE>
class XmlPiece
{
public:
    explicit XmlPiece(std::ostream &stream) : _stream(stream) {}
    XmlPiece(XmlPiece const &) = delete;
    XmlPiece &operator=(XmlPiece const &) = delete;

    /// Names end at a zero byte, if they have one.
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

    /// A start tag without its end: attributes may follow.
    void addStart(LiString const &name)
    {
        add("<");
        add(bytesOf(name));
        add(" ");
    }
    void addAttribute(std::string_view name, std::string_view value)
    {
        addStartOfAttribute(name);
        addEscaped(value);
        add("\" ");
    }
    /// Up to the quote before the value.
    void addStartOfAttribute(std::string_view name)
    {
        add(name);
        add("=\"");
    }
    /// The end of a start tag.
    void addContent() { add(">\n"); }
    void addEnd(LiString const &name)
    {
        add("</");
        add(bytesOf(name));
        add(">\n");
    }
    /// Instead of content and end.
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

    /// With the five special bytes as references.
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
