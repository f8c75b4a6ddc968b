// Reads strings out of text.
#pragma once

#include "resmgt/literals/liString.h"

#include <iosfwd>

namespace Zv {

/// Reads the tokens of a text one by one: words, and texts in double quotes. Without state; any thread.
class ZVRESMGT_EXPORT LiStringParser
{
public:
    /// The next word or, if a double quote comes next, everything up to the double quote that ends it, without the
    /// two. White space before it is skipped, however the stream is set. There is no escape. If the stream ends first,
    /// the result is empty and the stream's fail bit is set.
    LiString readToken(std::istream &stream);
};

} // namespace Zv
