// The heap of the process.
#pragma once

#include "zvbase/export.h"

#include <cstddef>

namespace Zv {

/// Gets the heap ready before the first thread of the libraries starts. One object, which is never destroyed.
class ZVBASE_EXPORT HmHeapMgr
{
public:
    static HmHeapMgr &getInstance();

    virtual ~HmHeapMgr();
    /// Makes the allocator set itself up in the calling thread and grow by a first stretch of memory, whose pages
    /// are touched, so that no real-time thread pays for it. May be called again.
    virtual void warmUp();

    /// How often `warmUp` has run.
    unsigned getNbWarmUps() const;

protected:
    HmHeapMgr();

private:
    unsigned _nbWarmUps = 0;
};

} // namespace Zv
