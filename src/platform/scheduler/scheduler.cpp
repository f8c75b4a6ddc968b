#include "platform/scheduler/scheduler.h"

#include "platform/scheduler/plainData.h"
#include "platform/scheduler/sharedWords.h"
#include "zvbase/platform/interlocked.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <execinfo.h>
#include <string_view>
#include <unistd.h>
#include <utility>

// Functions of the thread sanitizer, null in programs that are built without it.
extern "C" {
void AnnotateIgnoreSyncBegin(char const *file, int line) __attribute__((weak));
void AnnotateIgnoreSyncEnd(char const *file, int line) __attribute__((weak));
void AnnotateIgnoreReadsBegin(char const *file, int line) __attribute__((weak));
void AnnotateIgnoreReadsEnd(char const *file, int line) __attribute__((weak));
void AnnotateIgnoreWritesBegin(char const *file, int line) __attribute__((weak));
void AnnotateIgnoreWritesEnd(char const *file, int line) __attribute__((weak));
void __tsan_acquire(void *) __attribute__((weak));
void __tsan_release(void *) __attribute__((weak));
}

namespace ZvPlatform::Simulated {

constinit Scheduler scheduler;
constinit Task *self = nullptr;

namespace {

/// A thread that takes more steps than this in succession while others can run has to yield.
constexpr std::uint32_t PATIENCE = 500;
/// After more calls of `Sleep(0)` than this in succession, time advances.
constexpr std::uint32_t YIELDS = 50;
/// A wait without a time-out is taken for endless if time advances more often than this while the
/// first thread waits, or while any thread waits although its stated condition is true.
constexpr std::uint32_t MOVES = 1000;

std::uint64_t mix(std::uint64_t digest, std::uint64_t value)
{
    return (digest ^ value) * 0x9E3779B97F4A7C15 + (digest >> 29);
}

/// Numbers of the texts of steps. Most texts are used many times, and do not move.
class TextNumbers
{
public:
    constexpr TextNumbers() = default;

    std::uint64_t of(char const *text)
    {
        Known &known = _known[reinterpret_cast<std::uintptr_t>(text) / 4 % KNOWN];
        if (known.text != text)
            known = {text, numberOf(text)};
        return known.number;
    }

private:
    static constexpr unsigned KNOWN = 64;

    struct Known
    {
        char const *text = nullptr;
        std::uint64_t number = 0;
    };

    static std::uint64_t numberOf(char const *text)
    {
        std::uint64_t number = 0;
        for (; *text; ++text)
            number = number * 31 + static_cast<unsigned char>(*text);
        return number;
    }

    Known _known[KNOWN] = {};
};

constinit TextNumbers textNumbers;

} // namespace

Unseen::Unseen()
{
    plainData.ignore(1);
    if (!AnnotateIgnoreReadsBegin || !AnnotateIgnoreWritesBegin)
        return;
    AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
    AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
}

Unseen::~Unseen()
{
    plainData.ignore(-1);
    if (!AnnotateIgnoreReadsEnd || !AnnotateIgnoreWritesEnd)
        return;
    AnnotateIgnoreWritesEnd(__FILE__, __LINE__);
    AnnotateIgnoreReadsEnd(__FILE__, __LINE__);
}

void tellRelease(void const *place)
{
    if (__tsan_release)
        __tsan_release(const_cast<void *>(place));
}

void tellAcquire(void const *place)
{
    if (__tsan_acquire)
        __tsan_acquire(const_cast<void *>(place));
}

void synchroniseRelease(void const *place)
{
    tellRelease(place);
    if (scheduler.isRunning())
        weakMemory.release(indexOf(currentTask()), place);
}

void synchroniseAcquire(void const *place)
{
    tellAcquire(place);
    if (scheduler.isRunning())
        weakMemory.acquire(indexOf(currentTask()), place);
}

// ---- The baton.

void Scheduler::receive()
{
    // The ended thread is joined first. Otherwise the C library's work at its end would run at the
    // same time as the next thread. The sanitizer must not take this join for one of the program.
    Task * const ended = std::exchange(_ended, nullptr);
    if (!ended)
        return;
    if (AnnotateIgnoreSyncBegin)
        AnnotateIgnoreSyncBegin(__FILE__, __LINE__);
    ended->bearer->join();
    if (AnnotateIgnoreSyncEnd)
        AnnotateIgnoreSyncEnd(__FILE__, __LINE__);
    joined(*ended);
}

void Scheduler::handOver(Task &to)
{
    Task &from = *self;
    if (&to == &from)
        return;
    ++_record->switches;
    // This must be read before the baton is passed, because the next thread may kill this one.
    bool const isEnding = from.state == Task::ENDED;
    self = &to;
    // `TerminateThread` acquires this, because it may kill a thread that waits for the baton.
    tellRelease(&from);
    from.bearer->passTo(*to.bearer, isEnding);
    if (!isEnding)
        receive();
}

void Scheduler::leave()
{
    _ended = self;
    self->state = Task::ENDED;
    pick(false);
}

void Scheduler::abandon()
{
    self->state = Task::ENDED;
    pick(false);
    for (;;)
        ::pause();
}

// ---- The choice of the next thread.

bool Scheduler::isEnabled(Task const &thread) const
{
    if (thread.state != Task::WAITING)
        return thread.state == Task::RUNNABLE;
    return thread.granted || thread.deadline <= _now || (!thread.isUnasked && isSatisfied(thread));
}

void Scheduler::collect(Candidates &candidates, bool hasYielded)
{
    if (isEnabled(*self)) {
        candidates.add(Option::RUN, self);
        candidates.isCurrentFirst = true;
    }
    // In a ring from the running thread on, so that a strategy that always takes the next thread
    // reaches all of them.
    bool isAnyWaiting = self->state == Task::WAITING;
    bool mayAnyStray = isAnyWaiting && self->mayStray;
    auto const consider = [&](Task &thread) {
        if (isEnabled(thread))
            candidates.add(Option::RUN, &thread);
        if (thread.state != Task::WAITING)
            return;
        isAnyWaiting = true;
        mayAnyStray = mayAnyStray || thread.mayStray;
    };
    for (unsigned i = self->position; i < _used; ++i)
        consider(*_tasks[i]);
    for (unsigned i = 0; i + 1 < self->position; ++i)
        consider(*_tasks[i]);
    _spinning = candidates.isCurrentFirst && candidates.count > 1 ? _spinning : 0;
    candidates.hasYielded = candidates.isCurrentFirst && (hasYielded || ++_spinning > PATIENCE);
    if (candidates.hasYielded)
        _spinning = 0;
    if (!isAnyWaiting)
        return;
    if (_options.stray && mayAnyStray)
        forEach([&](Task &thread) {
            if (thread.mayStray && thread.state == Task::WAITING && !isEnabled(thread))
                candidates.add(Option::STRAY, &thread);
        });
    // Not in a long run, in which threads that wake at intervals might keep others from running.
    if (_options.hasty && _record->steps < _options.bound / 2 && candidates.count &&
        nextDeadline() != NEVER)
        candidates.add(Option::CLOCK, nullptr);
}

/// Adds a decision to the record.
void Scheduler::keep(unsigned chosen, unsigned count, bool isPreemption)
{
    if (_options.choice == Choice::SCRIPT && _record->decisions < Record::DECISIONS)
        _record->decision[_record->decisions] = {static_cast<std::uint8_t>(chosen),
                                                 static_cast<std::uint8_t>(count), isPreemption};
    ++_record->decisions;
}

void Scheduler::pick(bool hasYielded)
{
    if (hasYielded && ++_yields > YIELDS && nextDeadline() != NEVER)
        advance();
    for (;;) {
        Candidates candidates;
        collect(candidates, hasYielded);
        // A wake-up without a cause does not count as progress: without another option, time
        // advances.
        if (candidates.count == 0 || candidates.option[0].what != Option::RUN) {
            advance();
            continue;
        }
        unsigned chosen = 0;
        if (candidates.count > 1) {
            chosen = _strategy->choose(candidates, *_record);
            keep(chosen, candidates.count, candidates.isCurrentFirst && !candidates.hasYielded);
        }
        Option const option = candidates.option[chosen];
        if (option.what == Option::CLOCK) {
            advance();
            continue;
        }
        if (option.thread != self)
            _spinning = 0;
        option.thread->isStray = option.what == Option::STRAY;
        option.thread->state = Task::RUNNABLE;
        handOver(*option.thread);
        return;
    }
}

void Scheduler::point(Step const &step, bool hasYielded)
{
    Task &thread = currentTask();
    thread.doing = step.what;
    if (isTracing())
        mark(thread.place);
    if (++_record->steps > _options.bound)
        report("no progress", "the schedule takes more steps than it may");
    pick(hasYielded);
    if (!hasYielded)
        _yields = 0;
    _record->digest = mix(mix(_record->digest, thread.serial), textNumbers.of(step.what));
    if (isTracing())
        trace(step);
    arrived(thread);
}

/// Writes a step that the calling thread takes.
void Scheduler::trace(Step const &step)
{
    Task const &thread = *self;
    Unseen const unseen;
    char *text = _line;
    char * const end = _line + sizeof _line - 2;
    append(text, end, "%6u %12.6f  %-15s %s", _record->steps, static_cast<double>(_now) / 1e9,
           thread.name, step.what);
    if (step.object) {
        append(text, end, " ");
        describe(step.object, text, end);
    }
    append(text, end, thread.place);
    *text++ = '\n';
    if (::write(_options.trace, _line, static_cast<std::size_t>(text - _line)) < 0)
        ::_exit(1);
}

void Scheduler::wait(Instant deadline, bool mayStray)
{
    Task &thread = *self;
    thread.granted = false;
    thread.deadline = deadline;
    thread.mayStray = mayStray;
    if (!isRunning())
        report("deadlock", "the only thread waits");
    if (isTracing()) {
        mark(thread.place);
        trace("%35s waits\n", thread.name);
    }
    thread.state = Task::WAITING;
    // A wait that follows one that ended without a cause continues it.
    if (!thread.hasStrayed)
        thread.moves = 0;
    thread.since = _record->steps;
    pick(false);
    thread.hasStrayed = thread.isStray;
    _yields = 0;
    if (isTracing())
        trace("%35s goes on\n", thread.name);
}

unsigned Scheduler::chooseStore(unsigned count)
{
    if (!_options.weak)
        return 0;
    unsigned const chosen = _strategy->chooseStore(count, *_record);
    keep(chosen, count, true);
    _record->digest = mix(_record->digest, chosen);
    return chosen;
}

void Scheduler::note(std::uint64_t result)
{
    if (!isRunning())
        return;
    _record->digest = mix(_record->digest, result);
    if (isTracing())
        trace("%35s gets %llu\n", self->name, static_cast<unsigned long long>(result));
}

// ---- Memory orders.

Order Scheduler::followWeakened(OrderPlace const &place) const
{
    Weakening const &weakening = _options.weakening;
    std::string_view const file = place.file;
    std::string_view const ending = weakening.file;
    // A relaxed operation of the same name may be on the same line.
    if (place.order == Order::RELAXED || !file.ends_with(ending) ||
        (file != ending && file[file.size() - ending.size() - 1] != '/') ||
        std::strcmp(weakening.operation, place.operation) != 0)
        return place.order;
    _record->isWeakened = true;
    return weakening.order;
}

std::uint32_t Scheduler::list(OrderPlace const &place)
{
    constexpr std::uint32_t SPREAD = 7;
    for (std::uint32_t i = 0; i < Record::ORDERS; ++i) {
        std::uint32_t const number = 1 + (SPREAD * place.line + i) % (Record::ORDERS - 1);
        OrderPlace &one = _record->orders[number];
        if (!one.file)
            one = place;
        if (one.line == place.line && one.file == place.file && one.operation == place.operation)
            return number;
    }
    report("too many orders", "the record has no room for their places");
}

// ---- The clock.

Instant Scheduler::deadlineAfter(DWORD milliseconds) const
{
    return milliseconds == INFINITE ? NEVER : _now + Instant{milliseconds} * MILLISECOND;
}

Instant Scheduler::nextDeadline()
{
    Instant next = NEVER;
    auto const consider = [&](Instant instant) {
        if (instant > _now && instant < next)
            next = instant;
    };
    forEach([&](Task &thread) {
        if (thread.state != Task::WAITING || thread.granted)
            return;
        consider(thread.deadline);
        consider(dueTime(thread));
    });
    return next;
}

void Scheduler::pass(Instant time)
{
    _now += time;
    _record->time = _now;
}

void Scheduler::advance()
{
    Instant const next = nextDeadline();
    judgeStated();
    if (next == NEVER)
        report("deadlock", "no thread can run, and no time is due");
    // Threads that only wait for times must not hide that the first thread waits without an end.
    Task &first = **_tasks;
    bool const waits = first.state == Task::WAITING && first.deadline == NEVER;
    if (waits && ++first.moves > MOVES) {
        static char text[80];
        std::snprintf(text, sizeof text,
                      "time advances, and the first thread has waited since step %u", first.since);
        report("deadlock", text);
    }
    _now = next;
    _yields = 0;
    _record->time = next;
    if (++_record->steps > _options.bound)
        report("no progress", "the schedule takes more steps than it may");
    _record->digest = mix(_record->digest, static_cast<std::uint64_t>(next));
    if (isTracing())
        trace("%6u %12.6f  time moves\n", _record->steps, static_cast<double>(_now) / 1e9);
    timeHasAdvanced();
}

/// Reports a thread that waits without a time-out although its stated condition is true, if no time
/// is due that could still wake it, or if it has waited for too long.
void Scheduler::judgeStated()
{
    Unseen const unseen;
    bool const isLast = nextDeadline() == NEVER;
    forEach([&](Task &thread) {
        if (thread.state != Task::WAITING || thread.deadline != NEVER)
            return;
        for (WaitingFor *stated = thread.stated; stated; stated = stated->_outer) {
            stated->_held = stated->_condition(stated->_data) ? stated->_held + 1 : 0;
            if (stated->_held > MOVES || (stated->_held && isLast)) {
                static char text[256];
                std::snprintf(text, sizeof text, "%s waits although this holds: %s", thread.name,
                              stated->_what);
                report("waits for ever", text);
            }
        }
    });
}

// ---- Tasks.

bool Scheduler::add(Task &task)
{
    if (!task.position) {
        if (_used == MAX_TASKS)
            return false;
        _tasks[_used++] = &task;
        task.position = _used;
    }
    Unseen const unseen;
    task.serial = ++_serial;
    task.state = Task::RUNNABLE;
    task.stated = nullptr;
    task.hasReleased = false;
    task.doing = "beginning";
    task.place.count = 0;
    std::snprintf(task.name, sizeof task.name, "thread %u", task.serial);
    if (_strategy)
        _strategy->started(task);
    return true;
}

// ---- Beginning and end.

void Scheduler::begin(Options const &options, Record &record)
{
    Task &first = currentTask();
    std::snprintf(first.name, sizeof first.name, "main");
    _options = options;
    _strategy = &strategyFor(options.choice);
    _strategy->begin(options, record);
    _strategy->started(first);
    _identifiers = Random(~options.seed);
    _objects = countObjects();
    _latestObject = latestObject();
    record.steps = record.switches = record.decisions = record.failable = record.threads = 0;
    record.digest = options.seed ? 1 : 0;
    record.time = 0;
    if (options.listsOrders)
        std::fill_n(record.orders, Record::ORDERS, OrderPlace{});
    record.isDone = record.isWeakened = false;
    record.finding[0] = record.report[0] = '\0';
    _record = &record;
    weakMemory.reset();
    plainData.reset();
}

void Scheduler::end(LeftOver const &leftOver)
{
    point({"end"});
    for (bool isAnyEnding = true; isAnyEnding;) {
        isAnyEnding = false;
        forEach([&](Task &thread) {
            isAnyEnding = isAnyEnding || (thread.state != Task::ENDED && isEnding(thread));
        });
        if (isAnyEnding)
            point({"end"}, true);
    }
    unsigned alive = 0;
    char const *locked = nullptr;
    forEach([&](Task &thread) {
        bool const isAlive = thread.state != Task::ENDED && &thread != self;
        alive += isAlive;
        // A thread that is allowed to remain may hold locks.
        if (isAlive)
            return;
        if (char const *held = lockHeldBy(thread))
            locked = held;
    });
    if (locked)
        report("left locked", locked);
    if (alive > leftOver.threads)
        report("left alive", "threads have not ended");
    if (countObjects() > _objects + leftOver.objects)
        report("left over", "objects have not been closed");
    _record->isDone = true;
    _record = nullptr;
}

bool Scheduler::isRefused(Resource resource)
{
    if (!_record || _refusals == 0 || !(_options.resources & resource))
        return false;
    ++_record->failable;
    bool const isIt = _record->failable == _options.failing;
    if (isIt && isTracing())
        trace("%35s is refused\n", self->name);
    return isIt;
}

// ---- Reports.

void Scheduler::mark(Place &place) const
{
    Unseen const unseen;
    place.count = static_cast<unsigned>(::backtrace(place.frames, FRAMES));
}

void Scheduler::trace(char const *format, ...)
{
    Unseen const unseen;
    va_list arguments;
    va_start(arguments, format);
    int const length = std::vsnprintf(_line, sizeof _line, format, arguments);
    va_end(arguments);
    if (length > 0 && ::write(_options.trace, _line, static_cast<std::size_t>(length)) < 0)
        ::_exit(1);
}

void append(char *&text, char *end, char const *format, ...)
{
    if (text >= end)
        return;
    Unseen const unseen;
    va_list arguments;
    va_start(arguments, format);
    int const length =
        std::vsnprintf(text, static_cast<std::size_t>(end - text), format, arguments);
    va_end(arguments);
    text = length < 0 || length >= end - text ? end - 1 : text + length;
}

void append(char *&text, char *end, Place const &place)
{
    if (place.count == 0)
        return;
    append(text, end, " @");
    for (unsigned i = 0; i < place.count; ++i)
        append(text, end, " %p", place.frames[i]);
}

namespace {

void describeThread(Task &thread, char *&text, char *end)
{
    append(text, end, "  %s: ", thread.name);
    switch (thread.state) {
    case Task::ENDED:
        append(text, end, "has ended");
        break;
    case Task::RUNNABLE:
        append(text, end, "can run, at %s", thread.doing);
        break;
    default:
        describeWait(thread, text, end);
        if (thread.deadline != NEVER)
            append(text, end, " until %.6f", static_cast<double>(thread.deadline) / 1e9);
        break;
    }
    if (thread.state != Task::ENDED)
        append(text, end, thread.place);
    append(text, end, "\n");
    describeHeld(thread, text, end);
    for (WaitingFor *stated = thread.stated; stated; stated = stated->_outer)
        append(text, end, "    says that it waits for: %s\n", stated->_what);
}

} // namespace

void Scheduler::report(char const *finding, char const *what)
{
    Unseen const unseen;
    static char outside[sizeof(Record::report)];
    char *text = _record ? _record->report : outside;
    char * const end = text + sizeof outside;
    if (_record && self && isTracing())
        mark(self->place);
    append(text, end, "%s, at step %u, %.6f s: %s\n", finding, _record ? _record->steps : 0,
           static_cast<double>(_now) / 1e9, what);
    forEach([&](Task &thread) { describeThread(thread, text, end); });
    listOlderValues(text, end);
    if (std::strcmp(finding, "left over") == 0)
        listObjects(_latestObject, text, end);
    if (!_record) {
        std::fputs(outside, stderr);
        std::abort();
    }
    std::snprintf(_record->finding, sizeof _record->finding, "%s", finding);
    ::_exit(3);
}

} // namespace ZvPlatform::Simulated

namespace ZvPlatform {

void Interlocked::schedulingPoint()
{
    using namespace Simulated;
    if (!scheduler.isRunning())
        return;
    scheduler.point({"interlocked"});
    // These operations have one order for all threads.
    weakMemory.acquire(indexOf(currentTask()), &scheduler);
    weakMemory.release(indexOf(currentTask()), &scheduler);
}

} // namespace ZvPlatform
