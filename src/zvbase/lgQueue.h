// Queue for the log text of one thread (extenders).
#pragma once

#include "zvbase/export.h"
#include "zvbase/lgText.h"
#include "zvbase/objPtr.h"

#include <cstddef>
#include <cstdint>

namespace Zv {

class LgQueueImp;

/// The stream of an `LgQueue`. Text goes directly into the memory of the queue.
///
/// Write to it only through `LgLine`: text that is written while no line is open is lost. The
/// stream never fails. Text that does not fit is counted.
///
/// **Threads**: the thread of the queue.
class ZVBASE_EXPORT LgStream : public LgText
{
public:
    ~LgStream() override;

    /// Returns the number of characters that the queue can take in one line at this moment.
    /// Thread-safe.
    std::size_t getNumCharacters() const noexcept;

private:
    friend class LgQueueImp;

    LgStream(LgQueueImp &queue, LgLineBuffer &buffer);

    LgQueueImp &_queue;
};

/// Holds the lines of one thread until an `LgReader` writes them.
///
/// The constructor allocates all memory. Writing takes no lock and wakes no thread. If the queue is
/// full, the newest line is dropped and counted, and the log tells how much was lost.
///
/// The life of a queue:
///
/// - The function that was passed to `LgLog::setQueueFunction` makes the queue with `new`, when a
///   thread calls it first.
/// - `LgLog::registerQueue` adds it to the list of the reader. A thread should call it before its
///   body begins. Otherwise its first line does so.
/// - When the thread ends, it must call `creatorExit`. If it was killed, the killer must do so.
///   From then on the reader owns the queue: it writes what is left and deletes the queue.
/// - If you delete a queue yourself, remove it from its registry first. Its thread must not write
///   again.
///
///     Zv::LgQueue *makeQueue()
///     {
///         static thread_local Zv::LgQueue *queue = nullptr;
///         if (!queue)
///             queue = new Zv::LgQueue(7); // the number of the calling thread
///         return queue;
///     }
///
/// **Threads**: one thread writes, and one reader at a time reads. The `get` and `is` operations
/// are thread-safe, except `getStream`.
///
/// **Blocks**: see `LgLog::setBlockingTrace`.
class ZVBASE_EXPORT LgQueue
{
public:
    /// The size in bytes, for text and for what is kept with each line, which is at most 63 bytes.
    static constexpr std::size_t CAPACITY = 32 * 1024;

    class Observer;
    class SuppressGuard;

    /// `threadId` is the number of the thread that writes.
    explicit LgQueue(unsigned long threadId);
    ~LgQueue();
    LgQueue(LgQueue const &) = delete;
    LgQueue &operator=(LgQueue const &) = delete;

    unsigned long getThreadId() const noexcept;
    /// Returns true if there is no room for a single character.
    bool isFull() const noexcept;
    /// Returns true if there is no whole line for the reader.
    bool isEmpty() const noexcept;
    LgStream &getStream() noexcept;
    /// Returns the number of lines that were dropped because the queue was full.
    std::uint64_t getNbLostLines() const noexcept;

    /// Replaces the observer and deletes the former one. Call it before the thread writes its first
    /// line.
    ///
    /// **Blocks**: while a reader writes a line.
    void changeObserver(ObjPtr<Observer> observer);

    /// Says that the thread of this queue will not write again. The thread must call it when it
    /// ends. If the thread was killed, the killer must call it afterwards. If a reader serves the
    /// queue, the reader writes what is left and deletes the queue. Otherwise this call does so. In
    /// both cases the caller must not use the queue again.
    ///
    /// **Blocks**: while text is written, if no reader serves the queue.
    void creatorExit();

private:
    friend class LgLine;
    friend class LgLog;
    friend class LgReader;

    ObjPtr<LgQueueImp> _imp;
};

/// Lets the writing thread of a queue wait for room, for blocking trace. The queue owns it.
class ZVBASE_EXPORT LgQueue::Observer
{
public:
    virtual ~Observer();
    /// Called when the reader has taken text out of the queue, on the reading thread. No queue can
    /// be deleted during the call. It must not block for long, and must not write to the log.
    virtual void notify(LgQueue &queue) = 0;
    /// Called if the queue is full, on the writing thread, while blocking trace is on and a logger
    /// runs. It should wait until `n` characters are free (`LgStream::getNumCharacters`). If it
    /// returns earlier, the line may be lost. `n` is never more than an empty queue has.
    virtual void wait(LgQueue &queue, unsigned n) = 0;

protected:
    Observer();
    Observer(Observer const &) = delete;
    Observer &operator=(Observer const &) = delete;
};

/// Drops all lines that the queue's thread writes during its lifetime, without counting them. For
/// the reader's own thread: otherwise its lines would keep the reader busy without end. Guards may
/// nest.
///
/// **Threads**: the thread of the queue constructs and destroys it.
class ZVBASE_EXPORT LgQueue::SuppressGuard
{
public:
    /// Drops the lines of `queue` from now on.
    explicit SuppressGuard(LgQueue &queue);
    ~SuppressGuard();
    SuppressGuard(SuppressGuard const &) = delete;
    SuppressGuard &operator=(SuppressGuard const &) = delete;

private:
    LgQueueImp &_queue;
};

} // namespace Zv
