// Levels of all threads of the process, and what the system has granted (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkThreadId.h"
#include "zvbase/sequenceContainers.h"

namespace Zv {

/// How the operating system schedules a thread, in the system's own terms. A value.
struct MtScheduling
{
    /// The thread runs in real time. On Linux its policy is `SCHED_RR` or `SCHED_FIFO`.
    bool isRealTime = false;
    /// On Linux the real-time priority, or the nice value of a thread that does not run in real
    /// time. On Windows the base priority, 1 to 31.
    int priority = 0;

    friend bool operator==(MtScheduling const &, MtScheduling const &) = default;
};

/// The level of a thread, what the level asks the system for, and what the system has granted. A
/// value, which does not change with the thread.
///
///     #include <iostream>
///
///     for (MtThreadStatus const &thread : MtThreadStatus::readAll())
///         if (thread.isRunning() && thread.granted != thread.asked)
///             std::cout << thread.name.getChars() << " has not its level\n";
///
/// **Threads**: any thread may read the status of all threads.
struct ZVRESMGT_EXPORT MtThreadStatus
{
    /// The name of the thread. The main thread is "main".
    LiString name;
    /// What `MtThread::getThreadId` returns.
    LkThreadId threadId;
    /// The number by which the tools of the system know the thread, such as `ps -L`. It is 0 if the
    /// thread does not run, or its function has returned.
    unsigned long systemNumber = 0;
    /// The level that the priorities give the thread, from `MtThreadFactory::getMinPriority` to
    /// `getMaxPriority`. The thread need not run.
    int level = 0;
    /// What that level asks the system for in the present operation of the process, real-time or
    /// not. On Linux the library does not ask for the main thread.
    MtScheduling asked;
    /// What the thread has, as the system says. Not set if `systemNumber` is 0.
    MtScheduling granted;

    /// Returns whether the system had the thread, so that `granted` is set.
    bool isRunning() const { return systemNumber != 0; }

    /// Returns the status of each thread that is registered with `MtThreadMgr`, in the order of
    /// their registration. The main thread is the first one. Leaves out threads of classes that the
    /// application has derived from `MtThread`.
    ///
    /// **Blocks** while the manager of the threads adds or removes a thread. Asks the system two or
    /// three times for each thread.
    [[nodiscard]] static Vector<MtThreadStatus> readAll();
};

} // namespace Zv
