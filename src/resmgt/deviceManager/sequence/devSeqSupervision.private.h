// What a supervised sequence is made of: its record, its tree and its thread.
#pragma once

#include "resmgt/deviceManager/access/devMgrSeqSupervisor.h"
#include "resmgt/deviceManager/sequence/devSeqTree.h"
#include "resmgt/deviceProtocol/devMDPrtcl.h"
#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkMutex.h"
#include "resmgt/locks/lkPulse.h"
#include "resmgt/locks/lkThreadId.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/priorityRelation.h"
#include "zvbase/threadAnnotations.h"

#include <cstddef>
#include <exception>

namespace Zv {

/// A supervised sequence. Clients and devices only write into a record, under one lock, which is never held while a
/// device or an observer is called. A thread, the runner, reads the record and acts: it delivers events to the tree,
/// and calls devices and the observer.
///
/// Before the abort, the machines of the tree decide which device is called. In the abort they are not used, and the
/// runner calls the devices directly. If the runner hangs in a device, a client that waits for the abort replaces it.
/// The new runner never touches the tree, whose lock the former one may never release.
///
/// The limits are kept by the clients that wait.
///
/// Completions and notifications keep the record alive. When the last of the client and the runners leaves, the tree
/// and the devices are released, so that no cycle remains.
class DevSeqSupervision final : public RCBase<LkCounter<long>>
{
public:
    struct Member
    {
        LiString name;
        RCShdPtr<DevMDSyncSeqPrtcl> prtcl;
        std::size_t parent; // its place in the list; that of the root is its own
    };

    DevSeqSupervision();

    // For the client.
    /// Builds the tree and starts the runner. Must be called first. The first member is the root, and each other comes
    /// behind its parent. If it throws, `close` must not be called.
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

protected:
    ~DevSeqSupervision() override;

private:
    class Completion;
    class Notification;
    class SupervisedPrtcl;
    class Runner;

    enum Step
    {
        NO_STEP,
        START,
        SYNC,
        RECOVER,
        STOP,
        ABORT,
        LATENCY, // the last two are calls without a step
        MARK,
        NB_STEPS
    };
    /// What a device has reported, as it waits in the queue.
    enum Report : unsigned
    {
        COMPLETED = 1,
        WANTS_RECOVERY = 2,
        WANTS_ABORT = 4
    };
    /// What the observer is told without a step of a machine.
    enum Tell : unsigned
    {
        FAILURE = 1,
        ABORTION = 2,
        END = 4
    };
    enum class Life
    {
        IDLE,
        STARTED, // its `performStart` was called
        ENDED
    };
    using Phase = DevSeqStatus::Phase;
    using End = DevSeqDeviceStatus::End;

    struct Device
    {
        RCShdPtr<DevMDSyncSeqPrtcl> prtcl;
        std::size_t parent = 0;
        unsigned height = 0; // above the lowest device of its subtree
        ObjPtr<Completion> abortCompletion;

        Life life = Life::IDLE;
        End end = End::NONE;
        std::int32_t state = 0;
        double stateSince = 0;
        Step step = NO_STEP; // the last one
        double stepSince = 0;
        std::uint32_t serial = 0; // of the step. A completion of another one is late
        bool isAnswered = true;   // the step
        bool isDropped = false;   // its completion, within the call
        Step call = NO_STEP;
        double callSince = 0;
        bool hasFailed = false;
        LiString failure;
        std::exception_ptr exception; // the same. Null for a completion that was destroyed
        DtTime latency;
        std::uint32_t nbRefused = 0;
        double took[NB_STEPS] = {};
        bool hasTaken[NB_STEPS] = {};
        unsigned reports = 0; // those in the queue
        unsigned tells = 0;
        bool isRecoveryDeferred = false;
        bool isAbortCalled = false;
        bool isLost = false;    // has failed or was told to abort
        bool isSettled = false; // its parent no longer waits for its end
        bool isMarked = false;  // for a walk through the tree
    };

    struct Queued
    {
        std::size_t device;
        Report report;
    };

    struct Task
    {
        enum Kind
        {
            DELIVER,
            CALL_ABORT,
            TELL
        };

        Kind kind;
        std::size_t device;
        std::int32_t number; // of the event or of the state
    };

    using Guard = LkGuard<LkMutex const>;

    // For devices.
    void complete(std::size_t number, std::uint32_t serial);
    /// `failure` is null if the completion was destroyed.
    void drop(std::size_t number, std::uint32_t serial, std::exception_ptr const &failure);
    void report(std::size_t number, Report report);

    // For the runner.
    void startRunner(unsigned runner);
    void run(unsigned runner);
    bool next(unsigned runner, Task &task);
    void execute(Task const &task);
    void deliver(std::size_t number, std::int32_t event);
    void callAbort(std::size_t number);
    void traceFailure(std::size_t number);
    void tell(std::size_t number, std::int32_t state);
    DevMgrFailure getFailure(std::size_t number);
    void leave();

    // For the tree.
    template <class Call>
    void call(std::size_t number, Step step, Completion *completion, Call perform);
    void beginCall(std::size_t number, Step step, Completion *completion);
    bool endCall(std::size_t number, std::exception_ptr const &failure);
    void changed(std::size_t number, std::int32_t state);
    void setLatency(std::size_t number, DtTime const &latency);

    // For clients.
    void build(Vector<Member> const &members);
    void checkWaiting(char const *call) const ZV_REQUIRES(_lock);
    void checkLockable() const ZV_REQUIRES(_lock);
    void shortenLimits(double now, double seconds, double abortSeconds) ZV_REQUIRES(_lock);
    void conclude(char const *call, double seconds, double abortSeconds);
    /// Returns the runner that must be started, because the present one hangs, or 0 at the end.
    unsigned waitForEnd(Guard const &guard) ZV_REQUIRES(_lock);
    void traceEnd();
    double getReplacement() const ZV_REQUIRES(_lock);
    void waitUntil(Guard const &guard, double moment) ZV_REQUIRES(_lock);
    DevSeqStatus makeStatus() const ZV_REQUIRES(_lock);

    bool nextTell(Task &task) ZV_REQUIRES(_lock);
    bool nextDelivery(Task &task) ZV_REQUIRES(_lock);
    bool nextReport(Task &task) ZV_REQUIRES(_lock);
    bool takeReport(std::size_t number, Report report, Task &task) ZV_REQUIRES(_lock);
    bool takeRecovery(std::size_t number, Task &task) ZV_REQUIRES(_lock);
    bool nextDeferred(Task &task) ZV_REQUIRES(_lock);
    bool nextOfStop(Task &task) ZV_REQUIRES(_lock);
    bool nextOfLostParent(Task &task) ZV_REQUIRES(_lock);
    bool nextOfLostChild(Task &task) ZV_REQUIRES(_lock);
    bool nextAbort(double now, double &until, Task &task) ZV_REQUIRES(_lock);
    void checkProgress() ZV_REQUIRES(_lock);
    bool isBlocked() ZV_REQUIRES(_lock);

    static bool isLive(Device const &device);
    static bool isRunning(Device const &device);
    static bool isLocked(Device const &device);
    static bool waitsForChildren(Device const &device);
    static bool waitsForParent(Device const &device);
    bool isOrderly() const ZV_REQUIRES(_lock);
    bool isSubtreeLocked(std::size_t top) ZV_REQUIRES(_lock);

    void beginCallNoLock(Device &device, Step step, Completion *completion) ZV_REQUIRES(_lock);
    void enqueue(std::size_t number, Report report) ZV_REQUIRES(_lock);
    void setState(Device &device, std::int32_t state) ZV_REQUIRES(_lock);
    void lose(Device &device) ZV_REQUIRES(_lock);
    void addTell(Device &device, Tell tell) ZV_REQUIRES(_lock);
    void fail(Device &device, std::exception_ptr const &failure) ZV_REQUIRES(_lock);
    void refuse(std::size_t number, Report report) ZV_REQUIRES(_lock);
    void endAnswered(Device &device) ZV_REQUIRES(_lock);
    void end(Device &device, End end) ZV_REQUIRES(_lock);
    void beginAbort() ZV_REQUIRES(_lock);
    void finish() ZV_REQUIRES(_lock);
    LiString getReason(std::exception_ptr const &failure) const;
    void wakeRunner() ZV_REQUIRES(_lock);
    void wakeClients() ZV_REQUIRES(_lock);

    LkMutex _lock;
    LkPulse _work;    // for the runner
    LkPulse _changed; // for clients
    Vector<LiString> _names;
    Vector<Device> _devices ZV_GUARDED_BY(_lock);
    RCShdPtr<DevSeqTree> _tree; // the first runner's, then that of the last one to leave
    LiString _noReason;
    std::int32_t _failedState;
    Phase _phase ZV_GUARDED_BY(_lock) = Phase::IDLE;
    bool _isStartDelivered ZV_GUARDED_BY(_lock) = false;
    bool _isEndWanted ZV_GUARDED_BY(_lock) = false; // by a client
    bool _isEndTraced ZV_GUARDED_BY(_lock) = false;
    bool _isStopDelivered ZV_GUARDED_BY(_lock) = false;
    std::size_t _nbStarted ZV_GUARDED_BY(_lock) = 0; // whose life is STARTED
    std::size_t _nbLocked ZV_GUARDED_BY(_lock) = 0;
    std::size_t _nbLost ZV_GUARDED_BY(_lock) = 0;
    std::size_t _nbDeferred ZV_GUARDED_BY(_lock) = 0;
    std::size_t _nbTells ZV_GUARDED_BY(_lock) = 0;
    LiString _failure ZV_GUARDED_BY(_lock);
    double _endMoment ZV_GUARDED_BY(_lock) = 0;

    // The queue has room for all reports that there can be.
    Vector<Queued> _queue ZV_GUARDED_BY(_lock);
    std::size_t _first ZV_GUARDED_BY(_lock) = 0;
    std::size_t _nbQueued ZV_GUARDED_BY(_lock) = 0;

    // The limits.
    double _stopEnd ZV_GUARDED_BY(_lock);
    double _abortSeconds ZV_GUARDED_BY(_lock);
    double _abortBegin ZV_GUARDED_BY(_lock) = 0;
    double _abortEnd ZV_GUARDED_BY(_lock) = 0;
    double _endLimit ZV_GUARDED_BY(_lock) = DevMgrSeqSupervisor::DEFAULT_END_LIMIT;

    RCShdPtr<DevSeqObserver> _observer ZV_GUARDED_BY(_lock);
    LiString _observerFailure ZV_GUARDED_BY(_lock);
    std::uint32_t _nbObserverFailures ZV_GUARDED_BY(_lock) = 0;
    bool _isObserverGivenUp ZV_GUARDED_BY(_lock) = false;

    // The runner. Another one than the present one is abandoned.
    ObjPtr<MtThread> _thread;
    ObjPtr<PriorityRelation> _relation;
    unsigned _runner ZV_GUARDED_BY(_lock) = 0;
    LkThreadId _runnerThread ZV_GUARDED_BY(_lock);
    bool _isRunnerWaiting ZV_GUARDED_BY(_lock) = false;
    bool _isRunnerBusy ZV_GUARDED_BY(_lock) = false;
    double _busySince ZV_GUARDED_BY(_lock) = 0;
    bool _isInObserver ZV_GUARDED_BY(_lock) = false;
    bool _isReplacing ZV_GUARDED_BY(_lock) = false;
    bool _isClosing ZV_GUARDED_BY(_lock) = false;
    bool _hasRunnerLeft ZV_GUARDED_BY(_lock) = false;
    std::size_t _nbUsers ZV_GUARDED_BY(_lock) = 1; // the client and the runners
    std::size_t _nbClientsWaiting ZV_GUARDED_BY(_lock) = 0;
};

} // namespace Zv
