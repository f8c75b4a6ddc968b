#include "explore/nursery.private.h"

#include "explore/snapshot.private.h"
#include "platform/scheduler/bearer.h"
#include "platform/scheduler/pool.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fcntl.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace Zv::Simulated {

namespace {

/// Exit status of a process that has left more than memory behind.
constexpr int UNCLEAN = 10;
/// Threads that are prepared once for all schedules of a program. If it has more, or with larger
/// stacks, they are created in each schedule.
constexpr unsigned WORKERS = 24;
constexpr std::size_t WORKER_STACK = 2 * 1024 * 1024;
constexpr std::size_t BODY_STACK = 8 * 1024 * 1024;
/// Memory for all that a schedule allocates, so that it need not map any.
constexpr int HEAP = 64 * 1024 * 1024;
constexpr std::size_t FREE_HEAP = HEAP / 4;

#if defined(ZV_RACES) || defined(__SANITIZE_ADDRESS__)
// They map memory at any time.
constexpr bool RESTORES = false;
#else
constexpr bool RESTORES = true;
#endif

/// The thread to which the body of a schedule returns. Null if its end is that of the process.
constinit Bearer *runner = nullptr;

void check(bool good, char const *what)
{
    if (good)
        return;
    std::perror(what);
    std::exit(1);
}

[[noreturn]] void runBody(void *data)
{
    Run &run = *static_cast<Run *>(data);
    Scenario const &scenario = getScenarios()[run.scenario];
    begin(run.options, run.record);
    long const allocated = getNbAllocations();
    try {
        scenario.body();
    } catch (std::exception const &exception) {
        find("exception", "main ends with an exception: %s", exception.what());
    } catch (...) {
        find("exception", "main ends with an exception");
    }
    long const left = getNbAllocations() - allocated;
    if (scenario.settings.leaks && left != 0)
        find("leak", "%ld allocations have not been given back", left);
    end(scenario.settings.leftOver);
    if (!runner)
        ::_exit(0);
    Bearer::current().passTo(*runner, true);
    std::abort();
}

/// The scheduler does not notice a thread that computes without taking a step.
void limitTime()
{
    constexpr rlim_t SECONDS = 20;
    timespec used;
    rlimit limit;
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    ::getrlimit(RLIMIT_CPU, &limit);
    limit.rlim_cur = static_cast<rlim_t>(used.tv_sec) + SECONDS;
    ::setrlimit(RLIMIT_CPU, &limit);
}

/// Keeps the heap from being mapped or given back during a schedule.
void prepareHeap()
{
    ::mallopt(M_MMAP_THRESHOLD, HEAP / 2);
    ::mallopt(M_TRIM_THRESHOLD, INT_MAX);
    ::mallopt(M_TOP_PAD, HEAP);
    void * const volatile memory = std::malloc(FREE_HEAP);
    std::free(memory);
}

/// Runs one schedule in the calling process. The body has a thread of its own, so that the address
/// of its stack does not depend on the environment.
void runSchedule(Run &run)
{
    limitTime();
    run.state = Run::BEGUN;
    Bearer * const body = Bearer::create(BODY_STACK, runBody, &run);
    check(body, "thread of the body");
    Bearer::current().passTo(*body, false);
}

} // namespace

Nursery::Nursery()
{
    void *memory =
        ::mmap(nullptr, sizeof(Run), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    check(memory != MAP_FAILED, "mmap");
    _run = static_cast<Run *>(memory);
    _trace = ::memfd_create("trace", 0);
    check(_trace >= 0, "memfd_create");
    _nowhere = ::open("/dev/null", O_WRONLY);
    check(_nowhere >= 0, "/dev/null");
    check(::pipe(_toNursery) == 0 && ::pipe(_fromNursery) == 0, "pipe");
    _process = ::fork();
    check(_process >= 0, "fork");
    if (_process == 0)
        serve();
    ::close(_toNursery[0]);
    ::close(_fromNursery[1]);
}

Nursery::~Nursery()
{
    ::close(_toNursery[1]);
    ::waitpid(_process, nullptr, 0);
    ::close(_fromNursery[0]);
    ::close(_trace);
    ::close(_nowhere);
    ::munmap(_run, sizeof(Run));
}

bool Nursery::isRestoring()
{
    return RESTORES && Bearer::isOnlyOneReal();
}

void Nursery::awaitRequest()
{
    char byte;
    _run->state = ::read(_toNursery[0], &byte, 1) == 1 ? Run::ASKED : Run::CLOSED;
}

void Nursery::answer(int status)
{
    _run->status = status;
    char const byte = 0;
    check(::write(_fromNursery[1], &byte, 1) == 1, "write");
}

void Nursery::serve()
{
    ::close(_toNursery[1]);
    ::close(_fromNursery[0]);
    awaitRequest();
    while (_run->state != Run::CLOSED) {
        pid_t const child = ::fork();
        if (child == 0)
            serveScenario();
        int status;
        check(child > 0 && ::waitpid(child, &status, 0) == child && status == 0, "waitpid");
    }
    ::_exit(0);
}

/// Runs schedules of one program until another program is requested or the tests end.
void Nursery::serveScenario()
{
    unsigned const scenario = _run->scenario;
    if (auto * const prepare = getScenarios()[scenario].settings.prepare)
        prepare();
    Bearer::prepare(WORKERS, WORKER_STACK);
    Bearer::prepare(1, BODY_STACK);
    takeFromPool(0);
    prepareHeap();
    _run->restored = 0;
    unsigned unclean = 0;
    while (_run->state != Run::CLOSED && _run->scenario == scenario) {
        // A process that is used for a few schedules only is no gain.
        bool const isWorthIt = 4 * unclean < _run->restored + 16;
        pid_t const child = Bearer::fork();
        if (child == 0)
            runSchedules(isRestoring() && isWorthIt && !_run->isAlone);
        int status;
        check(child > 0 && ::waitpid(child, &status, 0) == child, "waitpid");
        if (_run->state == Run::BEGUN) {
            answer(status);
            awaitRequest();
        } else if (WEXITSTATUS(status) == UNCLEAN) {
            ++unclean;
        }
    }
    ::_exit(0);
}

/// Runs one schedule, or also the next ones of the same program as long as the process can be
/// restored.
void Nursery::runSchedules(bool mayRestore)
{
    unsigned const scenario = _run->scenario;
    int const output = _run->options.trace >= 0 ? _trace : _nowhere;
    ::dup2(output, STDOUT_FILENO);
    ::dup2(output, STDERR_FILENO);
    if (!mayRestore)
        runSchedule(*_run);
    runner = &Bearer::current();
    Snapshot snapshot;
    bool isClean = true;
    do {
        runSchedule(*_run);
        isClean = snapshot.restore();
        _run->restored += isClean;
        answer(0);
        awaitRequest();
    } while (isClean && _run->state == Run::ASKED && _run->scenario == scenario && !_run->isAlone);
    ::_exit(isClean ? 0 : UNCLEAN);
}

void Nursery::run()
{
    check(::ftruncate(_trace, 0) == 0 && ::lseek(_trace, 0, SEEK_SET) == 0, "trace");
    _run->options.trace = _run->options.trace >= 0 ? _trace : -1;
    char byte = 0;
    check(::write(_toNursery[1], &byte, 1) == 1, "write");
    check(::read(_fromNursery[0], &byte, 1) == 1, "read");
}

std::string Nursery::getTrace() const
{
    std::string text(static_cast<std::size_t>(::lseek(_trace, 0, SEEK_END)), '\0');
    for (std::size_t done = 0; done < text.size();) {
        ssize_t const count =
            ::pread(_trace, text.data() + done, text.size() - done, static_cast<off_t>(done));
        check(count > 0, "pread");
        done += static_cast<std::size_t>(count);
    }
    return text;
}

} // namespace Zv::Simulated
