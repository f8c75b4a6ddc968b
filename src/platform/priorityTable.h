// Levels and base priorities of threads: the table of the operating system's scheduler.
#pragma once

#include <algorithm>
#include <iterator>

namespace ZvPlatform {

/// The levels of a thread and the base priorities that they give it, with the numbers that Windows
/// has for them.
struct PriorityTable
{
    /// The levels, as `SetThreadPriority` takes them, from idle to time-critical.
    static constexpr int LEVELS[] = {-15, -2, -1, 0, 1, 2, 15};

    /// A class that a process may have, and the base priority of its threads at each level.
    struct Row
    {
        unsigned long priorityClass;
        int basePriorities[std::size(LEVELS)];
    };

    static constexpr Row ROWS[] = {
        {64, {1, 2, 3, 4, 5, 6, 15}},        // idle
        {32, {1, 6, 7, 8, 9, 10, 15}},       // normal
        {128, {1, 11, 12, 13, 14, 15, 15}},  // high
        {256, {16, 22, 23, 24, 25, 26, 31}}, // real-time
    };

    /// Returns the place of a level in `LEVELS`, or -1 if it is none.
    static constexpr int findLevel(int level)
    {
        auto const place = std::find(std::begin(LEVELS), std::end(LEVELS), level);
        return place == std::end(LEVELS) ? -1 : static_cast<int>(place - std::begin(LEVELS));
    }

    /// Returns the row of a class, or null if there is none.
    static constexpr Row const *findRow(unsigned long priorityClass)
    {
        auto const row = std::find_if(std::begin(ROWS), std::end(ROWS), [=](Row const &candidate) {
            return candidate.priorityClass == priorityClass;
        });
        return row == std::end(ROWS) ? nullptr : row;
    }
};

} // namespace ZvPlatform
