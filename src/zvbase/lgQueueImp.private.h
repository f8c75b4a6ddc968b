// What a queue consists of.
#pragma once

#include "zvbase/lgLine.h"
#include "zvbase/lgQueue.h"
#include "zvbase/lgRing.private.h"
#include "zvbase/lgStream.h"

#include <cstddef>
#include <cstdint>
#include <streambuf>

namespace Zv {

/// Puts the text of the line that is open into the ring, where it waits behind what was published. A line that has no
/// room is dropped as a whole, and its characters are counted.
class LgLineBuffer : public std::streambuf
{
public:
    explicit LgLineBuffer(LgQueueImp &queue) : _queue(queue) {}

    /// Opens a line; one that is open already goes on behind it.
    void begin(LgLine::Outer &outer);
    /// Ends the line. Returns whether a reader is bound to find it, as `LgRing::publish`.
    bool end(LgLine::Outer const &outer, LgLine::Kind kind);

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
    std::uint64_t _limit = 0;     // the ring's, as it was last looked at
    std::uint64_t _discarded = 0; // characters of a line that is dropped
    LgLine::Kind _kind = LgLine::LINE;
    bool _isOpen = false;
    bool _isDiscarding = false;
    bool _isSuppressed = false;
};

/// A queue, as the log itself sees it.
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
    bool _hasExited = false;
    std::uint64_t _registration = 0; // the number of the registry that the queue stands in

    // The thread's own.
    unsigned _nbSuppressions = 0;
    unsigned _tagGeneration = 0;
    std::size_t _tagLength = 0;
    char _tag[TAG_CAPACITY];

    // The reader's.
    std::uint64_t _toldLines = 0; // of the lost ones
    std::uint64_t _toldCharacters = 0;
};

} // namespace Zv
