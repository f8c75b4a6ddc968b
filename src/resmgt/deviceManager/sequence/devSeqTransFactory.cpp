#include "resmgt/deviceManager/sequence/devSeqTransFactory.h"

#include "resmgt/deviceManager/sequence/devSeqEv.h"

namespace Zv {

namespace {

/// What the transitions of one node work on.
struct Node
{
    bool isRoot() const { return !util->hasParent(); }
    bool isLeaf() const { return util->getNbChildren() == 0; }
    void sendToParent(std::int32_t event) const
    {
        if (!isRoot())
            util->sendToParent(event);
    }
    void sendToChildren(std::int32_t event) const
    {
        if (!isLeaf())
            util->sendToChildren(event);
    }

    RCShdPtr<DevSeqEvPend> parked;
    RCShdPtr<DevSeqTreeNodeUtil> util;
    RCShdPtr<DevSeqPrtclUtil> device;
};

/// A transition of the machine. One of several for the same state and event has a condition, unless
/// it is the last of them.
struct Transition
{
    char const *name;
    void (*execute)(Node const &);
    bool (*condition)(Node const &) = nullptr;
};

void doNothing(Node const &) {}

constexpr Transition transitions[] = {
    {"start",
     [](Node const &node) {
         node.device->start();
         node.sendToChildren(DevSeqEv::START);
     }},
    {"psready", [](Node const &node) { node.parked->addEvent(DevSeqEv::SREADY); }},
    {"wsr",
     [](Node const &node) {
         node.util->setSreadyCount(0);
         node.parked->release();
     }},
    {"wsrret", [](Node const &node) { node.util->setSreadyCount(node.util->getSreadyCount() + 1); },
     // The condition is checked before this child is counted. The last child takes "ready".
     [](Node const &node) {
         return node.util->getNbChildren() != node.util->getSreadyCount() + 1;
     }},
    {"ready",
     [](Node const &node) {
         node.util->setLatency(node.device->getLatency());
         node.sendToParent(DevSeqEv::SREADY);
         node.util->sendToSelf(DevSeqEv::PROCEED);
     },
     [](Node const &node) { return node.isLeaf(); }},
    {"wml", doNothing},
    {"sync",
     [](Node const &node) {
         if (node.isRoot())
             node.device->sync(node.util->getMaxLatency());
         else
             node.device->sync(node.util->getParentMark());
     },
     [](Node const &node) { return node.isRoot(); }},
    {"lock",
     [](Node const &node) {
         node.util->setMark(node.device->getMark());
         node.sendToChildren(DevSeqEv::MLOCK);
         node.parked->release();
     }},
    {"recover",
     [](Node const &node) {
         node.device->recover();
         node.sendToChildren(DevSeqEv::RECOVER);
     }},
    {"wss",
     [](Node const &node) {
         node.sendToChildren(DevSeqEv::STOP);
         node.util->setSstoppedCount(0);
         node.parked->release();
     }},
    {"wssret",
     [](Node const &node) { node.util->setSstoppedCount(node.util->getSstoppedCount() + 1); },
     // The condition is checked before this child is counted. The last child takes "stop".
     [](Node const &node) {
         return node.util->getNbChildren() != node.util->getSstoppedCount() + 1;
     }},
    {"stop", [](Node const &node) { node.device->stop(); },
     [](Node const &node) { return node.isLeaf(); }},
    {"pstop", [](Node const &node) { node.parked->addEvent(DevSeqEv::STOP); }},
    {"stopped",
     [](Node const &node) {
         node.sendToParent(DevSeqEv::SSTOPPED);
         node.util->postDone();
     }},
    {"abort", [](Node const &node) { node.device->abort(); }},
    {"aborted", [](Node const &node) { node.util->postDone(); }},
    {"ignore", doNothing},
};

class SeqTransition final : public DevSMTransition
{
public:
    SeqTransition(Transition const &transition, Node const &node)
        : DevSMTransition(transition.name), _transition(transition), _node(node)
    {}

    void execute() override { _transition.execute(_node); }

private:
    Transition const &_transition;
    Node _node;
};

class SeqConditionalTransition final : public DevSMConditionalTransition
{
public:
    SeqConditionalTransition(Transition const &transition, Node const &node)
        : DevSMConditionalTransition(transition.name), _transition(transition), _node(node)
    {}

    void execute() override { _transition.execute(_node); }
    bool condition() override { return _transition.condition(_node); }

private:
    Transition const &_transition;
    Node _node;
};

} // namespace

DevSeqTransFactory::DevSeqTransFactory(RCShdPtr<DevSeqEvPend> evPend,
                                       RCShdPtr<DevSeqTreeNodeUtil> nodeUtil,
                                       RCShdPtr<DevSeqPrtclUtil> prtclUtil)
    : _evPend(evPend), _nodeUtil(nodeUtil), _prtclUtil(prtclUtil)
{}

DevSeqTransFactory::~DevSeqTransFactory() = default;

RCShdPtr<DevSMTransition> DevSeqTransFactory::create(LiString const &name)
{
    Node const node{_evPend, _nodeUtil, _prtclUtil};
    for (Transition const &transition : transitions) {
        if (name != transition.name)
            continue;
        if (transition.condition)
            return makeShd<SeqConditionalTransition>(transition, node);
        return makeShd<SeqTransition>(transition, node);
    }
    return nullptr;
}

} // namespace Zv
