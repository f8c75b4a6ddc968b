// Notifications by which devices report to their sequence tree (extenders).
#pragma once

#include "resmgt/deviceManager/sequence/devSeqTree.h"
#include "resmgt/deviceProtocol/devANO.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/objPtr.h"

namespace Zv {

/// Creates the notifications of one tree's devices. A notification delivers one event to one node,
/// on the thread that executes it. The factory keeps the tree alive, its notifications do not.
class ZVRESMGT_EXPORT SeqANOFactory
{
public:
    /// `tree` gets the events. If it is null, `create` throws.
    explicit SeqANOFactory(RCShdPtr<DevSeqTree> tree);

    /// Returns a new notification of an event, a value of `DevSeqEv`, for the device of that name.
    /// Throws `RCEx::ExNullPtr` if the tree is null. The notification throws what
    /// `DevSeqTree::processEvent` throws.
    ObjPtrRet<DevClonableANO> create(LiString const &name, unsigned int event) const;

private:
    RCShdPtr<DevSeqTree> _tree;
};

} // namespace Zv
