#include "resmgt/deviceManager/sequence/devSeqTreeNode.h"

#include "resmgt/deviceManager/sequence/devSeqPrtclUtil.h"
#include "resmgt/deviceManager/sequence/seqMachine.private.h"
#include "resmgt/deviceManager/stateMachine/devSMTableBuilder.h"
#include "resmgt/locks/lkSingleton.imp.h"
#include "zvbase/failures.h"
#include "zvbase/firstFailure.private.h"
#include "zvbase/platform/shared.h"
#include "zvbase/trace.h"

#include <iterator>
#include <string>
#include <utility>

namespace Zv {

// ---- DevSeqEvPend, DevSeqTreeNodeUtil

namespace {

void send(RCShdPtr<DevSeqEvPend> const &pend, std::int32_t event)
{
    pend->addEvent(event);
    pend->release();
}

} // namespace

DevSeqEvPend::~DevSeqEvPend() = default;

void DevSeqEvPend::addEvent(std::int32_t event)
{
    _events.push_back(event);
}

void DevSeqEvPend::release()
{
    _released = _released || !_events.empty();
}

Vector<std::int32_t> DevSeqEvPend::take()
{
    _released = false;
    return std::exchange(_events, {});
}

DevSeqTreeNodeUtil::DevSeqTreeNodeUtil(LiString const &name)
    : _name(name),
      _selfPend(new DevSeqEvPend),
      _parentPend(new DevSeqEvPend),
      _childrenPend(new DevSeqEvPend),
      _done(_name.getChars(), 0)
{
    ZV_ASSERT(_done.getErrno() == 0);
}

DevSeqTreeNodeUtil::~DevSeqTreeNodeUtil() = default;

void DevSeqTreeNodeUtil::sendToSelf(std::int32_t event)
{
    send(_selfPend, event);
}

void DevSeqTreeNodeUtil::sendToParent(std::int32_t event)
{
    send(_parentPend, event);
}

void DevSeqTreeNodeUtil::sendToChildren(std::int32_t event)
{
    send(_childrenPend, event);
}

void DevSeqTreeNodeUtil::postDone()
{
    _hasEnded.store(true, ZvPlatform::Order::RELEASE);
    _done.post();
}

void DevSeqTreeNodeUtil::waitDone()
{
    _done.wait();
    _done.post(); // for the next thread
}

bool DevSeqTreeNodeUtil::hasEnded() const
{
    return _hasEnded.load(ZvPlatform::Order::ACQUIRE);
}

// ---- DevSeqEv

namespace {

constexpr DevSeqEv::Names names = {"start",   "ready", "sready",  "proceed",  "lock",  "mlock",
                                   "recover", "stop",  "stopped", "sstopped", "abort", "aborted"};

} // namespace

DevSeqEv::Names const &DevSeqEv::getNames()
{
    return names;
}

// ---- DevSeqSMTable: makes the table of the machine

namespace {

void declareEvents(DevSMTableBuilder &builder, DevSeqEv::Names const &e)
{
    for (char const *name : {e.start, e.ready, e.sready, e.proceed, e.lock, e.mlock, e.recover,
                             e.stop, e.stopped, e.sstopped, e.abort, e.aborted})
        builder.addEvent(name);
}

void declareRow(DevSMTableBuilder &builder, SeqMachine::Row const &row)
{
    builder.addTransitionForEvent(row.state, row.event, row.transition);
    builder.setNextState(row.state, row.transition, row.next);
}

void declareAbort(DevSMTableBuilder &builder, DevSeqEv::Names const &e)
{
    for (char const *state : SeqMachine::abortable)
        declareRow(builder, {state, e.abort, "abort", "abort"});
    for (char const *ignored : {e.ready, e.sready, e.proceed, e.lock, e.mlock, e.recover, e.stop,
                                e.stopped, e.sstopped, e.abort})
        declareRow(builder, {"abort", ignored, "ignore", "abort"});
}

void verifyEvents(DevSMTable const *smtable, DevSeqEv::Names const *e)
{
    ZV_ASSERT(smtable->getEvent(e->start) == DevSeqEv::START);
    ZV_ASSERT(smtable->getEvent(e->ready) == DevSeqEv::READY);
    ZV_ASSERT(smtable->getEvent(e->sready) == DevSeqEv::SREADY);
    ZV_ASSERT(smtable->getEvent(e->proceed) == DevSeqEv::PROCEED);
    ZV_ASSERT(smtable->getEvent(e->lock) == DevSeqEv::LOCK);
    ZV_ASSERT(smtable->getEvent(e->mlock) == DevSeqEv::MLOCK);
    ZV_ASSERT(smtable->getEvent(e->recover) == DevSeqEv::RECOVER);
    ZV_ASSERT(smtable->getEvent(e->stop) == DevSeqEv::STOP);
    ZV_ASSERT(smtable->getEvent(e->stopped) == DevSeqEv::STOPPED);
    ZV_ASSERT(smtable->getEvent(e->sstopped) == DevSeqEv::SSTOPPED);
    ZV_ASSERT(smtable->getEvent(e->abort) == DevSeqEv::ABORT);
    ZV_ASSERT(smtable->getEvent(e->aborted) == DevSeqEv::ABORTED);
}

} // namespace

DevSeqSMTable::DevSeqSMTable()
{
    DevSeqEv::Names const &e = DevSeqEv::getNames();
    DevSMTableBuilder builder;
    for (char const *state : SeqMachine::states)
        builder.addState(state);
    declareEvents(builder, e);
    for (char const *transition : SeqMachine::transitions)
        builder.addTransition(transition);
    for (SeqMachine::Row const &row : SeqMachine::rows)
        declareRow(builder, row);
    declareAbort(builder, e);
    builder.expand();
    _table = builder.createTable();
    verifyEvents(_table.get(), &e);
    _illegal = _table->getTransition("_ill");
}

DevSeqSMTable::~DevSeqSMTable() noexcept(false) = default;

bool DevSeqSMTable::isLegal(std::int32_t state, std::int32_t event) const
{
    DevSMTable const &table = *_table;
    return table.isPrimaryState(state) && table.isPrimaryEvent(event) &&
           table.getTransition(state, event) != _illegal;
}

ZV_DEFINE_SINGLETON(DevSeqSMTable, DevSeqSMTable);

// ---- DevSeqTransFactory: what the transitions of the machine do

/// The objects that the transitions of one node use.
class DevSeqTransFactory::SeqTransBase : public RCBase<LkCounter<long>>
{
public:
    SeqTransBase(RCShdPtr<DevSeqEvPend> const &evPend, RCShdPtr<DevSeqTreeNodeUtil> const &nodeUtil,
                 RCShdPtr<DevSeqPrtclUtil> const &prtclUtil)
        : _evPend(evPend), _nodeUtil(nodeUtil), _prtclUtil(prtclUtil)
    {}

    bool isRoot() const { return !_nodeUtil->hasParent(); }
    bool isLeaf() const { return _nodeUtil->getNbChildren() == 0; }
    void sendToParent(DevSeqEv::Event event) const
    {
        if (!isRoot())
            _nodeUtil->sendToParent(event);
    }
    void sendToChildren(DevSeqEv::Event event) const
    {
        if (!isLeaf())
            _nodeUtil->sendToChildren(event);
    }

    RCShdPtr<DevSeqEvPend> const _evPend;
    RCShdPtr<DevSeqTreeNodeUtil> const _nodeUtil;
    RCShdPtr<DevSeqPrtclUtil> const _prtclUtil;
};

/// A transition with its name. If there are several for the same state and event, all but the last
/// have a condition.
struct DevSeqTransFactory::SeqTransName
{
    char const *name;
    void (*execute)(SeqTransBase const &);
    bool (*condition)(SeqTransBase const &) = nullptr;

    static SeqTransName const all[];

    class SeqTrans;
    class SeqCondTrans;
};

DevSeqTransFactory::SeqTransName const DevSeqTransFactory::SeqTransName::all[] = {
    {"start",
     [](SeqTransBase const &node) {
         node._prtclUtil->start();
         node.sendToChildren(DevSeqEv::START);
     }},
    {"psready", [](SeqTransBase const &node) { node._evPend->addEvent(DevSeqEv::SREADY); }},
    {"wsr",
     [](SeqTransBase const &node) {
         node._nodeUtil->setSreadyCount(0);
         node._evPend->release();
     }},
    {"wsrret",
     [](SeqTransBase const &node) {
         node._nodeUtil->setSreadyCount(node._nodeUtil->getSreadyCount() + 1);
     },
     // The condition is checked before this child is counted. The last child takes "ready".
     [](SeqTransBase const &node) {
         return node._nodeUtil->getNbChildren() != node._nodeUtil->getSreadyCount() + 1;
     }},
    {"ready",
     [](SeqTransBase const &node) {
         node._nodeUtil->setLatency(node._prtclUtil->getLatency());
         node.sendToParent(DevSeqEv::SREADY);
         node._nodeUtil->sendToSelf(DevSeqEv::PROCEED);
     },
     [](SeqTransBase const &node) { return node.isLeaf(); }},
    {"wml", [](SeqTransBase const &) {}},
    {"sync",
     [](SeqTransBase const &node) {
         if (node.isRoot())
             node._prtclUtil->sync(node._nodeUtil->getMaxLatency());
         else
             node._prtclUtil->sync(node._nodeUtil->getParentMark());
     },
     [](SeqTransBase const &node) { return node.isRoot(); }},
    {"lock",
     [](SeqTransBase const &node) {
         node._nodeUtil->setMark(node._prtclUtil->getMark());
         node.sendToChildren(DevSeqEv::MLOCK);
         node._evPend->release();
     }},
    {"recover",
     [](SeqTransBase const &node) {
         node._prtclUtil->recover();
         node.sendToChildren(DevSeqEv::RECOVER);
     }},
    {"wss",
     [](SeqTransBase const &node) {
         node.sendToChildren(DevSeqEv::STOP);
         node._nodeUtil->setSstoppedCount(0);
         node._evPend->release();
     }},
    {"wssret",
     [](SeqTransBase const &node) {
         node._nodeUtil->setSstoppedCount(node._nodeUtil->getSstoppedCount() + 1);
     },
     // The condition is checked before this child is counted. The last child takes "stop".
     [](SeqTransBase const &node) {
         return node._nodeUtil->getNbChildren() != node._nodeUtil->getSstoppedCount() + 1;
     }},
    {"stop", [](SeqTransBase const &node) { node._prtclUtil->stop(); },
     [](SeqTransBase const &node) { return node.isLeaf(); }},
    {"pstop", [](SeqTransBase const &node) { node._evPend->addEvent(DevSeqEv::STOP); }},
    {"stopped",
     [](SeqTransBase const &node) {
         node.sendToParent(DevSeqEv::SSTOPPED);
         node._nodeUtil->postDone();
     }},
    {"abort", [](SeqTransBase const &node) { node._prtclUtil->abort(); }},
    {"aborted", [](SeqTransBase const &node) { node._nodeUtil->postDone(); }},
    {"ignore", [](SeqTransBase const &) {}},
};

class DevSeqTransFactory::SeqTransName::SeqTrans final : public DevSMTransition
{
public:
    SeqTrans(LiString const &name, SeqTransName const &transition,
             RCShdPtr<SeqTransBase> const &node)
        : DevSMTransition(name), _transition(transition), _node(node)
    {}

    void execute() override { _transition.execute(*_node); }

private:
    SeqTransName const &_transition;
    RCShdPtr<SeqTransBase> const _node;
};

class DevSeqTransFactory::SeqTransName::SeqCondTrans final : public DevSMConditionalTransition
{
public:
    SeqCondTrans(LiString const &name, SeqTransName const &transition,
                 RCShdPtr<SeqTransBase> const &node)
        : DevSMConditionalTransition(name), _transition(transition), _node(node)
    {}

    void execute() override { _transition.execute(*_node); }
    bool condition() override { return _transition.condition(*_node); }

private:
    SeqTransName const &_transition;
    RCShdPtr<SeqTransBase> const _node;
};

DevSeqTransFactory::DevSeqTransFactory(RCShdPtr<DevSeqEvPend> evPend,
                                       RCShdPtr<DevSeqTreeNodeUtil> nodeUtil,
                                       RCShdPtr<DevSeqPrtclUtil> prtclUtil)
    : _node(makeShd<SeqTransBase>(evPend, nodeUtil, prtclUtil))
{}

DevSeqTransFactory::~DevSeqTransFactory() = default;

RCShdPtr<DevSMTransition> DevSeqTransFactory::create(LiString const &name)
{
    // An engine asks for the transitions in the order of the table, which is the order of this
    // list, too. So the search begins behind the transition that was found last.
    constexpr std::size_t NB_TRANSITIONS = std::size(SeqTransName::all);
    for (std::size_t i = 0; i < NB_TRANSITIONS; ++i) {
        std::size_t const place = (_next + i) % NB_TRANSITIONS;
        SeqTransName const &transition = SeqTransName::all[place];
        if (name != transition.name)
            continue;
        _next = place + 1;
        if (transition.condition)
            return makeShd<SeqTransName::SeqCondTrans>(name, transition, _node);
        return makeShd<SeqTransName::SeqTrans>(name, transition, _node);
    }
    return nullptr;
}

// ---- DevSeqSM

DevSeqSM::DevSeqSM(ObjPtr<DevSMTransitionFactory> factory, RCShdPtr<DevSeqEvPend> evPend,
                   LiString const &label)
    : _table(DevSeqSMTable::getInstance().getTable()),
      _engine(DevSMExecutionEng::create(_table, _table->getState("init"), factory)),
      _evPend(evPend),
      _label(label)
{}

DevSeqSM::~DevSeqSM() noexcept(false) = default;

void DevSeqSM::execute(std::int32_t event, Listener *listener)
{
    execute(Step{_engine->getState(), event}, listener);
    while (_evPend->isReleased())
        for (std::int32_t const parked : _evPend->take())
            execute(Step{_engine->getState(), parked}, listener);
}

LiString DevSeqSM::getStateName() const
{
    return _table->getStateName(_engine->getState());
}

std::optional<DevMgrFailure> DevSeqSM::getFailure() const
{
    if (!_failure)
        return std::nullopt;
    DevMgrFailure failure = describe(_failure->step);
    failure.exception = _failure->exception;
    return failure;
}

DevMgrFailure DevSeqSM::getLastThrown() const
{
    return describe(_lastThrown);
}

void DevSeqSM::execute(Step const &step, Listener *listener)
{
    if (_guard && !DevSeqSMTable::getInstance().isLegal(step.state, step.event))
        return _guard->refused(step.event);
    try {
        _engine->execute(step.event);
    } catch (...) {
        stepThrew(step, listener);
        throw;
    }
    std::int32_t const state = _engine->getState();
    if (state == step.state)
        return;
    bool const hasFailed = !_table->isPrimaryState(state);
    if (hasFailed) {
        bool const isIllegal = getStateName() == "_ill";
        fail(step, isIllegal ? nullptr : _engine->getException(),
             isIllegal ? "comes to _ill" : "comes to _exc");
    }
    if (_guard)
        _guard->stateChanged(state);
    if (listener) {
        listener->stateChanged();
        if (hasFailed)
            listener->machineFailed();
    }
}

void DevSeqSM::stepThrew(Step const &step, Listener *listener)
{
    _lastThrown = step;
    bool const hasBroken = _engine->getStatus() != 0 && !_failure;
    if (!hasBroken)
        return trace(step, std::current_exception(), "refuses an event");
    fail(step, std::current_exception(), "breaks");
    if (listener)
        listener->machineFailed();
}

void DevSeqSM::fail(Step const &step, std::exception_ptr const &exception, char const *how)
{
    _failure = Failure{step, exception};
    if (!_guard)
        trace(step, exception, how);
}

void DevSeqSM::trace(Step const &step, std::exception_ptr const &exception,
                     char const *how) const noexcept
{
    try {
        DevMgrFailure failure = describe(step);
        failure.exception = exception;
        ZV_TRACE(*Trace::MainTraceLevel, _label << ' ' << how << ": " << failure);
    } catch (...) {
        // There is no memory for the line.
    }
}

DevMgrFailure DevSeqSM::describe(Step const &step) const
{
    DevMgrFailure failure;
    failure.state = _table->getStateName(step.state);
    failure.event = _table->isEvent(step.event) ? _table->getEventName(step.event)
                                                : LiString(std::to_string(step.event).c_str());
    return failure;
}

// ---- DevSeqTreeNode

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
