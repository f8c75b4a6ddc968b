// What a thread does.
#pragma once

#include "resmgt/export.h"

namespace Zv {

class MtThread;

/// The behaviour of a thread: an `MtThread` executes one protocol, and any protocol runs on any thread.
///
/// A protocol belongs to one thread at a time. It is given to `MtThreadFactory::createThread`, and goes with its
/// thread unless `MtThread::detachProtocol` takes it back.
///
/// The thread's lock is held, by the calling thread, during `performStop` and `performCanceled`: they may call back
/// into their thread and may make and destroy priority relations, but must not wait for the thread's end.
class ZVRESMGT_EXPORT MtThreadProtocol
{
public:
    MtThreadProtocol() = default;
    MtThreadProtocol(MtThreadProtocol const &) = delete;
    MtThreadProtocol &operator=(MtThreadProtocol const &) = delete;
    virtual ~MtThreadProtocol() noexcept(false) = 0;

    /// The thread was built and is registered. What is thrown here leaves the thread's constructor.
    virtual void performAttach(MtThread *thread);
    /// Called when the protocol is removed from its thread: when the thread is destroyed, or by
    /// `MtThread::detachProtocol`. Called without the thread's lock.
    virtual void performDetach(MtThread *thread);
    /// The thread's body, called by the thread itself, without its lock. An exception that leaves it ends the
    /// process, after the log was written: a body that wants to survive a failure catches it. A body must not
    /// be ended by the POSIX functions for the end of a thread: they end the process, see docs/processes-and-signals.md.
    virtual void performExecute(MtThread *thread) = 0;
    /// The thread was killed by `MtThread::cancel`; called by the killer.
    virtual void performCanceled(MtThread *thread);
    /// Tells the body to come to its end and returns at once. Called by any thread, any number of times, also when
    /// the thread does not run.
    virtual void performStop(MtThread *thread);
};

} // namespace Zv
