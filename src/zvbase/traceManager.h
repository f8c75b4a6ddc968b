// Who knows each thread's `Trace`.
#pragma once

#include "zvbase/trace.h"

#include <cstddef>

namespace Zv {

/// Gives each thread its `Trace`. The base library has one of its own, whose threads are all "unknown". A library
/// with threads derives another, which is in charge from `install` to `retire`; managers nest.
///
/// The calling thread's `getTrace` is asked when a thread writes its first line under a manager; the tag is kept
/// with the thread's queue from then on.
class ZVBASE_EXPORT TraceManager
{
public:
    /// The manager in charge.
    static TraceManager *getInstance();

    /// The calling thread's. Belongs to the manager.
    virtual Trace *getTrace() = 0;
    /// Prints a text that is no trace line, through `LgTrace::print`.
    virtual void print(char const *text) = 0;
    virtual ~TraceManager();

protected:
    TraceManager();
    TraceManager(TraceManager const &) = delete;
    TraceManager &operator=(TraceManager const &) = delete;

    /// Puts this manager in charge. Called at the end of the most derived constructor: other threads use the manager
    /// at once.
    void install();
    /// Puts the former manager in charge again and waits until no thread is inside `getTrace` or the tag of a
    /// `Trace` for the sake of a trace line. Called first in the most derived destructor, which may destroy all
    /// traces after it; managers retire in the reverse order of their installation. Calls after the first do nothing.
    void retire();

private:
    friend class TraceTags;

    TraceManager *_former = nullptr;
    bool _isInstalled = false;
};

} // namespace Zv
