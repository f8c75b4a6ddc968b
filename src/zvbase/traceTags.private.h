// The tags of threads, asked from the manager in charge.
#pragma once

#include <cstddef>
#include <ostream>

namespace Zv {

class TraceManager;

/// Asks the manager in charge, in a way that lets it retire meanwhile.
class TraceTags
{
public:
    /// Goes up with each change of managers; never 0. Tags that were written before are out of date.
    static unsigned getGeneration();
    /// Writes the calling thread's tag.
    static void write(std::ostream &stream);

    static void install(TraceManager &manager);
    /// Returns when nobody is inside the manager any more.
    static void retire(TraceManager &manager);
};

} // namespace Zv
