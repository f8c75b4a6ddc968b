// Transitions of the sequence machine (extenders).
#pragma once

#include "resmgt/deviceManager/sequence/devSeqPrtclUtil.h"
#include "resmgt/deviceManager/sequence/devSeqTreeNodeUtil.h"
#include "resmgt/deviceManager/stateMachine/devSMTransition.h"
#include "resmgt/export.h"
#include "resmgt/smartPtrs/rcShdPtr.h"

namespace Zv {

/// Creates the seventeen transitions of the sequence machine for one node. They call the device,
/// count the node's children, and queue events for the node and its neighbours. The tree delivers
/// these events.
class ZVRESMGT_EXPORT DevSeqTransFactory : public DevSMTransitionFactory
{
public:
    /// `evPend` is the queue that the `DevSeqSM` of the node takes its events from.
    DevSeqTransFactory(RCShdPtr<DevSeqEvPend> evPend, RCShdPtr<DevSeqTreeNodeUtil> nodeUtil,
                       RCShdPtr<DevSeqPrtclUtil> prtclUtil);
    ~DevSeqTransFactory() override;

    RCShdPtr<DevSMTransition> create(LiString const &name) override;

private:
    RCShdPtr<DevSeqEvPend> _evPend;
    RCShdPtr<DevSeqTreeNodeUtil> _nodeUtil;
    RCShdPtr<DevSeqPrtclUtil> _prtclUtil;
};

} // namespace Zv
