// The text of one thread on its way to the log.
#pragma once

#include "zvbase/export.h"
#include "zvbase/lgStream.h"
#include "zvbase/objPtr.h"

#include <cstddef>
#include <cstdint>

namespace Zv {

class LgQueueImp;

/// A thread's own queue of text: one writer, the thread that it was made for, and one reader at a time, `LgReader`.
/// All memory is allocated when the queue is made. The writer takes no lock and wakes nobody; where the queue is full
/// the newest line is dropped and counted, and the log says how much was lost.
///
/// Life of a queue:
///
/// - The function that was given to `LgLog::setQueueFunction` makes it at a thread's first call, with `new`, for the
///   calling thread.
/// - `LgLog::registerQueue` enters it where the reader looks. A thread does so before its body begins; one that does
///   not is entered with its first line.
/// - When the thread ends, or has been killed, `creatorExit` is called, once. From then on the queue belongs to the
///   reader, which writes what is left and deletes it; nobody else touches it again.
/// - Whoever deletes a queue otherwise has taken it out of its registry before, and its thread writes no more.
class ZVBASE_EXPORT LgQueue
{
public:
    /// Bytes of text and of what goes with each line (at most 63 bytes).
    static constexpr std::size_t CAPACITY = 32 * 1024;

    class Observer;
    class SuppressGuard;

    /// `threadId` is the number of the thread that writes.
    explicit LgQueue(unsigned long threadId);
    ~LgQueue();
    LgQueue(LgQueue const &) = delete;
    LgQueue &operator=(LgQueue const &) = delete;

    /// Any thread.
    unsigned long getThreadId() const noexcept;
    /// Whether not even one character fits. Any thread.
    bool isFull() const noexcept;
    /// Whether no whole line waits for the reader. Any thread.
    bool isEmpty() const noexcept;
    LgStream &getStream() noexcept;
    /// Lines that were dropped so far, since the queue was full. Any thread.
    std::uint64_t getNbLostLines() const noexcept;

    /// Replaces the flow control; the former one is deleted. May wait until the reader has written one line. Before
    /// the thread writes its first line.
    void changeObserver(ObjPtr<Observer> observer);

    /// The writing thread writes no more: it is ending, and calls this itself, or it was killed, and its killer calls
    /// this after it. What is left comes out: by the reader where one is at work, which deletes the queue; where
    /// none is, this call writes it and deletes the queue. The queue is gone for the caller in both cases.
    void creatorExit();

private:
    friend class LgLine;
    friend class LgLog;
    friend class LgReader;

    ObjPtr<LgQueueImp> _imp;
};

/// Flow control of a queue's writer, for blocking trace. Belongs to its queue.
class ZVBASE_EXPORT LgQueue::Observer
{
public:
    virtual ~Observer();
    /// The reader has taken text out of the queue. By the reading thread, while no queue can be deleted; does not
    /// block for long, and writes nothing to the log.
    virtual void notify(LgQueue &queue) = 0;
    /// The writer has no room: returns when `n` characters are free (`LgStream::getNumCharacters`), or leaves it at
    /// that. By the writing thread. Called only while blocking trace is on and a logger runs. `n` is never more than
    /// an emptied queue has.
    virtual void wait(LgQueue &queue, unsigned n) = 0;

protected:
    Observer();
    Observer(Observer const &) = delete;
    Observer &operator=(Observer const &) = delete;
};

/// While it lives, lines that the queue's thread writes vanish, and nobody counts them: for the reader's own thread,
/// whose lines would feed the reader for ever. Built and destroyed by the queue's thread; guards may nest.
class ZVBASE_EXPORT LgQueue::SuppressGuard
{
public:
    explicit SuppressGuard(LgQueue &queue);
    ~SuppressGuard();
    SuppressGuard(SuppressGuard const &) = delete;
    SuppressGuard &operator=(SuppressGuard const &) = delete;

private:
    LgQueueImp &_queue;
};

} // namespace Zv
