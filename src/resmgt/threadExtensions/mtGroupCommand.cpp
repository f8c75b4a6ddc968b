#include "resmgt/threadExtensions/mtGroupCommand.h"

#include "zvbase/failures.h"

namespace Zv {

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
