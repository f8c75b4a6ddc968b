// Threads of the simulated kernel.
#pragma once

#include "platform/simulatedKernel/kernel.h"

namespace ZvPlatform::Linux::Kernel {

struct Task : Simulated::Task
{
    enum Wait : std::uint8_t
    {
        NONE,
        FUTEX,
        SLEEP,
        JOIN
    };

    Task *nextFree = nullptr;
    std::uint32_t number = 0; ///< never reused
    bool isEnding = false;    ///< its function has returned
    bool isJoined = false;    ///< its real thread has gone
    bool isReleased = false;  ///< it is detached, or a thread has joined it
    ThreadFunction function = nullptr;
    void *argument = nullptr;
    void *endValue = nullptr;

    Wait wait = NONE;
    bool isInterrupted = false; ///< a signal has ended the wait
    void const *address = nullptr;
    Task *awaited = nullptr; ///< which it joins
    Task *next = nullptr;
    Task *previous = nullptr;

    std::uint64_t pending = 0; ///< signals that have not been handled yet
    std::uint64_t blocked = 0; ///< signals that the thread does not accept now

    int policy = SCHED_OTHER;
    int realTime = 0;
    int nice = 0;
    cpu_set_t processors = {};
};

} // namespace ZvPlatform::Linux::Kernel

namespace ZvPlatform::Simulated {

/// Notes the calling thread, whose place the thread of `begin` takes later.
void noteFirst();

} // namespace ZvPlatform::Simulated
