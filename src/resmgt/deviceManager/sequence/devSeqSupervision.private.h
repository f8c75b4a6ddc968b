// A supervised sequence: its lock, its clients and its devices.
#pragma once

#include "resmgt/deviceManager/access/devMgrSeqSupervisor.h"
#include "resmgt/deviceManager/sequence/devSeqPlan.private.h"
#include "resmgt/deviceManager/sequence/devSeqRecord.private.h"
#include "resmgt/deviceManager/sequence/devSeqRunner.private.h"
#include "resmgt/deviceManager/sequence/devSeqTree.h"
#include "resmgt/deviceProtocol/devMDPrtcl.h"
#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkMutex.h"
#include "zvbase/threadAnnotations.h"

#include <cstddef>
#include <exception>

namespace Zv {

class DevMgrDevice;
class DevSeqCompletion;

/// A supervised sequence. Clients and devices only write into the record, under one lock, which is
/// never held while a device or an observer is called. A thread, the runner, asks the plan for the
/// next task and carries it out. It delivers events to the tree, and calls devices and the
/// observer.
///
/// Before the abort, the machines of the tree decide which device is called. In the abort they are
/// not used, and the runner calls the devices directly. If the runner hangs in a device, a client
/// that waits for the abort replaces it. The new runner never touches the tree, whose lock the
/// former one may never release.
///
/// The clients that wait keep the limits. A runner that is about to make a call looks like one that
/// hangs in the call. So a device may get a call after the status has reported that it was given up
/// in that call. The device is not closed until such a call has returned. If the device was closed
/// before, the call is not made.
///
/// Completions and notifications keep the record alive. When the last of the client and the runners
/// leaves, the tree and the devices are released, so that no cycle remains.
class DevSeqSupervision final : public RCBase<LkCounter<long>>
{
public:
    struct Member
    {
        LiString name;
        RCShdPtr<DevMDSyncSeqPrtcl> prtcl;
        RCShdPtr<DevMgrDevice> device;
        std::size_t parent; // its place in the list; the root is its own parent
    };

    DevSeqSupervision();

    // For the client.
    /// Builds the tree and starts the runner. Must be called first. The first member is the root,
    /// and a parent precedes its children. If `open` throws, `close` must not be called.
    void open(Vector<Member> const &members);
    /// Ends the sequence. Must be called last.
    void close();
    void start();
    bool waitLocked(double seconds);
    DevSeqStatus stop(double seconds, double abortSeconds);
    DevSeqStatus abort(double seconds);
    bool wait(double seconds);
    DevSeqStatus getStatus();
    void setObserver(RCShdPtr<DevSeqObserver> const &observer);
    void setEndLimit(double seconds);

    // For devices, on any thread.
    void complete(std::size_t device, std::uint32_t serial);
    /// `failure` is null if the completion was destroyed.
    void drop(std::size_t device, std::uint32_t serial, std::exception_ptr const &failure);
    void report(std::size_t device, DevSeqRecord::Report report);

    // For the tree, on the thread of the runner that delivers.
    /// Returns false if the device must not be called.
    bool beginCall(std::size_t device, DevSeqRecord::Step step, DevSeqCompletion *completion);
    /// Returns true if the device's machine must go on.
    bool endCall(std::size_t device, std::exception_ptr const &failure);
    void setLatency(std::size_t device, DtTime const &latency);
    void stateChanged(std::size_t device, std::int32_t state);
    void refused(std::size_t device, std::int32_t event);

protected:
    ~DevSeqSupervision() override;

private:
    class RunnerBody;

    using Guard = DevSeqWaiters::Guard;
    using Phase = DevSeqStatus::Phase;

    struct Callee
    {
        LiString name;
        RCShdPtr<DevMDSyncSeqPrtcl> prtcl;
        RCShdPtr<DevMgrDevice> device;
        ObjPtr<DevSeqCompletion> abortCompletion;
    };

    // For clients.
    void build(Vector<Member> const &members);
    void startRunner(unsigned number);
    void checkWaiting(char const *call) const ZV_REQUIRES(_lock);
    void conclude(char const *call, double seconds, double abortSeconds);
    /// Returns 0 when the sequence has ended. Returns the number of the next runner if the present
    /// one hangs and must be replaced.
    unsigned waitForEnd(Guard const &guard) ZV_REQUIRES(_lock);
    double getReplacement() const ZV_REQUIRES(_lock);
    void traceEnd();

    // For the runner.
    void run(unsigned number);
    bool next(unsigned number, DevSeqTask &task);
    void execute(DevSeqTask const &task);
    void deliver(std::size_t device, std::int32_t event);
    void callAbort(std::size_t device);
    void traceFailure(std::size_t device);
    void tell(std::size_t device, std::int32_t state, bool hasFailed);
    DevMgrFailure getFailure(std::size_t device);
    void leave();

    LkMutex _lock;
    DevSeqWaiters _waiters ZV_GUARDED_BY(_lock);
    DevSeqRecord _record ZV_GUARDED_BY(_lock);
    DevSeqPlan _plan ZV_GUARDED_BY(_lock);
    bool _isEndWanted ZV_GUARDED_BY(_lock) = false;
    bool _isEndTraced ZV_GUARDED_BY(_lock) = false;
    double _endLimit ZV_GUARDED_BY(_lock) = DevMgrSeqSupervisor::DEFAULT_END_LIMIT;

    RCShdPtr<DevSeqObserver> _observer ZV_GUARDED_BY(_lock);
    LiString _observerFailure ZV_GUARDED_BY(_lock);
    std::uint32_t _nbObserverFailures ZV_GUARDED_BY(_lock) = 0;
    bool _isObserverGivenUp ZV_GUARDED_BY(_lock) = false;

    DevSeqRunner _runner ZV_GUARDED_BY(_lock);
    bool _isReplacing ZV_GUARDED_BY(_lock) = false;
    bool _isClosing ZV_GUARDED_BY(_lock) = false;
    std::size_t _nbUsers ZV_GUARDED_BY(_lock) = 1; // the client and the runners
    DevSeqRunnerThread _thread; // used by one client at a time, and not under the lock

    // Built before the first runner starts, released when the last user has left.
    Vector<Callee> _callees;
    RCShdPtr<DevSeqTree> _tree; // used by the first runner only
};

} // namespace Zv
