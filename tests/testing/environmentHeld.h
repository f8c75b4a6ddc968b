// Checks that code waits for the lock of the environment before it reads it.
#pragma once

#include "testing/asleep.h"
#include "zvbase/envVar.h"

#include <atomic>
#include <thread>

namespace ZvTest {

/// Calls `reading` on another thread while this thread holds the lock of the environment. Returns,
/// after that thread has ended, whether it waited.
template <class Reading>
bool waitsForTheEnvironment(Reading reading)
{
    std::atomic<long> number = 0;
    std::atomic<bool> hasEnded = false;
    std::thread thread;
    bool hasWaited = false;
    {
        Zv::EnvVar::Guard const guard;
        thread = std::thread([&] {
            number = threadNumber();
            reading();
            hasEnded = true;
        });
        while (!hasEnded && !hasWaited) {
            std::this_thread::yield();
            hasWaited = number != 0 && isAsleep(number) && !hasEnded;
        }
    }
    thread.join();
    return hasWaited;
}

} // namespace ZvTest
