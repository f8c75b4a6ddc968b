// Supervisor that runs a tree of devices and always brings it to an end (applications).
#pragma once

#include "resmgt/deviceManager/sequence/devSeqObserver.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkDuration.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/dtTime.h"
#include "zvbase/objPtr.h"
#include "zvbase/sequenceContainers.h"

#include <cstdint>
#include <iosfwd>

namespace Zv {

class DevMgrMediator;

/// The state of one device in a supervised sequence. Times are in seconds, moments in seconds of
/// the monotonic clock (`Sleeper`).
struct DevSeqDeviceStatus
{
    /// How the device has ended.
    enum class End
    {
        NONE,     ///< the device has not ended, or it was never started
        STOPPED,  ///< it has reported the end of its stop
        ABORTED,  ///< it has reported the end of its abort
        FAILED,   ///< a call or a step of the device has failed, see `failure`
        NO_ANSWER ///< a limit has passed. The call that `call` names may still reach the device
    };
    /// How long the last step of a kind has taken, from the call to the device's report.
    struct StepTime
    {
        LiString step;      ///< the kind of step, such as "start"
        double seconds = 0; ///< how long the step has taken
    };

    /// The name of the device.
    LiString name;
    /// The state of the device's machine, such as "wml". A failed device keeps the state in which
    /// it has failed, until it is told to abort.
    LiString state;
    /// The moment at which the machine entered that state.
    double stateSince = 0;
    /// "start", "sync", "recover", "stop" or "abort" if the device has not finished that step.
    /// Otherwise empty.
    LiString step;
    /// The moment at which that step was called, or 0 if there is none.
    double stepSince = 0;
    /// The name of the step, "getLatency" or "getMark" if that call of the device has not returned.
    /// Otherwise empty.
    LiString call;
    /// The moment of the last call of the device.
    double callSince = 0;
    DtTime latency;              ///< what `getLatency` of the device has returned
    bool hasFailed = false;      ///< a call or a step of the device has failed
    LiString failure;            ///< the reason why it has failed
    std::uint32_t nbRefused = 0; ///< the number of its reports that were illegal at that moment
    End end = End::NONE;         ///< how the device has ended
    Vector<StepTime> stepTimes;  ///< one for each kind of step that the device has finished
    LiString parent;             ///< the name of the device's parent. Empty for the root
};

/// The state of a supervised sequence at one moment.
struct ZVRESMGT_EXPORT DevSeqStatus
{
    /// The part of the sequence's life.
    enum class Phase
    {
        IDLE,     ///< not started yet
        RUNNING,  ///< from `start` on
        STOPPING, ///< the devices end in order
        ABORTING, ///< the devices that have not ended are aborted
        ENDED     ///< no device is called from now on
    };

    Phase phase = Phase::IDLE; ///< the part of its life that the sequence is in
    double moment = 0;         ///< the moment of this status, or that of the end if it has ended
    Vector<DevSeqDeviceStatus> devices; ///< in the order of the configuration string
    LiString failure; ///< of the sequence itself, such as a lack of memory. Empty if there was none
    LiString observerFailure; ///< the first failure of an observer. Empty if there was none
    std::uint32_t nbObserverFailures = 0; ///< the number of failures of observers

    /// Writes the tree of devices in DOT, for Graphviz, with the name and state of each device, and
    /// the reason why it has failed. Devices that have failed or have not answered are red.
    void dumpDot(std::ostream &stream) const;
};

/// Runs one tree of devices. Each call that waits returns within the limits that its caller has
/// chosen, even if devices fail or hang. The returned status names these devices:
///
///     ObjPtr<DevMgr> const manager = DevMgr::create();
///     ObjPtr<DevMgrSeqSupervisor> const sequence =
///         manager->createSeqSupervisor("( recorder ( camera player ) )");
///     sequence->start();
///     if (sequence->waitLocked(10))
///         std::cout << "All devices run.\n";
///     for (DevSeqDeviceStatus const &device : sequence->stop(5).devices)
///         if (device.end != DevSeqDeviceStatus::End::STOPPED)
///             std::cerr << device.name << ": " << device.failure << '\n';
///
/// The tree, its order and its configuration string are those of `DevMgrSyncSeqAcc`. What is
/// different:
///
/// - Devices are called on a thread of the supervisor's own, never on the thread of a client. A
///   device that does not return from a call holds up its own tree only, and that only until the
///   limit of `stop` or `abort` has passed.
/// - A report of a device that is illegal in the present state is refused. It is counted, traced at
///   the level "DevSeqSupervisor", and changes nothing. A recovery that is reported while a part of
///   the device's subtree has not locked yet is carried out when it has. A recovery that is refused
///   during a stop leads to the abort of the device.
/// - A device has failed if it throws from a call, if its standard thread throws from a step, or if
///   it destroys a completion without running it. Other devices go on.
///
/// A sequence runs once. A further run needs a new supervisor. A device that is in several trees
/// gets the steps of each, so let one tree end before the next one starts.
///
/// **Threads**: any thread may call any operation, at any time and any number of times. A call that
/// makes no sense at the moment throws `DevMgrEx::SeqIllegalCall` and changes nothing. From an
/// observer, and from within a call of a device, `waitLocked`, `wait`, `stop` and `abort` throw it
/// as well, because they would wait for themselves. Destroying the supervisor there fails an
/// assertion.
///
/// After `DevMgr::close` the operations do not throw `DevMgrEx::ManagerClosed`. A device that was
/// closed is not called. If the sequence has another step for it, it counts as failed.
///
/// **Limits** are in seconds, and are kept to the millisecond. A negative limit, or one that is no
/// number, is 0. If several threads stop or abort at the same time, the shortest limit counts for
/// all.
///
/// **Memory**: what an abort needs is allocated when the supervisor is created. Only the thread
/// that replaces a thread that hangs in a device, and the returned report, need memory later. The
/// orderly way needs memory for each step: if there is none, the stop goes over to the abort.
class ZVRESMGT_EXPORT DevMgrSeqSupervisor
{
public:
    /// The limit of the destructor, see `setEndLimit`.
    static constexpr double DEFAULT_END_LIMIT = 10;

    /// Creates and opens the devices of the string that are not open yet, builds the tree and
    /// starts the supervisor's thread. Takes the configuration lock. See
    /// `DevMgr::createSeqSupervisor`.
    static ObjPtrRet<DevMgrSeqSupervisor> create(RCShdPtr<DevMgrMediator> const &mediator,
                                                 LiString const &config);

    /// Stops the sequence if it has been started and has not ended. No other thread may be in a
    /// call of this object. A thread that hangs in a device is left behind, and ends when the
    /// device returns. The device is not closed before.
    ///
    /// **Blocks** for the end limit at most. One half of it is for the stop and one half for the
    /// abort. If this object is the last of its manager, it also closes the devices, see `DevMgr`.
    virtual ~DevMgrSeqSupervisor() noexcept(false);

    /// Begins to start the devices, and returns at once. Throws `DevMgrEx::SeqIllegalCall` if the
    /// sequence was started before.
    virtual void start() = 0;
    /// Blocks until every device is in lock. Returns false if the limit has passed. Throws
    /// `DevMgrEx::SeqDeviceFailed` as soon as a device has failed or aborted, because the tree can
    /// no longer lock, and `DevMgrEx::SeqIllegalCall` if the sequence was not started, or if `stop`
    /// or `abort` was called.
    virtual bool waitLocked(double seconds) = 0;
    /// Ends the sequence. The devices stop in order, the leaves first. A failed or aborted device
    /// does not keep the others from that. If devices have not ended after `seconds`, or if a
    /// device waits for one that has failed, so that it can never stop, `stop` goes over to the
    /// abort: each device that was started and has not ended is told to abort once, children before
    /// their parents. After another `abortSeconds` the devices that have not answered are given up.
    ///
    /// A stop during the start or a recovery waits until all devices are in lock. Returns the
    /// status at the end. Later calls return the same one. Throws `DevMgrEx::SeqIllegalCall` if the
    /// sequence was not started.
    ///
    /// A parent is told to abort when its children have answered, or when its share of
    /// `abortSeconds` begins. With an `abortSeconds` of 0 devices are given up without having been
    /// told.
    virtual DevSeqStatus stop(double seconds, double abortSeconds) = 0;
    /// Calls `stop(seconds, seconds)`, which may take twice the limit.
    DevSeqStatus stop(double seconds);
    /// Goes over to the abort at once, also if another thread is in `stop`. Blocks for `seconds` at
    /// most. Returns and throws as `stop` does.
    virtual DevSeqStatus abort(double seconds) = 0;
    /// Blocks until the sequence has ended, also if it ends because each device has aborted. May be
    /// called before `start`. Returns false if the limit has passed.
    virtual bool wait(double seconds) = 0;
    /// Returns the status of this moment. Does not wait for any device.
    virtual DevSeqStatus getStatus() = 0;
    /// Sets the observer, which is told of every state of every device, in order, and of "_exc" if
    /// a device has failed. Null means none.
    ///
    /// The observer is called on the supervisor's thread, without a lock that an operation of this
    /// class needs. So it may call `start`, `getStatus` and `setObserver`. It should return soon,
    /// because the devices wait for it. If it throws, the exception is traced and kept in the
    /// status. If it does not return, it is treated as a device that does not: `stop` and `abort`
    /// go on without it. If the destructor has left it behind, it must not use the supervisor from
    /// then on.
    ///
    /// The last state of a device may be told after `stop`, `abort` or `wait` has returned. The
    /// former observer may still be in a call when this function returns.
    virtual void setObserver(RCShdPtr<DevSeqObserver> observer) = 0;
    /// Sets the limit of the destructor.
    virtual void setEndLimit(double seconds) = 0;

    /// The same operations with the durations of the standard library.
    template <LkDuration Limit>
    bool waitLocked(Limit const &limit)
    {
        return waitLocked(Detail::countSeconds(limit));
    }
    template <LkDuration Limit>
    DevSeqStatus stop(Limit const &limit)
    {
        return stop(Detail::countSeconds(limit));
    }
    template <LkDuration Limit, LkDuration AbortLimit>
    DevSeqStatus stop(Limit const &limit, AbortLimit const &abortLimit)
    {
        return stop(Detail::countSeconds(limit), Detail::countSeconds(abortLimit));
    }
    template <LkDuration Limit>
    DevSeqStatus abort(Limit const &limit)
    {
        return abort(Detail::countSeconds(limit));
    }
    template <LkDuration Limit>
    bool wait(Limit const &limit)
    {
        return wait(Detail::countSeconds(limit));
    }

protected:
    DevMgrSeqSupervisor() = default;
};

} // namespace Zv
