#include "cues.h"

#include <algorithm>
#include <utility>

using namespace Zv;

Cues::~Cues() noexcept(false)
{
    stop();
}

void Cues::set(std::vector<Cue> cues, std::function<void()> onDone)
{
    std::stable_sort(cues.begin(), cues.end(),
                     [](Cue const &left, Cue const &right) { return left.frame < right.frame; });
    _cues = std::move(cues);
    _onDone = std::move(onDone);
    for (std::size_t i = 0; i < _cues.size(); ++i)
        _alarms.emplace_back(*this, i);
    LkGuard<LkLock const> const guard(_lock);
    _isDue.assign(_cues.size(), true);
}

void Cues::start(double moment, double interval)
{
    LkGuard<LkLock const> const guard(_lock);
    _isDue.assign(_cues.size(), false);
    // If alarms have the same moment, the manager first calls the one that was registered last.
    for (std::size_t i = _cues.size(); i-- > 0;)
        schedule(i, moment + static_cast<double>(_cues[i].frame) * interval);
}

bool Cues::isHeld(std::int64_t frame)
{
    LkGuard<LkLock const> const guard(_lock);
    _reached = frame;
    if (_nbHappened == _cues.size() || _cues[_nbHappened].frame > frame)
        return false;
    if (_isDue[_nbHappened]) {
        _isDue[_nbHappened] = false;
        schedule(_nbHappened, 0);
    }
    return true;
}

void Cues::countHappened()
{
    LkGuard<LkLock const> const guard(_lock);
    ++_nbHappened;
}

void Cues::stop()
{
    {
        LkGuard<LkLock const> const guard(_lock);
        _isStopped = true; // `schedule` changes no handle after that
    }
    // Waits for an alarm that is running and that may need the lock.
    for (Alarm const &alarm : _alarms)
        if (!alarm.handle.isNull())
            MtAlarmManager::getInstance().deregisterAlarm(alarm.handle);
}

std::vector<Cues::Cue> Cues::takeHappened()
{
    LkGuard<LkLock const> const guard(_lock);
    auto const from = std::exchange(_nbTaken, _nbHappened);
    auto const begin = _cues.begin();
    return {begin + static_cast<std::ptrdiff_t>(from),
            begin + static_cast<std::ptrdiff_t>(_nbTaken)};
}

std::vector<Cues::Cue> Cues::getHappened() const
{
    LkGuard<LkLock const> const guard(_lock);
    return {_cues.begin(), _cues.begin() + static_cast<std::ptrdiff_t>(_nbHappened)};
}

std::vector<Cues::Cue> Cues::getOthers() const
{
    LkGuard<LkLock const> const guard(_lock);
    return {_cues.begin() + static_cast<std::ptrdiff_t>(_nbHappened), _cues.end()};
}

void Cues::Alarm::performAlarm(RCShdPtr<MtAlarmHandle>, bool goingAway)
{
    if (goingAway || !_cues.mayHappen(_index))
        return;
    _cues._cues[_index].action();
    _cues._onDone();
}

/// Returns whether a cue may run now. If it may not, marks it as due, so that it runs when the
/// player and the earlier cues allow it.
bool Cues::mayHappen(std::size_t index)
{
    LkGuard<LkLock const> const guard(_lock);
    bool const may = !_isStopped && index == _nbBegun && _cues[index].frame <= _reached;
    if (may)
        ++_nbBegun;
    else
        _isDue[index] = true;
    return may;
}

void Cues::schedule(std::size_t index, double moment)
{
    if (_isStopped)
        return;
    auto const handle = MtAlarmManager::getInstance().createHandle();
    handle->setCallback(&_alarms[index]);
    handle->setAlarmTime(moment);
    MtAlarmManager::getInstance().registerAlarm(handle);
    _alarms[index].handle = handle;
}
