// Reports that devices make on their own threads, while requests arrive, while they are stopped and
// while they close.
#include "simulated/scenario.h"

#include "resmgt/deviceManager.h"
#include "resmgt/deviceProtocol.h"
#include "resmgt/locks.h"
#include "zvbase/inPackage.h"

#include <functional>
#include <memory>

using namespace Zv;
using namespace Zv::Simulated;

namespace {

constexpr Settings WITH_PACKAGES = {.schedules = 100, .bound = 100'000, .leftOver = {64, 0}};
constexpr Settings WITH_TABLE = {.schedules = 60,
                                 .bound = 100'000,
                                 .leftOver = {64, 0},
                                 .prepare = [] { DevSeqSMTable::getInstance(); }};

/// A device that does work of its own on its thread.
class Reporter : public DevMDStdDevice
{
public:
    using Work = std::function<double(Reporter &)>;
    struct Level : DevMDStdProperty<int>
    {
        using DevMDStdProperty<int>::DevMDStdProperty;
    };

    Reporter(LiString const &name, Work work, int capacity = DevMDStdFifo::DEFAULT_CAPACITY)
        : DevMDStdDevice(name, makeShd<DevMDStdFifo>(capacity)), _work(std::move(work))
    {
        ObjPtr<DevMDStdPropertySetBuilder> builder(getPropertySetBuilder());
        level = makeShd<Level>("level", "A number", 3u,
                               makePropertyANOFactory<int>(
                                   [this](int value) {
                                       Inside const inside(*this);
                                       _level = value;
                                   },
                                   [this](int &value) {
                                       Inside const inside(*this);
                                       value = _level;
                                   }),
                               getFifo());
        builder->addProperty(level);
    }
    using DevMDStdDevice::reportAbort;
    using DevMDStdDevice::reportRecover;
    using DevMDStdDevice::takeCompletion;

    bool isOnThread() const { return _thread == ::GetCurrentThreadId(); }
    DtTimeMark getMark() override
    {
        hasLocked.post();
        locked.post();
        return DtTimeMark();
    }

    /// Both are posted each time the device has locked: `hasLocked` for its own work, `locked` for
    /// the program.
    LkUnnamedSema hasLocked{"hasLocked", 0};
    LkUnnamedSema locked{"locked", 0};
    RCShdPtr<Level> level;
    bool isOpen = false;
    bool isStarted = false;
    bool isEnded = false; // stopped or aborted
    int nbSteps = 0;
    int nbReports = 0;
    std::function<void()> onStart;

private:
    /// Checks that the device works on its own thread, on one thing at a time, while it is open.
    class Inside
    {
    public:
        explicit Inside(Reporter &device) : _device(device)
        {
            HOLDS(_device.isOnThread() && _device.isOpen && !_device._isBusy);
            _device._isBusy = true;
            step("at work");
        }
        ~Inside() { _device._isBusy = false; }

    private:
        Reporter &_device;
    };

    void open() override
    {
        HOLDS(!isOpen);
        _thread = ::GetCurrentThreadId();
        isOpen = true;
    }
    void close() override
    {
        {
            Inside const inside(*this);
        }
        isOpen = false;
    }
    void start() override
    {
        isStarted = true;
        isEnded = false;
        take();
        if (onStart)
            onStart();
    }
    void sync() override { take(); }
    void recover() override { take(); }
    void stop() override
    {
        take();
        isEnded = true;
    }
    void abort() override
    {
        take();
        isEnded = true;
    }
    void take()
    {
        Inside const inside(*this);
        ++nbSteps;
    }
    double performWork() override
    {
        if (!isOpen)
            return NO_WORK;
        Inside const inside(*this);
        return _work ? _work(*this) : NO_WORK;
    }

    static constexpr double NO_WORK = DevMDStdLoopThreadProtocol::NO_WORK;

    Work _work;
    DWORD _thread = 0;
    bool _isBusy = false;
    int _level = 0;
};

using ReporterPtr = RCShdPtr<Reporter>;

/// Returns work that reports an abort `count` times after the start, in intervals of a millisecond
/// and in any state of the device.
Reporter::Work abortTimes(int count)
{
    return [count](Reporter &device) {
        if (!device.isStarted || device.nbReports == count)
            return DevMDStdLoopThreadProtocol::NO_WORK;
        ++device.nbReports;
        device.reportAbort();
        return 0.001;
    };
}

/// Adds a kind of device to the registry. Returns a pointer that holds the device once it has been
/// created.
ReporterPtr &enterReporter(char const *name, Reporter::Work const &work,
                           int capacity = DevMDStdFifo::DEFAULT_CAPACITY)
{
    auto &device = *new ReporterPtr;
    DevRegistry::getInstance().add(
        makeRegistryEntry(name, "reports", [&device, work, capacity](LiString const &kind) {
            device = makeShd<Reporter>(kind, work, capacity);
            return RCShdPtr<DevMDPrtcl>(device.get());
        }));
    return device;
}

/// Writes and reads the property of a device, which may have been closed before.
void ask(Reporter &device)
{
    try {
        int level = 0;
        device.level->set(1);
        device.level->get(level);
        HOLDS(level == 1);
    } catch (DevPrtclEx::ExMDStdPropertyGet const &) {
    }
}

/// A sequence and its manager.
class Sequence
{
public:
    explicit Sequence(char const *config)
        : _manager(DevMgr::create()), _access(_manager->createSyncSeqAcc())
    {
        _access->configure(config);
    }
    DevMgrSyncSeqAcc *operator->() const { return _access.get(); }
    bool isIn(char const *device, char const *state) const
    {
        return _access->getState(device) == state;
    }

private:
    ObjPtr<DevMgr> _manager;
    ObjPtr<DevMgrSyncSeqAcc> _access; // must be destroyed first
};

} // namespace

/// Without a manager, reports are executed on the device's thread, from the start until the stop.
SIMULATED(DeviceReportsWhileItIsAskedAndCloses, WITH_PACKAGES)
{
    InPackageScope const packages;
    auto const device = makeShd<Reporter>("device", [](Reporter &self) {
        self.reportRecover();
        self.reportAbort();
        self.nbReports += self.isStarted;
        return self.nbReports < 4 ? 0.001 : DevMDStdLoopThreadProtocol::NO_WORK;
    });
    int recovers = 0;
    int aborts = 0;
    int completed = 0;
    auto const count = [&device = *device](int &number) {
        return [&device, &number] {
            HOLDS(device.isOnThread() && device.isOpen && device.isStarted && !device.isEnded);
            ++number;
        };
    };
    device->performOpen();
    {
        Worker sequence("sequence", [&] {
            auto const completion = [&] { return makeACO([&completed] { ++completed; }); };
            device->performStart(completion(), makeANO(count(recovers)), makeANO(count(aborts)));
            device->performSync(completion(), DtTime());
            device->performRecover(completion());
            device->performStop(completion());
        });
        Worker asking("asking", [&] { ask(*device); });
        device->performClose();
    }
    HOLDS(!device->isOpen);
    // Each step that was executed has run its completion. The other steps were destroyed.
    HOLDS(completed == device->nbSteps);
    HOLDS(recovers == aborts && aborts <= device->nbReports);
}

/// A report during the stop may be executed or not, but not after the end of the device. Requests
/// may fill the device's queue meanwhile, which has room for one.
SIMULATED(DeviceAbortsOfItselfWhileItIsStopped, WITH_TABLE)
{
    InPackageScope const packages;
    ReporterPtr &root = enterReporter("root", abortTimes(3), 1);
    {
        Sequence const sequence("( root )");
        sequence->start();
        Worker stopper("stopper", [&] { sequence->stop(); });
        Worker asking("asking", [&] { ask(*root); });
        sequence->wait();
        stopper.join();
        HOLDS(root->isEnded);
        // The stop is an illegal event for a machine that has already ended.
        HOLDS(sequence.isIn("root", "final") || sequence.isIn("root", "_ill"));
    }
    HOLDS(!root->isOpen);
    root = nullptr;
}

SIMULATED(DevicesAbortOfThemselvesInALine, WITH_TABLE)
{
    InPackageScope const packages;
    ReporterPtr &root = enterReporter("root", abortTimes(2));
    ReporterPtr &child = enterReporter("child", abortTimes(2));
    {
        Sequence const sequence("( root ( child ) )");
        sequence->start();
        sequence->wait();
        HOLDS(root->isEnded && child->isEnded);
    }
    root = child = nullptr;
}

/// The devices make more reports at once than the manager's queue has room for, while the manager
/// is destroyed.
SIMULATED(ManagerGoesWhileItsDevicesReport, WITH_TABLE)
{
    InPackageScope const packages;
    Reporter::Work const burst = [](Reporter &self) {
        if (!self.isStarted)
            return DevMDStdLoopThreadProtocol::NO_WORK;
        for (int i = 0; i < 14; ++i)
            self.reportAbort();
        return ++self.nbReports < 3 ? 0 : DevMDStdLoopThreadProtocol::NO_WORK;
    };
    ReporterPtr &root = enterReporter("root", burst);
    ReporterPtr &child = enterReporter("child", burst);
    {
        Sequence const sequence("( root ( child ) )");
        sequence->start();
    }
    HOLDS(!root->isOpen && !child->isOpen);
    root = child = nullptr;
}

/// The device reports twice that it has lost its lock, while a client uses its property.
SIMULATED(DeviceLosesItsLockAgainAndAgain, WITH_TABLE)
{
    InPackageScope const packages;
    constexpr int TIMES = 2;
    ReporterPtr &root = enterReporter("root", nullptr);
    ReporterPtr &child = enterReporter("child", [](Reporter &self) {
        if (self.nbReports < TIMES && self.hasLocked.tryWait()) {
            ++self.nbReports;
            self.reportRecover();
        }
        return self.nbReports < TIMES ? 0.001 : DevMDStdLoopThreadProtocol::NO_WORK;
    });
    {
        Sequence const sequence("( root ( child ) )");
        Worker asking("asking", [&] { ask(*child); });
        sequence->start();
        for (int i = 0; i <= TIMES; ++i)
            child->locked.wait();
        sequence->stop();
        sequence->wait();
        HOLDS(sequence.isIn("root", "final") && sequence.isIn("child", "final"));
        // Start, lock and stop, and for each loss a recovery and another lock.
        HOLDS(child->nbReports == TIMES && child->nbSteps == 3 + 2 * TIMES);
        HOLDS(root->nbSteps == 3);
    }
    root = child = nullptr;
}

/// Another thread finishes a step while the sequence and its manager are being destroyed.
SIMULATED(CompletionOutlivesItsSequence, WITH_TABLE)
{
    InPackageScope const packages;
    ReporterPtr &root = enterReporter("root", nullptr);
    LkUnnamedSema taken("taken", 0);
    ObjPtr<DevACO> completion;
    {
        auto sequence = std::make_unique<Sequence>("( root )");
        root->onStart = [&] {
            completion = root->takeCompletion();
            taken.post();
        };
        sequence->operator->()->start();
        taken.wait();
        Worker finishing("finishing", [&] { completion->performExecute(); });
        sequence.reset();
    }
    HOLDS(!root->isOpen);
    root->onStart = nullptr;
    root = nullptr;
    completion = nullptr;
}

/// Two trees of one manager, whose thread executes the reports of both.
SIMULATED(SequencesOfOneManager, WITH_TABLE)
{
    InPackageScope const packages;
    ReporterPtr &a = enterReporter("a", abortTimes(1));
    ReporterPtr &b = enterReporter("b", nullptr);
    {
        ObjPtr<DevMgr> const manager(DevMgr::create());
        auto const run = [&](char const *name) {
            ObjPtr<DevMgrSyncSeqAcc> const access(manager->createSyncSeqAcc());
            access->configure(LiString("( ") + name + " )");
            access->start();
            access->stop();
            access->wait();
            LiString const state = access->getState(name);
            HOLDS(state == "final" || (state == "_ill" && LiString("a") == name));
        };
        Worker other("other", [&] { run("a"); });
        run("b");
        other.join();
        HOLDS(a->isEnded && b->isEnded);
    }
    a = b = nullptr;
}

// ---- Observers.

namespace {

class Onlooker : public DevSeqObserver
{
public:
    void stateChanged(LiString const &, LiString const &state) override
    {
        HOLDS(!isGone && !_isBeingTold);
        _isBeingTold = true;
        step("being told of a state");
        HOLDS(!isGone);
        _isBeingTold = false;
        last = state;
        ++nbTold;
    }
    bool isGone = false;
    int nbTold = 0;
    LiString last;

private:
    bool _isBeingTold = false;
};

} // namespace

SIMULATED(SequenceObservedByOneAfterTheOther, WITH_TABLE)
{
    InPackageScope const packages;
    ReporterPtr &root = enterReporter("root", nullptr);
    {
        Sequence const sequence("( root )");
        auto const first = makeShd<Onlooker>();
        auto const second = makeShd<Onlooker>();
        sequence->setObserver(first);
        sequence->start();
        Worker stopper("stopper", [&] { sequence->stop(); });
        sequence->setObserver(second);
        first->isGone = true;
        HOLDS(first->nbTold > 0);
        sequence->wait();
        sequence->setObserver(nullptr);
        second->isGone = true;
        HOLDS((second->nbTold ? second : first)->last == "final");
    }
    root = nullptr;
}

namespace {

/// A thread body that does not wait on its queue. The observer of the queue wakes it.
class Woken : public DevMDStdThreadProtocol
{
public:
    struct Alarm : DevMDStdFifoObs
    {
        void performProduced(DevANOQueue &, DevANOQueueEntry const &entry) override
        {
            HOLDS(entry.isNull());
            ++told;
            bell.post();
        }
        LkUnnamedSema bell{"bell", 0};
        LkCounter<long> told;
    };

    Woken(RCShdPtr<DevMDStdFifo> const &fifo, RCShdPtr<Alarm> const &alarm)
        : DevMDStdThreadProtocol(fifo), _alarm(alarm), _isStopped(false)
    {}
    void performExecute(MtThread *) override
    {
        while (!_isStopped) {
            _alarm->bell.wait();
            tryConsume();
        }
    }
    /// Called while the device's thread waits in its last request, so the flag needs no lock.
    void performStop(MtThread *) override { _isStopped = true; }

private:
    RCShdPtr<Alarm> _alarm;
    bool _isStopped;
};

class WokenDevice : public DevMDStdDevice
{
public:
    WokenDevice(RCShdPtr<DevMDStdFifo> const &fifo, RCShdPtr<Woken::Alarm> const &alarm)
        : DevMDStdDevice("woken", fifo, makeObj<Woken>(fifo, alarm))
    {}
    RCShdPtr<DevMDStdFifo> const &getQueue() const { return getFifo(); }
};

} // namespace

SIMULATED(DeviceIsWokenByTheObserverOfItsQueue, WITH_PACKAGES)
{
    InPackageScope const packages;
    auto const alarm = makeShd<Woken::Alarm>();
    {
        auto const device = makeShd<WokenDevice>(makeShd<DevMDStdFifo>(alarm, 1), alarm);
        LkCounter<long> done;
        LkCounter<long> brought;
        auto const bring = [&] {
            for (int i = 0; i < 2; ++i) {
                DevANOQueueEntry entry(makeANO([&done] { ++done; }));
                device->getQueue()->produce(entry);
                ++brought;
            }
        };
        device->performOpen();
        {
            Worker first("first", bring);
            Worker second("second", bring);
            device->performClose();
        }
        HOLDS(brought.getValue() == 4 && done.getValue() <= 4);
    }
    HOLDS(alarm->told.getValue() == 6); // including the opening and the closing
}

// ---- Readings.

namespace {

constexpr int LAST = 3;

/// A device that shows one value after the other.
class Meter : public DevMDStdDevice
{
public:
    explicit Meter(LiString const &name) : DevMDStdDevice(name)
    {
        _position = makeShd<DevMDStdReading<int>>("position", "A number", getFifo());
        ObjPtr<DevMDStdPropertySetBuilder> builder(getPropertySetBuilder());
        builder->addProperty(_position);
    }

    void showNext()
    {
        DevANOQueueEntry entry(makeANO([this] { _position->show(++_shown); }));
        getFifo()->produce(entry);
    }

private:
    RCShdPtr<DevMDStdReading<int>> _position;
    int _shown = 0;
};

struct Notice : DevMgrPropertyObserver
{
    void update(DevMgrPropertyObserverHint const &) override { given.post(); }
    LkUnnamedSema given{"given", 0};
};

} // namespace

/// There may be fewer notices than values, but a client that reads at each notice gets the last
/// value.
SIMULATED(LastReadingIsSeenByAll, WITH_PACKAGES)
{
    InPackageScope const packages;
    RCShdPtr<Meter> meter;
    DevRegistry::getInstance().add(
        makeRegistryEntry("meter", "shows", [&meter](LiString const &name) {
            meter = makeShd<Meter>(name);
            return RCShdPtr<DevMDPrtcl>(meter.get());
        }));
    ObjPtr<DevMgr> const manager(DevMgr::create());
    ObjPtr<DevMgrPropertyAcc> const access(manager->createPropertyAcc());
    RCShdPtr<DevMDPropertyAny> const any = access->getProperty("meter:position");
    auto const position = rcDynamicCast<DevMDProperty<int>>(any);
    auto const readAll = [&] {
        RCShdPtr<Notice> const notice = makeShd<Notice>();
        access->attachObserver(any, notice);
        int value = 0;
        int former = 0;
        for (position->get(value); value != LAST; position->get(value)) {
            HOLDS(value >= former);
            former = value;
            notice->given.wait();
        }
        access->detachObserver(any, notice);
    };
    Worker showing("showing", [&] {
        for (int i = 0; i < LAST; ++i)
            meter->showNext();
    });
    Worker other("other", readAll);
    readAll();
    other.join();
}
