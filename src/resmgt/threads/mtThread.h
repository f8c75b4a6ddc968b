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

    /// Makes the operating system's thread and returns when it runs, with its log queue registered and its priority
    /// set. Asserts "!isRunningNoLock()": a thread is joined before it is started again, also where its body has
    /// come to its end; and "canStart()": no thread starts before the package `threads` is up.
    virtual void start() = 0;
    /// Asks the protocol to bring the body to its end. Does not wait for it.
    virtual void stop() = 0;
    /// Waits for the end of a thread that was started; returns at once where there is none. Rethrows a stored
    /// exception of the body as `MtEx::ExThrownException`, once.
    virtual void join() = 0;
    /// Kills the thread if it runs and is cancelable, else does nothing: a second call does nothing. It has to be
    /// joined all the same. Nothing of its stack is unwound and its specific data stays; mutexes that it held become
    /// abandoned, and one that is killed inside the allocator, the loader or a standard semaphore may leave that
    /// locked: a body enables cancelling only where it merely computes, or waits for an event.
    virtual void cancel() = 0;
    /// A point at which a thread may be cancelled, on platforms that need one.
    virtual void testCancel() = 0;

    /// Whether the thread can be placed on a processor.
    virtual bool isProcessorPlaceable() const;
    /// The processor that was chosen for the thread; -1 for none.
    virtual int getProcessorNb() const;
    /// Places the thread on processor `processorNb` (modulo 32), or with -1 on all those of the process. A thread that
    /// does not run remembers the number until it starts, and takes it then unless `ZV_RUNON` is 0. Throws
    /// `MtEx::ExNotImplemented` where threads cannot be placed.
    virtual void setProcessorNb(int processorNb);

    /// From `start` to `join`: a thread whose body has ended counts as running until it is joined.
    virtual bool isRunning() const = 0;
    /// Asserts "isRunning()".
    virtual bool isCancelable() const = 0;
    virtual LiString getName() const = 0;
    /// The thread's node in the graph of `MtPriorityMgr`. It gets its value through relations, and the thread its
    /// level through it; without a relation that is the lowest. Lives as long as the thread.
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
    /// Allows `cancel`; called by the running thread itself. It starts out forbidden at each start. Returns whether
    /// this was a change. Asserts "!check || isRunningNoLock()".
    virtual bool enableCancel() = 0;
    /// Forbids `cancel`: once this has returned, the thread is not killed. The rest as for `enableCancel`.
    virtual bool disableCancel() = 0;

protected:
    friend class MtThreadPriority;
    template <class T>
    friend struct Detail::SingleObject; // an ObjPtr destroys threads

    /// A level from `MtThreadFactory::getMinPriority` to `getMaxPriority`, for the running thread or for the next
    /// start. Called by the thread's priority under the priority manager's lock: takes no lock under which anybody
    /// calls out.
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
