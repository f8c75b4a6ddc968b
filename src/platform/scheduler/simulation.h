// Deterministic scheduler for tests: runs the threads of a program in an order that a seed
// determines.
//
// Each thread has a stack and thread-local values of its own, but exactly one of them runs at a
// time, and the others wait for the baton. Each interlocked operation and each service call is a
// point at which the scheduler may pass the baton to another thread, except calls that only concern
// the calling thread or return a constant. A seed therefore determines one order of events, the
// same on every machine.
//
// Time is virtual. When all threads wait, it advances to the next time-out or due timer. It also
// advances while threads only call `Sleep(0)`, and at random moments if the option `hasty` is set.
//
// A process runs one schedule: it calls `begin`, runs the program and calls `end`. To run many
// schedules, fork a new process for each of them, or restore the memory of the process. A fault
// that the scheduler detects is a finding. It is entered in the record, and ends the process.
//
// A schedule can be any order of the operations of the layer, and a load of a shared word can
// return an older value. It does not show what happens between two operations of the layer. If the
// build has ZV_RACES, each access to plain data is checked, and two without an order are a finding,
// see plainData.h.
#pragma once

#include "platform/services.h"
#include "zvbase/platform/shared.h"

#pragma GCC visibility push(default)

namespace ZvPlatform::Simulated {

/// Strategy that chooses the next thread.
enum class Choice : std::uint32_t
{
    /// Any thread that can run, with equal probabilities. In half of the runs, some are delayed.
    RANDOM,
    /// The thread with the highest of random priorities. At `depth - 1` random decisions the
    /// running thread gets the lowest.
    PRIORITY,
    /// The thread that the record gives. After the given decisions, the running thread as long as
    /// it can run.
    SCRIPT
};

/// Kinds of calls that can be made to fail.
enum Resource : std::uint32_t
{
    THREADS = 1,
    SEMAPHORES = 2,
    EVENTS = 4, ///< and timers
    MUTEXES = 8,
    MEMORY = 16,
    PRIORITIES = 32,
    SLOTS = 64,
    ALL_RESOURCES = 127
};

/// The place in the source that names a memory order, by the operation on a shared word.
struct OrderPlace
{
    /// Its name, such as "load" or "fence". A compare-exchange has two orders. That of the failure
    /// has the operation "failure".
    char const *operation = nullptr;
    char const *file = nullptr;
    std::uint32_t line = 0;
    Order order = Order::RELAXED;
    /// The order was of use in the run: an operation that acquires has learnt by it what another
    /// thread has done, or one that releases has published that. Or the order is sequentially
    /// consistent.
    bool isUsed = false;
};

/// A memory order that is weaker in a run than in the source. If no program finds a fault, either
/// the source needs no such order, or a program is missing.
struct Weakening
{
    char operation[24] = "";
    char file[200] = "";    ///< the path, or its end from a slash on
    std::uint32_t line = 0; ///< 0 if no order is weakened
    Order order = Order::RELAXED;
};

struct Options
{
    Choice choice = Choice::RANDOM;
    std::uint64_t seed = 1;
    std::uint32_t depth = 3;
    /// Number of decisions over which the changes of priority are spread.
    std::uint32_t length = 1000;
    /// Number of steps after which a run is the finding "no progress".
    std::uint32_t bound = 50'000;
    /// Time may advance while threads could run, as on a loaded machine.
    bool hasty = false;
    /// If the run is hasty, time advances once in so many decisions, or up to eight times as often,
    /// until the run has taken half of the steps that it may take.
    std::uint32_t haste = 64;
    /// Waits for an address may end without a cause.
    bool stray = false;
    /// Loads of shared words may return older values, as the C++ memory model permits.
    bool weak = true;
    /// Whether the process may have the real-time class.
    bool privileged = true;
    /// Number of the call of the kinds in `resources` that fails, from 1, or 0 for none.
    std::uint32_t failing = 0;
    std::uint32_t resources = ALL_RESOURCES;
    /// File descriptor to which each step is written, with the call stack of its thread, or -1 for
    /// none.
    int trace = -1;
    Weakening weakening;
    /// The record gets the places of the orders that are reached.
    bool listsOrders = false;
};

/// A point at which the scheduler had several options. The first option is the running thread, if
/// it can run.
struct Decision
{
    std::uint8_t chosen;
    std::uint8_t count;
    /// The running thread could continue and did not yield. Or the point is a load, and the first
    /// option is the newest value.
    bool isPreemption;
};

/// Result of a schedule, in memory that its process shares with the reader.
struct Record
{
    static constexpr std::uint32_t DECISIONS = 100'000;
    static constexpr std::uint32_t ORDERS = 4096;

    std::uint32_t steps;
    std::uint32_t switches;
    std::uint32_t decisions;
    /// Number of decisions that are given.
    std::uint32_t scripted;
    /// Number of calls so far that could be made to fail.
    std::uint32_t failable;
    std::uint32_t threads;
    /// Hash of all events in their order.
    std::uint64_t digest;
    std::int64_t time;
    bool isDone;
    /// The run has reached the place of the order that it weakens.
    bool isWeakened;
    /// Kind of the finding, such as "deadlock", or empty.
    char finding[32];
    char report[16'000];
    /// Only for `SCRIPT`: the given decisions before the run, all decisions after it.
    Decision decision[DECISIONS];
    /// Only if the options ask for it: a table of the elements from 1 on, by line. Elements without
    /// a file are free. A place may be in it more than once.
    OrderPlace orders[ORDERS];
};

/// Begins a simulation. The calling thread is its first thread.
void begin(Options const &, Record &);

/// What may remain at the end of a simulation.
struct LeftOver
{
    std::uint32_t objects = 0;
    std::uint32_t threads = 0;
};

/// Ends the simulation. Locks that are still held by the calling thread or by an ended one are a
/// finding, and so are more threads that have not ended, or more additional objects, than may
/// remain. Afterwards only the calling thread runs.
void end(LeftOver = {});

bool isRunning();

/// Enters a finding in the record and ends the process. Outside a simulation it is written to the
/// standard error output, and the process is aborted.
[[noreturn]] void find(char const *finding, char const *format, ...)
    __attribute__((format(printf, 2, 3)));

/// An additional point of the schedule, which a program names.
void step(char const *what);

/// Names a handle, a critical section or an address in reports. The text is not copied. Only the
/// first 256 names are kept.
void setName(void const *object, char const *name);

/// Calls of all threads can be made to fail only while an object of this class exists.
class MayBeRefused
{
public:
    MayBeRefused();
    ~MayBeRefused();
    MayBeRefused(MayBeRefused const &) = delete;
    MayBeRefused &operator=(MayBeRefused const &) = delete;
};

/// Counts a call that can be made to fail. Returns whether it must fail.
bool isRefused(Resource);

/// While it exists, the detector of races and the thread sanitizer ignore the memory accesses of the
/// thread. The simulation itself is built without either, but the functions of the C library and
/// the conditions of a program are still checked.
class Unseen
{
public:
    Unseen();
    ~Unseen();
    Unseen(Unseen const &) = delete;
    Unseen &operator=(Unseen const &) = delete;
};

/// Returns the newest value of data that another thread may have changed without an order. It is for
/// what must hold at a moment of the virtual time.
template <class T>
T peek(T const &data)
{
    Unseen const unseen;
    return data;
}

/// Returns the number of objects behind handles, such as events and threads. An object whose last
/// handle has been closed still counts while a thread uses it.
std::uint32_t getNbObjects();

/// Returns the virtual time since the beginning, in nanoseconds.
std::int64_t getTime();

/// States what the calling thread waits for, while the object exists. If the thread is never woken
/// although the condition is true, the finding is "waits for ever" instead of "deadlock". The
/// condition is called on any thread, and must neither block nor call a service.
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
