// Waits until another thread of this process sleeps, so that a test knows where it stands.
#pragma once

#include <fstream>
#include <string>
#include <thread>

#include <unistd.h>

namespace Zv {

inline long threadNumber()
{
    return ::gettid();
}

/// Whether the thread sleeps in the system.
inline bool isAsleep(long number)
{
    std::ifstream file("/proc/self/task/" + std::to_string(number) + "/stat");
    std::string line;
    std::getline(file, line);
    auto const state = line.rfind(')');
    return state != std::string::npos && line.at(state + 2) == 'S';
}

/// Returns once the thread sleeps in the system. It is to sleep where the test wants it and nowhere else.
inline void waitUntilAsleep(long number)
{
    while (!isAsleep(number))
        std::this_thread::yield();
}

} // namespace Zv
