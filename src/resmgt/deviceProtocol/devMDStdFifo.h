// The queue through which everything reaches a device's thread.
#pragma once

#include "resmgt/deviceProtocol/devANOQueue.h"
#include "resmgt/export.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/smartPtrs/rcBase.h"
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
///
/// It must be empty when it is destroyed: fails the assertion of `MtContainer` otherwise.
class ZVRESMGT_EXPORT DevMDStdFifo : public RCBase<LkCounter<long>>
{
public:
    static constexpr int DEFAULT_CAPACITY = 10;

    /// `capacity` is the number of requests that wait at most; 0 means no limit.
    explicit DevMDStdFifo(int capacity = DEFAULT_CAPACITY);
    /// The same with an observer, which stays for the life of the FIFO. A null observer throws `RCEx::ExNullPtr` at the
    /// first `produce`.
    explicit DevMDStdFifo(RCShdPtr<DevMDStdFifoObs> const &observer,
                          int capacity = DEFAULT_CAPACITY);

    /// Queues the ANO of `entry`, which is left empty. Blocks while the FIFO is full: the only flow control between a
    /// client and a device. Once the FIFO is closed, the ANO is destroyed instead.
    void produce(DevANOQueueEntry &entry);
    /// Blocks while the FIFO is empty.
    DevANOQueueEntry consume();
    /// False, with `entry` as it was, while the FIFO is empty.
    bool tryConsume(DevANOQueueEntry &entry);

    /// From now on nobody consumes: destroys what is queued, lets blocked producers go, and destroys what they and
    /// others still produce. Called when the device's thread has ended.
    void close();
    /// Queues again. A new FIFO is open.
    void open();

protected:
    ~DevMDStdFifo() override;

private:
    void discard();

    DevANOQueue _queue;
    bool _isClosed = false;
};

} // namespace Zv
