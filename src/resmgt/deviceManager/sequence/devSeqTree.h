// Devices that start, lock and stop together.
#pragma once

#include "resmgt/deviceManager/sequence/devSeqObserver.h"
#include "resmgt/deviceManager/sequence/devSeqTreeLink.h"
#include "resmgt/deviceManager/sequence/devSeqTreeNode.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/locks/lkLock.h"
#include "resmgt/locks/lkUnnamedSema.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/containers.h"
#include "zvbase/threadAnnotations.h"

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string_view>

namespace Zv {

/// Synchronises devices. An edge says which device is master of which: the root decides the start
/// with the largest latency of all, every other device locks to its parent's mark.
///
/// `START`, delivered to the root, starts all devices, parents first. Each device reports `READY`;
/// readiness comes up from the leaves, the root is told to sync, and as one device after the other
/// reports `LOCK`, its children are told to sync to its mark. `STOP`, delivered to the root, is
/// kept where a device has not locked yet; devices then stop from the leaves up, the root last. A
/// device that lost its lock falls back with its whole subtree and comes up again under its parent,
/// which stays in lock. An abort is a device's own: it goes to no neighbour.
///
/// Build the tree, deliver, wait, destroy: it runs once. One lock makes all machines of a tree step
/// one at a time. It is held for a whole delivery, also while devices' protocols are called: those
/// hand a request over and return, and must not wait for the tree. The depth of a tree costs no
/// stack.
///
/// The machine of a device that is given an illegal event goes to `_ill`, that of a device whose
/// protocol threw an `ExBase` to `_exc`. Neither is a failure of the call: it is written to the trace,
/// the observer is told, and `getFailure` returns it. The next event for the machine throws
/// `DevMgrEx::SMExecutionError`. An exception that a machine throws during a delivery abandons the
/// events that were still to be delivered. One that the observer throws does not.
///
/// All operations may be called by any thread at any time.
class ZVRESMGT_EXPORT DevSeqTree : public RCBase<LkCounter<long>>
{
public:
    /// An empty tree.
    DevSeqTree();
    DevSeqTree(DevSeqTree const &) = delete;
    DevSeqTree &operator=(DevSeqTree const &) = delete;

    /// A root that is there becomes the last child of `node`. To be called before the first delivery.
    void setRoot(RCShdPtr<DevSeqTreeNode> const &node);
    /// Makes `child` the last child of `parent`; both are nodes of this tree, or of none yet.
    /// To be called before the first delivery. Throws `RCEx::ExNullPtr`.
    void attach(RCShdPtr<DevSeqTreeNode> const &parent, RCShdPtr<DevSeqTreeNode> const &child);

    /// Deliver an event, a `DevSeqEv` value, with all that follows from it, to the root or to a
    /// node. Of several nodes of one name it is the root, or the first that is found by looking
    /// through a node's children before their subtrees. Throw `DevMgrEx::NameNotFound`, for an
    /// empty tree `RCEx::ExNullPtr`, what `DevSMExecutionEng::execute` throws, and when all is delivered
    /// the first exception of the observer.
    void processEvent(std::int32_t event) ZV_EXCLUDES(_lock);
    void processEvent(LiString const &name, std::int32_t event) ZV_EXCLUDES(_lock);
    /// Does the same. If it throws, and an event was being delivered, `failure` says to which device. The exception
    /// is not in it.
    void processEvent(LiString const &name, std::int32_t event,
                      std::optional<DevMgrFailure> &failure) ZV_EXCLUDES(_lock);
    /// The name of the state in which the device's machine is. Throws `DevMgrEx::NameNotFound`.
    LiString getState(LiString const &name) ZV_EXCLUDES(_lock);

    /// Returns why the device's machine has failed, empty if it has not. Throws `DevMgrEx::NameNotFound`.
    std::optional<DevMgrFailure> getFailure(LiString const &name) ZV_EXCLUDES(_lock);

    /// Gives the tree another observer, or none if it is null. When this has returned, the former one is no longer
    /// called. Blocks while an event is being delivered.
    void setObserver(RCShdPtr<DevSeqObserver> const &observer) ZV_EXCLUDES(_lock);
    /// Returns whether the calling thread is delivering an event of this tree, as it is in an observer's or a device's
    /// function that the tree calls. Does not block.
    bool isDelivering() const;
    /// The lock of all deliveries. Held while several changes are made that must be seen as one.
    LkLock const &getLock() const ZV_RETURN_CAPABILITY(_lock) { return _lock; }

    /// Blocks until every device has stopped or aborted, and returns at once when they have. Any number of threads may
    /// call it, at the same time and again. It does not take the lock of the deliveries. By design it does not return
    /// by itself if a machine ended in `_ill` or `_exc` instead. Throws `RCEx::ExNullPtr` if the tree is empty, and
    /// `DevMgrEx::SequenceAbandoned` if the tree is destroyed, or `releaseWaiters` is called, before all devices have
    /// ended.
    void wait();
    /// Lets all threads go that are in `wait`, and returns when they have left. From now on `wait` does not block.
    void releaseWaiters();

    /// How notifications reach this tree. Never null.
    RCShdPtr<DevSeqTreeLink> const &getLink() const { return _link; }

    /// `( R ( A B ) )`. Throws `RCEx::ExNullPtr` for an empty tree.
    void write(std::ostream &stream) const;

protected:
    /// Waits for the report that is being delivered. Later ones are dropped. Does what `releaseWaiters` does.
    ~DevSeqTree() override;

private:
    class Delivery;
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
    HashMap<std::string_view, DevSeqTreeNode *>
        _nodes ZV_GUARDED_BY(_lock); // by name; the names are the nodes' own
    bool _isIndexed ZV_GUARDED_BY(_lock) = false;
    RCShdPtr<DevSeqObserver> _observer ZV_GUARDED_BY(_lock);
    Replaced *_replaced ZV_GUARDED_BY(_lock) = nullptr; // of the delivery that runs
    unsigned long _deliverer = 0; // the number of its thread, also read without the lock

    LkLock _waitersLock; // a leaf; `wait` reads the tree under it
    List<DevSeqTreeNodeUtil *> _waitedFor
        ZV_GUARDED_BY(_waitersLock); // by each thread in `wait`; null before its first node
    bool _hasReleased ZV_GUARDED_BY(_waitersLock) = false;
    LkUnnamedSema _hasLeft; // posted by each thread that was released
};

/// The tree's text form, as `write` gives it.
ZVRESMGT_EXPORT std::ostream &operator<<(std::ostream &stream, DevSeqTree const &tree);

} // namespace Zv
