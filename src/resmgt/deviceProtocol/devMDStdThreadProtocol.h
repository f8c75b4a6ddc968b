// What runs on a device's thread.
#pragma once

#include "resmgt/deviceProtocol/devMDStdFifo.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "resmgt/threads/mtThreadProtocol.h"

#include <exception>
#include <limits>

namespace Zv {

/// The body of a standard device's thread. A device derives from it and writes `performExecute` as a loop that calls
/// `consume` or `tryConsume` and does the device's periodic work, until `performStop` has been called.
///
/// The body must not end before that: `DevMDStdAccessPrtcl::performClose` sends a last request and waits for it.
/// `DevMDStdLoopThreadProtocol` has that loop.
class ZVRESMGT_EXPORT DevMDStdThreadProtocol : public MtThreadProtocol
{
public:
    explicit DevMDStdThreadProtocol(RCShdPtr<DevMDStdFifo> const &fifo);
    ~DevMDStdThreadProtocol() override;

    /// Executes one request, its ACO after it; blocks until there is one. For the device's thread only. What the
    /// request throws passes through; request and ACO are destroyed, and the ACO does not run.
    virtual void consume();
    /// The same without blocking: false where there is no request.
    virtual bool tryConsume();
    /// The same, but waits up to that many seconds.
    bool timedConsume(double seconds);

private:
    RCShdPtr<DevMDStdFifo> _fifo;
};

/// Serves the queue until it is told to stop, and does the device's own work in between. A device without work of its
/// own takes it as it is.
class ZVRESMGT_EXPORT DevMDStdLoopThreadProtocol : public DevMDStdThreadProtocol
{
public:
    static constexpr double NO_WORK = std::numeric_limits<double>::infinity();

    explicit DevMDStdLoopThreadProtocol(RCShdPtr<DevMDStdFifo> const &fifo);
    ~DevMDStdLoopThreadProtocol() override;

    void performExecute(MtThread *thread) override;
    void performStop(MtThread *thread) override;

protected:
    /// The device's own work, a piece at a time: called before the first request, after each one, and when the time is
    /// over that it returned last. Returns how many seconds it can do without a call: 0 while there is more to do, so
    /// that requests are served as they come, or `NO_WORK`, as it stands, where only a request makes new work.
    virtual double performWork();
    /// A request, or the device's work, has thrown. Called on the device's thread; the loop goes on when it returns. As it stands it throws
    /// the exception again, which ends the process: a device that can do better overrides it. Exceptions that
    /// are neither an `ExBase` nor a `std::exception` end the process without it.
    virtual void performFailed(std::exception_ptr const &failure);

private:
    template <class Action>
    void attempt(Action action);
    void serve(double seconds);

    bool _stopRequested = false; // set by the thread that closes the device
    bool _isDeviceGone = false;  // failures are no longer handled
};

} // namespace Zv
