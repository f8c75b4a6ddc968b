// What the queue of a device and that of a manager have in common.
#pragma once

#include "resmgt/deviceProtocol/devANOQueue.h"
#include "resmgt/export.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/smartPtrs/rcBase.h"

#include <exception>

namespace Zv {

/// A queue of ANOs that can be closed: `DevMDStdFifo` is that of a device, `DevMgrFifo` that of a manager. Any thread
/// produces, one consumes. A full one blocks its producers, which is the only flow control between clients, devices
/// and managers.
///
/// It must be empty when it is destroyed: fails the assertion of `MtContainer` otherwise.
class ZVRESMGT_EXPORT DevANOFifo : public RCBase<LkCounter<long>>
{
public:
    /// Queues the ANO of `entry`, which is left empty. Blocks while the FIFO is full. Once the FIFO is closed, the ANO
    /// is destroyed instead. Throws `RCEx::ExNullPtr` for an entry that holds none.
    void produce(DevANOQueueEntry &entry);
    /// The same for a sender that is going to wait for the ANO: it must wait also where an observer of the FIFO has
    /// thrown, because the ANO is on its way all the same. Hands that failure out; throws what has kept the ANO from
    /// being queued.
    [[nodiscard]] std::exception_ptr send(ObjPtr<DevANO> ano);
    /// Blocks while the FIFO is empty.
    DevANOQueueEntry consume();
    /// False, with `entry` as it was, while the FIFO is empty.
    bool tryConsume(DevANOQueueEntry &entry);
    /// The same, but waits up to that many seconds.
    bool timedConsume(DevANOQueueEntry &entry, double seconds);

    /// From now on nobody consumes: destroys what is queued, lets blocked producers go, and destroys what they and
    /// others still produce. Called when the consuming thread has ended.
    void close();
    /// Queues again. A new FIFO is open.
    void open();

protected:
    /// `name` outlives the FIFO. `capacity` is the number of ANOs that wait at most; 0 means no limit.
    DevANOFifo(char const *name, int capacity);
    ~DevANOFifo() override;

    void setObserver(RCShdPtr<DevANOQueue::Observer> const &observer);

private:
    void discardIfClosed();
    void discard();

    DevANOQueue _queue;
    bool _isClosed = false;
};

} // namespace Zv
