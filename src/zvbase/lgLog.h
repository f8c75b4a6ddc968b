// The log of the process: its switches, and the seams at which a logger joins it to threads.
#pragma once

#include "zvbase/export.h"
#include "zvbase/lgRegistry.h"
#include "zvbase/objPtr.h"

#include <cstddef>
#include <cstdint>

namespace Zv {

class LgQueue;

/// The log of the process.
///
/// Without a logger each line goes straight to the output, in the thread that writes it. A logger gives each thread a
/// queue, `setQueueFunction`, and runs a thread that calls `LgReader::flushEarliest` again and again. It starts in
/// this order: registry, queue function, reader, thread, `setLoggerActive(true)`. It stops in this one:
/// `setLoggerActive(false)`, the reader thread flushes until nothing is left and ends, the reader is deleted, the
/// former registry is put back. A line that was begun before and is ended later comes out, as far as its queue has room.
///
/// Lines of one thread keep their order, and all lines come out in the order in which they were ended.
class ZVBASE_EXPORT LgLog
{
public:
    class QueuesGuard;

    /// The calling thread's queue, made by the queue function where there is none yet; null without a logger.
    static LgQueue *getQueue();
    /// `function` returns the calling thread's queue, in any thread and at any time; null takes the function away.
    /// It is asked for each line while a logger runs.
    static void setQueueFunction(LgQueue *(*function)());

    /// The registry in force. Stays alive for the caller only as long as nobody calls `setRegistry`.
    static LgRegistry &getRegistry();
    /// Puts a registry in force and returns the former one. A null pointer stands for the base library's own, both
    /// ways. What is left in the queues of the former one is written, and queues whose threads have ended are
    /// deleted. Threads that write later enter their queues in the new one. No `LgReader` may be left that was used
    /// before.
    static ObjPtrRet<LgRegistry> setRegistry(ObjPtr<LgRegistry> registry);

    /// Enters a queue in the registry in force, once. By the queue's thread. A null pointer does nothing. Takes no
    /// lock that is held while text is written.
    static void registerQueue(LgQueue *queue);
    /// Finds the registered queue of a thread that was killed and calls its `creatorExit`. False where there is none.
    static bool creatorExit(unsigned long threadId);

    static bool isLoggerActive() noexcept;
    static void setLoggerActive(bool active) noexcept;
    /// With blocking trace a thread whose queue is full waits until the reader has made room, while a logger is active.
    static bool isBlockingTrace() noexcept;
    static void setBlockingTrace(bool blocking) noexcept;

    /// Writes everything that was ended before the call, in the calling thread; for a program that is about to end
    /// abruptly. Blocks while text is written.
    static void flush();

    LgLog() = delete;

private:
    static bool _loggerActive;
    static bool _blockingTrace;
};

/// While it lives no queue is deleted and none is read. It makes all writing to the output wait: to be held shortly.
class ZVBASE_EXPORT LgLog::QueuesGuard
{
public:
    QueuesGuard();
    ~QueuesGuard();
    QueuesGuard(QueuesGuard const &) = delete;
    QueuesGuard &operator=(QueuesGuard const &) = delete;
};

} // namespace Zv
