// Levels of a thread's priority, and the operating system's values for them.
#pragma once

namespace Zv {

/// The seven levels of a thread's priority. Thread-safe; nothing blocks. A number outside the
/// tables aborts the program.
///
/// | Level        |   0 |  1 |  2 | 3 | 4 | 5 |  6 |
/// | System value | -15 | -2 | -1 | 0 | 1 | 2 | 15 |
class MtPriorityLevels
{
public:
    static constexpr int MINIMUM = 0;
    static constexpr int MAXIMUM = 6;

    /// Returns the argument of the system's `SetThreadPriority` for a level.
    static int toSystemValue(int level);
    /// Returns the level for a result of the system's `GetThreadPriority`.
    static int fromSystemValue(int value);
    /// Returns the effective priority, 1 to 31, of a thread of `level` in a process of
    /// `priorityClass`: idle (64), normal (32), high (128) or real-time (256).
    static int getBasePriority(unsigned long priorityClass, int level);

    MtPriorityLevels() = delete;
};

} // namespace Zv
