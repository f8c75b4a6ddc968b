// Tests of the log's time order under schedules that rarely happen by chance.

#include "zvbase/logTestUtil.h"
#include "zvbase/services.h"

#include <gtest/gtest.h>

namespace ZvTest {

using namespace Zv;

namespace {

/// Thread that stops in the middle of ending a line. It has read the clock, but not published the
/// line.
class SlowWriter
{
public:
    SlowWriter()
    {
        atClock = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
        goOn = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
        _hooked->readsClock = [](LONGLONG &) {
            if (standsStillAtClock) {
                standsStillAtClock = false;
                ::SetEvent(atClock);
                ::WaitForSingleObject(goOn, INFINITE);
            }
            return false;
        };
        _thread = ::CreateThread(nullptr, 64 * 1024, write, nullptr, 0, nullptr);
        ::WaitForSingleObject(atClock, INFINITE);
    }
    ~SlowWriter()
    {
        ::SetEvent(goOn);
        ::WaitForSingleObject(_thread, INFINITE);
        ::CloseHandle(_thread);
        ::CloseHandle(goOn);
        ::CloseHandle(atClock);
    }

    Hooked &getHooks() { return _hooked; }
    static void letGoOn() { ::SetEvent(goOn); }
    void waitForEnd() { ::WaitForSingleObject(_thread, INFINITE); }
    void kill()
    {
        ::TerminateThread(_thread, 0);
        waitForEnd();
    }
    static unsigned long getNumber() { return number; }

private:
    static DWORD write(void *)
    {
        LgLog::registerQueue(TestLogger::getThreadQueue());
        number = TestLogger::getThreadQueue()->getThreadId();
        standsStillAtClock = true;
        LgTrace::print("first");
        TestLogger::endThread();
        return 0;
    }

    static inline thread_local bool standsStillAtClock = false;
    // Events of the system, so that a thread that is killed while it sets one leaves no lock taken.
    static inline HANDLE atClock = nullptr;
    static inline HANDLE goOn = nullptr;
    static inline unsigned long number = 0;

    Hooked _hooked;
    HANDLE _thread = nullptr;
};

TEST(LogOrder, ALaterLineWaitsForTheOneThatIsBeingEnded)
{
    CapturedLog const log;
    TestLogger logger;
    SlowWriter writer;
    LgTrace::print("second");
    int nbLooks = 0;
    writer.getHooks()->sleeps = [&](DWORD) {
        if (++nbLooks == 5) {
            EXPECT_TRUE(log.getLines().empty());
            SlowWriter::letGoOn();
            writer.waitForEnd();
        }
        return true;
    };
    logger.flush();
    EXPECT_EQ(nbLooks, 5);
    EXPECT_EQ(log.getLines(), (Lines{"first\n", "second\n"}));
}

TEST(LogOrder, AThreadThatWasKilledWhileItEndedALineBlocksNoOther)
{
    CapturedLog const log;
    TestLogger logger;
    SlowWriter writer;
    LgTrace::print("second");
    int nbLooks = 0;
    writer.getHooks()->sleeps = [&](DWORD) {
        if (++nbLooks == 5) {
            writer.kill();
            EXPECT_TRUE(LgLog::creatorExit(SlowWriter::getNumber()));
        }
        return true;
    };
    logger.flush();
    EXPECT_EQ(nbLooks, 5);
    EXPECT_EQ(log.getLines(), (Lines{"second\n"}));
    EXPECT_EQ(logger.getNbQueues(), 1U) << "only the main thread's";
}

TEST(LogOrder, AThreadThatIsStoppedForGoodDoesNotSilenceTheLog)
{
    CapturedLog const log;
    TestLogger logger;
    SlowWriter writer;
    LgTrace::print("second");
    double slept = 0;
    writer.getHooks()->sleeps = [&](DWORD milliseconds) {
        slept += milliseconds / 1000.0;
        return true;
    };
    logger.flush();
    EXPECT_EQ(log.getLines(), (Lines{"second\n"}));
    EXPECT_GT(slept, 0.5);
    SlowWriter::letGoOn();
    writer.waitForEnd();
    logger.flush();
    EXPECT_EQ(log.getLines(), (Lines{"second\n", "first\n"}));
}

TEST(LogOrder, ALineThatIsBeingEndedWhenTheLoggerStopsIsWritten)
{
    CapturedLog const log;
    TestLogger logger;
    SlowWriter writer;
    writer.getHooks()->sleeps = [&](DWORD) {
        SlowWriter::letGoOn();
        writer.waitForEnd();
        return true;
    };
    LgLog::setLoggerActive(false);
    logger.flush();
    EXPECT_EQ(log.getLines(), (Lines{"first\n"}));
}

TEST(LogOrder, ALineThatIsEndedAfterTheReadersLookAtTheClockIsNotLeftBehind)
{
    CapturedLog const log;
    TestLogger logger;
    LgLog::registerQueue(TestLogger::getThreadQueue());
    Hooked hooked;
    bool isDone = false;
    // The line is ended directly after the reader's first reading of the clock.
    hooked->readsClock = [&](LONGLONG &ticks) {
        if (isDone)
            return false;
        isDone = true;
        LgTrace::print("just after");
        --ticks;
        return true;
    };
    EXPECT_TRUE(logger.getReader().flushEarliest());
    EXPECT_EQ(log.getLines(), (Lines{"just after\n"}));
}

} // namespace
} // namespace ZvTest
