#include "platform/linux/spinning.h"

#include "platform/common/arguments.h"

namespace ZvPlatform::Linux {

namespace {

/// The cost of a sleep in this process. The samples of all threads are mixed without a lock, and a
/// lost one does no harm.
constinit Shared<Instant> sleepCost{0};

} // namespace

void Call::note()
{
    at.store(now(), Order::RELAXED);
    from.store(Kernel::currentProcessor(), Order::RELAXED);
}

Instant Spin::getLimit() const
{
    if (getCredit().trust == 0 || GetPriorityClass(CURRENT_PROCESS) == REALTIME_PRIORITY_CLASS)
        return 0;
    return sleepCost.load(Order::RELAXED);
}

void Spin::learn()
{
    Instant const awake = now();
    Instant const calledAt = _call.at.load(Order::RELAXED);
    if (calledAt < _sleepsSince)
        return; // nothing has called the thread
    Instant cost = sleepCost.load(Order::RELAXED);
    if (cost == 0 || calledAt - _sleepsSince >= IDLE_AFTER) {
        cost = nextSleepCost(cost, awake - calledAt);
        sleepCost.store(cost, Order::RELAXED);
    }
    bool const hasSpun = _sleepsSince != _start;
    // A thread that spins would have been in the way of a caller on its own processor.
    bool const wasFree = _call.from.load(Order::RELAXED) != _processor;
    if (!hasSpun && wasFree && calledAt - _start <= cost)
        setCredit(afterShortSleep(getCredit()));
}

} // namespace ZvPlatform::Linux
