// Pool of worker threads (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/priority.h"
#include "zvbase/objPtr.h"
#include "zvbase/platform/shared.h"

namespace Zv {

/// A fixed set of worker threads with one common priority. The pool is a node of `MtPriorityMgr`,
/// and relations to it apply to all of its workers. A derived class supplies the work:
///
///     #include <resmgt/locks.h>
///
///     class DiskPool : public MtThreadPool
///     {
///     public:
///         DiskPool() : MtThreadPool("disk", 2) {}
///         ~DiskPool() noexcept(false) override { stop(); } // while its operations still exist
///
///     protected:
///         void obtainTask(unsigned) override { _work.wait(); }
///         void executeTask(unsigned) override {}
///         void stopThreads() override { _work.set(); }
///
///     private:
///         LkEvent _work{"work", false};
///     };
///
/// Each worker calls `obtainTask`, `executeTask` and `doneTask` in turn, as long as the pool runs.
/// It checks this after each round, so each worker makes one more round after `stop`. `obtainTask`
/// must then return at once, and `executeTask` must accept a round without work. Work that is left
/// when the pool stops stays in the derived class.
///
/// `updatePriority` of a pool is not called. A derived class that overrides it must call
/// `setTelling` with `AT_EACH_SOLVING` or `WHEN_CHANGED` at the end of its constructor, and with
/// `NEVER` at the beginning of its destructor.
///
/// **Threads**: one controlling thread, which is no worker of the pool, calls `start`, `stop` and
/// the destructor. `isRunning`, `getNbThreads` and the operations of `Priority` are thread-safe.
///
/// **Throws**: an exception that leaves `obtainTask`, `executeTask` or `doneTask` ends the process.
class ZVRESMGT_EXPORT MtThreadPool : public Priority
{
    // The order of the virtual functions is part of the binary interface. It decides the order of
    // the sections.
public:
    /// Which processors the workers may use.
    enum class Placement
    {
        ALL_PROCESSORS,    ///< Each worker may use all processors of the process.
        ONE_PROCESSOR_EACH ///< Worker i runs on processor i only.
    };

    /// Creates the workers and does not start them. The name of a worker is that of the pool and
    /// its index, two columns wide. If `placeThreads` is true, worker i runs on processor i only.
    /// `stackSize` is in bytes for each worker, and 0 means 65536.
    ///
    /// Worker i is placed on processor i modulo 32. A pool that is placed must not have more
    /// workers than the process has processors, and the process must be allowed to use those with
    /// the numbers from 0 on. A container or a processor set may withhold some of them. Otherwise
    /// `start` fails the assertion "::SetThreadAffinityMask( _threadHandle, mask )".
    MtThreadPool(LiString const &name, unsigned nbThreads, bool placeThreads, unsigned stackSize);
    /// Like the constructor above, with a name for the third argument.
    MtThreadPool(LiString const &name, unsigned nbThreads,
                 Placement placement = Placement::ALL_PROCESSORS, unsigned stackSize = 0);
    MtThreadPool(MtThreadPool const &) = delete;
    MtThreadPool &operator=(MtThreadPool const &) = delete;
    /// Waits for workers that still run. The operations of the derived class no longer exist then,
    /// and nothing wakes the workers. So a derived class must call `stop` in its own destructor.
    ~MtThreadPool() noexcept(false) override;

protected:
    /// Does the work of one round. Called by the worker with the index `workerIndex`, counted from
    /// 0.
    virtual void executeTask(unsigned workerIndex) = 0;
    /// Called by the worker after each `executeTask`. Does nothing in this class.
    virtual void doneTask(unsigned workerIndex);
    /// Blocks the worker until there is work or the pool stops. Does nothing in this class.
    virtual void obtainTask(unsigned workerIndex);
    /// Wakes the workers that block in `obtainTask`. Called by `stop`, when `isRunning` returns
    /// false already. Does nothing in this class.
    virtual void stopThreads();

public:
    /// Starts the workers in order. Does nothing if the pool runs. A pool may be started again
    /// after a stop. Throws what `MtThread::start` throws if a worker cannot be started or placed.
    /// The workers with lower indices then run, and the pool must be stopped.
    void start();
    /// Wakes the workers and waits for their ends. Does nothing if the pool does not run.
    void stop();
    /// Returns true from `start` to the beginning of `stop`.
    bool isRunning() const;
    unsigned getNbThreads() const { return _nbThreads; }

private:
    class PoolWorker;

    unsigned _nbThreads;
    ArrayPtr<ObjPtr<MtThread>> _threads;
    bool _placeThreads;
    ZvPlatform::Shared<bool> _isRunning;
};

} // namespace Zv
