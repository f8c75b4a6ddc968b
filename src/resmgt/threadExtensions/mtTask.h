// The work of a pool.
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "resmgt/threadExtensions/mtRequestBase.h"

namespace Zv {

/// What a task does.
class ZVRESMGT_EXPORT MtTaskImp : public RCBase<LkCounter<long>>
{
public:
    ~MtTaskImp() noexcept(false) override;
    /// On the thread that has taken the task.
    virtual void execute() = 0;

protected:
    MtTaskImp();
};

/// The work item of thread pools: a request with the object that does the work. Copies share that object. One task is
/// for one thread at a time; it may be destroyed or assigned while it executes.
class ZVRESMGT_EXPORT MtTask : public MtRequestBase
{
public:
    /// An invalid tag, and nothing to do.
    MtTask();
    /// `imp` may be null: nothing to do.
    MtTask(MtRequestTag const &tag, RCShdPtr<MtTaskImp> const &imp);
    MtTask(MtTask const &);
    MtTask &operator=(MtTask const &);
    ~MtTask() noexcept(false) override;

    /// Does the work, on the calling thread; what it throws comes out. Counts nothing down: that is for whoever serves
    /// the tag's `MtRequestMgr`.
    void execute();

private:
    RCShdPtr<MtTaskImp> _imp;
};

} // namespace Zv
