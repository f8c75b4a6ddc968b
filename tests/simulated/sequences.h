// What programs that run a sequence of devices share.
#pragma once

#include "simulated/scenario.h"

#include "resmgt/deviceManager/sequence/devSeqSMTable.h"

namespace Zv::Simulated {

/// The table of the sequence machine takes many steps. It is made before the first schedule.
inline void makeSequenceTable()
{
    DevSeqSMTable::getInstance();
}

/// With `isHasty` time-outs may come at any time, otherwise only when nothing else can happen.
constexpr Settings withSequences(unsigned schedules, unsigned bound = 100'000, bool isHasty = true,
                                 LeftOver leftOver = {64, 0})
{
    Settings settings;
    settings.schedules = schedules;
    settings.bound = bound;
    settings.hasty = isHasty;
    settings.leftOver = leftOver;
    settings.prepare = makeSequenceTable;
    return settings;
}

} // namespace Zv::Simulated
