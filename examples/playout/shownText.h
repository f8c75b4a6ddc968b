// Makes text from outside safe to show.
#pragma once

#include <string>
#include <string_view>

/// Returns the text for a terminal. Control characters are written like "\x1b", so that the name of
/// a file or device cannot control the terminal, and a line remains one line. UTF-8 is not changed,
/// and bytes that are not UTF-8 are written like "\xff".
std::string toShownText(std::string_view text);

/// Returns a text of at most that many bytes. A longer text is replaced by its beginning, "..." and
/// its end. The end is kept because a message has its reason there.
std::string shorten(std::string_view text, std::size_t most);
