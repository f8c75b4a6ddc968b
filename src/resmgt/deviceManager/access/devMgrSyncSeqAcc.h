// Access object that runs one tree of devices, without supervision (applications).
#pragma once

#include "resmgt/deviceManager/devMgrFailure.h"
#include "resmgt/deviceManager/sequence/devSeqObserver.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/objPtr.h"
#include "zvbase/sequenceContainers.h"

#include <optional>

namespace Zv {

class DevMgrMediator;

/// Runs a tree of devices that start, lock and stop together. A sequence string names the devices
/// and their order:
///
///     ObjPtr<DevMgr> const manager = DevMgr::create();
///     ObjPtr<DevMgrSyncSeqAcc> const sequence = manager->createSyncSeqAcc();
///     sequence->configure("( clock ( camera recorder ) )");
///     sequence->start();
///     sequence->stop();
///     sequence->wait();
///
/// A device that fails or hangs can keep the other devices of the tree from ending.
/// `DevMgrSeqSupervisor` runs the same trees and always ends. Prefer it.
///
/// The start goes from the root down. When all devices are ready, the root locks with the largest
/// latency of the tree, and each child locks to its parent's mark. The stop ends the leaves first
/// and the root last.
///
/// The string is one group in round brackets. The group after a name holds the children of that
/// device, to any depth: `( root ( child child ( grandchild ) child ) )`. White space separates
/// names. Brackets need none.
///
/// An access object has one tree, which runs once. A further run needs a new object. A device that
/// is in several trees gets the steps of each, so let one tree end before the next one starts.
///
/// **Threads**: any thread may call any operation at any time, except the threads of devices and
/// "DevMgr ANO".
///
/// **Throws**: after `DevMgr::close`, `configure`, `start` and `stop` throw
/// `DevMgrEx::ManagerClosed`.
class ZVRESMGT_EXPORT DevMgrSyncSeqAcc
{
public:
    /// Creates an access object for the devices of a mediator. Applications call
    /// `DevMgr::createSyncSeqAcc`.
    [[nodiscard]] static ObjPtrRet<DevMgrSyncSeqAcc>
    create(RCShdPtr<DevMgrMediator> const &mediator);

    /// Wakes the threads in `wait` and returns when they have left it. Stops no device. No thread
    /// may be in another operation. If this object is the last of its manager, the destructor also
    /// closes the devices, see `DevMgr`.
    ///
    /// An observer or a device that this object is calling must not destroy it. That fails the
    /// assertion "!isDestroyedByItsOwnCallback", and the devices stay open until the process ends.
    /// Throws what the destructor of a device throws.
    virtual ~DevMgrSyncSeqAcc() noexcept(false);

    /// Returns the edges of the string in its order, each a parent and a child. The parent of the
    /// root is the empty string. Uses no device. Throws `DevMgrEx::ConfigSyntaxError` if the string
    /// is wrong.
    virtual Vector<Vector<LiString>> parseConfig(LiString const &config) = 0;
    /// Creates and opens the devices that are not open yet, and builds the tree. Must be called
    /// once.
    ///
    /// Throws `DevMgrEx::ConfigSyntaxError` if the string is wrong,
    /// `DevPrtclEx::ExNameNotRegistered` if a device is unknown, `DevMgrEx::BadMDPrtclImp` if a
    /// device has no sequence protocol, and `RCEx::ExNullPtr` if a name follows the closed group of
    /// the root, which `parseConfig` accepts. Passes on what a device throws. Fails an assertion if
    /// a device is named twice, or was named by an earlier call. After a failure the created
    /// devices stay open.
    ///
    /// If the opening of a device has failed before, the device is not opened again, and this call
    /// does not fail. The device gets the steps of the sequence unopened. A standard device then
    /// stays in the state `start`, and `wait` does not return. `DevMgrMediator::getOpenFailure`
    /// returns the failure.
    virtual void configure(LiString const &config) = 0;
    /// Begins to start the devices, and returns. Blocks while another event of this tree is being
    /// delivered. Must be called once. A second start is an illegal event for the root, whose
    /// machine then fails.
    ///
    /// Throws `RCEx::ExNullPtr` if the tree is empty. Throws `DevMgrEx::SMExecutionError` if an
    /// event is for a device whose machine has failed. The events that were still to be delivered
    /// are lost then. If a device throws an `ExBase`, its machine goes to the state `_exc`, and
    /// this call does not throw. Anything else that a device throws is passed on, and breaks its
    /// machine. If the observer throws, its first exception is thrown when all events have been
    /// delivered.
    virtual void start() = 0;
    /// Begins to stop the devices, and returns. If they have not locked yet, they stop when they
    /// have. Must be called once. A second stop is an illegal event for the root after the first
    /// one has taken effect. Blocks and throws like `start`.
    virtual void stop() = 0;
    /// Blocks until every device has stopped or has finished an abort. May be called before
    /// `start`. Any number of threads may call it at the same time, any number of times. It may
    /// return before the observer is called for the last state.
    ///
    /// It does not return if a device has failed or got an illegal event, or if a device has
    /// aborted while others wait for its next step. To release the waiting thread, destroy this
    /// object on another thread.
    ///
    /// Throws `RCEx::ExNullPtr` if the tree is empty. Throws `DevMgrEx::SequenceAbandoned` if this
    /// object is destroyed before all devices have ended, or if the manager was closed before the
    /// call.
    virtual void wait() = 0;
    /// Returns the name of the state of the device's sequence machine. It is `_exc` if the device
    /// threw an `ExBase`, and `_ill` after an illegal event. If the device threw something else, it
    /// is the state that the machine was in, or an inner state of a choice, such as
    /// `_cs(lock:stop)`. Blocks while an event of this tree is being delivered. Throws
    /// `DevMgrEx::NameNotFound` if the tree has no such device, and `RCEx::ExNullPtr` if it is
    /// empty.
    virtual LiString getState(LiString const &name) = 0;
    /// Sets the observer, which is called for every state that a device's machine reaches. Null
    /// means none. The former observer is not called after this function has returned. An observer
    /// may call it. Blocks while another thread delivers an event of this tree.
    virtual void setObserver(RCShdPtr<DevSeqObserver> observer) = 0;
    /// Returns the reason why the device's machine has failed: it is in `_exc` or `_ill`, or was
    /// broken by an exception that is not an `ExBase`. Empty if it has not failed. Blocks and
    /// throws like `getState`.
    virtual std::optional<DevMgrFailure> getFailure(LiString const &name) = 0;

protected:
    DevMgrSyncSeqAcc() = default;
};

} // namespace Zv
