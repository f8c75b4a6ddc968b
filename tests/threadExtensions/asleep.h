// Waits until another thread of this process sleeps in the operating system.
#pragma once

#include <thread>

#ifndef _WIN32

#include <fstream>
#include <string>

#include <unistd.h>

#endif

namespace Zv {

#ifdef _WIN32

// In tests/waits.cpp, which all waits of a test program pass.
long threadNumber();
bool isAsleep(long number);

#else

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

#endif

/// Returns when the thread sleeps in the system. The test must make sure that it sleeps in one
/// place only.
inline void waitUntilAsleep(long number)
{
    while (!isAsleep(number))
        std::this_thread::yield();
}

} // namespace Zv
