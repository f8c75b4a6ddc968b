// Two threads that take two locks in two orders, and a program that does so in one order.

#include <explore/explore.h>
#include <resmgt/locks.h>

namespace {

void takeBoth(Zv::LkMutex const &first, Zv::LkMutex const &second)
{
    Zv::LkGuard const outer(first);
    Zv::LkGuard const inner(second);
}

} // namespace

ZV_EXPLORED(TwoOrders, {.schedules = 200})
{
    Zv::LkMutex const left("left");
    Zv::LkMutex const right("right");
    Zv::Explore::Worker const other("other", [&] { takeBoth(right, left); });
    takeBoth(left, right);
}

ZV_EXPLORED(OneOrder, {.schedules = 200, .preemptions = 1})
{
    Zv::LkMutex const left("left");
    Zv::LkMutex const right("right");
    Zv::Explore::Worker const other("other", [&] { takeBoth(left, right); });
    takeBoth(left, right);
}

ZV_EXPLORED(TimeIsVirtual, {.schedules = 20, .hasty = false})
{
    Zv::LkEvent const never("never", false);
    double const begin = Zv::Explore::getTime();
    ZV_HOLDS(!never.timedWait(3600)); // seconds
    ZV_HOLDS(Zv::Explore::getTime() - begin == 3600);
    Zv::Explore::step("an hour later");
}

ZV_EXPLORED(FindsNothing, {.schedules = 20, .finds = "does not hold"})
{
    Zv::Explore::step("nothing is wrong here");
}
