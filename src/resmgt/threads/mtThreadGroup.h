// Groups of threads that depend on the number of processors.
#pragma once

#include "resmgt/export.h"

namespace Zv {

/// Something that wants to know how many processors there are to use. An application derives its groups, enters them
/// with `MtThreadMgr::addGroup` and takes them out before they are destroyed.
class ZVRESMGT_EXPORT MtThreadGroup
{
public:
    MtThreadGroup() = default;
    MtThreadGroup(MtThreadGroup const &) = delete;
    MtThreadGroup &operator=(MtThreadGroup const &) = delete;
    virtual ~MtThreadGroup() noexcept(false);

    /// The number of processors to use has changed. Called under the thread manager's lock.
    virtual void processorsChanged(unsigned nbProcessors) = 0;
};

} // namespace Zv
