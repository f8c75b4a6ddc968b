// The bytes of a stream, seen through a window.
#pragma once

#include <cstddef>
#include <iosfwd>

namespace Zv {

/// The piece of the stream that is being looked at. It moves on block by block and grows with what is kept in it.
///
/// A zero byte stands behind the last byte of the window, so that a loop that stops at a zero byte needs no other test;
/// a zero byte may as well be one of the stream's.
class XmlInput
{
public:
    /// Bytes of one read.
    static constexpr std::size_t BLOCK = 16384;
    /// Bytes behind the end of the window that may be read, whatever they are.
    static constexpr std::size_t MARGIN = 8;

    /// Ends the process with exit code 2 where there is no memory, as `more` does.
    explicit XmlInput(std::istream &stream);
    XmlInput(XmlInput const &) = delete;
    XmlInput &operator=(XmlInput const &) = delete;
    ~XmlInput();

    /// The first byte of the window, and the one behind its last.
    char const *begin() const { return _buffer; }
    char const *limit() const { return _limit; }
    /// Reads on. What stands in the window from `kept` on stays, but may move: `kept` is set to its new place, also at
    /// the end of the stream, where the answer is false.
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
