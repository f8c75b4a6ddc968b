#include "resmgt/deviceManager/sequence/devSeqTree.h"

#include "resmgt/deviceManager/devMgrEx.h"
#include "resmgt/locks/lkGuard.h"
#include "zvbase/failures.h"

#include <ostream>
#include <utility>

namespace Zv {

namespace {

using Nodes = List<RCShdPtr<DevSeqTreeNode>>;

std::string_view nameOf(LiString const &name)
{
    return {name.getChars(), static_cast<std::size_t>(name.getLength())};
}

} // namespace

DevSeqObserver::~DevSeqObserver() = default;

DevSeqTreeLink::DevSeqTreeLink(DevSeqTree *tree) : _lock("DevSeqTreeLink"), _tree(tree) {}

DevSeqTreeLink::~DevSeqTreeLink() = default;

void DevSeqTreeLink::processEvent(LiString const &name, std::int32_t event)
{
    LkGuard<LkLock const> const guard(_lock);
    if (_tree)
        _tree->processEvent(name, event);
}

void DevSeqTreeLink::clear()
{
    LkGuard<LkLock const> const guard(_lock);
    _tree = nullptr;
}

/// What is left of one event's delivery to one node: the events that the node's machine queued, for
/// the node itself, then for its parent, then for its children.
class DevSeqTree::Delivery
{
public:
    struct Next
    {
        DevSeqTreeNode *node; // null: nothing is left
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

/// A thread in `wait`.
class DevSeqTree::Waiter
{
public:
    explicit Waiter(DevSeqTree &tree) : _tree(tree)
    {
        LkGuard<LkLock const> const guard(_tree._waitersLock);
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
            LkGuard<LkLock const> const guard(_tree._waitersLock);
            wasReleased = _isCounted && _tree._hasReleased;
            _tree._waitedFor.erase(_place);
        }
        if (wasReleased)
            _tree._hasLeft.post();
    }

    /// Returns whether the device has ended.
    bool waitFor(DevSeqTreeNodeUtil &device)
    {
        {
            LkGuard<LkLock const> const guard(_tree._waitersLock);
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
    bool _isCounted = false; // by `releaseWaiters`
};

DevSeqTree::DevSeqTree()
    : _lock("DevSeqTree"),
      _link(new DevSeqTreeLink(this)),
      _waitersLock("DevSeqTree waiters"),
      _hasLeft("DevSeqTree waiters", 0)
{
    ZV_ASSERT(_hasLeft.getErrno() == 0);
}

// Takes the parent from each node, which may be held elsewhere. That takes no memory: the link back shows the way, and
// a child that has been visited goes to the end, until all have been and are in their order again.
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
    if (!_root.isNull())
        attach(node, _root);
    _root = node;
    _isIndexed = false;
}

void DevSeqTree::attach(RCShdPtr<DevSeqTreeNode> const &parent,
                        RCShdPtr<DevSeqTreeNode> const &child)
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
    LkGuard<LkLock const> const guard(_lock);
    deliver(*_root, event);
}

void DevSeqTree::processEvent(LiString const &name, std::int32_t event)
{
    LkGuard<LkLock const> const guard(_lock);
    deliver(find(name), event);
}

LiString DevSeqTree::getState(LiString const &name)
{
    LkGuard<LkLock const> const guard(_lock);
    return find(name)._sm->getStateName();
}

void DevSeqTree::setObserver(RCShdPtr<DevSeqObserver> const &observer)
{
    RCShdPtr<DevSeqObserver> former(observer); // ends without the lock
    LkGuard<LkLock const> const guard(_lock);
    former.swap(_observer);
}

void DevSeqTree::wait()
{
    DevSeqTreeNode &root = *_root;
    Waiter waiter(*this);
    bool haveEnded = true;
    walk(
        root, [](DevSeqTreeNode &) {},
        [&](DevSeqTreeNode &node) { haveEnded = waiter.waitFor(*node._util) && haveEnded; });
    if (!haveEnded)
        ZV_THROW(DevMgrEx::SequenceAbandoned);
}

void DevSeqTree::releaseWaiters()
{
    std::size_t nbWaiters = 0;
    {
        LkGuard<LkLock const> const guard(_waitersLock);
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
    DevSeqTreeNode &root = *_root;
    stream << "( ";
    walk(
        root,
        [&stream](DevSeqTreeNode &node) {
            stream << node._name << (node._children.empty() ? " " : " ( ");
        },
        [&stream](DevSeqTreeNode &node) {
            if (!node._children.empty())
                stream << ") ";
        });
    stream << ")";
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

void DevSeqTree::deliver(DevSeqTreeNode &node, std::int32_t event)
{
    Vector<Delivery> deliveries;
    Delivery::Next next{&node, event};
    for (;;) {
        if (next.node) {
            accept(*next.node, next.event);
            deliveries.emplace_back(*next.node);
        } else {
            deliveries.pop_back();
            if (deliveries.empty())
                return;
        }
        next = deliveries.back().getNext();
    }
}

void DevSeqTree::accept(DevSeqTreeNode &node, std::int32_t event)
{
    if (_observer.isNull())
        return node.accept(event);
    LiString const former = node._sm->getStateName();
    node.accept(event);
    LiString const state = node._sm->getStateName();
    if (state != former)
        _observer->stateChanged(node._name, state);
}

DevSeqTreeNode &DevSeqTree::find(LiString const &name)
{
    DevSeqTreeNode &root = *_root;
    if (!_isIndexed)
        index(root);
    auto const found = _nodes.find(nameOf(name));
    if (found == _nodes.end())
        ZV_THROW(DevMgrEx::NameNotFound);
    return *found->second;
}

// The first node of a name stays: this is the order in which the tree is searched.
void DevSeqTree::index(DevSeqTreeNode &root)
{
    _nodes.clear();
    _nodes.emplace(nameOf(root._name), &root);
    Vector<DevSeqTreeNode *> toSearch{&root};
    while (!toSearch.empty()) {
        DevSeqTreeNode const &node = *toSearch.back();
        toSearch.pop_back();
        for (RCShdPtr<DevSeqTreeNode> const &child : node._children)
            _nodes.emplace(nameOf(child->_name), child.get());
        for (auto child = node._children.rbegin(); child != node._children.rend(); ++child)
            toSearch.push_back(child->get());
    }
    _isIndexed = true;
}

} // namespace Zv
