#include "resmgt/threads/mtPriorityLevels.private.h"

#include "platform/priorityTable.h"
#include "zvbase/failures.h"

#include <iterator>

namespace Zv {

namespace {

using ZvPlatform::PriorityTable;

static_assert(std::size(PriorityTable::LEVELS) == MtPriorityLevels::MAXIMUM + 1);

void checkLevel(int level)
{
    if (level < MtPriorityLevels::MINIMUM || level > MtPriorityLevels::MAXIMUM)
        ZV_ABORT_PROGRAM();
}

} // namespace

int MtPriorityLevels::toSystemValue(int level)
{
    checkLevel(level);
    return PriorityTable::LEVELS[level];
}

int MtPriorityLevels::fromSystemValue(int value)
{
    int const level = PriorityTable::findLevel(value);
    if (level < 0)
        ZV_ABORT_PROGRAM();
    return level;
}

int MtPriorityLevels::getBasePriority(unsigned long priorityClass, int level)
{
    checkLevel(level);
    PriorityTable::Row const * const row = PriorityTable::findRow(priorityClass);
    if (!row)
        ZV_ABORT_PROGRAM();
    return row->basePriorities[level];
}

} // namespace Zv
