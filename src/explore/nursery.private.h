// Nursery: forks the processes that run schedules (extenders).
#pragma once

#include "explore/scenario.private.h"

#include <sys/types.h>

namespace Zv::Simulated {

/// A schedule to be run, and its result.
struct Run
{
    enum State : std::uint32_t
    {
        ASKED,
        BEGUN,
        CLOSED ///< nothing more will be asked
    };

    /// How far the request has come.
    State state;
    unsigned scenario;
    /// The schedule gets a process of its own.
    bool isAlone;
    /// Number of schedules of the program after which a process was restored.
    unsigned restored;
    Options options;
    /// Status of the process, as `waitpid` returns it.
    int status;
    Record record;
};

/// A process that is forked at the beginning of the tests. It forks a process for each program,
/// which prepares the program once and forks processes that run schedules. Such a process restores
/// its memory after each schedule, and ends if there is a finding or if a schedule has left more
/// than memory behind. All schedules of a program therefore begin with the same memory.
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
    /// Returns whether processes of this build run more than one schedule.
    static bool isRestoring();
    int getTraceFile() const { return _trace; }

private:
    void awaitRequest();
    void answer(int status);
    [[noreturn]] void serve();
    [[noreturn]] void serveScenario();
    [[noreturn]] void runSchedules(bool mayRestore);

    Run *_run;
    int _trace;
    int _nowhere; ///< `/dev/null`, for the output of programs
    int _toNursery[2];
    int _fromNursery[2];
    pid_t _process;
};

} // namespace Zv::Simulated
