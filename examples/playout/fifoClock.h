// Measures how long requests wait in a device's FIFO.
#pragma once

#include <resmgt/deviceManager.h>
#include <resmgt/deviceProtocol.h>
#include <resmgt/locks.h>

#include <cstdint>

/// Keeps the longest time that a request spent in a FIFO. The FIFO reports each request that enters
/// it, and the device each request that leaves it. Thread-safe.
class FifoClock : public Zv::DevMDStdFifoObs
{
public:
    void performProduced(Zv::DevANOQueue &queue, Zv::DevANOQueueEntry const &entry) override;
    void consumed();
    /// Returns the longest wait in seconds.
    double getLongestWait() const;
    /// Returns the number of requests in the FIFO.
    std::int64_t getNbWaiting() const;

private:
    Zv::LkLock mutable _lock{"FifoClock"};
    Zv::Deque<double> _entered;
    int _nbEarly = 0; // requests that left the FIFO before their entry was reported
    double _longestWait = 0;
};
