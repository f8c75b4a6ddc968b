#include "resmgt/deviceManager/sequence/devSeqSupervision.private.h"

#include "resmgt/deviceManager/devMgrEx.h"
#include "resmgt/deviceManager/sequence/devSeqEv.h"
#include "resmgt/deviceManager/sequence/devSeqSMTable.h"
#include "resmgt/deviceProtocol/devMDStdAccessPrtcl.h"
#include "resmgt/threads/mtThreadFactory.h"
#include "zvbase/failures.h"
#include "zvbase/firstFailure.private.h"
#include "zvbase/sleeper.h"
#include "zvbase/trace.h"
#include "zvbase/traceCaught.private.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <utility>

namespace Zv {

namespace {

TraceLevel const &traceLevel = *Trace::registerLevel("DevSeqSupervisor", __FILE__);

constexpr double NEVER = std::numeric_limits<double>::infinity();
/// A thread that waits looks at the clock at least this often.
constexpr double LONGEST_WAIT = 10'000;
constexpr double LONGEST_LIMIT = 1e9; // some thirty years

constexpr char const *STEP_NAMES[] = {"",     "start", "sync",       "recover",
                                      "stop", "abort", "getLatency", "getMark"};

/// The machine's numbers of its states, which are in the order of their declaration.
enum State : std::int32_t
{
    INIT_STATE,
    START_STATE,
    WSR_STATE,
    READY_STATE,
    WML_STATE,
    SYNC_STATE,
    LOCK_STATE,
    RECOVER_STATE,
    WSS_STATE,
    STOP_STATE,
    ABORT_STATE,
    FINAL_STATE
};

constexpr char const *STATE_NAMES[] = {"init", "start",   "wsr", "ready", "wml",   "sync",
                                       "lock", "recover", "wss", "stop",  "abort", "final"};

/// Thrown into the machines when they must no longer call devices.
class Abandoned final : public ExBase
{
public:
    Abandoned() : ExBase(__FILE__, __LINE__)
    {
        setReason("The machines of this sequence are not used any more.");
    }
    Abandoned *clone() const override { return new Abandoned(*this); }
};

double getTime()
{
    return Sleeper::getInstance().getTime();
}

double checkedLimit(double seconds)
{
    return seconds > 0 ? std::min(seconds, LONGEST_LIMIT) : 0;
}

/// The reason of a failure. Null means that a completion was destroyed.
LiString describe(std::exception_ptr const &failure)
{
    if (!failure)
        return "It has destroyed a completion without running it.";
    try {
        std::rethrow_exception(failure);
    } catch (ExBase const &exception) {
        return exception.getReason();
    } catch (std::exception const &exception) {
        return exception.what();
    } catch (...) {
        return "An exception of an unknown class.";
    }
}

char const *whyNot(DevSeqStatus::Phase phase)
{
    switch (phase) {
    case DevSeqStatus::Phase::IDLE:
        return "the sequence has not been started.";
    case DevSeqStatus::Phase::RUNNING:
        return "the sequence has been started.";
    case DevSeqStatus::Phase::STOPPING:
        return "the sequence is being stopped.";
    case DevSeqStatus::Phase::ABORTING:
        return "the sequence is being aborted.";
    case DevSeqStatus::Phase::ENDED:
        break;
    }
    return "the sequence has ended.";
}

} // namespace

/// The completion of one step of one device. Only the first event counts: it is run, it is told of a failure, or it is
/// destroyed.
class DevSeqSupervision::Completion final : public DevFailableACO
{
public:
    Completion(DevSeqSupervision &supervision, std::size_t device)
        : _supervision(&supervision), _device(device)
    {}
    ~Completion() override
    {
        if (_serial)
            _supervision->drop(_device, _serial, nullptr);
    }

    void performExecute() override { _supervision->complete(_device, _serial); }
    void performFail(std::exception_ptr const &failure) override
    {
        _supervision->drop(_device, _serial, failure);
    }

    /// The number of the step. It is 0 before the device is asked for the step.
    void setSerial(std::uint32_t serial) { _serial = serial; }

private:
    RCShdPtr<DevSeqSupervision> _supervision;
    std::size_t _device;
    std::uint32_t _serial = 0;
};

/// What a device keeps to report on its own initiative. Whichever way the device goes, executing it as often as it
/// likes, notifying it, or sending it to itself, each of them makes one report.
class DevSeqSupervision::Notification final : public DevANO
{
public:
    Notification(DevSeqSupervision &supervision, std::size_t device, Report report)
        : _supervision(&supervision), _device(device), _report(report)
    {
        setACO(makeACO(
            [supervision = _supervision, device, report] { supervision->report(device, report); }));
    }

    void performExecute() override
    {
        ObjPtr<DevACO> const spent = releaseACO();
        _supervision->report(_device, _report);
    }

private:
    RCShdPtr<DevSeqSupervision> _supervision;
    std::size_t _device;
    Report _report;
};

/// Calls a device on behalf of its machine, and keeps the record. The completions and notifications that the machine
/// gives are not used. The device gets those of the supervision.
class DevSeqSupervision::SupervisedPrtcl final : public DevMDSyncSeqPrtcl, public DevSeqSMGuard
{
public:
    SupervisedPrtcl(DevSeqSupervision &supervision, std::size_t device,
                    RCShdPtr<DevMDSyncSeqPrtcl> const &prtcl)
        : _supervision(supervision), _device(device), _prtcl(prtcl)
    {}

    void performStart(ObjPtr<DevACO>, ObjPtr<DevANO>, ObjPtr<DevANO>) override
    {
        ObjPtr<DevANO> recover = makeObj<Notification>(_supervision, _device, WANTS_RECOVERY);
        ObjPtr<DevANO> abort = makeObj<Notification>(_supervision, _device, WANTS_ABORT);
        perform(START, [&](ObjPtr<DevACO> aco) { _prtcl->performStart(aco, recover, abort); });
    }
    void performSync(ObjPtr<DevACO>, DtTimeMark const &mark) override
    {
        perform(SYNC, [&](ObjPtr<DevACO> aco) { _prtcl->performSync(aco, mark); });
    }
    void performSync(ObjPtr<DevACO>, DtTime const &latency) override
    {
        perform(SYNC, [&](ObjPtr<DevACO> aco) { _prtcl->performSync(aco, latency); });
    }
    void performRecover(ObjPtr<DevACO>) override
    {
        perform(RECOVER, [this](ObjPtr<DevACO> aco) { _prtcl->performRecover(aco); });
    }
    void performStop(ObjPtr<DevACO>) override
    {
        perform(STOP, [this](ObjPtr<DevACO> aco) { _prtcl->performStop(aco); });
    }
    void performAbort(ObjPtr<DevACO>) override
    {
        perform(ABORT, [this](ObjPtr<DevACO> aco) { _prtcl->performAbort(aco); });
    }
    DtTime getLatency() override
    {
        DtTime latency;
        _supervision.call(_device, LATENCY, nullptr, [&] { latency = _prtcl->getLatency(); });
        _supervision.setLatency(_device, latency);
        return latency;
    }
    DtTimeMark getMark() override
    {
        DtTimeMark mark;
        _supervision.call(_device, MARK, nullptr, [&] { mark = _prtcl->getMark(); });
        return mark;
    }

    void stateChanged(std::int32_t state) override { _supervision.changed(_device, state); }
    void refused(std::int32_t event) override
    {
        ZV_TRACE(traceLevel, _supervision._names[_device]
                                 << ": \""
                                 << DevSeqSMTable::getInstance().getTable()->getEventName(event)
                                 << "\" refused");
    }

private:
    template <class Call>
    void perform(Step step, Call performStep)
    {
        auto * const completion = new Completion(_supervision, _device);
        ObjPtr<DevACO> aco(completion);
        _supervision.call(_device, step, completion, [&] { performStep(aco); });
    }

    DevSeqSupervision &_supervision; // which owns the tree
    std::size_t _device;
    RCShdPtr<DevMDSyncSeqPrtcl> _prtcl;
};

/// The body of a runner's thread.
class DevSeqSupervision::Runner final : public MtThreadProtocol
{
public:
    Runner(DevSeqSupervision &supervision, unsigned number)
        : _supervision(&supervision), _number(number)
    {}

    // The thread of a runner that was left behind keeps this object, but not the sequence.
    void performExecute(MtThread *) override
    {
        RCShdPtr<DevSeqSupervision> const supervision(std::move(_supervision));
        supervision->run(_number);
    }

private:
    RCShdPtr<DevSeqSupervision> _supervision;
    unsigned _number;
};

DevSeqSupervision::DevSeqSupervision()
    : _lock("DevSeqSupervision"),
      _work("DevSeqSupervision work", LkPulse::WAKE_ALL),
      _changed("DevSeqSupervision changed", LkPulse::WAKE_ALL),
      _tree(new DevSeqTree),
      _noReason("There is no memory for the reason."),
      _failedState(DevSeqSMTable::getInstance().getTable()->getState("_exc")),
      _stopEnd(NEVER),
      _abortSeconds(NEVER)
{
    DevSMTable const &table = *DevSeqSMTable::getInstance().getTable();
    for (std::int32_t state = INIT_STATE; state <= FINAL_STATE; ++state)
        ZV_ASSERT(table.getStateName(state) == STATE_NAMES[state]);
}

DevSeqSupervision::~DevSeqSupervision() = default;

// ---- The client's side.

void DevSeqSupervision::open(Vector<Member> const &members)
{
    try {
        build(members);
        startRunner(1);
    } catch (...) {
        leave();
        throw;
    }
}

// Not in the constructor: completions count on this object.
void DevSeqSupervision::build(Vector<Member> const &members)
{
    Guard const guard(_lock);
    Vector<RCShdPtr<DevSeqTreeNode>> nodes;
    for (Member const &member : members)
        _names.push_back(member.name);
    _devices.resize(members.size());
    _queue.resize(3 * members.size());
    for (std::size_t i = 0; i < members.size(); ++i) {
        Device &device = _devices[i];
        device.prtcl = members[i].prtcl;
        device.parent = members[i].parent;
        device.abortCompletion = makeObj<Completion>(*this, i);
        auto * const supervised = new SupervisedPrtcl(*this, i, device.prtcl);
        RCShdPtr<DevMDSyncSeqPrtcl> const prtcl(supervised);
        nodes.push_back(DevSeqTreeNode::create(_names[i], makeShd<DevSeqPrtclUtil>(prtcl)));
        nodes[i]->setGuard(supervised);
        if (i == 0)
            _tree->setRoot(nodes[0]);
        else
            _tree->attach(nodes[device.parent], nodes[i]);
    }
    for (std::size_t i = members.size(); i-- > 1;) {
        Device &parent = _devices[_devices[i].parent];
        parent.height = std::max(parent.height, _devices[i].height + 1);
    }
}

/// Starts a runner, and leaves the former one behind if there is one.
void DevSeqSupervision::startRunner(unsigned runner)
{
    {
        Guard const guard(_lock);
        ++_nbUsers;
        _runner = runner;
        _runnerThread.reset();
        _isInObserver = false;
        _isRunnerBusy = true;
        _busySince = getTime();
    }
    try {
        ObjPtr<MtThread> thread = MtThreadFactory::getInstance().createThread(
            "DevMgr Seq", makeObj<Runner>(*this, runner), true, 0);
        ObjPtr<PriorityRelation> relation =
            makeObj<PriorityRelation>("DevMgr Seq", DevMDStdAccessPrtcl::getPriority(),
                                      PriorityRelation::EQUAL, thread->getPriority());
        try {
            thread->start();
        } catch (...) {
            // What has failed may have come after the thread's beginning.
            if (!thread->isRunning())
                throw;
            traceCaught(__FILE__, __LINE__);
        }
        static_cast<void>(_thread.release());
        static_cast<void>(_relation.release());
        _thread = std::move(thread);
        _relation = std::move(relation);
    } catch (...) {
        Guard const guard(_lock);
        --_nbUsers;
        throw;
    }
}

void DevSeqSupervision::close()
{
    bool isOnRunner = false;
    bool hasLeft = false;
    double limit = 0;
    double end = 0;
    Phase phase = Phase::IDLE;
    {
        Guard const guard(_lock);
        isOnRunner = _runnerThread.isCurrentThread();
        limit = _endLimit;
        end = getTime() + limit;
        phase = _phase;
    }
    if (!isOnRunner && phase != Phase::IDLE)
        conclude("close", limit / 2, limit / 2);
    {
        Guard const guard(_lock);
        if (_phase == Phase::IDLE)
            finish();
        _isClosing = true;
        wakeRunner();
        // A runner that is not busy ends at once.
        while (!isOnRunner && !_hasRunnerLeft && (!_isRunnerBusy || getTime() < end))
            waitUntil(guard, end);
        hasLeft = _hasRunnerLeft;
        if (!hasLeft)
            _runner = 0;
    }
    if (hasLeft) {
        _thread->join();
        _relation = nullptr;
        _thread = nullptr;
    } else {
        static_cast<void>(_relation.release());
        static_cast<void>(_thread.release());
    }
    leave();
    ZV_ASSERT_IN_DESTRUCTOR(!isOnRunner);
}

void DevSeqSupervision::start()
{
    Guard const guard(_lock);
    if (_phase != Phase::IDLE)
        ZV_THROW(DevMgrEx::SeqIllegalCall, "start", whyNot(_phase));
    _phase = Phase::RUNNING;
    wakeRunner();
}

bool DevSeqSupervision::waitLocked(double seconds)
{
    Guard const guard(_lock);
    checkWaiting("waitLocked");
    double const end = getTime() + checkedLimit(seconds);
    for (;;) {
        if (_phase == Phase::IDLE || _isEndWanted)
            ZV_THROW(DevMgrEx::SeqIllegalCall, "waitLocked", whyNot(_phase));
        checkLockable();
        if (_nbLocked == _devices.size())
            return true;
        if (getTime() >= end)
            return false;
        waitUntil(guard, end);
    }
}

DevSeqStatus DevSeqSupervision::stop(double seconds, double abortSeconds)
{
    conclude("stop", checkedLimit(seconds), checkedLimit(abortSeconds));
    return getStatus();
}

DevSeqStatus DevSeqSupervision::abort(double seconds)
{
    conclude("abort", 0, checkedLimit(seconds));
    return getStatus();
}

bool DevSeqSupervision::wait(double seconds)
{
    Guard const guard(_lock);
    checkWaiting("wait");
    double const end = getTime() + checkedLimit(seconds);
    while (_phase != Phase::ENDED) {
        if (getTime() >= end)
            return false;
        waitUntil(guard, end);
    }
    return true;
}

DevSeqStatus DevSeqSupervision::getStatus()
{
    Guard const guard(_lock);
    return makeStatus();
}

void DevSeqSupervision::setObserver(RCShdPtr<DevSeqObserver> const &observer)
{
    RCShdPtr<DevSeqObserver> former(observer); // ends without the lock
    Guard const guard(_lock);
    former.swap(_observer);
}

void DevSeqSupervision::setEndLimit(double seconds)
{
    Guard const guard(_lock);
    _endLimit = checkedLimit(seconds);
}

void DevSeqSupervision::checkWaiting(char const *call) const
{
    if (_runnerThread.isCurrentThread())
        ZV_THROW(DevMgrEx::SeqIllegalCall, call, "it would wait for the thread that calls it.");
}

void DevSeqSupervision::checkLockable() const
{
    if (!_failure.isEmpty())
        ZV_THROW(DevMgrEx::SeqDeviceFailed, _names[0].getChars(), _failure.getChars());
    for (std::size_t i = 0; _nbLost && i < _devices.size(); ++i) {
        if (_devices[i].hasFailed)
            ZV_THROW(DevMgrEx::SeqDeviceFailed, _names[i].getChars(),
                     _devices[i].failure.getChars());
        if (_devices[i].isAbortCalled)
            ZV_THROW(DevMgrEx::SeqDeviceFailed, _names[i].getChars(), "It has aborted.");
    }
}

void DevSeqSupervision::shortenLimits(double now, double seconds, double abortSeconds)
{
    _stopEnd = std::min(_stopEnd, now + seconds);
    _abortSeconds = std::min(_abortSeconds, abortSeconds);
    if (_phase == Phase::ABORTING) {
        _abortEnd = std::min(_abortEnd, now + seconds + abortSeconds);
        wakeRunner(); // the turns of the devices come earlier
    }
}

/// Brings the sequence to its end, within the limits of this caller at the latest.
void DevSeqSupervision::conclude(char const *call, double seconds, double abortSeconds)
{
    Guard guard(_lock);
    checkWaiting(call);
    if (_phase == Phase::IDLE)
        ZV_THROW(DevMgrEx::SeqIllegalCall, call, whyNot(_phase));
    _isEndWanted = true;
    shortenLimits(getTime(), seconds, abortSeconds);
    if (_phase == Phase::RUNNING) {
        _phase = Phase::STOPPING;
        wakeRunner();
        wakeClients();
    }
    while (unsigned const runner = waitForEnd(guard)) {
        guard.unlock();
        try {
            startRunner(runner);
        } catch (...) {
            traceCaught(__FILE__, __LINE__); // tried again while there is time
        }
        guard.relock();
        _isReplacing = false;
    }
    bool const isFirst = !std::exchange(_isEndTraced, true);
    guard.unlock();
    if (isFirst)
        traceEnd();
}

void DevSeqSupervision::traceEnd()
{
    try {
        for (DevSeqDeviceStatus const &device : getStatus().devices)
            if (device.end == End::NO_ANSWER)
                ZV_TRACE(*Trace::MainTraceLevel,
                         "Device \"" << device.name << "\" was given up. It has not answered \""
                                     << (device.step.isEmpty() ? device.call : device.step)
                                     << "\"");
    } catch (...) {
        traceCaught(__FILE__, __LINE__);
    }
}

unsigned DevSeqSupervision::waitForEnd(Guard const &guard)
{
    while (_phase != Phase::ENDED) {
        double const now = getTime();
        if (_phase == Phase::STOPPING && now >= _stopEnd)
            beginAbort();
        if (_phase == Phase::STOPPING) {
            waitUntil(guard, _stopEnd);
        } else if (_phase == Phase::ABORTING && now >= _abortEnd) {
            finish();
        } else if (_phase == Phase::ABORTING) {
            double const replacement = getReplacement();
            if (now >= replacement) {
                _isReplacing = true;
                if (_isInObserver)
                    _isObserverGivenUp = true;
                return _runner + 1;
            }
            waitUntil(guard, std::min(_abortEnd, replacement));
        }
    }
    return 0;
}

/// Returns the moment at which the runner counts as hanging. If each device hangs, half of the limit is enough to
/// replace all their runners.
double DevSeqSupervision::getReplacement() const
{
    if (!_isRunnerBusy || _isReplacing)
        return NEVER;
    double const patience =
        (_abortEnd - _abortBegin) / (2.0 * static_cast<double>(_devices.size() + 1));
    return std::max(_busySince, _abortBegin) + patience;
}

void DevSeqSupervision::waitUntil(Guard const &guard, double moment)
{
    struct Waiting
    {
        std::size_t &nb;
        ~Waiting() { --nb; }
    };
    double const seconds = std::clamp(moment - getTime(), 0.001, LONGEST_WAIT);
    Waiting const waiting{++_nbClientsWaiting};
    static_cast<void>(_changed.timedWaitNextPulse(guard, seconds));
}

DevSeqStatus DevSeqSupervision::makeStatus() const
{
    DevSMTable const &table = *DevSeqSMTable::getInstance().getTable();
    DevSeqStatus status;
    status.phase = _phase;
    status.moment = _phase == Phase::ENDED ? _endMoment : getTime();
    status.failure = _failure;
    status.observerFailure = _observerFailure;
    status.nbObserverFailures = _nbObserverFailures;
    status.devices.reserve(_devices.size());
    for (std::size_t i = 0; i < _devices.size(); ++i) {
        Device const &device = _devices[i];
        DevSeqDeviceStatus &copy = status.devices.emplace_back();
        copy.name = _names[i];
        copy.state = table.getStateName(device.state);
        copy.stateSince = device.stateSince;
        if (!device.isAnswered) {
            copy.step = STEP_NAMES[device.step];
            copy.stepSince = device.stepSince;
        }
        copy.call = STEP_NAMES[device.call];
        copy.callSince = device.callSince;
        copy.latency = device.latency;
        copy.hasFailed = device.hasFailed;
        copy.failure = device.failure;
        copy.nbRefused = device.nbRefused;
        copy.end = device.end;
        for (int step = START; step < NB_STEPS; ++step)
            if (device.hasTaken[step])
                copy.stepTimes.push_back({STEP_NAMES[step], device.took[step]});
    }
    return status;
}

// ---- The devices' side.

void DevSeqSupervision::complete(std::size_t number, std::uint32_t serial)
{
    Guard const guard(_lock);
    if (_phase == Phase::ENDED)
        return;
    Device &device = _devices[number];
    if (serial != device.serial || device.isAnswered)
        return refuse(number, COMPLETED);
    device.isAnswered = true;
    device.took[device.step] = getTime() - device.stepSince;
    device.hasTaken[device.step] = true;
    if (_phase == Phase::ABORTING) {
        if (device.call == NO_STEP)
            endAnswered(device);
    } else {
        enqueue(number, COMPLETED);
    }
}

// Within a call the exception that follows may say more.
void DevSeqSupervision::drop(std::size_t number, std::uint32_t serial,
                             std::exception_ptr const &failure)
{
    Guard const guard(_lock);
    if (_phase == Phase::ENDED)
        return;
    Device &device = _devices[number];
    if (serial != device.serial || device.isAnswered)
        return;
    if (!failure && device.call != NO_STEP)
        device.isDropped = true;
    else
        fail(device, failure);
}

void DevSeqSupervision::report(std::size_t number, Report report)
{
    Guard const guard(_lock);
    if (_phase == Phase::ENDED)
        return;
    Device &device = _devices[number];
    if (device.reports & report || _phase == Phase::ABORTING)
        return refuse(number, report);
    enqueue(number, report);
}

void DevSeqSupervision::enqueue(std::size_t number, Report report)
{
    if (_devices[number].reports & report)
        return;
    _devices[number].reports |= report;
    _queue[(_first + _nbQueued++) % _queue.size()] = {number, report};
    wakeRunner();
}

// ---- The runner.

void DevSeqSupervision::run(unsigned runner)
{
    {
        Guard const guard(_lock);
        if (runner == _runner)
            _runnerThread.setCurrentThread();
    }
    Task task = {};
    while (next(runner, task))
        execute(task);
    {
        Guard const guard(_lock);
        if (runner == _runner) {
            _hasRunnerLeft = true;
            wakeClients();
        }
    }
    try {
        leave();
    } catch (...) { // a device was destroyed here, because the client had left before
        traceCaught(__FILE__, __LINE__);
    }
}

/// Blocks until there is something to do. Returns false if the runner is no longer needed.
bool DevSeqSupervision::next(unsigned runner, Task &task)
{
    Guard const guard(_lock);
    if (runner != _runner)
        return false;
    _isRunnerBusy = false;
    for (;;) {
        double const now = getTime();
        double until = now + LONGEST_WAIT;
        bool hasTask = nextTell(task);
        if (!hasTask && _isClosing)
            return false;
        if (!hasTask && isOrderly())
            hasTask = nextDelivery(task);
        if (!hasTask && _phase == Phase::ABORTING)
            hasTask = nextAbort(now, until, task);
        if (hasTask) {
            _isRunnerBusy = true;
            _busySince = now;
            if (_phase == Phase::ABORTING)
                wakeClients(); // they check whether it hangs
            return true;
        }
        if (_nbTells)
            continue;
        _isRunnerWaiting = true;
        static_cast<void>(_work.timedWaitNextPulse(guard, std::max(until - now, 0.001)));
        _isRunnerWaiting = false;
        if (runner != _runner)
            return false;
    }
}

void DevSeqSupervision::execute(Task const &task)
{
    switch (task.kind) {
    case Task::DELIVER:
        return deliver(task.device, task.number);
    case Task::CALL_ABORT:
        return callAbort(task.device);
    case Task::TELL:
        if (task.number == _failedState)
            traceFailure(task.device);
        return tell(task.device, task.number);
    }
}

void DevSeqSupervision::traceFailure(std::size_t number)
{
    LiString reason;
    {
        Guard const guard(_lock);
        reason = _devices[number].failure;
    }
    ZV_TRACE(*Trace::MainTraceLevel, "Device \"" << _names[number] << "\" has failed: " << reason);
}

// The tree throws only if there is no memory, or if a machine is wrong.
void DevSeqSupervision::deliver(std::size_t number, std::int32_t event)
{
    try {
        _tree->processEvent(_names[number], event);
    } catch (...) {
        std::exception_ptr const failure = std::current_exception();
        Guard const guard(_lock);
        if (_failure.isEmpty())
            _failure = getReason(failure);
        wakeClients();
    }
}

void DevSeqSupervision::callAbort(std::size_t number)
{
    RCShdPtr<DevMDSyncSeqPrtcl> prtcl;
    ObjPtr<DevACO> completion;
    {
        Guard const guard(_lock);
        prtcl = _devices[number].prtcl;
        completion = _devices[number].abortCompletion;
    }
    std::exception_ptr failure;
    try {
        prtcl->performAbort(completion);
    } catch (...) {
        failure = std::current_exception();
    }
    endCall(number, failure);
}

void DevSeqSupervision::tell(std::size_t number, std::int32_t state)
{
    RCShdPtr<DevSeqObserver> observer;
    {
        Guard const guard(_lock);
        if (_observer.isNull() || _isObserverGivenUp || !_runnerThread.isCurrentThread())
            return;
        observer = _observer;
        _isInObserver = true;
        _busySince = getTime();
    }
    std::exception_ptr failure;
    try {
        observer->stateChanged(_names[number],
                               DevSeqSMTable::getInstance().getTable()->getStateName(state));
        if (state == _failedState)
            observer->machineFailed(getFailure(number));
        observer = nullptr;
    } catch (...) {
        traceCaught(__FILE__, __LINE__);
        failure = std::current_exception();
    }
    Guard const guard(_lock);
    if (!_runnerThread.isCurrentThread())
        return;
    _isInObserver = false;
    _busySince = getTime();
    if (failure && _nbObserverFailures++ == 0)
        _observerFailure = getReason(failure);
}

DevMgrFailure DevSeqSupervision::getFailure(std::size_t number)
{
    Guard const guard(_lock);
    Device const &device = _devices[number];
    DevMgrFailure failure;
    failure.device = _names[number];
    failure.state = DevSeqSMTable::getInstance().getTable()->getStateName(device.state);
    failure.exception =
        device.exception ? device.exception
                         : std::make_exception_ptr(std::runtime_error(device.failure.getChars()));
    return failure;
}

/// Releases the tree and the devices when the last of the client and the runners leaves. Completions that devices hold
/// keep the empty record only.
void DevSeqSupervision::leave()
{
    Vector<Device> devices;
    RCShdPtr<DevSeqTree> tree;
    RCShdPtr<DevSeqObserver> observer;
    {
        Guard const guard(_lock);
        if (--_nbUsers > 0)
            return;
        _phase = Phase::ENDED;
        devices.swap(_devices);
        tree.swap(_tree);
        observer.swap(_observer);
    }
    FirstFailure failure;
    failure.attempt([&observer] { observer = nullptr; });
    failure.attempt([&tree] { tree = nullptr; });
    for (Device &device : devices) {
        failure.attempt([&device] { device.abortCompletion = nullptr; });
        failure.attempt([&device] { device.prtcl = nullptr; });
    }
    failure.rethrow();
}

// ---- The tree's side: on the thread of the runner that delivers.

template <class Call>
void DevSeqSupervision::call(std::size_t number, Step step, Completion *completion, Call perform)
{
    beginCall(number, step, completion);
    std::exception_ptr failure;
    try {
        perform();
    } catch (...) {
        failure = std::current_exception();
    }
    bool const isWanted = endCall(number, failure);
    if (failure)
        ZV_THROW(DevMgrEx::SeqDeviceFailed, _names[number].getChars(),
                 getReason(failure).getChars());
    if (!isWanted)
        throw Abandoned();
}

void DevSeqSupervision::beginCall(std::size_t number, Step step, Completion *completion)
{
    Guard const guard(_lock);
    if (!isOrderly() || _devices[number].hasFailed)
        throw Abandoned();
    Device &device = _devices[number];
    if (step == START) {
        device.life = Life::STARTED;
        ++_nbStarted;
    }
    beginCallNoLock(device, step, completion);
}

void DevSeqSupervision::beginCallNoLock(Device &device, Step step, Completion *completion)
{
    double const now = getTime();
    if (completion) {
        ++device.serial;
        device.step = step;
        device.stepSince = now;
        device.isAnswered = false;
        device.isDropped = false;
        completion->setSerial(device.serial);
    }
    if (step == ABORT) {
        device.isAbortCalled = true;
        lose(device);
    }
    device.call = step;
    device.callSince = now;
    _busySince = now;
}

/// Returns whether the machines go on.
bool DevSeqSupervision::endCall(std::size_t number, std::exception_ptr const &failure)
{
    Guard const guard(_lock);
    if (_phase == Phase::ENDED)
        return false;
    Device &device = _devices[number];
    Step const step = std::exchange(device.call, NO_STEP);
    if (_runnerThread.isCurrentThread())
        _busySince = getTime();
    if (failure || (device.isDropped && !device.isAnswered))
        fail(device, failure);
    if (failure && step == START)
        end(device, End::FAILED); // it has not begun to run
    if (_phase == Phase::ABORTING) {
        endAnswered(device);
        wakeRunner();
    }
    return isOrderly();
}

void DevSeqSupervision::changed(std::size_t number, std::int32_t state)
{
    {
        Guard const guard(_lock);
        if (!isOrderly())
            return;
        Device &device = _devices[number];
        if (!DevSeqSMTable::getInstance().getTable()->isPrimaryState(state)) {
            // A device that has thrown has failed already.
            if (!device.hasFailed)
                fail(device, std::make_exception_ptr(
                                 std::runtime_error("Its sequence machine has failed.")));
            return;
        }
        setState(device, state);
        if (state == FINAL_STATE)
            end(device, !device.isAbortCalled ? End::STOPPED : End::ABORTED);
        wakeClients();
        if (_observer.isNull())
            return;
    }
    tell(number, state);
}

void DevSeqSupervision::setLatency(std::size_t number, DtTime const &latency)
{
    Guard const guard(_lock);
    if (isOrderly())
        _devices[number].latency = latency;
}

// ---- What is to be done next.

bool DevSeqSupervision::nextTell(Task &task)
{
    for (std::size_t i = _devices.size(); _nbTells && i-- > 0;) {
        Device &device = _devices[i];
        for (Tell const tell : {FAILURE, ABORTION, END}) {
            if (!(device.tells & tell))
                continue;
            device.tells &= ~static_cast<unsigned>(tell);
            --_nbTells;
            task = {Task::TELL, i,
                    tell == ABORTION ? ABORT_STATE
                    : tell == END    ? FINAL_STATE
                                     : _failedState};
            return true;
        }
    }
    return false;
}

bool DevSeqSupervision::nextDelivery(Task &task)
{
    if (!_isStartDelivered) {
        _isStartDelivered = true;
        task = {Task::DELIVER, 0, DevSeqEv::START};
        return true;
    }
    if (nextReport(task) || nextDeferred(task) || nextOfStop(task))
        return true;
    checkProgress();
    return false;
}

bool DevSeqSupervision::nextReport(Task &task)
{
    while (_nbQueued) {
        Queued const queued = _queue[_first];
        _first = (_first + 1) % _queue.size();
        --_nbQueued;
        Device &device = _devices[queued.device];
        device.reports &= ~static_cast<unsigned>(queued.report);
        if (takeReport(queued.device, queued.report, task))
            return true;
    }
    return false;
}

/// Returns whether the report makes a task.
bool DevSeqSupervision::takeReport(std::size_t number, Report report, Task &task)
{
    Device &device = _devices[number];
    if (report == WANTS_RECOVERY)
        return takeRecovery(number, task);
    std::int32_t const event = report == WANTS_ABORT  ? DevSeqEv::ABORT
                               : device.step == SYNC  ? DevSeqEv::LOCK
                               : device.step == STOP  ? DevSeqEv::STOPPED
                               : device.step == ABORT ? DevSeqEv::ABORTED
                                                      : DevSeqEv::READY;
    if (report == COMPLETED && (device.hasFailed || !device.isAnswered))
        return false; // of a step that no machine waits for now
    if (device.life != Life::STARTED || device.hasFailed ||
        !DevSeqSMTable::getInstance().isLegal(device.state, event)) {
        refuse(number, report);
        return false;
    }
    task = {Task::DELIVER, number, event};
    return true;
}

bool DevSeqSupervision::takeRecovery(std::size_t number, Task &task)
{
    Device &device = _devices[number];
    if (isLive(device) && device.state == LOCK_STATE && !_isStopDelivered) {
        if (isSubtreeLocked(number)) {
            task = {Task::DELIVER, number, DevSeqEv::RECOVER};
            return true;
        }
        if (!device.isRecoveryDeferred) {
            device.isRecoveryDeferred = true;
            ++_nbDeferred;
            return false;
        }
    }
    refuse(number, WANTS_RECOVERY);
    task = {Task::DELIVER, number, DevSeqEv::ABORT};
    return _phase == Phase::STOPPING && isLive(device);
}

bool DevSeqSupervision::nextDeferred(Task &task)
{
    for (std::size_t i = 0; _nbDeferred && i < _devices.size(); ++i) {
        Device &device = _devices[i];
        if (!device.isRecoveryDeferred)
            continue;
        // Its parent may have taken it along meanwhile.
        bool const isObsolete = !isLive(device) || device.state != LOCK_STATE;
        if (!isObsolete && !_isStopDelivered && !isSubtreeLocked(i))
            continue;
        device.isRecoveryDeferred = false;
        --_nbDeferred;
        if (!isObsolete && takeRecovery(i, task))
            return true;
    }
    return false;
}

/// The stop is delivered when each live device is in lock. So no event of the stop meets another state. A device that
/// is lost cannot pass the stop on. That is done for it.
bool DevSeqSupervision::nextOfStop(Task &task)
{
    if (_phase != Phase::STOPPING)
        return false;
    if (!_isStopDelivered) {
        if (_nbLocked != _devices.size() &&
            std::any_of(_devices.begin(), _devices.end(),
                        [](Device const &device) { return isLive(device) && !isLocked(device); }))
            return false;
        _isStopDelivered = true;
        if (isLive(_devices[0])) {
            task = {Task::DELIVER, 0, DevSeqEv::STOP};
            return true;
        }
    }
    return _nbLost && (nextOfLostParent(task) || nextOfLostChild(task));
}

bool DevSeqSupervision::nextOfLostParent(Task &task)
{
    for (std::size_t i = 1; i < _devices.size(); ++i)
        if (isLive(_devices[i]) && isLocked(_devices[i]) && !isLive(_devices[_devices[i].parent])) {
            task = {Task::DELIVER, i, DevSeqEv::STOP};
            return true;
        }
    return false;
}

/// A lost device counts for its parent as stopped when nothing in its subtree runs.
bool DevSeqSupervision::nextOfLostChild(Task &task)
{
    for (Device &device : _devices)
        device.isMarked = isRunning(device);
    for (std::size_t i = _devices.size(); i-- > 1;) {
        Device &device = _devices[i];
        Device &parent = _devices[device.parent];
        if (device.isMarked) {
            parent.isMarked = true;
        } else if (device.end != End::STOPPED && !device.isSettled && isLive(parent) &&
                   parent.state == WSS_STATE) {
            device.isSettled = true;
            task = {Task::DELIVER, device.parent, DevSeqEv::SSTOPPED};
            return true;
        }
    }
    return false;
}

void DevSeqSupervision::checkProgress()
{
    if (_nbStarted == 0)
        return finish();
    if (_phase != Phase::STOPPING)
        return;
    if (!_failure.isEmpty() || std::none_of(_devices.begin(), _devices.end(), isRunning) ||
        (_nbLost && isBlocked()))
        beginAbort();
}

/// Returns whether a device waits for one that is lost, so that it can never stop. The first loop looks for devices
/// that wait for their children, the second one for those that wait for their parents.
bool DevSeqSupervision::isBlocked()
{
    for (Device &device : _devices)
        device.isMarked = false;
    bool isAny = false;
    for (std::size_t i = _devices.size(); i-- > 1;) {
        Device const &device = _devices[i];
        Device &parent = _devices[device.parent];
        if (isLive(parent) && waitsForChildren(parent) && (!isLive(device) || device.isMarked))
            isAny = parent.isMarked = true;
    }
    for (std::size_t i = 1; i < _devices.size(); ++i) {
        Device &device = _devices[i];
        Device const &parent = _devices[device.parent];
        if (isLive(device) && waitsForParent(device) && (!isLive(parent) || parent.isMarked))
            isAny = device.isMarked = true;
    }
    return isAny;
}

/// A device is told to abort when its children have answered, or when its share of the time begins.
bool DevSeqSupervision::nextAbort(double now, double &until, Task &task)
{
    double const share = (_abortEnd - _abortBegin) / (_devices[0].height + 1.0);
    for (Device &device : _devices)
        device.isMarked = false; // has a child that has not answered
    for (std::size_t i = _devices.size(); i-- > 0;) {
        Device &device = _devices[i];
        if (device.life != Life::STARTED)
            continue;
        if (i > 0)
            _devices[device.parent].isMarked = true;
        if (device.isAbortCalled || device.call != NO_STEP)
            continue;
        double const turn = _abortBegin + share * device.height;
        if (device.isMarked && now < turn) {
            until = std::min(until, turn);
            continue;
        }
        beginCallNoLock(device, ABORT, device.abortCompletion.get());
        setState(device, ABORT_STATE);
        addTell(device, ABORTION);
        task = {Task::CALL_ABORT, i, 0};
        return true;
    }
    return false;
}

// ---- The record.

/// Whether the machine of the device goes on in order. A device that is not live is lost for the others.
bool DevSeqSupervision::isLive(Device const &device)
{
    return isRunning(device) && device.state != ABORT_STATE;
}

/// Whether the device is live, or aborts of its own accord.
bool DevSeqSupervision::isRunning(Device const &device)
{
    return device.life == Life::STARTED && !device.hasFailed;
}

bool DevSeqSupervision::isLocked(Device const &device)
{
    return device.state == LOCK_STATE;
}

bool DevSeqSupervision::waitsForChildren(Device const &device)
{
    return device.state == START_STATE || device.state == WSR_STATE ||
           device.state == RECOVER_STATE;
}

bool DevSeqSupervision::waitsForParent(Device const &device)
{
    return waitsForChildren(device) || device.state == READY_STATE || device.state == WML_STATE;
}

bool DevSeqSupervision::isOrderly() const
{
    return _phase == Phase::RUNNING || _phase == Phase::STOPPING;
}

bool DevSeqSupervision::isSubtreeLocked(std::size_t top)
{
    if (_nbLocked == _devices.size())
        return true;
    for (std::size_t i = top; i < _devices.size(); ++i) {
        Device &device = _devices[i];
        device.isMarked = i == top || (device.parent > top ? _devices[device.parent].isMarked
                                                           : device.parent == top);
        if (device.isMarked && isLive(device) && !isLocked(device))
            return false;
    }
    return true;
}

void DevSeqSupervision::setState(Device &device, std::int32_t state)
{
    _nbLocked -= isLocked(device) ? 1 : 0;
    device.state = state;
    _nbLocked += isLocked(device) ? 1 : 0;
    device.stateSince = getTime();
}

void DevSeqSupervision::lose(Device &device)
{
    _nbLost += std::exchange(device.isLost, true) ? 0 : 1;
}

void DevSeqSupervision::addTell(Device &device, Tell tell)
{
    if (device.tells & tell)
        return;
    device.tells |= tell;
    ++_nbTells;
}

void DevSeqSupervision::fail(Device &device, std::exception_ptr const &failure)
{
    if (!device.hasFailed) {
        device.hasFailed = true;
        device.failure = getReason(failure);
        device.exception = failure;
        lose(device);
        addTell(device, FAILURE);
    }
    if (device.step == ABORT)
        end(device, End::FAILED); // there is nothing else to try
    wakeRunner();
    wakeClients();
}

void DevSeqSupervision::refuse(std::size_t number, Report report)
{
    ++_devices[number].nbRefused;
    ZV_TRACE(traceLevel, _names[number] << ": "
                                        << (report == COMPLETED        ? "a completion"
                                            : report == WANTS_RECOVERY ? "a recovery"
                                                                       : "an abort")
                                        << " refused");
}

void DevSeqSupervision::endAnswered(Device &device)
{
    if (device.life != Life::STARTED || !device.isAnswered || device.call != NO_STEP)
        return;
    if (device.step == ABORT)
        end(device, device.hasFailed ? End::FAILED : End::ABORTED);
    else if (device.step == STOP && !device.hasFailed)
        end(device, End::STOPPED);
}

void DevSeqSupervision::end(Device &device, End end)
{
    if (device.life != Life::STARTED)
        return;
    device.life = Life::ENDED;
    device.end = end;
    --_nbStarted;
    if (_phase != Phase::ABORTING)
        return;
    if (end != End::NO_ANSWER && device.isAnswered) {
        setState(device, FINAL_STATE);
        addTell(device, END);
    }
    if (_nbStarted == 0)
        finish();
    else
        wakeRunner();
}

void DevSeqSupervision::beginAbort()
{
    _phase = Phase::ABORTING;
    _abortBegin = getTime();
    _abortEnd = _abortBegin + _abortSeconds;
    for (Device &device : _devices)
        endAnswered(device);
    if (_nbStarted == 0)
        finish();
    wakeRunner();
    wakeClients();
}

void DevSeqSupervision::finish()
{
    _phase = Phase::ENDED;
    _endMoment = getTime();
    for (Device &device : _devices)
        end(device, device.hasFailed ? End::FAILED : End::NO_ANSWER);
    wakeRunner();
    wakeClients();
}

LiString DevSeqSupervision::getReason(std::exception_ptr const &failure) const
{
    try {
        return describe(failure);
    } catch (...) {
        return _noReason;
    }
}

void DevSeqSupervision::wakeRunner()
{
    if (_isRunnerWaiting)
        _work.pulse();
}

void DevSeqSupervision::wakeClients()
{
    if (_nbClientsWaiting)
        _changed.pulse();
}

} // namespace Zv
