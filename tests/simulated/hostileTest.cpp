// Hostile devices: a random tree whose devices misbehave in random ways, and clients that make
// random calls.
#include "simulated/sequences.h"

#include "resmgt/deviceManager.h"
#include "resmgt/deviceProtocol.h"
#include "resmgt/locks.h"
#include "zvbase/inPackage.h"
#include "zvbase/platform/shared.h"
#include "zvbase/sleeper.h"

#include <array>
#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>
#include <utility>

using namespace Zv;
using namespace Zv::Simulated;

namespace {

using Status = DevSeqDeviceStatus;

constexpr int MOST_DEVICES = 8;

/// Random numbers that the seed of the schedule determines.
class Dice
{
public:
    Dice()
    {
        UUID uuid;
        ::UuidCreate(&uuid);
        std::memcpy(&_state, &uuid, sizeof _state);
        _state |= 1;
    }

    /// Returns a number from 0 to `end` - 1.
    int roll(int end)
    {
        LkGuard<LkLock const> const guard(_lock);
        _state = _state * 6364136223846793005u + 1442695040888963407u;
        return static_cast<int>((_state >> 33) % static_cast<unsigned>(end));
    }

private:
    LkLock _lock{"dice"};
    std::uint64_t _state;
};

enum class Kind
{
    PROMPT,
    LATE,
    TWICE,
    SILENT,
    DROPS,
    THROWS,
    THROWS_OTHER,
    HANGS,
    RECOVERS,
    ABORTS,
    NB_KINDS
};

/// A fault between the client and its devices, which an invariant must find.
enum class Planted
{
    NOTHING,
    LATE_CALL,         // a call outlasts its limit
    UNTOLD_DEVICE,     // a device is told neither to stop nor to abort
    SECOND_ABORT,      // a device is aborted twice
    ABORT_AFTER_STOP,  // a device that has stopped is aborted
    NO_CLOSING,        // a device is not closed
    SECOND_CLOSING,    // a device is closed twice
    CALL_AFTER_CLOSE,  // a device is called after it has been closed
    WRONG_CULPRIT,     // a device that has ended well is reported as failed
    UNNAMED_CULPRIT,   // a device that has failed is not reported
    FORGOTTEN_REASON,  // why a device has failed is not reported
    ESCAPED_EXCEPTION, // an exception of a device ends the process
    LEFT_MEMORY,
    LEFT_HANDLE
};

constexpr std::array STEPS = {"start", "getLatency", "sync", "getMark", "recover", "stop", "abort"};

/// A note that several threads take and read. If a limit has passed, nothing orders them, so only the
/// moment of the virtual time says whether the note has been taken.
class Note
{
public:
    void take()
    {
        Unseen const unseen;
        _isTaken = true;
    }
    operator bool() const { return peek(_isTaken); }

private:
    bool _isTaken = false;
};

class Hostile;

/// What the devices of one run share.
struct World
{
    /// Whether a time-out only occurs when no thread can run. Otherwise any device may be given up
    /// at any time, also while a thread is on its way into a call of the device.
    bool isPunctual = true;
    bool mayHang = true;
    Planted planted = Planted::NOTHING;

    void hang()
    {
        ++nbHanging;
        gate.wait();
    }
    /// Adds an action that another thread runs at some later time.
    void later(std::function<void()> action)
    {
        {
            LkGuard<LkLock const> const guard(lock);
            actions.push_back(std::move(action));
        }
        hasActions.post();
    }
    /// Runs a random one of the actions. Returns false if there is none.
    bool act()
    {
        std::function<void()> action;
        {
            LkGuard<LkLock const> const guard(lock);
            if (actions.empty())
                return false;
            auto const chosen = actions.begin() + dice.roll(static_cast<int>(actions.size()));
            action = std::move(*chosen);
            actions.erase(chosen);
        }
        action();
        return true;
    }

    Dice dice;
    LkLock lock{"world"};
    Vector<std::function<void()>> actions;
    LkUnnamedSema hasActions{"actions", 0};
    LkUnnamedSema gate{"gate", 0};
    LkCounter<long> nbHanging{0};
    Note isOver;                       // the supervisor has been destroyed
    Vector<RCShdPtr<Hostile>> devices; // of the tree, after it has been destroyed
};

class Hostile final : public DevMDAccessPrtcl, public DevMDSyncSeqPrtcl
{
public:
    Hostile(World &world, char const *badStep, Kind kind)
        : _world(world), _badStep(badStep), _kind(kind)
    {}

    void performOpen() override { ++nbOpened; }
    void performClose() override
    {
        HOLDS(!_isInCall);
        ++nbClosed;
    }
    void performStart(ObjPtr<DevACO> aco, ObjPtr<DevANO> recover, ObjPtr<DevANO> abort) override
    {
        ++nbStarted;
        _recover.reset(recover.release());
        _abort.reset(abort.release());
        if (_world.dice.roll(4) == 0)
            _world.later([request = _world.dice.roll(2) ? _recover : _abort,
                          self = RCShdPtr<Hostile>(this)] { self->report(*request); });
        take("start", aco);
        hasStarted.take();
    }
    void performSync(ObjPtr<DevACO> aco, DtTimeMark const &) override { take("sync", aco); }
    void performSync(ObjPtr<DevACO> aco, DtTime const &) override { take("sync", aco); }
    void performRecover(ObjPtr<DevACO> aco) override { take("recover", aco); }
    void performStop(ObjPtr<DevACO> aco) override
    {
        HOLDS(++nbStopped == 1);
        take("stop", aco);
    }
    void performAbort(ObjPtr<DevACO> aco) override
    {
        HOLDS(++nbAborted == 1);
        if (!isUnruly && hasReportedEnd)
            wasAbortedAfterEnd.take();
        HOLDS(!wasAbortedAfterEnd || !_world.isPunctual);
        checkChildren();
        take("abort", aco);
    }
    DtTime getLatency() override
    {
        ask("getLatency");
        return DtTime();
    }
    DtTimeMark getMark() override
    {
        ask("getMark");
        return DtTimeMark();
    }

    /// Returns whether the report must name the device, because it has failed or does not answer.
    bool isHostile() const { return hasFailed || hasHung || isSilent; }
    bool wasToldToEnd() const { return peek(nbStopped) + peek(nbAborted) > 0; }
    /// Runs the completion of a step.
    void answer(char const *step, DevACO &aco)
    {
        bool const isEnd = std::strcmp(step, "stop") == 0 || std::strcmp(step, "abort") == 0;
        if (isEnd)
            hasEnded.take();
        aco.performExecute();
        if (isEnd)
            hasReportedEnd.take();
    }

    Vector<Hostile *> children;
    // The calls of a device happen one after the other, so what only they write needs no lock. Other
    // threads peek at it.
    int nbOpened = 0;
    int nbClosed = 0;
    int nbStarted = 0;
    int nbStopped = 0;
    int nbAborted = 0;
    Note hasStarted;
    Note hasEnded;       // has begun to answer its stop or its abort
    Note hasReportedEnd; // has answered it
    Note wasAbortedAfterEnd;
    Note hasFailed;   // has thrown, or destroyed a completion
    LiString failure; // the reason
    Note hasHung;
    Note isSilent;
    Note isUnruly; // reports at any time

private:
    /// Checks that a device is aborted after its children, except children that do not answer. A
    /// device that reports an abort by itself is not checked.
    void checkChildren() const
    {
        if (isUnruly || !_world.isPunctual)
            return;
        for (Hostile const *child : children)
            HOLDS(!child->hasStarted || child->isHostile() || child->hasEnded);
    }

    bool isBad(char const *step) const { return std::strcmp(step, _badStep) == 0; }

    void ask(char const *what)
    {
        HOLDS(nbOpened == 1);
        HOLDS(nbClosed == 0 && (!_world.isPunctual || !_world.isOver));
        HOLDS(!std::exchange(_isInCall, true));
        struct Call
        {
            bool &isIn;
            ~Call() { isIn = false; }
        } const call{_isInCall};
        step(what);
        if (!isBad(what))
            return;
        switch (_kind) {
        case Kind::THROWS: {
            DevMgrEx::NameNotFound const exception(__FILE__, __LINE__);
            fail(exception.getReason());
            throw exception;
        }
        case Kind::THROWS_OTHER:
            fail("broken");
            throw std::runtime_error("broken");
        case Kind::HANGS:
            hasHung.take();
            return _world.hang();
        default:
            return;
        }
    }

    void fail(LiString const &reason)
    {
        failure = reason;
        hasFailed.take();
    }

    void take(char const *what, ObjPtr<DevACO> &aco)
    {
        ask(what);
        Kind const usual = _world.dice.roll(2) ? Kind::PROMPT : Kind::LATE;
        switch (isBad(what) ? _kind : usual) {
        case Kind::LATE:
            return answerLater(what, aco);
        case Kind::TWICE:
            answer(what, *aco);
            return answer(what, *aco);
        case Kind::SILENT:
            isSilent.take();
            _kept.emplace_back(aco.release());
            return;
        case Kind::DROPS:
            fail("It has destroyed a completion without running it.");
            aco = nullptr;
            return;
        case Kind::RECOVERS:
            report(*_recover);
            return answerLater(what, aco);
        case Kind::ABORTS:
            report(*_abort);
            return answerLater(what, aco);
        default:
            return answer(what, *aco);
        }
    }

    /// Executes a request, which only one thread at a time may do.
    void report(DevANO &request)
    {
        isUnruly.take();
        LkGuard<LkLock const> const guard(_reporting);
        request.performExecute();
    }

    void answerLater(char const *what, ObjPtr<DevACO> &aco)
    {
        _world.later([self = RCShdPtr<Hostile>(this), what,
                      aco = std::shared_ptr<DevACO>(aco.release())] { self->answer(what, *aco); });
    }

    World &_world;
    char const *_badStep;
    Kind _kind;
    bool _isInCall = false;
    LkLock _reporting{"reporting"};
    std::shared_ptr<DevANO> _recover;
    std::shared_ptr<DevANO> _abort;
    Vector<std::shared_ptr<DevACO>> _kept;
};

/// Passes all calls on to its device, with the planted fault.
class FaultyDevice final : public DevMDAccessPrtcl, public DevMDSyncSeqPrtcl
{
public:
    FaultyDevice(Planted planted, RCShdPtr<Hostile> const &device)
        : _planted(planted), _device(device)
    {}

    void performOpen() override { _device->performOpen(); }
    void performClose() override
    {
        if (_planted != Planted::NO_CLOSING)
            _device->performClose();
        if (_planted == Planted::SECOND_CLOSING)
            _device->performClose();
        if (_planted == Planted::CALL_AFTER_CLOSE)
            _device->getMark();
    }
    void performStart(ObjPtr<DevACO> aco, ObjPtr<DevANO> recover, ObjPtr<DevANO> abort) override
    {
        _device->performStart(aco, recover, abort);
    }
    void performSync(ObjPtr<DevACO> aco, DtTimeMark const &mark) override
    {
        _device->performSync(aco, mark);
    }
    void performSync(ObjPtr<DevACO> aco, DtTime const &latency) override
    {
        _device->performSync(aco, latency);
    }
    void performRecover(ObjPtr<DevACO> aco) override { _device->performRecover(aco); }
    void performStop(ObjPtr<DevACO> aco) override
    {
        if (_planted == Planted::UNTOLD_DEVICE)
            return aco->performExecute();
        _device->performStop(aco);
        if (_planted == Planted::ABORT_AFTER_STOP)
            _device->performAbort(makeACO([] {}));
    }
    void performAbort(ObjPtr<DevACO> aco) override
    {
        if (_planted == Planted::UNTOLD_DEVICE)
            return aco->performExecute();
        if (_planted == Planted::ESCAPED_EXCEPTION)
            return [&]() noexcept { _device->performAbort(aco); }();
        _device->performAbort(aco);
        if (_planted == Planted::SECOND_ABORT)
            _device->performAbort(makeACO([] {}));
    }
    DtTime getLatency() override { return _device->getLatency(); }
    DtTimeMark getMark() override { return _device->getMark(); }

private:
    Planted _planted;
    RCShdPtr<Hostile> _device;
};

/// Passes all calls on to a supervisor, with the planted fault.
class FaultySupervisor final : public DevMgrSeqSupervisor
{
public:
    FaultySupervisor(Planted planted, ObjPtr<DevMgrSeqSupervisor> supervisor)
        : _planted(planted), _supervisor(supervisor)
    {}
    ~FaultySupervisor() noexcept(false) override {}

    void start() override { _supervisor->start(); }
    bool waitLocked(double seconds) override { return _supervisor->waitLocked(seconds); }
    DevSeqStatus stop(double seconds, double abortSeconds) override
    {
        DevSeqStatus const status = _supervisor->stop(seconds, abortSeconds);
        if (_planted == Planted::LATE_CALL)
            Sleeper::getInstance().sleep(seconds + abortSeconds);
        return change(status);
    }
    DevSeqStatus abort(double seconds) override { return change(_supervisor->abort(seconds)); }
    bool wait(double seconds) override { return _supervisor->wait(seconds); }
    DevSeqStatus getStatus() override { return change(_supervisor->getStatus()); }
    void setObserver(RCShdPtr<DevSeqObserver> observer) override
    {
        _supervisor->setObserver(observer);
    }
    void setEndLimit(double seconds) override { _supervisor->setEndLimit(seconds); }

private:
    DevSeqStatus change(DevSeqStatus status) const
    {
        for (Status &device : status.devices) {
            if (_planted == Planted::WRONG_CULPRIT && device.end == Status::End::ABORTED)
                device.end = Status::End::FAILED;
            if (_planted == Planted::UNNAMED_CULPRIT && device.end == Status::End::FAILED)
                device.end = Status::End::ABORTED;
            if (_planted == Planted::FORGOTTEN_REASON)
                device.failure = LiString();
        }
        return status;
    }

    Planted _planted;
    ObjPtr<DevMgrSeqSupervisor> _supervisor;
};

/// A random tree of devices. Adds them to the registry, and writes the configuration to `config`.
class Tree
{
public:
    explicit Tree(World &world) : _world(world)
    {
        int const nbDevices = 1 + world.dice.roll(MOST_DEVICES);
        Vector<int> parents;
        for (int i = 0; i < nbDevices; ++i) {
            bool const isSound = world.dice.roll(3) == 0;
            RCShdPtr<Hostile> const device(new Hostile(
                world,
                isSound ? "" : STEPS[static_cast<std::size_t>(world.dice.roll(STEPS.size()))],
                rollKind()));
            devices.push_back(device);
            parents.push_back(i == 0 ? -1 : world.dice.roll(i));
            if (i > 0)
                devices[static_cast<std::size_t>(parents.back())]->children.push_back(device.get());
            DevRegistry::getInstance().add(
                makeRegistryEntry(nameOf(i), "hostile", [&world, device](LiString const &) {
                    return world.planted == Planted::NOTHING
                               ? RCShdPtr<DevMDPrtcl>(device)
                               : RCShdPtr<DevMDPrtcl>(new FaultyDevice(world.planted, device));
                }));
        }
        config = "( ";
        write(0, parents);
        config += ")";
    }
    ~Tree()
    {
        for (std::size_t i = 0; i < devices.size(); ++i)
            DevRegistry::getInstance().remove(nameOf(static_cast<int>(i)));
        _world.devices.swap(devices);
    }

    Hostile &find(LiString const &name) const
    {
        return *devices[static_cast<std::size_t>(name[0] - 'a')];
    }

    Vector<RCShdPtr<Hostile>> devices;
    LiString config;

private:
    Kind rollKind()
    {
        auto const kind = static_cast<Kind>(_world.dice.roll(static_cast<int>(Kind::NB_KINDS)));
        return kind == Kind::HANGS && !_world.mayHang ? Kind::LATE : kind;
    }
    static LiString nameOf(int device)
    {
        char const name[] = {static_cast<char>('a' + device), 0};
        return name;
    }
    void write(int device, Vector<int> const &parents)
    {
        config += nameOf(device) + " ";
        bool hasChildren = false;
        for (int i = 0; i < static_cast<int>(parents.size()); ++i)
            if (parents[static_cast<std::size_t>(i)] == device) {
                config += hasChildren ? "" : "( ";
                hasChildren = true;
                write(i, parents);
            }
        config += hasChildren ? ") " : "";
    }

    World &_world;
};

/// Checks that a call returns within its limit. The call may be refused.
void withinLimit(World const &world, double seconds, std::function<void()> const &call)
{
    double const begin = Sleeper::getInstance().getTime();
    try {
        call();
    } catch (DevMgrEx::SeqIllegalCall const &) {
    } catch (DevMgrEx::SeqDeviceFailed const &) {
    }
    HOLDS(!world.isPunctual || Sleeper::getInstance().getTime() - begin <= seconds + 0.01);
}

void actAtRandom(World &world, DevMgrSeqSupervisor &supervisor)
{
    double const limit = 0.5 * (1 + world.dice.roll(3));
    double const abortLimit = 0.5 * (1 + world.dice.roll(3));
    switch (world.dice.roll(8)) {
    case 0:
        return withinLimit(world, limit + abortLimit, [&] { supervisor.stop(limit, abortLimit); });
    case 1:
        return withinLimit(world, abortLimit, [&] { supervisor.stop(0, abortLimit); });
    case 2:
        return withinLimit(world, abortLimit, [&] { supervisor.abort(abortLimit); });
    case 3:
        return withinLimit(world, limit, [&] { supervisor.wait(limit); });
    case 4:
        return withinLimit(world, 0, [&] { supervisor.getStatus(); });
    case 5:
        return withinLimit(world, 0, [&] { supervisor.start(); });
    default:
        return withinLimit(world, limit, [&] { supervisor.waitLocked(limit); });
    }
}

/// Makes random calls of the supervisor, and throws at random.
class Observer final : public DevSeqObserver
{
public:
    Observer(World &world, DevMgrSeqSupervisor &supervisor) : _world(world), _supervisor(supervisor)
    {}
    void stateChanged(LiString const &, LiString const &) override
    {
        // If time-outs occur at any time, this call may be left behind and outlive the supervisor.
        if (_world.dice.roll(4) == 0 && _world.isPunctual)
            actAtRandom(_world, _supervisor);
        if (_world.dice.roll(8) == 0)
            throw std::runtime_error("an observer");
    }

private:
    World &_world;
    DevMgrSeqSupervisor &_supervisor;
};

void checkReport(World const &world, Tree const &tree, DevSeqStatus const &status)
{
    HOLDS(status.phase == DevSeqStatus::Phase::ENDED);
    HOLDS(status.failure.isEmpty());
    for (Status const &device : status.devices) {
        Hostile const &real = tree.find(device.name);
        switch (device.end) {
        case Status::End::NONE:
            HOLDS(!real.hasStarted);
            break;
        case Status::End::STOPPED:
            HOLDS(peek(real.nbStopped) == 1 && real.hasEnded && !device.hasFailed);
            break;
        case Status::End::ABORTED:
            HOLDS(peek(real.nbAborted) == 1 && real.hasEnded && !device.hasFailed);
            break;
        case Status::End::FAILED:
            HOLDS(real.hasFailed && device.hasFailed);
            break;
        case Status::End::NO_ANSWER:
            HOLDS(real.hasHung || real.isSilent || !world.isPunctual);
            break;
        }
        HOLDS(!device.hasFailed || real.hasFailed);
        HOLDS(!device.hasFailed || device.failure == real.failure);
        HOLDS(!real.hasFailed || device.hasFailed || device.end == Status::End::NO_ANSWER);
        HOLDS(real.isHostile() || !real.hasStarted || real.wasToldToEnd() || !world.isPunctual);
        HOLDS(device.call.isEmpty() || real.hasHung || !world.isPunctual);
        // A device may answer its stop after the supervisor has decided to abort it.
        HOLDS(!real.wasAbortedAfterEnd || device.nbRefused > 0 ||
              device.end == Status::End::NO_ANSWER);
    }
}

void run(World &world)
{
    Tree const tree(world);
    {
        ObjPtr<DevMgr> const manager = DevMgr::create();
        ObjPtr<DevMgrSeqSupervisor> supervisor = manager->createSeqSupervisor(tree.config);
        if (world.planted != Planted::NOTHING)
            supervisor = makeObj<FaultySupervisor>(world.planted, supervisor);
        supervisor->setEndLimit(2);
        if (world.dice.roll(2))
            supervisor->setObserver(RCShdPtr<DevSeqObserver>(new Observer(world, *supervisor)));
        if (world.dice.roll(4))
            supervisor->start();
        {
            Worker other("other client", [&] {
                for (int i = world.dice.roll(3); i > 0; --i)
                    actAtRandom(world, *supervisor);
            });
            for (int i = world.dice.roll(3); i > 0; --i)
                actAtRandom(world, *supervisor);
        }
        if (world.dice.roll(2)) {
            bool const wasStarted = supervisor->getStatus().phase != DevSeqStatus::Phase::IDLE;
            withinLimit(world, 2, [&] { supervisor->stop(1, 1); });
            if (wasStarted)
                checkReport(world, tree, supervisor->getStatus());
        }
        withinLimit(world, 2, [&] { supervisor = nullptr; });
        world.isOver.take();
        if (world.planted == Planted::LEFT_MEMORY)
            for (int i = 0; i < 10; ++i)
                static_cast<void>(new LiString("left"));
        if (world.planted == Planted::LEFT_HANDLE)
            static_cast<void>(::CreateEventA(nullptr, FALSE, FALSE, nullptr));
    }
    for (RCShdPtr<Hostile> const &device : tree.devices) {
        HOLDS(peek(device->nbOpened) == 1);
        // A device that hangs in a call is closed when the call has returned.
        HOLDS(peek(device->nbClosed) == (device->hasHung ? 0 : 1) || !world.isPunctual);
        HOLDS(device->isHostile() || !device->hasStarted || device->wasToldToEnd() ||
              !world.isPunctual);
    }
}

/// Behaviour of devices and time-outs.
enum class Hostility
{
    PUNCTUAL,   // a time-out only occurs when no thread can run
    HASTY,      // a time-out may occur at any time
    UNRELENTING // punctual, and no device hangs
};

/// Runs a sequence. After its end, devices that hang continue, and late answers are given.
void runAll(Hostility hostility, Planted planted = Planted::NOTHING)
{
    auto owner = std::make_unique<World>();
    World &world = *owner;
    world.isPunctual = hostility != Hostility::HASTY;
    world.mayHang = hostility != Hostility::UNRELENTING;
    world.planted = planted;
    ZvPlatform::Shared<bool> isDone{false};
    Worker helper("helper", [&] {
        while (!isDone.load(ZvPlatform::Order::RELAXED)) {
            world.hasActions.wait();
            world.act();
        }
    });
    run(world);
    for (long i = world.nbHanging.getValue(); i > 0; --i)
        world.gate.post();
    Sleeper::getInstance().sleep(1); // until all others wait or have ended
    isDone.store(true, ZvPlatform::Order::RELAXED);
    world.hasActions.post();
    helper.join();
    while (world.act())
        ;
    for (RCShdPtr<Hostile> const &device : world.devices)
        HOLDS(peek(device->nbClosed) == 1 || (peek(device->nbClosed) == 0 && !world.isPunctual));
    if (hostility == Hostility::HASTY)
        static_cast<void>(owner.release()); // a runner that was left behind may still use it
}

/// Checks that nothing remains of a sequence whose devices do not hang. A first run creates what
/// remains until the end of the process.
void runWithoutRemains(Planted planted = Planted::NOTHING)
{
    runAll(Hostility::UNRELENTING);
    ::Sleep(1000); // until the log's reader has taken what the threads have left
    long const nbAllocations = getNbAllocations();
    std::uint32_t const nbObjects = getNbObjects();
    runAll(Hostility::UNRELENTING, planted);
    ::Sleep(1000);
    // A sequence that remains would have more allocations. Tables of the process may have grown.
    HOLDS(getNbAllocations() < nbAllocations + 5);
    HOLDS(getNbObjects() == nbObjects);
}

constexpr Settings PUNCTUAL = withSequences(300, 400'000, false);
constexpr Settings UNRELENTING = withSequences(200, 800'000, false);

} // namespace

SIMULATED(HostileDevices, PUNCTUAL)
{
    InPackageScope const packages;
    runAll(Hostility::PUNCTUAL);
}

// Runners may be replaced although they do not hang, and continue at any moment. Some of them may
// not have ended.
SIMULATED(HostileDevicesOfImpatientClients, withSequences(300, 400'000, true, {200, 16}))
{
    InPackageScope const packages;
    runAll(Hostility::HASTY);
}

SIMULATED(HostileDevicesLeaveNothing, UNRELENTING)
{
    InPackageScope const packages;
    runWithoutRemains();
}

// Each invariant finds the fault that is planted for it.

#define FAULTY_DEVICES(NAME, FINDING, NB_SCHEDULES, PLANTED)                                       \
    KNOWN_FAULT(NAME, (Fault{FINDING, NB_SCHEDULES, NB_SCHEDULES}), PUNCTUAL)                      \
    {                                                                                              \
        InPackageScope const packages;                                                             \
        runAll(Hostility::PUNCTUAL, Planted::PLANTED);                                             \
    }

FAULTY_DEVICES(CallThatOutlastsItsLimit, "does not hold", 100, LATE_CALL)
FAULTY_DEVICES(DeviceThatIsNotTold, "does not hold", 100, UNTOLD_DEVICE)
FAULTY_DEVICES(DeviceThatIsAbortedTwice, "does not hold", 100, SECOND_ABORT)
FAULTY_DEVICES(DeviceThatIsAbortedAfterItHasStopped, "does not hold", 100, ABORT_AFTER_STOP)
FAULTY_DEVICES(DeviceThatIsNotClosed, "does not hold", 100, NO_CLOSING)
FAULTY_DEVICES(DeviceThatIsClosedTwice, "does not hold", 100, SECOND_CLOSING)
FAULTY_DEVICES(DeviceThatIsCalledAfterItsClose, "does not hold", 100, CALL_AFTER_CLOSE)
FAULTY_DEVICES(SoundDeviceThatIsReported, "does not hold", 100, WRONG_CULPRIT)
FAULTY_DEVICES(FailedDeviceThatIsNotReported, "does not hold", 100, UNNAMED_CULPRIT)
FAULTY_DEVICES(FailedDeviceWithoutItsReason, "does not hold", 100, FORGOTTEN_REASON)
FAULTY_DEVICES(ExceptionThatEndsTheProcess, "terminate", 300, ESCAPED_EXCEPTION)

KNOWN_FAULT(MemoryThatASequenceLeaves, (Fault{"does not hold", 10, 10}), UNRELENTING)
{
    InPackageScope const packages;
    runWithoutRemains(Planted::LEFT_MEMORY);
}

KNOWN_FAULT(HandleThatASequenceLeaves, (Fault{"does not hold", 10, 10}), UNRELENTING)
{
    InPackageScope const packages;
    runWithoutRemains(Planted::LEFT_HANDLE);
}
