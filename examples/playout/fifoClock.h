// How long requests wait in a device's FIFO.
#pragma once

#include <resmgt/deviceManager.h>
#include <resmgt/deviceProtocol.h>
#include <resmgt/locks.h>

/// Told of each request that enters a FIFO, and by the device of each that leaves it, keeps the longest stay.
class FifoClock : public Zv::DevMDStdFifoObs
{
public:
    void performProduced(Zv::DevANOQueue &queue, Zv::DevANOQueueEntry const &entry) override;
    void consumed();
    /// In seconds.
    double getLongestWait() const;

private:
    Zv::LkLock mutable _lock{"FifoClock"};
    Zv::Deque<double> _entered;
    int _nbEarly = 0; // left before anybody was told that they had entered
    double _longestWait = 0;
};
