// Groups of threads that depend on the number of processors.
#pragma once

#include "resmgt/export.h"

namespace Zv {

/// A group of threads that depends on the number of processors to use. An application derives its groups, adds them
/// with `MtThreadMgr::addGroup` and must remove them before they are destroyed.
///
/// The manager of the process, `MtThreadMgr::getInstance`, keeps the groups but never calls `processorsChanged`.
class ZVRESMGT_EXPORT MtThreadGroup
{
public:
    MtThreadGroup() = default;
    MtThreadGroup(MtThreadGroup const &) = delete;
    MtThreadGroup &operator=(MtThreadGroup const &) = delete;
    virtual ~MtThreadGroup() noexcept(false);

    /// The number of processors to use has changed. A manager that calls it does so under its lock.
    virtual void processorsChanged(unsigned nbProcessors) = 0;
};

} // namespace Zv
