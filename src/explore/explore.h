// Programs of a few threads that are run under many schedules, to test devices (device writers).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

/// Tests of code with several threads. A program is run many times, and each run has another order
/// of the threads, which a seed determines.
///
///     #include <resmgt/locks.h>
///
///     ZV_EXPLORED(TwoThreadsCount, {.schedules = 500})
///     {
///         Zv::LkCounter<long> counter(0);
///         {
///             Zv::Explore::Worker const other("other", [&counter] { ++counter; });
///             ++counter;
///         }
///         ZV_HOLDS(counter.getValue() == 2);
///     }
///
/// The sources of programs are linked with a form of the library whose services are a scheduler.
/// `zv_add_explored_test` of the CMake package `zvexplore` does that, and brings a `main`. The
/// guide "Testing your device under every schedule" shows how.
///
/// The scheduler sees the operations of the library alone: locks, waits, queues, threads, clocks
/// and shared words. So a program must not use threads, locks, clocks or random numbers of its own,
/// and must not wait for a file or a socket.
///
/// The scheduler finds a deadlock, more steps than `Settings::bound`, an exception that leaves a
/// thread, `std::terminate`, a signal, and what is left behind at the end: locks that are held,
/// threads that run, more objects than are allowed.
namespace Zv::Explore {

/// Creates the tables that sequences of devices share, which takes 90,000 steps.
void prepareSequences();

/// How a program is run.
struct Settings
{
    /// The number of schedules by random choice, and again by random priorities.
    unsigned schedules = 300;
    /// If not negative, all schedules with at most this many pre-emptions are run as well, up to
    /// 2000. For programs of a few dozen steps.
    int preemptions = -1;
    /// The number of steps after which a schedule counts as one that makes no progress.
    unsigned bound = 200'000;
    /// In half of the schedules, time may pass while threads could run, as on a loaded machine. So
    /// time-outs are early.
    bool hasty = true;
    /// The number of objects of the system, such as events, that may remain at the end. Singletons
    /// of the library keep theirs.
    unsigned objectsLeft = 64;
    /// The number of threads that may run at the end. The thread of the alarms runs as long as the
    /// process.
    unsigned threadsLeft = 0;
    /// Whether all memory must be free at the end.
    bool leaks = false;
    /// If not null, the finding that the program must have, such as "does not hold". For a program
    /// with a planted fault, which shows that others like it can fail.
    char const *finds = nullptr;
    /// Called once, before the first schedule, for preparations that take many steps and are not
    /// tested.
    void (*prepare)() = prepareSequences;
};

/// Registers a program. Use `ZV_EXPLORED`.
class Program
{
public:
    /// `name` is not copied, and must be unique.
    Program(char const *name, Settings const &settings, void (*body)());
};

/// A thread of a program. It begins at once.
///
///     void meet()
///     {
///         Zv::Explore::Worker const other("other", [] { Zv::Explore::step("the other thread"); });
///         Zv::Explore::step("this thread");
///     }
///
/// **Threads**: only the thread that created a worker may join and destroy it.
class Worker
{
public:
    /// Starts a thread that calls `body`. The name is for reports, and is copied.
    Worker(char const *name, std::function<void()> body);
    Worker(Worker const &) = delete;
    Worker &operator=(Worker const &) = delete;
    /// Waits for the end of the thread.
    ~Worker();

private:
    class Thread;

    std::unique_ptr<Thread> _thread;
};

/// An additional point at which the scheduler may switch to another thread. `what` is shown in
/// reports, and is not copied.
void step(char const *what);

/// Ends the schedule with a finding, "does not hold". Use `ZV_HOLDS`.
[[noreturn]] void fail(char const *condition, char const *file, int line);

/// Returns the virtual time since the beginning of the schedule, in seconds. It passes only while
/// all threads wait, and at random moments if `Settings::hasty` is set.
double getTime();

} // namespace Zv::Explore

/// Defines a program: its name, its settings, and its body. In each schedule, the body runs as in a
/// new process, so it may leave its process in any state. It must create what it needs, first of all
/// its `InPackageScope`. It must not read files.
#define ZV_EXPLORED(NAME, ...)                                                                     \
    static void zvExplored##NAME();                                                                \
    static ::Zv::Explore::Program const zvProgram##NAME(                                           \
        #NAME, ::Zv::Explore::Settings(__VA_ARGS__), zvExplored##NAME);                            \
    static void zvExplored##NAME()

/// Checks a condition. If it is false, the schedule ends with a finding.
#define ZV_HOLDS(CONDITION)                                                                        \
    do {                                                                                           \
        if (!(CONDITION))                                                                          \
            ::Zv::Explore::fail(#CONDITION, __FILE__, __LINE__);                                   \
    } while (false)
