// Node of a sequence tree: one device (extenders).
#pragma once

#include "resmgt/deviceManager/sequence/devSeqPrtclUtil.h"
#include "resmgt/deviceManager/sequence/devSeqSM.h"
#include "resmgt/deviceManager/sequence/devSeqTreeNodeUtil.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/containers.h"
#include "zvbase/objPtr.h"

#include <optional>

namespace Zv {

/// A node of a `DevSeqTree`: a device with its sequence machine. A node runs once. To run the
/// device again, make a new node.
///
/// **Threads**: one thread at a time before the node joins a tree. Then the tree uses it under its
/// lock.
class ZVRESMGT_EXPORT DevSeqTreeNode : public RCBase<LkCounter<long>>
{
public:
    /// Creates a node for a device.
    [[nodiscard]] static RCShdPtr<DevSeqTreeNode> create(LiString const &name,
                                                         RCShdPtr<DevSeqPrtclUtil> prtclUtil);
    /// Creates a node without a device. It gets no reports, so the caller must deliver the events
    /// of the device by `DevSeqTree::processEvent` with the node's name.
    [[nodiscard]] static RCShdPtr<DevSeqTreeNode> createNoop(LiString const &name);

    DevSeqTreeNode(DevSeqTreeNode const &) = delete;
    DevSeqTreeNode &operator=(DevSeqTreeNode const &) = delete;

    LiString const &getName() const { return _name; }
    /// Calls `DevSeqSM::setGuard` of the node's machine. Must be called before the first delivery.
    void setGuard(DevSeqSMGuard *guard) { _sm->setGuard(guard); }

protected:
    /// Destroys the subtree, without recursion.
    ~DevSeqTreeNode() override;

private:
    friend class DevSeqTree;

    DevSeqTreeNode(LiString const &name, ObjPtr<DevSeqSM> sm, RCShdPtr<DevSeqTreeNodeUtil> util);

    void addChild(RCShdPtr<DevSeqTreeNode> const &child);
    void accept(std::int32_t event, DevSeqSM::Listener &listener);
    std::optional<DevMgrFailure> getFailure() const;
    /// Returns the event for which `accept` has thrown last, without the exception.
    DevMgrFailure getLastThrown() const;
    /// Throws `RCEx::ExNullPtr` if there is none.
    DevSeqTreeNode &getParent() const;
    void leave(DevSeqTreeNode const &parent);

    LiString _name;
    ObjPtr<DevSeqSM> _sm;
    RCShdPtr<DevSeqTreeNodeUtil> _util;
    DevSeqTreeNode *_parent = nullptr; // which holds this node
    List<RCShdPtr<DevSeqTreeNode>> _children;
};

} // namespace Zv
