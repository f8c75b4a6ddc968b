// Asks the trace manager in charge for the tag of a thread.
#pragma once

#include <cstddef>
#include <ostream>

namespace Zv {

class TraceManager;

/// Calls the manager in charge, so that it can retire safely at the same time.
class TraceTags
{
public:
    /// Returns a number that changes with the manager in charge. Never 0. Tags of another
    /// generation are out of date.
    static unsigned getGeneration();
    /// Writes the calling thread's tag.
    static void write(std::ostream &stream);

    /// As `TraceManager::install`.
    static void install(TraceManager &manager);
    /// As `TraceManager::retire`.
    static void retire(TraceManager &manager);
};

} // namespace Zv
