// Warms up the heap of the process (extenders).
#pragma once

#include "zvbase/export.h"
#include "zvbase/platform/shared.h"

#include <cstddef>

namespace Zv {

/// Prepares the heap before the first thread of the libraries starts. There is one object, which is
/// never destroyed.
///
///     Zv::HmHeapMgr::getInstance().warmUp();
///
/// **Threads**: thread-safe.
class ZVBASE_EXPORT HmHeapMgr
{
public:
    /// Returns the one object. The first call constructs it.
    static HmHeapMgr &getInstance();

    virtual ~HmHeapMgr();
    /// Makes the allocator set itself up on the calling thread and get a first piece of memory,
    /// whose pages are touched. So no real-time thread has to wait for that. May be called again.
    virtual void warmUp();

    /// Returns the number of calls of `warmUp`.
    unsigned getNbWarmUps() const;

protected:
    HmHeapMgr();

private:
    ZvPlatform::Shared<unsigned> _nbWarmUps{0};
};

} // namespace Zv
