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

/// A process that is forked before the program has done anything, and forks one more for each schedule: all of them
/// find the very same memory, whatever the program has done in the meantime.
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
    [[noreturn]] void serve();

    Run *_run;
    int _trace;
    int _toNursery[2];
    int _fromNursery[2];
    pid_t _process;
};

} // namespace Zv::Simulated
