// A request in the form of a function.
#pragma once

#include "resmgt/threadExtensions/mtRequestBase.h"

namespace Zv {

/// The unit of work of a command queue for a thread group: a function and its argument, which the caller owns.
class ZVRESMGT_EXPORT MtGroupCommand : public MtRequestBase
{
public:
    using Function = void (*)(void *);

    /// No function, no argument, an invalid tag. Not to be executed.
    MtGroupCommand();
    MtGroupCommand(MtRequestTag tag, Function function, void *argument);
    MtGroupCommand(MtGroupCommand const &);
    MtGroupCommand &operator=(MtGroupCommand const &);
    ~MtGroupCommand() noexcept(false) override;

    /// Calls the function with the argument, on the calling thread. Asserts that there is one.
    void execute();

private:
    Function _function = nullptr;
    void *_argument = nullptr;
};

} // namespace Zv
