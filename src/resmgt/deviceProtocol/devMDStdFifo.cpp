#include "resmgt/deviceProtocol/devMDStdFifo.h"

namespace Zv {

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

DevMDStdFifo::DevMDStdFifo(int capacity) : DevANOFifo("DevMDStdFifo", capacity) {}

DevMDStdFifo::DevMDStdFifo(RCShdPtr<DevMDStdFifoObs> const &observer, int capacity)
    : DevMDStdFifo(capacity)
{
    setObserver(RCShdPtr<DevANOQueue::Observer>(new ContainerObserver(observer)));
}

DevMDStdFifo::~DevMDStdFifo() = default;

} // namespace Zv
