#include "resmgt/deviceProtocol/devANOQueue.h"

namespace Zv {

template class MtContainer<std::queue<DevANOQueueEntry, Deque<DevANOQueueEntry>>>;

} // namespace Zv
