// Threads of the library that several threads start, stop, join and kill at the same time.
#include "simulated/threadProtocols.h"

#include "resmgt/locks.h"
#include "resmgt/threads.h"
#include "zvbase/inPackage.h"
#include "zvbase/lgLine.h"
#include "zvbase/lgLog.h"

#include <sstream>

using namespace Zv;
using namespace Zv::Simulated;

namespace {

/// Singletons and their objects remain until the end of the process.
constexpr LeftOver SINGLETONS = {64, 0};
constexpr Settings WITH_PACKAGES = {.schedules = 150, .leftOver = SINGLETONS};

} // namespace

// More threads than are prepared before a process is forked, one after the other.
SIMULATED(ThreadLocalValuesAreThoseOfOneThread, {.schedules = 50})
{
    struct Value
    {
        ~Value() { *end = count; }
        int count = 0;
        int *end = nullptr;
    };
    for (int i = 0; i < 10; ++i) {
        int end = 0;
        auto const use = [&end](int times) {
            thread_local Value value;
            HOLDS(value.count == 0 && !value.end);
            value.end = &end;
            for (int j = 0; j < times; ++j) {
                step("use");
                ++value.count;
            }
        };
        int endOfOther = 0;
        Worker one("one", [&] { use(3); });
        Worker other("other", [&endOfOther] {
            thread_local Value value;
            value.end = &endOfOther;
            step("use");
            value.count += 5;
        });
        one.join();
        other.join();
        HOLDS(end == 3 && endOfOther == 5);
    }
}

SIMULATED(PackagesUpAndDown, WITH_PACKAGES)
{
    InPackageScope const packages;
}

SIMULATED(ThreadStartsAndEnds, WITH_PACKAGES)
{
    InPackageScope const packages;
    int runs = 0;
    ObjPtr<MtThread> thread(makeThread("once", new Once([&runs] { ++runs; })));
    for (int i = 1; i <= 2; ++i) {
        thread->start();
        thread->join();
        HOLDS(runs == i && !thread->isRunning());
    }
}

SIMULATED(ThreadStoppedFromElsewhere, WITH_PACKAGES)
{
    InPackageScope const packages;
    int runs = 0;
    ObjPtr<MtThread> thread(makeThread("loop", new Loop(runs)));
    thread->start();
    Worker stopper("stopper", [&] { thread->stop(); });
    thread->join();
    stopper.join();
    HOLDS(runs == 1);
}

SIMULATED(ThreadDestroyedWhileItRuns, WITH_PACKAGES)
{
    InPackageScope const packages;
    int runs = 0;
    {
        ObjPtr<MtThread> thread(makeThread("loop", new Loop(runs)));
        thread->start();
    }
    HOLDS(runs <= 1);
}

SIMULATED(ThreadJoinedByTwo, WITH_PACKAGES)
{
    InPackageScope const packages;
    int runs = 0;
    ObjPtr<MtThread> thread(makeThread("once", new Once([&runs] { ++runs; })));
    thread->start();
    Worker first("first", [&] { thread->join(); });
    Worker second("second", [&] { thread->join(); });
    first.join();
    second.join();
    HOLDS(!thread->isRunning() && runs == 1);
    thread->start();
    thread->join();
    HOLDS(runs == 2);
}

namespace {

/// A body that may only be killed in its first half.
class Candidate : public MtThreadProtocol
{
public:
    explicit Candidate(int &ended) : _ended(ended) {}
    ~Candidate() noexcept(false) override = default;

    void performExecute(MtThread *thread) override
    {
        thread->enableCancel();
        step("may be killed");
        thread->disableCancel();
        LkGuard<LkLock> const guard(_lock);
        step("may not be killed");
        ++_ended;
    }
    void performCanceled(MtThread *) override { wasCancelled = true; }
    bool wasCancelled = false;

private:
    int &_ended;
    LkLock _lock{"lock"};
};

} // namespace

SIMULATED(ThreadCancelled, WITH_PACKAGES)
{
    InPackageScope const packages;
    LkUnnamedSema ready("ready", 0);
    int cancelled = 0;
    ObjPtr<MtThread> thread(makeThread("victim", new Victim(ready, cancelled)));
    thread->start();
    ready.wait();
    thread->cancel();
    thread->join();
    HOLDS(cancelled == 1 && !thread->isRunning());
}

SIMULATED(ThreadCancelledOrNot, WITH_PACKAGES)
{
    InPackageScope const packages;
    int ended = 0;
    auto * const protocol = new Candidate(ended);
    ObjPtr<MtThread> thread(makeThread("candidate", protocol));
    thread->start();
    Worker killer("killer", [&] { thread->cancel(); });
    thread->join();
    killer.join();
    HOLDS(ended + protocol->wasCancelled == 1);
}

SIMULATED(ThreadManagerAskedWhileThreadsComeAndGo, WITH_PACKAGES)
{
    InPackageScope const packages;
    MtThreadMgr &mgr = MtThreadMgr::getInstance();
    unsigned const before = mgr.getNbThreads();
    auto const comeAndGo = [](char const *name) {
        int runs = 0;
        ObjPtr<MtThread> thread(makeThread(name, new Once([&runs] { ++runs; })));
        thread->start();
        thread->join();
        HOLDS(runs == 1);
    };
    Worker first("first", [&] { comeAndGo("a"); });
    Worker second("second", [&] { comeAndGo("b"); });
    for (int i = 0; i < 2; ++i) {
        std::ostringstream text;
        mgr.dump(text);
        HOLDS(mgr.getNbThreads() >= before);
    }
    first.join();
    second.join();
    HOLDS(mgr.getNbThreads() == before);
}

SIMULATED(ThreadsWriteToTheLog, WITH_PACKAGES)
{
    InPackageScope const packages;
    auto const write = [] {
        LgLine line;
        line.begin(__FILE__, __LINE__) << "a line";
    };
    Worker first("first", write);
    write();
    LgLog::flush();
}

// ---- Priorities.

namespace {

class Follower : public Priority
{
public:
    explicit Follower(PriorityMgr &mgr) : Priority("follower", mgr, NOT_SET, WHEN_CHANGED)
    {
        join();
    }
    ~Follower() noexcept(false) override { leave(); }
    void updatePriority(int priority) override { _told = priority; }

    int _told = NOT_SET;
};

} // namespace

SIMULATED(PriorityGraphChangedByThree, {.schedules = 200, .leaks = true})
{
    PriorityMgr mgr("mgr", 0, 6);
    Priority floor("floor", mgr, 2);
    Priority moving("moving", mgr, 3);
    auto const change = [&] {
        Follower below(mgr);
        Follower above(mgr);
        PriorityRelation const atFloor("r", floor, PriorityRelation::LESS_EQUAL, below);
        PriorityRelation const order("r", below, PriorityRelation::LESS, above);
        HOLDS(below.getPriority() == 2 && above.getPriority() == 3);
        HOLDS(below._told == 2 && above._told == 3);
    };
    Worker first("first", change);
    Worker second("second", change);
    for (int value : {1, 5}) {
        moving.setPriority(value);
        std::ostringstream text;
        mgr.dump(text);
        HOLDS(moving.getPriority() == value);
    }
    first.join();
    second.join();
    HOLDS(mgr.check() == PriorityMgr::ALL_VALID);
}

SIMULATED(ThreadStartsWhileItsPriorityMoves, WITH_PACKAGES)
{
    InPackageScope const packages;
    int runs = 0;
    Priority level("level", MtPriorityMgr::getInstance(), 2);
    ObjPtr<MtThread> thread(makeThread("once", new Once([&runs] { ++runs; })));
    Worker mover("mover", [&] {
        PriorityRelation const bound("bound", level, PriorityRelation::LESS, thread->getPriority());
        level.setPriority(3);
        HOLDS(thread->getPriority().getPriority() == 4);
    });
    thread->start();
    thread->join();
    mover.join();
    HOLDS(runs == 1);
}
