// The queue through which devices report to their manager.
#pragma once

#include "resmgt/deviceProtocol/devANOQueue.h"
#include "resmgt/export.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/smartPtrs/rcBase.h"

namespace Zv {

/// The queue of one device manager. All threads produce, the manager's thread "DevMgr ANO"
/// consumes. A full one blocks its producers, and so a device that reports faster than its reports
/// are worked on.
///
/// It must be empty when it is destroyed: fails the assertion of `MtContainer` otherwise.
class ZVRESMGT_EXPORT DevMgrFifo : public RCBase<LkCounter<long>>
{
public:
    /// `capacity` is the number of ANOs that wait at most; 0 means no limit.
    explicit DevMgrFifo(int capacity);

    /// Queues the ANO of `entry`, which is left empty. Blocks while the FIFO is full. Once the FIFO
    /// is closed, the ANO is destroyed instead.
    void produce(DevANOQueueEntry &entry);
    /// Blocks while the FIFO is empty.
    DevANOQueueEntry consume();
    /// False, with `entry` as it was, while the FIFO is empty.
    bool tryConsume(DevANOQueueEntry &entry);

    /// From now on nobody consumes: destroys what is queued, lets blocked producers go, and
    /// destroys what they and others still produce. Called when the manager's thread has ended.
    void close();

protected:
    ~DevMgrFifo() override;

private:
    void discard();

    DevANOQueue _queue;
    bool _isClosed = false;
};

} // namespace Zv
