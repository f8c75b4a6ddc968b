#include "resmgt/threadExtensions/mtThreadPool.h"

#include "resmgt/threadExtensions/mtRequestMgr.h"
#include "resmgt/threadExtensions/mtTask.h"
#include "resmgt/threads/mtPriorityMgr.h"
#include "resmgt/threads/mtSpecificData.h"
#include "resmgt/threads/mtThreadMgr.h"
#include "resmgt/threads/priority.h"
#include "resmgt/threads/priorityEx.h"
#include "resmgt/threads/rtPriorities.h"
#include "testing/aborted.h"
#include "testing/asleep.h"
#include "testing/callingThread.h"
#include "testing/failures.h"
#include "testing/refusedThreads.h"
#include "testing/turnstile.h"
#include "zvbase/assertions.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <semaphore>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <sched.h>

namespace ZvTest {

using namespace Zv;

namespace {

/// Task that runs a function, and that counts its destruction.
class Work : public MtTaskImp
{
public:
    explicit Work(std::function<void()> action, int *nbDestroyed = nullptr)
        : _action(std::move(action)), _nbDestroyed(nbDestroyed)
    {}
    ~Work() noexcept(false) override
    {
        if (_nbDestroyed)
            ++*_nbDestroyed;
    }
    void execute() override { _action(); }

private:
    std::function<void()> _action;
    int *_nbDestroyed;
};

/// Pool with a queue of tasks, as a user would write it. Records what its workers do.
class QueuePool : public MtThreadPool
{
public:
    explicit QueuePool(unsigned nbThreads, char const *name = "Disk", bool placeThreads = false,
                       unsigned stackSize = 0)
        : MtThreadPool(name, nbThreads, placeThreads, stackSize), _taken(nbThreads)
    {}
    ~QueuePool() noexcept(false) override { stop(); }

    void add(MtTask const &task)
    {
        if (task.getTag().isValid())
            _requests.incRequestCount(task.getTag());
        std::lock_guard const guard(_mutex);
        _tasks.push_back(task);
        _filled.notify_one();
    }
    void add(std::function<void()> action)
    {
        add(MtTask(MtRequestTag(), RCShdPtr<MtTaskImp>(new Work(std::move(action)))));
    }
    /// Removes a task that no worker has taken. Returns false if there is none.
    bool cancel(MtRequestTag tag)
    {
        std::lock_guard const guard(_mutex);
        for (auto i = _tasks.begin(); i != _tasks.end(); ++i)
            if (i->getTag() == tag) {
                _tasks.erase(i);
                _requests.decRequestCount(tag);
                return true;
            }
        return false;
    }
    std::size_t getNbTasks()
    {
        std::lock_guard const guard(_mutex);
        return _tasks.size();
    }
    MtRequestMgr &getRequests() { return _requests; }
    int getNbStops() const { return _nbStops; }
    /// Returns the first letters of what a worker has done: obtained, executed, done.
    std::string getRounds(unsigned worker)
    {
        std::lock_guard const guard(_mutex);
        return _rounds[worker];
    }

protected:
    void obtainTask(unsigned worker) override
    {
        std::unique_lock guard(_mutex);
        _rounds[worker] += 'o';
        _filled.wait(guard, [this] { return !isRunning() || !_tasks.empty(); });
        if (isRunning() && !_tasks.empty()) {
            _taken[worker] = _tasks.front();
            _tasks.pop_front();
        }
    }
    void executeTask(unsigned worker) override
    {
        note(worker, 'e');
        _taken[worker].execute();
    }
    void doneTask(unsigned worker) override
    {
        note(worker, 'd');
        if (_taken[worker].getTag().isValid())
            _requests.decRequestCount(_taken[worker].getTag());
        _taken[worker] = MtTask();
    }
    void stopThreads() override
    {
        EXPECT_FALSE(isRunning());
        ++_nbStops;
        std::lock_guard const guard(_mutex);
        _filled.notify_all();
    }

private:
    void note(unsigned worker, char what)
    {
        std::lock_guard const guard(_mutex);
        _rounds[worker] += what;
    }

    std::mutex _mutex;
    std::condition_variable _filled;
    std::deque<MtTask> _tasks;
    std::vector<MtTask> _taken;
    std::map<unsigned, std::string> _rounds;
    MtRequestMgr _requests;
    std::atomic<int> _nbStops{0};
};

/// Returns the dump of the manager of threads.
std::string dumpThreads()
{
    std::ostringstream stream;
    MtThreadMgr::getInstance().dump(stream);
    return stream.str();
}

bool isThread(std::string const &name)
{
    return dumpThreads().find(' ' + name + " prio ") != std::string::npos;
}

// ---- the pool

TEST(MtThreadPool, NoThreadsMakeNoCalls)
{
    QueuePool pool(0);
    EXPECT_EQ(pool.getNbThreads(), 0U);
    pool.start();
    EXPECT_TRUE(pool.isRunning());
    pool.add([] { FAIL(); });
    pool.stop();
    EXPECT_FALSE(pool.isRunning());
    EXPECT_EQ(pool.getNbStops(), 1);
    EXPECT_EQ(pool.getRounds(0), "");
}

TEST(MtThreadPool, NoWorkerRunsBeforeTheStart)
{
    unsigned const nbBefore = MtThreadMgr::getInstance().getNbThreads();
    {
        QueuePool pool(3);
        EXPECT_EQ(pool.getNbThreads(), 3U);
        EXPECT_EQ(MtThreadMgr::getInstance().getNbThreads(), nbBefore + 3);
        EXPECT_FALSE(pool.isRunning());
        pool.add([] { FAIL(); });
    }
    EXPECT_EQ(MtThreadMgr::getInstance().getNbThreads(), nbBefore);
}

TEST(MtThreadPool, EachWorkerRepeatsItsWorkAndRunsOnceMoreAfterTheStop)
{
    QueuePool pool(1);
    pool.start();
    std::binary_semaphore done(0);
    pool.add([&] { done.release(); });
    done.acquire();
    pool.add([&] { done.release(); });
    done.acquire();
    while (pool.getRounds(0) != "oedoedo")
        std::this_thread::yield();
    pool.stop();
    EXPECT_EQ(pool.getRounds(0), "oedoedoed");
    EXPECT_EQ(pool.getNbStops(), 1);
}

TEST(MtThreadPool, AllWorkersWorkAtOnce)
{
    Turnstile gate;
    std::mutex mutex;
    std::set<LkThreadId> threads;
    QueuePool pool(5);
    pool.start();
    for (int i = 0; i != 5; ++i)
        pool.add([&] {
            {
                std::lock_guard const guard(mutex);
                threads.insert(LkThreadId(LkThreadId::CURRENT_THREAD));
            }
            gate.pass();
        });
    gate.waitForArrival(5);
    EXPECT_EQ(threads.size(), 5U);
    gate.open(5);
}

TEST(MtThreadPool, ASecondStartMakesNoSecondSetOfThreads)
{
    Turnstile gate;
    QueuePool pool(2);
    unsigned const nbThreads = MtThreadMgr::getInstance().getNbThreads();
    pool.start();
    pool.add([&] { gate.pass(); });
    gate.waitForArrival(1);
    pool.start();
    EXPECT_TRUE(pool.isRunning());
    EXPECT_EQ(MtThreadMgr::getInstance().getNbThreads(), nbThreads);
    gate.open(1);
    pool.stop();
    EXPECT_EQ(pool.getNbStops(), 1);
}

TEST(MtThreadPool, AStopOfAPoolThatDoesNotRunWakesNoThread)
{
    QueuePool pool(2);
    pool.stop();
    EXPECT_EQ(pool.getNbStops(), 0);
    pool.start();
    pool.stop();
    pool.stop();
    EXPECT_EQ(pool.getNbStops(), 1);
}

TEST(MtThreadPool, RunsAgainAfterAStop)
{
    std::counting_semaphore<> done(0);
    QueuePool pool(2);
    for (int round = 0; round != 3; ++round) {
        pool.start();
        pool.add([&] { done.release(); });
        done.acquire();
        pool.stop();
    }
    EXPECT_EQ(pool.getNbStops(), 3);
}

TEST(MtThreadPool, AWorkersIndexTakesTwoColumnsOfItsName)
{
    QueuePool const pool(101, "Disk");
    EXPECT_TRUE(isThread("Disk 0"));
    EXPECT_TRUE(isThread("Disk 9"));
    EXPECT_TRUE(isThread("Disk10"));
    EXPECT_TRUE(isThread("Disk99"));
    EXPECT_TRUE(isThread("Disk100"));
    EXPECT_FALSE(isThread("Disk 10"));
    EXPECT_FALSE(isThread("Disk0"));
}

TEST(MtThreadPool, ThePoolsPriorityIsThatOfItsWorkers)
{
    std::array<std::atomic<int>, 2> levels{-1, -1};
    Turnstile gate;
    QueuePool pool(2);
    EXPECT_EQ(pool.getName(), "Disk");
    EXPECT_FALSE(pool.isPriorityFixed());
    EXPECT_EQ(pool.getPriority(), 0);
    PriorityRelation const above("test", RtPriorities::getInstance().getRealTimePriority(),
                                 PriorityRelation::LESS, pool);
    EXPECT_EQ(pool.getPriority(), 2);
    pool.start();
    for (auto &level : levels)
        pool.add([&gate, &level] {
            LkThreadId const id(LkThreadId::CURRENT_THREAD);
            level = MtThreadMgr::getInstance().findThread(id)->getPriority().getPriority();
            gate.pass();
        });
    gate.waitForArrival(2);
    EXPECT_EQ(levels[0], 2);
    EXPECT_EQ(levels[1], 2);
    std::ostringstream relations;
    pool.dump(relations, true);
    for (char const *line : {"\n\"equalGroup\" : Disk (    2 ) == Disk 0 (    2 ) valid\n",
                             "\n\"equalGroup\" : Disk (    2 ) == Disk 1 (    2 ) valid\n"})
        EXPECT_NE(relations.str().find(line), std::string::npos) << relations.str();
    gate.open(2);
}

TEST(MtThreadPool, MayComeAndGoWhileOthersChangeTheGraph)
{
    // Mainly for ThreadSanitizer: no thread may read the type of a pool during its destruction.
    std::atomic<bool> isOver = false;
    std::thread other([&] {
        while (!isOver)
            Priority node("node", MtPriorityMgr::getInstance(), 2);
        MtSpecificDataRegistry::getInstance().removeSpecificData();
    });
    for (int i = 0; i != 50; ++i)
        QueuePool pool(1);
    isOver = true;
    other.join();
}

TEST(MtThreadPool, IsDestroyedCompletelyEvenIfThePriorityGraphIsInvalid)
{
    unsigned const nbThreads = MtThreadMgr::getInstance().getNbThreads();
    PriorityMgr &graph = MtPriorityMgr::getInstance();
    Priority below("below", graph, 1);
    Priority above("above", graph, 2);
    PriorityRelation order("below<above", below, PriorityRelation::LESS, above);
    auto pool = std::make_unique<QueuePool>(3);
    EXPECT_THROW(below.setPriority(3), PriorityEx);
    EXPECT_THROW(delete pool.release(), PriorityEx);
    EXPECT_EQ(MtThreadMgr::getInstance().getNbThreads(), nbThreads);
    below.setPriority(1);
}

/// Pool that can receive its priority from the graph.
class ListeningPool : public QueuePool
{
public:
    ListeningPool() : QueuePool(1) {}
    ~ListeningPool() noexcept(false) override { setTelling(NEVER); }

    void listen() { setTelling(AT_EACH_SOLVING); }

    void updatePriority(int priority) override { _told = priority; }

    int _told = NOT_SET;
};

TEST(MtThreadPool, ADerivedOneIsNotifiedOfItsPriorityOnRequest)
{
    ListeningPool pool;
    PriorityRelation relation("disk", RtPriorities::getInstance().getRealTimePriority(),
                              PriorityRelation::EQUAL, pool);
    EXPECT_EQ(pool._told, Priority::NOT_SET);
    pool.listen();
    MtPriorityMgr::getInstance().notify(PriorityMgr::VALUE_CHANGED);
    EXPECT_EQ(pool._told, 1);
}

TEST(MtThreadPool, AWorkerRunsOnTheProcessorOfItsIndex)
{
    if (!getProcessors().contains(0))
        GTEST_SKIP() << "processor 0 is not ours";
    int processor = -1;
    std::set<int> mine;
    {
        std::binary_semaphore done(0);
        QueuePool pool(1, "placed", true);
        pool.add([&] {
            LkThreadId const id(LkThreadId::CURRENT_THREAD);
            processor = MtThreadMgr::getInstance().findThread(id)->getProcessorNb();
            mine = getProcessors();
            done.release();
        });
        pool.start();
        done.acquire();
    }
    EXPECT_EQ(processor, 0);
    EXPECT_EQ(mine, std::set<int>{0});
}

TEST(MtThreadPool, EachWorkerHasAProcessorOfItsOwn)
{
    if (!getProcessors().contains(0) || !getProcessors().contains(1))
        GTEST_SKIP() << "processors 0 and 1 are not ours";
    std::array<std::atomic<int>, 2> processors{-1, -1};
    Turnstile gate;
    QueuePool pool(2, "placed", true);
    for (int i = 0; i != 2; ++i)
        pool.add([&] {
            MtThread const &thread = *MtThreadMgr::findCurrentThread();
            processors[thread.getName() == "placed 1"] = thread.getProcessorNb();
            gate.pass();
        });
    pool.start();
    gate.waitForArrival(2);
    EXPECT_EQ(processors[0], 0);
    EXPECT_EQ(processors[1], 1);
    gate.open(2);
}

TEST(MtThreadPool, AWorkerIsNotPlacedWithoutNeed)
{
    int processor = -2;
    std::binary_semaphore done(0);
    QueuePool pool(1, "free", false);
    pool.add([&] {
        LkThreadId const id(LkThreadId::CURRENT_THREAD);
        processor = MtThreadMgr::getInstance().findThread(id)->getProcessorNb();
        done.release();
    });
    pool.start();
    done.acquire();
    EXPECT_EQ(processor, -1);
}

TEST(MtThreadPool, WorkersHaveTheRequestedStack)
{
    std::binary_semaphore done(0);
    QueuePool pool(1, "deep", false, 4 * 1024 * 1024);
    pool.add([&] {
        char volatile frame[3 * 1024 * 1024];
        for (std::size_t i = 0; i < sizeof frame; i += 4096)
            frame[i] = 1;
        done.release();
    });
    pool.start();
    done.acquire();
}

TEST(MtThreadPool, TasksThatAreLeftAreDestroyedUnexecuted)
{
    int nbDestroyed = 0;
    int nbExecuted = 0;
    Turnstile gate;
    {
        QueuePool pool(1);
        pool.start();
        pool.add([&] { gate.pass(); });
        gate.waitForArrival(1);
        for (int i = 0; i != 10; ++i)
            pool.add(MtTask(MtRequestTag(), new Work([&] { ++nbExecuted; }, &nbDestroyed)));
        std::thread stopper([&] { pool.stop(); });
        while (pool.isRunning())
            std::this_thread::yield();
        gate.open(1);
        stopper.join();
        EXPECT_EQ(pool.getNbTasks(), 10U);
        EXPECT_EQ(nbDestroyed, 0);
    }
    EXPECT_EQ(nbExecuted, 0);
    EXPECT_EQ(nbDestroyed, 10);
}

TEST(MtThreadPool, TheDestructorWaitsForATaskUnderWay)
{
    Turnstile gate;
    std::atomic<bool> isOver = false;
    auto pool = std::make_unique<QueuePool>(2);
    pool->start();
    pool->add([&] {
        gate.pass();
        isOver = true;
    });
    gate.waitForArrival(1);
    std::atomic<long> destroyer = 0;
    std::thread thread([&] {
        destroyer = threadNumber();
        pool.reset();
        EXPECT_TRUE(isOver);
    });
    while (!destroyer)
        std::this_thread::yield();
    waitUntilAsleep(destroyer);
    gate.open(1);
    thread.join();
}

/// Pool that does not call `stop` in its destructor. This is harmless without workers.
class ForgetfulPool : public MtThreadPool
{
public:
    explicit ForgetfulPool(bool &wasAsked)
        : MtThreadPool("forgetful", 0, false, 0), _wasAsked(wasAsked)
    {}

protected:
    void executeTask(unsigned) override {}
    void stopThreads() override { _wasAsked = true; }

private:
    bool &_wasAsked;
};

TEST(MtThreadPool, TheBasesDestructorCallsNothingOfTheDerivedClass)
{
    bool wasAsked = false;
    {
        ForgetfulPool pool(wasAsked);
        pool.start();
    }
    EXPECT_FALSE(wasAsked);
    {
        ForgetfulPool pool(wasAsked);
        pool.start();
        pool.stop();
        EXPECT_TRUE(wasAsked);
    }
}

/// Pool that overrides only what it must.
class BarePool : public MtThreadPool
{
public:
    BarePool() : MtThreadPool("bare", 2, false, 0) {}
    ~BarePool() noexcept(false) override { stop(); }
    std::counting_semaphore<> _rounds{0};

protected:
    void executeTask(unsigned worker) override
    {
        EXPECT_LT(worker, 2U);
        _rounds.release();
        std::this_thread::yield();
    }
};

/// Pool that records the processor of its only worker in the first round.
class PlacementPool : public MtThreadPool
{
public:
    template <class... Placing>
    explicit PlacementPool(Placing... placing) : MtThreadPool("placement", 1, placing...)
    {}
    ~PlacementPool() noexcept(false) override { stop(); }

    int findProcessor()
    {
        start();
        stop();
        return _processor;
    }

protected:
    void executeTask(unsigned) override
    {
        _processor = MtThreadMgr::findCurrentThread()->getProcessorNb();
    }

private:
    std::atomic<int> _processor{-2};
};

TEST(MtThreadPool, WorkersArePlacedIfThePoolNamesThatPlacement)
{
    EXPECT_EQ(PlacementPool().findProcessor(), -1);
    EXPECT_EQ(PlacementPool(MtThreadPool::Placement::ALL_PROCESSORS).findProcessor(), -1);
    if (!getProcessors().contains(0))
        GTEST_SKIP() << "processor 0 is not ours";
    EXPECT_EQ(PlacementPool(MtThreadPool::Placement::ONE_PROCESSOR_EACH).findProcessor(), 0);
}

TEST(MtThreadPool, OnlyTheWorkHasToBeGiven)
{
    BarePool pool;
    pool.start();
    for (int i = 0; i != 100; ++i)
        pool._rounds.acquire();
    pool.stop();
}

TEST(MtThreadPool, AWorkerThatCannotBeStartedLeavesTheOthersToTheStop)
{
    std::binary_semaphore done(0);
    QueuePool pool(3);
    pool.add([&] { done.release(); });
    refuseThread(2);
    EXPECT_EQ(failedAssertion([&] { pool.start(); }), "threadHandle != NULL");
    done.acquire(); // run by the first worker
    EXPECT_TRUE(pool.isRunning());
    pool.stop();
    EXPECT_EQ(pool.getRounds(1), "");
    EXPECT_EQ(pool.getRounds(2), "");
    pool.add([&] { done.release(); });
    pool.start();
    done.acquire();
}

TEST(MtThreadPoolDeathTest, ATaskThatThrowsEndsTheProcess)
{
    EXPECT_EXIT(
        {
            QueuePool pool(1);
            pool.add([] { throw std::runtime_error("disk is full"); });
            pool.start();
            std::binary_semaphore(0).acquire();
        },
        aborted(), "disk is full");
}

// ---- tasks

TEST(MtTask, ANewOneHasNothingToDo)
{
    MtTask task;
    EXPECT_FALSE(task.getTag().isValid());
    task.execute();
    MtTask const copy(task);
    EXPECT_FALSE(copy.getTag().isValid());
}

TEST(MtTask, CopiesShareTheWork)
{
    MtRequestMgr requests;
    MtRequestTag const tag = requests.acquireTag();
    int nbExecuted = 0;
    int nbDestroyed = 0;
    {
        MtTask task(tag, new Work([&] { ++nbExecuted; }, &nbDestroyed));
        MtTask copy(task);
        EXPECT_EQ(copy.getTag(), tag);
        MtTask assigned;
        assigned = copy;
        EXPECT_EQ(assigned.getTag(), tag);
        task.execute();
        copy.execute();
        assigned.execute();
        task = MtTask();
        copy = MtTask();
        EXPECT_EQ(nbDestroyed, 0);
        task.execute();
        EXPECT_FALSE(task.getTag().isValid());
    }
    EXPECT_EQ(nbExecuted, 3);
    EXPECT_EQ(nbDestroyed, 1);
    requests.releaseTag(tag);
}

TEST(MtTask, ANullEngineIsNoFailure)
{
    MtRequestMgr requests;
    MtRequestTag const tag = requests.acquireTag();
    MtTask task(tag, nullptr);
    task.execute();
    EXPECT_EQ(task.getTag(), tag);
    requests.releaseTag(tag);
}

TEST(MtTask, IsARequest)
{
    MtTask task;
    MtRequestMgr requests;
    MtRequestTag const tag = requests.acquireTag();
    MtRequestBase &request = task;
    request.setTag(tag);
    EXPECT_EQ(task.getTag(), tag);
    requests.releaseTag(tag);
}

TEST(MtTask, MayBeGivenUpWhileItExecutes)
{
    int nbDestroyed = 0;
    MtTask task;
    task = MtTask(MtRequestTag(), new Work(
                                      [&] {
                                          task = MtTask();
                                          EXPECT_EQ(nbDestroyed, 0);
                                      },
                                      &nbDestroyed));
    task.execute();
    EXPECT_EQ(nbDestroyed, 1);
}

TEST(MtTask, ThrowsWhatTheWorkThrows)
{
    MtTask task(MtRequestTag(), new Work([] { throw std::runtime_error("disk is full"); }));
    EXPECT_THROW(task.execute(), std::runtime_error);
}

TEST(MtTask, AClientWaitsForAllTasksOfATag)
{
    QueuePool pool(3);
    MtRequestMgr &requests = pool.getRequests();
    MtRequestTag const tag = requests.acquireTag();
    std::atomic<int> nbExecuted = 0;
    for (int i = 0; i != 100; ++i)
        pool.add(MtTask(tag, new Work([&] { ++nbExecuted; })));
    pool.start();
    requests.waitRequestCountZero(tag);
    EXPECT_EQ(nbExecuted, 100);
    pool.stop();
    requests.releaseTag(tag);
}

TEST(MtTask, ACancelledOneIsNeitherExecutedNorWaitedFor)
{
    QueuePool pool(1);
    MtRequestMgr &requests = pool.getRequests();
    MtRequestTag const tag = requests.acquireTag();
    Turnstile gate;
    int nbDestroyed = 0;
    pool.start();
    pool.add([&] { gate.pass(); });
    gate.waitForArrival(1);
    pool.add(MtTask(tag, new Work([] { FAIL(); }, &nbDestroyed)));
    EXPECT_EQ(requests.getRequestCount(tag), 1U);
    EXPECT_TRUE(pool.cancel(tag));
    EXPECT_EQ(nbDestroyed, 1);
    EXPECT_FALSE(pool.cancel(tag));
    requests.waitRequestCountZero(tag);
    gate.open(1);
    pool.stop();
    requests.releaseTag(tag);
}

} // namespace

} // namespace ZvTest
