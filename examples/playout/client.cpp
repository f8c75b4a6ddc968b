#include "client.h"

#include "cueSheet.h"
#include "now.h"
#include "playoutEx.h"
#include "realTime.h"
#include "shownText.h"
#include "signals.h"

#include <algorithm>
#include <charconv>
#include <exception>
#include <optional>
#include <utility>

using namespace Zv;

namespace {

constexpr int BLOCK_FRAMES = 1024;
constexpr std::size_t LONGEST_NAME = 80; // bytes of a device's name that are shown

// Intervals and limits in seconds.
constexpr double SIGNAL_INTERVAL = 0.05; // between looks for a signal
constexpr double WATCH_INTERVAL = 0.1;   // between looks for a device that failed silently
constexpr double SHORT = 0.3;            // wait for what should be nearly done
constexpr double NOTICE = 3;             // until a device that does not answer is named
constexpr double HANG = 10;              // until a step counts as hanging

/// Limits in seconds for the end of a recording.
struct EndLimits
{
    double stop;
    double abort;
    double close;
};
constexpr EndLimits LIMITS = {5, 3, 3};
constexpr EndLimits LIMITS_AFTER_HANG = {1, 3, 3};
constexpr EndLimits LIMITS_AFTER_SIGNAL = {0.5, 0.9, 0.9};
constexpr double FINISH_AFTER_SIGNAL = 2; // until what was captured is in its file
constexpr double END_AFTER_SIGNAL = 4;    // for all of the end, with a reserve

using End = DevSeqDeviceStatus::End;
using CloseEnd = DevMgrCloseReport::End;

std::string getReason(std::exception_ptr const &failure)
{
    try {
        std::rethrow_exception(failure);
    } catch (ExBase const &caught) {
        return caught.getReason();
    } catch (std::exception const &caught) {
        return caught.what();
    } catch (...) {
        return "an exception of an unknown class";
    }
}

bool isLeftBehind(DevMgrCloseReport::Device const &device)
{
    return device.end == CloseEnd::NOT_CLOSED || device.end == CloseEnd::NOT_OPENED;
}

/// Returns the shortest text that is exactly this number.
std::string toNumber(double number)
{
    char text[32];
    return {text, std::to_chars(text, text + sizeof text, number).ptr};
}

std::string shown(LiString const &device)
{
    return shorten(device.getChars(), LONGEST_NAME);
}

/// Returns "recorder: No space", or only the reason if it begins with the name.
std::string withName(std::string const &name, std::string const &reason)
{
    return reason.starts_with(name + " ") ? reason : name + ": " + reason;
}

/// Returns the call or step that a device has not answered. Empty if there is none.
std::string getQuestion(DevSeqDeviceStatus const &device)
{
    return (device.call.isEmpty() ? device.step : device.call).getChars();
}

} // namespace

Client::Client(Options const &options, Show const &show, std::string const &output)
    : _options(options),
      _job(makeShd<PlayoutJob>(show, output, options.blockFrames.value_or(BLOCK_FRAMES),
                               options.fast, options.faults)),
      _stage(_job),
      _errands(_job),
      _observer(makeShd<PropertyObserver>(_job)),
      _stateObserver(makeShd<StateObserver>(_job)),
      _top(options.top ? std::make_unique<Top>() : nullptr)
{
    if (_top)
        _display.setTop(_top.get());
    if (_options.report.empty())
        return;
    _reportFile = std::make_unique<PartFile>(_options.report);
    _job->keepJournal();
}

bool Client::run()
{
    if (!_reportFile)
        return playShow();
    std::exception_ptr failure;
    bool isComplete = false;
    try {
        isComplete = playShow();
    } catch (...) {
        failure = std::current_exception();
    }
    try {
        writeReport(failure      ? getReason(failure)
                    : isComplete ? ""
                                 : Signals::getMessage(_job->output));
    } catch (...) {
        if (!failure)
            throw;
        _display.line("  " + getReason(std::current_exception())); // the first failure is worse
    }
    if (failure)
        std::rethrow_exception(failure);
    return isComplete;
}

bool Client::playShow()
{
    std::exception_ptr failure;
    auto const attempt = [&failure](auto step) {
        try {
            step();
        } catch (PlayoutEx::Interrupted const &) { // `Signals` has the signal
        } catch (...) {
            if (!failure)
                failure = std::current_exception();
        }
    };
    showTop("opening", false);
    _stage.create();
    attempt([this] { prepare(); });
    if (!failure && !Signals::getCaught())
        attempt([this] { play(); });
    bool const isSignalled = Signals::getCaught() && _failure.empty();
    attempt([this] { close(); });
    endTop();
    _isComplete = (_hasLeftBehind && Signals::beginReport()) || _job->isComplete();
    if (!_status.devices.empty() || _hasLeftBehind)
        showEnds();
    if (_isComplete && !failure)
        showResult();
    if (failure)
        std::rethrow_exception(failure);
    if (isSignalled && !_isComplete)
        return false;
    if (!_failure.empty() && _job->isWritten()) // after the failure of another device
        _failure += " (" + describeOutput() + ")";
    findCulprit();
    if (_isNoAnswer)
        ZV_THROW(PlayoutEx::NoAnswer, _failure.c_str());
    if (!_failure.empty())
        ZV_THROW(PlayoutEx::Client, _failure.c_str());
    if (!_isComplete && !Signals::getCaught())
        ZV_THROW(PlayoutEx::Client, "the sequence has ended before the recording");
    return _isComplete;
}

/// Writes the report. The failure is empty if there is none. Throws `PlayoutEx::Output`.
void Client::writeReport(std::string const &failure)
{
    _reportFile->write(makeReport(failure).toPage());
    _reportFile->finish();
    {
        // If the end is being reported, nothing ends the process at once any longer.
        std::optional<Signals::Critical> critical;
        if (!_hasLeftBehind)
            critical.emplace();
        _reportFile->commit();
    }
    _display.line("its report is " + _options.report);
}

Report Client::makeReport(std::string const &failure) const
{
    Report report;
    report.title = _options.input;
    report.hasFailed = !failure.empty();
    report.result = report.hasFailed ? failure : describeResult();
    report.waveform = _job->journal->takeWaveform();
    report.timeline = _job->timeline.get();
    report.events = _job->cues.getHappened();
    report.otherEvents = _job->cues.getOthers();
    for (auto const &device : _status.devices) // parents first
        report.devices.push_back({device.name.getChars(), _stage.getDepth(device.name.getChars())});
    report.length = _startedAt > 0 ? _finishedAt - _startedAt : 0;
    report.budget = _job->show.memory ? _job->show.memory->budget : 0;
    report.records = _job->journal->getRecords();
    report.threads = _threads;
    report.tables = _display.getTables();
    addFacts(report);
    return report;
}

/// Adds what a reader wants to know first.
void Client::addFacts(Report &report) const
{
    auto const add = [&](char const *name, std::string const &value) {
        report.facts.emplace_back(name, value);
    };
    add("played", _display.toPosition(_position));
    if (_job->timeline)
        add("clock", _job->timeline->getName() + (_job->isPaced ? "" : ", as fast as it goes"));
    add("devices", std::to_string(report.devices.size()));
    std::int64_t nbBeats = 0;
    double latest = 0;
    for (auto const &[name, lateness] : report.records.lateness) {
        nbBeats += lateness.getCount();
        latest = std::max(latest, lateness.getLongest());
    }
    if (nbBeats > 0)
        add("beats", std::to_string(nbBeats) + ", the latest by " + Chart::toTime(latest));
    if (report.budget > 0)
        add("memory", Chart::toBytes(report.records.bytes.getLargest()) + " of " +
                          Chart::toBytes(static_cast<double>(report.budget)));
    if (_job->card)
        add("sound card", _job->card->getName());
    if (!_job->output.empty())
        add("output", _job->output);
}

void Client::prepare()
{
    perform([this] {
        _stage.build();
        setCues(_stage, *_job);
    });
    show();
    perform([this] {
        setProperties();
        observe();
    });
}

/// Makes a call that waits for devices. Throws `PlayoutEx::Interrupted` if a signal arrives before
/// it has returned.
void Client::perform(std::function<void()> call)
{
    _errands.begin(std::move(call));
    double const begin = now();
    while (!_errands.collect()) {
        if (Signals::getCaught())
            ZV_THROW(PlayoutEx::Interrupted);
        if (auto const opening = _job->getOpening(); !opening.empty() && now() - begin > NOTICE)
            _display.notice(
                "  " + shorten(opening, LONGEST_NAME) +
                format(" has not opened within %.0f s; Ctrl-C ends the program", NOTICE));
        showTop("opening", false);
        _job->wait(SIGNAL_INTERVAL);
    }
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
    _source = _stage.getSource();
    _faders = _stage.findAll("fader");
}

void Client::setProperties()
{
    if (_options.gain) {
        if (_faders.empty())
            ZV_THROW(PlayoutEx::Client, "--gain: the sequence has no fader");
        _stage.setProperty("", _faders.front() + ":levels:gain=" + toNumber(*_options.gain));
    }
    if (_options.length)
        _stage.setProperty("", _source + ":transport:length=" + toNumber(*_options.length));
    for (auto const &setting : _options.properties)
        _stage.setProperty("", setting);
}

void Client::observe()
{
    using Properties = DevMgrPropertyObserverUtil;
    double length = 0;
    DevMgrPropertyValueUtil<double>::getValue(_stage.properties(),
                                              (_source + ":transport:length").c_str(), length);
    _display.setLength(length);
    _display.setTimeline(_job->timeline.get());
    Properties::attachObserver(_stage.properties(), (_source + ":transport:position").c_str(),
                               _observer);
    if (!_faders.empty())
        Properties::attachObserver(_stage.properties(), (_faders.front() + ":levels:peak").c_str(),
                                   _observer);
}

void Client::play()
{
    DevMgrSeqSupervisor &sequence = _stage.sequence();
    for (auto const &device : sequence.getStatus().devices)
        _states[device.name.getChars()] = device.state.getChars();
    sequence.setObserver(_stateObserver);
    _startedAt = now();
    if (_stage.isA("microphone", _source)) // see `endRecording`
        Signals::beginEnd(FINISH_AFTER_SIGNAL + END_AFTER_SIGNAL);
    if (_job->journal)
        _job->journal->begin(_startedAt);
    sequence.start();
    for (followStates(); !mustEnd(); followStates()) {
        followCues();
        if (haveAll("lock")) {
            if (_job->journal && _threads.empty())
                _threads = readThreadLevels();
            showProgress();
        }
        showTop(_recordingEndedAt > 0 ? "ending" : haveAll("lock") ? "playing" : "starting");
        _job->wait(SIGNAL_INTERVAL);
    }
    if (_job->isComplete()) {
        settleErrand(SHORT);
        _errands.begin([this] { readProgress(); });
        if (settleErrand(SHORT))
            showReadProgress();
    }
    endSequence();
}

bool Client::mustEnd()
{
    if (_job->isComplete() || (Signals::getCaught() && !endRecording()))
        return true;
    watch();
    if (!_isNoAnswer && _job->hasFailed())
        _failure = _job->getFailure();
    return !_failure.empty();
}

/// Ends the recording of a microphone after a signal, so that it is complete as far as it went.
/// Returns false if that is impossible or takes too long.
bool Client::endRecording()
{
    if (_recordingEndedAt > 0)
        return now() - _recordingEndedAt < FINISH_AFTER_SIGNAL;
    if (!haveAll("lock"))
        return false;
    for (auto const &[name, device] : _stage.getDevices())
        if (name == _source && device->endHere())
            _recordingEndedAt = now();
    return _recordingEndedAt > 0;
}

/// Looks for devices that have ended by themselves or do not answer.
void Client::watch()
{
    bool const isLost = std::any_of(_states.begin(), _states.end(), [](auto const &entry) {
        return entry.second == "_exc" || entry.second == "abort" || entry.second == "final";
    });
    if (!isLost && now() - _watchedAt < WATCH_INTERVAL)
        return;
    _watchedAt = now();
    DevSeqStatus const status = _stage.sequence().getStatus();
    for (auto const &device : status.devices)
        watch(device, status.moment);
    if (_failure.empty() && !status.failure.isEmpty())
        _failure = std::string("the sequence has failed: ") + status.failure.getChars();
    for (auto const &[name, device] : _stage.getDevices())
        if (device->getBusySeconds() > NOTICE && !_questions.contains(name))
            _display.notice("  " + shorten(name, LONGEST_NAME) +
                            format(" has been at one piece of its work for %.0f s; "
                                   "Ctrl-C ends the program",
                                   NOTICE));
}

void Client::watch(DevSeqDeviceStatus const &device, double moment)
{
    std::string const name = shown(device.name);
    if (_failure.empty() && device.hasFailed)
        _failure = withName(name, device.failure.getChars());
    else if (_failure.empty() && device.end != End::NONE)
        _failure = name + " has aborted";
    std::string const question = getQuestion(device);
    double const since = device.call.isEmpty() ? device.stepSince : device.callSince;
    if (question.empty() || moment - since < NOTICE)
        return;
    _questions[device.name.getChars()] = question;
    _display.notice("  " + name + " has not answered \"" + question + "\"" +
                    format(" within %.0f s; Ctrl-C ends the program", NOTICE));
    if (_failure.empty() && moment - since >= HANG) {
        _failure = name + " gave no answer to \"" + question + "\"" +
                   format(" within %.0f s (", HANG) + describeOutput() + ")";
        _isNoAnswer = true;
    }
}

void Client::endSequence()
{
    bool isSignalled = Signals::getCaught();
    _display.endProgress();
    if (!_job->isComplete())
        _stage.letGo();
    _stoppedAt = now();
    settleErrand(isSignalled ? 0 : SHORT);
    EndLimits const limits = isSignalled   ? LIMITS_AFTER_SIGNAL
                             : _isNoAnswer ? LIMITS_AFTER_HANG
                                           : LIMITS;
    if (isSignalled)
        Signals::beginEnd(END_AFTER_SIGNAL);
    _errands.begin(
        [sequence = &_stage.sequence(), limits] { sequence->stop(limits.stop, limits.abort); });
    while (!_errands.collect()) {
        followStates();
        noteQuestions();
        if (!isSignalled && Signals::getCaught()) {
            isSignalled = true;
            stopAfterSignal();
        }
        showTop("ending");
        _job->wait(SIGNAL_INTERVAL);
    }
    awaitStates();
    _finishedAt = now();
}

/// Stops the sequence within the shorter limits. A call of `stop` on another thread then returns,
/// too.
void Client::stopAfterSignal()
{
    Signals::beginEnd(END_AFTER_SIGNAL);
    _stage.sequence().stop(LIMITS_AFTER_SIGNAL.stop, LIMITS_AFTER_SIGNAL.abort);
}

/// Records what the devices have not answered. An unanswered abort is not recorded, because the
/// question before it says more.
void Client::noteQuestions()
{
    DevSeqStatus const status = _stage.sequence().getStatus();
    for (auto const &device : status.devices) {
        std::string const question = getQuestion(device);
        double const since = device.call.isEmpty() ? device.stepSince : device.callSince;
        if (!question.empty() && question != "abort" && status.moment - since > WATCH_INTERVAL)
            _questions[device.name.getChars()] = question;
    }
}

/// Returns the recorded question that a device has not answered, else the current one.
std::string Client::getUnanswered(DevSeqDeviceStatus const &device) const
{
    auto const place = _questions.find(device.name.getChars());
    return place == _questions.end() ? getQuestion(device) : place->second;
}

/// Waits a short time for the observer's calls for the last states.
void Client::awaitStates()
{
    _status = _stage.sequence().getStatus();
    auto const areKnown = [this] {
        return std::all_of(_status.devices.begin(), _status.devices.end(), [&](auto const &device) {
            auto const &known = _states[device.name.getChars()];
            return known == "_exc" || known == device.state.getChars();
        });
    };
    double const end = now() + SHORT;
    for (followStates(); !areKnown() && now() < end; followStates())
        _job->wait(SIGNAL_INTERVAL);
    showTop("closing");
}

/// Waits for a pending call, and leaves it behind after the time. Returns false if it was left
/// behind or has failed.
bool Client::settleErrand(double seconds)
{
    double const end = now() + seconds;
    try {
        while (_errands.isPending() && !_errands.collect()) {
            if (now() >= end) {
                _errands.leaveBehind();
                return false;
            }
            _job->wait(std::min(seconds, SIGNAL_INTERVAL));
        }
        return true;
    } catch (ExBase const &) { // not a failure of the recording
        return false;
    }
}

void Client::close()
{
    Signals::beginEnd(END_AFTER_SIGNAL);
    double const limit = (Signals::getCaught() ? LIMITS_AFTER_SIGNAL : LIMITS).close;
    if (_startedAt > 0 && _status.devices.empty()) { // `play` was interrupted
        stopAfterSignal();
        settleErrand(SHORT);
        awaitStates();
        _finishedAt = now();
    }
    if (!_errands.isPending() && !_job->show.events.empty()) {
        _errands.begin([this] { _stage.stopCues(); });
        settleErrand(SHORT);
    }
    Signals::beginEnd(limit + END_AFTER_SIGNAL / 2);
    _closed = _stage.close(limit);
    settleErrand(SHORT); // a call that was opening devices
    auto const &devices = _closed.devices;
    _hasLeftBehind =
        _errands.hasLeftBehind() || _closed.isThreadLeftBehind ||
        std::any_of(devices.begin(), devices.end(), isLeftBehind) ||
        std::any_of(_status.devices.begin(), _status.devices.end(), [](auto const &device) {
            return device.end == End::NO_ANSWER || !device.call.isEmpty();
        });
    if (_hasLeftBehind)
        return;
    _stage.release();
    if (_job->card) {
        _errands.begin([job = _job] { job->card->close(); });
        settleErrand(limit);
        _hasLeftBehind = _errands.hasLeftBehind();
    }
}

void Client::followStates()
{
    for (auto const &move : _stateObserver->takeMoves()) {
        std::string &known = _states[move.device];
        _display.line(format("  %8.3f ms  %-10s %s -> %s", (move.time - _startedAt) * 1000,
                             shorten(move.device, LONGEST_NAME).c_str(), known.c_str(),
                             move.state.c_str()));
        known = move.state;
        if (_job->journal)
            _job->journal->move(move.device, move.state, move.time);
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

/// Shows a finished reading, or begins the next one. There is one reading at a time, on the thread
/// of the errands, so that a device that does not answer delays nothing else.
void Client::showProgress()
{
    if (_errands.isPending()) {
        if (_errands.collect())
            showReadProgress();
    } else if (now() - _shownAt >= _display.getInterval() && _observer->takeMark()) {
        _errands.begin([this] { readProgress(); });
    }
}

void Client::readProgress()
{
    using Value = DevMgrPropertyValueUtil<double>;
    bool const hasPlace = _job->timeline && _stage.isA("player", _source);
    // Before the position, so that a place at the end never comes with an earlier position.
    if (hasPlace)
        Value::getValue(_stage.properties(), (_source + ":transport:cue").c_str(), _reading.place);
    Value::getValue(_stage.properties(), (_source + ":transport:position").c_str(),
                    _reading.position);
    if (!hasPlace)
        _reading.place = _reading.position;
    if (!_faders.empty())
        Value::getValue(_stage.properties(), (_faders.front() + ":levels:peak").c_str(),
                        _reading.peak);
}

void Client::showReadProgress()
{
    _shownAt = now();
    _position = _reading.position;
    _peak = _reading.peak;
    _share = _display.getShare(_reading.place);
    _display.progress(_reading.position, _reading.place, _reading.peak, _job->card.get());
}

/// Gives the live table, if there is one, the present figures, if the last ones are old enough.
/// `areOpen` says that the devices are open.
void Client::showTop(char const *phase, bool areOpen)
{
    if (!_top || now() - _topShownAt < Top::INTERVAL)
        return;
    _topShownAt = now();
    TopFigures figures;
    figures.title = _options.input.empty() ? "zvplayout" : _options.input;
    figures.phase = phase;
    if (_shownAt > 0)
        figures.position = _display.toPosition(_position);
    figures.peak = _peak;
    figures.share = _share;
    _topReader.read(figures, *_job);
    if (areOpen)
        TopReader::readDevices(figures, *_job, _stage, _states);
    _top->show(std::move(figures));
}

/// Leaves the terminal as it was before the live table, and shows the lines so far.
void Client::endTop()
{
    _top.reset();
    _display.setTop(nullptr);
}

void Client::showEnds()
{
    _display.end("device", nullptr);
    auto const show = [this](LiString const &name, DeviceEnd end) {
        if (auto const * const closed = findClosed(name)) {
            if (isLeftBehind(*closed))
                end.text += (end.text.empty() ? "" : ", ") + std::string("left behind");
            else
                end.seconds["close"] = closed->seconds;
        }
        _display.end(shown(name), &end);
    };
    for (auto const &device : _status.devices) {
        DeviceEnd end{describeEnd(device), {}};
        for (auto const &step : device.stepTimes)
            end.seconds[step.step.getChars()] = step.seconds;
        show(device.name, end);
    }
    if (_status.devices.empty()) // the devices were never started
        for (auto device = _closed.devices.rbegin(); device != _closed.devices.rend(); ++device)
            show(device->name, {isLeftBehind(*device) ? "" : "not started", {}});
    for (auto const &device : _status.devices)
        showReason(device);
    for (auto const &device : _closed.devices)
        showReason(device);
}

std::string Client::describeEnd(DevSeqDeviceStatus const &device) const
{
    switch (device.end) {
    case End::NONE:
        return device.hasFailed ? "failed" : "not started";
    case End::STOPPED:
        return "stopped";
    case End::ABORTED:
        return _job->getFailure(device.name.getChars()).empty() ? "aborted" : "failed";
    case End::FAILED:
        return "failed";
    case End::NO_ANSWER:
        return "no answer";
    }
    return "";
}

void Client::showReason(DevSeqDeviceStatus const &device)
{
    std::string const name = shown(device.name);
    std::string reason = _job->getFailure(device.name.getChars());
    if (reason.empty())
        reason = device.failure.getChars();
    if (!reason.empty())
        _display.line("    " + withName(name, reason));
    if (device.end == End::NO_ANSWER)
        _display.line("    " + name + " gave no answer to \"" + getUnanswered(device) + "\"");
    if (device.nbRefused > 0)
        _display.line("    " + name +
                      format(": %u %s refused, because the device was not in the state for it",
                             static_cast<unsigned>(device.nbRefused),
                             device.nbRefused == 1 ? "report was" : "reports were"));
}

void Client::showReason(DevMgrCloseReport::Device const &device)
{
    std::string const name = shown(device.name);
    if (device.failure)
        _display.line("    " + withName(name, getReason(device.failure)));
    else if (device.end == CloseEnd::NOT_CLOSED)
        _display.line("    " + name + " was left behind: it has not closed in time");
    else if (device.end == CloseEnd::NOT_OPENED)
        _display.line("    " + name + " was left behind: it has not opened");
}

DevMgrCloseReport::Device const *Client::findClosed(LiString const &name) const
{
    auto const &devices = _closed.devices;
    auto const place = std::find_if(devices.begin(), devices.end(),
                                    [&](auto const &device) { return device.name == name; });
    return place == devices.end() ? nullptr : &*place;
}

/// Names the device that failed at the end, even if the recording is complete.
void Client::findCulprit()
{
    enum Rank
    {
        NONE,
        ABORTS,
        FAILS,
        HANGS
    };
    if (!_failure.empty())
        return;
    Rank blamed = NONE;
    auto const blame = [&](Rank rank, std::string const &text) {
        if (rank <= blamed)
            return;
        blamed = rank;
        _failure = text + " (" + describeOutput() + ")";
        _isNoAnswer = rank == HANGS;
    };
    for (auto const &device : _status.devices) {
        std::string const name = shown(device.name);
        if (device.end == End::NO_ANSWER)
            blame(HANGS, name + " gave no answer to \"" + getUnanswered(device) + "\"");
        else if (device.hasFailed)
            blame(FAILS, withName(name, device.failure.getChars()));
        else if (device.end == End::ABORTED && _questions.contains(device.name.getChars()))
            blame(FAILS,
                  name + " gave no answer to \"" + getUnanswered(device) + "\" and was aborted");
        else if (device.end == End::ABORTED)
            blame(ABORTS, name + " has aborted");
    }
    for (auto const &device : _closed.devices) {
        std::string const name = shown(device.name);
        if (device.failure)
            blame(FAILS, withName(name, getReason(device.failure)));
        else if (isLeftBehind(device))
            blame(HANGS, name + " has not closed in time");
    }
}

std::string Client::describeOutput() const
{
    bool const isWritten = _isComplete || _job->isWritten();
    if (_job->output.empty())
        return isWritten ? "all was played" : "not all was played";
    return _job->output + (isWritten ? " is complete" : " was not written");
}

std::string Client::describeResult() const
{
    return _job->output.empty()
               ? "played " + _display.toPosition(_position) + " to " + _job->card->getName()
               : "recorded " + _display.toPosition(_position) + " in " + _job->output;
}

void Client::showResult()
{
    _display.statistics("device", nullptr, 0, 0);
    for (auto const &[name, device] : _stage.getDevices()) {
        if (auto const * const closed = findClosed(name.c_str()); !closed || isLeftBehind(*closed))
            continue; // its thread may still change its figures
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
    if (_job->card)
        _display.card(*_job->card);
    if (_job->show.memory && _stage.isA("player", _source))
        _display.memory(*_job->show.memory, _job->memoryFigures.get());
    followCues();
    for (auto const &cue : _job->cues.getOthers())
        _display.line("  " + _job->timeline->getTimecode(cue.frame) + "  " + cue.text +
                      " was not reached");
    _display.line(describeResult());
    if (!_job->picture.empty())
        _display.line("its waveform is " + _job->picture);
}
