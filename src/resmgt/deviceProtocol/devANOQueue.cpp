#include "resmgt/deviceProtocol/devANOQueue.h"

#include "resmgt/threadExtensions/mtContainer.imp.h"

namespace Zv {

template class MtContainer<std::queue<DevANOQueueEntry, Deque<DevANOQueueEntry>>>;

} // namespace Zv
