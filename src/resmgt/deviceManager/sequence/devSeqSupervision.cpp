#include "resmgt/deviceManager/sequence/devSeqSupervision.private.h"

#include "resmgt/deviceManager/devMgrDevice.private.h"
#include "resmgt/deviceManager/devMgrEx.h"
#include "resmgt/deviceManager/sequence/devSeqSupervisedPrtcl.private.h"
#include "resmgt/deviceManager/sequence/devSeqTreeNode.h"
#include "zvbase/failures.h"
#include "zvbase/firstFailure.private.h"
#include "zvbase/trace.h"
#include "zvbase/traceCaught.private.h"

#include <algorithm>
#include <utility>

namespace Zv {

namespace {

constexpr double LONGEST_LIMIT = 1e9; // about 30 years

double checkedLimit(double seconds)
{
    return seconds > 0 ? std::min(seconds, LONGEST_LIMIT) : 0;
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

/// The body of a runner's thread.
class DevSeqSupervision::RunnerBody final : public MtThreadProtocol
{
public:
    RunnerBody(DevSeqSupervision &supervision, unsigned number)
        : _supervision(&supervision), _number(number)
    {}

    // The thread of a runner that was left behind keeps this object. It must not keep the sequence.
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
    : _lock("DevSeqSupervision"), _record(_waiters), _plan(_record), _tree(new DevSeqTree)
{}

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

// Not in the constructor, because the completions take references to this object.
void DevSeqSupervision::build(Vector<Member> const &members)
{
    Guard const guard(_lock);
    Vector<RCShdPtr<DevSeqTreeNode>> nodes;
    for (Member const &member : members) {
        std::size_t const number = nodes.size();
        _record.add(member.name, number == 0 ? LiString() : members[member.parent].name);
        _plan.add(member.parent);
        Callee &callee = _callees.emplace_back();
        callee.name = member.name;
        callee.prtcl = member.prtcl;
        callee.device = member.device;
        callee.abortCompletion = makeObj<DevSeqCompletion>(*this, number);
        auto * const supervised =
            new DevSeqSupervisedPrtcl(*this, number, member.prtcl, *member.device);
        RCShdPtr<DevMDSyncSeqPrtcl> const prtcl(supervised);
        nodes.push_back(DevSeqTreeNode::create(member.name, makeShd<DevSeqPrtclUtil>(prtcl)));
        nodes[number]->setGuard(supervised);
        if (number == 0)
            _tree->setRoot(nodes[0]);
        else
            _tree->attach(nodes[member.parent], nodes[number]);
    }
}

void DevSeqSupervision::startRunner(unsigned number)
{
    {
        Guard const guard(_lock);
        ++_nbUsers;
        _runner.appoint(number);
    }
    try {
        _thread.start(makeObj<RunnerBody>(*this, number));
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
        isOnRunner = _runner.isCurrentThread();
        limit = _endLimit;
        end = DevSeqWaiters::now() + limit;
        phase = _record.getPhase();
    }
    if (!isOnRunner && phase != Phase::IDLE)
        conclude("close", limit / 2, limit / 2);
    {
        Guard const guard(_lock);
        if (_record.getPhase() == Phase::IDLE)
            _record.finish();
        _isClosing = true;
        _waiters.wakeRunner();
        // A runner that is not busy ends at once.
        while (!isOnRunner && !_runner.hasLeft() &&
               (!_runner.isBusy() || DevSeqWaiters::now() < end))
            _waiters.waitForChange(guard, end);
        hasLeft = _runner.hasLeft();
        if (!hasLeft)
            _runner.dismiss();
    }
    if (hasLeft)
        _thread.join();
    else
        _thread.leaveBehind();
    leave();
    ZV_ASSERT_IN_DESTRUCTOR(!isOnRunner);
}

void DevSeqSupervision::start()
{
    Guard const guard(_lock);
    if (_record.getPhase() != Phase::IDLE)
        ZV_THROW(DevMgrEx::SeqIllegalCall, "start", whyNot(_record.getPhase()));
    _record.start();
}

bool DevSeqSupervision::waitLocked(double seconds)
{
    Guard const guard(_lock);
    checkWaiting("waitLocked");
    double const end = DevSeqWaiters::now() + checkedLimit(seconds);
    for (;;) {
        if (_record.getPhase() == Phase::IDLE || _isEndWanted)
            ZV_THROW(DevMgrEx::SeqIllegalCall, "waitLocked", whyNot(_record.getPhase()));
        _record.checkLockable();
        if (_record.areLocked())
            return true;
        if (DevSeqWaiters::now() >= end)
            return false;
        _waiters.waitForChange(guard, end);
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
    double const end = DevSeqWaiters::now() + checkedLimit(seconds);
    while (_record.getPhase() != Phase::ENDED) {
        if (DevSeqWaiters::now() >= end)
            return false;
        _waiters.waitForChange(guard, end);
    }
    return true;
}

DevSeqStatus DevSeqSupervision::getStatus()
{
    Guard const guard(_lock);
    DevSeqStatus status = _record.makeStatus();
    status.observerFailure = _observerFailure;
    status.nbObserverFailures = _nbObserverFailures;
    return status;
}

void DevSeqSupervision::setObserver(RCShdPtr<DevSeqObserver> const &observer)
{
    RCShdPtr<DevSeqObserver> former(observer); // destroyed without the lock
    Guard const guard(_lock);
    former.swap(_observer);
    if (former != _observer)
        _isObserverGivenUp = false;
}

void DevSeqSupervision::setEndLimit(double seconds)
{
    Guard const guard(_lock);
    _endLimit = checkedLimit(seconds);
}

void DevSeqSupervision::checkWaiting(char const *call) const
{
    if (_runner.isCurrentThread())
        ZV_THROW(DevMgrEx::SeqIllegalCall, call, "it would wait for the thread that calls it.");
}

/// Ends the sequence, within the limits of this call at the latest.
void DevSeqSupervision::conclude(char const *call, double seconds, double abortSeconds)
{
    Guard guard(_lock);
    checkWaiting(call);
    if (_record.getPhase() == Phase::IDLE)
        ZV_THROW(DevMgrEx::SeqIllegalCall, call, whyNot(Phase::IDLE));
    _isEndWanted = true;
    _record.shortenLimits(seconds, abortSeconds);
    if (_record.getPhase() == Phase::RUNNING)
        _record.stop();
    while (unsigned const number = waitForEnd(guard)) {
        guard.unlock();
        try {
            startRunner(number);
        } catch (...) {
            traceCaught(__FILE__, __LINE__); // the loop tries again while there is time
        }
        guard.relock();
        _isReplacing = false;
    }
    bool const isFirst = !std::exchange(_isEndTraced, true);
    guard.unlock();
    if (isFirst)
        traceEnd();
}

unsigned DevSeqSupervision::waitForEnd(Guard const &guard)
{
    while (_record.getPhase() != Phase::ENDED) {
        double const time = DevSeqWaiters::now();
        if (_record.getPhase() == Phase::STOPPING && time >= _record.getStopEnd())
            _record.beginAbort();
        if (_record.getPhase() == Phase::STOPPING) {
            _waiters.waitForChange(guard, _record.getStopEnd());
        } else if (_record.getPhase() == Phase::ABORTING && time >= _record.getAbortEnd()) {
            _record.finish();
        } else if (_record.getPhase() == Phase::ABORTING) {
            double const replacement = getReplacement();
            if (time >= replacement) {
                _isReplacing = true;
                if (_runner.isInObserver())
                    _isObserverGivenUp = true;
                return _runner.getNumber() + 1;
            }
            _waiters.waitForChange(guard, std::min(_record.getAbortEnd(), replacement));
        }
    }
    return 0;
}

/// Returns the moment at which the runner counts as hanging. If each device hangs, half of the
/// limit is enough to replace all their runners.
double DevSeqSupervision::getReplacement() const
{
    if (!_runner.isBusy() || _isReplacing)
        return DevSeqWaiters::NEVER;
    double const begin = _record.getAbortBegin();
    double const patience =
        (_record.getAbortEnd() - begin) / (2.0 * static_cast<double>(_record.getNbDevices() + 1));
    return std::max(_runner.getBusySince(), begin) + patience;
}

void DevSeqSupervision::traceEnd()
{
    try {
        for (DevSeqDeviceStatus const &device : getStatus().devices)
            if (device.end == DevSeqDeviceStatus::End::NO_ANSWER)
                ZV_TRACE(*Trace::MainTraceLevel,
                         "Device \"" << device.name << "\" was given up. It has not answered \""
                                     << (device.step.isEmpty() ? device.call : device.step)
                                     << "\"");
    } catch (...) {
        traceCaught(__FILE__, __LINE__);
    }
}

// ---- The devices' side.

void DevSeqSupervision::complete(std::size_t device, std::uint32_t serial)
{
    Guard const guard(_lock);
    if (_record.answer(device, serial) && _plan.addReport(device, DevSeqRecord::COMPLETED))
        _waiters.wakeRunner();
}

void DevSeqSupervision::drop(std::size_t device, std::uint32_t serial,
                             std::exception_ptr const &failure)
{
    Guard const guard(_lock);
    _record.drop(device, serial, failure);
}

void DevSeqSupervision::report(std::size_t device, DevSeqRecord::Report report)
{
    Guard const guard(_lock);
    if (_record.getPhase() == Phase::ENDED)
        return;
    if (_record.isOrderly() && _plan.addReport(device, report))
        _waiters.wakeRunner();
    else
        _record.refuse(device, report);
}

// ---- The tree's side.

bool DevSeqSupervision::beginCall(std::size_t device, DevSeqRecord::Step step,
                                  DevSeqCompletion *completion)
{
    Guard const guard(_lock);
    if (!_record.isOrderly() || _record.getDevice(device).hasFailed)
        return false;
    _record.beginCall(device, step);
    if (completion)
        completion->begin(_record.getDevice(device));
    _runner.proceed();
    return true;
}

bool DevSeqSupervision::endCall(std::size_t device, std::exception_ptr const &failure)
{
    Guard const guard(_lock);
    if (_runner.isCurrentThread())
        _runner.proceed();
    _record.endCall(device, failure);
    return !failure && _record.isOrderly();
}

void DevSeqSupervision::setLatency(std::size_t device, DtTime const &latency)
{
    Guard const guard(_lock);
    if (_record.isOrderly())
        _record.setLatency(device, latency);
}

void DevSeqSupervision::stateChanged(std::size_t device, std::int32_t state)
{
    {
        Guard const guard(_lock);
        if (!_record.isOrderly() || !_record.changeState(device, state) || _observer.isNull())
            return;
    }
    tell(device, state, false);
}

void DevSeqSupervision::refused(std::size_t device, std::int32_t event)
{
    Guard const guard(_lock);
    if (_record.isOrderly())
        _record.refuseEvent(device, event);
}

// ---- The runner.

void DevSeqSupervision::run(unsigned number)
{
    {
        Guard const guard(_lock);
        _runner.enter(number);
    }
    DevSeqTask task = {};
    while (next(number, task))
        execute(task);
    {
        Guard const guard(_lock);
        if (_runner.isPresent(number)) {
            _runner.leave();
            _waiters.wakeClients();
        }
    }
    try {
        leave();
    } catch (...) { // thrown by the destructor of a device
        traceCaught(__FILE__, __LINE__);
    }
}

/// Blocks until there is something to do. Returns false if the runner is no longer needed.
bool DevSeqSupervision::next(unsigned number, DevSeqTask &task)
{
    Guard const guard(_lock);
    while (_runner.isPresent(number)) {
        double until = DevSeqWaiters::now() + DevSeqWaiters::LONGEST_WAIT;
        if (_plan.getNext(until, task)) {
            _runner.setBusy();
            if (_record.getPhase() == Phase::ABORTING)
                _waiters.wakeClients(); // they check whether the runner hangs
            return true;
        }
        _runner.setIdle();
        if (_isClosing)
            return false;
        _waiters.waitForWork(guard, until);
    }
    return false;
}

void DevSeqSupervision::execute(DevSeqTask const &task)
{
    switch (task.kind) {
    case DevSeqTask::DELIVER:
        return deliver(task.device, task.number);
    case DevSeqTask::CALL_ABORT:
        return callAbort(task.device);
    case DevSeqTask::TELL_FAILURE:
        traceFailure(task.device);
        return tell(task.device, task.number, true);
    case DevSeqTask::TELL:
        return tell(task.device, task.number, false);
    }
}

// The tree throws only if there is no memory, or if a machine is wrong.
void DevSeqSupervision::deliver(std::size_t device, std::int32_t event)
{
    try {
        _tree->processEvent(_callees[device].name, event);
    } catch (...) {
        std::exception_ptr const failure = std::current_exception();
        Guard const guard(_lock);
        _record.failAsWhole(failure);
    }
}

void DevSeqSupervision::callAbort(std::size_t device)
{
    Callee &callee = _callees[device];
    {
        Guard const guard(_lock);
        callee.abortCompletion->begin(_record.getDevice(device));
    }
    std::exception_ptr failure;
    try {
        DevMgrDevice::Call const call(*callee.device);
        callee.prtcl->performAbort(std::move(callee.abortCompletion));
    } catch (...) {
        failure = std::current_exception();
    }
    endCall(device, failure);
}

void DevSeqSupervision::traceFailure(std::size_t device)
{
    try {
        ZV_TRACE(*Trace::MainTraceLevel, "A device has failed. " << getFailure(device));
    } catch (...) {
        // There is no memory for the line.
    }
}

void DevSeqSupervision::tell(std::size_t device, std::int32_t state, bool hasFailed)
{
    RCShdPtr<DevSeqObserver> observer;
    {
        Guard const guard(_lock);
        if (_observer.isNull() || _isObserverGivenUp || !_runner.isCurrentThread())
            return;
        observer = _observer;
        _runner.setInObserver(true);
    }
    FirstFailure failure;
    auto const attempt = [&failure](auto action) {
        failure.attempt([&action] {
            try {
                action();
            } catch (...) {
                traceCaught(__FILE__, __LINE__);
                throw;
            }
        });
    };
    attempt([&] {
        observer->stateChanged(_callees[device].name,
                               DevSeqSMTable::getInstance().getTable()->getStateName(state));
        if (hasFailed)
            observer->machineFailed(getFailure(device));
    });
    attempt([&observer] { observer = nullptr; }); // the last reference, if it was replaced
    Guard const guard(_lock);
    if (!_runner.isCurrentThread())
        return;
    _runner.setInObserver(false);
    if (failure.get() && _nbObserverFailures++ == 0)
        _observerFailure = _record.getReason(failure.get());
}

DevMgrFailure DevSeqSupervision::getFailure(std::size_t device)
{
    Guard const guard(_lock);
    return _record.getFailure(device);
}

/// Releases the tree and the devices when the last of the client and the runners leaves.
/// Completions that devices hold keep the empty record only.
void DevSeqSupervision::leave()
{
    Vector<DevSeqRecord::Device> devices;
    RCShdPtr<DevSeqObserver> observer;
    {
        Guard const guard(_lock);
        if (--_nbUsers > 0)
            return;
        devices = _record.takeDevices();
        observer.swap(_observer);
    }
    FirstFailure failure;
    failure.attempt([&observer] { observer = nullptr; });
    failure.attempt([this] { _tree = nullptr; });
    for (Callee &callee : _callees) {
        failure.attempt([&callee] { callee.abortCompletion = nullptr; });
        failure.attempt([&callee] { callee.prtcl = nullptr; });
        failure.attempt([&callee] { callee.device = nullptr; });
    }
    failure.rethrow();
}

} // namespace Zv
