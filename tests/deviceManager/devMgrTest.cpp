#include "fakeDevices.h"

#include "resmgt/deviceManager/devMgrMediator.h"
#include "resmgt/deviceProtocol/devANO.h"
#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkSema.h"
#include "resmgt/threads/mtPriorityMgr.h"
#include "testing/aborted.h"
#include "testing/allocations.h"
#include "testing/asleep.h"
#include "testing/failures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace ZvTest {

using namespace Zv;

namespace {

RCShdPtr<DevMDPrtcl> recordingDevice(std::string const &name, Journal &journal)
{
    journal.add("create " + name);
    return RCShdPtr<DevMDPrtcl>(new RecordingAccess(name, journal));
}

TEST(Manager, CreatesAndOpensADeviceOnceAndClosesItAtTheEnd)
{
    Journal journal;
    Registered const a("a", [&] { return recordingDevice("a", journal); });
    {
        ObjPtr<DevMgr> manager = DevMgr::create();
        auto const first = manager->getPrtcl("a");
        auto const second = manager->getPrtcl("a");
        EXPECT_TRUE(first == second);
        EXPECT_EQ(journal.take(), (Lines{"create a", "open a"}));
    }
    EXPECT_EQ(journal.take(), (Lines{"close a"}));
}

TEST(Manager, ManagersShareKindsButNotDevices)
{
    Journal journal;
    Registered const a("a", [&] { return recordingDevice("a", journal); });
    ObjPtr<DevMgr> one = DevMgr::create();
    ObjPtr<DevMgr> other = DevMgr::create();
    EXPECT_FALSE(one->getPrtcl("a") == other->getPrtcl("a"));
}

TEST(Manager, ClosesTheNewestDeviceFirst)
{
    Journal journal;
    Registered const a("a", [&] { return recordingDevice("a", journal); });
    Registered const b("b", [&] { return recordingDevice("b", journal); });
    Registered const c("c", [&] { return recordingDevice("c", journal); });
    {
        ObjPtr<DevMgr> manager = DevMgr::create();
        manager->getPrtcl("b");
        manager->getPrtcl("a");
        manager->getPrtcl("c");
        journal.take();
    }
    EXPECT_EQ(journal.take(), (Lines{"close c", "close a", "close b"}));
}

TEST(Manager, AccessObjectsKeepDevicesOpen)
{
    Journal journal;
    Registered const a("a", [&] { return recordingDevice("a", journal); });
    auto const expectKept = [&journal](auto const &createAccess) {
        ObjPtr<DevMgr> manager = DevMgr::create();
        auto access = createAccess(*manager);
        manager->getPrtcl("a");
        manager = nullptr;
        EXPECT_EQ(journal.take(), (Lines{"create a", "open a"}));
        access = nullptr;
        EXPECT_EQ(journal.take(), (Lines{"close a"}));
    };
    expectKept(
        [](DevMgr &manager) { return ObjPtr<DevMgrSyncSeqAcc>(manager.createSyncSeqAcc()); });
    expectKept([](DevMgr &manager) { return ObjPtr<DevMgrStreamAcc>(manager.createStreamAcc()); });
    expectKept(
        [](DevMgr &manager) { return ObjPtr<DevMgrPropertyAcc>(manager.createPropertyAcc()); });
}

TEST(Manager, UnknownDeviceIsRefused)
{
    ObjPtr<DevMgr> manager = DevMgr::create();
    EXPECT_THROW(manager->getPrtcl("nobody"), DevPrtclEx::ExNameNotRegistered);
}

TEST(Manager, DeviceWithoutAccessIsNeitherOpenedNorClosed)
{
    Journal journal;
    Registered const a("a", [&] { return RCShdPtr<DevMDPrtcl>(new PromptSequence("a", journal)); });
    {
        ObjPtr<DevMgr> manager = DevMgr::create();
        EXPECT_FALSE(manager->getPrtcl("a").isNull());
    }
    EXPECT_EQ(journal.take(), Lines{});
}

class FailsToOpen : public RecordingAccess
{
public:
    using RecordingAccess::RecordingAccess;

    void performOpen() override
    {
        RecordingAccess::performOpen();
        throw std::runtime_error("no lens");
    }
};

TEST(Manager, DeviceThatFailsToOpenStaysAndIsNeitherOpenedAgainNorClosed)
{
    Journal journal;
    Registered const a("a", [&] { return RCShdPtr<DevMDPrtcl>(new FailsToOpen("a", journal)); });
    {
        ObjPtr<DevMgr> manager = DevMgr::create();
        EXPECT_THROW(manager->getPrtcl("a"), std::runtime_error);
        EXPECT_FALSE(manager->getPrtcl("a").isNull());
    }
    EXPECT_EQ(journal.take(), (Lines{"open a"}));
}

class FailsToClose : public RecordingAccess
{
public:
    using RecordingAccess::RecordingAccess;

    void performClose() override
    {
        RecordingAccess::performClose();
        throw std::runtime_error("still warm");
    }
};

TEST(Manager, DeviceThatFailsToCloseDoesNotKeepTheOthersOpen)
{
    Journal journal;
    Registered const a("a", [&] { return recordingDevice("a", journal); });
    Registered const b("b", [&] { return RCShdPtr<DevMDPrtcl>(new FailsToClose("b", journal)); });
    ObjPtr<DevMgr> manager = DevMgr::create();
    manager->getPrtcl("a");
    manager->getPrtcl("b");
    journal.take();
    EXPECT_THROW(manager = nullptr, std::runtime_error);
    EXPECT_EQ(journal.take(), (Lines{"close b", "close a"}));
}

TEST(Manager, ThrowsWhatADevicesDestructorThrewAfterDestroyingAll)
{
    Journal journal;
    Registered const a(
        "a", [&] { return RCShdPtr<DevMDPrtcl>(new FailsToEnd<RecordingAccess>("a", journal)); });
    Registered const b(
        "b", [&] { return RCShdPtr<DevMDPrtcl>(new FailsToEnd<RecordingAccess>("b", journal)); });
    ObjPtr<DevMgr> manager = DevMgr::create();
    manager->getPrtcl("a");
    manager->getPrtcl("b");
    journal.take();
    std::string const failure = whatFails([&] { manager = nullptr; });
    Lines lines = journal.take();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(failure, "the end of " + lines[2].substr(4));
    EXPECT_EQ((Lines{lines[0], lines[1]}), (Lines{"close b", "close a"}));
    std::sort(lines.begin(), lines.end());
    EXPECT_EQ((Lines{lines[2], lines[3]}), (Lines{"end a", "end b"}));
}

TEST(Manager, AFailureToCloseIsThrownBeforeOneOfADestructor)
{
    Journal journal;
    Registered const a(
        "a", [&] { return RCShdPtr<DevMDPrtcl>(new FailsToEnd<FailsToClose>("a", journal)); });
    ObjPtr<DevMgr> manager = DevMgr::create();
    manager->getPrtcl("a");
    journal.take();
    EXPECT_EQ(whatFails([&] { manager = nullptr; }), "still warm");
    EXPECT_EQ(journal.take(), (Lines{"close a", "end a"}));
}

TEST(Manager, ADevicesDestructorDoesNotHideAnExceptionInFlight)
{
    Journal journal;
    Registered const a(
        "a", [&] { return RCShdPtr<DevMDPrtcl>(new FailsToEnd<RecordingAccess>("a", journal)); });
    EXPECT_EQ(whatFails([] {
                  ObjPtr<DevMgr> const manager = DevMgr::create();
                  manager->getPrtcl("a");
                  throw std::runtime_error("no thread for another device");
              }),
              "no thread for another device");
    EXPECT_EQ(journal.take(), (Lines{"open a", "close a", "end a"}));
}

class CountedDevice : public DevMDAccessPrtcl
{
public:
    CountedDevice(int &opened, int &closed) : _opened(opened), _closed(closed) {}

    void performOpen() override { ++_opened; }
    void performClose() override { ++_closed; }

private:
    int &_opened;
    int &_closed;
};

TEST(Manager, AnOpenedDeviceIsClosedIfAnyAllocationFails)
{
    int opened = 0;
    int closed = 0;
    Registered const a("a",
                       [&] { return RCShdPtr<DevMDPrtcl>(new CountedDevice(opened, closed)); });
    LiString const name("a");
    ObjPtr<DevMgr> manager = DevMgr::create();
    int const nbFailures = failEachAllocation([&] { manager->getPrtcl(name); },
                                              [&] {
                                                  manager = nullptr;
                                                  EXPECT_EQ(closed, opened);
                                                  manager = DevMgr::create();
                                              });
    EXPECT_GT(nbFailures, 2);
    manager = nullptr;
    EXPECT_EQ(closed, opened);
    EXPECT_GE(opened, 1);
}

TEST(Manager, NullDeviceFailsItsAssertion)
{
    Registered const a("a", [] { return RCShdPtr<DevMDPrtcl>(); });
    ObjPtr<DevMgr> manager = DevMgr::create();
    try {
        manager->getPrtcl("a");
        FAIL() << "a null device was accepted";
    } catch (AssertionFailed const &failure) {
        EXPECT_STREQ(failure.getExpression(), "!prtcl.isNull()");
        EXPECT_STREQ(failure.getFile(), "../src/resmgt/deviceManager/devMgrMediator.cpp");
    }
}

TEST(Manager, ConfigurationLockIsFreeAfterAFailure)
{
    Journal journal;
    Registered const closed(
        "closed", [&] { return RCShdPtr<DevMDPrtcl>(new FailsToOpen("closed", journal)); });
    Registered const plain("plain", [&] { return recordingDevice("plain", journal); });
    Registered const prompt(
        "prompt", [&] { return RCShdPtr<DevMDPrtcl>(new PromptSequence("prompt", journal)); });
    Registered const null("null", [] { return RCShdPtr<DevMDPrtcl>(); });
    ObjPtr<DevMgr> const manager = DevMgr::create();
    ObjPtr<DevMgrStreamAcc> const streams = manager->createStreamAcc();
    ObjPtr<DevMgrPropertyAcc> const properties = manager->createPropertyAcc();
    ObjPtr<DevMgrSyncSeqAcc> const sequence = manager->createSyncSeqAcc();
    std::vector<std::function<void()>> const failures = {
        [&] { manager->getPrtcl("nobody"); },
        [&] { manager->getPrtcl("closed"); },
        [&] { manager->getPrtcl("null"); },
        [&] { streams->connect("nonsense"); },
        [&] { streams->connect("nobody:x push nobody:y"); },
        [&] { streams->connect("plain:x push plain:y"); },
        [&] { properties->getProperty("plain:x"); },
        [&] { sequence->configure("nonsense"); },
        [&] { sequence->configure("( nobody )"); },
        [&] { sequence->configure("( plain )"); },
        [&] { sequence->configure("( prompt prompt )"); },
    };
    for (auto const &failure : failures) {
        EXPECT_ANY_THROW(failure());
        // On another thread, because this one may hold the lock.
        std::thread([&] { manager->getPrtcl("plain"); }).join();
    }
}

TEST(Mediator, UnknownDeviceIsNotFound)
{
    RCShdPtr<DevMgrMediator> const mediator(new DevMgrMediator);
    EXPECT_FALSE(mediator->isPrtclCreated("a"));
    try {
        mediator->getPrtcl("a");
        FAIL() << "an unknown device was found";
    } catch (DevMgrEx::NameNotFound const &failure) {
        EXPECT_STREQ(failure.getReason(), "Named device not found.");
    }
}

TEST(Mediator, ExecutesWhatIsProducedInOrderOnItsOwnThread)
{
    RCShdPtr<DevMgrMediator> const mediator(new DevMgrMediator);
    Journal journal;
    LkUnnamedSema done("done", 0, LkSemaTypes::Shared());
    std::thread::id executor;
    for (int i = 0; i < 100; ++i)
        produce(*mediator->getFifo(), [&journal, i] { journal.add(std::to_string(i)); });
    produce(*mediator->getFifo(), [&] {
        executor = std::this_thread::get_id();
        done.post();
    });
    done.wait();
    auto const lines = journal.take();
    ASSERT_EQ(lines.size(), 100u);
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(lines[i], std::to_string(i));
    EXPECT_NE(executor, std::this_thread::get_id());
}

class LoggedANO : public CallANO
{
public:
    LoggedANO(std::function<void()> function, Journal &journal)
        : CallANO(std::move(function)), _journal(journal)
    {}
    ~LoggedANO() override { _journal.add("gone"); }

private:
    Journal &_journal;
};

TEST(Mediator, ARequestIsNotifiedAndLivesOnUntilTheNextHasArrived)
{
    RCShdPtr<DevMgrMediator> const mediator(new DevMgrMediator);
    Journal journal;
    std::atomic<long> number{0};
    ObjPtr<DevANO> ano(new LoggedANO(
        [&] {
            journal.add("executed");
            number = threadNumber();
        },
        journal));
    ano->setACO(makeACO([&] { journal.add("notified"); }));
    produce(*mediator->getFifo(), ano);
    while (!number)
        std::this_thread::yield();
    waitUntilAsleep(number); // at the empty queue
    EXPECT_EQ(journal.take(), (Lines{"executed", "notified"}));

    LkUnnamedSema done("done", 0, LkSemaTypes::Shared());
    produce(*mediator->getFifo(), [&] {
        journal.add("next");
        done.post();
    });
    done.wait();
    EXPECT_EQ(journal.take(), (Lines{"gone", "next"}));
}

TEST(Mediator, RequestsAfterItsEndAreDestroyedUnexecuted)
{
    RCShdPtr<DevMgrMediator> mediator(new DevMgrMediator);
    RCShdPtr<DevMgrFifo> const fifo = mediator->getFifo();
    mediator = nullptr;
    Journal journal;
    for (int i = 0; i < 30; ++i) { // more than fit into the queue
        ObjPtr<DevANO> ano(new LoggedANO([] { ADD_FAILURE() << "executed"; }, journal));
        produce(*fifo, ano);
    }
    EXPECT_EQ(journal.take(), Lines(30, "gone"));
}

/// Device whose opening waits until a test releases it.
class SlowDevice : public DevMDAccessPrtcl
{
public:
    SlowDevice(LkUnnamedSema &arrived, LkUnnamedSema &released)
        : _arrived(arrived), _released(released)
    {}

    void performOpen() override
    {
        _arrived.post();
        _released.wait();
    }
    void performClose() override {}

private:
    LkUnnamedSema &_arrived;
    LkUnnamedSema &_released;
};

TEST(Manager, ConfigurationWaitsForConfiguration)
{
    using Id = DevMgrStreamAcc::StreamId;
    LkUnnamedSema arrived("arrived", 0, LkSemaTypes::Shared());
    LkUnnamedSema released("released", 0, LkSemaTypes::Shared());
    Registered const slow("slow",
                          [&] { return RCShdPtr<DevMDPrtcl>(new SlowDevice(arrived, released)); });
    Registered const other("other", [] { return RCShdPtr<DevMDPrtcl>(); });
    ObjPtr<DevMgr> const manager = DevMgr::create();
    ObjPtr<DevMgrStreamAcc> const streams = manager->createStreamAcc();
    ObjPtr<DevMgrPropertyAcc> const properties = manager->createPropertyAcc();
    ObjPtr<DevMgrSyncSeqAcc> const sequence = manager->createSyncSeqAcc();
    std::vector<std::function<void()>> const operations = {
        [&] { manager->getPrtcl("other"); },
        [&] { ObjPtr<DevMgrStreamAcc>(manager->createStreamAcc()); },
        [&] { ObjPtr<DevMgrPropertyAcc>(manager->createPropertyAcc()); },
        [&] { ObjPtr<DevMgrSyncSeqAcc>(manager->createSyncSeqAcc()); },
        [&] { streams->connect("nonsense"); },
        [&] { streams->registerStream(Id("x"), RCShdPtr<DevMDStream>()); },
        [&] { streams->isRegistered(Id("x")); },
        [&] { properties->getProperty("other:x"); },
        [&] { sequence->configure("nonsense"); },
    };
    std::thread opener([&] { manager->getPrtcl("slow"); });
    arrived.wait();
    std::atomic<int> nbDone{0};
    std::vector<std::thread> threads;
    for (auto const &operation : operations) {
        std::atomic<long> number{0};
        threads.emplace_back([&nbDone, &number, &operation] {
            number = threadNumber();
            try {
                operation();
            } catch (std::exception const &) { // the result does not matter
            }
            ++nbDone;
        });
        while (!number)
            std::this_thread::yield();
        long const thread = number;
        while (!nbDone && !isAsleep(thread))
            std::this_thread::yield();
    }
    EXPECT_EQ(nbDone, 0);
    released.post();
    opener.join();
    for (auto &thread : threads)
        thread.join();
}

/// Operations during the opening of a device.
class WhileADeviceOpens : public testing::Test
{
protected:
    WhileADeviceOpens()
    {
        _opener = std::thread([this] {
            LkGuard<LkLock const> const guard(mediator->getLock());
            mediator->createPrtcl("slow");
        });
        _arrived.wait();
    }
    ~WhileADeviceOpens() noexcept override
    {
        _released.post();
        _opener.join();
    }

    Journal journal;
    RCShdPtr<DevMgrMediator> const mediator = makeShd<DevMgrMediator>();

private:
    LkUnnamedSema _arrived{"arrived", 0, LkSemaTypes::Shared()};
    LkUnnamedSema _released{"released", 0, LkSemaTypes::Shared()};
    Registered const _slow{
        "slow", [this] { return RCShdPtr<DevMDPrtcl>(new SlowDevice(_arrived, _released)); }};
    std::thread _opener;
};

TEST_F(WhileADeviceOpens, DevicesAreFound)
{
    EXPECT_TRUE(mediator->isPrtclCreated("slow"));
    EXPECT_FALSE(mediator->getPrtcl("slow").isNull());
    EXPECT_FALSE(mediator->isPrtclCreated("other"));
    EXPECT_THROW(mediator->getPrtcl("other"), DevMgrEx::NameNotFound);
}

TEST_F(WhileADeviceOpens, ReportsAreDelivered)
{
    LkUnnamedSema done("done", 0, LkSemaTypes::Shared());
    produce(*mediator->getFifo(), [&] { done.post(); });
    done.wait();
}

TEST_F(WhileADeviceOpens, NoOpeningHasFailed)
{
    EXPECT_EQ(mediator->getOpenFailure("slow"), nullptr);
    EXPECT_THROW(mediator->getOpenFailure("other"), DevMgrEx::NameNotFound);
}

/// Device with a property.
class Camera : public DevMDStdDevice
{
public:
    explicit Camera(LiString const &name) : DevMDStdDevice(name)
    {
        ObjPtr<DevMDStdPropertySetBuilder>(getPropertySetBuilder())
            ->addProperty(makeProperty<int>("focus", "", getFifo(), [](int &value) { value = 7; }));
    }
};

TEST(Manager, ADeviceThatIsOpenIsHadWhileAnotherOneOpens)
{
    LkUnnamedSema arrived("arrived", 0, LkSemaTypes::Shared());
    LkUnnamedSema released("released", 0, LkSemaTypes::Shared());
    Registered const slow("slow",
                          [&] { return RCShdPtr<DevMDPrtcl>(new SlowDevice(arrived, released)); });
    Registered const camera("camera",
                            [] { return RCShdPtr<DevMDPrtcl>(makeShd<Camera>("camera").get()); });
    Journal journal;
    Registered const plain(
        "plain", [&] { return RCShdPtr<DevMDPrtcl>(new PromptSequence("plain", journal)); });
    ObjPtr<DevMgr> const manager = DevMgr::create();
    ObjPtr<DevMgrPropertyAcc> const properties = manager->createPropertyAcc();
    auto const device = manager->getPrtcl("camera");
    auto const other = manager->getPrtcl("plain"); // a device without access protocol
    std::thread opener([&] { manager->getPrtcl("slow"); });
    arrived.wait();
    EXPECT_TRUE(manager->getPrtcl("camera") == device);
    EXPECT_TRUE(manager->getPrtcl("plain") == other);
    EXPECT_EQ(properties->getProperty("camera:focus")->getName(), "focus");
    int focus = 0;
    DevMgrPropertyValueUtil<int>::getValue(*properties, "camera:focus", focus);
    EXPECT_EQ(focus, 7);
    released.post();
    opener.join();
}

/// Camera that fails to open if it is the first one that opens.
class UnpluggedCamera : public Camera
{
public:
    UnpluggedCamera(LiString const &name, int &nbTries) : Camera(name), _nbTries(nbTries) {}

    void performOpen() override
    {
        if (++_nbTries == 1)
            throw std::runtime_error("cable not plugged in");
        Camera::performOpen();
    }

private:
    int &_nbTries;
};

// This is by design. Another attempt needs a new manager.
TEST(Manager, IfADeviceFailsToOpenItStaysUnopenedAndItsFailureIsKept)
{
    int nbTries = 0;
    Registered const camera("camera", [&] {
        return RCShdPtr<DevMDPrtcl>(makeShd<UnpluggedCamera>("camera", nbTries).get());
    });
    auto const configure = [](DevMgrMediator &mediator) {
        ObjPtr<DevMgrSyncSeqAcc> sequence =
            DevMgrSyncSeqAcc::create(RCShdPtr<DevMgrMediator>(&mediator));
        sequence->configure("( camera )");
        return ObjPtrRet<DevMgrSyncSeqAcc>(sequence);
    };
    RCShdPtr<DevMgrMediator> mediator(new DevMgrMediator);
    EXPECT_EQ(whatFails([&] { (void)configure(*mediator); }), "cable not plugged in");
    EXPECT_EQ(messageOf(mediator->getOpenFailure("camera")), "cable not plugged in");

    ObjPtr<DevMgrSyncSeqAcc> sequence = configure(*mediator);
    EXPECT_EQ(nbTries, 1);
    sequence->start();
    EXPECT_EQ(sequence->getState("camera"), "start");
    EXPECT_EQ(messageOf(mediator->getOpenFailure("camera")), "cable not plugged in");
    sequence = nullptr;

    mediator = makeShd<DevMgrMediator>();
    sequence = configure(*mediator);
    EXPECT_EQ(nbTries, 2);
    EXPECT_EQ(mediator->getOpenFailure("camera"), nullptr);
}

// The camera fails before its thread could be started.
TEST(Manager, AReadingOfADeviceThatFailedToOpenFailsAtOnce)
{
    int nbTries = 0;
    Registered const camera("camera", [&] {
        return RCShdPtr<DevMDPrtcl>(makeShd<UnpluggedCamera>("camera", nbTries).get());
    });
    ObjPtr<DevMgr> const manager = DevMgr::create();
    ObjPtr<DevMgrPropertyAcc> const properties = manager->createPropertyAcc();
    int focus = 0;
    auto const read = [&] {
        DevMgrPropertyValueUtil<int>::getValue(*properties, "camera:focus", focus);
    };
    EXPECT_EQ(whatFails(read), "cable not plugged in");
    EXPECT_THROW(read(), DevPrtclEx::ExMDStdPropertyGet);
}

TEST(Manager, ADeviceWithoutAccessHasNoOpeningThatFailed)
{
    Journal journal;
    Registered const a("a", [&] { return RCShdPtr<DevMDPrtcl>(new PromptSequence("a", journal)); });
    RCShdPtr<DevMgrMediator> const mediator(new DevMgrMediator);
    mediator->obtainPrtcl("a");
    EXPECT_EQ(mediator->getOpenFailure("a"), nullptr);
}

TEST(Manager, ANullDeviceFailsItsAssertionAtEachMention)
{
    int nbCalls = 0;
    Registered const a("a", [&] {
        ++nbCalls;
        return RCShdPtr<DevMDPrtcl>();
    });
    ObjPtr<DevMgr> const manager = DevMgr::create();
    ObjPtr<DevMgrSyncSeqAcc> const sequence = manager->createSyncSeqAcc();
    ObjPtr<DevMgrStreamAcc> const streams = manager->createStreamAcc();
    ObjPtr<DevMgrPropertyAcc> const properties = manager->createPropertyAcc();
    EXPECT_THROW(manager->getPrtcl("a"), AssertionFailed);
    EXPECT_THROW(manager->getPrtcl("a"), AssertionFailed);
    EXPECT_THROW(sequence->configure("( a )"), AssertionFailed);
    EXPECT_THROW(streams->connect("a:x push a:y"), AssertionFailed);
    EXPECT_THROW(properties->getProperty("a:x"), AssertionFailed);
    EXPECT_EQ(nbCalls, 1);
}

/// Device that opens another device during its opening.
class Composite : public RecordingAccess
{
public:
    Composite(std::string name, Journal &journal, ObjPtr<DevMgr> &manager)
        : RecordingAccess(std::move(name), journal), _manager(manager)
    {}
    void performOpen() override
    {
        _manager->getPrtcl("part");
        RecordingAccess::performOpen();
    }

private:
    ObjPtr<DevMgr> &_manager;
};

TEST(Manager, ADeviceThatOpensAnotherOneIsClosedBeforeIt)
{
    Journal journal;
    ObjPtr<DevMgr> manager = DevMgr::create();
    Registered const part("part", [&] { return recordingDevice("part", journal); });
    Registered const whole(
        "whole", [&] { return RCShdPtr<DevMDPrtcl>(new Composite("whole", journal, manager)); });
    manager->getPrtcl("whole");
    EXPECT_EQ(journal.take(), (Lines{"create part", "open part", "open whole"}));
    manager = nullptr;
    EXPECT_EQ(journal.take(), (Lines{"close whole", "close part"}));
}

TEST(Manager, SequencesRunWhileADeviceOpens)
{
    LkUnnamedSema arrived("arrived", 0, LkSemaTypes::Shared());
    LkUnnamedSema released("released", 0, LkSemaTypes::Shared());
    Registered const slow("slow",
                          [&] { return RCShdPtr<DevMDPrtcl>(new SlowDevice(arrived, released)); });
    Journal journal;
    Registered const a("a", [&] { return RCShdPtr<DevMDPrtcl>(new PromptSequence("a", journal)); });
    ObjPtr<DevMgr> const manager = DevMgr::create();
    ObjPtr<DevMgrSyncSeqAcc> const sequence = manager->createSyncSeqAcc();
    sequence->configure("( a )");
    std::thread opener([&] { manager->getPrtcl("slow"); });
    arrived.wait();
    sequence->start();
    while (sequence->getState("a") != "lock")
        std::this_thread::yield();
    sequence->stop();
    sequence->wait();
    EXPECT_EQ(journal.take(), (Lines{"start a", "sync to time a", "stop a"}));
    released.post();
    opener.join();
}

/// Runs an operation that calls `pass`, and checks that another operation waits for the
/// configuration lock meanwhile.
class Midway
{
public:
    void pass()
    {
        _arrived.post();
        _released.wait();
    }
    void expectLocked(DevMgr &manager, std::function<void()> const &operation)
    {
        std::thread configuring(operation);
        _arrived.wait();
        std::atomic<bool> isDone{false};
        std::atomic<long> number{0};
        std::thread other([&] {
            number = threadNumber();
            ObjPtr<DevMgrStreamAcc>(manager.createStreamAcc());
            isDone = true;
        });
        while (!number || (!isDone && !isAsleep(number)))
            std::this_thread::yield();
        EXPECT_FALSE(isDone);
        _released.post();
        configuring.join();
        other.join();
    }

private:
    LkUnnamedSema _arrived{"arrived", 0, LkSemaTypes::Shared()};
    LkUnnamedSema _released{"released", 0, LkSemaTypes::Shared()};
};

TEST(Manager, ASequenceIsConfiguredUnderTheConfigurationLockThroughout)
{
    Journal journal;
    Midway midway;
    auto const make = [&](char const *name) {
        return RCShdPtr<DevMDPrtcl>(new PromptSequence(name, journal));
    };
    Registered const a("a", [&] { return make("a"); });
    Registered const b("b", [&] {
        midway.pass();
        return make("b");
    });
    ObjPtr<DevMgr> const manager = DevMgr::create();
    ObjPtr<DevMgrSyncSeqAcc> const sequence = manager->createSyncSeqAcc();
    midway.expectLocked(*manager, [&] { sequence->configure("( a ( b ) )"); });
}

TEST(Mediator, ItsThreadRunsAtTheRealTimeLandmark)
{
    RCShdPtr<DevMgrMediator> const mediator(new DevMgrMediator);
    std::ostringstream dump;
    MtPriorityMgr::getInstance().dump(dump);
    std::regex const numbers(" \\( +[0-9]+ \\)");
    EXPECT_NE(std::regex_replace(dump.str(), numbers, "")
                  .find("\"DevMgr ANO\" : RealTime == DevMgr ANO valid\n"),
              std::string::npos)
        << dump.str();
}

/// Holds the manager's thread in a request.
class Stopper
{
public:
    explicit Stopper(DevMgrFifo &fifo)
        : _arrived("arrived", 0, LkSemaTypes::Shared()),
          _released("released", 0, LkSemaTypes::Shared())
    {
        produce(fifo, [this] {
            _arrived.post();
            _released.wait();
        });
        _arrived.wait();
    }
    void release() { _released.post(); }

private:
    LkUnnamedSema _arrived;
    LkUnnamedSema _released;
};

TEST(Mediator, TwentySixthRequestWaitsUntilOneHasBeenTaken)
{
    RCShdPtr<DevMgrMediator> const mediator(new DevMgrMediator);
    Stopper stopper(*mediator->getFifo());
    for (int i = 0; i < 25; ++i)
        produce(*mediator->getFifo(), [] {});

    LkUnnamedSema first("first", 0, LkSemaTypes::Shared());
    bool executedBefore = false;
    std::atomic<bool> released{false};
    std::atomic<long> number{0};
    std::thread producer([&] {
        number = threadNumber();
        produce(*mediator->getFifo(), [] {});
        executedBefore = released; // the queue has room only after the thread went on
        first.post();
    });
    while (!number)
        std::this_thread::yield();
    bool hasPassed = false;
    while (!hasPassed && !isAsleep(number))
        hasPassed = first.tryWait();
    EXPECT_FALSE(hasPassed);
    if (hasPassed)
        first.post();
    released = true;
    stopper.release();
    first.wait();
    producer.join();
    EXPECT_TRUE(executedBefore);
}

TEST(MediatorDeathTest, ARequestThatThrowsEndsTheProcess)
{
    EXPECT_EXIT(
        {
            RCShdPtr<DevMgrMediator> const mediator(new DevMgrMediator);
            produce(*mediator->getFifo(), [] { throw std::runtime_error("report lost"); });
            LkUnnamedSema("never", 0, LkSemaTypes::Shared()).wait();
        },
        aborted(), "report lost");
    EXPECT_EXIT(
        {
            RCShdPtr<DevMgrMediator> const mediator(new DevMgrMediator);
            produce(*mediator->getFifo(), [] { throw DevMgrEx::NameNotFound("report", 1); });
            LkUnnamedSema("never", 0, LkSemaTypes::Shared()).wait();
        },
        aborted(), "");
}

TEST(Mediator, DestructionExecutesWhatWasQueuedBeforeIt)
{
    Journal journal;
    RCShdPtr<DevMgrMediator> mediator(new DevMgrMediator);
    Stopper stopper(*mediator->getFifo());
    for (int i = 0; i < 24; ++i)
        produce(*mediator->getFifo(), [&journal] { journal.add("executed"); });
    produce(*mediator->getFifo(), [&journal] { journal.add("last"); });
    std::atomic<long> number{0};
    std::thread destroyer([&] {
        number = threadNumber();
        mediator = RCShdPtr<DevMgrMediator>();
    });
    while (!number)
        std::this_thread::yield();
    waitUntilAsleep(number); // at the full queue
    EXPECT_EQ(journal.take(), Lines{});
    stopper.release();
    destroyer.join();
    auto const lines = journal.take();
    ASSERT_EQ(lines.size(), 25u);
    EXPECT_EQ(lines.back(), "last");
}

} // namespace
} // namespace ZvTest
