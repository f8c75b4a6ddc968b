// Closing a manager within a limit: the devices that are closed, those that are left behind, and
// later calls. `tests/simulated` tests in virtual time how devices that hang share the limit.
#include "fader.h"
#include "fakeDevices.h"
#include "testing/failures.h"

#include "resmgt/deviceManager/devMgrMediator.h"
#include "resmgt/locks/lkSema.h"
#include "testing/allocations.h"
#include "testing/asleep.h"
#include "testing/capturedLog.h"
#include "zvbase/lgLog.h"

#include <gtest/gtest.h>

#include <atomic>
#include <exception>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace ZvTest {

using namespace Zv;

using End = DevMgrCloseReport::End;

namespace {

/// Limit in seconds that no test reaches.
constexpr double LONG = 3600;
/// Limit in seconds for devices that hang.
constexpr double SHORT = 0.05;

/// Device that logs its opening, its closing and its destruction.
class Recording : public RecordingAccess
{
public:
    struct Actions
    {
        std::function<void()> open = [] {};
        std::function<void()> close = [] {};
    };

    Recording(std::string const &name, Journal &journal, Actions const &actions)
        : RecordingAccess(name, journal), _actions(actions)
    {}
    ~Recording() override { _journal.add("end " + _name); }

    void performOpen() override
    {
        RecordingAccess::performOpen();
        _actions.open();
    }
    void performClose() override
    {
        RecordingAccess::performClose();
        _actions.close();
    }

private:
    Actions _actions;
};

class ManagerIsClosed : public testing::Test
{
protected:
    ~ManagerIsClosed() noexcept override {}

    Registered device(char const *name, Recording::Actions const &actions = {})
    {
        return Registered(name, [this, name, actions] {
            return RCShdPtr<DevMDPrtcl>(new Recording(name, journal, actions));
        });
    }
    void open(std::vector<char const *> const &names)
    {
        for (char const *name : names)
            manager->getPrtcl(name);
        journal.take();
    }

    Journal journal;
    ObjPtr<DevMgr> manager = DevMgr::create();
};

TEST_F(ManagerIsClosed, TheNewestDeviceFirstAndThenDestroysThem)
{
    Registered const a = device("a");
    Registered const b = device("b");
    Registered const c = device("c");
    open({"a", "b", "c"});
    DevMgrCloseReport const report = manager->close(LONG);
    EXPECT_EQ(journal.take(), (Lines{"close c", "close b", "close a", "end c", "end b", "end a"}));
    ASSERT_EQ(report.devices.size(), 3u);
    EXPECT_EQ(report.devices[0].name, "c");
    EXPECT_EQ(report.devices[2].name, "a");
    for (auto const &closed : report.devices) {
        EXPECT_EQ(closed.end, End::CLOSED);
        EXPECT_EQ(closed.failure, nullptr);
        EXPECT_GE(closed.seconds, 0);
    }
    EXPECT_FALSE(report.isThreadLeftBehind);
    EXPECT_TRUE(report.getLeftBehind().empty());
    manager = nullptr;
    EXPECT_EQ(journal.take(), Lines());
}

TEST_F(ManagerIsClosed, ADeviceThatIsHeldElsewhereIsDestroyedThere)
{
    Registered const a = device("a");
    auto held = manager->getPrtcl("a");
    journal.take();
    (void)manager->close(LONG);
    manager = nullptr;
    EXPECT_EQ(journal.take(), (Lines{"close a"}));
    held = nullptr;
    EXPECT_EQ(journal.take(), (Lines{"end a"}));
}

TEST_F(ManagerIsClosed, FailuresAreReportedWithTheirNames)
{
    Registered const a = device("a");
    Registered const b = device("b", {.close = [] { throw std::runtime_error("still warm"); }});
    Registered const c("c", [this] {
        return RCShdPtr<DevMDPrtcl>(new FailsToEnd<RecordingAccess>("c", journal));
    });
    Registered const d("d", [this] {
        return RCShdPtr<DevMDPrtcl>(new FailsToEnd<RecordingAccess>("d", journal));
    });
    open({"a", "b", "c"});
    DevMgrCloseReport const report = manager->close(LONG);
    ASSERT_EQ(report.devices.size(), 3u);
    EXPECT_EQ(report.devices[0].end, End::FAILED);
    EXPECT_EQ(messageOf(report.devices[0].failure), "the end of c");
    EXPECT_EQ(report.devices[1].end, End::FAILED);
    EXPECT_EQ(messageOf(report.devices[1].failure), "still warm");
    EXPECT_EQ(report.devices[2].end, End::CLOSED);
    EXPECT_TRUE(report.getLeftBehind().empty());
    EXPECT_EQ(journal.take(), (Lines{"close c", "close b", "close a", "end c", "end b", "end a"}));
    manager = nullptr;
}

TEST_F(ManagerIsClosed, AFailureAfterTheClosingThreadHasBegunIsTraced)
{
    Registered const a = device("a");
    bool isTraced = false;
    bool hasFailed = true;
    for (long nbGood = 0; hasFailed; ++nbGood) {
        manager = DevMgr::create();
        open({"a"});
        LgLog::flush(); // writes the lines that are still queued
        CapturedLog const log;
        DevMgrCloseReport report;
        {
            ZvTest::FailingAllocation const failing(nbGood);
            try {
                report = manager->close(LONG);
            } catch (std::bad_alloc const &) {
            }
            hasFailed = failing.hasFailed();
        }
        LgLog::flush();
        if (report.devices.empty() || report.devices[0].end != End::CLOSED)
            continue; // the failure was thrown, or is in the report
        for (std::string const &line : log.getLines())
            isTraced = isTraced || line.find("devMgrDevice.cpp") != std::string::npos;
    }
    EXPECT_TRUE(isTraced);
}

TEST_F(ManagerIsClosed, ADeviceThatHangsIsLeftBehind)
{
    Turnstile gate;
    Registered const a = device("a", {.close = [&gate] { gate.pass(); }});
    open({"a"});
    DevMgrCloseReport const report = manager->close(SHORT);
    ASSERT_EQ(report.devices.size(), 1u);
    EXPECT_EQ(report.devices[0].end, End::NOT_CLOSED);
    EXPECT_EQ(report.devices[0].failure, nullptr);
    EXPECT_EQ(report.getLeftBehind(), (Vector<LiString>{"a"}));
    manager = nullptr;
    // The device is not destroyed, even when its closing returns later.
    gate.open();
    gate.waitForLeaving();
    EXPECT_EQ(journal.take(), (Lines{"close a"}));
}

TEST_F(ManagerIsClosed, AStandardDeviceWithAHangingThreadIsLeftBehind)
{
    class Standard : public DevMDStdDevice
    {
    public:
        using DevMDStdDevice::DevMDStdDevice;
        using DevMDStdDevice::getFifo;
        explicit Standard(LiString const &name) : DevMDStdDevice(name) {}
    };
    RCShdPtr<Standard> standard;
    Registered const a("a", [&standard] {
        standard = makeShd<Standard>("a");
        return RCShdPtr<DevMDPrtcl>(static_cast<DevMDSyncSeqPrtcl *>(standard.get()));
    });
    open({"a"});
    Turnstile gate;
    produce(*standard->getFifo(), [&gate] { gate.pass(); });
    gate.waitForArrival();
    EXPECT_EQ(manager->close(SHORT).getLeftBehind(), (Vector<LiString>{"a"}));
    manager = nullptr;
    gate.open();
    gate.waitForLeaving();
}

TEST_F(ManagerIsClosed, ADeviceThatHangsInItsOpeningIsLeftBehind)
{
    Turnstile gate;
    Registered const b = device("b", {.open = [&gate] { gate.pass(); }});
    ObjPtr<DevMgrSyncSeqAcc> sequence = manager->createSyncSeqAcc();
    std::string failure;
    std::thread opener([&failure, &access = *sequence] {
        try {
            access.configure("( b )");
        } catch (DevMgrEx::ManagerClosed const &closed) {
            failure = closed.getReason();
        }
    });
    gate.waitForArrival();
    // The opening thread holds the configuration lock. Closing does not need it.
    DevMgrCloseReport const report = manager->close(SHORT);
    ASSERT_EQ(report.devices.size(), 1u);
    EXPECT_EQ(report.devices[0].name, "b");
    EXPECT_EQ(report.devices[0].end, End::NOT_OPENED);
    EXPECT_EQ(report.getLeftBehind(), (Vector<LiString>{"b"}));
    EXPECT_THROW(manager->getPrtcl("b"), DevMgrEx::ManagerClosed);
    manager = nullptr;
    sequence = nullptr;
    gate.open();
    opener.join();
    EXPECT_EQ(failure, "The device manager was closed.");
    EXPECT_EQ(journal.take(), (Lines{"open b"}));
}

TEST_F(ManagerIsClosed, ThreadsThatWaitBehindADeviceThatHangsAreRefusedAfterIt)
{
    Turnstile gate;
    Registered const a = device("a", {.open = [&gate] { gate.pass(); }});
    ObjPtr<DevMgrSyncSeqAcc> sequence = manager->createSyncSeqAcc();
    ObjPtr<DevMgrStreamAcc> streams = manager->createStreamAcc();
    ObjPtr<DevMgrPropertyAcc> properties = manager->createPropertyAcc();
    std::vector<std::function<void()>> const operations = {
        [&itself = *manager] { itself.getPrtcl("a"); },
        [&itself = *manager] { ObjPtr<DevMgrSeqSupervisor>(itself.createSeqSupervisor("( a )")); },
        [&itself = *sequence] { itself.configure("( a )"); },
        [&itself = *streams] { itself.connect("a:x push a:y"); },
        [&itself = *streams] { itself.isRegistered(DevMgrStreamAcc::StreamId("x")); },
        [&itself = *properties] { itself.getProperty("a:x"); },
    };
    std::atomic<std::size_t> nbRefused{0};
    std::vector<std::thread> threads;
    for (auto const &operation : operations) {
        std::atomic<long> number{0};
        threads.emplace_back([&nbRefused, &number, &operation] {
            number = threadNumber();
            try {
                operation();
            } catch (DevMgrEx::ManagerClosed const &) {
                ++nbRefused;
            }
        });
        while (!number)
            std::this_thread::yield();
        if (threads.size() == 1)
            gate.waitForArrival();
        waitUntilAsleep(number);
    }
    EXPECT_EQ(manager->close(SHORT).getLeftBehind(), (Vector<LiString>{"a"}));
    properties = nullptr;
    streams = nullptr;
    sequence = nullptr;
    manager = nullptr;
    gate.open();
    for (auto &thread : threads)
        thread.join();
    EXPECT_EQ(nbRefused, operations.size());
}

TEST_F(ManagerIsClosed, ADeviceThatOpensInTimeIsClosed)
{
    Turnstile gate;
    Registered const a = device("a");
    Registered const b = device("b", {.open = [&gate] { gate.pass(); }});
    open({"a"});
    bool hasFailed = false;
    std::thread opener([&] {
        try {
            manager->getPrtcl("b");
        } catch (DevMgrEx::ManagerClosed const &) {
            hasFailed = true;
        }
    });
    gate.waitForArrival();
    std::atomic<long> number{0};
    DevMgrCloseReport report;
    std::thread closer([&] {
        number = threadNumber();
        report = manager->close(LONG);
    });
    while (!number)
        std::this_thread::yield();
    waitUntilAsleep(number);
    gate.open();
    closer.join();
    opener.join();
    EXPECT_TRUE(hasFailed);
    ASSERT_EQ(report.devices.size(), 2u);
    EXPECT_EQ(report.devices[0].name, "b");
    EXPECT_EQ(report.devices[0].end, End::CLOSED);
    EXPECT_EQ(report.devices[1].end, End::CLOSED);
}

TEST_F(ManagerIsClosed, ADeviceThatFailsToOpenMeanwhileNeedsNoClosing)
{
    Turnstile gate;
    // Outlives all threads, because the thread sanitizer does not see how the last owner of an
    // exception is found.
    std::exception_ptr const noLens = std::make_exception_ptr(std::runtime_error("no lens"));
    Registered const a = device("a", {.open = [&] {
                                    gate.pass();
                                    std::rethrow_exception(noLens);
                                }});
    std::string failure;
    std::thread opener([&] {
        try {
            manager->getPrtcl("a");
        } catch (std::runtime_error const &caught) {
            failure = caught.what();
        }
    });
    gate.waitForArrival();
    std::atomic<long> number{0};
    std::thread closer([&] {
        number = threadNumber();
        EXPECT_TRUE(manager->close(LONG).devices.empty());
    });
    while (!number)
        std::this_thread::yield();
    waitUntilAsleep(number);
    gate.open();
    closer.join();
    opener.join();
    EXPECT_EQ(failure, "no lens");
    EXPECT_EQ(journal.take(), (Lines{"open a", "end a"}));
}

TEST_F(ManagerIsClosed, OperationsFailAfterwards)
{
    using Id = DevMgrStreamAcc::StreamId;
    Registered const a("a",
                       [this] { return RCShdPtr<DevMDPrtcl>(new PromptSequence("a", journal)); });
    ObjPtr<DevMgrSyncSeqAcc> sequence = manager->createSyncSeqAcc();
    ObjPtr<DevMgrStreamAcc> streams = manager->createStreamAcc();
    ObjPtr<DevMgrPropertyAcc> properties = manager->createPropertyAcc();
    sequence->configure("( a )");
    (void)manager->close(LONG);
    std::vector<std::function<void()>> const operations = {
        [&] { manager->getPrtcl("a"); },
        [&] { ObjPtr<DevMgrStreamAcc>(manager->createStreamAcc()); },
        [&] { ObjPtr<DevMgrPropertyAcc>(manager->createPropertyAcc()); },
        [&] { ObjPtr<DevMgrSyncSeqAcc>(manager->createSyncSeqAcc()); },
        [&] { streams->connect("a:x push a:y"); },
        [&] { streams->registerStream(Id("x"), RCShdPtr<DevMDStream>()); },
        [&] { streams->isRegistered(Id("x")); },
        [&] { properties->getProperty("a:x"); },
        [&] { sequence->configure("( b )"); },
        [&] { sequence->start(); },
        [&] { sequence->stop(); },
        [&] { (void)manager->close(LONG); },
    };
    for (auto const &operation : operations)
        EXPECT_THROW(operation(), DevMgrEx::ManagerClosed);
    EXPECT_THROW(sequence->wait(), DevMgrEx::SequenceAbandoned);
    EXPECT_EQ(sequence->getState("a"), "init");
    EXPECT_EQ(journal.take(), Lines());
}

TEST_F(ManagerIsClosed, ASequenceThatHasEndedIsNotWaitedFor)
{
    Registered const a("a",
                       [this] { return RCShdPtr<DevMDPrtcl>(new PromptSequence("a", journal)); });
    ObjPtr<DevMgrSyncSeqAcc> const sequence = manager->createSyncSeqAcc();
    sequence->configure("( a )");
    sequence->start();
    sequence->stop();
    sequence->wait();
    (void)manager->close(LONG);
    sequence->wait();
}

class Blocking : public DevMgrPropertyObserver
{
public:
    explicit Blocking(Turnstile &gate) : _gate(gate) {}
    void update(DevMgrPropertyObserverHint const &) override
    {
        if (!std::exchange(_hasPassed, true))
            _gate.pass();
    }

private:
    Turnstile &_gate;
    bool _hasPassed = false;
};

// The device waits for room in the manager's queue. The observer keeps the queue full.
TEST_F(ManagerIsClosed, AHangingObserverDoesNotPreventDevicesFromBeingClosed)
{
    Turnstile gate;
    Registered const fader("fader", [] {
        return RCShdPtr<DevMDPrtcl>(static_cast<DevMDSyncSeqPrtcl *>(new Fader("fader")));
    });
    ObjPtr<DevMgrPropertyAcc> properties = manager->createPropertyAcc();
    auto const observer = makeShd<Blocking>(gate);
    DevMgrPropertyObserverUtil::attachObserver(*properties, "fader:level", observer);
    for (int i = 0; i < 30; ++i) // more than fit into the manager's queue
        DevMgrPropertyValueUtil<int>::setValue(*properties, "fader:level", i);
    gate.waitForArrival();
    DevMgrCloseReport const report = manager->close(2);
    EXPECT_TRUE(report.isThreadLeftBehind);
    ASSERT_EQ(report.devices.size(), 1u);
    EXPECT_EQ(report.devices[0].end, End::CLOSED);
    EXPECT_TRUE(report.getLeftBehind().empty());
    properties = nullptr;
    manager = nullptr;
    gate.open();
    gate.waitForLeaving();
}

/// Device that hangs in one call, under the lock of its sequence.
class HangsInACall : public PromptSequence
{
public:
    enum Call
    {
        MARK, // called on "DevMgr ANO"
        STOP  // called by a client
    };

    HangsInACall(Journal &journal, Turnstile &gate, Call call)
        : PromptSequence("a", journal), _gate(gate), _call(call)
    {}
    DtTimeMark getMark() override
    {
        if (_call == MARK)
            _gate.pass();
        return PromptSequence::getMark();
    }
    void performStop(ObjPtr<DevACO> aco) override
    {
        if (_call == STOP)
            _gate.pass();
        else
            PromptSequence::performStop(aco);
    }

private:
    Turnstile &_gate;
    Call _call;
};

class SequenceHangs : public ManagerIsClosed
{
protected:
    ~SequenceHangs() noexcept override {}

    void start(HangsInACall::Call call)
    {
        registered = std::make_unique<Registered>("a", [this, call] {
            return RCShdPtr<DevMDPrtcl>(new HangsInACall(journal, gate, call));
        });
        sequence = manager->createSyncSeqAcc();
        sequence->configure("( a )");
        sequence->start();
    }
    void letGo()
    {
        sequence = nullptr;
        manager = nullptr;
        gate.open();
    }

    Turnstile gate;
    std::unique_ptr<Registered> registered;
    ObjPtr<DevMgrSyncSeqAcc> sequence;
};

TEST_F(SequenceHangs, OnTheManagersThreadAndKeepsNoObjectFromBeingDestroyed)
{
    start(HangsInACall::MARK);
    gate.waitForArrival();
    EXPECT_TRUE(manager->close(SHORT).isThreadLeftBehind);
    letGo();
    gate.waitForLeaving();
}

TEST_F(SequenceHangs, OnAClientsThreadAndKeepsNoObjectFromBeingDestroyed)
{
    start(HangsInACall::STOP);
    while (sequence->getState("a") != "lock")
        std::this_thread::yield();
    std::thread client([&access = *sequence] { access.stop(); });
    gate.waitForArrival();
    EXPECT_FALSE(manager->close(LONG).isThreadLeftBehind);
    letGo();
    client.join();
}

TEST_F(ManagerIsClosed, QueuedRequestsAreExecutedAndLaterOnesDropped)
{
    RCShdPtr<DevMgrMediator> const mediator(new DevMgrMediator);
    auto const report = [&](char const *what) {
        produce(*mediator->getFifo(), [this, what] { journal.add(what); });
    };
    for (int i = 0; i < 10; ++i)
        report("queued");
    (void)mediator->close(LONG);
    EXPECT_EQ(journal.take(), Lines(10, "queued"));
    for (int i = 0; i < 30; ++i)
        report("late");
    EXPECT_EQ(journal.take(), Lines());
}

TEST_F(ManagerIsClosed, ItsOwnThreadCannotCloseIt)
{
    RCShdPtr<DevMgrMediator> const mediator(new DevMgrMediator);
    LkUnnamedSema done("done", 0, LkSemaTypes::Shared());
    std::string failure;
    produce(*mediator->getFifo(), [&] {
        try {
            (void)mediator->close(LONG);
        } catch (AssertionFailed const &failed) {
            failure = failed.getExpression();
        }
        done.post();
    });
    done.wait();
    EXPECT_EQ(failure, "!_thread->isCurrentThread()");
    EXPECT_FALSE(mediator->isClosed());
}

} // namespace
} // namespace ZvTest
