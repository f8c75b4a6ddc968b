#include "resmgt/deviceManager/sequence/devSeqTreeNode.h"

#include "resmgt/deviceManager/sequence/devSeqEv.h"
#include "resmgt/deviceManager/sequence/devSeqTransFactory.h"
#include "resmgt/deviceManager/sequence/noopedSyncSeqProtocol.h"

#include <utility>

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

// Left to themselves, the destructors of a deep tree would nest as deep as the tree. The order is
// theirs all the same: every node after its children. What a destructor throws has to pass, which
// it can not through a container.
DevSeqTreeNode::~DevSeqTreeNode()
{
    Vector<RCShdPtr<DevSeqTreeNode>> path;
    List<RCShdPtr<DevSeqTreeNode>> *children = &_children;
    while (!children->empty() || !path.empty()) {
        if (!children->empty()) {
            path.push_back(std::move(children->front()));
            children->pop_front();
        } else {
            RCShdPtr<DevSeqTreeNode> const finished = std::move(path.back());
            path.pop_back();
        }
        while (!path.empty() && !path.back().isUnique()) {
            RCShdPtr<DevSeqTreeNode> const shared = std::move(path.back());
            path.pop_back();
        }
        children = path.empty() ? &_children : &path.back()->_children;
    }
}

void DevSeqTreeNode::addChild(RCShdPtr<DevSeqTreeNode> const &child)
{
    _children.push_back(child);
    _util->setNbChildren(static_cast<std::int32_t>(_children.size()));
}

void DevSeqTreeNode::accept(std::int32_t event)
{
    if (event == DevSeqEv::PROCEED) {
        DtTime largest = _util->getLatency();
        for (RCShdPtr<DevSeqTreeNode> const &child : _children)
            if (largest < child->_util->getMaxLatency())
                largest = child->_util->getMaxLatency();
        _util->setMaxLatency(largest);
    }
    if (event == DevSeqEv::MLOCK && !_parent.isNull())
        _util->setParentMark(_parent->_util->getMark());
    _sm->execute(event);
}

} // namespace Zv
