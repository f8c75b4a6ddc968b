// The queue in which ANOs travel.
#pragma once

#include "resmgt/deviceProtocol/devANOQueueEntry.h"
#include "resmgt/export.h"
#include "resmgt/threadExtensions/mtContainer.h"
#include "resmgt/threadExtensions/mtContainerObserver.h"
#include "zvbase/containers.h"

#include <queue>

namespace Zv {

/// The queue of a device (`DevMDStdFifo`) or of a manager. Any number of threads produce, one consumes: it takes an
/// entry out, releases the ANO, calls its `performExecute` and its `notify`, and destroys it.
using DevANOQueue = MtContainer<std::queue<DevANOQueueEntry, Deque<DevANOQueueEntry>>>;

extern template class ZVRESMGT_EXPORT
    MtContainer<std::queue<DevANOQueueEntry, Deque<DevANOQueueEntry>>>;

} // namespace Zv
