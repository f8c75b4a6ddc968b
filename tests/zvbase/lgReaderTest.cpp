#include "zvbase/lgReader.h"
#include "testing/meeting.h"

#include "zvbase/logTestUtil.h"
#include "zvbase/trace.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <semaphore>
#include <stdexcept>
#include <thread>
#include <utility>

namespace ZvTest {

using namespace Zv;

namespace {

TraceLevel &getLevel()
{
    static TraceLevel &level = *Trace::registerLevel("LgReaderTest", __FILE__);
    level.setEnabled(true);
    return level;
}

double getMoment(std::string const &line)
{
    return std::strtod(line.c_str(), nullptr);
}

/// Thread that runs one function at a time for the test.
class Servant
{
public:
    Servant()
        : _thread([this] {
              for (;;) {
                  _ordered.acquire();
                  if (!_order)
                      break;
                  _order();
                  _done.release();
              }
              if (threadQueue)
                  TestLogger::endThread();
          })
    {}
    ~Servant()
    {
        _order = nullptr;
        _ordered.release();
        _thread.join();
    }

    void perform(std::function<void()> order)
    {
        _order = std::move(order);
        _ordered.release();
        _done.acquire();
    }

private:
    std::function<void()> _order;
    std::binary_semaphore _ordered{0};
    std::binary_semaphore _done{0};
    std::thread _thread;
};

TEST(LgReader, WithoutLinesNothingIsWritten)
{
    CapturedLog const log;
    TestLogger logger;
    EXPECT_FALSE(logger.getReader().flushEarliest());
    LgTrace::print("x");
    EXPECT_TRUE(logger.getReader().flushEarliest());
    EXPECT_FALSE(logger.getReader().flushEarliest());
    EXPECT_EQ(log.getLines(), (Lines{"x\n"}));
}

TEST(LgReader, EachCallWritesTheEarliestLineOfAllQueues)
{
    CapturedLog const log;
    TestLogger logger;
    Servant anna;
    Servant bert;
    anna.perform([] { LgTrace::print("1 anna"); });
    bert.perform([] { LgTrace::print("2 bert"); });
    LgTrace::print("3 main");
    bert.perform([] { LgTrace::print("4 bert"); });
    anna.perform([] { LgTrace::print("5 anna"); });
    for (std::size_t n = 1; n <= 5; ++n) {
        EXPECT_TRUE(logger.getReader().flushEarliest());
        EXPECT_EQ(log.getLines().size(), n);
    }
    EXPECT_FALSE(logger.getReader().flushEarliest());
    EXPECT_EQ(log.getLines(), (Lines{"1 anna\n", "2 bert\n", "3 main\n", "4 bert\n", "5 anna\n"}));
}

TEST(LgReader, ALineCountsFromItsEnd)
{
    CapturedLog const log;
    TestLogger logger;
    Servant other;
    {
        LgLine line(LgLine::PLAIN);
        line.getStream() << "begun first";
        other.perform([] { LgTrace::print("ended first"); });
        EXPECT_EQ(logger.flush(), 1) << "an unfinished line does not block the others";
    }
    logger.flush();
    EXPECT_EQ(log.getLines(), (Lines{"ended first\n", "begun first\n"}));
}

TEST(LgReader, AQueueThatIsRegisteredTwiceIsReadOnce)
{
    CapturedLog const log;
    TestLogger logger;
    LgLog::registerQueue(TestLogger::getThreadQueue());
    LgLog::registerQueue(TestLogger::getThreadQueue());
    EXPECT_EQ(logger.getNbQueues(), 1U);
    logger.getRegistry().addQueue(TestLogger::getThreadQueue());
    LgTrace::print("x");
    EXPECT_EQ(logger.flush(), 1);
}

TEST(LgReader, ThreadsThatLiveOnEnterTheirQueuesWithTheNextLogger)
{
    CapturedLog const log;
    Servant servant;
    {
        TestLogger logger;
        servant.perform([] { LgTrace::print("first life"); });
    }
    servant.perform([] { LgTrace::print("nobody's"); });
    {
        TestLogger logger;
        EXPECT_EQ(logger.getNbQueues(), 0U);
        servant.perform([] { LgTrace::print("second life"); });
        EXPECT_EQ(logger.getNbQueues(), 1U);
    }
    EXPECT_EQ(log.getLines(), (Lines{"first life\n", "nobody's\n", "second life\n"}));
}

TEST(LgReader, StoppingWritesWhatIsLeft)
{
    CapturedLog const log;
    {
        TestLogger logger;
        LgTrace::print("just before");
    }
    EXPECT_EQ(log.getLines(), (Lines{"just before\n"}));
}

TEST(LgReader, ARegistryThatIsPutAsideIsEmptiedFirst)
{
    CapturedLog const log;
    TestLogger logger;
    std::thread([] {
        LgTrace::print("from a thread that has ended");
        TestLogger::endThread();
    }).join();
    EXPECT_EQ(logger.getNbQueues(), 1U);
    ObjPtr<LgRegistry> registry(LgLog::setRegistry(nullptr));
    EXPECT_EQ(log.getLines(), (Lines{"from a thread that has ended\n"}));
    EXPECT_EQ(logger.getNbQueues(), 0U);
    static_cast<void>(LgLog::setRegistry(registry));
}

TEST(LgReader, FlushWritesInTheCallingThread)
{
    CapturedLog const log;
    TestLogger logger;
    LgTrace::print("x");
    LgLog::flush();
    EXPECT_EQ(log.getLines(), (Lines{"x\n"}));
    EXPECT_EQ(logger.flush(), 0);
}

/// Output of the log that calls a function for each line.
class ActingLog
{
public:
    explicit ActingLog(std::function<void()> act) : _act(std::move(act))
    {
        LgTrace::setOutput(take, this);
    }
    ~ActingLog() { LgTrace::setOutput(nullptr, nullptr); }
    ActingLog(ActingLog const &) = delete;
    ActingLog &operator=(ActingLog const &) = delete;

    std::string text;

private:
    static void take(void *context, char const *text, std::size_t length)
    {
        auto * const log = static_cast<ActingLog *>(context);
        log->_act();
        log->text.append(text, length);
    }

    std::function<void()> _act;
};

TEST(LgReader, AnOutputThatReadsTheLogReadsNothing)
{
    TestLogger logger;
    int nbRead = 0;
    ActingLog const log([&] { nbRead += logger.getReader().flushEarliest(); });
    LgTrace::print("first");
    LgTrace::print("second");
    EXPECT_EQ(logger.flush(), 2);
    EXPECT_EQ(nbRead, 0);
    EXPECT_EQ(log.text, "first\nsecond\n");
}

TEST(LgReader, AnOutputThatThrowsGetsTheNextLine)
{
    TestLogger logger;
    bool fails = true;
    ActingLog const log([&] {
        if (std::exchange(fails, false))
            throw std::runtime_error("no room");
    });
    LgTrace::print("lost");
    LgTrace::print("written");
    EXPECT_THROW(logger.flush(), std::runtime_error);
    EXPECT_EQ(logger.flush(), 1);
    EXPECT_EQ(log.text, "written\n");
}

TEST(LgReader, SeveralReadersShareTheWork)
{
    CapturedLog const log;
    TestLogger logger;
    LgReader other;
    Lines written;
    for (int i = 0; i < 10; ++i) {
        LgTrace::print(std::to_string(i).c_str());
        written.push_back(std::to_string(i) + "\n");
    }
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(other.flushEarliest());
        EXPECT_TRUE(logger.getReader().flushEarliest());
    }
    EXPECT_FALSE(other.flushEarliest());
    EXPECT_EQ(log.getLines(), written);
}

TEST(LgReader, AReaderForgetsAQueueThatAnotherOneDeleted)
{
    CapturedLog const log;
    TestLogger logger;
    std::thread([] {
        LgTrace::print("1");
        LgTrace::print("2");
        TestLogger::endThread();
    }).join();
    EXPECT_TRUE(logger.getReader().flushEarliest()); // remembers the queue
    LgLog::flush();                                  // empties and deletes it
    EXPECT_EQ(logger.getNbQueues(), 0U);
    EXPECT_FALSE(logger.getReader().flushEarliest());
}

/// Threads write numbered lines as fast as they can while a reader reads. All lines must be written
/// in order.
class Flood
{
public:
    static constexpr int THREADS = 4;
    static constexpr int LINES = 2000;

    void write(int thread)
    {
        _start.arrive_and_wait();
        for (int i = 0; i < LINES; ++i) {
            // Waits for room, so that nothing is lost.
            while (TestLogger::getThreadQueue()->getStream().getNumCharacters() < 1000)
                std::this_thread::yield();
            ZV_TRACE(getLevel(), thread << ' ' << i);
        }
        TestLogger::endThread();
        --_running;
    }

    void run(TestLogger &logger)
    {
        std::vector<std::thread> threads;
        for (int i = 0; i < THREADS; ++i)
            threads.emplace_back([this, i] { write(i); });
        while (_running > 0)
            static_cast<void>(logger.getReader().flushEarliest());
        for (std::thread &thread : threads)
            thread.join();
        logger.flush();
    }

private:
    Barrier _start{THREADS};
    std::atomic<int> _running = THREADS;
};

TEST(LgReader, UnderLoadThreadsKeepTheirOrderAndTheLogItsTime)
{
    CapturedLog const log;
    TestLogger logger;
    Flood().run(logger);
    EXPECT_EQ(logger.getNbQueues(), 0U);

    Lines const lines = log.getLines();
    ASSERT_EQ(lines.size(), static_cast<std::size_t>(Flood::THREADS * Flood::LINES));
    std::map<int, int> next;
    double moment = 0;
    for (std::string const &line : lines) {
        EXPECT_GE(getMoment(line), moment) << line;
        moment = getMoment(line);
        int thread = 0;
        int number = 0;
        ASSERT_EQ(std::sscanf(line.c_str() + line.find("): ") + 3, "%d %d", &thread, &number), 2);
        EXPECT_EQ(number, next[thread]++);
    }
}

TEST(LgReader, NoLineIsLostIfTheLoggerStopsDuringAFlush)
{
    constexpr int LINES = 200; // as many fit a queue
    for (int round = 0; round < 20; ++round) {
        CapturedLog const log;
        std::vector<std::thread> threads;
        Barrier start(3);
        {
            TestLogger logger;
            for (int thread = 0; thread < 2; ++thread) {
                threads.emplace_back([&, thread] {
                    LgLog::registerQueue(TestLogger::getThreadQueue());
                    start.arrive_and_wait();
                    for (int i = 0; i < LINES; ++i)
                        ZV_TRACE(getLevel(), thread << ' ' << i);
                    TestLogger::endThread();
                });
            }
            start.arrive_and_wait();
            for (int i = 0; i < round * 10; ++i)
                static_cast<void>(logger.getReader().flushEarliest());
        }
        for (std::thread &thread : threads)
            thread.join();
        std::map<std::string, int> next;
        for (std::string const &text : log.getTexts())
            EXPECT_EQ(text, text.substr(0, 2) + std::to_string(next[text.substr(0, 2)]++) + "\n");
        EXPECT_EQ(next["0 "], LINES);
        EXPECT_EQ(next["1 "], LINES);
    }
}

} // namespace
} // namespace ZvTest
