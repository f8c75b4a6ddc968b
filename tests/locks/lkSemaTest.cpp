#include "resmgt/locks/lkSema.h"
#include "locks/lockTestUtil.h"
#include "platform/services.h"
#include "resmgt/locks/lkNamedSema.h"
#include "testing/allocations.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <unistd.h>

namespace ZvTest {

using namespace Zv;

namespace {

/// Returns a system name that no other run of the tests uses.
std::string uniqueName(char const *what)
{
    return "zvLockTest_" + std::to_string(::getpid()) + "_" + what;
}

template <class Sema>
class AnySema : public testing::Test
{
public:
    ~AnySema() noexcept override = default;

protected:
    Sema _sema{"s", 0};
};
using Semas = testing::Types<LkSema, LkUnnamedSema>;
TYPED_TEST_SUITE(AnySema, Semas);

TYPED_TEST(AnySema, CountsPosts)
{
    EXPECT_FALSE(this->_sema.tryWait());
    this->_sema.post();
    this->_sema.post();
    EXPECT_TRUE(this->_sema.tryWait());
    this->_sema.wait();
    EXPECT_FALSE(this->_sema.tryWait());
}

TYPED_TEST(AnySema, BeginsWithItsCount)
{
    TypeParam sema("two", 2);
    EXPECT_TRUE(sema.tryWait());
    EXPECT_TRUE(sema.tryWait());
    EXPECT_FALSE(sema.tryWait());
    EXPECT_STREQ(sema.getName(), "two");
}

TYPED_TEST(AnySema, LosesNoPostAmongThreads)
{
    constexpr int POSTS = 3000;
    auto const post = [&] {
        for (int i = 0; i < POSTS; ++i)
            this->_sema.post();
    };
    auto const wait = [&] {
        for (int i = 0; i < POSTS; ++i)
            this->_sema.wait();
    };
    {
        Joined a(wait), b(wait), c(post), d(post);
    }
    EXPECT_FALSE(this->_sema.tryWait());
}

TEST(LkSema, PostWithoutAWaiterOnlyCounts)
{
    LkSema sema("s", 0);
    sema.post();
    EXPECT_TRUE(sema.tryWait());
    EXPECT_FALSE(sema.tryWait());
}

TEST(LkSema, TryWaitAtZeroFailsAndReportsANonZeroCount)
{
    LkSema sema("s", 0, LkMutexAttr::getDefaultAttr(), LkCondVarAttr::getDefaultAttr());
    EXPECT_FALSE(sema.tryWait());
    EXPECT_TRUE(sema.isCountNonZero());
    sema.post();
    EXPECT_FALSE(sema.isCountNonZero());
}

TEST(LkSema, TimedWaitSleepsUntilAPost)
{
    LkSema sema("s", 0);
    bool isOurs = false;
    Watched waiter([&] { isOurs = sema.timedWait(1000.0); });
    waiter.waitUntilAsleep();
    sema.post();
    waiter.join();
    EXPECT_TRUE(isOurs);
    EXPECT_TRUE(sema.isCountNonZero());
}

TEST(LkSema, EachPostWakesOneWaiter)
{
    LkSema sema("s", 0);
    std::counting_semaphore<> through(0);
    auto const wait = [&] {
        sema.wait();
        through.release();
    };
    Watched a(wait), b(wait);
    a.waitUntilAsleep();
    b.waitUntilAsleep();
    sema.post();
    through.acquire();
    EXPECT_FALSE(sema.tryWait());
    EXPECT_FALSE(through.try_acquire());
    sema.post();
    through.acquire();
}

TEST(LkSema, TimedWaitEndsWithTheTimeOrAPost)
{
    LkSema sema("s", 0);
    EXPECT_FALSE(sema.timedWait(0.0));
    EXPECT_FALSE(sema.timedWait(0.001));
    EXPECT_TRUE(sema.isCountNonZero()) << "a wait that timed out took from the count";
    sema.post();
    EXPECT_TRUE(sema.timedWait(0.0));
    bool isOurs = false;
    std::thread waiter([&] { isOurs = sema.timedWait(1000.0); });
    sema.post();
    waiter.join();
    EXPECT_TRUE(isOurs);
}

TEST(LkNamedSema, NamesThatDifferInBackslashAndSlashAreTheSame)
{
    std::string const back = uniqueName("a\\b");
    std::string const slash = uniqueName("a/b");
    LkNamedSema one(back.c_str(), 0, LkSemaTypes::CREATE, "one");
    ASSERT_EQ(one.getErrno(), 0);
    LkNamedSema other(slash.c_str(), 0, LkSemaTypes::OPEN, "other");
    ASSERT_EQ(other.getErrno(), 0);
    one.post();
    EXPECT_TRUE(other.tryWait());
    EXPECT_FALSE(one.tryWait());
}

TEST(LkNamedSema, CreatedTwiceIsTheSameObjectAndKeepsItsCount)
{
    std::string const name = uniqueName("shared");
    LkNamedSema one(name.c_str(), 3, LkSemaTypes::CREATE, nullptr);
    LkNamedSema other(name.c_str(), 0, LkSemaTypes::CREATE, nullptr);
    EXPECT_EQ(other.getErrno(), 0);
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(other.tryWait());
    EXPECT_FALSE(one.tryWait());
}

TEST(LkNamedSema, ExclusiveCreationOfAnExistingNameFails)
{
    std::string const name = uniqueName("exclusive");
    LkNamedSema const first(name.c_str(), 0, LkSemaTypes::CREATE_EXCLUSIVE, nullptr);
    EXPECT_EQ(first.getErrno(), 0);
    LkNamedSema const second(name.c_str(), 0, LkSemaTypes::CREATE_EXCLUSIVE, nullptr);
    EXPECT_EQ(second.getErrno(), 183);
    EXPECT_EQ(second.getImp().getErrno(), 183);
}

TEST(LkNamedSema, ExclusiveCreationAsksForItsOwnNameOnly)
{
    std::string const name = uniqueName("fresh");
    ::SetLastError(ERROR_ALREADY_EXISTS);
    LkNamedSema sema(name.c_str(), 1, LkSemaTypes::CREATE_EXCLUSIVE, nullptr);
    EXPECT_EQ(sema.getErrno(), 0);
    EXPECT_TRUE(sema.tryWait());
}

TEST(LkNamedSema, OpeningAnUnknownNameFailsAndWaitsReturnAtOnce)
{
    std::string const name = uniqueName("unknown");
    LkNamedSema sema(name.c_str(), 1, LkSemaTypes::OPEN, "label");
    EXPECT_EQ(sema.getErrno(), 2);
    sema.wait();
    sema.post();
    EXPECT_EQ(failedAssertion([&] { static_cast<void>(sema.tryWait()); }),
              "ret == WAIT_OBJECT_0 || ret == WAIT_TIMEOUT");
}

TEST(LkNamedSema, NeedsNoMemoryForItsName)
{
    std::string const name = uniqueName("name\\that\\is\\too\\long\\for\\a\\string's\\own\\bytes");
    std::string slashes = name;
    std::replace(slashes.begin(), slashes.end(), '\\', '/');
    LkNamedSema const first(slashes.c_str(), 0, LkSemaTypes::CREATE, nullptr);
    ASSERT_EQ(first.getErrno(), 0);
    FailingAllocation const noMemory(0);
    LkNamedSema const second(name.c_str(), 0, LkSemaTypes::OPEN, nullptr);
    EXPECT_EQ(second.getErrno(), 0);
}

TEST(LkNamedSema, RefusesANameThatIsTooLong)
{
    LkNamedSema const sema(std::string(10000, 'n').c_str(), 0, LkSemaTypes::CREATE, nullptr);
    EXPECT_EQ(sema.getErrno(), int{ERROR_FILENAME_EXCED_RANGE});
    LkNamedSema const shortest(std::string(MAX_PATH, 'n').c_str(), 0, LkSemaTypes::CREATE, nullptr);
    EXPECT_EQ(shortest.getErrno(), int{ERROR_FILENAME_EXCED_RANGE});
}

TEST(LkNamedSema, HasItsLabelOrItsSystemName)
{
    std::string const name = uniqueName("label");
    LkNamedSema const labelled(name.c_str(), 0, LkSemaTypes::CREATE, "label");
    EXPECT_STREQ(labelled.getName(), "label");
    LkNamedSema const plain(name.c_str(), 0, LkSemaTypes::CREATE, nullptr);
    EXPECT_EQ(plain.getName(), name.c_str());
}

TEST(LkSemaTypes, HaveTheirValues)
{
    EXPECT_EQ(LkSemaTypes::OPEN, 0);
    EXPECT_EQ(LkSemaTypes::CREATE, 1);
    EXPECT_EQ(LkSemaTypes::CREATE_EXCLUSIVE, 2);
}

TEST(LkUnnamedSema, ReportsThatItCouldNotBeCreated)
{
    EXPECT_EQ(LkUnnamedSema("s", 0).getErrno(), 0);
    LkUnnamedSema sema("s", 0x80000000U); // more than a semaphore can count
    EXPECT_EQ(sema.getErrno(), 87);
    sema.wait();
    sema.post();
    EXPECT_EQ(failedAssertion([&] { static_cast<void>(sema.tryWait()); }),
              "ret == WAIT_OBJECT_0 || ret == WAIT_TIMEOUT");
}

TEST(LkUnnamedSema, IsANewOneEachTime)
{
    LkUnnamedSema one("same", 1);
    LkUnnamedSema other("same", 1, LkSemaTypes::SHARED);
    EXPECT_TRUE(one.tryWait());
    EXPECT_FALSE(one.tryWait());
    EXPECT_TRUE(other.tryWait());
}

TEST(LkUnnamedSema, WaiterMayDestroyItAtOnce)
{
    for (int round = 0; round < 500; ++round) {
        auto * const sema = new LkUnnamedSema("s", 0);
        Joined poster([sema] { sema->post(); });
        sema->wait();
        delete sema;
    }
}

} // namespace
} // namespace ZvTest
