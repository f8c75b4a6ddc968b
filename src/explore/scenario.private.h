// Programs of a few threads, which the explorer runs under many schedules (extenders).
#pragma once

#include "platform/scheduler/simulation.h"

#include <functional>
#include <string>
#include <vector>

namespace Zv::Simulated {

using namespace ZvPlatform::Simulated;

struct Settings
{
    /// Number of schedules that the tests run by random choice, and again by priorities.
    unsigned schedules = 300;
    /// The number on the simulated kernel, or 0 for a tenth. A schedule takes longer there.
    unsigned onKernel = 0;
    /// All schedules with at most this many pre-emptions are run as well, or none if it is -1. For
    /// programs of a few steps.
    int preemptions = -1;
    /// Limit of the number of those schedules.
    unsigned exhaustive = 2000;
    unsigned bound = 50'000;
    /// In half of the schedules, time may advance while threads could run.
    bool hasty = true;
    /// In half of the schedules, waits for an address may end without a cause.
    bool stray = true;
    /// Loads of shared words may return older values, as the C++ memory model permits.
    bool weak = true;
    /// What may remain at the end.
    LeftOver leftOver = {};
    /// Called once, before the first schedule, for preparations that take many steps and are not
    /// tested.
    void (*prepare)() = nullptr;
    /// Why the program cannot run on the simulated kernel, or null if it can.
    char const *notOnKernel = nullptr;
    /// Kinds of calls that fail: in the first schedules the first such call, then the second, until
    /// there is none left.
    std::uint32_t refusals = 0;
    /// Memory that the body has allocated must be free at the end.
    bool leaks = false;
};

/// Fault of a program, and the number of schedules within which each kind of search must find it. A
/// search with 0 schedules is not run.
struct Fault
{
    char const *finding = nullptr;
    unsigned byRandom = 0;
    unsigned byPriority = 0;
    unsigned byExhaustion = 0;
    unsigned byRefusal = 0; ///< for each call that fails
    unsigned byRepetition = 0;
    /// What the text of the failure must contain.
    char const *text = "";
};

struct Scenario
{
    char const *name;
    Settings settings;
    void (*body)();
    Fault fault = {};
};

/// Returns all programs, in the order in which they are linked.
std::vector<Scenario> &getScenarios();

/// A simulated thread. Its destructor joins it.
class Worker
{
public:
    Worker(char const *name, std::function<void()> body);
    ~Worker();
    Worker(Worker const &) = delete;
    Worker &operator=(Worker const &) = delete;

    void join();
    HANDLE getHandle() const { return _handle; }

private:
    static DWORD run(void *);

    std::string _name;
    std::function<void()> _body;
    HANDLE _handle;
};

/// Returns the number of allocations by `operator new` that are in use.
long getNbAllocations();

} // namespace Zv::Simulated
