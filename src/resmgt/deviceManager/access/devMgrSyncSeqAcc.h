// A client's handle on one tree of devices that start, lock and stop in order.
#pragma once

#include "resmgt/deviceManager/devMgrFailure.h"
#include "resmgt/deviceManager/sequence/devSeqObserver.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/containers.h"
#include "zvbase/objPtr.h"

#include <optional>

namespace Zv {

class DevMgrMediator;

/// Reads a sequence string that names devices and their parent-child order, creates the devices, builds their tree
/// and moves it as a whole. START goes from the root down; when all devices are ready, the root locks with the
/// largest latency of the tree, and each child to its parent's mark. STOP ends the leaves first, the root last.
///
/// The string is one group in round brackets, a name's group holding its children to any depth:
/// `( root ( child child ( grandchild ) child ) )`. White space separates names, and brackets need none.
///
/// One access object holds one tree, which runs once: after `stop` and `wait`, a further run needs a new object. All
/// operations may be called by any thread but those of devices and "DevMgr ANO", also while another thread configures.
/// After `DevMgr::close`, `configure`, `start` and `stop` throw `DevMgrEx::ManagerClosed`.
class ZVRESMGT_EXPORT DevMgrSyncSeqAcc
{
public:
    static ObjPtrRet<DevMgrSyncSeqAcc> create(RCShdPtr<DevMgrMediator> const &mediator);

    /// Stops nothing. Lets the threads go that are in `wait`, and returns when they have left. No thread may be in
    /// another operation. Must not be called by an observer or a device that this object is calling: that fails the
    /// assertion "!isDestroyedByItsOwnCallback", and leaves the devices open for the rest of the process. If this object
    /// is the last of its manager, the destructor does what `DevMgr` says of that. Throws what the destructor of a device
    /// throws.
    virtual ~DevMgrSyncSeqAcc() noexcept(false);

    /// The edges of the string in its order, each a parent and a child, without touching any device. The root's
    /// parent is the empty string. `DevMgrEx::ConfigSyntaxError` for a bad string.
    virtual Vector<Vector<LiString>> parseConfig(LiString const &config) = 0;
    /// Creates and opens the devices and builds the tree; to be called once. `DevMgrEx::ConfigSyntaxError`;
    /// `DevPrtclEx::ExNameNotRegistered` for an unknown device; `DevMgrEx::BadMDPrtclImp` for one without the sequence
    /// protocol; a device that stands twice, or that an earlier call has named, fails an assertion. A further name
    /// behind the root's closed group passes `parseConfig` and is an `RCEx::ExNullPtr` here. After a failure the
    /// devices that were created stay open. A device whose opening has failed before, here or elsewhere, is not opened
    /// again, and does not make this call fail: it gets the steps of the sequence unopened. A standard device then stays
    /// in the state `start`, and `wait` does not return. `DevMgrMediator::getOpenFailure` tells.
    virtual void configure(LiString const &config) = 0;
    /// Delivers START to the root and returns; the devices go on by themselves. Blocks while another event of this tree
    /// is being delivered. Throws `RCEx::ExNullPtr` if the tree is empty, and `DevMgrEx::SMExecutionError` if the
    /// event, or one that follows from it, is for a device whose machine has failed: the events that were still to be
    /// delivered are lost then. An `ExBase` that a device throws leads its machine to the state `_exc` without a
    /// failure of this call. Everything else that a device throws passes, and breaks its machine. If the observer
    /// throws, its first exception passes when all events have been delivered. A second `start` is an illegal event for
    /// the root: this call returns, and the root's machine has failed.
    virtual void start() = 0;
    /// Delivers STOP to the root and returns. A tree that is not in lock yet stops when it has locked. A second `stop`
    /// is an illegal event for the root once the first one has taken effect. Blocks and throws as `start` does.
    virtual void stop() = 0;
    /// Blocks until every device has stopped or finished an abort, also if the tree has not been started yet. Returns at
    /// once when they have. Any number of threads may call it, at the same time and again. By design it does not return
    /// by itself if a device failed or got an illegal event, or if a device aborted while others wait for its next step:
    /// destroy this object on another thread to let the waiting thread go. It may return before the observer is told of
    /// the last state. Throws `RCEx::ExNullPtr` if the tree is empty, and `DevMgrEx::SequenceAbandoned` if this object is
    /// destroyed before all devices have ended, or if the manager was closed before the call.
    virtual void wait() = 0;
    /// Returns the name of the state of the device's sequence machine. It is `_exc` if the device threw an `ExBase`,
    /// and `_ill` after an illegal event. If the device threw something else, it is the state that the machine was in,
    /// or an inner state of a choice, such as `_cs(lock:stop)`. Blocks while an event of this tree is being delivered.
    /// Throws `DevMgrEx::NameNotFound` if the tree has no such device, and `RCEx::ExNullPtr` if it is empty.
    virtual LiString getState(LiString const &name) = 0;
    /// Gives the sequence an observer, which is told of every state that a device's machine comes to, or takes it away
    /// if `observer` is null. When this has returned, the former observer is no longer called. An observer may call
    /// it. Blocks while an event of this tree is being delivered by another thread.
    virtual void setObserver(RCShdPtr<DevSeqObserver> observer) = 0;
    /// Returns why the device's machine has failed: `_exc`, `_ill`, or broken by an exception that is no `ExBase`.
    /// Empty if it has not. Blocks and throws as `getState` does.
    virtual std::optional<DevMgrFailure> getFailure(LiString const &name) = 0;

protected:
    DevMgrSyncSeqAcc() = default;
};

} // namespace Zv
