// Time that passes only when the test says so, for threads that wait on pulses with a time-out.
#pragma once

namespace Zv {

/// While it lives, the library's clock stands still, and whoever waits for the next pulse sleeps until a pulse comes
/// or the test lets enough time pass. One at a time; threads that are to live by it begin and end while it exists.
class VirtualTime
{
public:
    VirtualTime();
    ~VirtualTime();
    VirtualTime(VirtualTime const &) = delete;
    VirtualTime &operator=(VirtualTime const &) = delete;

    /// Seconds.
    static double getTime();
    /// Lets time pass, and returns at once. Any thread.
    static void pass(double seconds);
    /// The same to a moment, to the nanosecond.
    static void passTo(double time);
    /// Returns when `nb` threads sleep, none of which has a reason to wake up.
    static void awaitAsleep(int nb = 1);
    /// The moment at which the first of the sleepers wakes by itself; infinite where none does.
    static double getFirstDeadline();
    /// How many times threads have begun to sleep.
    static int getNbSleeps();
};

} // namespace Zv
