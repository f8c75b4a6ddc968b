// Small programs of a few threads, each with what must hold in it. The explorer takes them through many schedules.
//
//     SIMULATED(TwoThreadsCount, {.schedules = 500})
//     {
//         LkCounter<long> counter(0);
//         Worker other("other", [&] { counter.increment(); });
//         counter.increment();
//         other.join();
//         HOLDS(counter.getCount() == 2);
//     }
//
// The body runs in a process of its own for each schedule. It ends by returning; what it leaves behind, and all that
// the scheduler can see going wrong, is found without its help.
#pragma once

#include "platform/simulated/simulation.h"

#include <functional>
#include <string>
#include <vector>

namespace Zv::Simulated {

using namespace ZvPlatform::Simulated;

struct Settings
{
    /// Schedules that the tests take by random choice, and as many by priorities.
    unsigned schedules = 300;
    /// Pre-emptions up to which all schedules are taken; -1 for none. For programs of a few steps.
    int preemptions = -1;
    /// At most so many of these.
    unsigned exhaustive = 2000;
    unsigned bound = 50'000;
    /// Time may hurry, and waits for an address may end without a cause, in half of the schedules.
    bool hasty = true;
    bool stray = true;
    /// What stays by design.
    LeftOver leftOver = {};
    /// Is called once, before the first schedule: makes what takes many steps and is not looked at here.
    void (*prepare)() = nullptr;
    /// Calls of these kinds fail, the first in the first schedules, then the second, until there is none left.
    std::uint32_t refusals = 0;
    /// Memory that the body has allocated must be free again.
    bool leaks = false;
};

/// A program that has a fault, which must be found within so many schedules of each kind; 0 stands for a way that is not
/// to find it.
struct Fault
{
    char const *finding = nullptr;
    unsigned byRandom = 0;
    unsigned byPriority = 0;
    unsigned byExhaustion = 0;
    unsigned byRefusal = 0; ///< for each call
    unsigned byRepetition = 0;
};

struct Scenario
{
    char const *name;
    Settings settings;
    void (*body)();
    Fault fault = {};
};

/// In the order in which they are linked.
std::vector<Scenario> &getScenarios();

struct Enter
{
    Enter(char const *suite, Scenario const &, char const *file, int line);
};

/// A thread of the scheduler, which the destructor joins.
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

/// Memory of `operator new` that is in use.
long getNbAllocations();

#define SIMULATED(NAME, ...)                                                                       \
    static void run##NAME();                                                                       \
    static Zv::Simulated::Enter const enter##NAME(                                                 \
        "Simulated", {#NAME, Zv::Simulated::Settings(__VA_ARGS__), run##NAME}, __FILE__,           \
        __LINE__);                                                                                 \
    static void run##NAME()

/// A program with a known fault, for tests of the scheduler itself.
#define KNOWN_FAULT(NAME, FAULT, ...)                                                              \
    static void run##NAME();                                                                       \
    static Zv::Simulated::Enter const enter##NAME(                                                 \
        "KnownFaults", {#NAME, Zv::Simulated::Settings(__VA_ARGS__), run##NAME, FAULT}, __FILE__,  \
        __LINE__);                                                                                 \
    static void run##NAME()

#define HOLDS(CONDITION)                                                                           \
    do {                                                                                           \
        if (!(CONDITION))                                                                          \
            Zv::Simulated::find("does not hold", "%s, %s:%d", #CONDITION, __FILE__, __LINE__);     \
    } while (false)

} // namespace Zv::Simulated
