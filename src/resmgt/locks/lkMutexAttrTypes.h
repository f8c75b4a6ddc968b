// The priority protocols that a mutex may follow.
#pragma once

#include "resmgt/export.h"

namespace Zv {

class ZVRESMGT_EXPORT LkMutexAttrTypes
{
public:
    /// What becomes of the priority of a thread that holds a mutex which others wait for.
    enum PrioProtocol
    {
        UNIMPLEMENTED = 0, ///< the platform has no such protocol
        NONE = 1,          ///< nothing
        INHERIT = 2,       ///< the holder takes the highest priority of those who wait
        PROTECT = 3        ///< the holder takes the mutex's ceiling
    };

    /// The name of a protocol as text. Any other value is `ProgramAborted`.
    static char const *getText(PrioProtocol protocol);
};

} // namespace Zv
