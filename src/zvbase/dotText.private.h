// Strings of DOT, the language of Graphviz.
#pragma once

#include <ostream>
#include <string_view>

namespace Zv::Detail {

/// Writes a quoted string that Graphviz shows as `text`. Control characters except line breaks are
/// shown as U+FFFD.
inline void writeDotString(std::ostream &stream, std::string_view text)
{
    stream << '"';
    for (char const c : text) {
        if (c == '\n')
            stream << "\\n";
        else if (static_cast<unsigned char>(c) < ' ')
            stream << "\xEF\xBF\xBD";
        else if (c == '"' || c == '\\')
            stream << '\\' << c;
        else
            stream << c;
    }
    stream << '"';
}

} // namespace Zv::Detail
