#include "resmgt/deviceManager/devMgrFifo.h"

#include "platform/interlocked.h"

#include <cstdint>

namespace Zv {

namespace Interlocked = ZvPlatform::Interlocked;

DevMgrFifo::DevMgrFifo(int capacity) : _queue("DevMgrFifo", static_cast<std::uint64_t>(capacity)) {}

DevMgrFifo::~DevMgrFifo() = default;

void DevMgrFifo::produce(DevANOQueueEntry &entry)
{
    _queue.produce(entry);
    // Asked afterwards: both sides have been through the queue's lock by then, so that an entry is
    // either found by the one who closes or by the one who brought it too late.
    if (Interlocked::loadAcquire(_isClosed))
        discard();
}

DevANOQueueEntry DevMgrFifo::consume()
{
    return _queue.consume();
}

bool DevMgrFifo::tryConsume(DevANOQueueEntry &entry)
{
    return _queue.tryConsume(entry);
}

void DevMgrFifo::close()
{
    Interlocked::storeRelease(_isClosed, true);
    discard();
}

void DevMgrFifo::discard()
{
    DevANOQueueEntry entry;
    while (_queue.tryConsume(entry))
        entry = DevANOQueueEntry();
}

} // namespace Zv
