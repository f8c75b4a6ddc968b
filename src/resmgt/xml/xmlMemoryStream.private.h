// Input stream over bytes in memory, without a copy of them.
#pragma once

#include <cstddef>
#include <istream>
#include <streambuf>

namespace Zv {

/// A stream buffer over bytes in memory.
class XmlMemoryBuffer : public std::streambuf
{
public:
    /// The bytes must outlive the buffer. Nothing writes to them.
    XmlMemoryBuffer(char const *bytes, std::size_t length)
    {
        char * const begin = const_cast<char *>(bytes);
        setg(begin, begin, begin + length);
    }
};

/// A stream over bytes in memory. The bytes must outlive the stream.
class XmlMemoryStream : private XmlMemoryBuffer, public std::istream
{
public:
    XmlMemoryStream(char const *bytes, std::size_t length)
        : XmlMemoryBuffer(bytes, length), std::istream(static_cast<XmlMemoryBuffer *>(this))
    {}
};

} // namespace Zv
