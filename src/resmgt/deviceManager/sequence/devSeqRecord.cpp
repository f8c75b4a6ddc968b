#include "resmgt/deviceManager/sequence/devSeqRecord.private.h"

#include "resmgt/deviceManager/devMgrEx.h"
#include "resmgt/deviceManager/sequence/devSeqRunner.private.h"
#include "resmgt/deviceManager/sequence/devSeqTreeNode.h"
#include "zvbase/failures.h"
#include "zvbase/trace.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace Zv {

namespace {

TraceLevel const &traceLevel = *Trace::registerLevel("DevSeqSupervisor", __FILE__);

constexpr char const *STEP_NAMES[] = {"",     "start", "sync",       "recover",
                                      "stop", "abort", "getLatency", "getMark"};
constexpr char const *STATE_NAMES[] = {"init", "start",   "wsr", "ready", "wml",   "sync",
                                       "lock", "recover", "wss", "stop",  "abort", "final"};

DevSMTable const &getTable()
{
    return *DevSeqSMTable::getInstance().getTable();
}

/// Returns the text of a failure. A null `failure` means that a completion was destroyed.
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

} // namespace

DevSeqRecord::DevSeqRecord(DevSeqWaiters &waiters)
    : _waiters(waiters),
      _noReason("There is no memory for the reason."),
      _failedState(getTable().getState("_exc")),
      _stopEnd(DevSeqWaiters::NEVER),
      _abortSeconds(DevSeqWaiters::NEVER)
{
    for (std::int32_t state = INIT_STATE; state <= FINAL_STATE; ++state)
        ZV_ASSERT(getTable().getStateName(state) == STATE_NAMES[state]);
}

void DevSeqRecord::add(LiString const &name, LiString const &parent)
{
    Device &device = _devices.emplace_back();
    device.name = name;
    device.parent = parent;
}

Vector<DevSeqRecord::Device> DevSeqRecord::takeDevices()
{
    _phase = Phase::ENDED;
    return std::exchange(_devices, {});
}

DevMgrFailure DevSeqRecord::getFailure(std::size_t number) const
{
    Device const &device = _devices[number];
    DevMgrFailure failure;
    failure.device = device.name;
    failure.state = getTable().getStateName(device.state);
    failure.event = STEP_NAMES[device.failedIn];
    failure.exception =
        device.exception ? device.exception
                         : std::make_exception_ptr(std::runtime_error(device.failure.getChars()));
    return failure;
}

DevSeqStatus DevSeqRecord::makeStatus() const
{
    DevSeqStatus status;
    status.phase = _phase;
    status.moment = _phase == Phase::ENDED ? _endMoment : DevSeqWaiters::now();
    status.failure = _failure;
    status.devices.reserve(_devices.size());
    for (Device const &device : _devices) {
        DevSeqDeviceStatus &copy = status.devices.emplace_back();
        copy.name = device.name;
        copy.parent = device.parent;
        copy.state = getTable().getStateName(device.state);
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

// ---- The phases.

void DevSeqRecord::start()
{
    _phase = Phase::RUNNING;
    _waiters.wakeRunner();
}

void DevSeqRecord::stop()
{
    _phase = Phase::STOPPING;
    _waiters.wakeRunner();
    _waiters.wakeClients();
}

void DevSeqRecord::beginAbort()
{
    _phase = Phase::ABORTING;
    _abortBegin = DevSeqWaiters::now();
    _abortEnd = _abortBegin + _abortSeconds;
    for (Device &device : _devices)
        endAnswered(device);
    if (_nbStarted == 0)
        finish();
    _waiters.wakeRunner();
    _waiters.wakeClients();
}

void DevSeqRecord::finish()
{
    _phase = Phase::ENDED;
    _endMoment = DevSeqWaiters::now();
    for (Device &device : _devices)
        end(device, device.hasFailed ? End::FAILED : End::NO_ANSWER);
    _waiters.wakeRunner();
    _waiters.wakeClients();
}

void DevSeqRecord::failAsWhole(std::exception_ptr const &failure)
{
    if (_failure.isEmpty())
        _failure = getReason(failure);
    _waiters.wakeClients();
}

void DevSeqRecord::shortenLimits(double seconds, double abortSeconds)
{
    _stopEnd = std::min(_stopEnd, DevSeqWaiters::now() + seconds);
    _abortSeconds = std::min(_abortSeconds, abortSeconds);
    if (_phase == Phase::ABORTING) {
        _abortEnd = std::min(_abortEnd, DevSeqWaiters::now() + seconds + abortSeconds);
        _waiters.wakeRunner(); // the turns of the devices are earlier now
    }
}

// ---- Calls of a device.

char const *DevSeqRecord::nameOf(Step step)
{
    return STEP_NAMES[step];
}

void DevSeqRecord::beginCall(std::size_t number, Step step)
{
    Device &device = _devices[number];
    bool const isStep = step != LATENCY && step != MARK;
    if (step == START) {
        device.life = Life::STARTED;
        ++_nbStarted;
    }
    if (step == ABORT) {
        device.isAbortCalled = true;
        _isAnyLost = true;
        _waiters.wakeClients();
    }
    device.call = step;
    device.callSince = DevSeqWaiters::now();
    if (isStep) {
        ++device.serial;
        device.step = step;
        device.stepSince = device.callSince;
        device.isAnswered = false;
        device.isDropped = false;
    }
}

void DevSeqRecord::beginAbortOf(std::size_t number)
{
    Device &device = _devices[number];
    beginCall(number, ABORT);
    setState(device, ABORT_STATE);
    addTell(device, ABORTION);
}

void DevSeqRecord::endCall(std::size_t number, std::exception_ptr const &failure)
{
    if (_phase == Phase::ENDED)
        return;
    Device &device = _devices[number];
    Step const step = std::exchange(device.call, NO_STEP);
    if (failure || (device.isDropped && !device.isAnswered))
        fail(device, step, failure);
    if (failure && step == START)
        end(device, End::FAILED); // it has not begun to run
    if (_phase == Phase::ABORTING) {
        endAnswered(device);
        _waiters.wakeRunner();
    }
}

// ---- What a device or its machine tells.

bool DevSeqRecord::answer(std::size_t number, std::uint32_t serial)
{
    if (_phase == Phase::ENDED)
        return false;
    Device &device = _devices[number];
    if (serial != device.serial || device.isAnswered) {
        refuse(number, COMPLETED);
        return false;
    }
    device.isAnswered = true;
    device.took[device.step] = DevSeqWaiters::now() - device.stepSince;
    device.hasTaken[device.step] = true;
    if (_phase == Phase::ABORTING)
        endAnswered(device);
    return isOrderly();
}

// If a completion is destroyed within a call, the failure is recorded at the end of the call,
// because the exception of the call says more.
void DevSeqRecord::drop(std::size_t number, std::uint32_t serial, std::exception_ptr const &failure)
{
    if (_phase == Phase::ENDED)
        return;
    Device &device = _devices[number];
    if (serial != device.serial || device.isAnswered)
        return;
    if (!failure && device.call != NO_STEP)
        device.isDropped = true;
    else
        fail(device, device.step, failure);
}

void DevSeqRecord::refuse(std::size_t number, Report report)
{
    ++_devices[number].nbRefused;
    traceRefused(number, report == COMPLETED        ? "a completion"
                         : report == WANTS_RECOVERY ? "a recovery"
                                                    : "an abort");
}

void DevSeqRecord::refuseEvent(std::size_t number, std::int32_t event) const
{
    traceRefused(number, getTable().getEventName(event).getChars());
}

void DevSeqRecord::traceRefused(std::size_t number, char const *what) const
{
    try {
        ZV_TRACE(traceLevel, _devices[number].name << ": " << what << " refused");
    } catch (...) {
        // There is no memory for the line.
    }
}

bool DevSeqRecord::changeState(std::size_t number, std::int32_t state)
{
    Device &device = _devices[number];
    if (!getTable().isPrimaryState(state)) {
        // A device that has thrown has failed already.
        if (!device.hasFailed)
            fail(device, device.step,
                 std::make_exception_ptr(std::runtime_error("Its sequence machine has failed.")));
        return false;
    }
    setState(device, state);
    if (state == FINAL_STATE)
        end(device, !device.isAbortCalled ? End::STOPPED : End::ABORTED);
    return true;
}

void DevSeqRecord::setLatency(std::size_t number, DtTime const &latency)
{
    _devices[number].latency = latency;
}

void DevSeqRecord::checkLockable() const
{
    if (!_failure.isEmpty())
        ZV_THROW(DevMgrEx::SeqDeviceFailed, _devices[0].name.getChars(), _failure.getChars());
    if (!_isAnyLost)
        return;
    for (Device const &device : _devices) {
        if (device.hasFailed)
            ZV_THROW(DevMgrEx::SeqDeviceFailed, device.name.getChars(), device.failure.getChars());
        if (device.isAbortCalled)
            ZV_THROW(DevMgrEx::SeqDeviceFailed, device.name.getChars(), "It has aborted.");
    }
}

bool DevSeqRecord::takeTell(std::size_t &number, std::int32_t &state)
{
    for (std::size_t i = _devices.size(); _nbTells && i-- > 0;) {
        Device &device = _devices[i];
        for (Tell const tell : {FAILURE, ABORTION, END}) {
            if (!(device.tells & tell))
                continue;
            device.tells &= ~static_cast<unsigned>(tell);
            --_nbTells;
            number = i;
            state = tell == ABORTION ? ABORT_STATE : tell == END ? FINAL_STATE : _failedState;
            return true;
        }
    }
    return false;
}

// ---- The conclusions.

void DevSeqRecord::setState(Device &device, std::int32_t state)
{
    _nbLocked -= device.isLocked() ? 1 : 0;
    device.state = state;
    _nbLocked += device.isLocked() ? 1 : 0;
    device.stateSince = DevSeqWaiters::now();
    if (areLocked())
        _waiters.wakeClients();
}

void DevSeqRecord::addTell(Device &device, Tell tell)
{
    if (device.tells & tell)
        return;
    device.tells |= tell;
    ++_nbTells;
}

void DevSeqRecord::fail(Device &device, Step step, std::exception_ptr const &failure)
{
    if (!device.hasFailed) {
        device.hasFailed = true;
        device.failedIn = step;
        device.failure = getReason(failure);
        device.exception = failure;
        _isAnyLost = true;
        addTell(device, FAILURE);
    }
    if (device.step == ABORT)
        end(device, End::FAILED); // there is nothing else to try
    _waiters.wakeRunner();
    _waiters.wakeClients();
}

void DevSeqRecord::endAnswered(Device &device)
{
    if (device.life != Life::STARTED || !device.isAnswered || device.call != NO_STEP)
        return;
    if (device.step == ABORT)
        end(device, device.hasFailed ? End::FAILED : End::ABORTED);
    else if (device.step == STOP && !device.hasFailed)
        end(device, End::STOPPED);
}

void DevSeqRecord::end(Device &device, End end)
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
        _waiters.wakeRunner();
}

LiString DevSeqRecord::getReason(std::exception_ptr const &failure) const
{
    try {
        return describe(failure);
    } catch (...) {
        return _noReason;
    }
}

} // namespace Zv
