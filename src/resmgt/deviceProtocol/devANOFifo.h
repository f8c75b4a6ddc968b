// Queue of requests that can be closed, the base class of the queues of devices and managers
// (device writers).
#pragma once

#include "resmgt/deviceProtocol/devANO.h"
#include "resmgt/export.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/locks/lkDuration.h"
#include "resmgt/locks/lkLock.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/threadExtensions/mtContainer.h"
#include "zvbase/platform/shared.h"
#include "zvbase/sequenceContainers.h"
#include "zvbase/threadAnnotations.h"

#include <exception>
#include <queue>

namespace Zv {

class FirstFailure;

/// The container inside a `DevANOFifo`. See there.
using DevANOQueue = MtContainer<std::queue<DevANOQueueEntry, Deque<DevANOQueueEntry>>>;

extern template class ZVRESMGT_EXPORT
    MtContainer<std::queue<DevANOQueueEntry, Deque<DevANOQueueEntry>>>;

/// A queue of requests that can be closed. `DevMDStdFifo` is the queue of a device, `DevMgrFifo`
/// that of a manager.
///
/// Any number of threads produce, and one thread consumes. A full queue blocks the threads that
/// call `produce`. That is the only flow control between clients, devices and managers. A thread
/// that calls `admit` is never blocked. The steps that a sequence sends to a device use it, and so
/// do the reports that a device sends back. A thread that sends one of these may hold a lock that
/// the consuming thread needs, or be the consuming thread itself.
///
/// **Threads**: any thread may call `produce`, `admit`, `send`, `leaveBehind`, `close` and `open`,
/// also at the same time. Only the thread that ends the consuming thread may call `sendLast`. Only
/// the consuming thread may call `consume`, `tryConsume` and `timedConsume`.
///
/// The queue must be empty when it is destroyed. Otherwise an assertion of `MtContainer` fails.
class ZVRESMGT_EXPORT DevANOFifo : public RCBase<LkCounter<long>>
{
public:
    /// Queues the request of `entry` and leaves the entry empty. Blocks while the queue is full. If
    /// the queue is closed, destroys the request instead.
    ///
    /// Throws `RCEx::ExNullPtr` if the entry is empty. Passes on what the queue's observer or the
    /// destructor of a request throws. The request is queued nevertheless if the observer has
    /// thrown.
    void produce(DevANOQueueEntry &entry);
    /// Like `produce`, but also queues the request if the queue is full, and never blocks. The
    /// queue stays bounded only if the callers limit how many such requests they have on their way.
    void admit(DevANOQueueEntry &entry);
    /// Like `produce`, for a sender that then waits for the request to be executed. Returns null if
    /// nothing has failed. If the queue's observer throws, returns that exception. The request is
    /// queued then, so the sender must still wait. Throws if the request could not be queued.
    [[nodiscard]] std::exception_ptr send(ObjPtr<DevANO> ano);
    /// Like `send`, with the last request that the consuming thread gets. Destroys what is queued.
    /// The consuming thread destroys every other request that arrives, before or after the last
    /// one. Call `close` when the consuming thread has ended.
    [[nodiscard]] std::exception_ptr sendLast(ObjPtr<DevANO> last);
    /// Removes the next request and returns it. Blocks while the queue is empty.
    [[nodiscard]] DevANOQueueEntry consume();
    /// Removes the next request. Returns false and leaves `entry` as it was if the queue is empty.
    [[nodiscard]] bool tryConsume(DevANOQueueEntry &entry);
    /// Like `tryConsume`, but waits up to `seconds` for a request.
    [[nodiscard]] bool timedConsume(DevANOQueueEntry &entry, double seconds);
    template <LkDuration Limit>
    [[nodiscard]] bool timedConsume(DevANOQueueEntry &entry, Limit const &limit)
    {
        return timedConsume(entry, Detail::countSeconds(limit));
    }

    /// Closes the queue: destroys what is queued, releases blocked producers, and destroys what is
    /// produced from now on. The consuming thread must have ended, or must call this function
    /// itself and consume nothing after it. Destroys every request even if a destructor throws, and
    /// then throws the first exception. If several threads close the queue at the same time, each
    /// destroys a part of the requests and may return before the others.
    void close();
    /// Like `close`, for a consuming thread that hangs and may return later: if it has not got
    /// `last` yet, it gets that request and no other. Call `close` when that thread has ended. Does
    /// nothing after `close`. If there is no memory, `last` may be destroyed as well. Throws the
    /// first failure of the destruction of a request.
    void leaveBehind(DevANO const *last);
    /// Opens the queue again. A new queue is open. What is produced after this call is not
    /// destroyed.
    void open();

protected:
    /// `name` must outlive the queue. `capacity` is the number of requests that can wait. 0 means
    /// no limit. Fails an assertion if it is negative.
    DevANOFifo(char const *name, int capacity);
    ~DevANOFifo() override;

    /// Sets the observer, as `MtContainer::setObserver` does.
    void setObserver(RCShdPtr<DevANOQueue::Observer> const &observer);

private:
    enum Condition
    {
        OPEN,        // the consumer gets what is queued
        ENDING,      // the consumer gets the last request only
        LEFT_BEHIND, // the same, and producers discard
        CLOSED       // there is no consumer, and producers discard
    };

    void add(DevANOQueueEntry &entry, void (DevANOQueue::*how)(DevANOQueueEntry const &));
    bool isForConsumer(DevANOQueueEntry &entry);
    void setCondition(Condition condition);
    void discardIfClosed();
    void discardWhile(Condition condition, FirstFailure &failure);

    // All threads read the condition for each request. It is far from what they change for each
    // request, which is in the queue.
    ZvPlatform::Shared<Condition> _condition{OPEN};
    // Held to change the condition, and by a producer while it takes a request out of a closed
    // queue: it must not take one that was sent after the queue was opened again.
    LkLock _conditionLock;
    // Written before the condition is ENDING or LEFT_BEHIND. In ENDING also by the consumer, until
    // it has ended.
    DevANO const *_last = nullptr;
    // Of a request that the consumer has destroyed.
    std::exception_ptr _failure ZV_GUARDED_BY(_conditionLock);
    DevANOQueue _queue;
};

} // namespace Zv
