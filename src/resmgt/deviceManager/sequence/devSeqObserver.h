// Observer of the states of a sequence's devices (applications).
#pragma once

#include "resmgt/deviceManager/devMgrFailure.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/smartPtrs/rcBase.h"

namespace Zv {

/// Observes the states of devices. A client derives from it and passes an instance to
/// `DevMgrSyncSeqAcc::setObserver` or `DevMgrSeqSupervisor::setObserver`:
///
///     class Printer : public DevSeqObserver
///     {
///     public:
///         void stateChanged(LiString const &device, LiString const &state) override
///         {
///             std::printf("%s: %s\n", device.getChars(), state.getChars());
///         }
///     };
///
/// What follows holds for `DevMgrSyncSeqAcc`. For the supervisor see
/// `DevMgrSeqSupervisor::setObserver`.
///
/// **Threads**: called under the tree's lock, on the thread that delivers the event. That is the
/// client's thread in `start` and `stop`, and otherwise "DevMgr ANO". The functions must not wait,
/// and must not start or stop the sequence. They may get states and failures, and may replace the
/// observer. The former observer is not called after that. They must not destroy the sequence
/// access or the manager. That fails an assertion, and the devices stay open until the process
/// ends.
///
/// **Throws**: if a function throws, the exception is written to the trace, and the delivery goes
/// on. No event is lost, and the observer is called for what follows. At the end of the delivery
/// `start` or `stop` throws the first exception, unless a machine has thrown. On "DevMgr ANO" the
/// exception goes to the manager's `DevMgrFailureHandler`, and ends the process if there is none.
class ZVRESMGT_EXPORT DevSeqObserver : public RCBase<LkCounter<long>>
{
public:
    /// Called for every state, such as "wml", that the machine of `device` reaches, in order, even
    /// if the machine leaves it within the same delivery. Not called if a step leads back to the
    /// same state.
    virtual void stateChanged(LiString const &device, LiString const &state) = 0;
    /// Called once if the machine of a device has failed: after `stateChanged` if it has reached
    /// `_exc` or `_ill`, or if the device has thrown something that is not an `ExBase`. The default
    /// does nothing.
    virtual void machineFailed(DevMgrFailure const &failure);

protected:
    ~DevSeqObserver() override;
};

} // namespace Zv
