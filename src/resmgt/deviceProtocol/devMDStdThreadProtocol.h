// Body of a standard device's thread: serves the device's queue and does its periodic work (device
// writers).
#pragma once

#include "resmgt/deviceProtocol/devMDStdFifo.h"
#include "resmgt/locks/lkDuration.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "resmgt/threads/mtThread.h"
#include "zvbase/platform/shared.h"

#include <exception>
#include <limits>

namespace Zv {

/// The body of a standard device's thread. A device that needs a loop of its own derives from it.
/// Its `performExecute` calls `consume`, `tryConsume` or `timedConsume` until `performStop` has
/// been called, and does the device's periodic work in between. `DevMDStdLoopThreadProtocol` has
/// such a loop already.
///
/// The body must not return before `performStop` has been called:
/// `DevMDStdAccessPrtcl::performClose` sends a last request and waits for it.
///
/// **Threads**: only the device's thread may call `consume`, `tryConsume` and `timedConsume`. The
/// thread that closes or destroys the device calls `performStop`.
///
/// **Throws**: each of them passes on what the request or its completion throws. Both are
/// destroyed. If the request has thrown, its completion does not run. A `DevFailableACO` gets the
/// exception instead, and nothing is thrown.
class ZVRESMGT_EXPORT DevMDStdThreadProtocol : public MtThreadProtocol
{
public:
    /// Shares `fifo`, the queue of the device.
    explicit DevMDStdThreadProtocol(RCShdPtr<DevMDStdFifo> const &fifo);
    ~DevMDStdThreadProtocol() override;

    /// Executes one request and its completion. Blocks until there is a request.
    virtual void consume();
    /// Executes one request and its completion. Returns false if there is no request.
    virtual bool tryConsume();
    /// Like `tryConsume`, but waits up to `seconds` for a request.
    bool timedConsume(double seconds);
    template <LkDuration Limit>
    bool timedConsume(Limit const &limit)
    {
        return timedConsume(Detail::countSeconds(limit));
    }

private:
    RCShdPtr<DevMDStdFifo> _fifo;
};

/// A thread body that serves the queue until it is told to stop, and calls `performWork` in
/// between. A device without periodic work uses it as it is.
class ZVRESMGT_EXPORT DevMDStdLoopThreadProtocol : public DevMDStdThreadProtocol
{
public:
    /// What `performWork` returns if only a request makes new work.
    static constexpr double NO_WORK = std::numeric_limits<double>::infinity();

    /// Shares `fifo`, the queue of the device.
    explicit DevMDStdLoopThreadProtocol(RCShdPtr<DevMDStdFifo> const &fifo);
    ~DevMDStdLoopThreadProtocol() override;

    void performExecute(MtThread *thread) override;
    void performStop(MtThread *thread) override;

protected:
    /// Does a piece of the device's periodic work. Called before the first request, after each
    /// request, and when the time that it last returned has elapsed.
    ///
    /// Returns the number of seconds until it must be called again at the latest. 0 or less means
    /// that there is more to do. Then the loop executes a request, if there is one, and calls
    /// again. `NO_WORK`, which the default returns, means that only a request makes new work.
    virtual double performWork();
    /// Called on the device's thread if a request or `performWork` has thrown. The loop goes on
    /// when this function returns. The default throws the exception again, which ends the process.
    ///
    /// An exception that is neither an `ExBase` nor a `std::exception` ends the process without
    /// this call.
    virtual void performFailed(std::exception_ptr const &failure);

private:
    template <class Action>
    void attempt(Action action);
    void serve(double seconds);

    ZvPlatform::Shared<bool> _stopRequested{false}; // set by the thread that closes the device
    bool _isDeviceGone = false;                     // failures are no longer handled
};

} // namespace Zv
