// The log of a process with threads: a queue for each thread, and one thread that drains them all.
#pragma once

#include "resmgt/locks/lkLock.h"
#include "resmgt/locks/lkSema.h"
#include "resmgt/threads/indexedList.private.h"
#include "resmgt/threads/mtThreadProtocol.h"
#include "zvbase/containers.h"
#include "zvbase/lgQueue.h"
#include "zvbase/lgRegistry.h"
#include "zvbase/objPtr.h"
#include "zvbase/threadAnnotations.h"

#include <exception>

namespace Zv {

/// Starts and stops the log. A thread writes to its own queue, whose memory was allocated before its body began, and
/// never waits unless blocking trace is on.
class MtLogger
{
public:
    class QueueAdapter;
    class QueueObserver;
    class Registry;
    class ReaderThread;

    /// Asserts "!LgLog::isLoggerActive()". Where it throws, nothing has changed.
    static void startLogger();
    /// Asserts "LgLog::isLoggerActive()". What was written before is in the output when this returns. Called by the
    /// thread that started the logger. Throws what solving the priority graph throws, if another change has left the
    /// graph invalid. The logger has stopped in that case, too.
    static void stopLogger();

    /// For a thread that begins: makes and registers its queue, and returns it; null without a logger.
    static LgQueue *enterThread();
    /// The run of the logger, counted from 1; 0 while there is none.
    static unsigned getRun();
    /// For a thread that ends: gives its queue to the reader.
    static void exitThread();
    /// For a thread of others' that ends: the same, and its trace.
    static void forgetThread();

    MtLogger() = delete;

private:
    struct State;

    static LgQueue *getThreadQueue();
    /// Returns the first failure, or null. Goes on behind each.
    static std::exception_ptr dismantle();

    static State *_state; // while the logger runs
    static bool _running;
    static unsigned _nbRuns;
    static unsigned _run;
};

/// What a thread has of the logger: its queue. With the adapter, the queue goes to the reader, which deletes it.
class MtLogger::QueueAdapter
{
public:
    QueueAdapter();
    ~QueueAdapter();
    QueueAdapter(QueueAdapter const &) = delete;
    QueueAdapter &operator=(QueueAdapter const &) = delete;

    LgQueue *getQueue() const { return _queue; }
    /// Gives the queue away.
    LgQueue *releaseQueue();

private:
    LgQueue *_queue;
};

/// The flow control of one queue's writer: with blocking trace, a writer without room sleeps until the reader has
/// made some.
class MtLogger::QueueObserver final : public LgQueue::Observer
{
public:
    QueueObserver();
    ~QueueObserver() noexcept override;
    void notify(LgQueue &queue) override;
    void wait(LgQueue &queue, unsigned n) override;

private:
    LkLock _lock;
    ObjPtr<LkSema> _sema; // made at the first wait; stays
    unsigned _waitForChars ZV_GUARDED_BY(_lock);
};

/// The queues of the threads, in the order of their adding.
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
