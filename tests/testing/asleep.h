// Waits until another thread of this process sleeps.
#pragma once

#include <thread>

#ifndef _WIN32

#include <fstream>
#include <string>

#include <unistd.h>

#endif

namespace ZvTest {

#ifdef _WIN32

// Defined in tests/waits.cpp, to which the linker redirects all waits of a test program.
long threadNumber();
bool isAsleep(long number);

#else

inline long threadNumber()
{
    return ::gettid();
}

/// Returns whether the thread sleeps in the system.
inline bool isAsleep(long number)
{
    std::ifstream file("/proc/self/task/" + std::to_string(number) + "/stat");
    std::string line;
    std::getline(file, line);
    auto const state = line.rfind(')');
    return state != std::string::npos && line.at(state + 2) == 'S';
}

#endif

/// Waits until the thread sleeps in the system. The test must make sure that it sleeps in one place
/// only.
inline void waitUntilAsleep(long number)
{
    while (!isAsleep(number))
        std::this_thread::yield();
}

} // namespace ZvTest
