#include "resmgt/threadExtensions/mtTask.h"

#include "zvbase/failures.h"

namespace Zv {

// ---- MtTaskImp

MtTaskImp::MtTaskImp() = default;

MtTaskImp::~MtTaskImp() noexcept(false) = default;

// ---- MtTask

MtTask::MtTask() = default;

MtTask::MtTask(MtRequestTag const &tag, RCShdPtr<MtTaskImp> const &imp)
    : MtRequestBase(tag), _imp(imp)
{}

MtTask::MtTask(MtTask const &) = default;

MtTask &MtTask::operator=(MtTask const &) = default;

MtTask::~MtTask() noexcept(false) = default;

void MtTask::execute()
{
    // The work may destroy this object or assign to it.
    RCShdPtr<MtTaskImp> const imp(_imp);
    if (imp)
        imp->execute();
}

// ---- MtGroupCommand

MtGroupCommand::MtGroupCommand() = default;

MtGroupCommand::MtGroupCommand(MtRequestTag tag, Function function, void *argument)
    : MtRequestBase(tag), _function(function), _argument(argument)
{}

MtGroupCommand::MtGroupCommand(MtGroupCommand const &) = default;

MtGroupCommand &MtGroupCommand::operator=(MtGroupCommand const &) = default;

MtGroupCommand::~MtGroupCommand() noexcept(false) = default;

void MtGroupCommand::execute()
{
    ZV_ASSERT(_function != 0);
    _function(_argument);
}

} // namespace Zv
