// What is left when the system refuses: each call that may fail does, one after the other, until all goes well.
#include "simulated/scenario.h"

#include "resmgt/deviceManager.h"
#include "resmgt/deviceProtocol.h"
#include "resmgt/locks.h"
#include "resmgt/threadExtensions/mtContainer.imp.h"
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

/// Runs `work` while calls may be refused. A failure that is reported is none of ours; what stays behind is.
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

/// What is in use when all is quiet: the log's reader has taken what threads have left to it.
struct InUse
{
    InUse()
    {
        ::Sleep(1000);
        allocations = getNbAllocations();
        objects = getNbObjects();
    }
    bool operator==(InUse const &) const = default;

    long allocations;
    std::uint32_t objects;
};

/// The same, and nothing stays behind. What is taken for good is taken before: by the first report of a failure, and by
/// the first time that the work is done. Afterwards it can be done again.
template <class Work>
void attemptWithoutLeak(Work work)
{
    try {
        ZV_ASSERT(getNbAllocations() < 0);
    } catch (AssertionFailed const &) {
    }
    work();
    InUse const before;
    attempt(work);
    HOLDS(InUse() == before);
    work();
    HOLDS(InUse() == before);
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
        HOLDS(mgr.check() == PriorityMgr::NO_ERROR);
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
