// How a semaphore comes to be.
#pragma once

#include "resmgt/export.h"

namespace Zv {

class ZVRESMGT_EXPORT LkSemaTypes
{
public:
    enum CreateFlag
    {
        OPEN = 0,            ///< open an existing semaphore
        CREATE = 1,          ///< create or open
        CREATE_EXCLUSIVE = 2 ///< create, and fail where the name exists
    };

    /// Who may use an unnamed semaphore. No effect on this platform.
    enum Shared
    {
        PRIVATE = 0,
        SHARED = 1
    };
};

} // namespace Zv
