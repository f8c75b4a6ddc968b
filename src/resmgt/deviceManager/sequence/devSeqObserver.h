// Watching the devices of a sequence.
#pragma once

#include "resmgt/deviceManager/devMgrFailure.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/smartPtrs/rcBase.h"

namespace Zv {

/// Follows the sequence machines of devices. A client derives from it and gives an instance to
/// `DevMgrSyncSeqAcc::setObserver`.
///
/// Both functions are called under the tree's lock, on the thread that delivers the event: a client's in `start` or
/// `stop`, else "DevMgr ANO". They must not wait, and must not start or stop the sequence. They may ask for states and
/// failures, and may replace the observer: the former one is no longer called then. They must not destroy the
/// sequence access or the manager. That fails an assertion, and leaves the devices open for the rest of the process.
///
/// If a function throws, the exception is written to the trace, and the delivery goes on: no event is lost, and the
/// observer is told of what follows. The first exception then comes out of `start` or `stop`, unless a machine has
/// thrown in the same delivery. On "DevMgr ANO" it goes to the manager's `DevMgrFailureHandler`, and ends the process
/// if there is none.
class ZVRESMGT_EXPORT DevSeqObserver : public RCBase<LkCounter<long>>
{
public:
    /// Called for every state, such as "wml", that the machine of `device` comes to, in order, also if the machine
    /// leaves the state within the same delivery. A step that leads back to the same state is no new state.
    virtual void stateChanged(LiString const &device, LiString const &state) = 0;
    /// Called once for a device whose machine has come to `_exc` or `_ill`, after `stateChanged`, and for one that has
    /// broken because the device threw something that is no `ExBase`. Does nothing if it is not overridden.
    virtual void machineFailed(DevMgrFailure const &failure);

protected:
    ~DevSeqObserver() override;
};

} // namespace Zv
