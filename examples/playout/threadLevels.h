// Levels of the threads of the process.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

/// Level of a thread of the library.
struct ThreadLevel
{
    std::string name;
    int level;           ///< from 0, idle, to 6, time-critical
    std::string asked;   ///< what the level asks the system for: "SCHED_RR 24" or "nice 0"
    std::string got;     ///< what the thread has, in the same form. Empty if the thread has ended
    id_t number = 0;     ///< that the system gives it; 0 if the thread has ended
    double seconds = -1; ///< processor time; negative if it is not known
};

/// Returns the levels of all threads of the library that run now. Must be called while the packages
/// are up.
std::vector<ThreadLevel> readThreadLevels();
