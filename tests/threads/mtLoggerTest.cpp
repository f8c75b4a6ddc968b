#include "resmgt/threads/mtLogger.private.h"

#include "resmgt/locks/lkEvent.h"
#include "resmgt/locks/lkThreadId.h"
#include "resmgt/threads/mtPriorityMgr.h"
#include "resmgt/threads/mtThreadMgr.h"
#include "resmgt/threads/mtTraceMgr.private.h"
#include "resmgt/threads/priority.h"
#include "resmgt/threads/priorityEx.h"
#include "resmgt/threads/rtPriorities.h"
#include "resmgt/threads/threadsStatics.private.h"
#include "testing/allocations.h"
#include "testing/capturedLog.h"
#include "threads/threadTesting.h"
#include "zvbase/lgLog.h"
#include "zvbase/lgTrace.h"
#include "zvbase/trace.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <iomanip>
#include <mutex>
#include <optional>
#include <semaphore>
#include <thread>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

TraceLevel * const testLevel = Trace::registerLevel("mtLoggerTest", __FILE__);

/// Captures the log's output line by line.
class Output
{
public:
    Output() { LgTrace::setOutput(&write, this); }
    ~Output() { LgTrace::setOutput(nullptr, nullptr); }
    Output(Output const &) = delete;
    Output &operator=(Output const &) = delete;

    std::vector<std::string> getLines()
    {
        std::lock_guard const guard(_mutex);
        return _lines;
    }
    /// Returns the lines that contain a text, each from that text on.
    Lines find(std::string const &text) { return linesFrom(text, getLines()); }
    /// Returns the number of lines that the thread that made this object has written itself.
    int getNbOwn() const { return _nbOwn; }
    /// Blocks the output at the next line, until `release`.
    void hold() { _isHeld = true; }
    void waitUntilHeld() { _held.acquire(); }
    void release() { _released.release(); }

private:
    static void write(void *context, char const *text, std::size_t length)
    {
        Output &self = *static_cast<Output *>(context);
        if (self._isHeld.exchange(false)) {
            self._held.release();
            self._released.acquire();
        }
        if (std::this_thread::get_id() == self._owner)
            ++self._nbOwn;
        std::lock_guard const guard(self._mutex);
        self._lines.emplace_back(text, length);
    }

    std::thread::id const _owner = std::this_thread::get_id();
    std::atomic<int> _nbOwn = 0;
    std::mutex _mutex;
    std::vector<std::string> _lines;
    std::atomic<bool> _isHeld = false;
    std::binary_semaphore _held{0};
    std::binary_semaphore _released{0};
};

/// Fixture with a logger of its own, whether the packages are up or not.
class MtLoggerTest : public testing::Test, protected TestAccess<MtSpecificDataRegistry>
{
protected:
    void SetUp() override
    {
        TestAccess<MtThread>::setCanStart(true);
        testLevel->setEnabled(true);
        _wasActive = LgLog::isLoggerActive();
        if (_wasActive)
            MtLogger::stopLogger();
        output.emplace();
        manager.emplace(1);
    }
    void TearDown() override
    {
        TestAccess<MtThread>::setCanStart(true);
        if (LgLog::isLoggerActive())
            MtLogger::stopLogger();
        LgLog::setBlockingTrace(false);
        manager.reset();
        output.reset();
        if (_wasActive)
            MtLogger::startLogger();
    }

    std::optional<Output> output;
    std::optional<MtTraceMgr> manager;

private:
    bool _wasActive = false;
};

std::vector<std::string> numbered(char const *text, int count)
{
    std::vector<std::string> lines;
    for (int i = 0; i != count; ++i)
        lines.push_back(text + std::to_string(i));
    return lines;
}

TEST_F(MtLoggerTest, SecondStartFailsTheAssertion)
{
    MtLogger::startLogger();
    EXPECT_TRUE(LgLog::isLoggerActive());
    EXPECT_EQ(failedAssertion([] { MtLogger::startLogger(); }), "!LgLog::isLoggerActive()");
    EXPECT_TRUE(LgLog::isLoggerActive());
    MtLogger::stopLogger();
    EXPECT_FALSE(LgLog::isLoggerActive());
}

TEST_F(MtLoggerTest, StopWithoutStartFailsTheAssertion)
{
    EXPECT_EQ(failedAssertion([] { MtLogger::stopLogger(); }), "LgLog::isLoggerActive()");
}

TEST_F(MtLoggerTest, StartThatFailsLeavesNothing)
{
    unsigned const nbThreads = MtThreadMgr::getInstance().getNbThreads();
    TestAccess<MtThread>::setCanStart(false);
    EXPECT_EQ(failedAssertion([] { MtLogger::startLogger(); }), "canStart()");
    EXPECT_FALSE(LgLog::isLoggerActive());
    EXPECT_EQ(MtThreadMgr::getInstance().getNbThreads(), nbThreads);
    TestAccess<MtThread>::setCanStart(true);
    MtLogger::startLogger();
    ZV_TRACE(*testLevel, "after");
    MtLogger::stopLogger();
    EXPECT_EQ(output->find("after").size(), 1u);
}

TEST_F(MtLoggerTest, ReaderIsAThreadOfTheLowestPriority)
{
    unsigned const nbThreads = MtThreadMgr::getInstance().getNbThreads();
    MtLogger::startLogger();
    EXPECT_EQ(MtThreadMgr::getInstance().getNbThreads(), nbThreads + 1);
    std::ostringstream os;
    os << MtThreadMgr::getInstance();
    EXPECT_NE(os.str().find("   Log_Reader_Thread prio   0 NTprio   1"), std::string::npos)
        << os.str();
    EXPECT_NE(os.str().find("\"LoggerPriority\" : BaseLine (    0 ) == Log_Reader_Thread (    0 ) "
                            "valid\n"),
              std::string::npos)
        << os.str();
    Priority &baseLine = RtPriorities::getInstance().getBaseLinePriority();
    baseLine.setPriority(1);
    os.str({});
    os << MtThreadMgr::getInstance();
    baseLine.setPriority(0);
    EXPECT_NE(os.str().find("   Log_Reader_Thread prio   1 NTprio"), std::string::npos) << os.str();
    MtLogger::stopLogger();
    EXPECT_EQ(MtThreadMgr::getInstance().getNbThreads(), nbThreads);
}

TEST_F(MtLoggerTest, PutsARegistryOfItsOwnInForceWhileItRuns)
{
    LgRegistry * const before = &LgLog::getRegistry();
    MtLogger::startLogger();
    EXPECT_NE(&LgLog::getRegistry(), before);
    MtLogger::stopLogger();
    EXPECT_EQ(&LgLog::getRegistry(), before);
}

TEST_F(MtLoggerTest, StopsAlsoWhileThePriorityGraphIsInvalid)
{
    unsigned const nbThreads = MtThreadMgr::getInstance().getNbThreads();
    PriorityMgr &graph = MtPriorityMgr::getInstance();
    Priority below("below", graph, 1);
    Priority above("above", graph, 2);
    PriorityRelation order("below<above", below, PriorityRelation::LESS, above);
    LgRegistry * const before = &LgLog::getRegistry();
    MtLogger::startLogger();
    ZV_TRACE(*testLevel, "before");
    EXPECT_THROW(below.setPriority(3), PriorityEx);
    EXPECT_THROW(MtLogger::stopLogger(), PriorityEx);
    EXPECT_FALSE(LgLog::isLoggerActive());
    EXPECT_EQ(output->find("before").size(), 1u);
    EXPECT_EQ(&LgLog::getRegistry(), before);
    EXPECT_EQ(MtThreadMgr::getInstance().getNbThreads(), nbThreads);
    EXPECT_THROW(MtLogger::startLogger(), PriorityEx); // because its thread joins the graph
    EXPECT_FALSE(LgLog::isLoggerActive());
    EXPECT_EQ(&LgLog::getRegistry(), before);
    below.setPriority(1);
    MtLogger::startLogger();
    ZV_TRACE(*testLevel, "after");
    MtLogger::stopLogger();
    EXPECT_EQ(output->find("after").size(), 1u);
}

/// Records the milliseconds of the idle reader's sleeps. Its first 25 sleeps end at once, and the
/// next one when it is stopped.
struct ReaderSleeps
{
    static unsigned map(unsigned milliseconds)
    {
        MtThread const * const thread = MtThreadMgr::findCurrentThread();
        if (!thread || !(thread->getName() == "Log_Reader_Thread"))
            return milliseconds;
        if (sleeps.size() == 25) {
            lastBegun.release();
            return INFINITE_TIME;
        }
        sleeps.push_back(milliseconds);
        return 0;
    }
    static constexpr unsigned INFINITE_TIME = 0xFFFFFFFF;
    static std::vector<unsigned> sleeps;
    static std::counting_semaphore<> lastBegun;
};

std::vector<unsigned> ReaderSleeps::sleeps;
std::counting_semaphore<> ReaderSleeps::lastBegun{0};

TEST_F(MtLoggerTest, TheIdleReaderSleepsLongerAndLongerUntilItIsStopped)
{
    ReaderSleeps::sleeps.clear();
    mapTimeout = &ReaderSleeps::map;
    MtLogger::startLogger();
    ReaderSleeps::lastBegun.acquire();
    MtLogger::stopLogger();
    mapTimeout = nullptr;
    std::vector<unsigned> expected;
    for (unsigned idle = 0; idle != 25; ++idle)
        expected.push_back(std::min(idle, 20u) * 16);
    EXPECT_EQ(ReaderSleeps::sleeps, expected);
}

/// Output that traces on the reader's thread for each text, at most 100 times.
struct TracingOutput
{
    static void write(void *context, char const *text, std::size_t length)
    {
        auto &self = *static_cast<TracingOutput *>(context);
        self.texts.emplace_back(text, length);
        if (self.nbTraced == 100)
            return;
        ++self.nbTraced;
        ZV_TRACE(*testLevel, "the reader's own");
        self.written.release();
    }
    int nbTraced = 0;
    std::counting_semaphore<> written{0};
    std::vector<std::string> texts;
};

TEST_F(MtLoggerTest, TheReadersOwnTraceDoesNotFeedItsLoop)
{
    TracingOutput tracing;
    LgTrace::setOutput(&TracingOutput::write, &tracing);
    MtLogger::startLogger();
    ZV_TRACE(*testLevel, "somebody else's");
    tracing.written.acquire(); // while the logger is active
    MtLogger::stopLogger();
    LgTrace::setOutput(nullptr, nullptr);
    EXPECT_EQ(tracing.nbTraced, 1);
    ASSERT_EQ(tracing.texts.size(), 1u);
    EXPECT_NE(tracing.texts[0].find("somebody else's"), std::string::npos);
}

TEST_F(MtLoggerTest, ALineLeavesItsStreamAsItWas)
{
    for (auto const adjustment : {std::ios_base::fmtflags{}, std::ios_base::right}) {
        std::ostringstream os;
        os.setf(adjustment, std::ios_base::adjustfield);
        Trace::log(os, "file", 1) << std::setw(5) << 3;
        EXPECT_EQ(os.str().substr(os.str().find(':')), ":     3");
        EXPECT_EQ(os.flags() & std::ios_base::adjustfield, adjustment);
    }
}

TEST_F(MtLoggerTest, TextPrintedJustBeforeTheStopIsWritten)
{
    for (int run = 0; run != 5; ++run) {
        MtLogger::startLogger();
        for (int i = 0; i != 20; ++i)
            ZV_TRACE(*testLevel, "run" << run << "line" << i);
        MtLogger::stopLogger();
        EXPECT_EQ(output->find("run" + std::to_string(run)),
                  numbered(("run" + std::to_string(run) + "line").c_str(), 20));
    }
    EXPECT_EQ(output->getNbOwn(), 0); // the reader writes everything, even what it finds at its end
}

TEST_F(MtLoggerTest, WithoutALoggerTextIsWrittenAtOnce)
{
    ZV_TRACE(*testLevel, "before");
    EXPECT_EQ(output->find("before").size(), 1u);
    MtLogger::startLogger();
    MtLogger::stopLogger();
    ZV_TRACE(*testLevel, "afterwards");
    EXPECT_EQ(output->find("afterwards").size(), 1u);
}

TEST_F(MtLoggerTest, LinesOfAllThreadsComeOutInTimeOrder)
{
    constexpr int NB_THREADS = 4;
    constexpr int NB_LINES = 50;
    MtLogger::startLogger();
    std::mutex mutex;
    int count = 0;
    std::vector<ObjPtr<MtThread>> threads;
    for (int t = 0; t != NB_THREADS; ++t) {
        threads.emplace_back(makeThread("writer", [&](TestProtocol &, MtThread *) {
            for (int i = 0; i != NB_LINES; ++i) {
                std::lock_guard const guard(mutex);
                ZV_TRACE(*testLevel, "count" << count++);
            }
        }));
        threads.back()->start();
    }
    for (ObjPtr<MtThread> const &thread : threads)
        thread->join();
    MtLogger::stopLogger();
    EXPECT_EQ(output->find("count"), numbered("count", NB_THREADS * NB_LINES));
}

TEST_F(MtLoggerTest, TextOfThreadsThatEndOrAreKilledIsNotLost)
{
    MtLogger::startLogger();
    for (int i = 0; i != 10; ++i) {
        ObjPtr<MtThread> const thread = makeThread(
            "ender", [&](TestProtocol &, MtThread *) { ZV_TRACE(*testLevel, "ending" << i); });
        thread->start();
    }
    for (int i = 0; i != 5; ++i) {
        // A thread that is killed while it waits for an event holds no lock.
        LkEvent written{"written", false}, never{"never", false};
        ObjPtr<MtThread> const thread = makeThread("victim", [&](TestProtocol &, MtThread *self) {
            ZV_TRACE(*testLevel, "killed" << i);
            self->enableCancel();
            written.set();
            never.wait();
        });
        thread->start();
        written.wait();
        thread->cancel();
        thread->join();
    }
    MtLogger::stopLogger();
    EXPECT_EQ(output->find("ending"), numbered("ending", 10));
    EXPECT_EQ(output->find("killed"), numbered("killed", 5));
}

TEST_F(MtLoggerTest, AThreadThatOutlivesTheLoggerWritesOn)
{
    MtLogger::startLogger();
    std::binary_semaphore go{0}, gone{0};
    ObjPtr<MtThread> const thread = makeThread("outliver", [&](TestProtocol &, MtThread *) {
        for (int i = 0; i != 3; ++i) {
            go.acquire();
            ZV_TRACE(*testLevel, "outliving" << i);
            gone.release();
        }
    });
    thread->start();
    auto const write = [&] {
        go.release();
        gone.acquire();
    };
    write();
    MtLogger::stopLogger();
    write();
    MtLogger::startLogger();
    write();
    thread->join();
    MtLogger::stopLogger();
    EXPECT_EQ(output->find("outliving"), numbered("outliving", 3));
}

TEST_F(MtLoggerTest, AStrangerThatEndsLeavesNothing)
{
    for (bool withLogger : {true, false}) {
        if (withLogger)
            MtLogger::startLogger();
        for (int i = 0; i != 3; ++i) {
            LkThreadId stranger(LkThreadId::NULL_ID);
            std::thread([&] {
                stranger.setCurrentThread();
                ZV_TRACE(*testLevel, "passing" << i);
                EXPECT_EQ(hasEntry(&*ThreadsStatics::logQueue, stranger), withLogger);
                EXPECT_TRUE(hasEntry(&*ThreadsStatics::traces, stranger));
            }).join();
            EXPECT_FALSE(hasEntry(&*ThreadsStatics::logQueue, stranger));
            EXPECT_FALSE(hasEntry(&*ThreadsStatics::traces, stranger));
        }
        if (withLogger) {
            MtLogger::stopLogger();
            EXPECT_EQ(output->find("passing"), numbered("passing", 3));
        }
    }
}

TEST_F(MtLoggerTest, AKilledThreadThatTheLoggerForgotIsNoFailure)
{
    MtLogger::startLogger();
    LkEvent ready{"ready", false}, never{"never", false};
    ObjPtr<MtThread> const thread = makeThread("killed", [&](TestProtocol &, MtThread *self) {
        self->enableCancel();
        ready.set();
        never.wait();
    });
    thread->start();
    ready.wait();
    MtLogger::stopLogger();
    MtLogger::startLogger();
    EXPECT_NO_THROW(thread->cancel());
    thread->join();
}

TEST_F(MtLoggerTest, AFullQueueDropsTheNewestTextAndTheLogReportsHowMuch)
{
    MtLogger::startLogger();
    output->hold();
    ZV_TRACE(*testLevel, "holding");
    output->waitUntilHeld();
    constexpr int NB_LINES = 2000;
    std::string const filling(80, 'x');
    for (int i = 0; i != NB_LINES; ++i)
        ZV_TRACE(*testLevel, "line" << i << ' ' << filling); // must never wait
    output->release();
    MtLogger::stopLogger();

    int nbLost = 0, nbWritten = 0;
    for (std::string const &line : output->getLines()) {
        int nbLines = 0, end = 0;
        std::sscanf(line.c_str(),
                    "%*f %d lines (%*d characters) lost: the queue of thread %*u was full.%n",
                    &nbLines, &end);
        if (end)
            nbLost += nbLines;
        else if (line.find("line" + std::to_string(nbWritten) + ' ') != std::string::npos)
            ++nbWritten; // the oldest lines, in order
    }
    EXPECT_GT(nbLost, 0);
    EXPECT_GT(nbWritten, 100);
    EXPECT_EQ(nbLost + nbWritten, NB_LINES);
}

TEST_F(MtLoggerTest, WithBlockingTraceNothingIsLost)
{
    MtLogger::startLogger();
    LgLog::setBlockingTrace(true);
    constexpr int NB_LINES = 2000;
    std::string const filling(80, 'x');
    ObjPtr<MtThread> const thread = makeThread("blocking", [&](TestProtocol &, MtThread *) {
        for (int i = 0; i != NB_LINES; ++i)
            ZV_TRACE(*testLevel, filling << "line" << i);
    });
    thread->start();
    thread->join();
    MtLogger::stopLogger();
    EXPECT_EQ(output->find("line"), numbered("line", NB_LINES));
}

TEST_F(MtLoggerTest, AThreadStartsWithoutMemoryForItsQueue)
{
    MtLogger::startLogger();
    ObjPtr<MtThread> const thread = makeThread("poor", [](TestProtocol &protocol, MtThread *) {
        protocol.waitForStop();
        ZV_TRACE(*testLevel, "written by the poor");
    });
    {
        NewThreadsHaveNoMemory const poverty;
        thread->start();
    }
    thread->stop();
    thread->join();
    MtLogger::stopLogger();
    EXPECT_EQ(output->find("written by the poor").size(), 1u);
}

TEST_F(MtLoggerTest, AThreadThatTracesAllocatesNothing)
{
    MtLogger::startLogger();
    std::size_t nbAllocations = 1;
    ObjPtr<MtThread> const thread = makeThread("frugal", [&](TestProtocol &, MtThread *) {
        AllocationCount const count;
        for (int i = 0; i != 20; ++i)
            ZV_TRACE(*testLevel, "item" << i << ' ' << 1.5);
        nbAllocations = count.get();
    });
    thread->start();
    thread->join();
    MtLogger::stopLogger();
    EXPECT_EQ(nbAllocations, 0u);
    EXPECT_EQ(output->find("item").size(), 20u);
}

// ---- tags

TEST_F(MtLoggerTest, LinesBearTheNameOfTheirThreadCutTo15Characters)
{
    MtLogger::startLogger();
    ObjPtr<MtThread> const thread = makeThread(
        "a name that goes on", [](TestProtocol &, MtThread *) { ZV_TRACE(*testLevel, "tagged"); });
    thread->start();
    thread->join();
    ObjPtr<MtThread> const brief =
        makeThread("brief", [](TestProtocol &, MtThread *) { ZV_TRACE(*testLevel, "tagged"); });
    brief->start();
    brief->join();
    MtLogger::stopLogger();
    std::vector<std::string> lines = output->find("a name that");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(lines[0].starts_with("a name that goe ")) << lines[0];
    lines = output->find("brief");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(lines[0].starts_with("brief           ")) << lines[0];
}

TEST_F(MtLoggerTest, LinesOfAStrangerBearUnknown)
{
    MtLogger::startLogger();
    runStranger([] { ZV_TRACE(*testLevel, "stranger"); });
    MtLogger::stopLogger();
    std::vector<std::string> const lines = output->find("unknown");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(lines[0].starts_with("unknown         ")) << lines[0];
    EXPECT_NE(lines[0].find("stranger"), std::string::npos);
}

TEST_F(MtLoggerTest, ManagerGivesEachThreadItsTraceAndPrintsToTheLog)
{
    MtTraceMgr other(0);
    EXPECT_EQ(TraceManager::getInstance(), &*manager);
    Trace * const mine = other.getTrace();
    EXPECT_EQ(other.getTrace(), mine);
    std::ostringstream os;
    mine->writeTag(os);
    EXPECT_EQ(os.str(), "main            ");
    runStranger([&] { EXPECT_NE(other.getTrace(), mine); });
    other.print("printed\n");
    EXPECT_EQ(output->find("printed"), std::vector<std::string>{"printed"});
}

// ---- traces of threads and of their manager

TEST_F(MtLoggerTest, CancelTracesWhyItDoesNothing)
{
    ThreadsStatics::threadLevel->setEnabled(true);
    {
        ObjPtr<MtThread> const thread = makeWaitingThread();
        thread->cancel();
        EXPECT_EQ(output->find("isRunningNoLock() returned FALSE!!!").size(), 1u);
        thread->start();
        thread->cancel();
        EXPECT_EQ(output->find("_cancelable is FALSE!!!").size(), 1u);
        EXPECT_EQ(
            output->find("> MtThreadWindows::cancel"),
            (std::vector<std::string>{"> MtThreadWindows::cancel", "> MtThreadWindows::cancel"}));
    }
    ThreadsStatics::threadLevel->setEnabled(false);
}

TEST_F(MtLoggerTest, AReportAboutAThreadIsMadeWithoutItsLock)
{
    ObjPtr<MtThread> const thread = makeWaitingThread();
    thread->start();
    output->hold();
    std::thread stranger([&] {
        EXPECT_EQ(failedAssertion([&] { thread->setProcessorNb(31); }),
                  "::SetThreadAffinityMask( _threadHandle, mask )");
    });
    output->waitUntilHeld();
    EXPECT_TRUE(thread->isRunning()); // would wait if the report were made under the lock
    EXPECT_FALSE(thread->getThreadId().isNull());
    output->release();
    stranger.join();
}

TEST_F(MtLoggerTest, StackReportHasTheAddressesOfTheStack)
{
    printThreadStack();
    EXPECT_TRUE(output->find("valueOnStack").empty());
    ThreadsStatics::threadLevel->setEnabled(true);
    printThreadStack();
    ThreadsStatics::threadLevel->setEnabled(false);
    std::vector<std::string> const lines = output->find("&valueOnStack1 ");
    ASSERT_EQ(lines.size(), 1u);
    void *first = nullptr, *second = nullptr;
    int end = 0;
    std::sscanf(lines[0].c_str(),
                "&valueOnStack1 [%p] &valueOnStack2 [%p] allocAddr N/A frontProtectAddr N/A%n",
                &first, &second, &end);
    EXPECT_EQ(lines[0].size(), static_cast<std::size_t>(end)) << lines[0];
    EXPECT_NE(first, second);
}

TEST_F(MtLoggerTest, ManagerIsPrintedForTheDebugger)
{
    printThreadMgr();
    EXPECT_EQ(output->find("                main prio").size(), 1u);
}

// ---- the parts

TEST_F(MtLoggerTest, RegistryKeepsQueuesInOrderAndRemovesAllThatEqual)
{
    MtLogger::Registry registry;
    LgQueue a(1), b(2);
    registry.addQueue(nullptr);
    registry.addQueue(&b);
    registry.addQueue(&a);
    registry.addQueue(&b);
    EXPECT_EQ(registry.getQueues(), (List<LgQueue *>{&b, &a, &b}));
    EXPECT_TRUE(registry.hasQueue(&b));
    registry.removeQueue(&b);
    EXPECT_FALSE(registry.hasQueue(&b));
    EXPECT_EQ(registry.getQueues(), (List<LgQueue *>{&a}));
    registry.removeQueue(&b);
    registry.removeQueue(&a);
    EXPECT_TRUE(registry.getQueues().empty());
}

TEST_F(MtLoggerTest, ObserverLetsAWriterWithRoomPass)
{
    MtLogger::QueueObserver observer;
    LgQueue queue(1);
    unsigned const room = queue.getStream().getNumCharacters();
    bool isOver = false;
    std::thread([&] {
        // The queue has all of its room. A wait here would not end.
        observer.wait(queue, room);
        observer.notify(queue);
        isOver = true;
    }).join();
    EXPECT_TRUE(isOver);
    EXPECT_FALSE(queue.isFull());
    EXPECT_EQ(queue.getStream().getNumCharacters(), room);
}

} // namespace

} // namespace ZvTest
