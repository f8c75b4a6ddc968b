#include "explore/nursery.private.h"

#include "platform/scheduler/bearer.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Zv::Simulated {

namespace {

/// Exit status of the process of a program when another program is requested.
constexpr int ANOTHER = 10;
/// Threads that are prepared once for all schedules of a program. If it has more, or with larger
/// stacks, they are created in each schedule.
constexpr unsigned WORKERS = 6;
constexpr std::size_t WORKER_STACK = 2 * 1024 * 1024;
constexpr std::size_t BODY_STACK = 8 * 1024 * 1024;

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
    ::_exit(0);
}

/// Runs one schedule in the calling process. The body has a thread of its own, so that the address
/// of its stack does not depend on the environment.
[[noreturn]] void runSchedule(Run &run, int output)
{
    // The scheduler does not notice a thread that computes without taking a step.
    rlimit const limit = {20, 25};
    ::setrlimit(RLIMIT_CPU, &limit);
    ::dup2(output, STDOUT_FILENO);
    ::dup2(output, STDERR_FILENO);
    Bearer * const body = Bearer::create(BODY_STACK, runBody, &run);
    check(body, "thread of the body");
    Bearer::current().passTo(*body, false);
    // The body has ended the process.
    std::abort();
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

bool Nursery::isAsked()
{
    char byte;
    return ::read(_toNursery[0], &byte, 1) == 1;
}

void Nursery::serve()
{
    ::close(_toNursery[1]);
    ::close(_fromNursery[0]);
    bool asked = isAsked();
    while (asked) {
        pid_t const child = ::fork();
        if (child == 0)
            serveScenario();
        int status;
        check(child > 0 && ::waitpid(child, &status, 0) == child, "waitpid");
        asked = WIFEXITED(status) && WEXITSTATUS(status) == ANOTHER;
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
    do {
        pid_t const child = Bearer::fork();
        if (child == 0)
            runSchedule(*_run, _run->options.trace >= 0 ? _trace : _nowhere);
        check(child > 0 && ::waitpid(child, &_run->status, 0) == child, "waitpid");
        char const byte = 0;
        check(::write(_fromNursery[1], &byte, 1) == 1, "write");
        if (!isAsked())
            ::_exit(0);
    } while (_run->scenario == scenario);
    ::_exit(ANOTHER);
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
