#include "resmgt/deviceManager/sequence/devSeqTransFactory.h"

#include "resmgt/deviceManager/sequence/devSeqEv.h"

namespace Zv {

namespace {

/// The objects that the transitions of one node use.
struct SeqTransBase
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

/// A transition with its name. If there are several for the same state and event, all but the last
/// have a condition.
struct SeqTransName
{
    char const *name;
    void (*execute)(SeqTransBase const &);
    bool (*condition)(SeqTransBase const &) = nullptr;
};

void doNothing(SeqTransBase const &) {}

constexpr SeqTransName transitions[] = {
    {"start",
     [](SeqTransBase const &node) {
         node.device->start();
         node.sendToChildren(DevSeqEv::START);
     }},
    {"psready", [](SeqTransBase const &node) { node.parked->addEvent(DevSeqEv::SREADY); }},
    {"wsr",
     [](SeqTransBase const &node) {
         node.util->setSreadyCount(0);
         node.parked->release();
     }},
    {"wsrret",
     [](SeqTransBase const &node) { node.util->setSreadyCount(node.util->getSreadyCount() + 1); },
     // The condition is checked before this child is counted. The last child takes "ready".
     [](SeqTransBase const &node) {
         return node.util->getNbChildren() != node.util->getSreadyCount() + 1;
     }},
    {"ready",
     [](SeqTransBase const &node) {
         node.util->setLatency(node.device->getLatency());
         node.sendToParent(DevSeqEv::SREADY);
         node.util->sendToSelf(DevSeqEv::PROCEED);
     },
     [](SeqTransBase const &node) { return node.isLeaf(); }},
    {"wml", doNothing},
    {"sync",
     [](SeqTransBase const &node) {
         if (node.isRoot())
             node.device->sync(node.util->getMaxLatency());
         else
             node.device->sync(node.util->getParentMark());
     },
     [](SeqTransBase const &node) { return node.isRoot(); }},
    {"lock",
     [](SeqTransBase const &node) {
         node.util->setMark(node.device->getMark());
         node.sendToChildren(DevSeqEv::MLOCK);
         node.parked->release();
     }},
    {"recover",
     [](SeqTransBase const &node) {
         node.device->recover();
         node.sendToChildren(DevSeqEv::RECOVER);
     }},
    {"wss",
     [](SeqTransBase const &node) {
         node.sendToChildren(DevSeqEv::STOP);
         node.util->setSstoppedCount(0);
         node.parked->release();
     }},
    {"wssret",
     [](SeqTransBase const &node) {
         node.util->setSstoppedCount(node.util->getSstoppedCount() + 1);
     },
     // The condition is checked before this child is counted. The last child takes "stop".
     [](SeqTransBase const &node) {
         return node.util->getNbChildren() != node.util->getSstoppedCount() + 1;
     }},
    {"stop", [](SeqTransBase const &node) { node.device->stop(); },
     [](SeqTransBase const &node) { return node.isLeaf(); }},
    {"pstop", [](SeqTransBase const &node) { node.parked->addEvent(DevSeqEv::STOP); }},
    {"stopped",
     [](SeqTransBase const &node) {
         node.sendToParent(DevSeqEv::SSTOPPED);
         node.util->postDone();
     }},
    {"abort", [](SeqTransBase const &node) { node.device->abort(); }},
    {"aborted", [](SeqTransBase const &node) { node.util->postDone(); }},
    {"ignore", doNothing},
};

class SeqTrans final : public DevSMTransition, private SeqTransBase
{
public:
    SeqTrans(SeqTransName const &transition, SeqTransBase const &node)
        : DevSMTransition(transition.name), SeqTransBase(node), _transition(transition)
    {}

    void execute() override { _transition.execute(*this); }

private:
    SeqTransName const &_transition;
};

class SeqCondTrans final : public DevSMConditionalTransition, private SeqTransBase
{
public:
    SeqCondTrans(SeqTransName const &transition, SeqTransBase const &node)
        : DevSMConditionalTransition(transition.name), SeqTransBase(node), _transition(transition)
    {}

    void execute() override { _transition.execute(*this); }
    bool condition() override { return _transition.condition(*this); }

private:
    SeqTransName const &_transition;
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
    SeqTransBase const node{_evPend, _nodeUtil, _prtclUtil};
    for (SeqTransName const &transition : transitions) {
        if (name != transition.name)
            continue;
        if (transition.condition)
            return makeShd<SeqCondTrans>(transition, node);
        return makeShd<SeqTrans>(transition, node);
    }
    return nullptr;
}

} // namespace Zv
