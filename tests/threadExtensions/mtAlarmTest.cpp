#include "resmgt/threadExtensions/mtAlarmManager.h"

#include "aborted.h"
#include "asleep.h"
#include "refusedThreads.h"
#include "resmgt/locks/lkThreadId.h"
#include "resmgt/threadExtensions/mtAlarmManagerImp.private.h"
#include "resmgt/threads/mtThreadMgr.h"
#include "resmgt/threads/priorityRelation.h"
#include "resmgt/threads/rtPriorities.h"
#include "virtualTime.h"
#include "zvbase/assertions.h"
#include "zvbase/rcEx.h"
#include "zvbase/sleeper.h"

#include <gtest/gtest.h>

#include <atomic>
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

namespace Zv {
namespace {

using Alarm = RCShdPtr<MtAlarmHandle>;

constexpr double FOR_EVER = std::numeric_limits<double>::infinity();

/// A callback out of a callable.
class Call : public MtAlarmHandle::Callback
{
public:
    using Action = std::function<void(Alarm const &, bool)>;

    explicit Call(Action action) : _action(std::move(action)) {}
    void performAlarm(Alarm handle, bool goingAway) override { _action(handle, goingAway); }

private:
    Action _action;
};

/// Writes down who was called when.
class Record
{
public:
    void note(std::string const &what)
    {
        std::lock_guard const guard(_mutex);
        _text += what + ';';
    }
    std::string get() const
    {
        std::lock_guard const guard(_mutex);
        return _text;
    }
    std::string take()
    {
        std::lock_guard const guard(_mutex);
        return std::exchange(_text, {});
    }

private:
    mutable std::mutex _mutex;
    std::string _text;
};

/// Writes its name down, with a mark where the manager is going away.
class Named : public MtAlarmHandle::Callback
{
public:
    Named(Record &record, std::string name) : _record(record), _name(std::move(name)) {}
    void performAlarm(Alarm, bool goingAway) override
    {
        _record.note(goingAway ? _name + " goes" : _name);
    }

private:
    Record &_record;
    std::string _name;
};

std::string failedExpression(std::function<void()> const &action)
{
    try {
        action();
    } catch (AssertionFailed const &failure) {
        return failure.getExpression();
    }
    return "nothing failed";
}

/// Reaches what managers reach.
struct Manipulator : MtAlarmHandleManipulator
{
    using MtAlarmHandleManipulator::callCallback;
    using MtAlarmHandleManipulator::createHandle;
    using MtAlarmHandleManipulator::prepareForRegistration;
    using MtAlarmHandleManipulator::setRegistered;
    using MtAlarmHandleManipulator::setRegisteredAlarmTime;
};

/// A manager of the test's own, in a time of its own.
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
        // Those who are called meanwhile still reach it.
        std::unique_ptr<MtAlarmManagerImp> const ending(_manager);
        _isOver = true;
    }

    Alarm make(MtAlarmHandle::Callback &callback)
    {
        Alarm alarm(manager().createHandle());
        alarm->setCallback(&callback);
        return alarm;
    }
    /// An alarm that writes its name down, so many seconds from now.
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
    /// Lets time pass to so many seconds after the test's start, and returns at once.
    void beginToPassTo(double seconds)
    {
        VirtualTime::awaitAsleep(); // or the thread would measure its wait from the new time on
        VirtualTime::passTo(_start + seconds);
    }
    /// The same, and the alarms come that are due.
    void passTo(double seconds)
    {
        beginToPassTo(seconds);
        VirtualTime::awaitAsleep();
    }

    VirtualTime _time;
    double _start = VirtualTime::getTime();
    Record _record;
    std::vector<std::unique_ptr<Named>> _callbacks;
    MtAlarmManagerImp *_manager;
    bool _isOver = false;
};

// ---- handles

TEST_F(MtAlarmManagerTest, ANewHandleIsAllZero)
{
    Alarm const alarm = manager().createHandle();
    EXPECT_TRUE(alarm.isUnique());
    EXPECT_EQ(0.0, alarm->getTimeRegistered());
    EXPECT_EQ(0.0, alarm->getAlarmTime());
    EXPECT_EQ(0.0, alarm->getDuration());
    EXPECT_EQ(0.0, alarm->getRepeatDuration());
    EXPECT_EQ(0U, alarm->getRequestedRepeats());
    EXPECT_EQ(0U, alarm->getRepeatCount());
    EXPECT_FALSE(alarm->hasOccurred());
    EXPECT_FALSE(alarm->isRegistered());
}

TEST_F(MtAlarmManagerTest, AHandleWithoutACallbackIsNotRegistered)
{
    Alarm const alarm = manager().createHandle();
    manager().registerAlarm(alarm);
    EXPECT_FALSE(alarm->isRegistered());
    EXPECT_EQ(0.0, alarm->getTimeRegistered());
    EXPECT_TRUE(alarm.isUnique());
}

TEST_F(MtAlarmManagerTest, ACallbackIsNotNull)
{
    Alarm const alarm = manager().createHandle();
    EXPECT_EQ("callback", failedExpression([&] { alarm->setCallback(nullptr); }));
    EXPECT_EQ("_callback", failedExpression([&] { Manipulator::callCallback(*alarm, false); }));
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
    EXPECT_EQ(_start + 10.0, alarm->getAlarmTime());
    EXPECT_EQ(10.0, alarm->getDuration());
    EXPECT_EQ(0.0, alarm->getRepeatDuration());
    EXPECT_EQ(0U, alarm->getRequestedRepeats());
    passTo(9.0);
    EXPECT_EQ("", _record.get());
    passTo(10.0);
    EXPECT_EQ("alarm;", _record.get());
}

TEST_F(MtAlarmManagerTest, TheLastOfAlarmTimeAndDurationCounts)
{
    Named callback(_record, "alarm");
    Alarm const alarm = make(callback);
    alarm->setDuration(5.0);
    alarm->setAlarmTime(_start + 3.0);
    passTo(1.0);
    manager().registerAlarm(alarm);
    EXPECT_EQ(_start + 1.0, alarm->getTimeRegistered());
    EXPECT_EQ(_start + 3.0, alarm->getAlarmTime());
    EXPECT_EQ(2.0, alarm->getDuration());
    passTo(3.0);
    EXPECT_EQ("alarm;", _record.take());

    alarm->setAlarmTime(_start + 100.0);
    alarm->setDuration(0.5);
    manager().registerAlarm(alarm);
    EXPECT_EQ(_start + 3.0, alarm->getTimeRegistered());
    EXPECT_EQ(_start + 3.5, alarm->getAlarmTime());
    EXPECT_EQ(0.5, alarm->getDuration());
    passTo(3.5);
    EXPECT_EQ("alarm;", _record.take());
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
    EXPECT_EQ(1.0, alarm->getTimeRegistered());
    EXPECT_EQ(3.0, alarm->getAlarmTime());
    Manipulator::setRegisteredAlarmTime(*alarm, 11.0);
    EXPECT_EQ(11.0, alarm->getAlarmTime());
    Manipulator::callCallback(*alarm, false);
    EXPECT_TRUE(alarm->hasOccurred());
    EXPECT_EQ(0U, alarm->getRepeatCount());
    Manipulator::callCallback(*alarm, true);
    EXPECT_EQ(1U, alarm->getRepeatCount());
    EXPECT_EQ("alarm;alarm goes;", _record.get());
    Manipulator::setRegistered(*alarm, false);
    EXPECT_FALSE(alarm->isRegistered());
    EXPECT_TRUE(Manipulator::prepareForRegistration(*alarm, 1.0));
    EXPECT_FALSE(alarm->hasOccurred());
    EXPECT_EQ(1U, alarm->getRepeatCount()); // goes on over registrations
}

// ---- times

TEST_F(MtAlarmManagerTest, AnAlarmComesAtItsTimeAndNotBefore)
{
    Alarm const alarm = add("alarm", 2.0);
    EXPECT_TRUE(alarm->isRegistered());
    passTo(1.999999);
    EXPECT_EQ("", _record.get());
    EXPECT_FALSE(alarm->hasOccurred());
    passTo(2.001);
    EXPECT_EQ("alarm;", _record.get());
    EXPECT_TRUE(alarm->hasOccurred());
    EXPECT_FALSE(alarm->isRegistered());
    EXPECT_TRUE(alarm.isUnique());
}

TEST_F(MtAlarmManagerTest, AnAlarmThatIsPutOffAgainAndAgainWakesNobodyBeforeItsFirstMoment)
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
    EXPECT_EQ(nbSleeps, VirtualTime::getNbSleeps());
    EXPECT_NEAR(_start + 5.0, VirtualTime::getFirstDeadline(), 0.001);
    passTo(5.001); // woken for nothing
    EXPECT_EQ(nbSleeps + 1, VirtualTime::getNbSleeps());
    EXPECT_NEAR(_start + 9.5, VirtualTime::getFirstDeadline(), 0.001);

    manager().deregisterAlarm(watchdog);
    watchdog->setDuration(1.0); // sooner than anybody wakes by himself
    manager().registerAlarm(watchdog);
    passTo(6.002);
    EXPECT_EQ("bite;", _record.get());
}

TEST_F(MtAlarmManagerTest, AnAlarmInThePastComesAtOnce)
{
    passTo(10.0);
    Alarm const alarm = add("past", 3.0);
    VirtualTime::awaitAsleep();
    EXPECT_EQ("past;", _record.get());
    EXPECT_EQ(-7.0, alarm->getDuration());
}

TEST_F(MtAlarmManagerTest, AnAlarmOfThisMomentComesAtOnce)
{
    Alarm const alarm = add("now", 0.0);
    VirtualTime::awaitAsleep();
    EXPECT_EQ("now;", _record.get());
}

TEST_F(MtAlarmManagerTest, AlarmsComeInTheOrderOfTheirTimes)
{
    std::vector<Alarm> const alarms = {add("three", 3.0), add("one", 1.0), add("four", 4.0),
                                       add("two", 2.0)};
    passTo(2.5);
    EXPECT_EQ("one;two;", _record.take());
    passTo(10.0);
    EXPECT_EQ("three;four;", _record.take());
}

TEST_F(MtAlarmManagerTest, AlarmsOfOneTimeComeInReverseOrderOfRegistration)
{
    std::vector<Alarm> const alarms = {add("first", 1.0), add("second", 1.0), add("before", 0.5),
                                       add("third", 1.0)};
    passTo(1.0);
    EXPECT_EQ("before;third;second;first;", _record.get());
}

TEST_F(MtAlarmManagerTest, AHandleThatNobodyHoldsIsDroppedWithoutACall)
{
    Alarm const kept = add("kept", 1.0);
    Alarm dropped = add("dropped", 1.0);
    Alarm const other = add("other", 1.0);
    dropped = nullptr;
    passTo(1.0);
    EXPECT_EQ("other;kept;", _record.get());
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
            if (call == 1) { // by design, together with the first call
                expected += "call;";
                continue;
            }
            double const due = start + 1.0 + (call == 0 ? 0 : call - 1) * 0.25;
            EXPECT_EQ(_start + due, alarm->getAlarmTime());
            passTo(due - 0.001);
            EXPECT_EQ(expected, _record.get());
            EXPECT_TRUE(alarm->isRegistered());
            passTo(due);
            expected += "call;";
            EXPECT_EQ(expected + (call == 0 && nbRepeats ? "call;" : ""), _record.get());
        }
        EXPECT_FALSE(alarm->isRegistered());
        EXPECT_EQ(nbRepeats, alarm->getRepeatCount());
        passTo(start + 100.0);
        EXPECT_EQ(expected, _record.take());
    }
}

TEST_F(MtAlarmManagerTest, RepeatsAreCountedFromTheRegistrationHoweverLateACallIs)
{
    std::vector<double> moments;
    Call call([&](Alarm const &, bool) {
        moments.push_back(VirtualTime::getTime() - _start);
        VirtualTime::pass(moments.size() == 3 ? 5.5 : 0.125); // each call takes its time
    });
    Alarm const alarm = make(call);
    alarm->setDuration(1.0);
    alarm->setRepeatDuration(1.0);
    alarm->setRequestedRepeats(9);
    manager().registerAlarm(alarm);
    for (int second = 1; second != 20; ++second)
        passTo(second);
    EXPECT_EQ((std::vector<double>{1.0, 1.125, 2.0, 7.5, 7.625, 7.75, 7.875, 8.0, 8.125, 9.0}),
              moments);
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
    EXPECT_EQ(5000, nbCalls);
    EXPECT_LT(worst, 0.0031); // a call's length: that of the first repeat
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
    EXPECT_EQ("call;call;", _record.take());
    // Its repeats are used up.
    manager().registerAlarm(alarm);
    EXPECT_FALSE(alarm->hasOccurred());
    EXPECT_EQ(_start + 3.0, alarm->getAlarmTime());
    passTo(10.0);
    EXPECT_EQ("call;", _record.take());
    EXPECT_EQ(1U, alarm->getRepeatCount());
}

TEST_F(MtAlarmManagerTest, ASecondRegistrationDoesNothing)
{
    Alarm const alarm = add("alarm", 2.0);
    passTo(1.0);
    manager().registerAlarm(alarm);
    EXPECT_EQ(_start, alarm->getTimeRegistered());
    passTo(5.0);
    EXPECT_EQ("alarm;", _record.get());
}

TEST_F(MtAlarmManagerTest, AnAlarmFarAwayComesAllTheSame)
{
    constexpr double DAY = 86400.0;
    Alarm const distant = add("far", 100 * DAY);
    VirtualTime::awaitAsleep();
    EXPECT_LT(VirtualTime::getFirstDeadline(), _start + 50 * DAY); // what one wait can do
    passTo(99 * DAY);
    EXPECT_EQ("", _record.get());
    passTo(100 * DAY);
    EXPECT_EQ("far;", _record.get());
}

TEST_F(MtAlarmManagerTest, AnAlarmForNeverNeverComes)
{
    Alarm const never = add("never", FOR_EVER);
    Alarm const alarm = add("alarm", 1.0);
    passTo(1e8);
    EXPECT_EQ("alarm;", _record.get());
    manager().deregisterAlarm(never);
    EXPECT_FALSE(never->isRegistered());
}

// ---- the thread

TEST_F(MtAlarmManagerTest, TheThreadSleepsAsLongAsNothingIsDue)
{
    EXPECT_EQ(FOR_EVER, VirtualTime::getFirstDeadline());
    int const nbSleeps = VirtualTime::getNbSleeps();
    Alarm const late = add("late", 100.0);
    VirtualTime::awaitAsleep();
    EXPECT_EQ(nbSleeps + 1, VirtualTime::getNbSleeps());
    EXPECT_NEAR(_start + 100.0, VirtualTime::getFirstDeadline(), 1e-6);
    // Behind the first one, nobody is woken.
    std::vector<Alarm> alarms;
    for (int i = 0; i != 50; ++i)
        alarms.push_back(add("later", 101.0 + i));
    for (Alarm const &alarm : alarms)
        manager().deregisterAlarm(alarm);
    EXPECT_EQ(nbSleeps + 1, VirtualTime::getNbSleeps());
    Alarm const early = add("early", 1.0);
    VirtualTime::awaitAsleep();
    EXPECT_EQ(nbSleeps + 2, VirtualTime::getNbSleeps());
    EXPECT_NEAR(_start + 1.0, VirtualTime::getFirstDeadline(), 1e-6);
    // Pulses that were sent before wake nobody again.
    passTo(1.0);
    EXPECT_EQ("early;", _record.get());
    EXPECT_EQ(nbSleeps + 3, VirtualTime::getNbSleeps());
    EXPECT_NEAR(_start + 100.0, VirtualTime::getFirstDeadline(), 1e-6);
    passTo(100.0);
    EXPECT_EQ(FOR_EVER, VirtualTime::getFirstDeadline());
    EXPECT_EQ(nbSleeps + 4, VirtualTime::getNbSleeps());
}

TEST_F(MtAlarmManagerTest, ARestBelowTheWaitsUnitIsSleptThrough)
{
    int const nbSleeps = VirtualTime::getNbSleeps();
    Alarm const alarm = add("alarm", 0.0003);
    VirtualTime::awaitAsleep();
    EXPECT_EQ(nbSleeps + 1, VirtualTime::getNbSleeps());
    EXPECT_NEAR(_start + 0.001, VirtualTime::getFirstDeadline(), 1e-9);
    passTo(0.001);
    EXPECT_EQ("alarm;", _record.get());
}

TEST_F(MtAlarmManagerTest, ARestThatIsNegligibleIsNotSleptThrough)
{
    // The first look at the clock finds the alarm 50 ns away, the next one finds it due.
    Alarm const second = add("second", 1.00000005);
    Call call([&](Alarm const &, bool) {
        _record.note("first");
        EXPECT_TRUE(second->isRegistered());
    });
    Alarm const first = add(call, 1.0);
    VirtualTime::awaitAsleep();
    int const nbSleeps = VirtualTime::getNbSleeps();
    beginToPassTo(1.0);
    while (_record.get() != "first;")
        std::this_thread::yield();
    EXPECT_EQ(nbSleeps, VirtualTime::getNbSleeps()); // it looks at the clock
    VirtualTime::passTo(_start + 1.00000005);
    VirtualTime::awaitAsleep();
    EXPECT_EQ("first;second;", _record.get());
    EXPECT_EQ(nbSleeps + 1, VirtualTime::getNbSleeps());
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
    EXPECT_EQ("MtAlarmThread", name);
    EXPECT_FALSE(id.isCurrentThread());
}

TEST_F(MtAlarmManagerTest, TheThreadFollowsTheManagersPriority)
{
    Priority &priority = manager().getPriority();
    EXPECT_EQ("AlarmManagerImp", priority.getName());
    EXPECT_FALSE(priority.isPriorityFixed());
    EXPECT_EQ(0, priority.getPriority());
    std::ostringstream text;
    priority.dump(text, true);
    EXPECT_NE(
        std::string::npos,
        text.str().find("\n\"equalToAlarmManager\" : AlarmManagerImp (    0 ) == MtAlarmThread ("
                        "    0 ) valid\n"))
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
    EXPECT_EQ(2, level);
}

TEST_F(MtAlarmManagerTest, TheResolutionIsKept)
{
    EXPECT_EQ(0.02, manager().getResolution());
    manager().setResolution(0.5);
    EXPECT_EQ(0.5, manager().getResolution());
}

TEST_F(MtAlarmManagerTest, ANullHandleIsRefused)
{
    EXPECT_THROW(manager().registerAlarm(nullptr), RCEx::ExNullPtr);
    EXPECT_THROW(manager().deregisterAlarm(nullptr), RCEx::ExNullPtr);
}

TEST(MtAlarmManager, IsOneForTheProcess)
{
    MtAlarmManager &manager = MtAlarmManager::getInstance();
    EXPECT_EQ(&manager, &MtAlarmManager::getInstance());
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
    EXPECT_EQ(65536u, lastStackSize);
}

TEST(MtAlarmManager, WithoutAThreadThereIsNone)
{
    unsigned const nbThreads = MtThreadMgr::getInstance().getNbThreads();
    refuseThread(1);
    EXPECT_EQ("threadHandle != NULL", failedExpression([] { MtAlarmManagerImp manager; }));
    EXPECT_EQ(nbThreads, MtThreadMgr::getInstance().getNbThreads());
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
        ZvTest::aborted(), "no alarm");
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
    EXPECT_EQ("other;", _record.get());
    EXPECT_FALSE(alarm->hasOccurred());
}

TEST_F(MtAlarmManagerTest, WhatWasNeverRegisteredIsDeregisteredWithoutEffect)
{
    Alarm const alarm = manager().createHandle();
    manager().deregisterAlarm(alarm);
    EXPECT_FALSE(alarm->isRegistered());
    // Nor does it come off another manager.
    Alarm const mine = add("mine", 1.0);
    {
        MtAlarmManagerImp other;
        other.deregisterAlarm(mine);
        EXPECT_TRUE(mine->isRegistered());
    }
    passTo(1.0);
    EXPECT_EQ("mine;", _record.get());
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
    EXPECT_EQ(3, nbCalls);
    EXPECT_EQ(2U, alarm->getRepeatCount());
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
        EXPECT_EQ(moments.size() != 4, alarm->isRegistered());
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
            EXPECT_EQ(moments.size() != 4, alarm->isRegistered());
        }
        EXPECT_EQ((std::vector<double>{1.0, 2.0, 4.0, 7.0}), moments);
        EXPECT_EQ(0U, alarm->getRepeatCount());
        EXPECT_TRUE(alarm.isUnique());
    }
}

TEST_F(MtAlarmManagerTest, ACallbackMayTakeItsNewRegistrationBack)
{
    Call call([&](Alarm const &alarm, bool) {
        _record.note("call");
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
    EXPECT_EQ("call;", _record.get());
}

TEST_F(MtAlarmManagerTest, ACallbackMayRegisterAndDeregisterOthers)
{
    Alarm const victim = add("victim", 1.0);
    Alarm added;
    Call call([&](Alarm const &, bool) {
        _record.note("call");
        manager().deregisterAlarm(victim);
        added = add("added", 1.0);
    });
    Alarm const alarm = add(call, 1.0);
    passTo(1.0);
    EXPECT_EQ("call;added;", _record.get());
    EXPECT_FALSE(victim->isRegistered());
}

/// An alarm whose callback waits until it is let go.
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
    VirtualTime::awaitAsleep(2); // both wait, and the thread of the alarms is in the callback
    EXPECT_EQ(0, nbReturned);
    EXPECT_TRUE(alarm->isRegistered());
    held._go.release();
    one.join();
    other.join();
    VirtualTime::awaitAsleep();
    EXPECT_EQ(1, held._nbCalls); // though the next repeat was due already
}

TEST_F(MtAlarmManagerTest, ADeregistrationDoesNotWaitForOthersCalls)
{
    HeldCall held;
    Alarm const alarm = add(held._call, 1.0);
    Alarm const other = add("other", 1.0);
    Alarm const later = add("later", 2.0);
    beginToPassTo(1.0);
    held._begun.acquire();
    EXPECT_EQ("other;", _record.get());
    manager().deregisterAlarm(other);
    manager().deregisterAlarm(later);
    EXPECT_TRUE(held._isRunning);
    Alarm const added = add("added", 1.0); // nor does a registration
    held._go.release();
    VirtualTime::awaitAsleep();
    passTo(3.0);
    EXPECT_EQ("other;added;", _record.get());
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
    EXPECT_EQ(1, held._nbCalls);
}

TEST_F(MtAlarmManagerTest, ACallbackThatRegistersItsAlarmAnewIsEndedFromOutsideAllTheSame)
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
    held._go.release(1000000); // it may be called as often as it likes
    thread.join();
    EXPECT_FALSE(alarm->isRegistered());
    VirtualTime::awaitAsleep();
    EXPECT_TRUE(alarm.isUnique());
    EXPECT_FALSE(held._begun.try_acquire());
}

// ---- repeats that are always due

/// An alarm with repeats of duration 0.
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

TEST_F(MtRestlessAlarmTest, ComesBeforeLaterOnes)
{
    addRestless(999);
    int nbBefore = 0;
    Call call([&](Alarm const &, bool) { nbBefore = _nbCalls; });
    Alarm const later = add(call, 1.5);
    passTo(2.0);
    EXPECT_EQ(1000, nbBefore);
    EXPECT_EQ(1000, _nbCalls);
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
    EXPECT_EQ(_start + 1.0, _alarm->getAlarmTime()) << "its own moment stays";
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
    EXPECT_EQ(1, _nbFarewells);
    EXPECT_FALSE(_alarm->isRegistered());
}

// ---- the end of the manager

TEST_F(MtAlarmManagerTest, TheManagersEndIsToldToAllThatAreLeft)
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
    EXPECT_EQ("over;", _record.take());
    end();
    EXPECT_EQ("one goes;other two goes;two goes;nobody's goes;", _record.get());
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
    EXPECT_EQ("added goes;", _record.get());
    EXPECT_FALSE(alarm->isRegistered());
    EXPECT_FALSE(victim->isRegistered());
    EXPECT_FALSE(added->isRegistered());
}

TEST_F(MtAlarmManagerTest, ACallThatThrowsAtTheManagersEndKeepsNothingFromTheOthers)
{
    Call call([](Alarm const &, bool) { throw std::runtime_error("not now"); });
    Alarm const failing = add(call, 1.0);
    Alarm const alarm = add("alarm", 2.0);
    try {
        _isOver = true;
        delete _manager;
        ADD_FAILURE() << "nothing was thrown";
    } catch (std::runtime_error const &error) {
        EXPECT_STREQ("not now", error.what());
    }
    EXPECT_EQ("alarm goes;", _record.get());
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
    EXPECT_EQ(1, held._nbCalls);
    EXPECT_EQ("later goes;", _record.get());
}

// ---- many of them

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
    EXPECT_EQ(static_cast<std::size_t>(NB - (NB + 2) / 3), moments.size());
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
} // namespace Zv
