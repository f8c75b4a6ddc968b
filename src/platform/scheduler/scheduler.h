// Scheduler of the simulated threads: passes the baton, advances the virtual clock, and writes the
// record.
//
// It knows nothing of services: the simulated services and the simulated kernel are both built on
// it. What it must know of them, they tell by the functions that task.h declares.
#pragma once

#include "platform/scheduler/strategies.h"

namespace ZvPlatform::Simulated {

/// A step that a thread is about to take.
struct Step
{
    char const *what;
    void const *object = nullptr;
};

class Scheduler
{
public:
    static constexpr unsigned MAX_TASKS = 200;

    constexpr Scheduler() = default;

    void begin(Options const &, Record &);
    void end(LeftOver const &);
    bool isRunning() const { return _record && !_suspended; }

    /// Point of the schedule: other threads may run before the calling thread takes a step.
    void point(Step const &, bool hasYielded = false);
    /// Makes the calling task wait until it is granted something, until `isSatisfied` holds, or
    /// until the deadline. If it `mayStray`, the wait may also end without a cause. Returns when
    /// the task has been chosen to run.
    void wait(Instant deadline, bool mayStray = false);
    /// Returns which of `count` stores a load reads, from 0 for the newest.
    unsigned chooseStore(unsigned count);
    /// Adds the result of a step to the digest and to the trace.
    void note(std::uint64_t result);

    /// Enters a new task, which counts as runnable at once: there must be no point of the schedule
    /// before the call of `start`. Returns false if there are too many tasks.
    bool add(Task &);
    /// Creates the real thread of a task, and begins a simulation if none runs. Returns false if
    /// there is no thread.
    bool start(Task &, std::size_t stackSize);
    /// Called by a thread that gets the baton.
    void receive();
    /// Ends the calling thread and passes the baton on. The next thread joins the real thread.
    void leave();
    /// Passes the baton on from the calling thread, which has been killed and never runs again.
    [[noreturn]] void abandon();

    Instant now() const { return _now; }
    Instant deadlineAfter(DWORD milliseconds) const;
    /// Lets time pass for the calling thread, which computes.
    void pass(Instant time);
    /// Suspends the simulation if `change` is 1, and resumes it if that is -1. Meanwhile no call is
    /// a point of the schedule.
    void suspend(int change) { _suspended += change; }

    bool isRefused(Resource);
    void allowRefusals(int change) { _refusals += change; }
    bool isPrivileged() const { return !_record || _options.privileged; }
    std::uint64_t random() { return _identifiers.next(); }
    void mark(Place &) const;
    bool isTracing() const { return _record && _options.trace >= 0; }
    void traceText(char const *text) { trace("%s", text); }
    std::uint32_t getStep() const { return _record ? _record->steps : 0; }
    /// Returns the order that an operation has in this run.
    Order follow(OrderPlace const &place) const
    {
        return _options.weakening.line != place.line ? place.order : followWeakened(place);
    }
    bool listsOrders() const { return _record && _options.listsOrders; }
    /// Returns the number of an order in the record.
    std::uint32_t list(OrderPlace const &);
    void setUsed(std::uint32_t order) { _record->orders[order].isUsed = true; }

    [[noreturn]] void report(char const *finding, char const *text);

    /// Calls `what` for each task that has been added. Ended tasks are included until they are
    /// added again.
    template <class What>
    void forEach(What what)
    {
        for (unsigned i = 0; i < _used; ++i)
            if (_tasks[i]->state != Task::UNUSED)
                what(*_tasks[i]);
    }

private:
    void advance();
    Instant nextDeadline();
    bool isEnabled(Task const &) const;
    void collect(Candidates &, bool hasYielded);
    void pick(bool hasYielded);
    void keep(unsigned chosen, unsigned count, bool isPreemption);
    void handOver(Task &to);
    void judgeStated();
    Order followWeakened(OrderPlace const &) const;
    void trace(Step const &);
    void trace(char const *format, ...) __attribute__((format(printf, 2, 3)));

    Options _options;
    Record *_record = nullptr;
    Strategy *_strategy = nullptr;
    Instant _now = 0;
    Random _identifiers;
    Task *_tasks[MAX_TASKS] = {};
    unsigned _used = 0;
    std::uint32_t _serial = 0;
    std::uint32_t _spinning = 0;
    std::uint32_t _yields = 0;
    int _suspended = 0;
    int _refusals = 0;               ///< number of `MayBeRefused` objects
    std::uint32_t _objects = 0;      ///< number of objects at the beginning
    std::uint32_t _latestObject = 0; ///< serial number of the latest object at the beginning
    Task *_ended = nullptr;          ///< has passed the baton on and has not been joined yet
    char _line[2048] = {};
};

extern constinit Scheduler scheduler;

/// Returns the name that a program or a service has given to an object or an address, or an empty
/// text.
char const *nameOf(void const *);

void append(char *&text, char *end, char const *format, ...) __attribute__((format(printf, 3, 4)));
void append(char *&text, char *end, Place const &);

/// Point of the schedule at the beginning of a service. It has no effect if no simulation runs.
inline void enter(char const *what, void const *object = nullptr)
{
    if (scheduler.isRunning())
        scheduler.point({what, object});
}

} // namespace ZvPlatform::Simulated
