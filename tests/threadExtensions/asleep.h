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

/// Returns once the thread sleeps in the system. It is to sleep where the test wants it and nowhere else.
inline void waitUntilAsleep(long number)
{
    std::string const name = "/proc/self/task/" + std::to_string(number) + "/stat";
    for (;;) {
        std::ifstream file(name);
        std::string line;
        std::getline(file, line);
        auto const state = line.rfind(')');
        if (state != std::string::npos && line.at(state + 2) == 'S')
            return;
        std::this_thread::yield();
    }
}

} // namespace Zv
