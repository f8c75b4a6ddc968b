// Makes the notifications by which devices report to their tree.
#pragma once

#include "resmgt/deviceManager/sequence/devSeqTree.h"
#include "resmgt/deviceProtocol/devANO.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/objPtr.h"

namespace Zv {

/// Makes the notifications of one tree's devices. A notification delivers one event to one node, on
/// the thread that executes it; it does not keep the tree alive, the factory does.
class ZVRESMGT_EXPORT SeqANOFactory
{
public:
    explicit SeqANOFactory(RCShdPtr<DevSeqTree> tree);

    /// A new notification for the device of that name; `event` is a `DevSeqEv` value. Executed, it
    /// throws what `DevSeqTree::processEvent` throws. Throws `RCEx::ExNullPtr` without a tree.
    ObjPtrRet<DevClonableANO> create(LiString const &name, unsigned int event) const;

private:
    RCShdPtr<DevSeqTree> _tree;
};

} // namespace Zv
