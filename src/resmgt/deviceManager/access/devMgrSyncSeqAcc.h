// A client's handle on one tree of devices that start, lock and stop in order.
#pragma once

#include "resmgt/deviceManager/sequence/devSeqObserver.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/containers.h"
#include "zvbase/objPtr.h"

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
/// operations may be called by any thread but those of devices and "DevMgr ANO".
class ZVRESMGT_EXPORT DevMgrSyncSeqAcc
{
public:
    static ObjPtrRet<DevMgrSyncSeqAcc> create(RCShdPtr<DevMgrMediator> const &mediator);

    virtual ~DevMgrSyncSeqAcc() noexcept(false);

    /// The edges of the string in its order, each a parent and a child, without touching any device. The root's
    /// parent is the empty string. `DevMgrEx::ConfigSyntaxError` for a bad string.
    virtual Vector<Vector<LiString>> parseConfig(LiString const &config) = 0;
    /// Creates and opens the devices and builds the tree; to be called once. `DevMgrEx::ConfigSyntaxError`;
    /// `DevPrtclEx::ExNameNotRegistered` for an unknown device; `DevMgrEx::BadMDPrtclImp` for one without the
    /// sequence protocol; a device that stands twice, or that an earlier call has named, fails an assertion. A further name behind
    /// the root's closed group passes `parseConfig` and is an `RCEx::ExNullPtr` here. After a failure the devices
    /// that were created stay open.
    virtual void configure(LiString const &config) = 0;
    /// Delivers START to the root and returns; the devices go on by themselves. `RCEx::ExNullPtr` on an empty tree,
    /// `DevMgrEx::SMExecutionError` where the root's machine has ended badly: so do the calls below.
    virtual void start() = 0;
    /// Delivers STOP to the root and returns. A tree that is not in lock yet stops when it has locked.
    virtual void stop() = 0;
    /// Blocks until every device has stopped or aborted. Does not return for a tree in which a device failed or got
    /// an illegal event.
    virtual void wait() = 0;
    /// The name of the state in which the device's sequence machine stands. `DevMgrEx::NameNotFound`.
    virtual LiString getState(LiString const &name) = 0;
    /// Who is told of every state that a device's machine comes to; null for nobody.
    virtual void setObserver(RCShdPtr<DevSeqObserver> observer) = 0;

protected:
    DevMgrSyncSeqAcc() = default;
};

} // namespace Zv
