// Tests of the status of threads. What the system grants is tested in realTimeTest.cpp.
#include "resmgt/threads/mtThreadStatus.h"

#include "resmgt/threads/mtThreadMgr.h"
#include "resmgt/threads/priority.h"
#include "resmgt/threads/rtPriorities.h"
#include "threads/threadTesting.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>

namespace ZvTest {

using namespace Zv;

namespace {

/// Returns the status of the only thread with a name.
std::optional<MtThreadStatus> findStatus(char const *name)
{
    std::optional<MtThreadStatus> found;
    for (MtThreadStatus const &status : MtThreadStatus::readAll()) {
        if (status.name != LiString(name))
            continue;
        EXPECT_FALSE(found) << name;
        found = status;
    }
    return found;
}

using MtThreadStatusTest = ThreadTest;

TEST_F(MtThreadStatusTest, TheMainThreadIsTheFirst)
{
    auto const all = MtThreadStatus::readAll();
    ASSERT_EQ(all.size(), MtThreadMgr::getInstance().getNbThreads());
    MtThreadStatus const &main = all.front();
    EXPECT_EQ(main.name, "main");
    EXPECT_TRUE(main.threadId.isCurrentThread());
    EXPECT_EQ(main.level, 3);
    EXPECT_TRUE(main.isRunning());
    EXPECT_FALSE(main.asked.isRealTime);
    EXPECT_FALSE(main.granted.isRealTime);
}

TEST_F(MtThreadStatusTest, ThreadsAreInTheOrderOfTheirRegistration)
{
    ObjPtr<MtThread> const later(makeWaitingThread("status z"));
    ObjPtr<MtThread> const last(makeWaitingThread("status a"));
    auto const all = MtThreadStatus::readAll();
    ASSERT_GE(all.size(), 3u);
    EXPECT_EQ(all[all.size() - 2].name, "status z");
    EXPECT_EQ(all.back().name, "status a");
}

TEST_F(MtThreadStatusTest, AThreadHasItsLevelBeforeItRuns)
{
    ObjPtr<MtThread> const thread(makeWaitingThread("status"));
    EXPECT_EQ(findStatus("status")->level, 0);
    auto const level = [](Priority &priority, MtThread &related) {
        PriorityRelation const relation("status", priority, PriorityRelation::EQUAL,
                                        related.getPriority());
        return findStatus("status").value();
    };
    RtPriorities &landmarks = RtPriorities::getInstance();
    MtThreadStatus const highest = level(landmarks.getInterruptPriority(), *thread);
    EXPECT_EQ(highest.level, 6);
    EXPECT_FALSE(highest.isRunning());
    EXPECT_TRUE(highest.threadId.isNull());
    MtThreadStatus const low = level(landmarks.getRealTimePriority(), *thread);
    EXPECT_EQ(low.level, 1);
    EXPECT_NE(low.asked, highest.asked);
}

TEST_F(MtThreadStatusTest, ARunningThreadHasANumberOfTheSystem)
{
    ObjPtr<MtThread> const thread(makeWaitingThread("status"));
    thread->start();
    MtThreadStatus const running = findStatus("status").value();
    EXPECT_TRUE(running.isRunning());
    EXPECT_EQ(running.threadId, thread->getThreadId());
    EXPECT_NE(running.systemNumber, MtThreadStatus::readAll().front().systemNumber);
    thread->stop();
    thread->join();
    MtThreadStatus const ended = findStatus("status").value();
    EXPECT_FALSE(ended.isRunning());
    EXPECT_TRUE(ended.threadId.isNull());
    EXPECT_EQ(ended.granted, MtScheduling());
    EXPECT_EQ(ended.asked, running.asked);
}

TEST_F(MtThreadStatusTest, ThreadsOfOtherClassesAreLeftOut)
{
    StubThread stub;
    MtThreadMgr &manager = MtThreadMgr::getInstance();
    auto const before = MtThreadStatus::readAll().size();
    manager.addThread(&stub);
    EXPECT_EQ(MtThreadStatus::readAll().size(), before);
    EXPECT_FALSE(findStatus("stub"));
    manager.removeThread(&stub);
}

TEST_F(MtThreadStatusTest, ThreadsMayComeAndGoMeanwhile)
{
    std::atomic<bool> isOver = false;
    ObjPtr<MtThread> const busy(makeThread("status maker", [&](TestProtocol &, MtThread *) {
        while (!isOver) {
            ObjPtr<MtThread> const thread(makeThread("short", [](TestProtocol &, MtThread *) {}));
            thread->start();
        }
    }));
    busy->start();
    for (int round = 0; round < 1000; ++round)
        for (MtThreadStatus const &status : MtThreadStatus::readAll()) {
            EXPECT_FALSE(status.granted.isRealTime) << status.name.getChars();
            EXPECT_GE(status.level, 0);
        }
    isOver = true;
    busy->join();
}

} // namespace

} // namespace ZvTest
