// The clock of everything that the playout measures.
#pragma once

#include <zvbase/sleeper.h>

/// Returns the present moment in seconds. Differences of two moments are times.
inline double now()
{
    return Zv::Sleeper::getInstance().getTime();
}
