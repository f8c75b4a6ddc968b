// Runs a program on a scheduler that decides, from a seed, which thread goes on at each step.
//
// All threads of the program are real ones, and exactly one of them runs at a time: the others wait for the baton.
// Each call of a service and each interlocked operation is a point at which the scheduler may hand the baton on, so
// that a seed stands for one order of events, on every machine and at every time. Time is virtual: it moves only when
// every thread waits, to the instant for which the first of them does.
//
// A process runs one schedule. It calls `begin`, runs its program and calls `end`; whoever wants many schedules forks
// a fresh process for each. What goes wrong on the way is a finding: it is entered in the record, and ends the process.
//
// Seen are all orders of the operations of the layer. Not seen is what a processor or a compiler may reorder, and what
// happens between two operations of the layer: the thread sanitizer, which does not see the baton, looks for that.
#pragma once

#include "platform/services.h"

#pragma GCC visibility push(default)

namespace ZvPlatform::Simulated {

/// What chooses the next thread.
enum class Choice : std::uint32_t
{
    RANDOM, ///< any one that can run, all with the same chance
    PRIORITY, ///< the one of the highest of random priorities, which change at `depth - 1` random decisions
    SCRIPT ///< as the record says; where it says nothing the running thread goes on
};

/// Kinds of calls that can be made to fail.
enum Resource : std::uint32_t
{
    THREADS = 1,
    SEMAPHORES = 2,
    EVENTS = 4, ///< timers too
    MUTEXES = 8,
    MEMORY = 16,
    PRIORITIES = 32,
    SLOTS = 64,
    ALL_RESOURCES = 127
};

struct Options
{
    Choice choice = Choice::RANDOM;
    std::uint64_t seed = 1;
    std::uint32_t depth = 3;
    /// Decisions among which the changes of priority are spread.
    std::uint32_t length = 1000;
    /// A run that takes more steps makes no progress.
    std::uint32_t bound = 50'000;
    /// Time may move although threads could run, as it does on a loaded machine.
    bool hasty = false;
    /// Waits for an address may end without a cause.
    bool stray = false;
    /// Whether the process may have the real-time class.
    bool privileged = true;
    /// The call of the kinds in `resources` that fails, from 1; 0 for none.
    std::uint32_t failing = 0;
    std::uint32_t resources = ALL_RESOURCES;
    /// Every step is written to this file, and where each thread is is found out. -1 for none.
    int trace = -1;
};

/// One point at which several could go on. The first of them is the running thread, if it can run.
struct Decision
{
    std::uint8_t chosen;
    std::uint8_t count;
    /// The running thread could have gone on and had not asked to be passed over.
    bool isPreemption;
};

/// What a schedule came to. It stands in memory that the process shares with whoever reads it.
struct Record
{
    static constexpr std::uint32_t DECISIONS = 100'000;

    std::uint32_t steps;
    std::uint32_t switches;
    std::uint32_t decisions;
    /// Decisions that are laid down.
    std::uint32_t scripted;
    /// Calls so far that could have been made to fail.
    std::uint32_t failable;
    std::uint32_t threads;
    /// A digest of all that happened, in its order.
    std::uint64_t digest;
    std::int64_t time;
    bool isDone;
    /// Empty, or what was found: "deadlock" and the like.
    char finding[32];
    char report[16'000];
    /// Of SCRIPT alone: what is laid down, and then what was chosen.
    Decision decision[DECISIONS];
};

/// From here on the calling thread is the first of a simulation.
void begin(Options const &, Record &);

/// What may be left over at the end.
struct LeftOver
{
    std::uint32_t objects = 0;
    std::uint32_t threads = 0;
};

/// Ends the simulation: looks for threads that have not ended, for locks that are held, and for more objects than
/// there were at the beginning. The calling thread goes on, alone; all others stand still for ever.
void end(LeftOver = {});

bool isRunning();

/// Enters a finding and ends the process. Outside a simulation it goes to the standard error output.
[[noreturn]] void find(char const *finding, char const *format, ...)
    __attribute__((format(printf, 2, 3)));

/// A point of its own, in the program's own words.
void step(char const *what);

/// A name for a handle, a critical section or an address in reports. The text must stay.
void setName(void const *object, char const *name);

/// Calls are made to fail only while one of these lives, whichever thread makes them.
class MayBeRefused
{
public:
    MayBeRefused();
    ~MayBeRefused();
    MayBeRefused(MayBeRefused const &) = delete;
    MayBeRefused &operator=(MayBeRefused const &) = delete;
};

/// Counts a call that may be made to fail, and says whether it is to.
bool isRefused(Resource);

/// What handles stand for: events, threads and the like that have not been closed.
std::uint32_t getNbObjects();

/// Virtual nanoseconds since the beginning.
std::int64_t getTime();

/// While it lives the calling thread says what it waits for. A thread that waits for ever although the condition holds
/// is a finding of its own. The condition is called on another thread: it must neither block nor call a service.
class WaitingFor
{
public:
    using Condition = bool (*)(void const *);

    WaitingFor(char const *what, Condition, void const *data);
    ~WaitingFor();
    WaitingFor(WaitingFor const &) = delete;
    WaitingFor &operator=(WaitingFor const &) = delete;

    template <class Function>
    WaitingFor(char const *what, Function const &condition)
        : WaitingFor(
              what, [](void const *data) { return (*static_cast<Function const *>(data))(); },
              &condition)
    {}

    char const *_what;
    Condition _condition;
    void const *_data;
    WaitingFor *_outer;
    std::uint32_t _held = 0;
};

} // namespace ZvPlatform::Simulated

#pragma GCC visibility pop
