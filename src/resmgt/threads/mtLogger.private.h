// Log of a process with threads: a queue for each thread, and one thread that empties them all.
#pragma once

#include "resmgt/locks/lkLock.h"
#include "resmgt/locks/lkSema.h"
#include "resmgt/threads/indexedList.private.h"
#include "resmgt/threads/mtThread.h"
#include "zvbase/firstFailure.private.h"
#include "zvbase/lgQueue.h"
#include "zvbase/lgRegistry.h"
#include "zvbase/objPtr.h"
#include "zvbase/platform/shared.h"
#include "zvbase/sequenceContainers.h"
#include "zvbase/threadAnnotations.h"

namespace Zv {

/// Starts and stops the log. A thread writes to its own queue, whose memory was allocated before
/// its body began. It never waits, except if blocking trace is enabled.
class MtLogger
{
public:
    class QueueAdapter;
    class QueueObserver;
    class Registry;
    class ReaderThread;

    /// Starts the reader thread. Fails the assertion "!LgLog::isLoggerActive()" if the log runs. If
    /// it throws, nothing has changed.
    static void startLogger();
    /// Stops the reader thread. When this returns, all lines that were written before are in the
    /// output. Must be called by the thread that started the logger. Fails the assertion
    /// "LgLog::isLoggerActive()" if the log does not run. Throws what solving the priority graph
    /// throws if another change has left the graph invalid. The logger has stopped nevertheless.
    static void stopLogger();

    /// Creates and registers the queue of the calling thread, which begins. Returns the queue, or
    /// null without a logger.
    static LgQueue *enterThread();
    /// Returns the number of the logger's run, counted from 1, or 0 while the log does not run.
    static unsigned getRun();
    /// Gives the queue of the calling thread, which ends, to the reader.
    static void exitThread();
    /// Does what `exitThread` does for a thread that the library did not create, and destroys its
    /// trace.
    static void forgetThread();

    MtLogger() = delete;

private:
    struct State;

    static LgQueue *getThreadQueue();
    /// Undoes `startLogger`. Goes on after a failure, and returns the first one.
    static FirstFailure dismantle();

    static State *_state; // while the logger runs
    static ZvPlatform::Shared<bool> _running;
    static unsigned _nbRuns;
    static ZvPlatform::Shared<unsigned> _run;
};

/// The queue of one thread. The destructor gives the queue to the reader, which deletes it.
class MtLogger::QueueAdapter
{
public:
    QueueAdapter();
    ~QueueAdapter();
    QueueAdapter(QueueAdapter const &) = delete;
    QueueAdapter &operator=(QueueAdapter const &) = delete;

    LgQueue *getQueue() const { return _queue; }
    /// Gives up the ownership of the queue.
    LgQueue *releaseQueue();

private:
    LgQueue *_queue;
};

/// Flow control for the writer of one queue. If blocking trace is enabled and the queue is full,
/// the writer sleeps until the reader has made room.
class MtLogger::QueueObserver final : public LgQueue::Observer
{
public:
    QueueObserver();
    ~QueueObserver() noexcept override;
    void notify(LgQueue &queue) override;
    void wait(LgQueue &queue, unsigned n) override;

private:
    LkLock _lock;
    ObjPtr<LkSema> _sema; // created by the first wait
    unsigned _waitForChars ZV_GUARDED_BY(_lock);
};

/// The queues of the threads, in the order in which they were added.
class MtLogger::Registry final : public LgRegistry
{
public:
    Registry();
    ~Registry() override;
    void addQueue(LgQueue *queue) override;
    void removeQueue(LgQueue *queue) override;
    List<LgQueue *> getQueues() override;
    bool hasQueue(LgQueue *queue) override;

private:
    IndexedList<LgQueue> _queues ZV_GUARDED_BY(_lock);
    LkLock _lock;
};

/// The body of "Log_Reader_Thread".
class MtLogger::ReaderThread final : public MtThreadProtocol
{
public:
    void performExecute(MtThread *thread) override;
    void performStop(MtThread *thread) override;
};

} // namespace Zv
