// Where the processes of the schedules come from.
#pragma once

#include "simulated/scenario.h"

#include <sys/types.h>

namespace Zv::Simulated {

/// What is asked for, and what came of it.
struct Run
{
    unsigned scenario;
    Options options;
    /// As `waitpid` tells it.
    int status;
    Record record;
};

/// A process that is forked before the program has done anything. It forks one for each program, which prepares it
/// once, and that forks one for each schedule: all schedules of a program find the very same memory, whatever has been
/// done in the meantime.
class Nursery
{
public:
    Nursery();
    ~Nursery();
    Nursery(Nursery const &) = delete;
    Nursery &operator=(Nursery const &) = delete;

    /// What the next run is to be; its script stands in the record.
    Run &getRun() { return *_run; }
    /// Runs it. What it wrote is in `getTrace`, if it was to be traced.
    void run();
    std::string getTrace() const;
    int getTraceFile() const { return _trace; }

private:
    bool isAsked();
    [[noreturn]] void serve();
    [[noreturn]] void serveScenario();

    Run *_run;
    int _trace;
    int _toNursery[2];
    int _fromNursery[2];
    pid_t _process;
};

} // namespace Zv::Simulated
