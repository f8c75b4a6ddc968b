// The queue through which everything reaches a device's thread.
#pragma once

#include "resmgt/deviceProtocol/devANOFifo.h"
#include "resmgt/smartPtrs/rcShdPtr.h"

namespace Zv {

/// Is told of each entry that was put into a FIFO. Written by a device whose thread waits for something else than its
/// FIFO: it wakes that thread, which then calls `tryConsume`.
class ZVRESMGT_EXPORT DevMDStdFifoObs : public RCBase<LkCounter<long>>
{
public:
    /// Called on the thread that produced, without a lock. `entry` is the producer's object, which is empty by now.
    virtual void performProduced(DevANOQueue &queue, DevANOQueueEntry const &entry) = 0;

protected:
    ~DevMDStdFifoObs() override;
};

/// The queue of one standard device, shared by the protocols of the device, its streams and its properties. All
/// threads produce, only the device's thread consumes.
class ZVRESMGT_EXPORT DevMDStdFifo : public DevANOFifo
{
public:
    static constexpr int DEFAULT_CAPACITY = 10;

    /// `capacity` is the number of requests that wait at most, not counting the steps of a sequence. 0 means no limit.
    explicit DevMDStdFifo(int capacity = DEFAULT_CAPACITY);
    /// The same with an observer, which stays for the life of the FIFO. A null observer throws `RCEx::ExNullPtr` at
    /// each `produce`, when the request is queued.
    explicit DevMDStdFifo(RCShdPtr<DevMDStdFifoObs> const &observer,
                          int capacity = DEFAULT_CAPACITY);

protected:
    ~DevMDStdFifo() override;
};

} // namespace Zv
