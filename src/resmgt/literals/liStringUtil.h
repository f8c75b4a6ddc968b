// Numbers as strings, and words and quoted texts of a stream (applications).
#pragma once

#include "resmgt/literals/liString.h"

#include <iosfwd>

namespace Zv {

/// Writes numbers as strings.
///
///     Zv::LiString const text = Zv::LiStringUtil::convertNb(-12); // "-12"
///
/// The text is that of a new `std::ostringstream` in the "C" locale, in every locale of the
/// program.
///
/// **Threads**: thread-safe.
class ZVRESMGT_EXPORT LiStringUtil
{
public:
    /// Returns the number as text.
    static LiString convertNb(int number);
    /// Returns the number as text.
    static LiString convertNb(unsigned int number);
    /// Returns the number as text.
    static LiString convertNb(long number);
    /// Returns the number as text.
    static LiString convertNb(unsigned long number);
    /// Returns the number as text, with six significant digits.
    static LiString convertNb(float number);
    /// Returns the number as text, with six significant digits.
    static LiString convertNb(double number);

    LiStringUtil() = delete;
};

/// Reads words and texts in double quotes from a stream, one by one.
///
///     #include <sstream>
///
///     std::istringstream stream("camera \"first one\"");
///     Zv::LiStringParser parser;
///     Zv::LiString const word = parser.readToken(stream);   // camera
///     Zv::LiString const quoted = parser.readToken(stream); // first one
///
/// **Threads**: thread-safe; it has no state. The stream belongs to one thread at a time.
class ZVRESMGT_EXPORT LiStringParser
{
public:
    /// Returns the next word. If a double quote comes next, returns everything up to the next
    /// double quote, without the two. White space before it is skipped, with every setting of the
    /// stream. There is no escape. If the stream ends first, returns the empty string and sets the
    /// stream's fail bit.
    LiString readToken(std::istream &stream);
};

} // namespace Zv
