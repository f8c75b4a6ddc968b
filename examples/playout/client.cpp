#include "client.h"

#include "cueSheet.h"
#include "playoutEx.h"
#include "realTime.h"
#include "shownText.h"
#include "signals.h"

#include <algorithm>
#include <charconv>
#include <initializer_list>

using namespace Zv;

namespace {

constexpr int BLOCK_FRAMES = 1024;
constexpr double SIGNAL_INTERVAL = 0.05; // seconds, in which a signal is noticed
constexpr std::size_t LONGEST_NAME = 80; // bytes of a device's name that are shown
constexpr double GRACE = 0.25;           // seconds, in which a failure travels along streams

double now()
{
    return Sleeper::getInstance().getTime();
}

bool isOneOf(std::string const &state, std::initializer_list<char const *> states)
{
    return std::find(states.begin(), states.end(), state) != states.end();
}

} // namespace

Client::Client(Options const &options, Show const &show, std::string const &output)
    : _options(options),
      _job(makeShd<PlayoutJob>(show, output, options.blockFrames.value_or(BLOCK_FRAMES),
                               options.fast)),
      _stage(_job),
      _observer(makeShd<PropertyObserver>(_job)),
      _stateObserver(makeShd<StateObserver>(_job))
{}

bool Client::run()
{
    _stage.build();
    setCues(_stage, *_job);
    show();
    setProperties();
    observe();
    if (!Signals::getCaught())
        play();
    _stage.close();
    if (_job->hasFailed())
        ZV_THROW(PlayoutEx::Client, _job->getFailure().c_str());
    if (_job->isComplete())
        showResult();
    else if (!Signals::getCaught())
        ZV_THROW(PlayoutEx::Client, "the sequence has ended before the recording");
    return _job->isComplete();
}

void Client::show()
{
    if (_options.realTime)
        for (auto const &line : RealTime::getOutcome())
            _display.line(line);
    _display.line(_stage.getTree());
    for (auto const &connection : _job->show.connections)
        _display.line("  " + connection->stream);
    if (_job->timeline)
        _display.line(format("  %s, %.6g frames a second%s", _job->timeline->getName().c_str(),
                             1 / _job->timeline->getInterval(),
                             _job->isPaced ? "" : ", as fast as it goes"));
    _player = _stage.findAll("player").front();
    _faders = _stage.findAll("fader");
}

void Client::setProperties()
{
    if (_options.gain) {
        if (_faders.empty())
            ZV_THROW(PlayoutEx::Client, "--gain: the sequence has no fader");
        char text[32];
        auto const end = std::to_chars(text, text + sizeof text, *_options.gain).ptr;
        _stage.setProperty("", _faders.front() + ":levels:gain=" + std::string(text, end));
    }
    for (auto const &setting : _options.properties)
        _stage.setProperty("", setting);
}

void Client::observe()
{
    using Properties = DevMgrPropertyObserverUtil;
    double length = 0;
    DevMgrPropertyValueUtil<double>::getValue(_stage.properties(),
                                              (_player + ":transport:length").c_str(), length);
    _display.setLength(length);
    _display.setTimeline(_job->timeline.get());
    Properties::attachObserver(_stage.properties(), (_player + ":transport:position").c_str(),
                               _observer);
    if (!_faders.empty())
        Properties::attachObserver(_stage.properties(), (_faders.front() + ":levels:peak").c_str(),
                                   _observer);
}

void Client::play()
{
    double failedAt = 0;
    for (auto const &[name, device] : _stage.getDevices())
        _states[name] = _stage.sequence().getState(name.c_str()).getChars();
    _stage.sequence().setObserver(_stateObserver);
    _startedAt = now();
    _stage.sequence().start();
    for (followStates(); !hasEnded(); followStates()) {
        followCues();
        if (_job->hasFailed()) {
            if (!failedAt)
                failedAt = now();
            tellFailure(failedAt);
        } else if (!_stoppedAt && mayStop() && isRootRunning()) {
            if (_job->isComplete())
                showProgress(true);
            _display.endProgress();
            _stoppedAt = now();
            _stage.sequence().stop();
            continue;
        }
        if (haveAll("lock") && !_stoppedAt)
            showProgress(false);
        _job->wait(SIGNAL_INTERVAL);
    }
    if (haveAll("final"))
        _stage.sequence().wait();
}

void Client::followStates()
{
    for (auto const &move : _stateObserver->takeMoves()) {
        std::string &known = _states[move.device];
        _display.line(format("  %8.3f ms  %-10s %s -> %s", (move.time - _startedAt) * 1000,
                             shorten(move.device, LONGEST_NAME).c_str(), known.c_str(),
                             move.state.c_str()));
        known = move.state;
    }
}

void Client::followCues()
{
    for (auto const &cue : _job->cues.takeHappened())
        _display.line("  " + _job->timeline->getTimecode(cue.frame) + "  " + cue.text);
}

bool Client::haveAll(char const *state) const
{
    return std::all_of(_states.begin(), _states.end(),
                       [&](auto const &entry) { return entry.second == state; });
}

bool Client::hasEnded() const
{
    // A machine in _ill or _exc gets nowhere any more, and the sequence's own `wait` would not return.
    return std::all_of(_states.begin(), _states.end(), [](auto const &entry) {
        return isOneOf(entry.second, {"final", "_ill", "_exc"});
    });
}

/// A short recording may have gone through before the last device has heard that it is in lock.
bool Client::mayStop() const
{
    bool const isStarting = std::any_of(_states.begin(), _states.end(), [](auto const &entry) {
        return isOneOf(entry.second, {"init", "start", "wsr", "ready", "wml", "sync"});
    });
    return Signals::getCaught() || (_job->isComplete() && !isStarting);
}

bool Client::isRootRunning() const
{
    return isOneOf(_stage.sequence().getState(_stage.getDevices().front().first.c_str()).getChars(),
                   {"start", "wsr", "ready", "wml", "sync", "lock", "recover"});
}

/// A device that fails takes its neighbours along, and they theirs. Devices that no stream reaches hear it from here.
void Client::tellFailure(double failedAt)
{
    if (now() - failedAt < GRACE)
        return;
    for (auto const &[name, device] : _stage.getDevices())
        if (_states.at(name) != "final" && _states.at(name) != "abort")
            device->giveUp();
}

void Client::showProgress(bool isLast)
{
    bool const isDue = now() - _shownAt >= _display.getInterval();
    if (!isLast && (!isDue || !_observer->takeMark()))
        return;
    using Value = DevMgrPropertyValueUtil<double>;
    Value::getValue(_stage.properties(), (_player + ":transport:position").c_str(), _position);
    if (!_faders.empty())
        Value::getValue(_stage.properties(), (_faders.front() + ":levels:peak").c_str(), _peak);
    double place = _position;
    if (_job->timeline)
        Value::getValue(_stage.properties(), (_player + ":transport:cue").c_str(), place);
    _shownAt = now();
    _display.progress(_position, place, _peak);
}

void Client::showResult()
{
    _display.statistics("device", nullptr, 0, 0);
    for (auto const &[name, device] : _stage.getDevices()) {
        auto const figures = device->getStatistics();
        _display.statistics(shorten(name, LONGEST_NAME), &figures, _startedAt, _stoppedAt);
    }
    if (_job->isPaced)
        _display.beats("clock", nullptr);
    for (auto const &[name, device] : _stage.getDevices())
        if (auto const &metronome = device->getMetronome(); metronome.isUsed()) {
            auto const figures = metronome.getFigures();
            _display.beats(shorten(name, LONGEST_NAME), &figures);
        }
    if (_job->show.memory)
        _display.memory(*_job->show.memory, _job->memoryFigures.get());
    followCues();
    for (auto const &cue : _job->cues.getOthers())
        _display.line("  " + _job->timeline->getTimecode(cue.frame) + "  " + cue.text +
                      " was not reached");
    _display.line("recorded " + _display.toPosition(_position) + " in " + _job->output);
    if (!_job->picture.empty())
        _display.line("its waveform is " + _job->picture);
}
