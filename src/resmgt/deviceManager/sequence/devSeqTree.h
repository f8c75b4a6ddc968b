// Tree of devices that start, lock and stop together, and the reports of its devices (extenders).
#pragma once

#include "resmgt/deviceManager/devMgrFailure.h"
#include "resmgt/deviceManager/sequence/devSeqObserver.h"
#include "resmgt/deviceManager/sequence/devSeqTreeNode.h"
#include "resmgt/deviceProtocol/devANO.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/locks/lkLock.h"
#include "resmgt/locks/lkNamedSema.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/objPtr.h"
#include "zvbase/platform/shared.h"
#include "zvbase/sequenceContainers.h"
#include "zvbase/threadAnnotations.h"

#include <cstdint>
#include <iosfwd>
#include <optional>

namespace Zv {

class DevSeqTree;

/// A link to a tree. The tree may be destroyed before the link, because devices may keep their
/// notifications for any time. A report that arrives after the tree has been destroyed has no
/// effect. The destructor of a tree waits for the report that is being delivered.
///
/// **Threads**: thread-safe.
class ZVRESMGT_EXPORT DevSeqTreeLink : public RCBase<LkCounter<long>>
{
public:
    /// Links to `tree`, which must call `clear` before it is destroyed.
    explicit DevSeqTreeLink(DevSeqTree *tree);

    /// Call `DevSeqTree::processEvent`, or do nothing if there is no tree. Block while another
    /// thread delivers an event.
    void processEvent(LiString const &name, std::int32_t event);
    void processEvent(LiString const &name, std::int32_t event,
                      std::optional<DevMgrFailure> &failure);
    /// Removes the link to the tree. Blocks while another thread delivers an event through this
    /// link.
    void clear();

protected:
    ~DevSeqTreeLink() override;

private:
    LkLock _lock;
    DevSeqTree *_tree ZV_GUARDED_BY(_lock);
};

/// Synchronises a tree of devices. The root locks with the largest latency of all devices. Every
/// other device locks to the mark of its parent.
///
/// - `START`, delivered to the root, starts all devices, parents first. Each device reports
///   `READY`. When a whole subtree is ready, its top reports to its parent. When all are ready, the
///   root is told to sync. When a device has reported `LOCK`, its children are told to sync to its
///   mark.
/// - `STOP`, delivered to the root, is kept at each device that has not locked yet. The devices
///   then stop from the leaves up, the root last.
/// - A device that has lost its lock recovers with its whole subtree, and locks again to its
///   parent, which stays in lock. If a part of the subtree has not locked yet, the recovery is an
///   illegal event for that part.
/// - An abort concerns the device alone.
///
/// A tree runs once: build it, deliver events, wait, destroy it. A deep tree needs no more stack
/// than a flat one.
///
/// If a device gets an illegal event, its machine goes to `_ill`. If its protocol throws an
/// `ExBase`, its machine goes to `_exc`. The call that delivers the event does not throw because of
/// that. The failure is written to the trace, reported to the observer, and returned by
/// `getFailure`. The next event for that machine throws `DevMgrEx::SMExecutionError`. If a machine
/// throws during a delivery, the events that were still to be delivered are lost. An exception of
/// the observer does not have that effect.
///
/// **Threads**: thread-safe. One lock is held for a whole delivery, also while the devices'
/// protocols and the observer are called. These must return soon, and must not wait for the tree.
/// They must not release the last reference to the tree. That is not detected.
///
/// **Blocks**: `processEvent`, `getState`, `getFailure`, `setObserver`, `write` and `dumpDot` block
/// while another thread delivers an event.
class ZVRESMGT_EXPORT DevSeqTree : public RCBase<LkCounter<long>>
{
public:
    /// Makes an empty tree.
    DevSeqTree();
    DevSeqTree(DevSeqTree const &) = delete;
    DevSeqTree &operator=(DevSeqTree const &) = delete;

    /// Sets the root. A former root becomes the last child of `node`. Must be called before the
    /// first delivery, which is not detected.
    void setRoot(RCShdPtr<DevSeqTreeNode> const &node);
    /// Makes `child` the last child of `parent`. Both must be nodes of this tree or of none. Must
    /// be called before the first delivery. Neither rule is checked. Throws `RCEx::ExNullPtr` if
    /// one of them is null.
    void attach(RCShdPtr<DevSeqTreeNode> const &parent, RCShdPtr<DevSeqTreeNode> const &child);

    /// Deliver an event, a value of `DevSeqEv`, and all events that follow from it, to the root or
    /// to the node of that name. If several nodes have the name, the root is meant, or the first
    /// one that is found by searching the children of a node before their subtrees.
    ///
    /// Throw `DevMgrEx::NameNotFound` if there is no such node, `RCEx::ExNullPtr` if the tree is
    /// empty, and what `DevSMExecutionEng::execute` throws. When all is delivered, throw the first
    /// exception of the observer.
    void processEvent(std::int32_t event) ZV_EXCLUDES(_lock);
    void processEvent(LiString const &name, std::int32_t event) ZV_EXCLUDES(_lock);
    /// Delivers an event to a node. If it throws while an event is being delivered, stores the
    /// device, state and event in `failure`, without the exception.
    void processEvent(LiString const &name, std::int32_t event,
                      std::optional<DevMgrFailure> &failure) ZV_EXCLUDES(_lock);
    /// Returns the name of the state of the device's machine. Throws `DevMgrEx::NameNotFound` if
    /// there is no such device, and `RCEx::ExNullPtr` if the tree is empty.
    LiString getState(LiString const &name) ZV_EXCLUDES(_lock);

    /// Returns the reason why the device's machine has failed. Empty if it has not failed. Throws
    /// `DevMgrEx::NameNotFound` if there is no such device, and `RCEx::ExNullPtr` if the tree is
    /// empty.
    std::optional<DevMgrFailure> getFailure(LiString const &name) ZV_EXCLUDES(_lock);

    /// Sets the observer. Null means none. The former observer is not called after this function
    /// has returned. An observer may call it.
    void setObserver(RCShdPtr<DevSeqObserver> const &observer) ZV_EXCLUDES(_lock);
    /// Returns true if the calling thread is delivering an event of this tree. That is so in the
    /// functions of observers and devices that the tree calls. Does not block.
    bool isDelivering() const;
    /// Returns the lock of all deliveries. Hold it to make several changes that must be seen as
    /// one.
    LkLock const &getLock() const ZV_RETURN_CAPABILITY(_lock) { return _lock; }

    /// Blocks until every device has stopped or aborted. Any number of threads may call it at the
    /// same time, any number of times. It does not take the lock of the deliveries. It does not
    /// return if a machine has ended in `_ill` or `_exc`, until the tree is destroyed or
    /// `releaseWaiters` is called.
    ///
    /// Throws `RCEx::ExNullPtr` if the tree is empty. Throws `DevMgrEx::SequenceAbandoned` if the
    /// tree is destroyed, or `releaseWaiters` is called, before all devices have ended.
    void wait();
    /// Wakes all threads in `wait`, and returns when they have left it. From now on `wait` does not
    /// block.
    void releaseWaiters();

    /// Returns the link through which notifications reach this tree. Never null.
    RCShdPtr<DevSeqTreeLink> const &getLink() const { return _link; }

    /// Writes the tree in the form `( R ( A B ) )`. Throws `RCEx::ExNullPtr` if the tree is empty.
    void write(std::ostream &stream) const;
    /// Writes the tree in DOT, for Graphviz, with the name and state of each device. Blocks while
    /// another thread delivers an event. Throws `RCEx::ExNullPtr` if the tree is empty.
    void dumpDot(std::ostream &stream) const;

protected:
    /// Waits for the report that is being delivered. Later ones have no effect. Calls
    /// `releaseWaiters`.
    ~DevSeqTree() override;

private:
    class Delivery;
    struct NodesByName;
    class Replaced;
    class Turn;
    class Waiter;

    template <class Enter, class Leave>
    static void walk(DevSeqTreeNode &root, Enter enter, Leave leave);
    void join(RCShdPtr<DevSeqTreeNode> const &parent, RCShdPtr<DevSeqTreeNode> const &child)
        ZV_REQUIRES(_lock);
    static void deliver(Turn &turn, DevSeqTreeNode &node, std::int32_t event);

    DevSeqTreeNode &getRoot() const ZV_REQUIRES(_lock);
    DevSeqTreeNode &find(LiString const &name) ZV_REQUIRES(_lock);
    void index(DevSeqTreeNode &root) ZV_REQUIRES(_lock);

    LkLock _lock;
    RCShdPtr<DevSeqTreeNode> _root ZV_GUARDED_BY(_lock);
    RCShdPtr<DevSeqTreeLink> _link;
    ObjPtr<NodesByName> const _nodes ZV_PT_GUARDED_BY(_lock);
    bool _isIndexed ZV_GUARDED_BY(_lock) = false;
    RCShdPtr<DevSeqObserver> _observer ZV_GUARDED_BY(_lock);
    Replaced *_replaced ZV_GUARDED_BY(_lock) = nullptr; // of the delivery that runs
    ZvPlatform::Shared<unsigned long> _deliverer{0};    // the number of its thread

    LkLock _waitersLock; // a leaf; `wait` reads the tree under it
    List<DevSeqTreeNodeUtil *> _waitedFor
        ZV_GUARDED_BY(_waitersLock); // by each thread in `wait`; null before its first node
    bool _hasReleased ZV_GUARDED_BY(_waitersLock) = false;
    LkUnnamedSema _hasLeft; // posted by each thread that was released
};

/// Calls `DevSeqTree::write`.
ZVRESMGT_EXPORT std::ostream &operator<<(std::ostream &stream, DevSeqTree const &tree);

/// Creates the notifications of one tree's devices. A notification delivers one event to one node,
/// on the thread that executes it. The factory keeps the tree alive, its notifications do not.
class ZVRESMGT_EXPORT SeqANOFactory
{
public:
    /// `tree` gets the events. If it is null, `create` throws.
    explicit SeqANOFactory(RCShdPtr<DevSeqTree> tree);

    /// Returns a new notification of an event, a value of `DevSeqEv`, for the device of that name.
    /// Throws `RCEx::ExNullPtr` if the tree is null. The notification throws what
    /// `DevSeqTree::processEvent` throws.
    ObjPtrRet<DevClonableANO> create(LiString const &name, unsigned int event) const;

private:
    RCShdPtr<DevSeqTree> _tree;
};

} // namespace Zv
