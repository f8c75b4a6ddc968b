#include "fakeDevices.h"

#include "resmgt/locks/lkSema.h"
#include "testing/asleep.h"
#include "testing/failures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>

namespace ZvTest {

using namespace Zv;

namespace {

class SequenceAccess : public testing::Test
{
protected:
    ~SequenceAccess() noexcept override {}

    Registered device(char const *name)
    {
        return Registered(name, [this, name] {
            journal.add(std::string("create ") + name);
            return RCShdPtr<DevMDPrtcl>(new PromptSequence(name, journal));
        });
    }

    Journal journal;
    ObjPtr<DevMgr> manager = DevMgr::create();
    ObjPtr<DevMgrSyncSeqAcc> access = manager->createSyncSeqAcc();
};

TEST_F(SequenceAccess, CreatesDevicesInTheOrderOfTheString)
{
    Registered const a = device("a");
    Registered const b = device("b");
    Registered const c = device("c");
    access->configure("( c ( a b ) )");
    EXPECT_EQ(journal.take(), (Lines{"create c", "create a", "create b"}));
    EXPECT_EQ(access->getState("b"), "init");
}

TEST_F(SequenceAccess, ParsingTouchesNoDevice)
{
    Registered const a = device("a");
    access->parseConfig("( a )");
    EXPECT_EQ(journal.take(), Lines{});
}

// The device cannot know from which of the trees a step comes. Each tree gets its own completions.
TEST_F(SequenceAccess, DeviceOfTwoTreesGetsTheStepsOfBoth)
{
    Registered const a = device("a");
    Registered const b = device("b");
    ObjPtr<DevMgrSyncSeqAcc> const other = manager->createSyncSeqAcc();
    access->configure("( a )");
    other->configure("( b ( a ) )");
    EXPECT_EQ(journal.take(), (Lines{"create a", "create b"}));
    for (DevMgrSyncSeqAcc * const sequence : {access.get(), other.get()}) {
        EXPECT_EQ(sequence->getState("a"), "init");
        sequence->start();
        while (sequence->getState("a") != "lock")
            std::this_thread::yield();
    }
    EXPECT_EQ(journal.take(), (Lines{"start a", "sync to time a", "start b", "start a",
                                     "sync to time b", "sync to mark a"}));
    access->stop();
    access->wait();
    EXPECT_EQ(access->getState("a"), "final");
    EXPECT_EQ(other->getState("a"), "lock");
    other->stop();
    other->wait();
    EXPECT_EQ(other->getState("a"), "final");
    EXPECT_EQ(journal.take(), (Lines{"stop a", "stop a", "stop b"}));
}

TEST_F(SequenceAccess, WholeTreeStartsLocksAndStops)
{
    Registered const a = device("a");
    Registered const b = device("b");
    Registered const c = device("c");
    access->configure("( a ( b ( c ) ) )");
    journal.take();
    access->start();
    access->stop();
    access->wait();
    auto const lines = journal.take();
    EXPECT_EQ(lines, (Lines{"start a", "start b", "start c", "sync to time a", "sync to mark b",
                            "sync to mark c", "stop c", "stop b", "stop a"}));
    for (char const *name : {"a", "b", "c"})
        EXPECT_EQ(access->getState(name), "final");
}

class StateObserver : public DevSeqObserver
{
public:
    explicit StateObserver(Journal &journal) : _journal(journal) {}
    void stateChanged(LiString const &device, LiString const &state) override
    {
        _journal.add((device + " " + state).getChars());
    }

private:
    Journal &_journal;
};

TEST_F(SequenceAccess, ObserverIsNotifiedOfEveryState)
{
    Registered const a("a",
                       [this] { return RCShdPtr<DevMDPrtcl>(new PromptSequence("a", journal)); });
    Journal states;
    access->configure("( a )");
    access->setObserver(makeShd<StateObserver>(states));
    access->start();
    while (access->getState("a") != "lock")
        std::this_thread::yield();
    EXPECT_EQ(states.take(), (Lines{"a start", "a ready", "a sync", "a lock"}));
    access->setObserver(nullptr);
    access->stop();
    access->wait();
    EXPECT_EQ(states.take(), Lines{});
}

/// Device that keeps its two notifications, with which it reports.
class ReportingSequence : public PromptSequence
{
public:
    using PromptSequence::PromptSequence;

    void performStart(ObjPtr<DevACO> aco, ObjPtr<DevANO> recover, ObjPtr<DevANO> abort) override
    {
        recoverReport = recover;
        abortReport = abort;
        PromptSequence::performStart(aco, nullptr, nullptr);
    }

    ObjPtr<DevANO> recoverReport;
    ObjPtr<DevANO> abortReport;
};

TEST_F(SequenceAccess, ReportsOfADeviceComeAsWhatTheyAre)
{
    ReportingSequence *device = nullptr;
    Registered const a("a", [&] {
        device = new ReportingSequence("a", journal);
        return RCShdPtr<DevMDPrtcl>(device);
    });
    Journal states;
    access->configure("( a )");
    access->start();
    while (access->getState("a") != "lock")
        std::this_thread::yield();
    access->setObserver(makeShd<StateObserver>(states));
    journal.take();
    device->recoverReport->performExecute();
    Lines moves;
    while (moves.empty() || moves.back() == "a recover")
        if (auto const more = states.take(); !more.empty())
            moves.insert(moves.end(), more.begin(), more.end());
    EXPECT_EQ(moves.front(), "a recover");
    EXPECT_EQ(journal.take().front(), "recover a");
    device->abortReport->performExecute();
    access->wait();
    access->setObserver(nullptr);
    EXPECT_EQ(journal.take().back(), "abort a");
    access->setObserver(nullptr); // `wait` may return before the observer is told of the end
    device->recoverReport = nullptr;
    device->abortReport = nullptr;
}

// The nodes keep their devices longer than the manager does.
TEST_F(SequenceAccess, ThrowsWhatADevicesDestructorThrewAfterDestroyingAll)
{
    auto const failing = [this](char const *name) {
        return Registered(name, [this, name] {
            return RCShdPtr<DevMDPrtcl>(new FailsToEnd<PromptSequence>(name, journal));
        });
    };
    Registered const a = failing("a");
    Registered const b = failing("b");
    Registered const c = failing("c");
    access->configure("( a ( b c ) )");
    manager = nullptr;
    EXPECT_THROW(access = nullptr, std::runtime_error);
    Lines lines = journal.take();
    std::sort(lines.begin(), lines.end());
    EXPECT_EQ(lines, (Lines{"end a", "end b", "end c"}));
}

TEST_F(SequenceAccess, NameBehindTheRootsGroupIsANullPointer)
{
    Registered const a = device("a");
    Registered const b = device("b");
    Registered const c = device("c");
    EXPECT_THROW(access->configure("( a ( b ) c )"), RCEx::ExNullPtr);
}

TEST_F(SequenceAccess, ADeviceThatIsNamedTwiceFailsAnAssertion)
{
    Registered const a = device("a");
    EXPECT_EQ(failedAssertion([&] { access->configure("( a ( a ) )"); }),
              "iter == _seqTreeNodeMap.end()");
}

TEST_F(SequenceAccess, SecondConfigurationWithAKnownDeviceFailsItsAssertion)
{
    Registered const a = device("a");
    access->configure("( a )");
    EXPECT_THROW(access->configure("( a )"), AssertionFailed);
}

TEST_F(SequenceAccess, NodesThatWereMadeStayAfterAConfigurationThatFailed)
{
    Registered const a = device("a");
    EXPECT_THROW(access->configure("( a ( nobody ) )"), DevPrtclEx::ExNameNotRegistered);
    EXPECT_EQ(failedAssertion([&] { access->configure("( a )"); }),
              "iter == _seqTreeNodeMap.end()");
}

/// Device that keeps the completion of its start.
class KeepingSequence : public PromptSequence
{
public:
    using PromptSequence::PromptSequence;

    void performStart(ObjPtr<DevACO> aco, ObjPtr<DevANO>, ObjPtr<DevANO>) override
    {
        completion = aco;
    }

    ObjPtr<DevACO> completion;
};

TEST_F(SequenceAccess, AReportWaitsForNoDeliveryThatRuns)
{
    KeepingSequence *keeping = nullptr;
    Registered const a("a", [&] {
        keeping = new KeepingSequence("a", journal);
        return RCShdPtr<DevMDPrtcl>(keeping);
    });
    LkUnnamedSema arrived("arrived", 0, LkSemaTypes::Shared());
    LkUnnamedSema released("released", 0, LkSemaTypes::Shared());
    class Holding : public PromptSequence
    {
    public:
        Holding(LkUnnamedSema &arrival, LkUnnamedSema &release, Journal &lines)
            : PromptSequence("b", lines), _arrived(arrival), _released(release)
        {}
        void performStart(ObjPtr<DevACO> aco, ObjPtr<DevANO> recover, ObjPtr<DevANO> abort) override
        {
            _arrived.post();
            _released.wait();
            PromptSequence::performStart(aco, recover, abort);
        }

    private:
        LkUnnamedSema &_arrived;
        LkUnnamedSema &_released;
    };
    Registered const b(
        "b", [&] { return RCShdPtr<DevMDPrtcl>(new Holding(arrived, released, journal)); });
    access->configure("( a ( b ) )");
    std::thread client([&] { access->start(); });
    arrived.wait();
    // As on the device's thread. The completion waits neither for the tree nor for the manager.
    ObjPtr<DevACO> const completion(keeping->completion);
    completion->performExecute();
    released.post();
    client.join();
    access->stop();
    access->wait();
}

TEST_F(SequenceAccess, DestroyingTheAccessWakesAThreadThatWaits)
{
    KeepingSequence *keeping = nullptr;
    Registered const a("a", [&] {
        keeping = new KeepingSequence("a", journal);
        return RCShdPtr<DevMDPrtcl>(keeping);
    });
    access->configure("( a )");
    access->start();
    std::atomic<long> number{0};
    std::string end = "it returned";
    std::thread waiter([&number, &end, &sequence = *access] {
        number = threadNumber();
        try {
            sequence.wait();
        } catch (DevMgrEx::SequenceAbandoned const &failure) {
            end = failure.getReason();
        }
    });
    while (!number)
        std::this_thread::yield();
    waitUntilAsleep(number);
    keeping->completion = nullptr;
    access = nullptr;
    waiter.join();
    EXPECT_EQ(end, "The sequence was abandoned before it had ended.");
}

TEST_F(SequenceAccess, ASecondWaitReturnsAtOnce)
{
    Registered const a = device("a");
    access->configure("( a )");
    access->start();
    access->stop();
    access->wait();
    std::thread([this] { access->wait(); }).join();
    access->wait();
}

TEST_F(SequenceAccess, UnknownDeviceIsRefused)
{
    EXPECT_THROW(access->configure("( nobody )"), DevPrtclEx::ExNameNotRegistered);
}

TEST_F(SequenceAccess, DeviceWithoutTheSequenceFaceIsRefused)
{
    Registered const a("a",
                       [this] { return RCShdPtr<DevMDPrtcl>(new RecordingAccess("a", journal)); });
    try {
        access->configure("( a )");
        FAIL() << "the device was accepted";
    } catch (DevMgrEx::BadMDPrtclImp const &failure) {
        EXPECT_STREQ(failure.getReason(), "Managed device protocol not implemented.");
    }
    EXPECT_EQ(journal.take(), (Lines{"open a"}));
}

TEST_F(SequenceAccess, UnknownNameHasNoState)
{
    Registered const a = device("a");
    access->configure("( a )");
    EXPECT_THROW(access->getState("b"), DevMgrEx::NameNotFound);
}

TEST_F(SequenceAccess, EmptyTreeIsANullPointer)
{
    EXPECT_THROW(access->start(), RCEx::ExNullPtr);
    EXPECT_THROW(access->stop(), RCEx::ExNullPtr);
    EXPECT_THROW(access->wait(), RCEx::ExNullPtr);
    EXPECT_THROW(access->getState("a"), RCEx::ExNullPtr);
}

TEST_F(SequenceAccess, BadStringCreatesNothing)
{
    Registered const a = device("a");
    EXPECT_THROW(access->configure("( a b )"), DevMgrEx::ConfigSyntaxError);
    EXPECT_EQ(journal.take(), Lines{});
}

TEST_F(SequenceAccess, NullMediatorIsANullPointer)
{
    ObjPtr<DevMgrSyncSeqAcc> orphan = DevMgrSyncSeqAcc::create(RCShdPtr<DevMgrMediator>());
    EXPECT_THROW(orphan->configure("( a )"), RCEx::ExNullPtr);
}

} // namespace
} // namespace ZvTest
