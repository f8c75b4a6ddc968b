// Text from outside, made fit to be shown.
#pragma once

#include <string>
#include <string_view>

/// Returns the text for a terminal. Control characters become "\x1b", so that a name of a file or of a device cannot
/// give the terminal orders, and a line stays one line. UTF-8 stays as it is; bytes that are none become "\xff".
std::string toShownText(std::string_view text);

/// Returns a text of at most so many bytes: beginning and end with "..." in between. What is wrong is at the end of a
/// message, so that it is still there.
std::string shorten(std::string_view text, std::size_t most);
