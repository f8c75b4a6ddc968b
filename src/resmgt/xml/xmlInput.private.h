// Reads a stream through a window of bytes.
#pragma once

#include <cstddef>
#include <iosfwd>

namespace Zv {

/// A window on the bytes of a stream. It advances by blocks, and grows with the bytes that are
/// kept.
///
/// There is a zero byte behind the last byte of the window, so that a loop that stops at a zero
/// byte needs no other test. A zero byte may also be a byte of the stream.
class XmlInput
{
public:
    /// The size of one read in bytes.
    static constexpr std::size_t BLOCK = 16384;
    /// The number of bytes behind the end of the window that may be read. Their values are
    /// undefined.
    static constexpr std::size_t MARGIN = 8;

    /// Ends the process with exit code 2 if there is no memory.
    explicit XmlInput(std::istream &stream);
    XmlInput(XmlInput const &) = delete;
    XmlInput &operator=(XmlInput const &) = delete;
    ~XmlInput();

    char const *begin() const { return _buffer; }
    /// Returns the position behind the last byte of the window.
    char const *limit() const { return _limit; }
    /// Reads the next block. The bytes from `kept` on stay in the window, but may move, and `kept`
    /// is set to their new position. Returns false at the end of the stream. Ends the process with
    /// exit code 2 if there is no memory.
    bool more(char const *&kept);

private:
    std::size_t read(char *target);
    void grow(std::size_t keptSize, char const *kept);

    std::istream &_stream;
    bool _ended = false;
    std::size_t _capacity;
    char *_buffer;
    char *_limit;
};

} // namespace Zv
