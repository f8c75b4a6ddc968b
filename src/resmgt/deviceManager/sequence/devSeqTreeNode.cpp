#include "resmgt/deviceManager/sequence/devSeqTreeNode.h"

#include "resmgt/deviceManager/sequence/devSeqEv.h"
#include "resmgt/deviceManager/sequence/devSeqTransFactory.h"
#include "resmgt/deviceManager/sequence/noopedSyncSeqProtocol.h"
#include "zvbase/firstFailure.private.h"

namespace Zv {

RCShdPtr<DevSeqTreeNode> DevSeqTreeNode::create(LiString const &name,
                                                RCShdPtr<DevSeqPrtclUtil> prtclUtil)
{
    RCShdPtr<DevSeqEvPend> const evPend(new DevSeqEvPend);
    RCShdPtr<DevSeqTreeNodeUtil> const util(new DevSeqTreeNodeUtil(name));
    ObjPtr<DevSMTransitionFactory> factory(new DevSeqTransFactory(evPend, util, prtclUtil));
    ObjPtr<DevSeqSM> sm(new DevSeqSM(factory, evPend, "node " + name));
    return RCShdPtr<DevSeqTreeNode>(new DevSeqTreeNode(name, sm, util));
}

RCShdPtr<DevSeqTreeNode> DevSeqTreeNode::createNoop(LiString const &name)
{
    RCShdPtr<DevMDSyncSeqPrtcl> const prtcl(new NoopedSyncSeqProtocol);
    return create(name, makeShd<DevSeqPrtclUtil>(prtcl));
}

DevSeqTreeNode::DevSeqTreeNode(LiString const &name, ObjPtr<DevSeqSM> sm,
                               RCShdPtr<DevSeqTreeNodeUtil> util)
    : _name(name), _sm(sm), _util(util)
{}

// Destroys the subtree without recursion, because a deep tree would overflow the stack. Each node
// is destroyed after its children, as with nested destructors.
DevSeqTreeNode::~DevSeqTreeNode()
{
    FirstFailure failure;
    while (!_children.empty()) {
        RCShdPtr<DevSeqTreeNode> &first = _children.front();
        if (first.isUnique() && !first->_children.empty()) {
            for (RCShdPtr<DevSeqTreeNode> const &child : first->_children)
                child->leave(*first);
            _children.splice(_children.begin(), first->_children);
        } else {
            first->leave(*this);
            failure.attempt([&first] { first = nullptr; });
            _children.pop_front();
        }
    }
    failure.attempt([this] { _sm = nullptr; }); // destroys the device, too
    failure.rethrow();
}

DevSeqTreeNode &DevSeqTreeNode::getParent() const
{
    if (!_parent)
        RCExUtil::throwExNullPtr();
    return *_parent;
}

void DevSeqTreeNode::leave(DevSeqTreeNode const &parent)
{
    if (_parent == &parent)
        _parent = nullptr;
}

void DevSeqTreeNode::addChild(RCShdPtr<DevSeqTreeNode> const &child)
{
    _children.push_back(child);
    _util->setNbChildren(static_cast<std::int32_t>(_children.size()));
}

void DevSeqTreeNode::accept(std::int32_t event, DevSeqSM::Listener &listener)
{
    if (event == DevSeqEv::PROCEED) {
        DtTime largest = _util->getLatency();
        for (RCShdPtr<DevSeqTreeNode> const &child : _children)
            if (largest < child->_util->getMaxLatency())
                largest = child->_util->getMaxLatency();
        _util->setMaxLatency(largest);
    }
    if (event == DevSeqEv::MLOCK && _parent)
        _util->setParentMark(_parent->_util->getMark());
    _sm->execute(event, &listener);
}

std::optional<DevMgrFailure> DevSeqTreeNode::getFailure() const
{
    std::optional<DevMgrFailure> failure = _sm->getFailure();
    if (failure)
        failure->device = _name;
    return failure;
}

DevMgrFailure DevSeqTreeNode::getLastThrown() const
{
    DevMgrFailure failure = _sm->getLastThrown();
    failure.device = _name;
    return failure;
}

} // namespace Zv
