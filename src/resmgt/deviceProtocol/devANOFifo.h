// What the queue of a device and that of a manager have in common.
#pragma once

#include "resmgt/deviceProtocol/devANOQueue.h"
#include "resmgt/export.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/locks/lkLock.h"
#include "resmgt/smartPtrs/rcBase.h"

#include <exception>

namespace Zv {

class FirstFailure;

/// A queue of ANOs that can be closed: `DevMDStdFifo` is that of a device, `DevMgrFifo` that of a manager. Any thread
/// produces, one consumes. A full one blocks the threads that call `produce`, which is the only flow control between
/// clients, devices and managers. It never blocks a thread that calls `admit`: the steps that a sequence sends to a
/// device, and the reports that a device sends back, pass on that way. A thread that sends one of them may hold the lock
/// that the consuming thread needs to go on, or be the consuming thread itself.
///
/// Any thread may call `produce`, `admit`, `send`, `close` and `open` at any time, also at the same time. It must be
/// empty when it is destroyed: fails the assertion of `MtContainer` otherwise.
class ZVRESMGT_EXPORT DevANOFifo : public RCBase<LkCounter<long>>
{
public:
    /// Queues the ANO of `entry`, which is left empty. Blocks while the FIFO is full. Once the FIFO is closed, the ANO
    /// is destroyed instead. Throws `RCEx::ExNullPtr` for an entry that holds none, and what the FIFO's observer or the
    /// destruction of an ANO throws.
    void produce(DevANOQueueEntry &entry);
    /// As `produce`, but queues the ANO behind the others also if the FIFO is full. Never blocks. The FIFO stays bounded
    /// only if the callers bound the number of ANOs that they have on their way at a time.
    void admit(DevANOQueueEntry &entry);
    /// As `produce`, for a sender that is going to wait for the ANO: it must wait also where an observer of the FIFO has
    /// thrown, because the ANO is on its way all the same. Hands that failure out; throws what has kept the ANO from
    /// being queued.
    [[nodiscard]] std::exception_ptr send(ObjPtr<DevANO> ano);
    /// Does the same with the last ANO that the consuming thread gets, because what the others were for is gone.
    /// Destroys what is queued. The consuming thread destroys what arrives before or after the last ANO instead of
    /// handing it out. Call `close` when that thread has ended.
    [[nodiscard]] std::exception_ptr sendLast(ObjPtr<DevANO> last);
    /// Blocks while the FIFO is empty.
    DevANOQueueEntry consume();
    /// False, with `entry` as it was, while the FIFO is empty.
    bool tryConsume(DevANOQueueEntry &entry);
    /// The same, but waits up to that many seconds.
    bool timedConsume(DevANOQueueEntry &entry, double seconds);

    /// Must be called when the consuming thread has ended. Destroys what is queued, releases blocked producers, and
    /// has what they and others still produce destroyed. Destroys every ANO also if the destruction of one throws,
    /// and then throws the first of these failures.
    void close();
    /// Does what `close` does, but for a consuming thread that hangs and may come back: if it has not got `last` yet, it
    /// gets that ANO and nothing else. Call `close` when that thread has ended. Does nothing after `close`. Without memory
    /// `last` may be destroyed, too. Throws the first failure of the destruction of an ANO.
    void leaveBehind(DevANO const *last);
    /// Queues again. A new FIFO is open. What is produced after this call has returned is not destroyed.
    void open();

protected:
    /// `name` must outlive the FIFO. `capacity` is the number of ANOs that can wait; 0 means no limit. Fails an
    /// assertion if it is negative.
    DevANOFifo(char const *name, int capacity);
    ~DevANOFifo() override;

    void setObserver(RCShdPtr<DevANOQueue::Observer> const &observer);

private:
    enum Condition
    {
        OPEN,        // the consumer gets what is queued
        ENDING,      // the consumer gets the last ANO only
        LEFT_BEHIND, // the same, and producers discard
        CLOSED       // there is no consumer, and producers discard
    };

    void add(DevANOQueueEntry &entry, void (DevANOQueue::*how)(DevANOQueueEntry const &));
    bool isForConsumer(DevANOQueueEntry &entry);
    void setCondition(Condition condition);
    void discardIfClosed();
    void discardWhile(Condition condition, FirstFailure &failure);

    DevANOQueue _queue;
    // Held to change the condition, and by a producer while it takes an ANO out of a closed FIFO: it must not take one
    // that was sent after the FIFO was opened again.
    LkLock _conditionLock;
    Condition _condition = OPEN;
    // Written before the condition is ENDING or LEFT_BEHIND. In ENDING also by the consumer, until it has ended.
    DevANO const *_last = nullptr;
    std::exception_ptr _failure; // of an ANO that the consumer has destroyed
};

} // namespace Zv
