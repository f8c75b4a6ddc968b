// Levels of the threads of the process.
#pragma once

#include <string>
#include <vector>

/// Level of a thread of the library.
struct ThreadLevel
{
    std::string name;
    int level;         ///< from 0, idle, to 6, time-critical
    std::string asked; ///< what the level asks the system for: "SCHED_RR 24" or "nice 0"
    std::string got;   ///< what the thread has, in the same form. Empty if the thread has ended
};

/// Returns the levels of all threads of the library that run now. Must be called while the packages
/// are up.
std::vector<ThreadLevel> readThreadLevels();
