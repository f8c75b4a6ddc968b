#include "client.h"

#include "fader.h"
#include "player.h"
#include "playoutEx.h"
#include "recorder.h"
#include "signals.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <initializer_list>
#include <limits>
#include <set>
#include <stdexcept>

using namespace Zv;

namespace {

constexpr double SIGNAL_INTERVAL = 0.05; // seconds, in which a signal is noticed
constexpr double GRACE = 0.25;           // seconds, in which a failure travels along streams

double now()
{
    return Sleeper::getInstance().getTime();
}

bool isOneOf(std::string const &state, std::initializer_list<char const *> states)
{
    return std::find(states.begin(), states.end(), state) != states.end();
}

/// Makes the devices of one kind.
template <class Device>
class Entry final : public DevRegistryEntry
{
public:
    Entry(char const *name, char const *description, RCShdPtr<PlayoutJob> const &job)
        : DevRegistryEntry(name, description), _job(job)
    {}

    RCShdPtr<DevMDPrtcl> createPrtcl() override { return makeShd<Device>(getName(), _job); }

private:
    RCShdPtr<PlayoutJob> _job;
};

/// `( recorder ( fader ( player ) ) )`
std::string toTree(Vector<Vector<LiString>> const &edges, LiString const &parent)
{
    std::string text;
    for (auto const &edge : edges)
        if (edge[0] == parent)
            text += std::string(edge[1].getChars()) + " " + toTree(edges, edge[1]);
    return text.empty() ? text : "( " + text + ") ";
}

/// What `configure` takes for a programmer's mistake may be a user's here.
void checkEdges(Vector<Vector<LiString>> const &edges)
{
    std::set<std::string> names;
    for (auto const &edge : edges) {
        std::string const name = edge[1].getChars();
        if (edge[0].isEmpty() && !names.empty())
            throw std::invalid_argument(name + " stands behind the root's group");
        if (!names.insert(name).second)
            throw std::invalid_argument(name + " stands in it twice");
    }
}

/// Sets a property that holds a `T` from a text; false for another one.
template <class T>
bool setNumber(RCShdPtr<DevMDPropertyAny> const &any, std::string const &text)
{
    auto const property = rcDynamicCast<DevMDProperty<T>>(any);
    if (property.isNull())
        return false;
    auto const number = parseNumber(text);
    T value = {};
    if (number)
        value = static_cast<T>(std::clamp(*number, double(std::numeric_limits<T>::lowest()),
                                          double(std::numeric_limits<T>::max())));
    if (!number || static_cast<double>(value) != *number)
        throw std::invalid_argument("\"" + text + "\" is no value for it");
    property->set(value);
    return true;
}

} // namespace

/// Runs on the manager's thread, which must not wait for a device: it marks, and the client's own thread reads.
class Client::Observer final : public DevMgrPropertyObserver
{
public:
    explicit Observer(RCShdPtr<PlayoutJob> const &job) : _job(job) {}

    void update(DevMgrPropertyObserverHint const &) override
    {
        _isMarked = true;
        _job->wake();
    }
    bool takeMark() { return _isMarked.exchange(false); }

private:
    RCShdPtr<PlayoutJob> _job;
    std::atomic<bool> _isMarked = false;
};

/// Runs under the lock of the sequence: it takes a note, and the client's own thread shows it.
class Client::StateObserver final : public DevSeqObserver
{
public:
    explicit StateObserver(RCShdPtr<PlayoutJob> const &job) : _job(job) {}

    void stateChanged(LiString const &device, LiString const &state) override
    {
        {
            LkGuard<LkLock const> const guard(_lock);
            _moves.push_back({now(), device.getChars(), state.getChars()});
        }
        _job->wake();
    }
    std::vector<Move> takeMoves()
    {
        LkGuard<LkLock const> const guard(_lock);
        return std::exchange(_moves, {});
    }

private:
    RCShdPtr<PlayoutJob> _job;
    LkLock _lock{"StateObserver"};
    std::vector<Move> _moves;
};

Client::Client(Options const &options)
    : _options(options),
      _job(makeShd<PlayoutJob>(options.input, options.output, options.blockFrames)),
      _observer(makeShd<Observer>(_job)),
      _stateObserver(makeShd<StateObserver>(_job))
{
    auto &registry = DevRegistry::getInstance();
    registry.add(makeObj<Entry<Player>>("player", "Reads a sound file", _job));
    registry.add(makeObj<Entry<Fader>>("fader", "Applies a gain", _job));
    registry.add(makeObj<Entry<Recorder>>("recorder", "Writes a sound file", _job));
}

Client::~Client() noexcept(false)
{
    close();
    for (char const * const name : {"player", "fader", "recorder"})
        DevRegistry::getInstance().remove(name);
}

bool Client::run()
{
    checkFiles();
    configure();
    setProperties();
    observe();
    if (!Signals::getCaught())
        play();
    close();
    if (_job->hasFailed())
        ZV_THROW(PlayoutEx::Client, _job->getFailure().c_str());
    if (_job->isComplete())
        showResult();
    else if (!Signals::getCaught())
        ZV_THROW(PlayoutEx::Client, "the sequence has ended before the recording");
    return _job->isComplete();
}

void Client::checkFiles() const
{
    namespace fs = std::filesystem;
    std::error_code ignored; // a file that is missing is no other file
    for (auto const &path : {_options.output, _options.output + ".part"})
        if (fs::equivalent(_options.input, path, ignored))
            ZV_THROW(PlayoutEx::Output, path.c_str(), "it is the input");
}

void Client::configure()
{
    _manager = DevMgr::create();
    _sequence = _manager->createSyncSeqAcc();
    _streams = _manager->createStreamAcc();
    _properties = _manager->createPropertyAcc();

    inContext("sequence \"" + _options.sequence + "\"", [&] {
        auto const edges = _sequence->parseConfig(_options.sequence.c_str());
        checkEdges(edges);
        _sequence->configure(_options.sequence.c_str());
        for (auto const &edge : edges) {
            auto const device = rcDynamicCast<PlayoutDevice>(_manager->getPrtcl(edge[1]));
            _devices.emplace_back(edge[1].getChars(), device);
        }
        std::string const tree = toTree(edges, LiString());
        _display.line(tree.substr(0, tree.size() - 1));
    });
    for (char const * const needed : {"player", "recorder"})
        if (!isInSequence(needed))
            ZV_THROW(
                PlayoutEx::Client,
                format("sequence \"%s\": it has no %s", _options.sequence.c_str(), needed).c_str());
    for (auto const &stream : _options.streams) {
        inContext("stream \"" + stream + "\"", [&] { _streams->connect(stream.c_str()); });
        _display.line("  " + stream);
    }
}

bool Client::isInSequence(char const *device) const
{
    return std::any_of(_devices.begin(), _devices.end(),
                       [&](auto const &entry) { return entry.first == device; });
}

template <class Step>
void Client::inContext(std::string const &context, Step step)
{
    try {
        step();
    } catch (PlayoutEx const &) {
        throw; // says all by itself
    } catch (ExBase const &failure) {
        ZV_THROW(PlayoutEx::Client, (context + ": " + failure.getReason()).c_str());
    } catch (std::exception const &failure) {
        ZV_THROW(PlayoutEx::Client, (context + ": " + failure.what()).c_str());
    }
}

void Client::setProperties()
{
    auto settings = _options.properties;
    if (_options.gain) {
        if (!isInSequence("fader"))
            ZV_THROW(PlayoutEx::Client, "--gain: the sequence has no fader");
        char text[32];
        auto const end = std::to_chars(text, text + sizeof text, *_options.gain).ptr;
        settings.insert(settings.begin(), "fader:levels:gain=" + std::string(text, end));
    }
    for (auto const &setting : settings) {
        auto const equals = setting.find('=');
        if (equals == setting.npos)
            ZV_THROW(PlayoutEx::Client,
                     format("property \"%s\": it has no =value", setting.c_str()).c_str());
        inContext("property \"" + setting + "\"", [&] {
            auto const any = _properties->getProperty(setting.substr(0, equals).c_str());
            std::string const value = setting.substr(equals + 1);
            if (!setNumber<double>(any, value) && !setNumber<float>(any, value) &&
                !setNumber<int>(any, value) && !setNumber<unsigned>(any, value))
                ZV_THROW(DevMgrEx::PropertyInvalidType, any->getName().getChars());
        });
    }
}

void Client::observe()
{
    using Properties = DevMgrPropertyObserverUtil;
    double length = 0;
    DevMgrPropertyValueUtil<double>::getValue(*_properties, "player:transport:length", length);
    _display.setLength(length);
    Properties::attachObserver(*_properties, "player:transport:position", _observer);
    if (isInSequence("fader"))
        Properties::attachObserver(*_properties, "fader:levels:peak", _observer);
}

void Client::play()
{
    double failedAt = 0;
    for (auto const &[name, device] : _devices)
        _states[name] = _sequence->getState(name.c_str()).getChars();
    _sequence->setObserver(_stateObserver);
    _startedAt = now();
    _sequence->start();
    for (followStates(); !hasEnded(); followStates()) {
        if (_job->hasFailed()) {
            if (!failedAt)
                failedAt = now();
            tellFailure(failedAt);
        } else if (!_stoppedAt && mayStop() && isRootRunning()) {
            if (_job->isComplete())
                showProgress(true);
            _display.endProgress();
            _stoppedAt = now();
            _sequence->stop();
            continue;
        }
        if (haveAll("lock") && !_stoppedAt)
            showProgress(false);
        _job->wait(SIGNAL_INTERVAL);
    }
    if (haveAll("final"))
        _sequence->wait();
}

void Client::followStates()
{
    for (auto const &move : _stateObserver->takeMoves()) {
        std::string &known = _states[move.device];
        _display.line(format("  %8.3f ms  %-10s %s -> %s", (move.time - _startedAt) * 1000,
                             move.device.c_str(), known.c_str(), move.state.c_str()));
        known = move.state;
    }
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
    return isOneOf(_sequence->getState(_devices.front().first.c_str()).getChars(),
                   {"start", "wsr", "ready", "wml", "sync", "lock", "recover"});
}

/// A device that fails takes its neighbours along, and they theirs. Devices that no stream reaches hear it from here.
void Client::tellFailure(double failedAt)
{
    if (now() - failedAt < GRACE)
        return;
    for (auto const &[name, device] : _devices)
        if (_states.at(name) != "final" && _states.at(name) != "abort")
            device->giveUp();
}

void Client::showProgress(bool isLast)
{
    bool const isDue = now() - _shownAt >= _display.getInterval();
    if (!isLast && (!isDue || !_observer->takeMark()))
        return;
    using Value = DevMgrPropertyValueUtil<double>;
    Value::getValue(*_properties, "player:transport:position", _position);
    if (isInSequence("fader"))
        Value::getValue(*_properties, "fader:levels:peak", _peak);
    _shownAt = now();
    _display.progress(_position, _peak);
}

void Client::close()
{
    _properties.reset();
    _streams.reset();
    _sequence.reset();
    _manager.reset();
}

void Client::showResult()
{
    _display.statistics("device", nullptr, 0, 0);
    for (auto const &[name, device] : _devices) {
        auto const figures = device->getStatistics();
        _display.statistics(name, &figures, _startedAt, _stoppedAt);
    }
    _display.line(format("recorded %.2f s in %s", _position, _options.output.c_str()));
}
