#include "resmgt/deviceManager/sequence/devSeqTree.h"

#include "resmgt/deviceManager/devMgrEx.h"
#include "resmgt/deviceManager/devMgrFifo.private.h"
#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkThreadId.h"
#include "zvbase/containers.h"
#include "zvbase/dotText.private.h"
#include "zvbase/failures.h"
#include "zvbase/firstFailure.private.h"
#include "zvbase/platform/shared.h"
#include "zvbase/trace.h"

#include <optional>
#include <ostream>
#include <sstream>
#include <string_view>
#include <utility>

namespace Zv {

namespace {

using Nodes = List<RCShdPtr<DevSeqTreeNode>>;

constexpr unsigned long NO_THREAD = LkThreadId::NULL_ID;

unsigned long threadNumber()
{
    return LkThreadId(LkThreadId::CURRENT_THREAD).getNumber();
}

std::string_view nameOf(LiString const &name)
{
    return {name.getChars(), static_cast<std::size_t>(name.getLength())};
}

} // namespace

// ---- DevSeqObserver, DevSeqTreeLink

DevSeqObserver::~DevSeqObserver() = default;

void DevSeqObserver::machineFailed(DevMgrFailure const &) {}

DevSeqTreeLink::DevSeqTreeLink(DevSeqTree *tree) : _lock("DevSeqTreeLink"), _tree(tree) {}

DevSeqTreeLink::~DevSeqTreeLink() = default;

void DevSeqTreeLink::processEvent(LiString const &name, std::int32_t event)
{
    std::optional<DevMgrFailure> failure;
    processEvent(name, event, failure);
}

void DevSeqTreeLink::processEvent(LiString const &name, std::int32_t event,
                                  std::optional<DevMgrFailure> &failure)
{
    LkGuard const guard(_lock);
    if (_tree)
        _tree->processEvent(name, event, failure);
}

void DevSeqTreeLink::clear()
{
    LkGuard const guard(_lock);
    _tree = nullptr;
}

// ---- DevSeqTree

/// The rest of one event's delivery to one node. These are the events that the node's machine has
/// queued for the node itself, for its parent and for its children, in this order.
class DevSeqTree::Delivery
{
public:
    struct Next
    {
        DevSeqTreeNode *node; // null if nothing is left
        std::int32_t event;
    };

    explicit Delivery(DevSeqTreeNode &node) : _node(&node) {}

    Next getNext()
    {
        for (;;) {
            if (_event < _events.size()) {
                if (Next const next = addressee(); next.node)
                    return next;
            } else if (_addressees == CHILDREN) {
                return {nullptr, 0};
            } else {
                takeNextQueue();
            }
        }
    }

private:
    enum Addressees
    {
        NOBODY,
        SELF,
        PARENT,
        CHILDREN
    };

    Next addressee()
    {
        std::int32_t const event = _events[_event];
        if (_addressees != CHILDREN) {
            ++_event;
            return {_addressees == SELF ? _node : &_node->getParent(), event};
        }
        if (_child != _node->_children.end())
            return {(_child++)->get(), event};
        ++_event;
        _child = _node->_children.begin();
        return {nullptr, 0};
    }

    void takeNextQueue()
    {
        _addressees = static_cast<Addressees>(_addressees + 1);
        DevSeqTreeNodeUtil const &util = *_node->_util;
        DevSeqEvPend &pend = _addressees == SELF     ? *util.getSelfPend()
                             : _addressees == PARENT ? *util.getParentPend()
                                                     : *util.getChildrenPend();
        _event = 0;
        _events.clear();
        if (pend.isReleased())
            _events = pend.take();
        _child = _node->_children.begin();
    }

    DevSeqTreeNode *_node;
    Addressees _addressees = NOBODY;
    Vector<std::int32_t> _events;
    std::size_t _event = 0;
    Nodes::iterator _child;
};

/// Observers that were replaced during a delivery. They live until the delivery has released the
/// lock.
class DevSeqTree::Replaced
{
public:
    ~Replaced() noexcept(false) { releaseAll(_observers); }

    void add(RCShdPtr<DevSeqObserver> const &observer) { _observers.push_back(observer); }

private:
    Vector<RCShdPtr<DevSeqObserver>> _observers;
};

/// One delivery of an event, with all events that follow from it. Tells the observer of changes,
/// and keeps the observer's first exception until the end. Used under the tree's lock.
class DevSeqTree::Turn final : private DevSeqSM::Listener
{
public:
    /// `current` is the tree's pointer to the list of replaced observers. A delivery that begins
    /// within another one uses the list of the outer delivery.
    Turn(RCShdPtr<DevSeqObserver> const &observer, Replaced *&current,
         ZvPlatform::Shared<unsigned long> &deliverer, Replaced &replaced,
         std::optional<DevMgrFailure> &failure)
        : _observer(observer),
          _current(current),
          _deliverer(deliverer),
          _outer(current),
          _failure(failure)
    {
        if (_outer)
            return;
        _current = &replaced;
        _deliverer.store(threadNumber(), ZvPlatform::Order::RELAXED);
    }
    ~Turn()
    {
        if (!_outer)
            _deliverer.store(NO_THREAD, ZvPlatform::Order::RELAXED);
        _current = _outer;
    }
    Turn(Turn const &) = delete;
    Turn &operator=(Turn const &) = delete;

    void accept(DevSeqTreeNode &node, std::int32_t event)
    {
        _node = &node;
        try {
            node.accept(event, *this);
        } catch (...) {
            keep([&node] { return node.getLastThrown(); });
            throw;
        }
    }

    void rethrow() const { _ofObserver.rethrow(); }

private:
    void stateChanged() override
    {
        tell([this](DevSeqObserver &observer) {
            observer.stateChanged(_node->_name, _node->_sm->getStateName());
        });
    }

    void machineFailed() override
    {
        tell([this](DevSeqObserver &observer) {
            observer.machineFailed(_node->getFailure().value());
        });
    }

    template <class Tell>
    void tell(Tell tellIt)
    {
        if (_observer.isNull())
            return;
        _ofObserver.attempt([&] {
            try {
                tellIt(*_observer);
            } catch (...) {
                observerThrew();
                throw;
            }
        });
    }

    void observerThrew() noexcept
    {
        try {
            DevMgrFailure thrown;
            thrown.device = _node->_name;
            thrown.state = _node->_sm->getStateName();
            if (!_ofObserver.get())
                _failure = thrown;
            thrown.exception = std::current_exception();
            ZV_TRACE(*Trace::MainTraceLevel, "A sequence observer throws. " << thrown);
        } catch (...) {
            // There is no memory to say it.
        }
    }

    template <class Describe>
    void keep(Describe describe) noexcept
    {
        try {
            _failure = describe();
        } catch (...) {
            // There is no memory to say it.
        }
    }

    RCShdPtr<DevSeqObserver> const &_observer; // the tree's; its calls may replace it
    Replaced *&_current;
    ZvPlatform::Shared<unsigned long> &_deliverer;
    Replaced * const _outer;
    std::optional<DevMgrFailure> &_failure;
    FirstFailure _ofObserver;
    DevSeqTreeNode *_node = nullptr; // whose machine makes a step
};

/// A thread in `wait`.
class DevSeqTree::Waiter
{
public:
    explicit Waiter(DevSeqTree &tree) : _tree(tree)
    {
        LkGuard const guard(_tree._waitersLock);
        _place = _tree._waitedFor.insert(_tree._waitedFor.end(), nullptr);
        _isCounted = !_tree._hasReleased;
    }
    Waiter(Waiter const &) = delete;
    Waiter &operator=(Waiter const &) = delete;
    /// A thread that was released does not touch the tree after its post.
    ~Waiter() noexcept(false)
    {
        bool wasReleased = false;
        {
            LkGuard const guard(_tree._waitersLock);
            wasReleased = _isCounted && _tree._hasReleased;
            _tree._waitedFor.erase(_place);
        }
        if (wasReleased)
            _tree._hasLeft.post();
    }

    /// Blocks until the device has ended or the waiters are released. Returns true if it has ended.
    bool waitFor(DevSeqTreeNodeUtil &device)
    {
        {
            LkGuard const guard(_tree._waitersLock);
            if (_tree._hasReleased)
                return device.hasEnded();
            *_place = &device;
        }
        device.waitDone();
        return device.hasEnded();
    }

private:
    DevSeqTree &_tree;
    List<DevSeqTreeNodeUtil *>::iterator _place;
    bool _isCounted = false; // `releaseWaiters` waits for it
};

// The names are the nodes' own.
struct DevSeqTree::NodesByName : HashMap<std::string_view, DevSeqTreeNode *>
{};

DevSeqTree::DevSeqTree()
    : _lock("DevSeqTree"),
      _link(new DevSeqTreeLink(this)),
      _nodes(new NodesByName),
      _waitersLock("DevSeqTree waiters"),
      _hasLeft("DevSeqTree waiters", 0)
{
    ZV_ASSERT(_hasLeft.getErrno() == 0);
}

// Clears the link to the parent in each node, because nodes may outlive the tree. The walk needs no
// memory. It goes back by these links, and moves each child that was visited to the end of its
// list. When all children were visited, the list has its first order again.
DevSeqTree::~DevSeqTree()
{
    _link->clear();
    releaseWaiters();
    for (DevSeqTreeNode *node = _root.get(); node;) {
        Nodes &children = node->_children;
        if (!children.empty() && children.front()->_parent) {
            node = children.front().get();
        } else {
            DevSeqTreeNode * const parent = std::exchange(node->_parent, nullptr);
            if (node == _root.get())
                break;
            parent->_children.splice(parent->_children.end(), parent->_children,
                                     parent->_children.begin());
            node = parent;
        }
    }
}

void DevSeqTree::setRoot(RCShdPtr<DevSeqTreeNode> const &node)
{
    LkGuard const guard(_lock);
    LkGuard const waitersGuard(_waitersLock);
    if (!_root.isNull())
        join(node, _root);
    _root = node;
    _isIndexed = false;
}

void DevSeqTree::attach(RCShdPtr<DevSeqTreeNode> const &parent,
                        RCShdPtr<DevSeqTreeNode> const &child)
{
    LkGuard const guard(_lock);
    LkGuard const waitersGuard(_waitersLock);
    join(parent, child);
}

void DevSeqTree::join(RCShdPtr<DevSeqTreeNode> const &parent, RCShdPtr<DevSeqTreeNode> const &child)
{
    DevSeqTreeNode &upper = *parent;
    DevSeqTreeNode &lower = *child;
    upper.addChild(child);
    lower._parent = &upper;
    lower._util->setHasParent(true);
    _isIndexed = false;
}

void DevSeqTree::processEvent(std::int32_t event)
{
    std::optional<DevMgrFailure> failure;
    Replaced replaced;
    LkGuard const guard(_lock);
    Turn turn(_observer, _replaced, _deliverer, replaced, failure);
    deliver(turn, getRoot(), event);
}

void DevSeqTree::processEvent(LiString const &name, std::int32_t event)
{
    std::optional<DevMgrFailure> failure;
    processEvent(name, event, failure);
}

void DevSeqTree::processEvent(LiString const &name, std::int32_t event,
                              std::optional<DevMgrFailure> &failure)
{
    Replaced replaced;
    LkGuard const guard(_lock);
    Turn turn(_observer, _replaced, _deliverer, replaced, failure);
    deliver(turn, find(name), event);
}

LiString DevSeqTree::getState(LiString const &name)
{
    LkGuard const guard(_lock);
    return find(name)._sm->getStateName();
}

std::optional<DevMgrFailure> DevSeqTree::getFailure(LiString const &name)
{
    LkGuard const guard(_lock);
    return find(name).getFailure();
}

void DevSeqTree::setObserver(RCShdPtr<DevSeqObserver> const &observer)
{
    RCShdPtr<DevSeqObserver> former(observer); // destroyed without the lock
    LkGuard const guard(_lock);
    if (_replaced)
        _replaced->add(_observer);
    former.swap(_observer);
}

bool DevSeqTree::isDelivering() const
{
    return _deliverer.load(ZvPlatform::Order::RELAXED) == threadNumber();
}

void DevSeqTree::wait() ZV_NO_THREAD_SAFETY_ANALYSIS // changes of the tree take both locks
{
    Vector<RCShdPtr<DevSeqTreeNodeUtil>> ends;
    Waiter waiter(*this);
    {
        LkGuard const guard(_waitersLock);
        walk(
            *_root, [](DevSeqTreeNode &) {},
            [&ends](DevSeqTreeNode &node) { ends.push_back(node._util); });
    }
    bool haveEnded = true;
    for (RCShdPtr<DevSeqTreeNodeUtil> const &end : ends)
        haveEnded = waiter.waitFor(*end) && haveEnded;
    if (!haveEnded)
        ZV_THROW(DevMgrEx::SequenceAbandoned);
}

void DevSeqTree::releaseWaiters()
{
    std::size_t nbWaiters = 0;
    {
        LkGuard const guard(_waitersLock);
        if (!_hasReleased)
            nbWaiters = _waitedFor.size();
        _hasReleased = true;
        for (DevSeqTreeNodeUtil * const device : _waitedFor)
            if (device)
                device->releaseWaiters();
    }
    for (; nbWaiters > 0; --nbWaiters)
        _hasLeft.wait();
}

void DevSeqTree::write(std::ostream &stream) const
{
    std::ostringstream text; // the caller's stream is written without the lock
    {
        LkGuard const guard(_lock);
        DevSeqTreeNode &root = getRoot();
        text << "( ";
        walk(
            root,
            [&text](DevSeqTreeNode &node) {
                text << node._name << (node._children.empty() ? " " : " ( ");
            },
            [&text](DevSeqTreeNode &node) {
                if (!node._children.empty())
                    text << ") ";
            });
        text << ")";
    }
    stream << text.str();
}

void DevSeqTree::dumpDot(std::ostream &stream) const
{
    std::ostringstream text; // the caller's stream is written without the lock
    {
        LkGuard const guard(_lock);
        Vector<std::size_t> path; // the numbers of the devices above the next one
        std::size_t number = 0;
        text << "digraph {\n  node [shape=box];\n";
        walk(
            getRoot(),
            [&](DevSeqTreeNode &node) {
                text << "  d" << number << " [label=";
                Detail::writeDotString(text, node._name + "\n" + node._sm->getStateName());
                text << "];\n";
                if (!path.empty())
                    text << "  d" << path.back() << " -> d" << number << ";\n";
                path.push_back(number++);
            },
            [&path](DevSeqTreeNode &) { path.pop_back(); });
        text << "}\n";
    }
    stream << text.str();
}

std::ostream &operator<<(std::ostream &stream, DevSeqTree const &tree)
{
    tree.write(stream);
    return stream;
}

template <class Enter, class Leave>
void DevSeqTree::walk(DevSeqTreeNode &root, Enter enter, Leave leave)
{
    struct Place
    {
        DevSeqTreeNode *node;
        Nodes::iterator child;
    };
    Vector<Place> path;
    enter(root);
    path.push_back({&root, root._children.begin()});
    while (!path.empty()) {
        Place &place = path.back();
        if (place.child == place.node->_children.end()) {
            DevSeqTreeNode &finished = *place.node;
            path.pop_back();
            leave(finished);
        } else {
            DevSeqTreeNode &child = **place.child++;
            enter(child);
            path.push_back({&child, child._children.begin()});
        }
    }
}

void DevSeqTree::deliver(Turn &turn, DevSeqTreeNode &node, std::int32_t event)
{
    constexpr std::size_t USUAL_DEPTH = 8; // of events that follow from another one
    Vector<Delivery> deliveries;
    deliveries.reserve(USUAL_DEPTH);
    Delivery::Next next{&node, event};
    for (;;) {
        if (next.node) {
            turn.accept(*next.node, next.event);
            deliveries.emplace_back(*next.node);
        } else {
            deliveries.pop_back();
            if (deliveries.empty())
                return turn.rethrow();
        }
        next = deliveries.back().getNext();
    }
}

DevSeqTreeNode &DevSeqTree::getRoot() const
{
    return *_root;
}

DevSeqTreeNode &DevSeqTree::find(LiString const &name)
{
    DevSeqTreeNode &root = getRoot();
    if (!_isIndexed)
        index(root);
    auto const found = _nodes->find(nameOf(name));
    if (found == _nodes->end())
        ZV_THROW(DevMgrEx::NameNotFound);
    return *found->second;
}

// If several nodes have the same name, the first one in this order is found.
void DevSeqTree::index(DevSeqTreeNode &root)
{
    _nodes->clear();
    _nodes->emplace(nameOf(root._name), &root);
    Vector<DevSeqTreeNode *> toSearch{&root};
    while (!toSearch.empty()) {
        DevSeqTreeNode const &node = *toSearch.back();
        toSearch.pop_back();
        for (RCShdPtr<DevSeqTreeNode> const &child : node._children)
            _nodes->emplace(nameOf(child->_name), child.get());
        for (auto child = node._children.rbegin(); child != node._children.rend(); ++child)
            toSearch.push_back(child->get());
    }
    _isIndexed = true;
}

// ---- SeqANOFactory

namespace {

class SeqANO final : public DevClonableANO, public DevMgrFailureSource
{
public:
    SeqANO(LiString const &deviceName, unsigned int event, RCShdPtr<DevSeqTreeLink> const &tree)
        : _deviceName(deviceName), _event(event), _tree(tree)
    {}

    void performExecute() override
    {
        _tree->processEvent(_deviceName, static_cast<std::int32_t>(_event), _failure);
    }
    DevMgrFailure getFailure() const override
    {
        if (_failure)
            return *_failure;
        DevMgrFailure failure;
        failure.device = _deviceName;
        return failure;
    }
    ObjPtrRet<DevClonableANO> clone() const override
    {
        return makeObj<SeqANO>(_deviceName, _event, _tree);
    }

private:
    LiString _deviceName;
    unsigned int _event;
    RCShdPtr<DevSeqTreeLink> _tree;
    std::optional<DevMgrFailure> _failure;
};

} // namespace

SeqANOFactory::SeqANOFactory(RCShdPtr<DevSeqTree> tree) : _tree(tree) {}

ObjPtrRet<DevClonableANO> SeqANOFactory::create(LiString const &name, unsigned int event) const
{
    return makeObj<SeqANO>(name, event, _tree->getLink());
}

} // namespace Zv
