// Groups of threads: thread groups of the manager, threads that several threads start and stop,
// pools, thread-specific data and lines of the log.
#include "simulated/threadProtocols.h"

#include "resmgt/locks.h"
#include "resmgt/threadExtensions.h"
#include "resmgt/threads.h"
#include "resmgt/threads/mtThreadMgrImp.private.h"
#include "zvbase/inPackage.h"
#include "zvbase/lgLine.h"
#include "zvbase/lgLog.h"
#include "zvbase/lgQueue.h"
#include "zvbase/lgRegistry.h"
#include "zvbase/lgTrace.h"
#include "zvbase/trace.h"

#include <algorithm>
#include <functional>
#include <queue>
#include <sstream>
#include <string_view>

using namespace Zv;
using namespace Zv::Simulated;

namespace {

constexpr Settings WITH_PACKAGES = {.schedules = 100, .bound = 100'000, .leftOver = {64, 0}};

// ---- Thread groups of the manager.

class NoThreads : public MtThreadFactory
{
public:
    ~NoThreads() override = default;
    ObjPtrRet<MtThread> createThread(LiString const &, ObjPtr<MtThreadProtocol>, bool,
                                     unsigned) override
    {
        return nullptr;
    }
    int getMinPriority() const override { return 0; }
    int getMaxPriority() const override { return 6; }

protected:
    ObjPtrRet<MtThread> createMainThread(LiString const &, MtThreadMgr &) override
    {
        return nullptr;
    }
};

/// The portable manager, without threads.
class Manager : public MtThreadMgrImp
{
public:
    explicit Manager(NoThreads &factory) : MtThreadMgrImp(factory) {}
    ~Manager() noexcept(false) override = default;

    void enableRealTime() override
    {
        HOLDS(!isOn);
        step("entering real-time operation");
        if (++nbTries % 2 == 0)
            throw MtEx::ExRealTimeNotEnabled(__FILE__, __LINE__, "refused");
        isOn = true;
    }
    void disableRealTime() override
    {
        HOLDS(isOn);
        step("leaving real-time operation");
        isOn = false;
    }

    int nbTries = 0;
    bool isOn = false;
};

class Group : public MtThreadGroup
{
public:
    explicit Group(MtThreadMgr &mgr) : _mgr(mgr) {}
    ~Group() noexcept(false) override { _isIn = false; }

    void enter()
    {
        _isIn = true;
        _mgr.addGroup(this);
    }
    void leave()
    {
        _mgr.removeGroup(this);
        _isIn = false;
    }
    void processorsChanged(unsigned nbProcessors) override
    {
        HOLDS(_isIn && !_isBeingTold);
        _isBeingTold = true;
        step("telling a group");
        HOLDS(_mgr.getNbProcessors() == nbProcessors);
        _isBeingTold = false;
        ++nbTold;
        last = nbProcessors;
        if (onTold)
            onTold();
    }

    std::function<void()> onTold;
    int nbTold = 0;
    unsigned last = 0;

private:
    MtThreadMgr &_mgr;
    bool _isIn = false;
    bool _isBeingTold = false;
};

} // namespace

SIMULATED(GroupsComeAndGoWhileProcessorsChange, {.schedules = 300, .preemptions = 1, .leaks = true})
{
    NoThreads factory;
    Manager mgr(factory);
    Group staying(mgr);
    staying.enter();
    auto const comeAndGo = [&] {
        for (int i = 0; i < 2; ++i) {
            Group group(mgr);
            group.enter();
            step("being a group");
            group.leave();
        }
    };
    Worker first("first", comeAndGo);
    Worker second("second", comeAndGo);
    Worker changer("changer", [&] {
        mgr.setNbProcessors(1);
        mgr.setNbProcessors(2);
    });
    mgr.setNbProcessors(3);
    mgr.setNbProcessors(4);
    first.join();
    second.join();
    changer.join();
    HOLDS(staying.nbTold == 4 && staying.last == mgr.getNbProcessors());
    staying.leave();
}

SIMULATED(GroupTakesOthersAlongAsItIsTold, {.schedules = 300, .preemptions = 1, .leaks = true})
{
    NoThreads factory;
    Manager mgr(factory);
    Group leaving(mgr);
    Group taken(mgr);
    Group staying(mgr);
    for (Group * const group : {&leaving, &taken, &staying})
        group->enter();
    leaving.onTold = [&] {
        leaving.leave();
        taken.leave();
    };
    Worker changer("changer", [&] { mgr.setNbProcessors(1); });
    Worker other("other", [&] {
        Group group(mgr);
        group.enter();
        group.leave();
    });
    mgr.setNbProcessors(2);
    changer.join();
    other.join();
    HOLDS(leaving.nbTold == 1 && taken.nbTold == 0 && staying.nbTold == 2);
    staying.leave();
}

SIMULATED(RealTimeSwitchedByThree, {.schedules = 300, .preemptions = 1})
{
    NoThreads factory;
    Manager mgr(factory);
    auto const use = [&] {
        mgr.setRealTime(true);
        step("in real-time operation, if it was to be had");
        mgr.setRealTime(false);
    };
    Worker first("first", use);
    Worker second("second", use);
    Worker asking("asking", [&] {
        std::ostringstream text;
        static_cast<void>(mgr.isRealTime());
        mgr.dump(text);
    });
    use();
    first.join();
    second.join();
    HOLDS(!mgr.isRealTime() && !mgr.isOn);
}

// ---- Threads that other threads start, stop and join.

SIMULATED(ThreadsStartedStoppedAndJoinedByOthers, WITH_PACKAGES)
{
    InPackageScope const packages;
    int runs[2] = {};
    ObjPtr<MtThread> threads[2];
    for (int i = 0; i < 2; ++i)
        threads[i] = makeThread("loop", new Loop(runs[i]));
    LkEvent areStarted("started", false);
    auto const joinAll = [&] {
        areStarted.wait();
        for (ObjPtr<MtThread> const &thread : threads)
            thread->join();
    };
    Worker starter("starter", [&] {
        for (ObjPtr<MtThread> const &thread : threads)
            thread->start();
        areStarted.set();
    });
    Worker stopper("stopper", [&] {
        for (ObjPtr<MtThread> const &thread : threads)
            thread->stop();
    });
    Worker joiner("joiner", joinAll);
    joinAll();
    for (int i = 0; i < 2; ++i)
        HOLDS(runs[i] == 1 && !threads[i]->isRunning() && threads[i]->getThreadId().isNull());
    joiner.join();
}

SIMULATED(ThreadsCancelledAndJoinedByTwo, WITH_PACKAGES)
{
    InPackageScope const packages;
    LkUnnamedSema ready("ready", 0);
    int cancelled = 0;
    ObjPtr<MtThread> thread(makeThread("victim", new Victim(ready, cancelled)));
    auto const end = [&] {
        thread->cancel();
        thread->join();
        HOLDS(!thread->isRunning());
    };
    thread->start();
    ready.wait();
    Worker first("first", end);
    Worker second("second", end);
    first.join();
    second.join();
    HOLDS(cancelled == 1);
}

/// One of two joining threads may return only after the thread has been started again.
SIMULATED(ThreadStartedAgainWhileOneStillJoins, WITH_PACKAGES)
{
    InPackageScope const packages;
    int runs = 0;
    ObjPtr<MtThread> thread(makeThread("loop", new Loop(runs)));
    thread->start();
    Worker joiner("joiner", [&] { thread->join(); });
    thread->stop();
    thread->join();
    thread->start();
    LkThreadId const id = thread->getThreadId();
    for (int i = 0; i < 5; ++i) {
        step("while it runs again");
        HOLDS(thread->isRunning() && thread->getThreadId() == id);
    }
    thread->stop();
    thread->join();
    joiner.join();
    HOLDS(runs == 2 && !thread->isRunning());
}

SIMULATED(ThreadPlacedAndLookedAtWhileItComesAndGoes, WITH_PACKAGES)
{
    InPackageScope const packages;
    int runs = 0;
    ObjPtr<MtThread> thread(makeThread("once", new Once([&] { ++runs; })));
    Worker looking("looking", [&] {
        for (int i = 0; i < 2; ++i) {
            thread->setProcessorNb(i - 1);
            HOLDS(thread->getProcessorNb() == i - 1);
            LkThreadId const id = thread->getThreadId();
            if (!id.isNull()) {
                MtThread const * const found = MtThreadMgr::getInstance().findThread(id);
                HOLDS(!found || found == thread.get());
            }
            std::ostringstream text;
            thread->dump(text);
        }
    });
    for (int i = 1; i <= 2; ++i) {
        thread->start();
        HOLDS(thread->isRunning());
        thread->join();
        HOLDS(runs == i);
    }
}

/// When `start` returns, the thread runs, is known to the manager, and has a queue in the log. Its
/// lines therefore follow those that the starting thread wrote before.
SIMULATED(ThreadIsAllThereWhenItHasStarted, WITH_PACKAGES)
{
    InPackageScope const packages;
    int runs = 0;
    ObjPtr<MtThread> thread(makeThread("loop", new Loop(runs)));
    List<LgQueue *> const before = LgLog::getRegistry().getQueues();
    thread->start();
    HOLDS(thread->isRunning());
    HOLDS(MtThreadMgr::getInstance().findThread(thread->getThreadId()) == thread.get());
    List<LgQueue *> const now = LgLog::getRegistry().getQueues();
    HOLDS(std::any_of(now.begin(), now.end(), [&](LgQueue *queue) {
        return std::find(before.begin(), before.end(), queue) == before.end();
    }));
    thread->stop();
    thread->join();
    HOLDS(runs == 1);
}

// ---- Pools.

namespace {

/// A pool whose workers make rounds until it stops.
class Crew : public MtThreadPool
{
public:
    static constexpr unsigned SIZE = 3;

    Crew() : MtThreadPool("crew", SIZE, false, 0) {}
    ~Crew() noexcept(false) override
    {
        stop();
        isResting = true;
    }
    MtThread *getWorker(unsigned index) const { return _workers[index]; }

    bool isResting = false;
    LkCounter<long> rounds;

private:
    void obtainTask(unsigned) override
    {
        if (isRunning())
            ::Sleep(1);
    }
    void executeTask(unsigned worker) override
    {
        HOLDS(!isResting);
        MtThread * const thread = MtThreadMgr::findCurrentThread();
        HOLDS(thread && (!_workers[worker] || _workers[worker] == thread));
        _workers[worker] = thread;
        ++rounds;
    }
    void doneTask(unsigned) override { HOLDS(!isResting); }

    MtThread *_workers[SIZE] = {};
};

} // namespace

SIMULATED(PoolStartsAndStopsWhileOthersLook, WITH_PACKAGES)
{
    InPackageScope const packages;
    Crew crew;
    Worker looking("looking", [&] {
        std::ostringstream text;
        MtThreadMgr::getInstance().dump(text);
        static_cast<void>(crew.isRunning());
    });
    for (int i = 1; i <= 2; ++i) {
        long const before = crew.rounds.getValue();
        crew.isResting = false;
        crew.start();
        HOLDS(crew.isRunning());
        crew.stop();
        crew.isResting = true;
        HOLDS(!crew.isRunning() && crew.rounds.getValue() >= before + long{Crew::SIZE});
    }
    looking.join();
}

SIMULATED(PoolIsFollowedByItsWorkersPriorities, WITH_PACKAGES)
{
    InPackageScope const packages;
    Priority level("level", MtPriorityMgr::getInstance(), 2);
    Crew crew;
    Worker mover("mover", [&] {
        PriorityRelation const above("above", level, PriorityRelation::LESS, crew);
        level.setPriority(3);
        HOLDS(crew.getPriority() == 4);
    });
    crew.start();
    PriorityRelation const atLeast("atLeast", level, PriorityRelation::LESS_EQUAL, crew);
    mover.join();
    crew.stop();
    for (unsigned i = 0; i != Crew::SIZE; ++i)
        HOLDS(crew.getWorker(i)->getPriority().getPriority() == 3);
    HOLDS(crew.getPriority() == 3);
}

// ---- Thread-specific data.

namespace {

/// Data that must be destroyed on the thread that has created it.
struct Own
{
    Own() { ++made; }
    ~Own()
    {
        HOLDS(owner == ::GetCurrentThreadId());
        ++deleted;
    }
    DWORD owner = ::GetCurrentThreadId();
    int value = 0;

    static inline LkCounter<long> made{0};
    static inline LkCounter<long> deleted{0};
};

void useOwn(MtSpecificData<Own> &data)
{
    for (int i = 1; i <= 2; ++i) {
        HOLDS(data->owner == ::GetCurrentThreadId());
        HOLDS(++data->value == i);
        step("using one's own");
    }
}

} // namespace

SIMULATED(SpecificDataOfThreadsThatComeAndGo, WITH_PACKAGES)
{
    InPackageScope const packages;
    {
        MtSpecificData<Own> one("one");
        MtSpecificData<Own> other("other");
        auto const useBoth = [&] {
            useOwn(one);
            useOwn(other);
        };
        ObjPtr<MtThread> first(makeThread("first", new Once(useBoth)));
        ObjPtr<MtThread> second(makeThread("second", new Once(useBoth)));
        first->start();
        second->start();
        Worker foreign("foreign", [&] {
            useBoth();
            MtSpecificDataRegistry::getInstance().removeSpecificData();
        });
        {
            MtSpecificData<Own> mine("mine");
            useOwn(mine);
            mine.performDelete();
        }
        first->join();
        second->join();
    }
    HOLDS(Own::made.getValue() == 7 && Own::deleted.getValue() == 7);
}

// ---- Lines of the log while the packages start and shut down.

namespace {

LkCounter<long> nbLines;

void countLine(void *, char const *text, std::size_t length)
{
    if (std::string_view(text, length).find("one of ours") != std::string_view::npos)
        ++nbLines;
}

void writeLine()
{
    LgLine line;
    line.begin(__FILE__, __LINE__) << "one of ours";
    step("in the middle of a line");
}

} // namespace

/// After the logger has been shut down, a line is output as soon as it is written, even if the
/// logger still ran when the line was begun.
SIMULATED(LinesWrittenWhileTheLoggerComesAndGoes, WITH_PACKAGES)
{
    LgTrace::setOutput(countLine, nullptr);
    LkCounter<long> isDown;
    Worker writer("writer", [&] {
        for (int i = 1; i <= 2; ++i) {
            writeLine();
            HOLDS(isDown.getValue() == 0 || nbLines.getValue() == 1 + i);
        }
    });
    {
        InPackageScope const packages;
        writeLine();
    }
    ++isDown;
    writer.join();
    HOLDS(nbLines.getValue() == 3);
    LgTrace::setOutput(nullptr, nullptr);
}

SIMULATED(TraceLevelSwitchedWhileOthersWrite, WITH_PACKAGES)
{
    LgTrace::setOutput(countLine, nullptr);
    {
        InPackageScope const packages;
        auto const write = [] {
            // The first thread that registers the level creates it.
            TraceLevel const &level = *Trace::registerLevel("a level of ours", __FILE__);
            for (int i = 0; i < 2; ++i)
                ZV_TRACE(level, "one of ours");
        };
        Worker first("first", write);
        Worker second("second", write);
        Trace::setEnabled("a level of ours", true);
        TraceLevel const &level = *Trace::registerLevel("a level of ours", __FILE__);
        HOLDS(Trace::isEnabled(level));
        ZV_TRACE(level, "one of ours");
        first.join();
        second.join();
        Trace::setEnabled("a level of ours", false);
        ZV_TRACE(level, "one of ours");
    }
    HOLDS(nbLines.getValue() >= 1 && nbLines.getValue() <= 5);
    LgTrace::setOutput(nullptr, nullptr);
}

// ---- Commands of a group.

SIMULATED(CommandsOfAGroup, {.schedules = 300, .leaks = true})
{
    MtRequestMgr requests;
    MtContainer<std::queue<MtGroupCommand>> commands("commands", 1);
    auto const serve = [&] {
        for (;;) {
            MtGroupCommand command = commands.consume();
            if (!command.getTag().isValid())
                return;
            command.execute();
            requests.decRequestCount(command.getTag());
        }
    };
    Worker first("first", serve);
    Worker second("second", serve);
    auto const batch = [&] {
        MtRequestTag const tag = requests.acquireTag();
        LkCounter<long> done;
        for (int i = 0; i < 2; ++i) {
            requests.incRequestCount(tag);
            commands.produce(MtGroupCommand(
                tag, [](void *counter) { ++*static_cast<LkCounter<long> *>(counter); }, &done));
        }
        requests.waitRequestCountZero(tag);
        HOLDS(done.getValue() == 2 && requests.getRequestCount(tag) == 0);
        requests.releaseTag(tag);
    };
    Worker other("other", batch);
    batch();
    other.join();
    for (int i = 0; i < 2; ++i)
        commands.produce(MtGroupCommand());
}

// ---- The whole process.

/// Real-time operation and the priority of the process scope change while a thread starts.
SIMULATED(ProcessMovesWhileItsThreadsStart, WITH_PACKAGES)
{
    InPackageScope const packages;
    MtThreadMgr &mgr = MtThreadMgr::getInstance();
    RtPriorities &landmarks = RtPriorities::getInstance();
    Priority mine("mine", MtPriorityMgr::getInstance(), 2);
    Priority others("others", MtPriorityMgr::getInstance(), 3);
    int runs = 0;
    ObjPtr<MtThread> thread(makeThread("once", new Once([&] { ++runs; })));
    {
        PriorityRelation const scope("scope", landmarks.getProcessScopePriority(),
                                     PriorityRelation::EQUAL, thread->getPriority());
        Worker switching("switching", [&] {
            mgr.setRealTime(true);
            mgr.setRealTime(false);
        });
        Worker moving("moving", [&] { landmarks.setProcessScope(others); });
        landmarks.setProcessScope(mine);
        thread->start();
        thread->join();
        moving.join();
        switching.join();
        int const level = thread->getPriority().getPriority();
        HOLDS(level == 2 || level == 3);
        HOLDS(level == landmarks.getProcessScopePriority().getPriority());
        landmarks.setProcessScope(landmarks.getBaseLinePriority());
        HOLDS(thread->getPriority().getPriority() == 0);
    }
    HOLDS(runs == 1 && !mgr.isRealTime());
}
