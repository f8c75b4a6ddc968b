// Reads a stream through a window of bytes.
#pragma once

#include "resmgt/xml/xmlBytes.private.h"

#include <cstddef>
#include <iosfwd>

namespace Zv {

class XmlBlocks;

/// A window on the bytes of a stream. It advances by blocks, and grows with the bytes that are
/// needed.
///
/// There is a zero byte behind the last byte of the window, so that a loop that stops at a zero
/// byte needs no other test. A zero byte may also be a byte of the stream. `XmlBytes::MARGIN` bytes
/// behind the zero byte may be read.
class XmlInput
{
public:
    /// The size of one read in bytes.
    static constexpr std::size_t BLOCK = 16384;

    /// If `keeper` is not null, all bytes are kept in its memory and do not move. Ends the process
    /// with exit code 2 if there is no memory.
    XmlInput(std::istream &stream, XmlBlocks *keeper);
    XmlInput(XmlInput const &) = delete;
    XmlInput &operator=(XmlInput const &) = delete;
    ~XmlInput();

    char const *begin() const { return _buffer; }
    /// Returns the position behind the last byte of the window.
    char const *limit() const { return _limit; }
    /// Returns the object that keeps all bytes, or null if there is none.
    XmlBlocks *getKeeper() const { return _keeper; }
    /// Reads the next block. The bytes from `needed` on stay in the window, but may be at another
    /// place then, and `needed` is set to it. Returns false at the end of the stream. Ends the
    /// process with exit code 2 if there is no memory.
    bool more(char const *&needed);

private:
    /// Makes room for a block behind the bytes that are needed, and moves or copies them.
    void makeRoom(char const *needed, std::size_t size);
    std::size_t read(char *target);
    void setBuffer(char *buffer, std::size_t capacity);
    void setLimit(char *limit);

    std::istream &_stream;
    XmlBlocks * const _keeper;
    bool _ended = false;
    std::size_t _capacity = 0;
    char *_buffer = nullptr;
    char *_limit = nullptr;
};

} // namespace Zv
