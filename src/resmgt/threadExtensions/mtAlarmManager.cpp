#include "resmgt/threadExtensions/mtAlarmManager.h"

#include "resmgt/locks/lkSingleton.imp.h"
#include "resmgt/threadExtensions/mtAlarmManagerImp.private.h"
#include "resmgt/threads/mtPriorityMgr.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/mtThreadFactory.h"
#include "resmgt/threads/priority.h"
#include "zvbase/failures.h"
#include "zvbase/firstFailure.private.h"
#include "zvbase/scope.private.h"
#include "zvbase/sleeper.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <utility>

namespace Zv {

namespace {

/// Below this remaining time, the alarm is called without waiting.
constexpr double NEGLIGIBLE = 0.0000001;
/// Waits have a resolution of a millisecond. A shorter one would return at once, and the thread
/// would spin.
constexpr double SHORTEST_WAIT = 0.001;
/// The number of calls in a row of an alarm whose time does not advance, such as one with a repeat
/// duration of 0. After them, all other alarms that are due get their turn.
constexpr unsigned LONGEST_ROW = 1000;
constexpr double NEVER = std::numeric_limits<double>::infinity();

double getTime()
{
    return Sleeper::getInstance().getTime();
}

} // namespace

ZV_DEFINE_SINGLETON(MtAlarmManager, MtAlarmManagerImp);

MtAlarmManager::~MtAlarmManager() noexcept(false) = default;

// ---- MtAlarmManagerImp::MtAlarmThread

class MtAlarmManagerImp::MtAlarmThread final : public MtThreadProtocol
{
public:
    explicit MtAlarmThread(MtAlarmManagerImp &manager) : _manager(manager) {}

    void performAttach(MtThread *thread) override
    {
        _relation.reset(new PriorityRelation("equalToAlarmManager", _manager._priority,
                                             PriorityRelation::EQUAL, thread->getPriority()));
    }
    void performDetach(MtThread *) override { _relation.reset(); }
    void performExecute(MtThread *) override { _manager.run(); }
    void performStop(MtThread *) override { _manager.stop(); }

private:
    MtAlarmManagerImp &_manager;
    ObjPtr<PriorityRelation> _relation;
};

// ---- MtAlarmManagerImp

MtAlarmManagerImp::MtAlarmManagerImp()
    : _waitPulse("MtAlarmMangerImp waitCv", LkPulse::WAKE_ALL),
      _deregPulse("MtAlarmMangerImp deregCv", LkPulse::WAKE_ALL),
      _lock("MtAlarmManagerImp"),
      _priority("AlarmManagerImp", MtPriorityMgr::getInstance(), Priority::NOT_SET)
{
    try {
        ObjPtr<MtThreadProtocol> protocol(new MtAlarmThread(*this));
        _thread = MtThreadFactory::getInstance().createThread("MtAlarmThread", std::move(protocol));
        ZV_ASSERT(_thread);
        _thread->start();
    } catch (...) {
        _thread.reset(); // its relation must be destroyed before the node
        throw;
    }
}

MtAlarmManagerImp::~MtAlarmManagerImp() noexcept(false)
{
    _thread.reset(); // stops it and waits for it
    dismissAlarms();
}

Priority &MtAlarmManagerImp::getPriority()
{
    return _priority;
}

RCShdPtr<MtAlarmHandle> MtAlarmManagerImp::createHandle()
{
    return MtAlarmHandleManipulator::createHandle();
}

void MtAlarmManagerImp::registerAlarm(RCShdPtr<MtAlarmHandle> handle)
{
    MtAlarmHandle &alarm = *handle;
    Guard const guard(_lock);
    _alarms.reserve(2); // one place is for the next repeat of the alarm whose callback runs
    if (std::optional<double> const time = prepareForRegistration(alarm, getTime()))
        insert(std::move(handle), *time);
}

void MtAlarmManagerImp::deregisterAlarm(RCShdPtr<MtAlarmHandle> handle)
{
    MtAlarmHandle &alarm = *handle;
    Guard const guard(_lock);
    if (_current == handle) {
        if (_threadId.isCurrentThread())
            setRegistered(alarm, false);
        else
            waitForEndOfCall(alarm);
    }
    remove(alarm);
}

double MtAlarmManagerImp::getResolution() const
{
    Guard const guard(_lock);
    return _resolution;
}

void MtAlarmManagerImp::setResolution(double resolution)
{
    Guard const guard(_lock);
    _resolution = resolution;
}

void MtAlarmManagerImp::insert(RCShdPtr<MtAlarmHandle> alarm, double time)
{
    _alarms.add(std::move(alarm), time);
    if (time >= _wakeTime)
        return; // the thread looks again before that
    _wakeTime = AWAKE;
    _awaitedTime = time;
    _waitPulse.pulse();
}

void MtAlarmManagerImp::remove(MtAlarmHandle &alarm)
{
    if (RCShdPtr<MtAlarmHandle> const removed = _alarms.take(alarm))
        setRegistered(alarm, false);
}

// The manager's thread drops an alarm that a thread waits for here. Otherwise an alarm that is
// always due could be called without end.
void MtAlarmManagerImp::waitForEndOfCall(MtAlarmHandle &alarm)
{
    unsigned &nbDeregistering = getNbDeregistering(alarm);
    ++nbDeregistering;
    AtScopeEnd const uncount([&nbDeregistering] { --nbDeregistering; });
    while (_current.get() == &alarm)
        _deregPulse.waitNextPulse(_lock);
}

void MtAlarmManagerImp::run()
{
    Guard guard(_lock);
    _threadId.setCurrentThread();
    while (!_stop) {
        _now = getTime();
        while (RCShdPtr<MtAlarmHandle> const alarm = takeDueAlarm()) {
            _current = alarm;
            guard.unlock();
            callCallback(*alarm, false);
            guard.relock();
            bool const isInTime = endCall(alarm);
            _now = getTime();
            if (_stop && !isInTime)
                break;
        }
        waitForAlarm();
    }
}

void MtAlarmManagerImp::stop()
{
    Guard const guard(_lock);
    _stop = true;
    _waitPulse.pulse();
}

RCShdPtr<MtAlarmHandle> MtAlarmManagerImp::takeDueAlarm()
{
    while (!_alarms.isEmpty() && !(_now < _alarms.getFrontTime())) {
        RCShdPtr<MtAlarmHandle> alarm(_alarms.takeFront());
        if (!alarm.isUnique())
            return alarm;
        setRegistered(*alarm, false);
        _now = getTime();
    }
    return nullptr;
}

bool MtAlarmManagerImp::endCall(RCShdPtr<MtAlarmHandle> const &alarm)
{
    _current = _noHandle;
    _deregPulse.pulse();
    if (getNbDeregistering(*alarm) != 0) {
        remove(*alarm);
        setRegistered(*alarm, false);
        return true;
    }
    // The callback may have deregistered the alarm, and may have registered it again.
    if (!alarm->isRegistered() || _alarms.contains(*alarm))
        return true;
    unsigned const nbRepeats = alarm->getRepeatCount();
    if (alarm->getRequestedRepeats() <= nbRepeats) {
        setRegistered(*alarm, false);
        return true;
    }
    // Counted from the registration, so that a late call does not delay the next ones.
    double const next =
        alarm->getTimeRegistered() + alarm->getDuration() + nbRepeats * alarm->getRepeatDuration();
    _nbInARow = next > alarm->getAlarmTime() ? 0 : _nbInARow + 1;
    setRegisteredAlarmTime(*alarm, next);
    if (_nbInARow <= LONGEST_ROW) {
        insert(alarm, next);
        return true;
    }
    _nbInARow = 0;
    insert(alarm, getTime()); // after all alarms that are due
    return false;
}

void MtAlarmManagerImp::waitForAlarm()
{
    if (_stop)
        return;
    double const now = getTime();
    _wakeTime = _alarms.isEmpty() ? NEVER : _alarms.getFrontTime();
    // If the alarm that woke the thread is gone already, the next one often has a similar time, as
    // the limits of operations that end before them. The thread is not woken for each of them.
    if (_awaitedTime > now && !(_wakeTime <= _awaitedTime))
        _wakeTime = _awaitedTime;
    if (_wakeTime == NEVER) {
        _waitPulse.waitNextPulse(_lock);
    } else {
        double const remaining = _wakeTime - now;
        if (!(NEGLIGIBLE > remaining))
            static_cast<void>(
                _waitPulse.timedWaitNextPulse(_lock, std::max(remaining, SHORTEST_WAIT)));
    }
    _wakeTime = AWAKE;
}

void MtAlarmManagerImp::dismissAlarms()
{
    FirstFailure failure;
    for (;;) {
        RCShdPtr<MtAlarmHandle> alarm;
        {
            Guard const guard(_lock);
            if (_alarms.isEmpty())
                break;
            alarm = _alarms.takeFront();
        }
        failure.attempt([&alarm] { callCallback(*alarm, true); });
        setRegistered(*alarm, false);
    }
    failure.rethrow();
}

} // namespace Zv
