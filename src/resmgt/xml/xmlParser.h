// The parser.
#pragma once

#include "resmgt/export.h"

#include <iosfwd>

namespace Zv {

class XmlParserProtocol;

/// Reads the system's dialect of XML 1.0: one root element, attributes, text, CDATA sections, comments, a declaration
/// with a version only, a DOCTYPE with a bare name. There are no processing instructions, no encodings, no entities
/// but the five named ones, and numeric references reach to 255: a byte is a byte. A name begins with a letter, `_`,
/// `:` or a Latin-1 letter, and goes on also with digits, `-`, `.` and the byte 0xB7.
///
/// What a user might not expect: white space alone before a tag, a comment, a reference or the end is dropped; in a
/// value the quote of the other kind has to be written as a reference as well; the start of a declaration is the first
/// thing in the text but for comments; a byte order mark is no white space. Elements may nest 2000 deep.
namespace XmlParser {

/// Reads a whole document from the stream, up to the stream's end, and tells the protocol. A failure to read counts as
/// the end. Blocks as long as the stream does. Keeps no state between calls: threads may parse at once, and a protocol
/// may parse another stream in one of its operations.
///
/// Throws `XmlEx::ExLexicalError` and `XmlEx::ExSyntaxError`, also for too deep a nesting, and what the protocol
/// throws. Ends the process with exit code 2 where there is no memory to read into.
ZVRESMGT_EXPORT void parse(XmlParserProtocol &protocol, std::istream &input);

} // namespace XmlParser

} // namespace Zv
