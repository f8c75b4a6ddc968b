// One device in a sequence tree.
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

/// A device with its sequence machine, and its place in a `DevSeqTree`. It runs once: a device that
/// has to run again needs a new node.
class ZVRESMGT_EXPORT DevSeqTreeNode : public RCBase<LkCounter<long>>
{
public:
    static RCShdPtr<DevSeqTreeNode> create(LiString const &name,
                                           RCShdPtr<DevSeqPrtclUtil> prtclUtil);
    /// A node without a device: it reports nothing by itself.
    static RCShdPtr<DevSeqTreeNode> createNoop(LiString const &name);

    DevSeqTreeNode(DevSeqTreeNode const &) = delete;
    DevSeqTreeNode &operator=(DevSeqTreeNode const &) = delete;

    LiString const &getName() const { return _name; }
    /// See `DevSeqSM::setGuard`. To be called before the first delivery.
    void setGuard(DevSeqSMGuard *guard) { _sm->setGuard(guard); }

protected:
    /// Takes the subtree along, as deep as it may be.
    ~DevSeqTreeNode() override;

private:
    friend class DevSeqTree;

    DevSeqTreeNode(LiString const &name, ObjPtr<DevSeqSM> sm, RCShdPtr<DevSeqTreeNodeUtil> util);

    void addChild(RCShdPtr<DevSeqTreeNode> const &child);
    void accept(std::int32_t event, DevSeqSM::Listener &listener);
    std::optional<DevMgrFailure> getFailure() const;
    /// What was thrown last by `accept`, without the exception.
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
