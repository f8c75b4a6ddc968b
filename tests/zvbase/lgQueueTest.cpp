#include "zvbase/lgQueue.h"

#include "testing/allocations.h"
#include "zvbase/logTestUtil.h"
#include "zvbase/trace.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <semaphore>
#include <thread>

namespace ZvTest {

using namespace Zv;

namespace {

TEST(LgQueue, IsEmptyAndRoomyWhenNew)
{
    LgQueue queue(7);
    EXPECT_EQ(queue.getThreadId(), 7U);
    EXPECT_TRUE(queue.isEmpty());
    EXPECT_FALSE(queue.isFull());
    EXPECT_EQ(queue.getNbLostLines(), 0U);
    EXPECT_EQ(queue.getStream().getNumCharacters(), LgQueue::CAPACITY - 32);
}

TEST(LgQueue, FreeCharactersAreWhatOneLineMayHave)
{
    CapturedLog const log;
    TestLogger logger;
    LgTrace::print("first");
    LgQueue &queue = *TestLogger::getThreadQueue();
    std::size_t const room = queue.getStream().getNumCharacters();
    {
        LgLine line(LgLine::PLAIN);
        line.getStream() << std::string(room - 1, 'y'); // plus the line end
    }
    EXPECT_TRUE(queue.isFull());
    EXPECT_EQ(queue.getStream().getNumCharacters(), 0U);
    EXPECT_EQ(queue.getNbLostLines(), 0U);
    EXPECT_EQ(logger.flush(), 2);
    EXPECT_EQ(log.getLines(), (Lines{"first\n", std::string(room - 1, 'y') + "\n"}));
    EXPECT_FALSE(queue.isFull());
}

TEST(LgQueue, ALineOfOneCharacterTooManyIsDroppedAsAWhole)
{
    CapturedLog const log;
    TestLogger logger;
    LgTrace::print("first");
    std::size_t const room = TestLogger::getThreadQueue()->getStream().getNumCharacters();
    {
        LgLine line(LgLine::PLAIN);
        line.getStream() << std::string(room, 'y');
    }
    EXPECT_EQ(TestLogger::getThreadQueue()->getNbLostLines(), 1U);
    logger.flush();
    Lines const lines = log.getLines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], "first\n");
    EXPECT_NE(lines[1].find("1 lines (" + std::to_string(room + 1) + " characters) lost"),
              std::string::npos);
}

TEST(LgQueue, TextsSurviveTheSeamOfTheRing)
{
    CapturedLog const log;
    TestLogger logger;
    Lines written;
    // The lengths have no common factor with the size of the ring, so that lines cross its end at
    // every place.
    for (int i = 0; i < 5000; ++i) {
        std::string const text =
            std::to_string(i) + std::string(static_cast<unsigned>(i) % 61, 'z');
        LgTrace::print(text.c_str());
        written.push_back(text + "\n");
        if (i % 97 == 0)
            logger.flush();
    }
    logger.flush();
    EXPECT_EQ(TestLogger::getThreadQueue()->getNbLostLines(), 0U);
    EXPECT_EQ(log.getLines(), written);
}

TEST(LgQueue, AFullQueueDropsTheNewestTextAndTheLogReportsHowMuch)
{
    CapturedLog const log;
    TestLogger logger;
    int const kept = fillQueue();
    LgTrace::print("lost");
    LgTrace::print("lost too");
    EXPECT_EQ(logger.flush(), kept + 1); // the note about lost lines is a line
    LgTrace::print("later");
    logger.flush();

    Lines const lines = log.getLines();
    ASSERT_EQ(lines.size(), static_cast<std::size_t>(kept) + 2);
    for (int i = 0; i < kept; ++i)
        EXPECT_EQ(lines[static_cast<std::size_t>(i)], "x\n");
    std::string const note = lines[lines.size() - 2];
    unsigned long const number = TestLogger::getThreadQueue()->getThreadId();
    EXPECT_EQ(note.substr(13), "2 lines (12 characters) lost: the queue of thread " +
                                   std::to_string(number) + " was full.\n");
    EXPECT_EQ(lines.back(), "later\n");
}

TEST(LgQueue, EachLossIsReportedOnce)
{
    CapturedLog const log;
    TestLogger logger;
    for (int turn = 0; turn < 2; ++turn) {
        fillQueue();
        LgTrace::print("lost");
        logger.flush();
        EXPECT_EQ(log.getLines().back().substr(13, 28), "1 lines (4 characters) lost:") << turn;
    }
}

TEST(LgQueue, AnEmptyTextIsALineInAReusedPlace)
{
    CapturedLog const log;
    TestLogger logger;
    std::size_t const room = 1000;
    for (std::size_t written = 0; written < 2 * LgQueue::CAPACITY; written += room) {
        LgTrace::print(std::string(room, '\n').c_str());
        logger.flush();
    }
    std::size_t const before = log.getLines().size();
    for (std::size_t written = 0; written < LgQueue::CAPACITY; written += 32) {
        LgTrace::print("");
        logger.flush();
    }
    Lines const lines = log.getLines();
    EXPECT_GT(lines.size(), before);
    EXPECT_EQ(std::count(lines.begin() + static_cast<std::ptrdiff_t>(before), lines.end(), "\n"),
              static_cast<std::ptrdiff_t>(lines.size() - before));
}

/// Observer that counts its destruction, and during it has another thread read the log.
class Going : public LgQueue::Observer
{
public:
    explicit Going(int &nbGone) : _nbGone(nbGone) {}
    ~Going() override
    {
        std::thread([] { LgLog::flush(); }).join();
        ++_nbGone;
    }
    void notify(LgQueue &) override {}
    void wait(LgQueue &, unsigned) override {}

private:
    int &_nbGone;
};

TEST(LgQueue, AnObserverCanBeRemovedWhileOthersRead)
{
    int nbGone = 0;
    {
        LgQueue queue(7);
        queue.changeObserver(ObjPtr<LgQueue::Observer>(new Going(nbGone)));
        queue.changeObserver(ObjPtr<LgQueue::Observer>(new Going(nbGone)));
        EXPECT_EQ(nbGone, 1);
    }
    EXPECT_EQ(nbGone, 2);
}

TEST(LgQueue, ALossIsReportedBeforeTheNextLine)
{
    CapturedLog const log;
    TestLogger logger;
    int const kept = fillQueue();
    LgTrace::print("lost");
    EXPECT_TRUE(logger.getReader().flushEarliest()); // makes room for one line
    LgTrace::print("y");
    logger.flush();
    Lines const lines = log.getLines();
    ASSERT_EQ(lines.size(), static_cast<std::size_t>(kept) + 2);
    EXPECT_NE(lines[lines.size() - 2].find("1 lines (4 characters) lost"), std::string::npos);
    EXPECT_EQ(lines.back(), "y\n");
}

TEST(LgQueue, WritingAllocatesNothing)
{
    CapturedLog const log;
    TestLogger logger;
    static TraceLevel &level = *Trace::registerLevel("LgQueueTest", __FILE__);
    level.setEnabled(true);
    ZV_TRACE(level, "the first line of a thread makes its queue");
    AllocationCount const count;
    for (int i = 0; i < 100; ++i)
        ZV_TRACE(level, "number " << i << " of " << 1.5 << " things " << &level);
    EXPECT_EQ(count.get(), 0U);
    EXPECT_EQ(logger.flush(), 101);
}

TEST(LgQueue, ASuppressedQueueTakesNothingAndCountsNothing)
{
    CapturedLog const log;
    TestLogger logger;
    LgTrace::print("before");
    {
        LgQueue::SuppressGuard const outer(*TestLogger::getThreadQueue());
        {
            LgQueue::SuppressGuard const inner(*TestLogger::getThreadQueue());
            LgTrace::print("hidden");
        }
        LgTrace::print("hidden as well");
    }
    LgTrace::print("after");
    logger.flush();
    EXPECT_EQ(log.getLines(), (Lines{"before\n", "after\n"}));
    EXPECT_EQ(TestLogger::getThreadQueue()->getNbLostLines(), 0U);
}

TEST(LgQueue, TextOutsideALineIsLost)
{
    CapturedLog const log;
    TestLogger logger;
    TestLogger::getThreadQueue()->getStream() << "nobody's " << 12;
    EXPECT_TRUE(TestLogger::getThreadQueue()->getStream().good());
    LgTrace::print("a line");
    logger.flush();
    EXPECT_EQ(log.getLines(), (Lines{"a line\n"}));
}

TEST(LgQueue, TheReaderEmptiesAndDeletesTheQueueOfAnEndedThread)
{
    CapturedLog const log;
    TestLogger logger;
    std::thread([] {
        LgTrace::print("last words");
        TestLogger::endThread();
    }).join();
    EXPECT_EQ(logger.getNbQueues(), 1U);
    EXPECT_TRUE(logger.getReader().flushEarliest());
    EXPECT_EQ(logger.getNbQueues(), 1U);
    EXPECT_FALSE(logger.getReader().flushEarliest());
    EXPECT_EQ(logger.getNbQueues(), 0U);
    EXPECT_EQ(log.getLines(), (Lines{"last words\n"}));
}

TEST(LgQueue, TheLossesOfAnEndedThreadAreReported)
{
    CapturedLog const log;
    TestLogger logger;
    int kept = 0;
    std::thread([&] {
        kept = fillQueue();
        LgTrace::print("lost");
        TestLogger::endThread();
    }).join();
    EXPECT_EQ(logger.flush(), kept + 1);
    EXPECT_EQ(logger.getNbQueues(), 0U);
    EXPECT_NE(log.getLines().back().find("1 lines (4 characters) lost"), std::string::npos);
}

TEST(LgQueue, AKillerEndsTheQueueOfItsVictim)
{
    CapturedLog const log;
    TestLogger logger;
    unsigned long number = 0;
    std::thread([&] {
        LgTrace::print("interrupted");
        number = threadQueue->getThreadId();
        threadQueue = nullptr; // as if the thread had been killed
    }).join();
    EXPECT_TRUE(LgLog::creatorExit(number));
    EXPECT_FALSE(LgLog::creatorExit(number)) << "it has ended already";
    EXPECT_EQ(logger.flush(), 1);
    EXPECT_EQ(logger.getNbQueues(), 0U);
    EXPECT_EQ(log.getLines(), (Lines{"interrupted\n"}));
}

TEST(LgQueue, AVictimThatIsKilledInsideALineLosesThatLineOnly)
{
    CapturedLog const log;
    TestLogger logger;
    unsigned long number = 0;
    std::thread([&] {
        LgTrace::print("whole");
        number = threadQueue->getThreadId();
        // The line is never ended, as if the thread had been killed in the middle of it.
        alignas(LgLine) static std::byte room[sizeof(LgLine)];
        auto * const line = ::new (static_cast<void *>(room)) LgLine(LgLine::PLAIN);
        line->getStream() << "half a li";
        threadQueue = nullptr;
    }).join();
    EXPECT_TRUE(LgLog::creatorExit(number));
    logger.flush();
    EXPECT_EQ(logger.getNbQueues(), 0U);
    EXPECT_EQ(log.getLines(), (Lines{"whole\n"}));
}

TEST(LgQueue, WithoutALoggerAnEndingThreadWritesAndDeletesItsQueue)
{
    CapturedLog const log;
    TestLogger logger;
    std::binary_semaphore written(0);
    std::binary_semaphore stopped(0);
    std::thread thread([&] {
        {
            LgLine line(LgLine::PLAIN);
            line.getStream() << "begun under the logger";
            written.release();
            stopped.acquire();
        }
        TestLogger::endThread();
    });
    written.acquire();
    logger.stop();
    EXPECT_TRUE(log.getLines().empty());
    stopped.release();
    thread.join();
    EXPECT_EQ(log.getLines(), (Lines{"begun under the logger\n"}));
}

// ---- blocking trace

/// Observer that reads while the writer waits.
class ReadingObserver : public LgQueue::Observer
{
public:
    explicit ReadingObserver(TestLogger &logger) : _logger(logger) {}

    void notify(LgQueue &queue) override
    {
        ++nbNotified;
        lastRoom = queue.getStream().getNumCharacters();
    }
    void wait(LgQueue &queue, unsigned n) override
    {
        ++nbWaits;
        EXPECT_LT(queue.getStream().getNumCharacters(), n);
        _logger.flush();
        EXPECT_GE(queue.getStream().getNumCharacters(), n) << "more than an emptied queue has";
    }

    static inline int nbWaits = 0;
    static inline int nbNotified = 0;
    static inline std::size_t lastRoom = 0;

private:
    TestLogger &_logger;
};

class BlockingTrace : public testing::Test
{
protected:
    BlockingTrace()
    {
        ReadingObserver::nbWaits = ReadingObserver::nbNotified = 0;
        TestLogger::getThreadQueue()->changeObserver(
            ObjPtr<LgQueue::Observer>(new ReadingObserver(_logger)));
        LgLog::setBlockingTrace(true);
    }
    ~BlockingTrace() override { LgLog::setBlockingTrace(false); }

    CapturedLog _log;
    TestLogger _logger;
};

TEST_F(BlockingTrace, AWriterWaitsForRoomAndLosesNothing)
{
    Lines written;
    for (int i = 0; i < 2000; ++i) {
        LgTrace::print(std::to_string(i).c_str());
        written.push_back(std::to_string(i) + "\n");
    }
    EXPECT_GT(ReadingObserver::nbWaits, 0);
    _logger.flush();
    EXPECT_EQ(_log.getLines(), written);
    EXPECT_EQ(TestLogger::getThreadQueue()->getNbLostLines(), 0U);
    EXPECT_EQ(ReadingObserver::nbNotified, 2000);
    EXPECT_EQ(ReadingObserver::lastRoom, LgQueue::CAPACITY - 32);
}

TEST_F(BlockingTrace, ALongLineWaitsInTheMiddle)
{
    LgTrace::print("first");
    std::string const text(LgQueue::CAPACITY - 33, 'y');
    {
        LgLine line(LgLine::PLAIN);
        line.getStream() << text;
    }
    _logger.flush();
    EXPECT_EQ(_log.getLines(), (Lines{"first\n", text + "\n"}));
    EXPECT_EQ(ReadingObserver::nbWaits, 1);
}

TEST_F(BlockingTrace, ALineThatFitsNoQueueIsDroppedWithoutWaiting)
{
    {
        LgLine line(LgLine::PLAIN);
        line.getStream() << std::string(LgQueue::CAPACITY, 'y');
    }
    EXPECT_EQ(ReadingObserver::nbWaits, 0);
    EXPECT_EQ(TestLogger::getThreadQueue()->getNbLostLines(), 1U);
    EXPECT_EQ(TestLogger::getThreadQueue()->getStream().getNumCharacters(), LgQueue::CAPACITY - 32);
}

/// Observer whose `wait` makes no room.
class IdleObserver : public LgQueue::Observer
{
public:
    void notify(LgQueue &) override {}
    void wait(LgQueue &, unsigned) override {}
};

TEST_F(BlockingTrace, ALineIsDroppedIfWaitingMadeNoRoom)
{
    LgTrace::print("first");
    LgQueue &queue = *TestLogger::getThreadQueue();
    queue.changeObserver(ObjPtr<LgQueue::Observer>(new IdleObserver));
    {
        LgLine line(LgLine::PLAIN);
        line.getStream() << std::string(LgQueue::CAPACITY - 33, 'y');
    }
    EXPECT_EQ(queue.getNbLostLines(), 1U);
    _logger.flush();
    EXPECT_EQ(queue.getStream().getNumCharacters(), LgQueue::CAPACITY - 32);
}

TEST_F(BlockingTrace, NoThreadWaitsOnceTheLoggerIsStopping)
{
    fillQueue();
    LgLog::setLoggerActive(false);
    {
        // A line that was begun while the logger ran.
        LgLog::setLoggerActive(true);
        LgLine line(LgLine::PLAIN);
        LgLog::setLoggerActive(false);
        line.getStream() << "lost";
    }
    EXPECT_EQ(ReadingObserver::nbWaits, 0);
    EXPECT_NE(_log.getLines().back().find("1 lines (4 characters) lost"), std::string::npos);
}

} // namespace
} // namespace ZvTest
