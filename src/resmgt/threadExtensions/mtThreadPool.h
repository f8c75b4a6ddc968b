// Threads that share work.
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/priority.h"
#include "zvbase/objPtr.h"

namespace Zv {

/// A fixed set of worker threads with one common priority: the pool is a node of `MtPriorityMgr`, relations to it are
/// relations to all of its workers. Where work comes from is a derived class's affair. Each worker goes round
///
///     obtainTask(index);  // waits for work
///     executeTask(index); // does it
///     doneTask(index);    // says so
///
/// as long as the pool runs. That is asked after the work, so that each worker makes one more round after `stop`:
/// `obtainTask` then returns at once, and `executeTask` copes with an empty turn. Tasks that are left when the pool
/// stops stay where the derived class keeps them.
///
/// `start`, `stop` and the destructor are for one controlling thread, which is no worker of the pool. An exception
/// that leaves one of the three operations ends the process.
///
/// The pool is told nothing of solvings. A derived class that overrides `updatePriority` calls `setTelling` at the end
/// of its constructor and, with `NEVER`, first in its destructor.
///
///     class DiskPool : public MtThreadPool
///     {
///         ~DiskPool() noexcept(false) override { stop(); } // while its operations still exist
///         ...
///     };
class ZVRESMGT_EXPORT MtThreadPool : public Priority
{
public:
    /// The workers are made, not started. A worker's name is the pool's with its index behind it, two columns wide.
    /// `placeThreads`: worker i runs on processor i alone. `stackSize` is in bytes for each worker; 0 stands for
    /// 65536.
    ///
    /// Worker numbers are not reduced to the processors that exist. A pool that is placed must not have more workers
    /// than the process has processors, and the process must be allowed to use those with the numbers from 0 on. A
    /// container or a processor set may withhold some of them from it. Otherwise `start` fails the assertion
    /// "::SetThreadAffinityMask( _threadHandle, mask )".
    MtThreadPool(LiString const &name, unsigned nbThreads, bool placeThreads, unsigned stackSize);
    MtThreadPool(MtThreadPool const &) = delete;
    MtThreadPool &operator=(MtThreadPool const &) = delete;
    /// Waits for workers that still run. What they call is gone by then, and nobody wakes them: a derived class calls
    /// `stop` in its own destructor.
    ~MtThreadPool() noexcept(false) override;

protected:
    /// Does the work, on worker `workerIndex`; counted from 0.
    virtual void executeTask(unsigned workerIndex) = 0;
    /// Called by the worker after each `executeTask`. Does nothing here.
    virtual void doneTask(unsigned workerIndex);
    /// Blocks the worker until there is work or the pool stops. Does nothing here.
    virtual void obtainTask(unsigned workerIndex);
    /// Wakes the workers that block in `obtainTask`; `isRunning` is false already. Called by `stop` on its thread.
    /// Does nothing here.
    virtual void stopThreads();

public:
    /// Starts the workers in order. Does nothing if the pool runs. A pool may be started again after a stop. Throws what
    /// `MtThread::start` throws if a worker cannot be started or placed: the pool then runs with the workers before it,
    /// and `stop` ends them.
    void start();
    /// Lets the workers come to their end and waits for them; nothing where the pool does not run.
    void stop();
    /// From `start` to the beginning of `stop`. Any thread.
    bool isRunning() const;
    unsigned getNbThreads() const { return _nbThreads; }

private:
    class PoolWorker;

    unsigned _nbThreads;
    ArrayPtr<ObjPtr<MtThread>> _threads;
    bool _placeThreads;
    bool _isRunning;
};

} // namespace Zv
