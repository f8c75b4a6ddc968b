#include "resmgt/threadExtensions/mtRequestMgr.h"

#include "resmgt/threadExtensions/mtTask.h"
#include "testing/asleep.h"
#include "testing/failures.h"
#include "zvbase/assertions.h"

#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <string>
#include <thread>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

TEST(MtRequestTag, IsInvalidUntilAcquired)
{
    MtRequestMgr mgr;
    MtRequestTag const none;
    EXPECT_FALSE(none.isValid());
    EXPECT_TRUE(none == MtRequestTag());
    MtRequestTag const tag = mgr.acquireTag();
    EXPECT_TRUE(tag.isValid());
    EXPECT_FALSE(tag == none);
    MtRequestTag const copy(tag);
    EXPECT_TRUE(copy == tag);
    MtRequestTag const other = mgr.acquireTag();
    EXPECT_TRUE(other != tag);
}

TEST(MtRequestMgr, CountsEachTagByItself)
{
    MtRequestMgr mgr;
    MtRequestTag const a = mgr.acquireTag();
    MtRequestTag const b = mgr.acquireTag();
    mgr.incRequestCount(a);
    mgr.incRequestCount(a);
    mgr.incRequestCount(b);
    EXPECT_EQ(mgr.getRequestCount(a), 2U);
    EXPECT_EQ(mgr.getRequestCount(b), 1U);
    mgr.decRequestCount(a);
    EXPECT_EQ(mgr.getRequestCount(a), 1U);
}

TEST(MtRequestMgr, RefusesInvalidTags)
{
    MtRequestMgr mgr;
    MtRequestTag const none;
    EXPECT_EQ(failedAssertion([&] { mgr.releaseTag(none); }), "tag.isValid()");
    EXPECT_EQ(failedAssertion([&] { mgr.getRequestCount(none); }), "tag.isValid()");
    EXPECT_EQ(failedAssertion([&] { mgr.incRequestCount(none); }), "tag.isValid()");
    EXPECT_EQ(failedAssertion([&] { mgr.decRequestCount(none); }), "tag.isValid()");
    EXPECT_EQ(failedAssertion([&] { mgr.waitRequestCountZero(none); }), "tag.isValid()");
    EXPECT_TRUE(mgr.acquireTag().isValid()); // the lock is free
}

TEST(MtRequestMgr, DoesNotReleaseATagWithRequests)
{
    MtRequestMgr mgr;
    MtRequestTag const tag = mgr.acquireTag();
    mgr.incRequestCount(tag);
    EXPECT_EQ(failedAssertion([&] { mgr.releaseTag(tag); }), "(*tag._id).first == 0");
    mgr.decRequestCount(tag);
    mgr.releaseTag(tag);
}

TEST(MtRequestMgr, WrapsAroundBelowZero)
{
    MtRequestMgr mgr;
    MtRequestTag const tag = mgr.acquireTag();
    mgr.decRequestCount(tag);
    EXPECT_EQ(mgr.getRequestCount(tag), std::numeric_limits<unsigned>::max());
}

TEST(MtRequestMgr, WaitingForACountOfZeroReturnsAtOnceAndLatchesNothing)
{
    MtRequestMgr mgr;
    MtRequestTag const tag = mgr.acquireTag();
    mgr.waitRequestCountZero(tag);
    // If that wait had created a pulse, this change to 0 would latch it, and the wait below would
    // not wait.
    mgr.incRequestCount(tag);
    mgr.decRequestCount(tag);
    mgr.incRequestCount(tag);
    bool done = false;
    std::thread worker([&] {
        done = true;
        mgr.decRequestCount(tag);
    });
    mgr.waitRequestCountZero(tag);
    EXPECT_TRUE(done);
    worker.join();
}

TEST(MtRequestMgr, WaitsUntilAllAreDone)
{
    constexpr int ROUNDS = 50;
    MtRequestMgr mgr;
    for (int round = 0; round < ROUNDS; ++round) {
        MtRequestTag const tag = mgr.acquireTag();
        for (int i = 0; i < 4; ++i)
            mgr.incRequestCount(tag);
        std::vector<std::thread> workers;
        for (int i = 0; i < 4; ++i)
            workers.emplace_back([&] { mgr.decRequestCount(tag); });
        mgr.waitRequestCountZero(tag);
        EXPECT_EQ(mgr.getRequestCount(tag), 0U);
        for (std::thread &worker : workers)
            worker.join();
        mgr.releaseTag(tag);
    }
}

TEST(MtRequestMgr, ATagThatHasBeenWaitedForNeverWaitsAgain)
{
    MtRequestMgr mgr;
    MtRequestTag const tag = mgr.acquireTag();
    mgr.incRequestCount(tag);
    std::atomic<long> number{0};
    std::thread waiter([&] {
        number = threadNumber();
        mgr.waitRequestCountZero(tag);
    });
    while (!number)
        std::this_thread::yield();
    waitUntilAsleep(number);
    mgr.decRequestCount(tag);
    waiter.join();
    mgr.incRequestCount(tag);
    mgr.waitRequestCountZero(tag); // would hang if it waited
    EXPECT_EQ(mgr.getRequestCount(tag), 1U);
    mgr.decRequestCount(tag);
    mgr.releaseTag(tag);
}

void addOne(void *argument)
{
    ++*static_cast<int *>(argument);
}

TEST(MtGroupCommand, CallsItsFunction)
{
    MtRequestMgr mgr;
    int calls = 0;
    MtRequestTag const tag = mgr.acquireTag();
    MtGroupCommand command(tag, addOne, &calls);
    command.execute();
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(command.getTag() == tag);

    MtGroupCommand copy(command);
    EXPECT_TRUE(copy.getTag() == tag);
    copy.execute();
    MtGroupCommand assigned;
    EXPECT_FALSE(assigned.getTag().isValid());
    assigned = command;
    EXPECT_TRUE(assigned.getTag() == tag);
    assigned.execute();
    EXPECT_EQ(calls, 3);
    assigned.setTag(MtRequestTag());
    EXPECT_FALSE(assigned.getTag().isValid());
    EXPECT_TRUE(command.getTag() == tag);
}

TEST(MtGroupCommand, WithoutAFunctionFailsAnAssertion)
{
    MtGroupCommand command;
    EXPECT_EQ(failedAssertion([&] { command.execute(); }), "_function != 0");
}

} // namespace

} // namespace ZvTest
