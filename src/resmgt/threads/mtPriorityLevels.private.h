// The seven levels of a thread's priority, and what they are to the operating system.
#pragma once

namespace Zv {

/// Pure tables over plain numbers. All may be called by any thread; none blocks. A number that stands in no table
/// aborts the program.
///
/// | Level        |   0 |  1 |  2 | 3 | 4 | 5 |  6 |
/// | System value | -15 | -2 | -1 | 0 | 1 | 2 | 15 |
class MtPriorityLevels
{
public:
    static constexpr int MINIMUM = 0;
    static constexpr int MAXIMUM = 6;

    /// The argument of the system's `SetThreadPriority` for a level.
    static int toSystemValue(int level);
    /// The level for an answer of the system's `GetThreadPriority`.
    static int fromSystemValue(int value);
    /// The effective priority, 1 to 31, of a thread of `level` in a process of `priorityClass`, one of the system's
    /// four classes: idle (64), normal (32), high (128), real-time (256).
    static int getBasePriority(unsigned long priorityClass, int level);

    MtPriorityLevels() = delete;
};

} // namespace Zv
