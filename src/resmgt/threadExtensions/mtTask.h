// Work items for thread pools and command queues (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "resmgt/threadExtensions/mtRequestMgr.h"

namespace Zv {

/// The work of an `MtTask`. A derived class does the work in `execute`.
class ZVRESMGT_EXPORT MtTaskImp : public RCBase<LkCounter<long>>
{
public:
    ~MtTaskImp() noexcept(false) override;
    /// Does the work. Called by the thread that executes the task.
    virtual void execute() = 0;

protected:
    MtTaskImp();
};

/// A request with the object that does the work. Copies share that object.
///
///     class Decode : public MtTaskImp
///     {
///     public:
///         void execute() override {}
///     };
///
///     MtRequestMgr mgr;
///     MtRequestTag const tag = mgr.acquireTag();
///     MtTask task(tag, RCShdPtr<MtTaskImp>(new Decode));
///     mgr.incRequestCount(tag);
///     task.execute();
///     mgr.decRequestCount(tag);
///
/// **Threads**: one thread at a time. During `execute` the work may destroy the task or assign to
/// it.
class ZVRESMGT_EXPORT MtTask : public MtRequestBase
{
public:
    /// Constructs a task with an invalid tag and no work.
    MtTask();
    /// `imp` may be null, which means no work.
    MtTask(MtRequestTag const &tag, RCShdPtr<MtTaskImp> const &imp);
    MtTask(MtTask const &);
    MtTask &operator=(MtTask const &);
    ~MtTask() noexcept(false) override;

    /// Does the work on the calling thread, and throws what the work throws. Does not count the
    /// request down.
    void execute();

private:
    RCShdPtr<MtTaskImp> _imp;
};

/// A request that calls a function: the unit of work of a command queue for a group of threads.
///
///     int total = 0;
///     MtGroupCommand command(
///         MtRequestTag(), [](void *argument) { ++*static_cast<int *>(argument); }, &total);
///     command.execute();
///
/// **Threads**: one thread at a time.
///
/// **Owns**: the caller owns the argument, which must live until the command has been executed.
class ZVRESMGT_EXPORT MtGroupCommand : public MtRequestBase
{
public:
    /// The function of a command. Its parameter is the argument of the command.
    using Function = void (*)(void *);

    /// Constructs a command with an invalid tag and without a function. It must not be executed.
    MtGroupCommand();
    /// Constructs a command that calls `function` with `argument`.
    MtGroupCommand(MtRequestTag tag, Function function, void *argument);
    MtGroupCommand(MtGroupCommand const &);
    MtGroupCommand &operator=(MtGroupCommand const &);
    ~MtGroupCommand() noexcept(false) override;

    /// Calls the function with the argument, on the calling thread. Fails an assertion if there is
    /// no function.
    void execute();

private:
    Function _function = nullptr;
    void *_argument = nullptr;
};

} // namespace Zv
