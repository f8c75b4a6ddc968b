// Thread with a name, a priority and a processor, and the protocol that it executes (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkThreadId.h"
#include "zvbase/objPtr.h"
#include "zvbase/platform/shared.h"
#include "zvbase/testAccess.h"

#include <iosfwd>

namespace Zv {

class MtThread;
class Priority;

template <class Tag>
class InInit;
namespace ZvInit {
struct threads;
}

/// The body of a thread. An `MtThread` executes one protocol, and any protocol runs on any thread.
///
///     #include <resmgt/locks.h>
///
///     class Waiter : public MtThreadProtocol
///     {
///     public:
///         void performExecute(MtThread *) override { _stop.wait(); }
///         void performStop(MtThread *) override { _stop.set(); }
///
///     private:
///         LkEvent _stop{"stop", false};
///     };
///
/// **Threads**: the operations are called by the threads that each one names. `performStop` and
/// `performCanceled` are called under the thread's lock. They may call operations of their thread
/// and may create and destroy priority relations, but must not wait for the thread's end.
///
/// **Owns**: a protocol belongs to one thread at a time. `MtThreadFactory::createThread` takes it,
/// and it is destroyed with its thread unless `MtThread::detachProtocol` takes it back.
class ZVRESMGT_EXPORT MtThreadProtocol
{
public:
    MtThreadProtocol() = default;
    MtThreadProtocol(MtThreadProtocol const &) = delete;
    MtThreadProtocol &operator=(MtThreadProtocol const &) = delete;
    virtual ~MtThreadProtocol() noexcept(false) = 0;

    /// Called at the end of the constructor of the thread, by the thread that creates it. An
    /// exception that leaves it also leaves `MtThreadFactory::createThread`.
    virtual void performAttach(MtThread *thread);
    /// Called when the protocol is removed from its thread: when the thread is destroyed, or by
    /// `MtThread::detachProtocol`. Called without the thread's lock.
    virtual void performDetach(MtThread *thread);
    /// The body of the thread. Called by the thread itself, without its lock.
    ///
    /// An exception that leaves it ends the process, after the log has been written. A body that
    /// must survive a failure has to catch it. A body must not call the POSIX functions that end a
    /// thread, because they end the process. See docs/processes-and-signals.md.
    virtual void performExecute(MtThread *thread) = 0;
    /// Called by `MtThread::cancel`, on its calling thread, when the thread has been killed.
    virtual void performCanceled(MtThread *thread);
    /// Asks the body to return, without waiting for it. May be called by any thread, any number of
    /// times, also while the thread does not run.
    virtual void performStop(MtThread *thread);
};

/// A thread of the operating system with a name, a priority and a processor. It executes an
/// `MtThreadProtocol`.
///
///     class Worker : public MtThreadProtocol
///     {
///     public:
///         void performExecute(MtThread *) override {}
///     };
///
///     ObjPtr<MtThread> thread = MtThreadFactory::getInstance().createThread(
///         "worker", ObjPtr<MtThreadProtocol>(new Worker));
///     thread->start();
///     thread->stop();
///     thread->join();
///
/// `MtThreadFactory` creates threads. `MtThreadMgr` knows each thread as long as it exists. A
/// thread can be started and joined any number of times.
///
/// **Threads**: thread-safe, except the destructor. A thread must not destroy, join or cancel
/// itself.
///
/// **Blocks**: an operation blocks only while another operation of the same thread object runs, if
/// it says nothing else. The destructor calls `stop` and waits for the end of the thread.
///
/// **Throws**: an operation that fails an assertion leaves the object usable.
///
/// **Owns**: the owner of a thread holds it in an `ObjPtr`, because the destructor is protected.
/// The thread owns its protocol.
class ZVRESMGT_EXPORT MtThread
{
    // The order of the virtual functions is part of the binary interface. It decides the order of
    // the sections.
public:
    MtThread(MtThread const &) = delete;
    MtThread &operator=(MtThread const &) = delete;

    /// Starts the thread. Returns when it runs, with its log queue registered, its priority set and
    /// its processor chosen. Without a chosen processor it may use all processors of the process,
    /// even if the calling thread may not. It begins with the calling thread's signal mask.
    ///
    /// Fails an assertion if
    /// - the thread was not joined since its last start, even if its body has returned:
    ///   "!isRunningNoLock()";
    /// - the package `threads` is not initialised yet: "canStart()";
    /// - the system refuses to create a thread: "threadHandle != NULL";
    /// - the system refuses the level: "::SetThreadPriority( _threadHandle, _priorityValue )". The
    ///   thread runs nevertheless, and the level is requested again when the priorities are solved
    ///   the next time;
    /// - the process may not use the chosen processor: "::SetThreadAffinityMask( _threadHandle,
    ///   mask )". The body is not executed.
    ///
    /// Except after a refused level, the thread does not run after a failure, and can be started
    /// again.
    virtual void start() = 0;
    /// Calls `MtThreadProtocol::performStop`, which asks the body to return. Does not wait for it.
    virtual void stop() = 0;
    /// Waits for the end of a thread that was started. Returns at once if there is none. If an
    /// exception of the body is stored, throws it as `MtEx::ExThrownException`, once.
    virtual void join() = 0;
    /// Kills the thread if it runs and is cancelable. Otherwise does nothing, so a second call has
    /// no effect. The thread must be joined nevertheless.
    ///
    /// The stack of the thread is not unwound, and its specific data stays. Each mutex (`LkMutex`)
    /// that it held becomes abandoned. Each `LkLock` and `LkRecLock` that it held stays locked. So
    /// may the allocator, the loader or a standard semaphore if the thread is killed inside it. A
    /// body must enable cancelling only while it holds no lock and merely computes or waits for an
    /// event.
    ///
    /// **Blocks** until the thread is gone. Other operations of the thread block meanwhile. A
    /// thread that waits or computes is killed at once, even if it has blocked signals. There is
    /// one exception, on Linux: if a thread has blocked signals by a system call of its own and
    /// computes, it is killed when it next waits or calls the library. See
    /// docs/processes-and-signals.md.
    ///
    /// Fails the assertion "::TerminateThread( _threadHandle, 0 )" if the system refuses. The
    /// thread then runs on.
    virtual void cancel() = 0;
    /// A point at which the calling thread may be cancelled, on platforms that need one.
    virtual void testCancel() = 0;

    /// Returns whether the thread can be placed on a processor.
    virtual bool isProcessorPlaceable() const;
    /// Returns the processor that was chosen for the thread, or -1 if there is none.
    virtual int getProcessorNb() const;
    /// Places the thread on the processor `processorNb` modulo 32, or on all processors of the
    /// process if the number is negative. If the thread does not run, the choice takes effect at
    /// its next start, unless the environment variable `ZV_RUNON` is 0.
    ///
    /// Throws `MtEx::ExNotImplemented` if threads cannot be placed. If the process may not use the
    /// processor, fails the assertion "::SetThreadAffinityMask( _threadHandle, mask )", here if the
    /// thread runs, otherwise in `start`. A process may have fewer processors than
    /// `MtThreadMgr::getNbProcessors` returns.
    virtual void setProcessorNb(int processorNb);

    /// Returns true from `start` to `join`. A thread whose body has returned counts as running
    /// until it is joined.
    virtual bool isRunning() const = 0;
    /// Returns whether `cancel` would kill the thread now. Fails the assertion "isRunning()" if the
    /// thread does not run.
    virtual bool isCancelable() const = 0;
    virtual LiString getName() const = 0;
    /// Returns the thread's node in the graph of `MtPriorityMgr`, which lives as long as the
    /// thread. Relations give the node its value, which becomes the level of the thread. Without a
    /// relation the value is the lowest. The main thread keeps its own level while the value of its
    /// node is the lowest.
    virtual Priority &getPriority() = 0;
    /// Returns the protocol, which the thread still owns, or null if there is none.
    virtual MtThreadProtocol *getProtocol() const = 0;
    /// Does what `getProtocol` does. It takes the thread's lock, in spite of its name.
    virtual MtThreadProtocol *getProtocolNoLock() const = 0;
    /// Calls `MtThreadProtocol::performDetach` and returns the protocol to the caller, or null if
    /// there is none. The thread must not run.
    [[nodiscard]] virtual ObjPtrRet<MtThreadProtocol> detachProtocol() = 0;
    /// Returns the number of the running thread, or a null number if it does not run.
    virtual LkThreadId getThreadId() const = 0;
    /// Writes one line without its end: number, name, level, effective priority, stored exception,
    /// processor.
    virtual void dump(std::ostream &) const = 0;

protected:
    virtual ~MtThread() noexcept(false);

public:
    /// Allows `cancel`. Must be called by the thread itself. Cancelling is disabled at each start.
    /// Returns true if this call changed the setting. Fails the assertion "!check ||
    /// isRunningNoLock()" if the thread does not run.
    virtual bool enableCancel() = 0;
    /// Forbids `cancel`. The thread is not killed after this has returned. Otherwise like
    /// `enableCancel`.
    virtual bool disableCancel() = 0;

protected:
    friend class MtThreadPriority;
    template <class T>
    friend struct Detail::SingleObject; // an ObjPtr destroys threads

    /// Sets the level, from `MtThreadFactory::getMinPriority` to `getMaxPriority`, of the running
    /// thread or for its next start. The thread's node calls this under the lock of the priority
    /// manager. An implementation must not take a lock that it holds while it calls a protocol.
    virtual void setPriorityValue(int level) = 0;
    /// Called by the thread itself before its body.
    virtual void applyProcessorNb() = 0;
    /// Called by the thread itself after its body.
    virtual void threadEnded() = 0;
    /// Does what `setProcessorNb` does, for a caller that holds the thread's lock.
    virtual void setProcessorNbNoLock(int processorNb) = 0;

    MtThread() = default;
    /// Returns whether threads may be started yet.
    bool canStart() const;
    /// Destroys the thread-specific values of the calling thread.
    void freeSpecificData();

private:
    friend class InInit<ZvInit::threads>;
    template <class>
    friend struct TestAccess;

    /// Allows all threads to start, for the rest of the process.
    static void allowStart();

    static ZvPlatform::Shared<bool> _canStart;
};

/// Writes to the trace, at level "MtThread", the addresses of the calling thread's stack. To be
/// called in a debugger.
ZVRESMGT_EXPORT void printThreadStack();

} // namespace Zv
