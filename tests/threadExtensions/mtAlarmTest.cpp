#include "resmgt/threadExtensions/mtAlarmManager.h"

#include "resmgt/locks/lkThreadId.h"
#include "resmgt/threadExtensions/mtAlarmManagerImp.private.h"
#include "resmgt/threads/mtThreadMgr.h"
#include "resmgt/threads/priority.h"
#include "resmgt/threads/rtPriorities.h"
#include "testing/aborted.h"
#include "testing/asleep.h"
#include "testing/failures.h"
#include "testing/journal.h"
#include "testing/refusedThreads.h"
#include "virtualTime.h"
#include "zvbase/assertions.h"
#include "zvbase/rcEx.h"
#include "zvbase/sleeper.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <semaphore>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

using Alarm = RCShdPtr<MtAlarmHandle>;

constexpr double FOR_EVER = std::numeric_limits<double>::infinity();

/// Callback that runs a callable.
class Call : public MtAlarmHandle::Callback
{
public:
    using Action = std::function<void(Alarm const &, bool)>;

    explicit Call(Action action) : _action(std::move(action)) {}
    void performAlarm(Alarm handle, bool goingAway) override { _action(handle, goingAway); }

private:
    Action _action;
};

/// Records its name, with a mark if the manager is being destroyed.
class Named : public MtAlarmHandle::Callback
{
public:
    Named(Journal &record, std::string name) : _record(record), _name(std::move(name)) {}
    void performAlarm(Alarm, bool goingAway) override
    {
        _record.add(goingAway ? _name + " goes" : _name);
    }

private:
    Journal &_record;
    std::string _name;
};

/// Gives the tests access to the operations for managers.
struct Manipulator : MtAlarmHandleManipulator
{
    using MtAlarmHandleManipulator::callCallback;
    using MtAlarmHandleManipulator::createHandle;
    using MtAlarmHandleManipulator::prepareForRegistration;
    using MtAlarmHandleManipulator::setRegistered;
    using MtAlarmHandleManipulator::setRegisteredAlarmTime;
};

/// Fixture with a manager of its own and with virtual time.
class MtAlarmManagerTest : public testing::Test
{
protected:
    MtAlarmManagerTest() : _manager(new MtAlarmManagerImp) { VirtualTime::awaitAsleep(); }
    ~MtAlarmManagerTest() override
    {
        if (!_isOver)
            end();
    }

    MtAlarmManager &manager() { return *_manager; }
    /// Destroys the manager.
    void end()
    {
        // Callbacks that run during its destruction still use `_manager`.
        std::unique_ptr<MtAlarmManagerImp> const ending(_manager);
        _isOver = true;
    }

    Alarm make(MtAlarmHandle::Callback &callback)
    {
        Alarm alarm(manager().createHandle());
        alarm->setCallback(&callback);
        return alarm;
    }
    /// Registers an alarm that records its name, that many seconds after the test's start.
    Alarm add(char const *name, double seconds)
    {
        Alarm const alarm = make(*_callbacks.emplace_back(new Named(_record, name)));
        alarm->setAlarmTime(_start + seconds);
        manager().registerAlarm(alarm);
        return alarm;
    }
    Alarm add(Call &call, double seconds)
    {
        Alarm const alarm = make(call);
        alarm->setAlarmTime(_start + seconds);
        manager().registerAlarm(alarm);
        return alarm;
    }
    /// Advances the time to that many seconds after the test's start, and returns at once.
    void beginToPassTo(double seconds)
    {
        VirtualTime::awaitAsleep(); // otherwise the thread would begin its wait at the new time
        VirtualTime::passTo(_start + seconds);
    }
    /// Advances the time as `beginToPassTo`, and waits until the alarms that are due have been
    /// called.
    void passTo(double seconds)
    {
        beginToPassTo(seconds);
        VirtualTime::awaitAsleep();
    }

    VirtualTime _time;
    double _start = VirtualTime::getTime();
    Journal _record;
    std::vector<std::unique_ptr<Named>> _callbacks;
    MtAlarmManagerImp *_manager;
    bool _isOver = false;
};

// ---- handles

TEST_F(MtAlarmManagerTest, ANewHandleIsAllZero)
{
    Alarm const alarm = manager().createHandle();
    EXPECT_TRUE(alarm.isUnique());
    EXPECT_EQ(alarm->getTimeRegistered(), 0.0);
    EXPECT_EQ(alarm->getAlarmTime(), 0.0);
    EXPECT_EQ(alarm->getDuration(), 0.0);
    EXPECT_EQ(alarm->getRepeatDuration(), 0.0);
    EXPECT_EQ(alarm->getRequestedRepeats(), 0U);
    EXPECT_EQ(alarm->getRepeatCount(), 0U);
    EXPECT_FALSE(alarm->hasOccurred());
    EXPECT_FALSE(alarm->isRegistered());
}

TEST_F(MtAlarmManagerTest, AHandleWithoutACallbackIsNotRegistered)
{
    Alarm const alarm = manager().createHandle();
    manager().registerAlarm(alarm);
    EXPECT_FALSE(alarm->isRegistered());
    EXPECT_EQ(alarm->getTimeRegistered(), 0.0);
    EXPECT_TRUE(alarm.isUnique());
}

TEST_F(MtAlarmManagerTest, ACallbackIsNotNull)
{
    Alarm const alarm = manager().createHandle();
    EXPECT_EQ(failedAssertion([&] { alarm->setCallback(nullptr); }), "callback");
    EXPECT_EQ(failedAssertion([&] { Manipulator::callCallback(*alarm, false); }), "_callback");
    EXPECT_FALSE(alarm->hasOccurred());
}

TEST_F(MtAlarmManagerTest, NothingIsSetWhileRegistered)
{
    Named other(_record, "other");
    Alarm const alarm = add("alarm", 10.0);
    alarm->setAlarmTime(_start + 1.0);
    alarm->setDuration(2.0);
    alarm->setRepeatDuration(3.0);
    alarm->setRequestedRepeats(4);
    alarm->setCallback(&other);
    EXPECT_EQ(alarm->getAlarmTime(), _start + 10.0);
    EXPECT_EQ(alarm->getDuration(), 10.0);
    EXPECT_EQ(alarm->getRepeatDuration(), 0.0);
    EXPECT_EQ(alarm->getRequestedRepeats(), 0U);
    passTo(9.0);
    EXPECT_EQ(_record.getText(), "");
    passTo(10.0);
    EXPECT_EQ(_record.getText(), "alarm;");
}

TEST_F(MtAlarmManagerTest, TheLastOfAlarmTimeAndDurationCounts)
{
    Named callback(_record, "alarm");
    Alarm const alarm = make(callback);
    alarm->setDuration(5.0);
    alarm->setAlarmTime(_start + 3.0);
    passTo(1.0);
    manager().registerAlarm(alarm);
    EXPECT_EQ(alarm->getTimeRegistered(), _start + 1.0);
    EXPECT_EQ(alarm->getAlarmTime(), _start + 3.0);
    EXPECT_EQ(alarm->getDuration(), 2.0);
    passTo(3.0);
    EXPECT_EQ(_record.takeText(), "alarm;");

    alarm->setAlarmTime(_start + 100.0);
    alarm->setDuration(0.5);
    manager().registerAlarm(alarm);
    EXPECT_EQ(alarm->getTimeRegistered(), _start + 3.0);
    EXPECT_EQ(alarm->getAlarmTime(), _start + 3.5);
    EXPECT_EQ(alarm->getDuration(), 0.5);
    passTo(3.5);
    EXPECT_EQ(_record.takeText(), "alarm;");
}

TEST_F(MtAlarmManagerTest, ManagersReachWhatIsHidden)
{
    Named callback(_record, "alarm");
    Alarm const alarm(Manipulator::createHandle());
    EXPECT_FALSE(Manipulator::prepareForRegistration(*alarm, 1.0));
    alarm->setCallback(&callback);
    alarm->setDuration(2.0);
    EXPECT_TRUE(Manipulator::prepareForRegistration(*alarm, 1.0));
    EXPECT_FALSE(Manipulator::prepareForRegistration(*alarm, 7.0));
    EXPECT_TRUE(alarm->isRegistered());
    EXPECT_EQ(alarm->getTimeRegistered(), 1.0);
    EXPECT_EQ(alarm->getAlarmTime(), 3.0);
    Manipulator::setRegisteredAlarmTime(*alarm, 11.0);
    EXPECT_EQ(alarm->getAlarmTime(), 11.0);
    Manipulator::callCallback(*alarm, false);
    EXPECT_TRUE(alarm->hasOccurred());
    EXPECT_EQ(alarm->getRepeatCount(), 0U);
    Manipulator::callCallback(*alarm, true);
    EXPECT_EQ(alarm->getRepeatCount(), 1U);
    EXPECT_EQ(_record.getText(), "alarm;alarm goes;");
    Manipulator::setRegistered(*alarm, false);
    EXPECT_FALSE(alarm->isRegistered());
    EXPECT_TRUE(Manipulator::prepareForRegistration(*alarm, 1.0));
    EXPECT_FALSE(alarm->hasOccurred());
    EXPECT_EQ(alarm->getRepeatCount(), 1U); // a registration does not reset it
}

// ---- times

TEST_F(MtAlarmManagerTest, AnAlarmIsCalledAtItsTimeAndNotBefore)
{
    Alarm const alarm = add("alarm", 2.0);
    EXPECT_TRUE(alarm->isRegistered());
    passTo(1.999999);
    EXPECT_EQ(_record.getText(), "");
    EXPECT_FALSE(alarm->hasOccurred());
    passTo(2.001);
    EXPECT_EQ(_record.getText(), "alarm;");
    EXPECT_TRUE(alarm->hasOccurred());
    EXPECT_FALSE(alarm->isRegistered());
    EXPECT_TRUE(alarm.isUnique());
}

TEST_F(MtAlarmManagerTest, AnAlarmThatIsPostponedRepeatedlyDoesNotWakeTheThreadEarly)
{
    Named callback(_record, "bite");
    Alarm const watchdog = make(callback);
    watchdog->setDuration(5.0);
    manager().registerAlarm(watchdog);
    VirtualTime::awaitAsleep();
    int const nbSleeps = VirtualTime::getNbSleeps();
    for (double now = 0.5; now < 5.0; now += 0.5) {
        passTo(now);
        manager().deregisterAlarm(watchdog);
        manager().registerAlarm(watchdog);
    }
    VirtualTime::awaitAsleep();
    EXPECT_EQ(VirtualTime::getNbSleeps(), nbSleeps);
    EXPECT_NEAR(_start + 5.0, VirtualTime::getFirstDeadline(), 0.001);
    passTo(5.001); // the thread wakes and finds no due alarm
    EXPECT_EQ(VirtualTime::getNbSleeps(), nbSleeps + 1);
    EXPECT_NEAR(_start + 9.5, VirtualTime::getFirstDeadline(), 0.001);

    manager().deregisterAlarm(watchdog);
    watchdog->setDuration(1.0); // before the next time at which the thread would wake
    manager().registerAlarm(watchdog);
    passTo(6.002);
    EXPECT_EQ(_record.getText(), "bite;");
}

TEST_F(MtAlarmManagerTest, AnAlarmInThePastIsCalledAtOnce)
{
    passTo(10.0);
    Alarm const alarm = add("past", 3.0);
    VirtualTime::awaitAsleep();
    EXPECT_EQ(_record.getText(), "past;");
    EXPECT_EQ(alarm->getDuration(), -7.0);
}

TEST_F(MtAlarmManagerTest, AnAlarmForNowIsCalledAtOnce)
{
    Alarm const alarm = add("now", 0.0);
    VirtualTime::awaitAsleep();
    EXPECT_EQ(_record.getText(), "now;");
}

TEST_F(MtAlarmManagerTest, AlarmsComeInTheOrderOfTheirTimes)
{
    std::vector<Alarm> const alarms = {add("three", 3.0), add("one", 1.0), add("four", 4.0),
                                       add("two", 2.0)};
    passTo(2.5);
    EXPECT_EQ(_record.takeText(), "one;two;");
    passTo(10.0);
    EXPECT_EQ(_record.takeText(), "three;four;");
}

TEST_F(MtAlarmManagerTest, AlarmsOfOneTimeComeInReverseOrderOfRegistration)
{
    std::vector<Alarm> const alarms = {add("first", 1.0), add("second", 1.0), add("before", 0.5),
                                       add("third", 1.0)};
    passTo(1.0);
    EXPECT_EQ(_record.getText(), "before;third;second;first;");
}

TEST_F(MtAlarmManagerTest, AnUnreferencedHandleIsDroppedWithoutACall)
{
    Alarm const kept = add("kept", 1.0);
    Alarm dropped = add("dropped", 1.0);
    Alarm const other = add("other", 1.0);
    dropped = nullptr;
    passTo(1.0);
    EXPECT_EQ(_record.getText(), "other;kept;");
}

TEST_F(MtAlarmManagerTest, RepeatsFollowTheFirstCall)
{
    for (unsigned const nbRepeats : {0U, 1U, 2U, 5U}) {
        double const start = VirtualTime::getTime() - _start;
        Named callback(_record, "call");
        Alarm const alarm = make(callback);
        alarm->setDuration(1.0);
        alarm->setRepeatDuration(0.25);
        alarm->setRequestedRepeats(nbRepeats);
        manager().registerAlarm(alarm);
        std::string expected;
        for (unsigned call = 0; call <= nbRepeats; ++call) {
            if (call == 1) { // the first repeat follows the first call at once
                expected += "call;";
                continue;
            }
            double const due = start + 1.0 + (call == 0 ? 0 : call - 1) * 0.25;
            EXPECT_EQ(alarm->getAlarmTime(), _start + due);
            passTo(due - 0.001);
            EXPECT_EQ(_record.getText(), expected);
            EXPECT_TRUE(alarm->isRegistered());
            passTo(due);
            expected += "call;";
            EXPECT_EQ(_record.getText(), expected + (call == 0 && nbRepeats ? "call;" : ""));
        }
        EXPECT_FALSE(alarm->isRegistered());
        EXPECT_EQ(alarm->getRepeatCount(), nbRepeats);
        passTo(start + 100.0);
        EXPECT_EQ(_record.takeText(), expected);
    }
}

TEST_F(MtAlarmManagerTest, RepeatsAreCountedFromTheRegistrationHoweverLateACallIs)
{
    std::vector<double> moments;
    Call call([&](Alarm const &, bool) {
        moments.push_back(VirtualTime::getTime() - _start);
        VirtualTime::pass(moments.size() == 3 ? 5.5 : 0.125); // the duration of the call
    });
    Alarm const alarm = make(call);
    alarm->setDuration(1.0);
    alarm->setRepeatDuration(1.0);
    alarm->setRequestedRepeats(9);
    manager().registerAlarm(alarm);
    for (int second = 1; second != 20; ++second)
        passTo(second);
    EXPECT_EQ(moments,
              (std::vector<double>{1.0, 1.125, 2.0, 7.5, 7.625, 7.75, 7.875, 8.0, 8.125, 9.0}));
}

TEST_F(MtAlarmManagerTest, ThousandsOfRepeatsDoNotDrift)
{
    double worst = 0;
    int nbCalls = 0;
    Call call([&](Alarm const &, bool) {
        double const due = _start + (nbCalls == 0 ? 1 : nbCalls) * 0.01;
        ++nbCalls;
        EXPECT_GE(VirtualTime::getTime(), due - 1e-9);
        worst = std::max(worst, VirtualTime::getTime() - due);
        VirtualTime::pass(0.003);
    });
    Alarm const alarm = make(call);
    alarm->setDuration(0.01);
    alarm->setRepeatDuration(0.01);
    alarm->setRequestedRepeats(4999);
    manager().registerAlarm(alarm);
    while (alarm->isRegistered()) {
        VirtualTime::awaitAsleep();
        VirtualTime::passTo(VirtualTime::getFirstDeadline());
    }
    EXPECT_EQ(nbCalls, 5000);
    EXPECT_LT(worst, 0.0031); // the first repeat is late by the duration of a call
}

TEST_F(MtAlarmManagerTest, AHandleMayBeRegisteredAgainWhenItIsOver)
{
    Named callback(_record, "call");
    Alarm const alarm = make(callback);
    alarm->setDuration(1.0);
    alarm->setRepeatDuration(1.0);
    alarm->setRequestedRepeats(1);
    manager().registerAlarm(alarm);
    passTo(2.0);
    EXPECT_EQ(_record.takeText(), "call;call;");
    // Its repeats are used up.
    manager().registerAlarm(alarm);
    EXPECT_FALSE(alarm->hasOccurred());
    EXPECT_EQ(alarm->getAlarmTime(), _start + 3.0);
    passTo(10.0);
    EXPECT_EQ(_record.takeText(), "call;");
    EXPECT_EQ(alarm->getRepeatCount(), 1U);
}

TEST_F(MtAlarmManagerTest, ASecondRegistrationDoesNothing)
{
    Alarm const alarm = add("alarm", 2.0);
    passTo(1.0);
    manager().registerAlarm(alarm);
    EXPECT_EQ(alarm->getTimeRegistered(), _start);
    passTo(5.0);
    EXPECT_EQ(_record.getText(), "alarm;");
}

TEST_F(MtAlarmManagerTest, AnAlarmFarInTheFutureIsCalled)
{
    constexpr double DAY = 86400.0;
    Alarm const distant = add("far", 100 * DAY);
    VirtualTime::awaitAsleep();
    EXPECT_LT(VirtualTime::getFirstDeadline(), _start + 50 * DAY); // the longest possible wait
    passTo(99 * DAY);
    EXPECT_EQ(_record.getText(), "");
    passTo(100 * DAY);
    EXPECT_EQ(_record.getText(), "far;");
}

TEST_F(MtAlarmManagerTest, AnAlarmAtInfinityIsNeverCalled)
{
    Alarm const never = add("never", FOR_EVER);
    Alarm const alarm = add("alarm", 1.0);
    passTo(1e8);
    EXPECT_EQ(_record.getText(), "alarm;");
    manager().deregisterAlarm(never);
    EXPECT_FALSE(never->isRegistered());
}

// ---- the thread

TEST_F(MtAlarmManagerTest, TheThreadSleepsAsLongAsNothingIsDue)
{
    EXPECT_EQ(VirtualTime::getFirstDeadline(), FOR_EVER);
    int const nbSleeps = VirtualTime::getNbSleeps();
    Alarm const late = add("late", 100.0);
    VirtualTime::awaitAsleep();
    EXPECT_EQ(VirtualTime::getNbSleeps(), nbSleeps + 1);
    EXPECT_NEAR(_start + 100.0, VirtualTime::getFirstDeadline(), 1e-6);
    // An alarm that is due after the first one does not wake the thread.
    std::vector<Alarm> alarms;
    for (int i = 0; i != 50; ++i)
        alarms.push_back(add("later", 101.0 + i));
    for (Alarm const &alarm : alarms)
        manager().deregisterAlarm(alarm);
    EXPECT_EQ(VirtualTime::getNbSleeps(), nbSleeps + 1);
    Alarm const early = add("early", 1.0);
    VirtualTime::awaitAsleep();
    EXPECT_EQ(VirtualTime::getNbSleeps(), nbSleeps + 2);
    EXPECT_NEAR(_start + 1.0, VirtualTime::getFirstDeadline(), 1e-6);
    // Earlier pulses do not wake the thread again.
    passTo(1.0);
    EXPECT_EQ(_record.getText(), "early;");
    EXPECT_EQ(VirtualTime::getNbSleeps(), nbSleeps + 3);
    EXPECT_NEAR(_start + 100.0, VirtualTime::getFirstDeadline(), 1e-6);
    passTo(100.0);
    EXPECT_EQ(VirtualTime::getFirstDeadline(), FOR_EVER);
    EXPECT_EQ(VirtualTime::getNbSleeps(), nbSleeps + 4);
}

TEST_F(MtAlarmManagerTest, AlarmsThatAreWithdrawnInTimeDoNotWakeTheThreadEach)
{
    Alarm const late = add("late", 100.0);
    VirtualTime::awaitAsleep();
    manager().deregisterAlarm(add("first limit", 1.0));
    VirtualTime::awaitAsleep();
    int const nbSleeps = VirtualTime::getNbSleeps();
    EXPECT_NEAR(_start + 1.0, VirtualTime::getFirstDeadline(), 1e-6);
    for (int i = 0; i != 50; ++i)
        manager().deregisterAlarm(add("next limit", 1.0 + i));
    VirtualTime::awaitAsleep();
    EXPECT_EQ(VirtualTime::getNbSleeps(), nbSleeps);
    passTo(1.0); // the thread looks once, and does not come back to that time
    EXPECT_EQ(VirtualTime::getNbSleeps(), nbSleeps + 1);
    EXPECT_NEAR(_start + 100.0, VirtualTime::getFirstDeadline(), 1e-6);
    Alarm const early = add("early", 1.5);
    VirtualTime::awaitAsleep();
    EXPECT_NEAR(_start + 1.5, VirtualTime::getFirstDeadline(), 1e-6);
    passTo(1.5);
    EXPECT_EQ(_record.getText(), "early;");
}

TEST_F(MtAlarmManagerTest, ARestBelowTheWaitsUnitIsSleptThrough)
{
    int const nbSleeps = VirtualTime::getNbSleeps();
    Alarm const alarm = add("alarm", 0.0003);
    VirtualTime::awaitAsleep();
    EXPECT_EQ(VirtualTime::getNbSleeps(), nbSleeps + 1);
    EXPECT_NEAR(_start + 0.001, VirtualTime::getFirstDeadline(), 1e-9);
    passTo(0.001);
    EXPECT_EQ(_record.getText(), "alarm;");
}

TEST_F(MtAlarmManagerTest, ARestThatIsNegligibleIsNotSleptThrough)
{
    // At the first reading of the clock the alarm is due in 50 ns, at the next one it is due.
    Alarm const second = add("second", 1.00000005);
    Call call([&](Alarm const &, bool) {
        _record.add("first");
        EXPECT_TRUE(second->isRegistered());
    });
    Alarm const first = add(call, 1.0);
    VirtualTime::awaitAsleep();
    int const nbSleeps = VirtualTime::getNbSleeps();
    beginToPassTo(1.0);
    while (_record.getText() != "first;")
        std::this_thread::yield();
    EXPECT_EQ(VirtualTime::getNbSleeps(), nbSleeps); // it reads the clock again and again
    VirtualTime::passTo(_start + 1.00000005);
    VirtualTime::awaitAsleep();
    EXPECT_EQ(_record.getText(), "first;second;");
    EXPECT_EQ(VirtualTime::getNbSleeps(), nbSleeps + 1);
}

TEST_F(MtAlarmManagerTest, CallsAreMadeByTheAlarmThread)
{
    std::string name;
    LkThreadId id;
    Call call([&](Alarm const &, bool goingAway) {
        EXPECT_FALSE(goingAway);
        id.setCurrentThread();
        name = MtThreadMgr::getInstance().findThread(id)->getName().getChars();
    });
    Alarm const alarm = add(call, 1.0);
    passTo(1.0);
    EXPECT_EQ(name, "MtAlarmThread");
    EXPECT_FALSE(id.isCurrentThread());
}

TEST_F(MtAlarmManagerTest, TheThreadFollowsTheManagersPriority)
{
    Priority &priority = manager().getPriority();
    EXPECT_EQ(priority.getName(), "AlarmManagerImp");
    EXPECT_FALSE(priority.isPriorityFixed());
    EXPECT_EQ(priority.getPriority(), 0);
    std::ostringstream text;
    priority.dump(text, true);
    EXPECT_NE(
        text.str().find("\n\"equalToAlarmManager\" : AlarmManagerImp (    0 ) == MtAlarmThread ("
                        "    0 ) valid\n"),
        std::string::npos)
        << text.str();
    PriorityRelation const above("test", RtPriorities::getInstance().getRealTimePriority(),
                                 PriorityRelation::LESS, priority);
    int level = -1;
    Call call([&](Alarm const &, bool) {
        LkThreadId const id(LkThreadId::CURRENT_THREAD);
        level = MtThreadMgr::getInstance().findThread(id)->getPriority().getPriority();
    });
    Alarm const alarm = add(call, 1.0);
    passTo(1.0);
    EXPECT_EQ(level, 2);
}

TEST_F(MtAlarmManagerTest, TheResolutionIsKept)
{
    EXPECT_EQ(manager().getResolution(), 0.02);
    manager().setResolution(0.5);
    EXPECT_EQ(manager().getResolution(), 0.5);
}

TEST_F(MtAlarmManagerTest, DurationsOfTheStandardLibraryAreSeconds)
{
    using namespace std::chrono_literals;
    MtAlarmManager &base = manager();
    base.setResolution(250ms);
    EXPECT_EQ(base.getResolution(), 0.25);
    Named callback(_record, "alarm");
    Alarm const alarm = make(callback);
    alarm->setDuration(2min);
    EXPECT_EQ(alarm->getDuration(), 120.0);
    alarm->setRepeatDuration(500ms);
    EXPECT_EQ(alarm->getRepeatDuration(), 0.5);
    alarm->setDuration(500ms);
    manager().registerAlarm(alarm);
    EXPECT_EQ(alarm->getAlarmTime(), _start + 0.5);
    passTo(0.5);
    EXPECT_EQ(_record.takeText(), "alarm;");
}

TEST_F(MtAlarmManagerTest, ANullHandleIsRefused)
{
    EXPECT_THROW(manager().registerAlarm(nullptr), RCEx::ExNullPtr);
    EXPECT_THROW(manager().deregisterAlarm(nullptr), RCEx::ExNullPtr);
}

TEST(MtAlarmManager, IsOneForTheProcess)
{
    MtAlarmManager &manager = MtAlarmManager::getInstance();
    EXPECT_EQ(&MtAlarmManager::getInstance(), &manager);
    std::binary_semaphore called(0);
    Call call([&](Alarm const &, bool) { called.release(); });
    Alarm const alarm = manager.createHandle();
    alarm->setCallback(&call);
    alarm->setDuration(0.002);
    double const before = Sleeper::getInstance().getTime();
    manager.registerAlarm(alarm);
    called.acquire();
    EXPECT_GE(Sleeper::getInstance().getTime(), before + 0.002);
    manager.deregisterAlarm(alarm);
}

TEST(MtAlarmManager, HasAThreadWithTheUsualStack)
{
    lastStackSize = 0;
    MtAlarmManagerImp manager;
    EXPECT_EQ(lastStackSize, 65536u);
}

TEST(MtAlarmManager, IsNotCreatedWithoutAThread)
{
    unsigned const nbThreads = MtThreadMgr::getInstance().getNbThreads();
    refuseThread(1);
    EXPECT_EQ(failedAssertion([] { MtAlarmManagerImp manager; }), "threadHandle != NULL");
    EXPECT_EQ(MtThreadMgr::getInstance().getNbThreads(), nbThreads);
}

TEST(MtAlarmManagerDeathTest, ACallbackThatThrowsEndsTheProcess)
{
    EXPECT_EXIT(
        {
            MtAlarmManagerImp manager;
            Call call([](Alarm const &, bool) { throw std::runtime_error("no alarm"); });
            Alarm const alarm = manager.createHandle();
            alarm->setCallback(&call);
            manager.registerAlarm(alarm);
            std::binary_semaphore(0).acquire();
        },
        aborted(), "no alarm");
}

// ---- deregistration

TEST_F(MtAlarmManagerTest, ADeregisteredAlarmDoesNotCome)
{
    Alarm const alarm = add("alarm", 1.0);
    Alarm const other = add("other", 2.0);
    manager().deregisterAlarm(alarm);
    EXPECT_FALSE(alarm->isRegistered());
    EXPECT_TRUE(alarm.isUnique());
    manager().deregisterAlarm(alarm);
    passTo(3.0);
    EXPECT_EQ(_record.getText(), "other;");
    EXPECT_FALSE(alarm->hasOccurred());
}

TEST_F(MtAlarmManagerTest, DeregisteringAnUnregisteredAlarmHasNoEffect)
{
    Alarm const alarm = manager().createHandle();
    manager().deregisterAlarm(alarm);
    EXPECT_FALSE(alarm->isRegistered());
    // Another manager cannot deregister it either.
    Alarm const mine = add("mine", 1.0);
    {
        MtAlarmManagerImp other;
        other.deregisterAlarm(mine);
        EXPECT_TRUE(mine->isRegistered());
    }
    passTo(1.0);
    EXPECT_EQ(_record.getText(), "mine;");
}

TEST_F(MtAlarmManagerTest, ACallbackEndsItsOwnRepeatsWithoutWaiting)
{
    int nbCalls = 0;
    Call call([&](Alarm const &alarm, bool) {
        if (++nbCalls == 3) {
            manager().deregisterAlarm(alarm);
            EXPECT_FALSE(alarm->isRegistered());
        }
    });
    Alarm const alarm = make(call);
    alarm->setDuration(1.0);
    alarm->setRepeatDuration(1.0);
    alarm->setRequestedRepeats(100);
    manager().registerAlarm(alarm);
    for (int second = 1; second != 10; ++second)
        passTo(second);
    EXPECT_EQ(nbCalls, 3);
    EXPECT_EQ(alarm->getRepeatCount(), 2U);
    EXPECT_FALSE(alarm->isRegistered());
    EXPECT_TRUE(alarm.isUnique());
}

TEST_F(MtAlarmManagerTest, ACallbackMayRegisterItsAlarmAnew)
{
    std::vector<double> moments;
    Call call([&](Alarm const &alarm, bool) {
        moments.push_back(VirtualTime::getTime() - _start);
        manager().deregisterAlarm(alarm);
        alarm->setDuration(static_cast<double>(moments.size()));
        if (moments.size() != 4)
            manager().registerAlarm(alarm);
        EXPECT_EQ(alarm->isRegistered(), moments.size() != 4);
    });
    for (unsigned const nbRepeats : {0U, 7U}) {
        moments.clear();
        _start = VirtualTime::getTime();
        Alarm const alarm = make(call);
        alarm->setDuration(1.0);
        alarm->setRequestedRepeats(nbRepeats);
        alarm->setRepeatDuration(0.1);
        manager().registerAlarm(alarm);
        for (int second = 1; second != 20; ++second) {
            passTo(second);
            EXPECT_EQ(alarm->isRegistered(), moments.size() != 4);
        }
        EXPECT_EQ(moments, (std::vector<double>{1.0, 2.0, 4.0, 7.0}));
        EXPECT_EQ(alarm->getRepeatCount(), 0U);
        EXPECT_TRUE(alarm.isUnique());
    }
}

TEST_F(MtAlarmManagerTest, ACallbackMayTakeItsNewRegistrationBack)
{
    Call call([&](Alarm const &alarm, bool) {
        _record.add("call");
        manager().deregisterAlarm(alarm);
        alarm->setDuration(1.0);
        manager().registerAlarm(alarm);
        manager().deregisterAlarm(alarm);
    });
    Alarm const alarm = add(call, 1.0);
    passTo(1.0);
    EXPECT_FALSE(alarm->isRegistered());
    EXPECT_TRUE(alarm.isUnique());
    passTo(10.0);
    EXPECT_EQ(_record.getText(), "call;");
}

TEST_F(MtAlarmManagerTest, ACallbackMayRegisterAndDeregisterOthers)
{
    Alarm const victim = add("victim", 1.0);
    Alarm added;
    Call call([&](Alarm const &, bool) {
        _record.add("call");
        manager().deregisterAlarm(victim);
        added = add("added", 1.0);
    });
    Alarm const alarm = add(call, 1.0);
    passTo(1.0);
    EXPECT_EQ(_record.getText(), "call;added;");
    EXPECT_FALSE(victim->isRegistered());
}

/// Callback that waits until the test releases it.
class HeldCall
{
public:
    HeldCall()
        : _call([this](Alarm const &, bool) {
              ++_nbCalls;
              _isRunning = true;
              _begun.release();
              _go.acquire();
              _isRunning = false;
          })
    {}

    Call _call;
    std::counting_semaphore<> _begun{0};
    std::counting_semaphore<> _go{0};
    std::atomic<bool> _isRunning = false;
    std::atomic<int> _nbCalls = 0;
};

TEST_F(MtAlarmManagerTest, ADeregistrationWaitsForACallThatIsUnderWay)
{
    HeldCall held;
    Alarm const alarm = make(held._call);
    alarm->setDuration(1.0);
    alarm->setRepeatDuration(0.0);
    alarm->setRequestedRepeats(1000000);
    manager().registerAlarm(alarm);
    beginToPassTo(1.0);
    held._begun.acquire();
    std::atomic<int> nbReturned = 0;
    auto const deregister = [&] {
        manager().deregisterAlarm(alarm);
        EXPECT_FALSE(held._isRunning);
        EXPECT_FALSE(alarm->isRegistered());
        ++nbReturned;
    };
    std::thread one(deregister);
    std::thread other(deregister);
    VirtualTime::awaitAsleep(2); // both wait, and the manager's thread is in the callback
    EXPECT_EQ(nbReturned, 0);
    EXPECT_TRUE(alarm->isRegistered());
    held._go.release();
    one.join();
    other.join();
    VirtualTime::awaitAsleep();
    EXPECT_EQ(held._nbCalls, 1); // although the next repeat was due
}

TEST_F(MtAlarmManagerTest, ADeregistrationDoesNotWaitForOthersCalls)
{
    HeldCall held;
    Alarm const alarm = add(held._call, 1.0);
    Alarm const other = add("other", 1.0);
    Alarm const later = add("later", 2.0);
    beginToPassTo(1.0);
    held._begun.acquire();
    EXPECT_EQ(_record.getText(), "other;");
    manager().deregisterAlarm(other);
    manager().deregisterAlarm(later);
    EXPECT_TRUE(held._isRunning);
    Alarm const added = add("added", 1.0); // a registration does not wait either
    held._go.release();
    VirtualTime::awaitAsleep();
    passTo(3.0);
    EXPECT_EQ(_record.getText(), "other;added;");
}

TEST_F(MtAlarmManagerTest, ADeregistrationReturnsThoughOthersAreAlwaysDue)
{
    std::atomic<bool> isOver = false;
    Call restless([&](Alarm const &alarm, bool) {
        if (isOver)
            manager().deregisterAlarm(alarm);
    });
    Alarm const busy = make(restless);
    busy->setDuration(1.0);
    busy->setRequestedRepeats(std::numeric_limits<unsigned>::max());
    manager().registerAlarm(busy);
    HeldCall held;
    Alarm const alarm = add(held._call, 1.0);
    beginToPassTo(1.0);
    held._begun.acquire();
    std::thread thread([&] { manager().deregisterAlarm(alarm); });
    VirtualTime::awaitAsleep();
    held._go.release();
    thread.join(); // while the other alarm is called again and again
    isOver = true;
    VirtualTime::awaitAsleep();
    EXPECT_EQ(held._nbCalls, 1);
}

TEST_F(MtAlarmManagerTest, ACallbackThatRegistersItsAlarmAgainCanBeDeregisteredFromOutside)
{
    HeldCall held;
    Call call([&](Alarm const &alarm, bool) {
        manager().deregisterAlarm(alarm);
        alarm->setDuration(0.0);
        manager().registerAlarm(alarm);
        held._begun.release();
        held._go.acquire();
    });
    Alarm const alarm = add(call, 1.0);
    beginToPassTo(1.0);
    held._begun.acquire();
    std::thread thread([&] { manager().deregisterAlarm(alarm); });
    VirtualTime::awaitAsleep();
    held._go.release(1000000); // for any number of calls
    thread.join();
    EXPECT_FALSE(alarm->isRegistered());
    VirtualTime::awaitAsleep();
    EXPECT_TRUE(alarm.isUnique());
    EXPECT_FALSE(held._begun.try_acquire());
}

// ---- repeats that are always due

/// Fixture with an alarm whose repeats have the duration 0.
class MtRestlessAlarmTest : public MtAlarmManagerTest
{
protected:
    ~MtRestlessAlarmTest() noexcept override = default;

    void addRestless(unsigned nbRepeats)
    {
        _alarm->setCallback(&_call);
        _alarm->setAlarmTime(_start + 1.0);
        _alarm->setRequestedRepeats(nbRepeats);
        manager().registerAlarm(_alarm);
    }

    std::atomic<int> _nbCalls = 0;
    std::atomic<int> _nbFarewells = 0;
    Call _call{[this](Alarm const &, bool goingAway) { ++(goingAway ? _nbFarewells : _nbCalls); }};
    Alarm _alarm = manager().createHandle();
};

TEST_F(MtRestlessAlarmTest, IsCalledBeforeLaterOnes)
{
    addRestless(999);
    int nbBefore = 0;
    Call call([&](Alarm const &, bool) { nbBefore = _nbCalls; });
    Alarm const later = add(call, 1.5);
    passTo(2.0);
    EXPECT_EQ(nbBefore, 1000);
    EXPECT_EQ(_nbCalls, 1000);
    EXPECT_FALSE(_alarm->isRegistered());
}

TEST_F(MtRestlessAlarmTest, LeavesOthersTheirTurn)
{
    addRestless(std::numeric_limits<unsigned>::max());
    std::binary_semaphore called(0);
    Call call([&](Alarm const &, bool) { called.release(); });
    Alarm const later = add(call, 1.5);
    beginToPassTo(2.0);
    called.acquire();
    EXPECT_GE(_nbCalls, 1000);
    EXPECT_EQ(_alarm->getAlarmTime(), _start + 1.0) << "its own moment stays";
    manager().deregisterAlarm(_alarm);
    EXPECT_FALSE(_alarm->isRegistered());
}

TEST_F(MtRestlessAlarmTest, DoesNotKeepTheManagerFromItsEnd)
{
    addRestless(std::numeric_limits<unsigned>::max());
    beginToPassTo(1.0);
    while (_nbCalls == 0)
        std::this_thread::yield();
    end();
    EXPECT_EQ(_nbFarewells, 1);
    EXPECT_FALSE(_alarm->isRegistered());
}

// ---- end of the manager

TEST_F(MtAlarmManagerTest, TheManagersEndIsReportedToAllRemainingAlarms)
{
    Alarm const two = add("two", 2.0);
    Alarm const over = add("over", 0.5);
    Alarm const otherTwo = add("other two", 2.0);
    Alarm const one = add("one", 1.0);
    add("nobody's", 3.0);
    LkThreadId caller;
    Call call([&](Alarm const &alarm, bool goingAway) {
        EXPECT_TRUE(goingAway);
        EXPECT_TRUE(alarm->isRegistered());
        caller.setCurrentThread();
    });
    Alarm const here = add(call, 4.0);
    passTo(0.5);
    EXPECT_EQ(_record.takeText(), "over;");
    end();
    EXPECT_EQ(_record.getText(), "one goes;other two goes;two goes;nobody's goes;");
    EXPECT_TRUE(caller.isCurrentThread());
    for (Alarm const &alarm : {one, two, otherTwo, here}) {
        EXPECT_FALSE(alarm->isRegistered());
        EXPECT_TRUE(alarm->hasOccurred());
    }
}

TEST_F(MtAlarmManagerTest, ACallAtTheManagersEndMayRegisterAndDeregister)
{
    Alarm const victim = add("victim", 2.0);
    Alarm added;
    Call call([&](Alarm const &alarm, bool) {
        manager().deregisterAlarm(victim);
        manager().deregisterAlarm(alarm);
        manager().registerAlarm(alarm);
        added = add("added", 3.0);
    });
    Alarm const alarm = add(call, 1.0);
    end();
    EXPECT_EQ(_record.getText(), "added goes;");
    EXPECT_FALSE(alarm->isRegistered());
    EXPECT_FALSE(victim->isRegistered());
    EXPECT_FALSE(added->isRegistered());
}

TEST_F(MtAlarmManagerTest, AThrowingCallAtTheManagersEndDoesNotAffectTheOthers)
{
    Call call([](Alarm const &, bool) { throw std::runtime_error("not now"); });
    Alarm const failing = add(call, 1.0);
    Alarm const alarm = add("alarm", 2.0);
    try {
        _isOver = true;
        delete _manager;
        ADD_FAILURE() << "nothing was thrown";
    } catch (std::runtime_error const &error) {
        EXPECT_STREQ(error.what(), "not now");
    }
    EXPECT_EQ(_record.getText(), "alarm goes;");
    EXPECT_FALSE(failing->isRegistered());
}

TEST_F(MtAlarmManagerTest, AManagerThatIsDestroyedWhileItCallsLetsTheCallEnd)
{
    HeldCall held;
    Alarm const alarm = add(held._call, 1.0);
    Alarm const later = add("later", 2.0);
    beginToPassTo(1.0);
    held._begun.acquire();
    std::atomic<long> number = 0;
    std::thread thread([&] {
        number = threadNumber();
        end();
    });
    while (!number)
        std::this_thread::yield();
    waitUntilAsleep(number);
    EXPECT_TRUE(held._isRunning);
    held._go.release();
    thread.join();
    EXPECT_EQ(held._nbCalls, 1);
    EXPECT_EQ(_record.getText(), "later goes;");
}

// ---- many alarms

TEST_F(MtAlarmManagerTest, ManyAlarmsComeInOrder)
{
    constexpr int NB = 20000;
    std::vector<double> moments;
    Call call([&](Alarm const &alarm, bool) { moments.push_back(alarm->getAlarmTime()); });
    std::vector<Alarm> alarms;
    std::uint32_t random = 1;
    for (int i = 0; i != NB; ++i) {
        random = random * 1664525 + 1013904223;
        alarms.push_back(add(call, 1.0 + random % 1000 * 0.001));
    }
    for (int i = 0; i < NB; i += 3)
        manager().deregisterAlarm(alarms[static_cast<std::size_t>(i)]);
    passTo(10.0);
    EXPECT_EQ(moments.size(), static_cast<std::size_t>(NB - (NB + 2) / 3));
    EXPECT_TRUE(std::is_sorted(moments.begin(), moments.end()));
}

TEST(MtAlarmManager, ThreadsRegisterAndDeregisterAtTheirPleasure)
{
    MtAlarmManagerImp manager;
    constexpr int NB_THREADS = 4;
    constexpr int NB_ROUNDS = 2000;
    std::atomic<int> nbCalls = 0;
    auto const body = [&](unsigned seed) {
        std::atomic<bool> isRunning = false;
        std::atomic<bool> isWanted = false;
        Call call([&](Alarm const &alarm, bool) {
            isRunning = true;
            EXPECT_TRUE(isWanted);
            ++nbCalls;
            if (alarm->getRepeatCount() % 5 == 4)
                manager.deregisterAlarm(alarm);
            isRunning = false;
        });
        std::uint32_t random = seed;
        for (int i = 0; i != NB_ROUNDS; ++i) {
            random = random * 1664525 + 1013904223;
            Alarm alarm = manager.createHandle();
            alarm->setCallback(&call);
            alarm->setDuration(random % 4 * 0.0001);
            alarm->setRequestedRepeats(random / 4 % 8);
            isWanted = true;
            manager.registerAlarm(alarm);
            if (random / 32 % 4 == 0)
                while (!alarm->hasOccurred())
                    std::this_thread::yield();
            manager.deregisterAlarm(alarm);
            isWanted = false;
            ASSERT_FALSE(isRunning);
            ASSERT_FALSE(alarm->isRegistered());
        }
    };
    std::vector<std::thread> threads;
    for (unsigned i = 0; i != NB_THREADS; ++i)
        threads.emplace_back(body, i);
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_GE(nbCalls, NB_THREADS * NB_ROUNDS / 8);
}

} // namespace

} // namespace ZvTest
