// Reads strings out of text.
#pragma once

#include "resmgt/literals/liString.h"

#include <iosfwd>

namespace Zv {

/// Reads the tokens of a text one by one: words, and texts in double quotes. Without state; any thread.
class ZVRESMGT_EXPORT LiStringParser
{
public:
    /// The next word, or, where a double quote comes next, everything up to the double quote that ends it, without
    /// the two. There is no escape. Where the stream ends first, the result is empty and the stream's fail bit set.
    LiString readToken(std::istream &stream);
};

} // namespace Zv
