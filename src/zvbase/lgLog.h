// The log of the process: its switches, and the connection to a logger (extenders).
#pragma once

#include "zvbase/export.h"
#include "zvbase/lgRegistry.h"
#include "zvbase/objPtr.h"
#include "zvbase/platform/shared.h"

#include <cstddef>
#include <cstdint>

namespace Zv {

class LgQueue;

/// The log of the process.
///
/// Without a logger each thread writes its lines directly to the output. A logger gives each thread
/// a queue (`setQueueFunction`), and runs a thread that calls `LgReader::flushEarliest` repeatedly.
///
/// To start a logger, set the registry, then the queue function, construct the reader, start its
/// thread, and call `setLoggerActive(true)`. To stop it, call `setLoggerActive(false)`, let the
/// thread flush until nothing is left and end it, destroy the reader, and set the former registry.
/// A line that was begun before that and is ended later is still written, as far as its queue has
/// room.
///
/// All lines are written in the order in which they were ended.
///
///     if (!Zv::LgLog::isLoggerActive())
///         Zv::LgTrace::print("Lines go directly to the output.");
///     Zv::LgLog::flush();
///
/// **Threads**: thread-safe.
class ZVBASE_EXPORT LgLog
{
public:
    class QueuesGuard;

    /// Returns the calling thread's queue. The queue function makes it if it does not exist.
    /// Returns null if there is no queue function.
    static LgQueue *getQueue();
    /// Sets the function that returns the calling thread's queue. While a logger runs, the library
    /// calls it for each line, on any thread. Null removes the function.
    static void setQueueFunction(LgQueue *(*function)());

    /// Returns the installed registry. It is valid until the next call of `setRegistry`.
    static LgRegistry &getRegistry();
    /// Installs a registry and returns the former one. A null pointer means the base library's own
    /// registry, in both directions. Writes what is left in the queues of the former registry, and
    /// deletes those of ended threads. Queues of threads that write later are added to the new one.
    /// No `LgReader` may exist that was used before.
    ///
    /// **Blocks**: while text is written.
    static ObjPtrRet<LgRegistry> setRegistry(ObjPtr<LgRegistry> registry);

    /// Adds a queue to the installed registry, unless it contains the queue already. The queue's
    /// thread must call it. Does nothing if `queue` is null. Does not wait for the output.
    static void registerQueue(LgQueue *queue);
    /// Calls `LgQueue::creatorExit` of a thread that was killed. Returns false if the registry has
    /// no queue of this thread.
    ///
    /// **Blocks**: while another thread writes to the output.
    static bool creatorExit(unsigned long threadId);

    static bool isLoggerActive() noexcept;
    /// Tells all threads whether to write to queues (true) or directly to the output (false).
    static void setLoggerActive(bool active) noexcept;
    static bool isBlockingTrace() noexcept;
    /// Switches blocking trace. If it is on and a logger is active, a thread whose queue is full
    /// waits until the reader has made room. If it is off, the line is lost.
    static void setBlockingTrace(bool blocking) noexcept;

    /// Writes everything that was ended before the call. For a program that is about to end
    /// abruptly.
    ///
    /// **Blocks**: while text is written.
    static void flush();

    LgLog() = delete;

private:
    static ZvPlatform::Shared<bool> _loggerActive;
    static ZvPlatform::Shared<bool> _blockingTrace;
};

/// Keeps all queues alive and unread during its lifetime. All writing to the output waits for it,
/// so keep it short.
///
///     Zv::LgLog::QueuesGuard const guard;
///     std::size_t const nbQueues = Zv::LgLog::getRegistry().getQueues().size();
///
/// **Blocks**: the constructor waits while another thread writes to the output.
class ZVBASE_EXPORT LgLog::QueuesGuard
{
public:
    QueuesGuard();
    ~QueuesGuard();
    QueuesGuard(QueuesGuard const &) = delete;
    QueuesGuard &operator=(QueuesGuard const &) = delete;
};

} // namespace Zv
