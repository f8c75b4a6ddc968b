// Supervised sequences: each operation, each illegal call, and single devices that misbehave.
#include "hostileDevices.h"

#include <future>
#include <sstream>

namespace ZvTest {

namespace {

constexpr char const *TREE = "( root ( a ( c ) b ) )";

TEST(Supervisor, RunsATreeInItsOrder)
{
    Stage stage(TREE);
    stage.run();
    DevSeqStatus const status = stage.supervisor->stop(LONG);
    EXPECT_EQ(endsOf(status), "stopped stopped stopped stopped");
    EXPECT_EQ(status.phase, Phase::ENDED);
    stage.supervisor = nullptr;
    stage.manager = nullptr;
    EXPECT_EQ(stage.world->getJournal(),
              (Lines{"open root",    "open a",          "open c",    "open b",       "start root",
                     "start a",      "start c",         "start b",   "getLatency c", "getLatency a",
                     "getLatency b", "getLatency root", "sync root", "getMark root", "sync a",
                     "sync b",       "getMark a",       "sync c",    "getMark b",    "getMark c",
                     "stop c",       "stop b",          "stop a",    "stop root",    "close b",
                     "close c",      "close a",         "close root"}));
}

TEST(Supervisor, GivesTheStatusOfEachDevice)
{
    Stage stage(TREE);
    stage["a"].latency = DtTime(3, Rational(1, 1));
    stage.create();
    EXPECT_EQ(stage.supervisor->getStatus().phase, Phase::IDLE);
    EXPECT_EQ(stage.getStatus("a").state, "init");
    stage["c"].manners["sync"] = Manner::SILENT;
    stage.supervisor->start();
    stage.world->waitFor("sync c");
    stage.world->waitFor("getMark b");
    DevSeqDeviceStatus const c = stage.getStatus("c");
    EXPECT_EQ(c.step, "sync");
    EXPECT_EQ(c.end, End::NONE);
    EXPECT_EQ(c.stepTimes.size(), 1u);
    EXPECT_EQ(c.stepTimes[0].step, "start");
    EXPECT_EQ(stage.getStatus("a").latency, DtTime(3, Rational(1, 1)));
    EXPECT_EQ(stage.supervisor->getStatus().phase, Phase::RUNNING);
    EXPECT_FALSE(stage.supervisor->waitLocked(0));
    stage["c"].answer("sync");
    EXPECT_TRUE(stage.supervisor->waitLocked(LONG));
    EXPECT_EQ(stage.getStatus("c").state, "lock");
    EXPECT_EQ(stage.getStatus("c").step, "");
    EXPECT_EQ(endsOf(stage.supervisor->stop(LONG)), "stopped stopped stopped stopped");
    EXPECT_EQ(stage.getStatus("c").state, "final");
    EXPECT_EQ(stage.getStatus("c").stepTimes.size(), 3u);
}

TEST(Supervisor, RefusesCallsThatMakeNoSense)
{
    Stage stage("( root )");
    stage.create();
    DevMgrSeqSupervisor &supervisor = *stage.supervisor;
    using Illegal = DevMgrEx::SeqIllegalCall;
    EXPECT_EQ(reasonOf<Illegal>([&] { supervisor.waitLocked(1); }),
              "\"waitLocked\" makes no sense now: the sequence has not been started.");
    EXPECT_EQ(reasonOf<Illegal>([&] { supervisor.stop(1); }),
              "\"stop\" makes no sense now: the sequence has not been started.");
    EXPECT_EQ(reasonOf<Illegal>([&] { supervisor.abort(1); }),
              "\"abort\" makes no sense now: the sequence has not been started.");
    EXPECT_FALSE(supervisor.wait(0));
    supervisor.start();
    EXPECT_EQ(reasonOf<Illegal>([&] { supervisor.start(); }),
              "\"start\" makes no sense now: the sequence has been started.");
    EXPECT_TRUE(supervisor.waitLocked(LONG));
    supervisor.stop(LONG);
    EXPECT_EQ(reasonOf<Illegal>([&] { supervisor.start(); }),
              "\"start\" makes no sense now: the sequence has ended.");
    EXPECT_EQ(reasonOf<Illegal>([&] { supervisor.waitLocked(1); }),
              "\"waitLocked\" makes no sense now: the sequence has ended.");
    EXPECT_TRUE(supervisor.wait(0));
}

TEST(Supervisor, RefusesCallsWhileItIsBeingStopped)
{
    Stage stage("( root )");
    stage["root"].manners["stop"] = Manner::SILENT;
    stage["root"].manners["abort"] = Manner::SILENT;
    stage.run();
    auto const stopped = std::async(std::launch::async, [&] { stage.supervisor->stop(LONG); });
    stage.world->waitFor("stop root");
    using Illegal = DevMgrEx::SeqIllegalCall;
    EXPECT_EQ(reasonOf<Illegal>([&] { stage.supervisor->start(); }),
              "\"start\" makes no sense now: the sequence is being stopped.");
    EXPECT_EQ(reasonOf<Illegal>([&] { stage.supervisor->waitLocked(0); }),
              "\"waitLocked\" makes no sense now: the sequence is being stopped.");
    auto const aborted = std::async(std::launch::async, [&] { stage.supervisor->abort(LONG); });
    stage.world->waitFor("abort root");
    EXPECT_EQ(reasonOf<Illegal>([&] { stage.supervisor->start(); }),
              "\"start\" makes no sense now: the sequence is being aborted.");
    stage["root"].answer("abort");
}

TEST(Supervisor, SecondStopReturnsTheSameReport)
{
    Stage stage(TREE);
    stage.run();
    DevSeqStatus const first = stage.supervisor->stop(LONG);
    DevSeqStatus const second = stage.supervisor->abort(LONG);
    DevSeqStatus const third = stage.supervisor->stop(0, 0);
    EXPECT_EQ(endsOf(first), endsOf(second));
    EXPECT_EQ(first.moment, second.moment);
    EXPECT_EQ(first.moment, third.moment);
}

// The device gets the steps of both trees. A failure in one of them does not concern the other one.
template <class Device>
void runInTwoTrees()
{
    StageOf<Device> stage("( root ( a ) )");
    stage.run();
    ObjPtr<DevMgrSeqSupervisor> const second = stage.manager->createSeqSupervisor("( a )");
    second->start();
    EXPECT_TRUE(second->waitLocked(LONG));
    EXPECT_EQ(stage.world->count("start a"), 2);
    EXPECT_EQ(stage.world->count("open a"), 1);
    EXPECT_EQ(endsOf(second->stop(LONG)), "stopped");
    EXPECT_EQ(stage.getStatus("a").state, "lock");

    ObjPtr<DevMgrSeqSupervisor> const third = stage.manager->createSeqSupervisor("( a )");
    third->start();
    EXPECT_TRUE(third->waitLocked(LONG));
    stage["a"].manners["stop"] = Manner::THROWS;
    EXPECT_EQ(endsOf(third->stop(LONG)), "failed (No signal.)");
    EXPECT_EQ(stage.getStatus("a").state, "lock");
    EXPECT_TRUE(stage.supervisor->waitLocked(LONG));
    stage["a"].manners.clear();

    ObjPtr<DevMgrSyncSeqAcc> const plain = stage.manager->createSyncSeqAcc();
    plain->configure("( a )");
    plain->start();
    while (plain->getState("a") != "lock")
        std::this_thread::yield();
    EXPECT_EQ(endsOf(stage.supervisor->stop(LONG)), "stopped stopped");
    EXPECT_EQ(plain->getState("a"), "lock");
    plain->stop();
    plain->wait();
    EXPECT_EQ(stage.world->count("start a"), 4);
    EXPECT_EQ(stage.world->count("stop a"), 4);
    EXPECT_EQ(stage.world->count("abort a"), 1);
}

TEST(Supervisor, DeviceOfTwoTreesGetsTheStepsOfBoth)
{
    runInTwoTrees<Hostile>();
    runInTwoTrees<HostileStandard>();
}

TEST(Supervisor, ManyThreadsStopAndAbort)
{
    for (int i = 0; i < 20; ++i) {
        Stage stage(TREE);
        stage["b"].manners["start"] = Manner::LATER;
        stage["c"].manners["stop"] = Manner::LATER;
        stage.create();
        stage.supervisor->start();
        std::vector<std::future<DevSeqStatus>> ends;
        for (int thread = 0; thread < 4; ++thread)
            ends.push_back(std::async(std::launch::async, [&stage, thread] {
                return thread == 3 ? stage.supervisor->abort(LONG) : stage.supervisor->stop(LONG);
            }));
        EXPECT_TRUE(stage.supervisor->wait(LONG));
        std::string const expected = endsOf(stage.supervisor->getStatus());
        for (auto &end : ends)
            EXPECT_EQ(endsOf(end.get()), expected);
        EXPECT_EQ(expected.find("silent"), std::string::npos);
    }
}

TEST(Supervisor, StopDuringTheStartWaitsForTheLock)
{
    Stage stage(TREE);
    stage["b"].manners["start"] = Manner::SILENT;
    stage.startUntil("start b");
    auto stopped = stage.stopLater();
    stage["b"].answer("start");
    EXPECT_EQ(endsOf(stopped.get()), "stopped stopped stopped stopped");
}

TEST(Supervisor, StopDuringARecoveryWaitsForIt)
{
    Stage stage(TREE);
    stage.run();
    stage["a"].manners["recover"] = Manner::SILENT;
    stage["a"].reportRecover();
    stage.world->waitFor("recover a");
    auto stopped = stage.stopLater();
    stage["a"].answer("recover");
    EXPECT_EQ(endsOf(stopped.get()), "stopped stopped stopped stopped");
    EXPECT_EQ(stage.world->count("recover c"), 1);
}

TEST(Supervisor, SiblingOfADeviceThatRecoversStopsAfterTheRecovery)
{
    Stage stage("( root ( a b ) )");
    stage["a"].manners["recover"] = Manner::SILENT;
    stage["b"].manners["stop"] = Manner::SILENT;
    stage.run();
    stage["a"].reportRecover();
    stage.world->waitFor("recover a");
    auto stopped = stage.stopLater();
    EXPECT_EQ(stage.world->count("stop b"), 0);
    stage["a"].answer("recover");
    stage["b"].answer("stop");
    DevSeqStatus const status = stopped.get();
    EXPECT_EQ(endsOf(status), "stopped stopped stopped");
    for (DevSeqDeviceStatus const &device : status.devices)
        EXPECT_EQ(device.nbRefused, 0u) << device.name;
}

TEST(Supervisor, RecoveryOfAnUnlockedSubtreeIsDeferred)
{
    Stage stage("( root ( a ) )");
    stage["a"].manners["sync"] = Manner::SILENT;
    stage.startUntil("sync a");
    stage["root"].reportRecover();
    stage["a"].answer("sync");
    stage.world->waitFor("recover a");
    stage["a"].answer("sync", 2);
    EXPECT_TRUE(stage.supervisor->waitLocked(LONG));
    EXPECT_EQ(stage.getStatus("root").nbRefused, 0u);
    EXPECT_EQ(stage.world->count("recover root"), 1);
}

TEST(Supervisor, SiblingsRecoverAtTheSameTime)
{
    Stage stage("( root ( a b ) )");
    stage.run();
    for (char const *name : {"a", "b"}) {
        stage[name].manners["recover"] = Manner::SILENT;
        stage[name].reportRecover();
    }
    stage.world->waitFor("recover a");
    stage.world->waitFor("recover b");
    stage["a"].answer("recover");
    while (stage.getStatus("a").state != "lock")
        std::this_thread::yield();
    stage["b"].answer("recover");
    EXPECT_TRUE(stage.supervisor->waitLocked(LONG));
    EXPECT_EQ(endsOf(stage.supervisor->stop(LONG)), "stopped stopped stopped");
}

TEST(Supervisor, SecondRecoveryIsRefused)
{
    Stage stage("( root ( a ) )");
    stage.run();
    stage["a"].manners["recover"] = Manner::RECOVERS;
    stage["a"].reportRecover();
    while (stage.getStatus("a").nbRefused == 0)
        std::this_thread::yield();
    EXPECT_TRUE(stage.supervisor->waitLocked(LONG));
    EXPECT_EQ(stage.world->count("recover a"), 1);
    EXPECT_EQ(endsOf(stage.supervisor->stop(LONG)), "stopped stopped");
}

TEST(Supervisor, LockThatIsLostTwiceAtOnceIsRecoveredOnce)
{
    StageOf<HostileStandard> stage("( root ( a ) )");
    stage.run();
    stage["a"].reportRecover(2);
    while (stage.getStatus("a").nbRefused == 0)
        std::this_thread::yield();
    EXPECT_TRUE(stage.supervisor->waitLocked(LONG));
    EXPECT_EQ(endsOf(stage.supervisor->stop(LONG)), "stopped stopped");
    EXPECT_EQ(stage.world->count("recover a"), 1);
}

TEST(Supervisor, DeviceThatRecoversWhileItStopsIsAborted)
{
    Stage stage("( root ( a b ) )");
    stage["a"].manners["stop"] = Manner::RECOVERS;
    stage.run();
    DevSeqStatus const status = stage.supervisor->stop(LONG);
    EXPECT_EQ(endsOf(status), "stopped aborted stopped");
    EXPECT_EQ(Stage::find(status, "a").nbRefused, 1u);
    EXPECT_EQ(stage.world->count("abort a"), 1);
}

TEST(Supervisor, ADeviceThatAbortsByItselfLetsTheOthersStop)
{
    for (char const *name : {"root", "a", "b", "c"}) {
        Stage stage(TREE);
        stage.run();
        stage[name].reportAbort();
        stage.world->waitFor(std::string("abort ") + name);
        DevSeqStatus const status = stage.supervisor->stop(LONG);
        for (DevSeqDeviceStatus const &device : status.devices)
            EXPECT_EQ(device.end, device.name == name ? End::ABORTED : End::STOPPED)
                << name << ", " << device.name;
    }
}

TEST(Supervisor, DeviceThatHangsInItsOwnAbortKeepsOnlyItsParentsFromStopping)
{
    Stage stage(TREE);
    stage["c"].manners["abort"] = Manner::SILENT;
    stage.run();
    stage["c"].reportAbort();
    stage.world->waitFor("abort c");
    auto const stopped = std::async(std::launch::async, [&] { stage.supervisor->stop(LONG); });
    while (stage.getStatus("b").end != End::STOPPED)
        std::this_thread::yield();
    EXPECT_EQ(endsOf(stage.supervisor->abort(4)), "aborted aborted silent stopped");
}

TEST(Supervisor, SequenceEndsWhenAllDevicesHaveAborted)
{
    Stage stage("( root ( a ) )");
    stage.run();
    stage["a"].reportAbort();
    EXPECT_FALSE(stage.supervisor->wait(0));
    stage["root"].reportAbort();
    EXPECT_TRUE(stage.supervisor->wait(LONG));
    EXPECT_THROW(stage.supervisor->waitLocked(LONG), DevMgrEx::SeqDeviceFailed);
    EXPECT_EQ(endsOf(stage.supervisor->stop(LONG)), "aborted aborted");
    EXPECT_THROW(stage.supervisor->waitLocked(LONG), DevMgrEx::SeqIllegalCall);
}

TEST(Supervisor, OthersStopInOrderIfADeviceHasFailedInLock)
{
    Stage stage(TREE);
    stage.run();
    stage["a"].manners["recover"] = Manner::THROWS;
    stage["a"].reportRecover();
    EXPECT_EQ(reasonOf<DevMgrEx::SeqDeviceFailed>([&] {
                  while (stage.supervisor->waitLocked(LONG))
                      std::this_thread::yield();
              }),
              "Device \"a\" has failed: No signal.");
    DevSeqStatus const status = stage.supervisor->stop(LONG);
    EXPECT_EQ(endsOf(status), "stopped failed (No signal.) stopped stopped");
    EXPECT_EQ(stage.world->count("abort a"), 1);
    EXPECT_EQ(stage.world->count("abort root"), 0);
}

TEST(Supervisor, DeviceFailsIfItThrowsFromAnyCall)
{
    for (char const *step : {"start", "getLatency", "sync", "getMark"}) {
        Stage stage("( root ( a ) )");
        stage["a"].manners[step] = Manner::THROWS;
        stage.create();
        stage.supervisor->start();
        EXPECT_EQ(reasonOf<DevMgrEx::SeqDeviceFailed>([&] { stage.supervisor->waitLocked(LONG); }),
                  "Device \"a\" has failed: No signal.")
            << step;
    }
}

TEST(Supervisor, StopBecomesAnAbortAtOnceIfADeviceCanNeverStop)
{
    Stage stage(TREE);
    stage["b"].manners["start"] = Manner::THROWS_OTHER;
    stage.create();
    stage.supervisor->start();
    EXPECT_EQ(reasonOf<DevMgrEx::SeqDeviceFailed>([&] { stage.supervisor->waitLocked(LONG); }),
              "Device \"b\" has failed: No power.");
    DevSeqStatus const status = stage.supervisor->stop(LONG);
    EXPECT_EQ(endsOf(status), "aborted aborted aborted failed (No power.)");
    EXPECT_EQ(Stage::find(status, "b").step, "start");
    EXPECT_EQ(stage.world->count("abort b"), 0); // it has not been running
    Lines const journal = stage.world->getJournal();
    auto const placeOf = [&](char const *line) {
        return std::find(journal.begin(), journal.end(), line) - journal.begin();
    };
    EXPECT_LT(placeOf("abort c"), placeOf("abort a"));
    EXPECT_LT(placeOf("abort a"), placeOf("abort root"));
}

TEST(Supervisor, LateReportsAreDropped)
{
    Stage stage("( root ( a ) )");
    stage["a"].manners["abort"] = Manner::SILENT;
    stage.run();
    DevSeqStatus const status = stage.supervisor->abort(3);
    EXPECT_EQ(endsOf(status), "aborted silent");
    EXPECT_EQ(Stage::find(status, "a").step, "abort");
    stage["a"].answer("abort");
    stage["a"].reportRecover();
    stage["a"].reportAbort();
    EXPECT_EQ(endsOf(stage.supervisor->getStatus()), "aborted silent");
    stage.supervisor = nullptr;
    stage["a"].answer("abort");
    stage["a"].reportRecover();
    stage["root"].reportAbort();
    stage.manager = nullptr;
    stage["root"].reportRecover();
    EXPECT_EQ(stage.world->count("abort a"), 1);
}

TEST(Supervisor, LateAnswerToAnEarlierStepIsNoAnswerToTheAbort)
{
    Stage stage("( root )");
    stage["root"].manners["sync"] = Manner::SILENT;
    stage["root"].manners["abort"] = Manner::SILENT;
    stage.startUntil("sync root");
    auto aborted = std::async(std::launch::async, [&] { return stage.supervisor->abort(LONG); });
    stage.world->waitFor("abort root");
    stage["root"].answer("sync");
    EXPECT_EQ(stage.getStatus("root").nbRefused, 1u);
    EXPECT_EQ(stage.getStatus("root").step, "abort");
    stage["root"].answer("abort");
    EXPECT_EQ(endsOf(aborted.get()), "aborted");
}

TEST(Supervisor, ADeviceThatHangsInACallDoesNotAffectTheOthers)
{
    Stage stage("( root ( a b ) )");
    stage["a"].manners["start"] = Manner::HANGS;
    stage.create();
    stage.supervisor->start();
    stage.world->waitHanging();
    EXPECT_EQ(stage.getStatus("a").call, "start");
    EXPECT_FALSE(stage.supervisor->waitLocked(0.01));
    DevSeqStatus const status = stage.supervisor->stop(0.01, 4);
    EXPECT_EQ(endsOf(status), "aborted silent none");
    EXPECT_EQ(Stage::find(status, "a").call, "start");
    EXPECT_EQ(stage.world->count("abort root"), 1);
    EXPECT_EQ(stage.world->count("abort a"), 0);
    EXPECT_EQ(stage.world->count("start b"), 0);
}

TEST(Supervisor, HungDeviceThatReturnsInTimeIsAborted)
{
    Stage stage("( root ( a b ) )");
    stage["a"].manners["sync"] = Manner::HANGS;
    stage.create();
    stage.supervisor->start();
    stage.world->waitHanging();
    auto aborted = std::async(std::launch::async, [&] { return stage.supervisor->abort(4); });
    stage.world->waitFor("abort root"); // in the second half of the time
    stage.world->end();
    EXPECT_EQ(endsOf(aborted.get()), "aborted aborted aborted");
}

TEST(Supervisor, DestructorStopsTheTree)
{
    for (auto const progress : {Stage::CREATED, Stage::STARTED, Stage::LOCKED, Stage::STOPPED}) {
        Stage stage(TREE);
        stage.proceedTo(progress);
        stage.supervisor = nullptr;
        EXPECT_EQ(stage.world->count("stop root"), progress > Stage::CREATED);
        EXPECT_EQ(stage.world->count("abort root"), 0);
    }
}

TEST(Supervisor, DestructorAbortsWhatDoesNotStop)
{
    Stage stage(TREE);
    stage["c"].manners["stop"] = Manner::SILENT;
    stage.run();
    stage.supervisor->setEndLimit(6);
    stage.supervisor = nullptr;
    for (char const *name : {"root", "a", "c"})
        EXPECT_EQ(stage.world->count(std::string("abort ") + name), 1) << name;
    EXPECT_EQ(stage.world->count("abort b"), 0);
}

TEST(Supervisor, DestructorLeavesADeviceThatHangsBehind)
{
    Stage stage(TREE);
    stage["root"].manners["stop"] = Manner::SILENT;
    stage["b"].manners["stop"] = Manner::SILENT;
    stage["b"].manners["abort"] = Manner::HANGS;
    stage.run();
    stage.supervisor->setEndLimit(0.2);
    stage.supervisor = nullptr; // returns within the limit
}

// All references that a client can hold, released in each order and at each stage of a sequence.
TEST(Supervisor, ReferencesMayGoInAnyOrder)
{
    using StandardStage = StageOf<HostileStandard>;
    for (auto const progress : {StandardStage::CREATED, StandardStage::STARTED,
                                StandardStage::LOCKED, StandardStage::STOPPED}) {
        std::vector<int> order = {0, 1, 2, 3};
        do {
            StandardStage stage("( root ( a ) )");
            stage.proceedTo(progress);
            ObjPtr<DevMgrPropertyAcc> properties = stage.manager->createPropertyAcc();
            RCShdPtr<DevMDPrtcl> device = stage.manager->getPrtcl("a");
            std::function<void()> const actions[] = {
                [&] { stage.manager = nullptr; }, [&] { stage.supervisor = nullptr; },
                [&] { properties = nullptr; }, [&] { device = nullptr; }};
            for (int const action : order)
                actions[action]();
            for (char const *name : {" root", " a"}) {
                EXPECT_EQ(stage.world->count(std::string("stop") + name),
                          progress > StandardStage::CREATED);
                EXPECT_EQ(stage.world->count(std::string("close") + name), 1);
            }
        } while (std::next_permutation(order.begin(), order.end()));
    }
}

TEST(Supervisor, AnyNumberOfDevicesMayFinishTheirStepsInsideTheCalls)
{
    constexpr int NB_DEVICES = 1000;
    std::string config = "( root ( ";
    for (int i = 1; i < NB_DEVICES; ++i)
        config += std::to_string(i) + " ";
    Stage stage(config + ") )");
    stage.run();
    DevSeqStatus const status = stage.supervisor->stop(LONG);
    EXPECT_EQ(status.devices.size(), static_cast<std::size_t>(NB_DEVICES));
    for (DevSeqDeviceStatus const &device : status.devices)
        EXPECT_EQ(device.end, End::STOPPED) << device.name;
}

/// Observer that calls a function for each state.
class Observer : public DevSeqObserver
{
public:
    using Function = std::function<void(std::string const &)>;

    explicit Observer(Function function) : _function(std::move(function)) {}
    void stateChanged(LiString const &device, LiString const &state) override
    {
        _function((device + " " + state).getChars());
    }

private:
    Function _function;
};

TEST(Supervisor, ObserverIsNotifiedOfEachStateInOrder)
{
    Stage stage("( root ( a ) )");
    stage.create();
    stage.supervisor->setObserver(RCShdPtr<DevSeqObserver>(
        new Observer([&](std::string const &line) { stage.world->add("= " + line); })));
    stage.supervisor->start();
    EXPECT_TRUE(stage.supervisor->waitLocked(LONG));
    stage.supervisor->abort(LONG);
    stage.supervisor = nullptr; // after that the observer has got the last states
    Lines told;
    for (std::string const &line : stage.world->getJournal())
        if (line[0] == '=')
            told.push_back(line.substr(2));
    EXPECT_EQ(told, (Lines{"root start", "a start", "root wsr", "a ready", "a wml", "root ready",
                           "root sync", "root lock", "a sync", "a lock", "a abort", "a final",
                           "root abort", "root final"}));
}

TEST(Supervisor, ShorterLimitBringsTheTurnsOfTheDevicesForward)
{
    Stage stage("( root ( a ) )");
    stage["a"].manners["abort"] = Manner::SILENT;
    stage.run();
    auto const patient = std::async(std::launch::async, [&] { stage.supervisor->abort(LONG); });
    stage.world->waitFor("abort a");
    EXPECT_EQ(endsOf(stage.supervisor->abort(1)), "aborted silent");
}

TEST(Supervisor, ObserverIsNotifiedOfTheFailureOfADevice)
{
    class FailureObserver : public DevSeqObserver
    {
    public:
        explicit FailureObserver(World &world) : _world(world) {}
        void stateChanged(LiString const &, LiString const &) override {}
        void machineFailed(DevMgrFailure const &failure) override
        {
            std::ostringstream text;
            text << failure.device << ' ' << failure.state << ": ";
            EXPECT_THROW(std::rethrow_exception(failure.exception), std::runtime_error);
            _world.add("= " + text.str() + failure.getReason().getChars());
        }

    private:
        World &_world;
    };
    Stage stage("( root ( a ) )");
    stage["a"].manners["sync"] = Manner::THROWS_OTHER;
    stage["root"].manners["stop"] = Manner::DROPS;
    stage.create();
    stage.supervisor->setObserver(RCShdPtr<DevSeqObserver>(new FailureObserver(*stage.world)));
    stage.supervisor->start();
    EXPECT_THROW(stage.supervisor->waitLocked(LONG), DevMgrEx::SeqDeviceFailed);
    stage.supervisor->stop(LONG);
    stage.supervisor = nullptr; // after that the observer has got the last failure
    Lines told;
    for (std::string const &line : stage.world->getJournal())
        if (line[0] == '=')
            told.push_back(line.substr(2));
    EXPECT_EQ(told, (Lines{"a wml: No power.",
                           "root stop: It has destroyed a completion without running it."}));
}

TEST(Supervisor, ObserverThatThrowsIsReported)
{
    Stage stage("( root ( a ) )");
    stage.create();
    stage.supervisor->setObserver(RCShdPtr<DevSeqObserver>(new Observer(
        [](std::string const &line) { throw std::runtime_error("Cannot: " + line); })));
    stage.supervisor->start();
    EXPECT_TRUE(stage.supervisor->waitLocked(LONG));
    DevSeqStatus const status = stage.supervisor->stop(LONG);
    EXPECT_EQ(endsOf(status), "stopped stopped");
    EXPECT_EQ(status.observerFailure, "Cannot: root start");
    EXPECT_GE(status.nbObserverFailures, 9u);
}

TEST(Supervisor, ObserverThatThrowsInItsDestructorIsReported)
{
    class Fragile : public DevSeqObserver
    {
    public:
        explicit Fragile(DevMgrSeqSupervisor &supervisor) : _supervisor(supervisor) {}
        ~Fragile() noexcept(false) override { throw std::runtime_error("the destructor"); }
        void stateChanged(LiString const &, LiString const &) override
        {
            _supervisor.setObserver(nullptr); // what calls this function has the last reference
            throw std::runtime_error("the function");
        }

    private:
        DevMgrSeqSupervisor &_supervisor;
    };
    Stage stage(TREE);
    stage.create();
    stage.supervisor->setObserver(RCShdPtr<DevSeqObserver>(new Fragile(*stage.supervisor)));
    stage.supervisor->start();
    EXPECT_TRUE(stage.supervisor->waitLocked(LONG));
    DevSeqStatus const status = stage.supervisor->stop(LONG);
    EXPECT_EQ(endsOf(status), "stopped stopped stopped stopped");
    EXPECT_EQ(status.observerFailure, "the function");
    EXPECT_EQ(status.nbObserverFailures, 1u);
}

TEST(Supervisor, ObserverMayCallWhatDoesNotWaitForIt)
{
    Stage stage("( root )");
    stage.create();
    Lines refusals;
    stage.supervisor->setObserver(RCShdPtr<DevSeqObserver>(new Observer([&](std::string const &) {
        DevMgrSeqSupervisor &supervisor = *stage.supervisor;
        supervisor.getStatus();
        using Illegal = DevMgrEx::SeqIllegalCall;
        refusals = {reasonOf<Illegal>([&] { supervisor.start(); }),
                    reasonOf<Illegal>([&] { supervisor.waitLocked(1); }),
                    reasonOf<Illegal>([&] { supervisor.stop(1); }),
                    reasonOf<Illegal>([&] { supervisor.abort(1); }),
                    reasonOf<Illegal>([&] { supervisor.wait(1); })};
        supervisor.setObserver(nullptr);
    })));
    stage.supervisor->start();
    EXPECT_TRUE(stage.supervisor->waitLocked(LONG));
    stage.supervisor->stop(LONG);
    EXPECT_EQ(
        refusals,
        (Lines{"\"start\" makes no sense now: the sequence has been started.",
               "\"waitLocked\" makes no sense now: it would wait for the thread that calls it.",
               "\"stop\" makes no sense now: it would wait for the thread that calls it.",
               "\"abort\" makes no sense now: it would wait for the thread that calls it.",
               "\"wait\" makes no sense now: it would wait for the thread that calls it."}));
}

TEST(Supervisor, ObserverMustNotDestroyIt)
{
    Stage stage("( root )");
    stage.create();
    auto const world = stage.world;
    stage.supervisor->setObserver(RCShdPtr<DevSeqObserver>(new Observer([&](std::string const &) {
        std::string text;
        try {
            stage.supervisor = nullptr;
        } catch (std::logic_error const &failure) {
            text = failure.what();
        }
        world->add(text.find("!isOnRunner") != std::string::npos ? "asserted" : text);
    })));
    stage.supervisor->start();
    stage.world->waitFor("asserted");
}

TEST(Supervisor, ObserverThatHangsIsLeftBehind)
{
    Stage stage("( root ( a ) )");
    stage.create();
    auto const world = stage.world;
    stage.supervisor->setObserver(
        RCShdPtr<DevSeqObserver>(new Observer([world](std::string const &) { world->hang(); })));
    stage.supervisor->start();
    stage.world->waitHanging();
    EXPECT_EQ(endsOf(stage.supervisor->stop(0.01, 6)), "aborted none");
}

TEST(Supervisor, ObserverAfterOneThatHangsIsToldOfTheEnd)
{
    Stage stage("( root ( a ) )");
    stage["root"].manners["abort"] = Manner::SILENT;
    stage.run();
    auto const world = stage.world;
    stage.supervisor->setObserver(RCShdPtr<DevSeqObserver>(new Observer([world](auto const &line) {
        world->add("first " + line);
        world->hang();
    })));
    auto aborted = std::async(std::launch::async, [&] { return stage.supervisor->abort(6); });
    stage.world->waitFor("first a abort");
    stage.world->waitFor("abort root"); // by another thread
    stage.supervisor->setObserver(RCShdPtr<DevSeqObserver>(
        new Observer([world](auto const &line) { world->add("second " + line); })));
    stage["root"].answer("abort");
    EXPECT_EQ(endsOf(aborted.get()), "aborted aborted");
    stage.supervisor = nullptr; // the observer has been told of the end after that
    EXPECT_EQ(stage.world->count("second root final"), 1);
    EXPECT_EQ(stage.world->count("first root final"), 0);
}

TEST(Supervisor, ChoosesTheShortestLimit)
{
    Stage stage("( root )");
    stage["root"].manners["stop"] = Manner::SILENT;
    stage["root"].manners["abort"] = Manner::SILENT;
    stage.run();
    auto stopped = std::async(std::launch::async, [&] { return stage.supervisor->stop(1e300); });
    stage.world->waitFor("stop root");
    EXPECT_EQ(endsOf(stage.supervisor->stop(0.01)), "silent");
    EXPECT_EQ(endsOf(stopped.get()), "silent");
}

TEST(Supervisor, TakesDurationsAndStrangeLimits)
{
    using namespace std::chrono_literals;
    Stage stage("( root )");
    stage.run();
    EXPECT_TRUE(stage.supervisor->waitLocked(1ms));
    EXPECT_TRUE(stage.supervisor->waitLocked(-1));
    EXPECT_TRUE(stage.supervisor->waitLocked(std::numeric_limits<double>::quiet_NaN()));
    EXPECT_FALSE(stage.supervisor->wait(1ms));
    EXPECT_EQ(endsOf(stage.supervisor->stop(1min, 1min)), "stopped");
}

TEST(Supervisor, TakesNoDeviceThatFailedToOpen)
{
    Stage stage("( root ( a ) )");
    stage["a"].manners["open"] = Manner::THROWS;
    EXPECT_THROW(stage.create(), DevMgrEx::StreamNotAvailable);
    EXPECT_THROW(stage.create(), DevMgrEx::StreamNotAvailable) << "of the first attempt";
    stage.manager = nullptr;
    EXPECT_EQ(stage.world->getJournal(), (Lines{"open root", "open a", "close root"}));
}

TEST(Supervisor, RefusesBadStrings)
{
    Stage stage(TREE);
    DevMgr &manager = *stage.manager;
    EXPECT_THROW(static_cast<void>(manager.createSeqSupervisor("()")), DevMgrEx::ConfigSyntaxError);
    EXPECT_EQ(reasonOf<DevMgrEx::ConfigSyntaxError>(
                  [&] { static_cast<void>(manager.createSeqSupervisor("( root ( a ) b )")); }),
              "A sequence has one root.");
    EXPECT_THROW(static_cast<void>(manager.createSeqSupervisor("( root ( a a ) )")),
                 DevMgrEx::NameNotUnique);
    EXPECT_THROW(static_cast<void>(manager.createSeqSupervisor("( nobody )")),
                 DevPrtclEx::ExNameNotRegistered);
    EXPECT_EQ(stage.world->getJournal(), Lines{});
}

} // namespace
} // namespace ZvTest
