// Writes the lines of all log queues to the output, in time order (extenders).
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

/// Merges the lines of all registered queues into the output, in time order. It writes a line only
/// when no other thread can still end an earlier one.
///
/// If a queue has lost lines, the note "12 lines (345 characters) lost: the queue of thread 7 was
/// full." is written where they are missing.
///
///     Zv::LgReader reader;
///     while (reader.flushEarliest()) {
///     }
///
/// **Threads**: one thread at a time. Several readers exclude each other, and they exclude threads
/// that write to the output directly.
///
/// **Blocks**: `flushEarliest` waits while another thread writes to the output, and for at most
/// about a second for a thread that is just ending a line.
class ZVBASE_EXPORT LgReader
{
public:
    LgReader();
    ~LgReader();
    LgReader(LgReader const &) = delete;
    LgReader &operator=(LgReader const &) = delete;

    /// Writes the earliest line, or a note on lost lines. Returns true if it wrote one. Otherwise
    /// it deletes the queues of ended threads. Throws what the output throws, and `std::bad_alloc`.
    [[nodiscard]] bool flushEarliest();

private:
    friend class LgLog;
    friend class LgLine;
    friend class LgQueue;

    /// Reads the given registry, and `extra` in addition if it is not null.
    LgReader(LgRegistry *registry, LgQueue *extra);

    void flushAll();
    void refresh(); // The caller of this and of all that follow must hold the log's reading lock.
    LgQueueImp *findEarliest() const;
    LgQueueImp *findLoss() const;
    void write(LgQueueImp &queue);
    void writeLoss(LgQueueImp &queue, std::uint64_t stamp, std::uint64_t lines,
                   std::uint64_t characters);
    void reap();

    LgRegistry *_registry = nullptr; // null means the installed one
    LgQueue *_extra = nullptr;
    std::vector<LgQueue *> _queues;
    std::uint64_t _horizon = 0; // no thread can still end a line from before this moment
    std::uint64_t _generation = 0;
    std::string _text;
};

} // namespace Zv
