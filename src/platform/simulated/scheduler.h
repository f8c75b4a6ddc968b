// The baton, the clock, and the record of what happens.
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

    /// Lets others go on before the calling thread takes a step.
    void point(Step const &, bool hasYielded = false);
    /// The calling thread waits, as its fields say, until it may go on.
    void wait();
    /// Tells the record what came of a step.
    void note(std::uint64_t result);

    /// A block for a new thread, null when there are too many; `start` makes it take part.
    Thread *newThread();
    bool start(Thread &, SIZE_T stackSize);
    /// One of the holders of a block has done with it.
    void release(Thread &);
    /// The calling thread, made by `start`, has the baton for the first time.
    void arrive(Thread &);
    /// It has ended: the baton goes on, and whoever gets it waits for the real thread's end.
    void leave();
    /// It is to stand still for ever.
    [[noreturn]] void abandon();

    Instant now() const { return _now; }
    Instant deadlineAfter(DWORD milliseconds) const;

    bool isRefused(Resource);
    void allowRefusals(int change) { _refusals += change; }
    bool isPrivileged() const { return !_record || _options.privileged; }
    std::uint64_t random() { return _identifiers.next(); }
    void mark(Place &) const;
    bool isTracing() const { return _record && _options.trace >= 0; }

    [[noreturn]] void report(char const *finding, char const *text);

    /// All blocks that were ever used.
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
    int _refusals = 0;               ///< scopes in which calls may be refused
    std::uint32_t _objects = 0;      ///< at the beginning
    std::uint32_t _latestObject = 0; ///< likewise
    Thread *_ended = nullptr;        ///< has handed the baton on and not yet been waited for
    char _line[2048] = {};
};

extern constinit Scheduler scheduler;

/// How many objects there are.
std::uint32_t countObjects();
/// The number of the latest one.
std::uint32_t latestObject();
/// Those that are younger than the one of that number, and where they were made.
void listObjects(std::uint32_t since, char *&text, char *end);
/// "mutex 3 "name", held by worker", or an address.
void describe(void const *, char *&text, char *end);
/// An empty text for what has none.
char const *nameOf(void const *);

/// Takes the thread from those who wait for an address.
void leaveAddress(Thread &);
/// Units of 100 ns since 1601.
LONGLONG getSystemTime();

void append(char *&text, char *end, char const *format, ...) __attribute__((format(printf, 3, 4)));
void append(char *&text, char *end, Place const &);

/// The point at the beginning of a service.
inline void enter(char const *what, void const *object = nullptr)
{
    if (scheduler.isRunning())
        scheduler.point({what, object});
}

} // namespace ZvPlatform::Simulated
