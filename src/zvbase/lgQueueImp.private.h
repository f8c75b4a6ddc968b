// The inside of a log queue: its ring and the buffer of the open line.
#pragma once

#include "zvbase/lgLine.h"
#include "zvbase/lgQueue.h"
#include "zvbase/lgRing.private.h"
#include "zvbase/platform/shared.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <streambuf>

namespace Zv {

/// Writes the text of the open line into the ring, behind the published records. A line that does
/// not fit is dropped as a whole, and its characters are counted.
class LgLineBuffer : public std::streambuf
{
public:
    explicit LgLineBuffer(LgQueueImp &queue) : _queue(queue) {}

    /// Opens a line. If another line is open, saves its state in `outer`.
    void begin(LgLine::Outer &outer);
    /// Ends the line and resumes the outer one. Returns true if a reader is sure to find the line,
    /// as `LgRing::publish` does.
    bool end(LgLine::Outer const &outer, LgLine::Kind kind);

    /// Same as `sputn`, without a virtual call if the text fits.
    void append(char const *text, std::size_t length)
    {
        if (static_cast<std::size_t>(epptr() - pptr()) > length) [[likely]] {
            std::memcpy(pptr(), text, length);
            pbump(static_cast<int>(length));
        } else {
            LgLineBuffer::xsputn(text, static_cast<std::streamsize>(length));
        }
    }

protected:
    int_type overflow(int_type character) override;
    std::streamsize xsputn(char const *text, std::streamsize length) override;

private:
    LgRing &getRing();
    std::uint64_t getPlace() const { return _chunk + static_cast<std::uint64_t>(pptr() - pbase()); }
    void openChunk(std::uint64_t place);
    void open(std::uint64_t start);
    void resume(LgLine::Outer const &outer);
    bool makeRoom();
    bool waitForRoom(std::uint64_t place);
    void discard();
    bool publish(std::uint64_t start);

    LgQueueImp &_queue;
    std::uint64_t _start = 0;     // of the open line's record
    std::uint64_t _chunk = 0;     // the place of pbase()
    std::uint64_t _limit = 0;     // the ring's, when it was read last
    std::uint64_t _discarded = 0; // characters of a line that is dropped
    LgLine::Kind _kind = LgLine::LINE;
    bool _isOpen = false;
    bool _isDiscarding = false;
    bool _isSuppressed = false;
};

/// The inside of an `LgQueue`.
class LgQueueImp
{
public:
    static constexpr std::size_t TAG_CAPACITY = 64;

    LgQueueImp(LgQueue &owner, unsigned long threadId);

    LgQueue &_owner;
    unsigned long const _threadId;
    LgRing _ring;
    LgLineBuffer _buffer;
    LgStream _stream;
    ObjPtr<LgQueue::Observer> _observer;
    ZvPlatform::Shared<bool> _hasExited{false};
    // The number of the registry that contains the queue.
    ZvPlatform::Shared<std::uint64_t> _registration{0};

    // Used by the writing thread only.
    unsigned _nbSuppressions = 0;
    unsigned _tagGeneration = 0;
    std::size_t _tagLength = 0;
    char _tag[TAG_CAPACITY];

    // Used by the reader only: how much of the loss has been reported.
    std::uint64_t _toldLines = 0;
    std::uint64_t _toldCharacters = 0;
};

} // namespace Zv
