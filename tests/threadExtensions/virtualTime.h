// Virtual clock for tests of threads that wait on pulses with a time-out.
#pragma once

namespace ZvTest {

/// Stops the library's clock while it exists. A thread that waits for the next pulse then sleeps
/// until a pulse is sent or the test lets enough time pass. There may be one at a time. Threads
/// that use the clock must start and end while it exists.
class VirtualTime
{
public:
    VirtualTime();
    ~VirtualTime();
    VirtualTime(VirtualTime const &) = delete;
    VirtualTime &operator=(VirtualTime const &) = delete;

    /// Returns the time in seconds.
    static double getTime();
    /// Lets time pass, and returns at once.
    static void pass(double seconds);
    /// Lets the clock advance to a time, exact to the nanosecond.
    static void passTo(double time);
    /// Returns when `nb` threads sleep and none of them has a reason to wake up.
    static void awaitAsleep(int nb = 1);
    /// Returns the earliest time at which a sleeping thread wakes by itself, or infinity.
    static double getFirstDeadline();
    /// Returns how many times threads have begun to sleep.
    static int getNbSleeps();
};

} // namespace ZvTest
