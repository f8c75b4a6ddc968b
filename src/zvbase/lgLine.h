// One line on its way into the log.
#pragma once

#include "zvbase/export.h"

#include <cstddef>
#include <cstdint>
#include <ostream>

namespace Zv {

class LgQueueImp;

/// Gathers one line and brings it into the log when it is destroyed, in the thread that built it: into the thread's
/// queue while a logger runs, straight to the output otherwise. Lines may nest, as they do where an expression that
/// is being traced traces in its turn: the inner line comes first. Normally used through `ZV_TRACE`.
///
/// The destructor throws nothing. A line end is added where the text has none.
class ZVBASE_EXPORT LgLine
{
public:
    enum Kind : std::uint32_t
    {
        /// A trace line: it bears the moment at which it was ended.
        LINE,
        /// Text as it is.
        PLAIN
    };

    explicit LgLine(Kind kind = LINE);
    ~LgLine();
    LgLine(LgLine const &) = delete;
    LgLine &operator=(LgLine const &) = delete;

    std::ostream &getStream() noexcept { return *_stream; }
    /// Writes the thread's tag and the place, as `Trace::log` does, and returns the stream for the text.
    std::ostream &begin(char const *file, int line);

private:
    friend class LgLineBuffer;

    /// Where the line stood that this one was begun inside of. Places count from the end of the queue's text.
    struct Outer
    {
        bool exists = false;
        bool isDiscarding = false;
        bool isSuppressed = false;
        std::uint64_t start = 0;
        std::uint64_t position = 0;
        std::uint64_t discarded = 0;
        std::ios_base::fmtflags flags = {};
        std::streamsize width = 0;
        std::streamsize precision = 0;
        char fill = ' ';
    };

    bool useQueue() noexcept;
    void endInQueue() noexcept;
    void endDirectly() noexcept;

    Kind _kind;
    LgQueueImp *_queue = nullptr; // null where the line goes straight to the output
    std::ostream *_stream = nullptr;
    Outer _outer;
};

} // namespace Zv
