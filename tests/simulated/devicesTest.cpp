// Devices and their manager: rendezvous, opening and closing, properties, streams, and sequences
// whose devices answer in any order.
#include "simulated/scenario.h"
#include "simulated/streams.h"

#include "resmgt/deviceManager.h"
#include "resmgt/deviceProtocol.h"
#include "resmgt/locks.h"
#include "resmgt/threadExtensions.h"
#include "zvbase/inPackage.h"

#include <cstring>
#include <functional>
#include <memory>
#include <queue>
#include <stdexcept>
#include <utility>

using namespace Zv;
using namespace Zv::Simulated;

namespace {

constexpr Settings WITH_PACKAGES = {.schedules = 60, .bound = 100'000, .leftOver = {64, 0}};

/// A device with all four interfaces. Its functions check that they run on the device's thread.
class Probe : public DevMDStdAccessPrtcl,
              public DevMDStdSyncSeqPrtcl,
              public DevMDStdStreamPrtcl,
              public DevMDStdPropertyPrtcl
{
public:
    struct Level : DevMDStdProperty<int>
    {
        using DevMDStdProperty<int>::DevMDStdProperty;
    };
    /// Additional behaviour of a device.
    struct Wishes
    {
        /// Name of the step in which the device reports that it aborts.
        char const *abortsAt = "";
    };

    Probe(LiString const &name, RCShdPtr<DevMDStdFifo> const &fifo, Wishes wishes)
        : DevMDStdAccessPrtcl(name, fifo, makeObj<DevMDStdLoopThreadProtocol>(fifo),
                              makeAccessANOFactory(*this)),
          DevMDStdSyncSeqPrtcl(name, fifo, makeSyncSeqANOFactory(*this)),
          DevMDStdStreamPrtcl(name),
          DevMDStdPropertyPrtcl(name),
          out(makeShd<Source>("out", "What it makes")),
          _queue(fifo),
          _wishes(wishes)
    {
        addStream(makeShd<Sink>("in", "What it takes", fifo,
                                makePushANOFactory([this](ObjPtr<DevMDStreamElem> elem) {
                                    checkThread();
                                    sum += rcDynamicCast<Samples>(elem->getBuf())->value;
                                })));
        addStream(out);
        ObjPtr<DevMDStdPropertySetBuilder> builder(getPropertySetBuilder());
        level = makeShd<Level>("level", "A number", 3u,
                               makePropertyANOFactory<int>(
                                   [this](int value) {
                                       checkThread();
                                       _level = value;
                                       level->changed();
                                   },
                                   [this](int &value) {
                                       checkThread();
                                       value = _level;
                                   }),
                               fifo);
        builder->addProperty(level);
    }

    // Called on the device's thread.
    void open()
    {
        _thread = ::GetCurrentThreadId();
        HOLDS(!isOpen);
        isOpen = true;
    }
    void close()
    {
        checkThread();
        isOpen = false;
    }
    void start(ObjPtr<DevANO> recover, ObjPtr<DevANO> abort)
    {
        _recover = recover;
        _abort = abort;
        isStarted = true;
        take("start");
        if (_isBroken)
            _abort->performExecute();
    }
    void sync(DtTimeMark const &) { take("sync"); }
    void sync(DtTime const &) { take("sync"); }
    void recover() { take("recover"); }
    void stop()
    {
        take("stop");
        isStopped = true;
    }
    void abort()
    {
        take("abort");
        isStopped = true;
    }
    void breakDown()
    {
        checkThread();
        _isBroken = true;
        if (isStarted && !isStopped)
            _abort->performExecute();
    }
    void loseLock()
    {
        checkThread();
        _recover->performExecute();
    }

    // Called on other threads.
    DtTime getLatency() override { return DtTime(); }
    DtTimeMark getMark() override
    {
        locked.post();
        return DtTimeMark();
    }
    template <class Function>
    void ask(Function function)
    {
        DevANOQueueEntry entry(makeANO(function));
        _queue->produce(entry);
    }

    /// Posted each time the machine of the device enters the state "lock".
    LkUnnamedSema locked{"locked", 0};
    bool isOpen = false;
    bool isStarted = false;
    bool isStopped = false;
    int sum = 0;
    RCShdPtr<Source> out;
    RCShdPtr<Level> level;

private:
    void checkThread() const { HOLDS(_thread == ::GetCurrentThreadId()); }
    void take(char const *what)
    {
        checkThread();
        step(what);
        if (std::strcmp(_wishes.abortsAt, what) == 0)
            _abort->performExecute();
    }

    RCShdPtr<DevMDStdFifo> _queue;
    Wishes _wishes;
    bool _isBroken = false;
    DWORD _thread = 0;
    int _level = 0;
    ObjPtr<DevANO> _recover;
    ObjPtr<DevANO> _abort;
};

using ProbePtr = RCShdPtr<Probe>;

ProbePtr makeProbe(char const *name, int capacity = 1)
{
    return makeShd<Probe>(name, makeShd<DevMDStdFifo>(capacity), Probe::Wishes{});
}

/// Adds a kind of device to the registry. Returns a pointer that holds the device once it has been
/// created.
ProbePtr &enterProbe(char const *name, Probe::Wishes const &wishes = {})
{
    auto &device = *new ProbePtr;
    DevRegistry::getInstance().add(
        makeRegistryEntry(name, "a probe", [&device, wishes](LiString const &kind) {
            HOLDS(device.isNull());
            device = makeShd<Probe>(kind, makeShd<DevMDStdFifo>(2), wishes);
            return RCShdPtr<DevMDPrtcl>(device.get());
        }));
    return device;
}

} // namespace

SIMULATED(Rendezvous, {.schedules = 300, .preemptions = 2, .leaks = true})
{
    auto receiver = std::make_unique<DevReceiverWait>("rendezvous");
    DevSenderWait sender(*receiver);
    bool isStill = false;
    Worker serving("serving", [&] {
        receiver->post();
        receiver->wait();
        HOLDS(isStill);
        receiver.reset();
    });
    sender.wait();
    isStill = true;
    sender.post();
}

SIMULATED(DeviceOpensAndCloses, WITH_PACKAGES)
{
    InPackageScope const packages;
    ProbePtr const device = makeProbe("probe");
    device->performOpen();
    HOLDS(device->isOpen);
    device->level->set(5);
    int level = 0;
    device->level->get(level);
    HOLDS(level == 5);
    device->performClose();
    HOLDS(!device->isOpen);
}

SIMULATED(DeviceClosedWhileRequestsArrive, WITH_PACKAGES)
{
    InPackageScope const packages;
    ProbePtr const device = makeProbe("probe");
    auto const ask = [&device] {
        try {
            int level = 0;
            device->level->set(1);
            device->level->get(level);
            HOLDS(level == 1);
        } catch (DevPrtclEx::ExMDStdPropertyGet const &) {
            // The device was closed before.
        }
    };
    device->performOpen();
    Worker first("first", ask);
    Worker second("second", ask);
    device->performClose();
    first.join();
    second.join();
    HOLDS(!device->isOpen);
}

SIMULATED(DeviceDestroyedUnclosed, WITH_PACKAGES)
{
    InPackageScope const packages;
    auto const fifo = makeShd<DevMDStdFifo>(1);
    bool isGone = false;
    // The requests use nothing of the device, which is destroyed before its thread ends.
    auto const request = [&isGone] { return makeANO([&isGone] { HOLDS(!isGone); }); };
    {
        auto const device = makeShd<Probe>("probe", fifo, Probe::Wishes{});
        device->performOpen();
        Worker asker("asker", [&] {
            for (int i = 0; i < 2; ++i)
                HOLDS(!fifo->send(request()));
        });
    }
    isGone = true;
    HOLDS(!fifo->send(request()));
}

namespace {

/// Makes a request and records whether it was executed and destroyed, on any thread.
struct Sent
{
    bool isExecuted = false;
    bool isDestroyed = false;

    ObjPtrRet<DevMDStdANO> make(std::function<void()> check = [] {})
    {
        struct Destruction
        {
            explicit Destruction(Sent &sent) : _sent(&sent) {}
            Destruction(Destruction &&other) noexcept : _sent(std::exchange(other._sent, nullptr))
            {}
            ~Destruction()
            {
                if (_sent)
                    _sent->isDestroyed = true;
            }
            Sent *_sent;
        };
        return makeANO([this, check, destruction = Destruction(*this)] {
            isExecuted = true;
            check();
        });
    }
};

} // namespace

// If a request is destroyed without being executed, the device is being destroyed. No later request
// is executed then.
SIMULATED(DeviceDestroyedUnclosedWhileAClientSends, WITH_PACKAGES)
{
    InPackageScope const packages;
    auto const fifo = makeShd<DevMDStdFifo>(1);
    auto device = makeShd<Probe>("probe", fifo, Probe::Wishes{});
    device->performOpen();
    Sent first;
    Sent second;
    Worker client("client", [&] {
        HOLDS(!fifo->send(first.make()));
        HOLDS(!fifo->send(second.make([&] { HOLDS(first.isExecuted); })));
    });
    device = nullptr;
    client.join();
    HOLDS(first.isDestroyed && second.isDestroyed);
}

SIMULATED(DeviceDestroyedUnclosedWhileTwoClientsAsk, WITH_PACKAGES)
{
    InPackageScope const packages;
    auto const fifo = makeShd<DevMDStdFifo>(1);
    auto device = makeShd<Probe>("probe", fifo, Probe::Wishes{});
    // The functions of the property use nothing of the device.
    auto const gain = makeProperty<int>("gain", "A number", fifo, [](int &value) { value = 5; });
    auto const ask = [&gain] {
        try {
            int value = 0;
            gain->get(value);
            HOLDS(value == 5);
        } catch (DevPrtclEx::ExMDStdPropertyGet const &) {
            // The device was destroyed before.
        }
    };
    device->performOpen();
    Worker client("client", ask);
    Worker other("other", ask);
    device = nullptr;
    client.join();
    other.join();
}

SIMULATED(DeviceNeverOpenedGoesWhileAClientAsks, WITH_PACKAGES)
{
    InPackageScope const packages;
    auto const fifo = makeShd<DevMDStdFifo>(1);
    auto device = makeShd<Probe>("probe", fifo, Probe::Wishes{});
    auto const gain = makeProperty<int>(
        "gain", "A number", fifo, [](int &) { HOLDS(!"executed"); }, [](int) {});
    Worker client("client", [&gain] {
        gain->set(1);
        int value = 0;
        try {
            gain->get(value);
            HOLDS(!"a value");
        } catch (DevPrtclEx::ExMDStdPropertyGet const &) {
        }
    });
    device = nullptr;
    client.join();
}

SIMULATED(FifoOpenedAgainWhileAClientSends, {.schedules = 300, .preemptions = 2})
{
    auto const fifo = makeShd<DevMDStdFifo>(0);
    fifo->close();
    Sent late;
    Sent mine;
    Worker client("client", [&] { HOLDS(!fifo->send(late.make())); });
    fifo->open();
    HOLDS(!fifo->send(mine.make()));
    HOLDS(!mine.isDestroyed);
    client.join();
    fifo->close();
    HOLDS(mine.isDestroyed && late.isDestroyed);
}

SIMULATED(FifoClosedByTwo, {.schedules = 300, .preemptions = 1})
{
    struct Failing
    {
        explicit Failing(int &nbThrown) : _nbThrown(&nbThrown) {}
        Failing(Failing &&other) noexcept : _nbThrown(std::exchange(other._nbThrown, nullptr)) {}
        ~Failing() noexcept(false)
        {
            if (!_nbThrown)
                return;
            ++*_nbThrown;
            throw std::runtime_error("the request");
        }
        void operator()() const {}
        int *_nbThrown;
    };
    auto const fifo = makeShd<DevMDStdFifo>(0);
    Sent last;
    int nbThrown = 0;
    LkCounter<long> nbTold;
    HOLDS(!fifo->sendLast(last.make()));
    HOLDS(!fifo->send(makeANO(Failing(nbThrown))));
    static_cast<void>(fifo->consume());
    DevANOQueueEntry entry;
    HOLDS(!fifo->tryConsume(entry)); // keeps what the request throws
    auto const close = [&] {
        try {
            fifo->close();
        } catch (std::runtime_error const &) {
            ++nbTold;
        }
    };
    Worker other("other", close);
    close();
    other.join();
    HOLDS(nbThrown == 1 && nbTold.getValue() == 1);
}

// ---- The manager.

SIMULATED(ManagerAskedForOneDeviceByThree, WITH_PACKAGES)
{
    InPackageScope const packages;
    ProbePtr &probe = enterProbe("probe");
    {
        ObjPtr<DevMgr> manager(DevMgr::create());
        auto const ask = [&] {
            RCShdPtr<DevMDPrtcl> const device = manager->getPrtcl("probe");
            HOLDS(device == rcDynamicCast<DevMDPrtcl>(probe) && probe->isOpen);
        };
        Worker first("first", ask);
        Worker second("second", ask);
        ask();
    }
    HOLDS(!probe->isOpen);
    probe = nullptr;
}

SIMULATED(MediatorComesAndGoes, WITH_PACKAGES)
{
    InPackageScope const packages;
    RCShdPtr<DevMgrMediator> mediator(new DevMgrMediator);
    int executed = 0;
    Worker reporter("reporter", [fifo = mediator->getFifo(), &executed] {
        for (int i = 0; i < 2; ++i) {
            DevANOQueueEntry entry(makeANO([&executed] { ++executed; }));
            fifo->produce(entry);
        }
    });
    bool isMineExecuted = false;
    DevANOQueueEntry mine(makeANO([&isMineExecuted] { isMineExecuted = true; }));
    mediator->getFifo()->produce(mine);
    mediator = nullptr;
    HOLDS(isMineExecuted);
    reporter.join();
    HOLDS(executed <= 2);
}

// ---- Properties.

namespace {

class Observer : public DevMgrPropertyObserver
{
public:
    void update(DevMgrPropertyObserverHint const &hint) override
    {
        HOLDS(!isDetached && !hint.getProperty().isNull());
        ++updates;
    }
    bool isDetached = false;
    int updates = 0;
};

} // namespace

SIMULATED(PropertyObserversComeAndGoWhileItChanges, WITH_PACKAGES)
{
    InPackageScope const packages;
    ProbePtr &probe = enterProbe("probe");
    {
        ObjPtr<DevMgr> manager(DevMgr::create());
        ObjPtr<DevMgrPropertyAcc> access(manager->createPropertyAcc());
        RCShdPtr<DevMDPropertyAny> const level = access->getProperty("probe:level");
        Worker changer("changer", [&] {
            for (int i = 1; i <= 2; ++i)
                probe->level->set(i);
        });
        auto const observe = [&] {
            RCShdPtr<Observer> const observer = makeShd<Observer>();
            access->attachObserver(level, observer);
            step("observing");
            access->detachObserver(level, observer);
            observer->isDetached = true;
        };
        Worker other("other", observe);
        observe();
    }
    probe = nullptr;
}

SIMULATED(PropertyAccessGoesWhileTheDeviceReports, WITH_PACKAGES)
{
    InPackageScope const packages;
    ProbePtr &probe = enterProbe("probe");
    {
        ObjPtr<DevMgr> manager(DevMgr::create());
        RCShdPtr<Observer> const observer = makeShd<Observer>();
        ObjPtr<DevMgrPropertyAcc> access(manager->createPropertyAcc());
        RCShdPtr<DevMDPropertyAny> const level = access->getProperty("probe:level");
        access->attachObserver(level, observer);
        Worker changer("changer", [&] { probe->level->set(1); });
        access.reset();
        observer->isDetached = true;
    }
    probe = nullptr;
}

// ---- Streams.

SIMULATED(StreamsConnectedByTwo, WITH_PACKAGES)
{
    InPackageScope const packages;
    ProbePtr &from = enterProbe("from");
    ProbePtr &to = enterProbe("to");
    {
        ObjPtr<DevMgr> manager(DevMgr::create());
        int connected = 0;
        auto const connect = [&](DevMgrStreamAcc &access) {
            try {
                access.connect("from:out push to:in");
                ++connected;
            } catch (DevMgrEx::StreamNotAvailable const &) {
                return;
            }
            from->out->push(3);
            from->out->push(4);
        };
        ObjPtr<DevMgrStreamAcc> mine(manager->createStreamAcc());
        ObjPtr<DevMgrStreamAcc> others(manager->createStreamAcc());
        Worker other("other", [&] { connect(*others); });
        connect(*mine);
        other.join();
        HOLDS(connected == 1);
    }
    HOLDS(to->sum == 7);
    from = nullptr;
    to = nullptr;
}

// ---- Sequences.

namespace {

/// A sequence of three devices, from its configuration to its end.
class Sequence
{
public:
    explicit Sequence(char const *config, Probe::Wishes const &ofRoot = {})
        : root(enterProbe("root", ofRoot)),
          child(enterProbe("child")),
          other(enterProbe("other")),
          _manager(DevMgr::create()),
          _access(_manager->createSyncSeqAcc())
    {
        _access->configure(config);
    }
    ~Sequence()
    {
        _access.reset();
        _manager.reset();
        root = child = other = nullptr;
    }

    void start() { _access->start(); }
    void stop() { _access->stop(); }
    void waitForLock()
    {
        for (ProbePtr const &probe : {root, child, other})
            probe->locked.wait();
        expectAll("lock");
    }
    void waitForEnd()
    {
        {
            WaitingFor const stopped("all devices have stopped", [this] {
                return root->isStopped && child->isStopped && other->isStopped;
            });
            _access->wait();
        }
        HOLDS(root->isStopped && child->isStopped && other->isStopped);
    }
    void expectAll(char const *state)
    {
        for (char const *name : {"root", "child", "other"})
            HOLDS(_access->getState(name) == state);
    }

    ProbePtr &root;
    ProbePtr &child;
    ProbePtr &other;

private:
    ObjPtr<DevMgr> _manager;
    ObjPtr<DevMgrSyncSeqAcc> _access;
};

void breakDown(ProbePtr const &probe)
{
    probe->ask([device = probe.get()] { device->breakDown(); });
}

/// Runs a sequence that another thread stops at any point.
void stopSomewhere(char const *config, Probe::Wishes const &ofRoot = {})
{
    Sequence sequence(config, ofRoot);
    sequence.start();
    Worker stopper("stopper", [&] { sequence.stop(); });
    sequence.waitForEnd();
    stopper.join();
    sequence.expectAll("final");
}

} // namespace

/// The table of the sequence machine takes tens of thousands of steps, and no second thread sees it
/// before it is complete. It is therefore created before the first schedule.
constexpr Settings WITH_TABLE = {.schedules = 60,
                                 .bound = 100'000,
                                 .leftOver = {64, 0},
                                 .prepare = [] { DevSeqSMTable::getInstance(); }};

SIMULATED(SequenceStoppedAtAnyPoint, WITH_TABLE)
{
    InPackageScope const packages;
    stopSomewhere("( root ( child other ) )");
}

SIMULATED(SequenceInALineStoppedAtAnyPoint, WITH_TABLE)
{
    InPackageScope const packages;
    stopSomewhere("( root ( child ( other ) ) )");
}

/// The neighbours of a device that aborts are not told, so all devices break down, each at its own
/// point. An event that a neighbour sends after the end of a machine is illegal there, but changes
/// nothing for the devices.
SIMULATED(SequenceInALineBreaksAtAnyPoint, WITH_TABLE)
{
    InPackageScope const packages;
    Sequence sequence("( root ( child ( other ) ) )");
    Worker breaker("breaker", [&] {
        for (ProbePtr const &probe : {sequence.child, sequence.root, sequence.other})
            breakDown(probe);
    });
    sequence.start();
    sequence.waitForEnd();
    breaker.join();
}

SIMULATED(SequenceBreaksWhenItHasLocked, WITH_TABLE)
{
    InPackageScope const packages;
    Sequence sequence("( root ( child other ) )");
    sequence.start();
    sequence.waitForLock();
    Worker breaker("breaker", [&] {
        breakDown(sequence.child);
        breakDown(sequence.root);
    });
    breakDown(sequence.other);
    sequence.waitForEnd();
    breaker.join();
    sequence.expectAll("final");
}

SIMULATED(SequenceAbortedByItsRootAsItStops, WITH_TABLE)
{
    InPackageScope const packages;
    stopSomewhere("( root ( child other ) )", {.abortsAt = "stop"});
}

/// A device that loses its lock falls back with its subtree. All of them lock again, and can be
/// stopped.
SIMULATED(SequenceLosesItsLock, WITH_TABLE)
{
    InPackageScope const packages;
    Sequence sequence("( root ( child ( other ) ) )");
    sequence.start();
    sequence.waitForLock();
    sequence.child->ask([device = sequence.child.get()] { device->loseLock(); });
    // The mark of the root is read again when its subtree is ready.
    sequence.waitForLock();
    sequence.stop();
    sequence.waitForEnd();
    sequence.expectAll("final");
}

SIMULATED(SequenceRootLosesItsLock, WITH_TABLE)
{
    InPackageScope const packages;
    Sequence sequence("( root ( child other ) )");
    sequence.start();
    sequence.waitForLock();
    sequence.root->ask([device = sequence.root.get()] { device->loseLock(); });
    sequence.waitForLock();
    sequence.stop();
    sequence.waitForEnd();
    sequence.expectAll("final");
}

SIMULATED(SequenceTreeGoesUnstopped, WITH_TABLE)
{
    InPackageScope const packages;
    ProbePtr &root = enterProbe("root");
    ProbePtr &child = enterProbe("child");
    {
        ObjPtr<DevMgr> manager(DevMgr::create());
        ObjPtr<DevMgrSyncSeqAcc> access(manager->createSyncSeqAcc());
        access->configure("( root ( child ) )");
        access->start();
    }
    HOLDS(!root->isOpen && !child->isOpen);
    root = nullptr;
    child = nullptr;
}

namespace {

/// A device whose steps are finished when another thread says so, at any time.
class Answered : public DevMDStdDevice
{
public:
    using Answers = MtContainer<std::queue<RCShdPtr<Answered>>>;

    Answered(LiString const &name, Answers &answers) : DevMDStdDevice(name), _answers(answers) {}

    /// Finishes the step on the device's thread. Called on any thread.
    void answer()
    {
        DevANOQueueEntry entry(makeANO([this] {
            ObjPtr<DevACO> const completion(_completion);
            completion->performExecute();
        }));
        getFifo()->produce(entry);
    }

private:
    void start() override { ask(); }
    void sync() override { ask(); }
    void stop() override { ask(); }
    void ask()
    {
        _completion = takeCompletion();
        _answers.produce(RCShdPtr<Answered>(this));
    }

    Answers &_answers;
    ObjPtr<DevACO> _completion;
};

} // namespace

SIMULATED(SequenceAnsweredByOthers, WITH_TABLE)
{
    InPackageScope const packages;
    Answered::Answers answers("answers", 0);
    for (char const *name : {"root", "child", "other"})
        DevRegistry::getInstance().add(
            makeRegistryEntry(name, "answered by others", [&answers](LiString const &kind) {
                return RCShdPtr<DevMDPrtcl>(new Answered(kind, answers));
            }));
    ObjPtr<DevMgr> manager(DevMgr::create());
    ObjPtr<DevMgrSyncSeqAcc> access(manager->createSyncSeqAcc());
    access->configure("( root ( child other ) )");
    access->start();
    // Each device starts, locks and stops.
    constexpr int STEPS = 3 * 3;
    LkCounter<long> taken(STEPS);
    auto const answer = [&] {
        while (--taken >= 0)
            answers.consume()->answer();
    };
    Worker first("first", answer);
    Worker second("second", answer);
    access->stop();
    access->wait();
    for (char const *name : {"root", "child", "other"})
        HOLDS(access->getState(name) == "final");
}

SIMULATED(SequencesOfTwoManagers, WITH_TABLE)
{
    InPackageScope const packages;
    enterProbe("a");
    enterProbe("b");
    auto const run = [](char const *config) {
        ObjPtr<DevMgr> manager(DevMgr::create());
        ObjPtr<DevMgrSyncSeqAcc> access(manager->createSyncSeqAcc());
        access->configure(config);
        access->start();
        access->stop();
        access->wait();
    };
    Worker other("other", [&] { run("( b )"); });
    run("( a )");
}
