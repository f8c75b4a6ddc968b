// What runs on a device's thread.
#pragma once

#include "resmgt/deviceProtocol/devMDStdFifo.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "resmgt/threads/mtThreadProtocol.h"

#include <exception>

namespace Zv {

/// The body of a standard device's thread. A device derives from it and writes `performExecute` as a loop that calls
/// `consume` or `tryConsume` and does the device's periodic work, until `performStop` has been called.
///
/// The body must not end before that: `DevMDStdAccessPrtcl::performClose` sends a last request and waits for it.
/// A device without periodic work takes `DevMDStdLoopThreadProtocol` as it is.
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

private:
    RCShdPtr<DevMDStdFifo> _fifo;
};

/// The body of a device that only serves its queue: consumes until it is told to stop.
class ZVRESMGT_EXPORT DevMDStdLoopThreadProtocol : public DevMDStdThreadProtocol
{
public:
    explicit DevMDStdLoopThreadProtocol(RCShdPtr<DevMDStdFifo> const &fifo);
    ~DevMDStdLoopThreadProtocol() override;

    void performExecute(MtThread *thread) override;
    void performStop(MtThread *thread) override;

protected:
    /// A request has thrown. Called on the device's thread; the loop goes on when it returns. As it stands it throws
    /// the exception again, which ends the process: a device that can do better overrides it. Exceptions that
    /// are neither an `ExBase` nor a `std::exception` end the process without it.
    virtual void performFailed(std::exception_ptr const &failure);

private:
    bool _stopRequested = false; // set by the thread that closes the device
};

} // namespace Zv
