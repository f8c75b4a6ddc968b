// The managed device, its interface for opening and closing, and its interface for sequences
// (device writers).
#pragma once

#include "resmgt/deviceProtocol/devANO.h"
#include "resmgt/export.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "zvbase/dtTime.h"

namespace Zv {

/// A managed device (MD): an object that the device manager finds by name and drives through up to
/// four interfaces (device protocols, Prtcl).
///
/// - `DevMDAccessPrtcl` opens and closes it.
/// - `DevMDSyncSeqPrtcl` starts, synchronises and stops it together with others.
/// - `DevMDStreamPrtcl` offers its streams.
/// - `DevMDPropertyPrtcl` offers its properties.
///
/// Each interface derives from this class virtually, so a device with several interfaces is one
/// object with one reference count. The manager finds out with a run-time cast which interfaces a
/// device has. Most devices derive from `DevMDStdDevice`, which has all four and runs every request
/// on a thread of the device's own.
class ZVRESMGT_EXPORT DevMDPrtcl : public RCBase<LkCounter<long>>
{
protected:
    ~DevMDPrtcl() override;
};

/// The interface of a device that must be opened before it is used. The manager calls both
/// operations on threads of clients.
class ZVRESMGT_EXPORT DevMDAccessPrtcl : public virtual DevMDPrtcl
{
public:
    /// Opens the device and returns when it is open.
    ///
    /// Called once, by the thread that mentions the device first. The manager's configuration lock
    /// is held, so other configuration waits until this call returns. If it throws, the device is
    /// not opened again and not closed.
    virtual void performOpen() = 0;
    /// Closes the device and returns when it is closed.
    ///
    /// Called only if `performOpen` has returned. The caller is the thread that releases the last
    /// reference to the manager and its access objects, or a thread "DevMgr close" of
    /// `DevMgr::close`, which has a stack of 1 MiB. The configuration lock is not held.
    virtual void performClose() = 0;

protected:
    ~DevMDAccessPrtcl() override;
};

/// The interface of a device that takes part in a synchronised sequence. Each operation but the
/// last two begins one step.
///
/// The device must run the completion `aco` exactly once, when the step is finished. It may do so
/// on any thread, even before the call has returned. The completion queues a report for the
/// manager's thread and never blocks.
///
/// **Threads**: the calls are made one at a time. In a supervised sequence they are made on the
/// thread "DevMgr Seq", otherwise on threads of clients and on "DevMgr ANO". At most one step of a
/// device is on its way, besides an abort.
///
/// **Blocks**: the calls run under the lock of the sequence. They must hand the step over and
/// return. They must not wait for the completion of a step, for a property or for a stream, and
/// must not notify of a changed property: the manager's queue may be full, and the thread that
/// empties it may be waiting for that lock.
class ZVRESMGT_EXPORT DevMDSyncSeqPrtcl : public virtual DevMDPrtcl
{
public:
    /// Starts the device. The device keeps `recover` and `abort` as long as it runs. It executes
    /// `recover` if it has lost its lock and wants a recovery, and `abort` if it cannot go on. It
    /// may do so on any thread, but each of the two must be used by one thread at a time, as every
    /// `DevAEO`. Executing one queues a report for the manager's thread and never blocks. If 8
    /// reports of that kind from this device wait in the queue, the report is dropped.
    ///
    /// The device must execute `recover` only while it is in lock. Otherwise a supervisor refuses
    /// the report. In a sequence without supervisor the device's machine fails, because the event
    /// is illegal.
    virtual void performStart(ObjPtr<DevACO> aco, ObjPtr<DevANO> recover, ObjPtr<DevANO> abort) = 0;
    /// Locks the device to the mark of its parent device.
    virtual void performSync(ObjPtr<DevACO> aco, DtTimeMark const &mark) = 0;
    /// Locks the device as the root of the sequence. `latency` is the largest latency of all its
    /// devices.
    virtual void performSync(ObjPtr<DevACO> aco, DtTime const &latency) = 0;
    /// Prepares the device, which has lost its lock, to be locked again.
    virtual void performRecover(ObjPtr<DevACO> aco) = 0;
    /// Stops the device in order.
    virtual void performStop(ObjPtr<DevACO> aco) = 0;
    /// Ends the device at once.
    virtual void performAbort(ObjPtr<DevACO> aco) = 0;
    /// Returns how long the device takes from input to output. Called after each start and each
    /// recovery of the device.
    virtual DtTime getLatency() = 0;
    /// Returns the point of time that the device has locked to. Called after each lock of the
    /// device, and again when a child that has recovered is ready.
    virtual DtTimeMark getMark() = 0;

protected:
    ~DevMDSyncSeqPrtcl() override;
};

} // namespace Zv
