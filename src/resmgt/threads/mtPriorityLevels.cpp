#include "resmgt/threads/mtPriorityLevels.private.h"

#include "zvbase/failures.h"

namespace Zv {

namespace {

constexpr int NB_LEVELS = MtPriorityLevels::MAXIMUM + 1;

constexpr int systemValues[NB_LEVELS] = {-15, -2, -1, 0, 1, 2, 15};

struct ClassRow
{
    unsigned long _class;
    int _basePriorities[NB_LEVELS];
};

constexpr ClassRow classRows[] = {
    {64, {1, 2, 3, 4, 5, 6, 15}},
    {32, {1, 6, 7, 8, 9, 10, 15}},
    {128, {1, 11, 12, 13, 14, 15, 15}},
    {256, {16, 22, 23, 24, 25, 26, 31}},
};

void checkLevel(int level)
{
    if (level < MtPriorityLevels::MINIMUM || level > MtPriorityLevels::MAXIMUM)
        ZV_ABORT_PROGRAM();
}

} // namespace

int MtPriorityLevels::toSystemValue(int level)
{
    checkLevel(level);
    return systemValues[level];
}

int MtPriorityLevels::fromSystemValue(int value)
{
    for (int level = MINIMUM; level <= MAXIMUM; ++level) {
        if (systemValues[level] == value)
            return level;
    }
    ZV_ABORT_PROGRAM();
}

int MtPriorityLevels::getBasePriority(unsigned long priorityClass, int level)
{
    checkLevel(level);
    for (ClassRow const &row : classRows) {
        if (row._class == priorityClass)
            return row._basePriorities[level];
    }
    ZV_ABORT_PROGRAM();
}

} // namespace Zv
