// Tests the order of alarms by comparison with a sorted list.

#include "resmgt/threadExtensions/mtAlarmQueue.private.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <list>
#include <utility>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

using Alarm = RCShdPtr<MtAlarmHandle>;

struct Maker : MtAlarmHandleManipulator
{
    using MtAlarmHandleManipulator::createHandle;
};

/// Sorted list. A new alarm is inserted before the first one that is due at its time or later.
class SortedList
{
public:
    void add(Alarm const &alarm, double time)
    {
        auto const place = std::find_if(_alarms.begin(), _alarms.end(),
                                        [=](auto const &entry) { return entry.second >= time; });
        _alarms.insert(place, {alarm, time});
    }
    bool remove(Alarm const &alarm)
    {
        return _alarms.remove_if([&](auto const &entry) { return entry.first == alarm; }) != 0;
    }
    std::pair<Alarm, double> takeFront()
    {
        auto const front = _alarms.front();
        _alarms.pop_front();
        return front;
    }
    bool isEmpty() const { return _alarms.empty(); }

private:
    std::list<std::pair<Alarm, double>> _alarms;
};

TEST(MtAlarmQueue, KeepsTheOrderOfTheList)
{
    std::uint32_t random = 1;
    auto const below = [&](std::uint32_t limit) {
        random = random * 1664525 + 1013904223;
        return (random >> 8) % limit;
    };
    for (std::uint32_t const nbTimes : {1U, 2U, 10U, 1000000U}) {
        MtAlarmQueue queue;
        SortedList list;
        std::vector<Alarm> alarms;
        auto const compareFronts = [&] {
            auto const front = list.takeFront();
            ASSERT_EQ(queue.getFrontTime(), front.second);
            ASSERT_EQ(&queue.getFront(), front.first.get());
            ASSERT_EQ(queue.takeFront(), front.first);
        };
        for (int step = 0; step != 3000; ++step) {
            std::uint32_t const what = below(10);
            if (what < 6) {
                alarms.push_back(Maker::createHandle());
                double const time = what == 0 ? std::numeric_limits<double>::infinity()
                                              : static_cast<double>(below(nbTimes)) - 5.0;
                queue.add(alarms.back(), time);
                list.add(alarms.back(), time);
            } else if (what < 9 && !alarms.empty()) {
                Alarm const alarm = alarms[below(static_cast<std::uint32_t>(alarms.size()))];
                bool const wasThere = list.remove(alarm);
                ASSERT_EQ(queue.contains(*alarm), wasThere);
                ASSERT_EQ(queue.take(*alarm), wasThere ? alarm : Alarm());
                ASSERT_FALSE(queue.contains(*alarm));
            } else if (!list.isEmpty()) {
                compareFronts();
            }
            ASSERT_EQ(queue.isEmpty(), list.isEmpty());
        }
        while (!list.isEmpty())
            compareFronts();
        EXPECT_TRUE(queue.isEmpty());
    }
}

TEST(MtAlarmQueue, HoldsOneReferenceToEach)
{
    MtAlarmQueue queue;
    std::vector<Alarm> alarms;
    for (int i = 0; i != 100; ++i) {
        alarms.push_back(Maker::createHandle());
        queue.add(alarms.back(), i % 7);
    }
    for (int i = 0; i < 100; i += 2)
        queue.take(*alarms[static_cast<std::size_t>(i)]);
    for (std::size_t i = 0; i != 100; ++i)
        EXPECT_EQ(alarms[i].isUnique(), i % 2 == 0) << i;
    while (!queue.isEmpty())
        queue.takeFront();
    for (Alarm const &alarm : alarms)
        EXPECT_TRUE(alarm.isUnique());
}

TEST(MtAlarmQueue, ANotANumberIsLastAndLeavesTheOrderOfTheOthers)
{
    double const noNumber = std::nan("");
    MtAlarmQueue queue;
    std::vector<Alarm> alarms;
    for (int i = 0; i != 60; ++i) {
        alarms.push_back(Maker::createHandle());
        queue.add(alarms.back(), i % 3 == 0 ? noNumber : 60.0 - i);
    }
    double last = 0;
    for (int i = 0; i != 40; ++i) {
        EXPECT_GT(queue.getFrontTime(), last);
        last = queue.getFrontTime();
        queue.takeFront();
    }
    for (int i = 0; i != 20; ++i) {
        EXPECT_TRUE(std::isnan(queue.getFrontTime()));
        queue.takeFront();
    }
    EXPECT_TRUE(queue.isEmpty());
}

} // namespace

} // namespace ZvTest
