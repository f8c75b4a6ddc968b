// Queue through which all requests reach a standard device's thread (device writers).
#pragma once

#include "resmgt/deviceProtocol/devANOFifo.h"
#include "resmgt/smartPtrs/rcShdPtr.h"

namespace Zv {

/// The observer of a `DevMDStdFifo`. A device derives from it if its thread waits for something
/// else than the queue. The observer wakes that thread, which then calls `tryConsume`.
///
/// **Threads**: any threads may make the call, also at the same time.
///
/// **Throws**: an exception of the observer leaves the call that has queued the request. The
/// request is queued nevertheless.
class ZVRESMGT_EXPORT DevMDStdFifoObs : public RCBase<LkCounter<long>>
{
public:
    /// Called when a request has been queued, on the thread that has queued it and without a lock.
    /// `entry` is the producer's object, which is empty by then.
    virtual void performProduced(DevANOQueue &queue, DevANOQueueEntry const &entry) = 0;

protected:
    ~DevMDStdFifoObs() override;
};

/// The queue of one standard device. The protocols, streams and properties of the device share it.
///
/// **Threads**: any thread may produce. Only the device's thread may consume.
class ZVRESMGT_EXPORT DevMDStdFifo : public DevANOFifo
{
public:
    /// The number of requests that wait at most, if no capacity is given.
    static constexpr int DEFAULT_CAPACITY = 10;

    /// `capacity` is the largest number of requests that wait, without the steps of a sequence. 0
    /// means no limit.
    explicit DevMDStdFifo(int capacity = DEFAULT_CAPACITY);
    /// Makes a queue with an observer, which it keeps. If the observer is null, each `produce`
    /// queues the request and then throws `RCEx::ExNullPtr`.
    explicit DevMDStdFifo(RCShdPtr<DevMDStdFifoObs> const &observer,
                          int capacity = DEFAULT_CAPACITY);

protected:
    ~DevMDStdFifo() override;
};

} // namespace Zv
