#include "resmgt/threadExtensions/mtTask.h"

namespace Zv {

MtTaskImp::MtTaskImp() = default;

MtTaskImp::~MtTaskImp() noexcept(false) = default;

MtTask::MtTask() = default;

MtTask::MtTask(MtRequestTag const &tag, RCShdPtr<MtTaskImp> const &imp)
    : MtRequestBase(tag), _imp(imp)
{}

MtTask::MtTask(MtTask const &) = default;

MtTask &MtTask::operator=(MtTask const &) = default;

MtTask::~MtTask() noexcept(false) = default;

void MtTask::execute()
{
    // What executes may let go of this very object.
    RCShdPtr<MtTaskImp> const imp(_imp);
    if (imp)
        imp->execute();
}

} // namespace Zv
