// Scheduler of the simulated threads: passes the baton, advances the virtual clock, and writes the
// record.
#pragma once

#include "platform/simulated/strategies.h"

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
    static constexpr unsigned MAX_THREADS = 200;

    constexpr Scheduler() = default;

    void begin(Options const &, Record &);
    void end(LeftOver const &);
    bool isRunning() const { return _record != nullptr; }

    /// Point of the schedule: other threads may run before the calling thread takes a step.
    void point(Step const &, bool hasYielded = false);
    /// Makes the calling thread wait for what its fields describe. Returns when the thread can run
    /// and has been chosen.
    void wait();
    /// Returns which of `count` stores a load reads, from 0 for the newest.
    unsigned chooseStore(unsigned count);
    /// Adds the result of a step to the digest and to the trace.
    void note(std::uint64_t result);

    /// Returns a block for a new thread, or null if there are too many. The block counts as
    /// runnable at once: there must be no point of the schedule before the call of `start`.
    Thread *newThread();
    /// Creates the real thread, and begins a simulation if none runs. Returns false if there is no
    /// thread.
    bool start(Thread &, SIZE_T stackSize);
    /// Gives back one reference to a block.
    void release(Thread &);
    /// Waits until the calling thread, created by `start`, gets the baton for the first time.
    void arrive(Thread &);
    /// Ends the calling thread and passes the baton on. The next thread joins the real thread.
    void leave();
    /// Passes the baton on from the calling thread, which has been killed and never runs again.
    [[noreturn]] void abandon();

    Instant now() const { return _now; }
    Instant deadlineAfter(DWORD milliseconds) const;

    bool isRefused(Resource);
    void allowRefusals(int change) { _refusals += change; }
    bool isPrivileged() const { return !_record || _options.privileged; }
    std::uint64_t random() { return _identifiers.next(); }
    void mark(Place &) const;
    bool isTracing() const { return _record && _options.trace >= 0; }
    void traceText(char const *text) { trace("%s", text); }
    std::uint32_t getStep() const { return _record ? _record->steps : 0; }

    [[noreturn]] void report(char const *finding, char const *text);

    /// Calls `what` for each thread that has a block. Ended threads are included until their block
    /// is reused.
    template <class What>
    void forEach(What what)
    {
        for (unsigned i = 0; i < _used; ++i)
            if (_threads[i].state != Thread::UNUSED)
                what(_threads[i]);
    }

private:
    void advance();
    Instant nextDeadline();
    bool isEnabled(Thread const &) const;
    void collect(Candidates &, bool hasYielded);
    void pick(bool hasYielded);
    void keep(unsigned chosen, unsigned count, bool isPreemption);
    void handOver(Thread &to);
    void receive();
    void judgeStated();
    void trace(char const *format, ...) __attribute__((format(printf, 2, 3)));

    Options _options;
    Record *_record = nullptr;
    Strategy *_strategy = nullptr;
    Instant _now = 0;
    Random _identifiers;
    Thread *_threads = nullptr;
    Thread *_free = nullptr;
    unsigned _used = 0;
    std::uint32_t _serial = 0;
    std::uint32_t _spinning = 0;
    std::uint32_t _yields = 0;
    int _refusals = 0;               ///< number of `MayBeRefused` objects
    std::uint32_t _objects = 0;      ///< number of objects at the beginning
    std::uint32_t _latestObject = 0; ///< serial number of the latest object at the beginning
    Thread *_ended = nullptr;        ///< has passed the baton on and has not been joined yet
    char _line[2048] = {};
};

extern constinit Scheduler scheduler;

/// Returns the number of objects.
std::uint32_t countObjects();
/// Returns the serial number of the latest object.
std::uint32_t latestObject();
/// Appends the objects whose serial number is above `since`, and, if the run is traced, the places
/// of their creation.
void listObjects(std::uint32_t since, char *&text, char *end);
/// Appends a description of an object, such as `mutex 3 "name", held by worker`, or an address.
void describe(void const *, char *&text, char *end);
/// Returns the name of an object or an address, or an empty text.
char const *nameOf(void const *);

/// Removes a thread from the threads that wait for an address.
void leaveAddress(Thread &);

void append(char *&text, char *end, char const *format, ...) __attribute__((format(printf, 3, 4)));
void append(char *&text, char *end, Place const &);

/// Point of the schedule at the beginning of a service. It has no effect if no simulation runs.
inline void enter(char const *what, void const *object = nullptr)
{
    if (scheduler.isRunning())
        scheduler.point({what, object});
}

} // namespace ZvPlatform::Simulated
