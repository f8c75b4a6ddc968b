#include "resmgt/deviceProtocol/devMDStdFifo.h"

#include "platform/interlocked.h"

#include <cstdint>

namespace Zv {

namespace Interlocked = ZvPlatform::Interlocked;

namespace {

class ContainerObserver final : public DevANOQueue::Observer
{
public:
    explicit ContainerObserver(RCShdPtr<DevMDStdFifoObs> const &observer) : _observer(observer) {}

    void performDestroyed(DevANOQueue &) override {}
    void performProduced(DevANOQueue &queue, DevANOQueueEntry const &entry) override
    {
        _observer->performProduced(queue, entry);
    }
    void performConsumed(DevANOQueue &, DevANOQueueEntry const &) override {}

private:
    RCShdPtr<DevMDStdFifoObs> _observer;
};

} // namespace

DevMDStdFifoObs::~DevMDStdFifoObs() = default;

DevMDStdFifo::DevMDStdFifo(int capacity)
    : _queue("DevMDStdFifo", static_cast<std::uint64_t>(capacity))
{}

DevMDStdFifo::DevMDStdFifo(RCShdPtr<DevMDStdFifoObs> const &observer, int capacity)
    : DevMDStdFifo(capacity)
{
    _queue.setObserver(RCShdPtr<DevANOQueue::Observer>(new ContainerObserver(observer)));
}

DevMDStdFifo::~DevMDStdFifo() = default;

void DevMDStdFifo::produce(DevANOQueueEntry &entry)
{
    _queue.produce(entry);
    // Looked at afterwards: an entry that came too late for the one who closed the FIFO finds the flag set, because
    // both have passed through the queue's lock since.
    if (Interlocked::loadAcquire(_isClosed))
        discard();
}

DevANOQueueEntry DevMDStdFifo::consume()
{
    return _queue.consume();
}

bool DevMDStdFifo::tryConsume(DevANOQueueEntry &entry)
{
    return _queue.tryConsume(entry);
}

void DevMDStdFifo::close()
{
    Interlocked::storeRelease(_isClosed, true);
    discard();
}

void DevMDStdFifo::open()
{
    Interlocked::storeRelease(_isClosed, false);
}

void DevMDStdFifo::discard()
{
    DevANOQueueEntry entry;
    while (_queue.tryConsume(entry))
        entry = DevANOQueueEntry();
}

} // namespace Zv
