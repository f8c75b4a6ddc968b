// Refused calls of the system: each call that can fail does so in turn, and nothing remains behind.
#include "simulated/scenario.h"
#include "simulated/streams.h"

#include "resmgt/deviceManager.h"
#include "resmgt/deviceProtocol.h"
#include "resmgt/locks.h"
#include "resmgt/memoryBuffers.h"
#include "resmgt/syncEngine.h"
#include "resmgt/threadExtensions.h"
#include "resmgt/threads.h"
#include "zvbase/assertions.h"
#include "zvbase/failures.h"
#include "zvbase/inPackage.h"

#include <queue>

using namespace Zv;
using namespace Zv::Simulated;

namespace {

constexpr Settings WITH_PACKAGES = {
    .schedules = 20, .hasty = false, .leftOver = {64, 0}, .refusals = ALL_RESOURCES};

/// Runs `work` while calls may be refused. Returns false if it throws, which is allowed.
template <class Work>
bool attempt(Work work)
{
    MayBeRefused const refusals;
    try {
        work();
        return true;
    } catch (...) {
        return false;
    }
}

/// Allocations and objects in use, after the log's reader has taken what threads have left.
struct InUse
{
    InUse()
    {
        ::Sleep(1000);
        allocations = getNbAllocations();
        objects = getNbObjects();
    }
    void expectAgain() const
    {
        InUse const now;
        if (now.allocations != allocations || now.objects != objects)
            find("left behind", "%ld allocations and %d objects more than before",
                 now.allocations - allocations, static_cast<int>(now.objects - objects));
    }

    long allocations;
    std::uint32_t objects;
};

void reportFailure()
{
    try {
        ZV_ASSERT(getNbAllocations() < 0);
    } catch (AssertionFailed const &) {
    }
}

/// Runs `work` while calls may be refused, and checks that nothing remains and that `work` then
/// succeeds. What the process keeps is allocated before that, by a first report of a failure and by
/// a first run of `work`.
template <class Work>
void attemptWithoutLeak(Work work)
{
    reportFailure();
    work();
    InUse const before;
    attempt(work);
    before.expectAgain();
    work();
    before.expectAgain();
}

} // namespace

SIMULATED(LocksAreRefused, {.schedules = 20, .refusals = ALL_RESOURCES})
{
    attemptWithoutLeak([] {
        LkMutex const mutex("mutex");
        LkLock const lock("lock");
        LkRecLock const recursive("recursive");
        LkGuard<LkMutex const> const first(mutex);
        LkGuard<LkLock const> const second(lock);
        LkGuard<LkRecLock const> const third(recursive);
    });
}

SIMULATED(WaitObjectsAreRefused, {.schedules = 20, .refusals = ALL_RESOURCES})
{
    attemptWithoutLeak([] {
        LkCondVar const condition("condition");
        LkPulse const one("one", LkPulse::WAKE_ONE);
        LkPulse const all("all", LkPulse::WAKE_ALL);
        LkSema sema("sema", 1);
        LkUnnamedSema unnamed("unnamed", 1);
        LkEvent event("event", true);
        LkRwLock const lock("lock");
        LkTicket ticket("ticket");
        LkGate gate("gate", 1, true);
        sema.wait();
        unnamed.wait();
        event.wait();
        ticket.next();
    });
}

SIMULATED(QueueIsRefused, {.schedules = 20, .refusals = ALL_RESOURCES})
{
    attemptWithoutLeak([] {
        MtContainer<std::queue<LiString>> queue("queue", 2);
        int produced = 0;
        try {
            for (; produced < 2; ++produced)
                queue.produce("an element that is too long to lie in the string itself");
        } catch (std::bad_alloc const &) {
        }
        HOLDS(static_cast<int>(queue.getSize()) == produced);
        LiString element;
        while (queue.tryConsume(element))
            --produced;
        HOLDS(produced == 0);
    });
}

SIMULATED(PriorityGraphIsRefused, {.schedules = 20, .refusals = ALL_RESOURCES})
{
    PriorityMgr mgr("mgr", 0, 6);
    Priority floor("floor", mgr, 2);
    attemptWithoutLeak([&] {
        HOLDS(mgr.check() == PriorityMgr::ALL_VALID);
        floor.setPriority(2);
        Priority below("below", mgr, Priority::NOT_SET);
        Priority above("above", mgr, Priority::NOT_SET);
        PriorityRelation const atFloor("r", floor, PriorityRelation::LESS_EQUAL, below);
        PriorityRelation const order("r", below, PriorityRelation::LESS, above);
        HOLDS(above.getPriority() == 3);
        floor.setPriority(3);
        HOLDS(above.getPriority() == 4);
    });
}

namespace {

class Once : public MtThreadProtocol
{
public:
    explicit Once(int &runs) : _runs(runs) {}
    ~Once() noexcept(false) override = default;
    void performExecute(MtThread *) override { ++_runs; }

private:
    int &_runs;
};

} // namespace

SIMULATED(ThreadIsRefused, WITH_PACKAGES)
{
    InPackageScope const packages;
    unsigned const before = MtThreadMgr::getInstance().getNbThreads();
    attemptWithoutLeak([&] {
        int runs = 0;
        ObjPtr<MtThread> thread(MtThreadFactory::getInstance().createThread(
            "once", ObjPtr<MtThreadProtocol>(new Once(runs)), true, 0));
        thread->start();
        thread->join();
        HOLDS(runs == 1);
    });
    HOLDS(MtThreadMgr::getInstance().getNbThreads() == before);
}

namespace {

struct Group : MtThreadGroup
{
    void processorsChanged(unsigned) override {}
};

} // namespace

SIMULATED(GroupsAreRefused, WITH_PACKAGES)
{
    InPackageScope const packages;
    attemptWithoutLeak([] {
        MtThreadMgr &mgr = MtThreadMgr::getInstance();
        Group groups[2];
        mgr.addGroup(&groups[0]);
        try {
            mgr.addGroup(&groups[1]);
            mgr.removeGroup(&groups[1]);
        } catch (std::bad_alloc const &) {
        }
        mgr.removeGroup(&groups[0]);
    });
}

SIMULATED(SpecificDataIsRefused, WITH_PACKAGES)
{
    InPackageScope const packages;
    attemptWithoutLeak([] {
        MtSpecificData<int> data("data");
        int runs = 0;
        struct User : MtThreadProtocol
        {
            User(MtSpecificData<int> &shared, int &count) : data(shared), runs(count) {}
            void performExecute(MtThread *) override
            {
                for (int i = 0; i < 2; ++i)
                    try {
                        *data = ++runs;
                    } catch (std::bad_alloc const &) {
                    }
            }
            MtSpecificData<int> &data;
            int &runs;
        };
        ObjPtr<MtThread> thread(MtThreadFactory::getInstance().createThread(
            "user", ObjPtr<MtThreadProtocol>(new User(data, runs)), true, 0));
        thread->start();
        thread->join();
        HOLDS(runs >= 1);
    });
}

namespace {

/// A device that only opens and closes.
class Plain : public DevMDStdAccessPrtcl
{
public:
    explicit Plain(RCShdPtr<DevMDStdFifo> const &fifo)
        : DevMDStdAccessPrtcl("plain", fifo, makeObj<DevMDStdLoopThreadProtocol>(fifo),
                              makeAccessANOFactory(*this))
    {}
    void open() { isOpen = true; }
    void close() { isOpen = false; }
    bool isOpen = false;
};

} // namespace

SIMULATED(DeviceIsRefused, WITH_PACKAGES)
{
    InPackageScope const packages;
    unsigned const before = MtThreadMgr::getInstance().getNbThreads();
    attemptWithoutLeak([] {
        RCShdPtr<Plain> const device = makeShd<Plain>(makeShd<DevMDStdFifo>());
        device->performOpen();
        HOLDS(device->isOpen);
        device->performClose();
        HOLDS(!device->isOpen);
    });
    HOLDS(MtThreadMgr::getInstance().getNbThreads() == before);
}

namespace {

/// A device that reports inside its steps, and continues if a step fails.
class Reporting : public DevMDStdDevice
{
public:
    Reporting() : DevMDStdDevice("reporting") {}

private:
    void start() override { reportRecover(); }
    void sync() override { _completion = takeCompletion(); }
    void stop() override
    {
        if (_completion) {
            _completion->performExecute();
            _completion = nullptr;
        }
        reportAbort();
    }
    void performFailed(std::exception_ptr const &) override {}

    ObjPtr<DevACO> _completion;
};

} // namespace

SIMULATED(ReportsAreRefused, WITH_PACKAGES)
{
    InPackageScope const packages;
    attemptWithoutLeak([] {
        LkCounter<long> completed;
        LkCounter<long> reported;
        auto const count = [](LkCounter<long> &number) { return [&number] { ++number; }; };
        RCShdPtr<Reporting> const device = makeShd<Reporting>();
        device->performOpen();
        auto const close = [&device] {
            try {
                device->performClose();
            } catch (...) {
                device->performClose();
            }
        };
        try {
            device->performStart(makeACO(count(completed)), makeANO(count(reported)),
                                 makeANO(count(reported)));
            device->performSync(makeACO(count(completed)), DtTime());
            device->performStop(makeACO(count(completed)));
        } catch (...) {
            close();
            throw;
        }
        close();
        HOLDS(completed.getValue() == 3 && reported.getValue() == 2);
    });
}

SIMULATED(ManagerIsRefused, WITH_PACKAGES)
{
    InPackageScope const packages;
    DevRegistry::getInstance().add(makeRegistryEntry("plain", "a device", [](LiString const &) {
        return RCShdPtr<DevMDPrtcl>(new Plain(makeShd<DevMDStdFifo>()));
    }));
    unsigned const before = MtThreadMgr::getInstance().getNbThreads();
    attemptWithoutLeak([] {
        ObjPtr<DevMgr> manager(DevMgr::create());
        manager->getPrtcl("plain");
    });
    HOLDS(MtThreadMgr::getInstance().getNbThreads() == before);
}

namespace {

void upAndDown()
{
    InPackageScope const packages;
    reportFailure();
}

} // namespace

SIMULATED(PackagesAreRefused, {.schedules = 20,
                               .hasty = false,
                               .leftOver = {64, 0},
                               .refusals = ALL_RESOURCES & ~std::uint32_t{MEMORY}})
{
    upAndDown();
    InUse const before;
    attempt(upAndDown);
    upAndDown(); // uses what a failed start has kept
    before.expectAgain();
}

/// Lines for which there is no memory when the logger is shut down remain in their queues, so the
/// number of allocations is not compared.
SIMULATED(PackagesFindNoMemory, {.schedules = 20, .leftOver = {64, 0}, .refusals = MEMORY})
{
    attempt(upAndDown);
    upAndDown();
}

SIMULATED(SingletonIsRefused, WITH_PACKAGES)
{
    InPackageScope const packages;
    attempt([] { DevRegistry::getInstance(); });
    HOLDS(!DevRegistry::getInstance().isRegistered("nothing"));
}

// ---- Pools, alarms and paced threads.

namespace {

/// A pool whose workers make a few rounds.
class Rounds : public MtThreadPool
{
public:
    Rounds() : MtThreadPool("rounds", 2, false, 0) {}
    ~Rounds() noexcept(false) override { stop(); }
    void executeTask(unsigned) override {}
    void obtainTask(unsigned) override { ::Sleep(1); }
};

struct Bell : MtAlarmHandle::Callback
{
    void performAlarm(RCShdPtr<MtAlarmHandle>, bool) override { rung.post(); }
    LkUnnamedSema rung{"rung", 0};
};

class Paced : public SeClientThread
{
public:
    explicit Paced(LkUnnamedSema &ran) : _ran(ran) {}
    bool performSync(std::uint32_t, int) override
    {
        _ran.post();
        return false;
    }

private:
    LkUnnamedSema &_ran;
};

} // namespace

SIMULATED(PoolIsRefused, WITH_PACKAGES)
{
    InPackageScope const packages;
    attemptWithoutLeak([] {
        Rounds pool;
        pool.start();
        pool.stop();
        pool.start();
    });
}

/// The thread of the alarms runs until the end of the process.
constexpr Settings WITH_ALARMS = {
    .schedules = 20, .hasty = false, .leftOver = {64, 1}, .refusals = ALL_RESOURCES};

SIMULATED(AlarmIsRefused, WITH_ALARMS)
{
    InPackageScope const packages;
    attemptWithoutLeak([] {
        Bell bell;
        auto &alarms = MtAlarmManager::getInstance();
        RCShdPtr<MtAlarmHandle> const handle = alarms.createHandle();
        handle->setCallback(&bell);
        handle->setDuration(1.0 / 64);
        alarms.registerAlarm(handle);
        bell.rung.wait();
        alarms.deregisterAlarm(handle);
    });
}

SIMULATED(PacedThreadIsRefused, WITH_PACKAGES)
{
    InPackageScope const packages;
    attemptWithoutLeak([] {
        LkUnnamedSema ran("ran", 0);
        ObjPtr<SeClientThread> client(new Paced(ran));
        SeClientThread * const added = client.get();
        auto &engine = SeSyncEngine::getInstance();
        try {
            engine.addClient("paced", client, SeSourceClock::getInstance(), 1);
            ran.wait();
            ObjPtr<SeClientThread> const back(engine.removeClient(added));
        } catch (...) {
            engine.stop();
            throw;
        }
        engine.stop();
    });
}

// ---- Buffers.

namespace {

struct Numbers : MbProtocol
{
    explicit Numbers(int &storage) : _storage(storage) {}
    void reload(void *memory, std::uint64_t) override { *static_cast<int *>(memory) = _storage; }
    void unload(void *memory, std::uint64_t) override { _storage = *static_cast<int *>(memory); }
    void free(void *memory, std::uint64_t size) override { unload(memory, size); }
    int &_storage;
};

} // namespace

namespace {

template <class Strategy>
void refuseBuffers()
{
    attemptWithoutLeak([] {
        int storages[2] = {1, 2};
        MbAlignment const alignment(7, 0, 0);
        std::uint64_t const each = sizeof(int) + alignment.getRoundUpMax(1);
        RCShdPtr<MbManager> const manager(new MbHeapManager("manager", each, makeObj<Strategy>(0)));
        MbBufferSimpleFactory factory(MbStateMachine::getInstance(false).getInitialState(),
                                      manager);
        MbBuffer buffers[2];
        for (int i = 0; i < 2; ++i)
            buffers[i] =
                factory.create("buffer", makeObj<Numbers>(storages[i]), sizeof(int), alignment);
        for (int round = 1; round <= 2; ++round)
            for (int i = 0; i < 2; ++i) {
                MbBufferWrGuardImp const guard(buffers[i]);
                HOLDS((*static_cast<int *>(guard.getMemory()) += 2) == 1 + i + 2 * round);
            }
        buffers[0].prefetch();
        buffers[0].sync();
        buffers[1].free();
    });
}

} // namespace

SIMULATED(BuffersAreRefused, {.schedules = 20, .leftOver = {64, 0}, .refusals = ALL_RESOURCES})
{
    refuseBuffers<MbUnloadLRU>();
}

SIMULATED(BuffersOfAnyOrderAreRefused,
          {.schedules = 20, .leftOver = {64, 0}, .refusals = ALL_RESOURCES})
{
    refuseBuffers<MbUnloadRandom>();
}

// ---- Accessors of the device manager.

namespace {

/// A device with all four interfaces that does nothing.
class Full : public DevMDStdAccessPrtcl,
             public DevMDStdSyncSeqPrtcl,
             public DevMDStdStreamPrtcl,
             public DevMDStdPropertyPrtcl
{
public:
    struct Level : DevMDStdProperty<int>
    {
        using DevMDStdProperty<int>::DevMDStdProperty;
    };

    Full(LiString const &name, RCShdPtr<DevMDStdFifo> const &fifo)
        : DevMDStdAccessPrtcl(name, fifo, makeObj<DevMDStdLoopThreadProtocol>(fifo),
                              makeAccessANOFactory(*this)),
          DevMDStdSyncSeqPrtcl(name, fifo, makeSyncSeqANOFactory(*this)),
          DevMDStdStreamPrtcl(name),
          DevMDStdPropertyPrtcl(name)
    {
        addStream(makeShd<Sink>("in", "What it takes", fifo,
                                makePushANOFactory([](ObjPtr<DevMDStreamElem>) {})));
        addStream(makeShd<Source>("out", "What it makes"));
        ObjPtr<DevMDStdPropertySetBuilder> builder(getPropertySetBuilder());
        builder->addProperty(
            makeShd<Level>("level", "A number", 3u,
                           makePropertyANOFactory<int>([this](int value) { _level = value; },
                                                       [this](int &value) { value = _level; }),
                           fifo));
    }

    void open() {}
    void close() {}
    void start(ObjPtr<DevANO>, ObjPtr<DevANO>) {}
    void sync(DtTimeMark const &) {}
    void sync(DtTime const &) {}
    void recover() {}
    void stop() {}
    void abort() {}
    DtTime getLatency() override { return DtTime(); }
    DtTimeMark getMark() override { return DtTimeMark(); }

private:
    int _level = 0;
};

void enterFull(char const *name)
{
    DevRegistry::getInstance().add(makeRegistryEntry(name, "a device", [](LiString const &kind) {
        return RCShdPtr<DevMDPrtcl>(makeShd<Full>(kind, makeShd<DevMDStdFifo>()).get());
    }));
}

struct Watcher : DevMgrPropertyObserver
{
    void update(DevMgrPropertyObserverHint const &) override {}
};

constexpr Settings WITH_DEVICES = {.schedules = 20,
                                   .bound = 100'000,
                                   .hasty = false,
                                   .leftOver = {64, 0},
                                   .prepare = [] { DevSeqSMTable::getInstance(); },
                                   .refusals = ALL_RESOURCES};

} // namespace

SIMULATED(PropertiesAreRefused, WITH_DEVICES)
{
    InPackageScope const packages;
    enterFull("full");
    attemptWithoutLeak([] {
        ObjPtr<DevMgr> manager(DevMgr::create());
        ObjPtr<DevMgrPropertyAcc> access(manager->createPropertyAcc());
        RCShdPtr<DevMDPropertyAny> const level = access->getProperty("full:level");
        RCShdPtr<Watcher> const watcher = makeShd<Watcher>();
        access->attachObserver(level, watcher);
        auto const property = rcDynamicCast<DevMDProperty<int>>(level);
        property->set(4);
        int value = 0;
        property->get(value);
        HOLDS(value == 4);
        access->detachObserver(level, watcher);
    });
}

SIMULATED(StreamsAreRefused, WITH_DEVICES)
{
    InPackageScope const packages;
    enterFull("from");
    enterFull("to");
    attemptWithoutLeak([] {
        ObjPtr<DevMgr> manager(DevMgr::create());
        ObjPtr<DevMgrStreamAcc> access(manager->createStreamAcc());
        access->connect("from:out push to:in");
    });
}

SIMULATED(SequenceIsRefused, WITH_DEVICES)
{
    InPackageScope const packages;
    enterFull("root");
    enterFull("child");
    attemptWithoutLeak([] {
        ObjPtr<DevMgr> manager(DevMgr::create());
        ObjPtr<DevMgrSyncSeqAcc> access(manager->createSyncSeqAcc());
        access->configure("( root ( child ) )");
    });
}

SIMULATED(SupervisorIsRefused, WITH_DEVICES)
{
    InPackageScope const packages;
    enterFull("root");
    enterFull("child");
    attemptWithoutLeak([] {
        ObjPtr<DevMgr> manager(DevMgr::create());
        ObjPtr<DevMgrSeqSupervisor> supervisor(manager->createSeqSupervisor("( root ( child ) )"));
    });
}

namespace {

/// A device without a thread that allocates no memory.
class Frugal final : public DevMDSyncSeqPrtcl
{
public:
    void performStart(ObjPtr<DevACO> aco, ObjPtr<DevANO>, ObjPtr<DevANO>) override
    {
        aco->performExecute();
    }
    void performSync(ObjPtr<DevACO> aco, DtTimeMark const &) override { aco->performExecute(); }
    void performSync(ObjPtr<DevACO> aco, DtTime const &) override { aco->performExecute(); }
    void performRecover(ObjPtr<DevACO> aco) override { aco->performExecute(); }
    void performStop(ObjPtr<DevACO> aco) override { aco->performExecute(); }
    void performAbort(ObjPtr<DevACO> aco) override { aco->performExecute(); }
    DtTime getLatency() override { return DtTime(); }
    DtTimeMark getMark() override { return DtTimeMark(); }
};

void stopRefused(bool isAbort)
{
    InPackageScope const packages;
    for (char const *name : {"root", "child"})
        DevRegistry::getInstance().add(makeRegistryEntry(
            name, "frugal", [](LiString const &) { return RCShdPtr<DevMDPrtcl>(new Frugal); }));
    ObjPtr<DevMgr> const manager = DevMgr::create();
    ObjPtr<DevMgrSeqSupervisor> supervisor = manager->createSeqSupervisor("( root ( child ) )");
    supervisor->start();
    HOLDS(supervisor->waitLocked(1));
    // The refused call may be one for the report.
    attempt([&] { isAbort ? supervisor->abort(1) : supervisor->stop(1, 1); });
    DevSeqStatus const status = supervisor->getStatus();
    HOLDS(status.phase == DevSeqStatus::Phase::ENDED);
    for (DevSeqDeviceStatus const &device : status.devices)
        HOLDS(device.end == DevSeqDeviceStatus::End::STOPPED ||
              device.end == DevSeqDeviceStatus::End::ABORTED);
}

} // namespace

// A process that has no memory left can still stop and abort its devices.
SIMULATED(SupervisorStopsWithoutMemory, WITH_DEVICES)
{
    stopRefused(false);
}

SIMULATED(SupervisorAbortsWithoutMemory, WITH_DEVICES)
{
    stopRefused(true);
}
