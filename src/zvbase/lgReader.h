// Merges the queues in time order.
#pragma once

#include "zvbase/export.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Zv {

class LgQueue;
class LgQueueImp;
class LgRegistry;

/// Writes the lines of all registered queues to the output, in time order. A line comes out only when no other thread
/// can still end an earlier one: for the moment that another thread takes to end a line, the reader waits for it.
///
/// A queue that lost lines gets a note, "12 lines (345 characters) lost: the queue of thread 7 was full.", at the
/// place where they are missing.
///
/// One thread at a time calls a reader; several readers, and threads that write without a logger, exclude each other.
/// A reader makes its memory at need, in its own thread.
class ZVBASE_EXPORT LgReader
{
public:
    LgReader();
    ~LgReader();
    LgReader(LgReader const &) = delete;
    LgReader &operator=(LgReader const &) = delete;

    /// Writes the earliest line; true when it wrote one. Deletes the emptied queues of threads that have ended.
    bool flushEarliest();

private:
    friend class LgLog;
    friend class LgLine;
    friend class LgQueue;

    /// Reads the given registry, and one queue more, which may be null.
    LgReader(LgRegistry *registry, LgQueue *extra);

    void flushAll();
    void refresh(); // this and what follows: under the log's reading lock
    LgQueueImp *findEarliest() const;
    LgQueueImp *findLoss() const;
    void write(LgQueueImp &queue);
    void writeLoss(LgQueueImp &queue, std::uint64_t stamp, std::uint64_t lines,
                   std::uint64_t characters);
    void reap();

    LgRegistry *_registry = nullptr; // null for the one in force
    LgQueue *_extra = nullptr;
    std::vector<LgQueue *> _queues;
    std::uint64_t _horizon = 0; // no line from before this moment is still to come
    std::uint64_t _generation = 0;
    std::string _text;
};

} // namespace Zv
