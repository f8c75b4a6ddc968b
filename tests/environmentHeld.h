// Whether code that reads the environment leaves it alone while it may be changing.
#pragma once

#include "threadExtensions/asleep.h"
#include "zvbase/envVar.h"

#include <atomic>
#include <thread>

namespace ZvTest {

/// Calls `reading` in another thread while this one holds the environment. Returns whether that thread waited, and
/// lets it end.
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
            number = Zv::threadNumber();
            reading();
            hasEnded = true;
        });
        while (!hasEnded && !hasWaited) {
            std::this_thread::yield();
            hasWaited = number != 0 && Zv::isAsleep(number) && !hasEnded;
        }
    }
    thread.join();
    return hasWaited;
}

} // namespace ZvTest
