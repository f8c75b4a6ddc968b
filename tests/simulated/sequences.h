// Settings of programs that run a sequence of devices.
#pragma once

#include "simulated/scenario.h"

#include "resmgt/deviceManager/sequence/devSeqTreeNode.h"

namespace Zv::Simulated {

/// Creates the table of the sequence machine before the first schedule, because this takes many
/// steps.
inline void makeSequenceTable()
{
    DevSeqSMTable::getInstance();
}

/// Returns settings for a program with sequences. If `isHasty` is false, a time-out only occurs
/// when no thread can run.
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
