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
    for (std::size_t i = 0; i < _cues.size(); ++i) {
        _alarms.push_back(MtAlarmManager::getInstance().createHandle());
        _alarms.back()->setCallback(this);
    }
}

void Cues::start(double moment, double interval)
{
    _isByClock = true;
    // Of alarms for the same moment, the manager calls first the one that was registered last.
    for (std::size_t i = _cues.size(); i-- > 0;)
        schedule(i, moment + static_cast<double>(_cues[i].frame) * interval);
}

bool Cues::isHeld(std::int64_t frame)
{
    std::size_t next = 0;
    {
        LkGuard<LkLock const> const guard(_lock);
        next = _nbHappened;
    }
    if (next == _cues.size() || _cues[next].frame > frame)
        return false;
    if (!_isByClock && next == _nbScheduled) {
        ++_nbScheduled;
        schedule(next, 0);
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
        _isStopped = true;
    }
    for (auto const &alarm : _alarms)
        MtAlarmManager::getInstance().deregisterAlarm(alarm);
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

void Cues::performAlarm(RCShdPtr<MtAlarmHandle> handle, bool goingAway)
{
    if (goingAway)
        return;
    auto const index = std::find(_alarms.begin(), _alarms.end(), handle) - _alarms.begin();
    _cues[static_cast<std::size_t>(index)].action();
    _onDone();
}

void Cues::schedule(std::size_t index, double moment)
{
    LkGuard<LkLock const> const guard(_lock);
    if (_isStopped)
        return;
    _alarms[index]->setAlarmTime(moment);
    MtAlarmManager::getInstance().registerAlarm(_alarms[index]);
}
