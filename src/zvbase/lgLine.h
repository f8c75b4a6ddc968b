// One line of text for the log (extenders).
#pragma once

#include "zvbase/export.h"
#include "zvbase/lgText.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Zv {

class LgQueueImp;

/// Collects the text of one line. The destructor sends the line to the log: to the thread's queue
/// while a logger runs, otherwise directly to the output. Use `ZV_TRACE` instead if the line
/// depends on a level.
///
///     Zv::LgLine line;
///     line.begin(__FILE__, __LINE__) << "the gain is " << 0.5;
///
/// Lines may nest: if an expression in the text writes a line itself, that inner line comes first.
/// A line end is added if the text has none. The destructor does not throw.
///
/// **Threads**: the thread that constructs a line writes and destroys it.
///
/// **Blocks**: without a logger, the destructor waits while another thread writes to the output.
/// With a logger, see `LgQueue`.
class ZVBASE_EXPORT LgLine
{
public:
    /// The form of a line.
    enum Kind : std::uint32_t
    {
        /// A trace line. It begins with the moment at which it was ended.
        LINE,
        /// A text without that moment.
        PLAIN
    };

    /// Makes an empty line.
    explicit LgLine(Kind kind = LINE);
    ~LgLine();
    LgLine(LgLine const &) = delete;
    LgLine &operator=(LgLine const &) = delete;

    /// Returns the stream for the text.
    LgText &getStream() noexcept { return *_stream; }
    /// Writes the thread's tag and the place, as `Trace::log` does. Returns the stream for the
    /// text.
    LgText &begin(char const *file, int line);
    /// Same as above. `place` is the whole place, such as "mixer.cpp(12): ".
    LgText &begin(std::string_view place);

private:
    friend class LgLineBuffer;

    /// The state of the line that this one interrupts. Places count from the end of the queue's
    /// text. If there is no such line, only `exists` is set.
    struct Outer
    {
        bool exists;
        bool isDiscarding;
        bool isSuppressed;
        std::uint64_t start;
        std::uint64_t position;
        std::uint64_t discarded;
        std::ios_base::fmtflags flags;
        std::streamsize width;
        std::streamsize precision;
        char fill;
    };

    bool useQueue() noexcept;
    void endInQueue() noexcept;
    void endDirectly() noexcept;

    Kind _kind;
    LgQueueImp *_queue = nullptr; // null if the line goes directly to the output
    LgText *_stream = nullptr;
    Outer _outer;
};

} // namespace Zv
