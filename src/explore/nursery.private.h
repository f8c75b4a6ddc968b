// Nursery: forks a process for each schedule (extenders).
#pragma once

#include "explore/scenario.private.h"

#include <sys/types.h>

namespace Zv::Simulated {

/// A schedule to be run, and its result.
struct Run
{
    unsigned scenario;
    Options options;
    /// Status of the process, as `waitpid` returns it.
    int status;
    Record record;
};

/// A process that is forked at the beginning of the tests. It forks a process for each program,
/// which prepares the program once and forks a process for each schedule. All schedules of a
/// program therefore begin with the same memory.
class Nursery
{
public:
    Nursery();
    ~Nursery();
    Nursery(Nursery const &) = delete;
    Nursery &operator=(Nursery const &) = delete;

    /// Returns the next run. Its record holds the script of the schedule.
    Run &getRun() { return *_run; }
    /// Executes the run, and waits for its process.
    void run();
    /// Returns the trace of the last run, which is empty if the run was not traced.
    std::string getTrace() const;
    int getTraceFile() const { return _trace; }

private:
    bool isAsked();
    [[noreturn]] void serve();
    [[noreturn]] void serveScenario();

    Run *_run;
    int _trace;
    int _nowhere; ///< `/dev/null`, for the output of programs
    int _toNursery[2];
    int _fromNursery[2];
    pid_t _process;
};

} // namespace Zv::Simulated
