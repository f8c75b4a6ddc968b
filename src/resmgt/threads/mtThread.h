// A thread of the library.
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkThreadId.h"
#include "resmgt/threads/mtThreadProtocol.h"
#include "zvbase/objPtr.h"

#include <iosfwd>

namespace Zv {

class Priority;

template <class Tag>
class InInit;
namespace ZvInit {
struct threads;
}

/// A thread: it owns the operating system's thread with its name, priority and processor, and executes an
/// `MtThreadProtocol`.
///
/// Threads come from `MtThreadFactory` and are registered with `MtThreadMgr` as long as they exist. Their owner
/// holds them in an `ObjPtr`, which alone can destroy them. Destroying a thread stops it and waits for its end; a
/// thread must not be destroyed, joined or cancelled by itself.
///
/// A thread is started, joined, started again, any number of times. Where nothing else is said, all operations may
/// be called by any thread and block only as long as another operation of the same thread object does. A failed
/// assertion leaves the object usable.
class ZVRESMGT_EXPORT MtThread
{
public:
    MtThread(MtThread const &) = delete;
    MtThread &operator=(MtThread const &) = delete;

    /// Makes the operating system's thread and returns when it runs, with its log queue registered, its priority set and
    /// its processor chosen. Without a chosen processor it has those of the process, not those of the calling thread.
    /// It begins with the calling thread's signal mask.
    ///
    /// Fails an assertion if
    /// - the thread was not joined since its last start, even if its body has ended: "!isRunningNoLock()";
    /// - the package `threads` is not up yet: "canStart()";
    /// - the system refuses a thread: "threadHandle != NULL";
    /// - the system refuses the level: "::SetThreadPriority( _threadHandle, _priorityValue )". The thread runs all the
    ///   same, and the level is asked for again when the priorities are solved the next time;
    /// - the process may not use the chosen processor: "::SetThreadAffinityMask( _threadHandle, mask )". The body is not
    ///   executed.
    ///
    /// Except after the refused level, the thread does not run after a failure, and may be started again.
    virtual void start() = 0;
    /// Asks the protocol to bring the body to its end. Does not wait for it.
    virtual void stop() = 0;
    /// Waits for the end of a thread that was started; returns at once where there is none. Rethrows a stored
    /// exception of the body as `MtEx::ExThrownException`, once.
    virtual void join() = 0;
    /// Kills the thread if it runs and is cancelable, else does nothing: a second call does nothing. It has to be
    /// joined all the same. Nothing of its stack is unwound and its specific data stays. Each mutex (`LkMutex`) that it
    /// held becomes abandoned. Each `LkLock` and `LkRecLock` that it held stays locked, and so may the
    /// allocator, the loader or a standard semaphore if the thread is killed inside it. A body must enable cancelling
    /// only while it merely computes, or waits for an event, and holds no lock.
    ///
    /// **Blocks** until the thread is gone, and other operations of the thread block meanwhile. A thread that waits or
    /// computes is killed at once, whatever signals it has blocked. The one exception, on Linux, is a thread that has
    /// blocked them by a system call of its own, and computes: it is killed when it waits or calls the library the next
    /// time. See docs/processes-and-signals.md.
    ///
    /// Fails the assertion "::TerminateThread( _threadHandle, 0 )" if the system refuses. The thread then runs on.
    virtual void cancel() = 0;
    /// A point at which a thread may be cancelled, on platforms that need one.
    virtual void testCancel() = 0;

    /// Whether the thread can be placed on a processor.
    virtual bool isProcessorPlaceable() const;
    /// The processor that was chosen for the thread; -1 for none.
    virtual int getProcessorNb() const;
    /// Places the thread on processor `processorNb` (modulo 32), or with -1 on all those of the process. A thread that
    /// does not run remembers the number until it starts, and takes it then unless `ZV_RUNON` is 0. Throws
    /// `MtEx::ExNotImplemented` if threads cannot be placed. Fails the assertion
    /// "::SetThreadAffinityMask( _threadHandle, mask )" if the process may not use the processor: here if the thread
    /// runs, else in `start`. The processors of a process may be fewer than `MtThreadMgr::getNbProcessors` says.
    virtual void setProcessorNb(int processorNb);

    /// From `start` to `join`: a thread whose body has ended counts as running until it is joined.
    virtual bool isRunning() const = 0;
    /// Asserts "isRunning()".
    virtual bool isCancelable() const = 0;
    virtual LiString getName() const = 0;
    /// The thread's node in the graph of `MtPriorityMgr`. It gets its value through relations, and the thread its
    /// level through it; without a relation that is the lowest. Lives as long as the thread. The main thread has its own
    /// level whenever its node has the lowest value.
    virtual Priority &getPriority() = 0;
    /// Null for a thread without protocol. The thread keeps it.
    virtual MtThreadProtocol *getProtocol() const = 0;
    virtual MtThreadProtocol *getProtocolNoLock() const = 0;
    /// Takes the protocol back, after its `performDetach`. For a thread that does not run.
    virtual ObjPtrRet<MtThreadProtocol> detachProtocol() = 0;
    /// Null while the thread does not run.
    virtual LkThreadId getThreadId() const = 0;
    /// One line without its end: number, name, level, effective priority, stored exception, processor.
    virtual void dump(std::ostream &) const = 0;

protected:
    virtual ~MtThread() noexcept(false);

public:
    /// Allows `cancel`; called by the running thread itself. At each start it is forbidden. Returns whether this was a
    /// change. Asserts "!check || isRunningNoLock()".
    virtual bool enableCancel() = 0;
    /// Forbids `cancel`: once this has returned, the thread is not killed. The rest as for `enableCancel`.
    virtual bool disableCancel() = 0;

protected:
    friend class MtThreadPriority;
    template <class T>
    friend struct Detail::SingleObject; // an ObjPtr destroys threads

    /// A level from `MtThreadFactory::getMinPriority` to `getMaxPriority`, for the running thread or for the next
    /// start. The thread's priority calls it under the priority manager's lock, so an implementation must not take a
    /// lock that it holds while it calls a protocol.
    virtual void setPriorityValue(int level) = 0;
    /// Run by the thread itself before its body.
    virtual void applyProcessorNb() = 0;
    /// Run by the thread itself after its body.
    virtual void threadEnded() = 0;
    virtual void setProcessorNbNoLock(int processorNb) = 0;

    MtThread() = default;
    /// Whether threads may be started yet.
    bool canStart() const;
    /// Frees the calling thread's specific data.
    void freeSpecificData();

private:
    friend class InInit<ZvInit::threads>;
    friend class MtThreadTestAccess;

    /// From now on threads may start, for the rest of the process.
    static void allowStart();

    static bool _canStart;
};

/// For the debugger: writes to the trace, at level "MtThread", where the calling thread's stack lies.
ZVRESMGT_EXPORT void printThreadStack();

} // namespace Zv
