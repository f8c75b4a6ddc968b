// Programs of a few threads, which the tests and `./run explore` run under many schedules.
//
//     SIMULATED(TwoThreadsCount, {.schedules = 500})
//     {
//         LkCounter<long> counter(0);
//         Worker other("other", [&] { ++counter; });
//         ++counter;
//         other.join();
//         HOLDS(counter.getValue() == 2);
//     }
//
// In each schedule, the body runs as in a new process. What it leaves behind, and every fault that
// the scheduler can detect, is found without its help.
#pragma once

#include "explore/nursery.private.h"

namespace Zv::Simulated {

/// Returns the process that all programs are forked from.
Nursery &getNursery();

/// Adds a program, and a test that runs it.
struct Enter
{
    Enter(char const *suite, Scenario const &, char const *file, int line);
};

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
