#include "resmgt/threads/mtThreadMgr.h"

#include "resmgt/locks/mtUtil.h"
#include "resmgt/threads/mtEx.h"
#include "resmgt/threads/mtPriorityMgr.h"
#include "resmgt/threads/mtThreadFactory.h"
#include "resmgt/threads/mtThreadMgrImp.private.h"
#include "resmgt/threads/priority.h"
#include "resmgt/threads/rtPriorities.h"
#include "resmgt/threads/threadsStatics.private.h"
#include "testing/askingStream.h"
#include "threads/threadTesting.h"
#include "zvbase/envVar.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <sstream>
#include <thread>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

/// Thread with a given identifier. It never runs.
class NumberThread : public StubThread
{
public:
    explicit NumberThread(unsigned long number) : _number(number) {}
    LkThreadId getThreadId() const override { return LkThreadId(_number); }
    void dump(std::ostream &os) const override { os << "thread " << _number; }

private:
    unsigned long _number;
};

/// Creates main threads that are not registered.
class NumberFactory : public MtThreadFactory
{
public:
    ObjPtrRet<MtThread> createThread(LiString const &, ObjPtr<MtThreadProtocol>, bool,
                                     unsigned) override
    {
        return nullptr;
    }
    int getMinPriority() const override { return 0; }
    int getMaxPriority() const override { return 6; }
    ~NumberFactory() override = default;

    std::vector<LiString> mainThreads;

protected:
    ObjPtrRet<MtThread> createMainThread(LiString const &name, MtThreadMgr &) override
    {
        mainThreads.push_back(name);
        return ObjPtrRet<MtThread>(new NumberThread(1));
    }
};

/// The portable manager. Its real-time operation can be refused.
class TestMgr : public MtThreadMgrImp
{
public:
    explicit TestMgr(MtThreadFactory &factory) : MtThreadMgrImp(factory) {}
    ~TestMgr() noexcept(false) override = default;

    void enableRealTime() override
    {
        ++nbEnabled;
        if (isRefused)
            throw MtEx::ExRealTimeNotEnabled("f", 1, "refused");
        if (isBroken)
            throw AssertionFailed("f", 1, "broken");
        MtThreadMgrImp::enableRealTime();
    }
    void disableRealTime() override
    {
        ++nbDisabled;
        MtThreadMgrImp::disableRealTime();
    }
    static void setParam(RealTimeParam param) { _realTimeParam = param; }
    ObjPtrRet<MtThread> makeMainThread(MtThreadFactory &factory)
    {
        return createMainThread(factory);
    }

    int nbEnabled = 0;
    int nbDisabled = 0;
    bool isRefused = false;
    bool isBroken = false;
};

class TestGroup : public MtThreadGroup
{
public:
    explicit TestGroup(std::vector<std::pair<int, unsigned>> &calls, int id)
        : _calls(calls), _id(id)
    {}
    void processorsChanged(unsigned nbProcessors) override
    {
        _calls.emplace_back(_id, nbProcessors);
        if (leaving)
            leaving->removeGroup(this);
    }
    MtThreadMgr *leaving = nullptr;

private:
    std::vector<std::pair<int, unsigned>> &_calls;
    int _id;
};

class NoRealTimeGuard
{
public:
    explicit NoRealTimeGuard(char const *assignment) { EnvVar::putEnv(assignment); }
    ~NoRealTimeGuard()
    {
        EnvVar::putEnv("ZV_THREAD_NO_REALTIME=");
        ThreadsStatics::noRealTime.refresh();
    }
};

class MtThreadMgrTest : public ThreadTest
{
protected:
    MtThreadMgrTest() : _param(MtThreadMgr::getRealTimeParam()) {}
    ~MtThreadMgrTest() override { TestMgr::setParam(_param); }

    NumberFactory factory;

private:
    std::unique_ptr<TestMgr> const _manager{new TestMgr(factory)};

protected:
    TestMgr &manager{*_manager};

private:
    MtThreadMgr::RealTimeParam _param;
};

// ---- registration

TEST_F(MtThreadMgrTest, MakesTheMainThreadByTheFactory)
{
    EXPECT_EQ(factory.mainThreads, std::vector<LiString>{"main"});
    EXPECT_EQ(manager.getNbThreads(), 0u);
    EXPECT_EQ(manager.getNbProcessors(), ~0u);
    EXPECT_FALSE(manager.isRealTime());
}

TEST_F(MtThreadMgrTest, TheProcessHasOneMainThread)
{
    MtThreadMgr::getInstance();
    EXPECT_EQ(
        failedAssertion([&] { manager.makeMainThread(MtThreadFactory::getInstance()).isNull(); }),
        "first");
    EXPECT_EQ(manager.getNbThreads(), 0u);
}

TEST_F(MtThreadMgrTest, AddingAThreadTwiceFailsTheAssertion)
{
    NumberThread thread(5);
    manager.addThread(&thread);
    EXPECT_EQ(failedAssertion([&] { manager.addThread(&thread); }), "findNoLock( thread ) == 0");
    EXPECT_EQ(manager.getNbThreads(), 1u);
    manager.removeThread(&thread);
    EXPECT_EQ(failedAssertion([&] { manager.removeThread(&thread); }),
              "findNoLock( thread ) == thread");
}

TEST_F(MtThreadMgrTest, AddingAGroupTwiceFailsTheAssertion)
{
    std::vector<std::pair<int, unsigned>> calls;
    TestGroup group(calls, 1);
    manager.addGroup(&group);
    EXPECT_EQ(failedAssertion([&] { manager.addGroup(&group); }), "findNoLock( group ) == 0");
    manager.removeGroup(&group);
    EXPECT_EQ(failedAssertion([&] { manager.removeGroup(&group); }),
              "findNoLock( group ) == group");
}

TEST_F(MtThreadMgrTest, NothingMayBeAddedAndRemovedAnyNumberOfTimes)
{
    manager.removeThread(nullptr);
    manager.addThread(nullptr);
    std::ostringstream os;
    manager.MtThreadMgrImp::dump(os);
    EXPECT_EQ(manager.findThread(LkThreadId(77)), nullptr);
    manager.removeThread(nullptr);
    manager.removeGroup(nullptr);
    EXPECT_EQ(manager.getNbThreads(), 0u);
}

TEST_F(MtThreadMgrTest, FirstThreadOfANumberIsFound)
{
    NumberThread a(5), b(7), c(7);
    manager.addThread(&a);
    manager.addThread(&b);
    manager.addThread(&c);
    EXPECT_EQ(manager.findThread(LkThreadId(5)), &a);
    EXPECT_EQ(manager.findThread(LkThreadId(7)), &b);
    EXPECT_EQ(manager.findThread(LkThreadId(6)), nullptr);
    manager.removeThread(&b);
    EXPECT_EQ(manager.findThread(LkThreadId(7)), &c);
    manager.removeThread(&a);
    manager.removeThread(&c);
}

TEST_F(MtThreadMgrTest, ThreadsAreFoundByTheNumbersThatTheyReport)
{
    NumberThread a(0), b(0);
    manager.threadIdChanged(&a, LkThreadId(9)); // not registered
    EXPECT_EQ(manager.findThread(LkThreadId(9)), nullptr);
    manager.addThread(&a);
    manager.addThread(&b);
    manager.threadIdChanged(&b, LkThreadId(9));
    EXPECT_EQ(manager.findThread(LkThreadId(9)), &b);
    manager.threadIdChanged(&a, LkThreadId(9));
    EXPECT_EQ(manager.findThread(LkThreadId(9)), &a); // registered first
    manager.threadIdChanged(&a, LkThreadId());
    EXPECT_EQ(manager.findThread(LkThreadId(9)), &b);
    EXPECT_EQ(manager.findThread(LkThreadId()), &a); // the first that does not run
    manager.removeThread(&b);
    EXPECT_EQ(manager.findThread(LkThreadId(9)), nullptr);
    manager.removeThread(&a);
}

TEST_F(MtThreadMgrTest, DumpHasEachThreadOnALineInOrder)
{
    NumberThread a(5), b(7);
    manager.addThread(&b);
    manager.addThread(&a);
    std::ostringstream os;
    os << static_cast<MtThreadMgr const &>(manager);
    EXPECT_EQ(os.str(), "\nthread 7\nthread 5");
    manager.removeThread(&a);
    manager.removeThread(&b);
}

TEST_F(MtThreadMgrTest, DumpWritesWithoutTheLock)
{
    NumberThread a(5);
    manager.addThread(&a);
    auto const work = [this] { static_cast<void>(manager.getNbThreads()); };
    EXPECT_EQ(writtenDuring(work, [this](std::ostream &os) { manager.dump(os); }), "\nthread 5");
    manager.removeThread(&a);
}

TEST_F(MtThreadMgrTest, DumpOfTheProcessEndsWithThePriorities)
{
    std::ostringstream os, priorities;
    os << MtThreadMgr::getInstance();
    MtPriorityMgr::getInstance().dump(priorities);
    EXPECT_TRUE(os.str().ends_with(priorities.str()));
    EXPECT_TRUE(os.str().starts_with("\n0x")) << os.str();
    EXPECT_NE(os.str().find("                main prio   3 NTprio   8 pol RR SYSTEM"),
              std::string::npos)
        << os.str();
}

TEST_F(MtThreadMgrTest, DestructionWithAThreadFailsTheAssertion)
{
    NumberThread thread(5);
    auto * const other = new TestMgr(factory);
    other->addThread(&thread);
    EXPECT_EQ(failedAssertion([&] { delete other; }), "_threads.size() == 0");
}

/// Checks during its notification whether another group can be added.
class LookingGroup : public MtThreadGroup
{
public:
    LookingGroup(MtThreadMgr &manager, MtThreadGroup &other) : _manager(manager), _other(other) {}
    void processorsChanged(unsigned) override
    {
        look = std::make_unique<Blocked>([this] { _manager.addGroup(&_other); });
    }
    std::unique_ptr<Blocked> look;

private:
    MtThreadMgr &_manager;
    MtThreadGroup &_other;
};

TEST_F(MtThreadMgrTest, GroupsAreNotifiedUnderTheManagersLock)
{
    std::vector<std::pair<int, unsigned>> calls;
    TestGroup other(calls, 1);
    LookingGroup group(manager, other);
    manager.addGroup(&group);
    manager.setNbProcessors(manager.getNbProcessors() + 1);
    ASSERT_TRUE(group.look);
    EXPECT_TRUE(group.look->wasBlocked());
    group.look.reset();
    manager.removeGroup(&other);
    manager.removeGroup(&group);
}

TEST_F(MtThreadMgrTest, TheManagerOfTheProcessDoesNotNotifyItsGroups)
{
    std::vector<std::pair<int, unsigned>> calls;
    TestGroup group(calls, 1);
    MtThreadMgr &process = MtThreadMgr::getInstance();
    unsigned const nbProcessors = process.getNbProcessors();
    process.addGroup(&group);
    process.setNbProcessors(nbProcessors + 1);
    process.setNbProcessors(nbProcessors);
    process.removeGroup(&group);
    EXPECT_TRUE(calls.empty());
}

/// Counts the requests for its identifier.
class AskedNumberThread : public NumberThread
{
public:
    using NumberThread::NumberThread;
    LkThreadId getThreadId() const override
    {
        ++nbQuestions;
        return NumberThread::getThreadId();
    }
    mutable int nbQuestions = 0;
};

TEST_F(MtThreadMgrTest, AStrangerIsLookedForAmongThreadsThatReportNothing)
{
    AskedNumberThread reporting(5), silent(7);
    manager.addThread(&reporting);
    manager.threadIdChanged(&reporting, LkThreadId(5));
    EXPECT_EQ(manager.findThread(LkThreadId(7)), nullptr);
    EXPECT_EQ(reporting.nbQuestions, 0); // threads that report their identifiers are not asked
    manager.addThread(&silent);
    EXPECT_EQ(manager.findThread(LkThreadId(7)), &silent);
    EXPECT_EQ(manager.findThread(LkThreadId(8)), nullptr);
    manager.removeThread(&silent);
    reporting.nbQuestions = 0;
    EXPECT_EQ(manager.findThread(LkThreadId(7)), nullptr);
    EXPECT_EQ(reporting.nbQuestions, 0);
    manager.removeThread(&reporting);
}

TEST_F(MtThreadMgrTest, TheMainThreadReturnsToItsLevelWithoutRequests)
{
    MtThread &main = *MtThreadMgr::findCurrentThread();
    auto const dump = [&main] {
        std::ostringstream os;
        main.dump(os);
        return os.str();
    };
    std::string const before = dump();
    EXPECT_NE(before.find("main prio   3 NTprio   8 "), std::string::npos) << before;
    {
        PriorityRelation const relation("main", RtPriorities::getInstance().getInterruptPriority(),
                                        PriorityRelation::EQUAL, main.getPriority());
        EXPECT_NE(dump().find("main prio   6 NTprio  15 "), std::string::npos) << dump();
    }
    EXPECT_EQ(dump(), before);
}

/// Thread that is registered while it exists, like the main thread of the platform.
class RegisteredThread : public NumberThread
{
public:
    explicit RegisteredThread(MtThreadMgr &manager) : NumberThread(77), _manager(manager)
    {
        _manager.addThread(this);
        _manager.threadIdChanged(this, getThreadId());
    }
    ~RegisteredThread() noexcept(false) override
    {
        nbFound = _manager.getNbThreads();
        _manager.threadIdChanged(this, LkThreadId());
        _manager.removeThread(this);
    }
    static unsigned nbFound;

private:
    MtThreadMgr &_manager;
};

unsigned RegisteredThread::nbFound = 0;

class RegisteringFactory : public NumberFactory
{
protected:
    ObjPtrRet<MtThread> createMainThread(LiString const &, MtThreadMgr &manager) override
    {
        return ObjPtrRet<MtThread>(new RegisteredThread(manager));
    }
};

TEST_F(MtThreadMgrTest, DestructionWithItsMainThreadFailsTheAssertionAndLetsItGo)
{
    RegisteringFactory registering;
    auto * const other = new TestMgr(registering);
    EXPECT_EQ(failedAssertion([&] { delete other; }), "_threads.size() == 0");
    EXPECT_EQ(RegisteredThread::nbFound, 1u);
}

TEST_F(MtThreadMgrTest, DestructionWithAGroupFailsTheAssertion)
{
    std::vector<std::pair<int, unsigned>> calls;
    TestGroup group(calls, 1);
    auto * const other = new TestMgr(factory);
    other->addGroup(&group);
    EXPECT_EQ(failedAssertion([&] { delete other; }), "_groups.size() == 0");
}

TEST_F(MtThreadMgrTest, FindsNoObjectForAThreadOfTheApplication)
{
    MtThread *found = &*ObjPtr<MtThread>(makeWaitingThread()); // any pointer that is not null
    std::thread([&] { found = MtThreadMgr::findCurrentThread(); }).join();
    EXPECT_EQ(found, nullptr);
}

TEST_F(MtThreadMgrTest, TheMainThreadRunsAndIsFound)
{
    MtThread * const main = MtThreadMgr::findCurrentThread();
    ASSERT_NE(main, nullptr);
    EXPECT_EQ(main->getName(), "main");
    EXPECT_TRUE(main->isRunning());
    EXPECT_TRUE(main->getThreadId().isCurrentThread());
    EXPECT_EQ(main->getProtocol(), nullptr);
    main->stop();
    EXPECT_FALSE(main->isCancelable());
    main->cancel();
}

// ---- processors

TEST_F(MtThreadMgrTest, GroupsHearOfANewNumberOfProcessorsOnce)
{
    std::vector<std::pair<int, unsigned>> calls;
    TestGroup a(calls, 1), b(calls, 2);
    manager.addGroup(&b);
    manager.addGroup(&a);
    manager.setNbProcessors(4);
    EXPECT_EQ(calls, (std::vector<std::pair<int, unsigned>>{{2, 4}, {1, 4}}));
    EXPECT_EQ(manager.getNbProcessors(), 4u);
    manager.setNbProcessors(4);
    EXPECT_EQ(calls.size(), 2u);
    b.leaving = &manager;
    manager.setNbProcessors(3);
    manager.setNbProcessors(2);
    EXPECT_EQ(calls,
              (std::vector<std::pair<int, unsigned>>{{2, 4}, {1, 4}, {2, 3}, {1, 3}, {1, 2}}));
    manager.removeGroup(&a);
}

TEST_F(MtThreadMgrTest, TheManagerOfTheProcessHasItsProcessorsAndNotifiesNoGroup)
{
    MtThreadMgr &process = MtThreadMgr::getInstance();
    unsigned const nbProcessors = process.getNbProcessors();
    EXPECT_EQ(nbProcessors, static_cast<unsigned>(MtUtil::getNbProcessors()));
    std::vector<std::pair<int, unsigned>> calls;
    TestGroup group(calls, 1);
    process.addGroup(&group);
    process.setNbProcessors(nbProcessors + 1);
    EXPECT_EQ(process.getNbProcessors(), nbProcessors + 1);
    process.setNbProcessors(nbProcessors);
    process.removeGroup(&group);
    EXPECT_TRUE(calls.empty());
}

// ---- real time

TEST_F(MtThreadMgrTest, TheApplicationRequestsRealTime)
{
    TestMgr::setParam(MtThreadMgr::REAL_TIME_NOT_STATED);
    MtThreadMgr::indicateAppIsRealTime(false);
    EXPECT_EQ(MtThreadMgr::getRealTimeParam(), 1);
    MtThreadMgr::indicateAppIsRealTime(true);
    EXPECT_EQ(MtThreadMgr::getRealTimeParam(), 2);
}

TEST_F(MtThreadMgrTest, ApplicationNamesWhatItWants)
{
    for (auto const wish : {MtThreadMgr::REAL_TIME_REQUIRED, MtThreadMgr::REAL_TIME_WANTED,
                            MtThreadMgr::REAL_TIME_NOT_STATED}) {
        MtThreadMgr::indicateAppIsRealTime(wish);
        EXPECT_EQ(MtThreadMgr::getRealTimeParam(), wish);
    }
}

TEST_F(MtThreadMgrTest, RealTimeIsEnabledOnceAndDisabledOnce)
{
    manager.setRealTime(false);
    EXPECT_EQ(manager.nbDisabled, 0);
    manager.setRealTime(true);
    manager.setRealTime(true);
    EXPECT_EQ(manager.nbEnabled, 1);
    EXPECT_TRUE(manager.isRealTime());
    manager.setRealTime(false);
    manager.setRealTime(false);
    EXPECT_EQ(manager.nbDisabled, 1);
    EXPECT_FALSE(manager.isRealTime());
}

TEST_F(MtThreadMgrTest, ARefusalIsIgnoredIfRealTimeIsOnlyWanted)
{
    TestMgr::setParam(MtThreadMgr::REAL_TIME_WANTED);
    manager.isRefused = true;
    manager.setRealTime(true);
    EXPECT_FALSE(manager.isRealTime());
    manager.setRealTime(true);
    EXPECT_EQ(manager.nbEnabled, 2);
}

TEST_F(MtThreadMgrTest, ARefusalIsThrownIfRealTimeIsRequired)
{
    TestMgr::setParam(MtThreadMgr::REAL_TIME_REQUIRED);
    manager.isRefused = true;
    try {
        manager.setRealTime(true);
        FAIL();
    } catch (MtEx::ExRealTimeNotEnabled const &refusal) {
        EXPECT_STREQ(refusal.getReason(), "Failure to enable real-time: refused.");
    }
    EXPECT_FALSE(manager.isRealTime());
}

TEST_F(MtThreadMgrTest, AnyOtherFailureIsThrown)
{
    manager.isBroken = true;
    EXPECT_EQ(failedAssertion([&] { manager.setRealTime(true); }), "broken");
    EXPECT_FALSE(manager.isRealTime());
}

TEST_F(MtThreadMgrTest, TheEnvironmentSwitchesBothWaysOff)
{
    manager.setRealTime(true);
    NoRealTimeGuard const off("ZV_THREAD_NO_REALTIME=1");
    manager.setRealTime(false);
    EXPECT_TRUE(manager.isRealTime());
    EXPECT_EQ(manager.nbDisabled, 0);
}

TEST_F(MtThreadMgrTest, AChangeOfTheEnvironmentCountsFromTheNextSwitch)
{
    NoRealTimeGuard const off("ZV_THREAD_NO_REALTIME=-1");
    manager.setRealTime(true);
    EXPECT_FALSE(manager.isRealTime());
    EnvVar::putEnv("ZV_THREAD_NO_REALTIME=0");
    manager.setRealTime(true);
    EXPECT_TRUE(manager.isRealTime());
}

} // namespace

} // namespace ZvTest
