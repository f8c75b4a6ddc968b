// Assigns a `Trace` to each thread (extenders).
#pragma once

#include "zvbase/trace.h"

#include <cstddef>

namespace Zv {

/// Provides the `Trace` of each thread, whose tag appears in the thread's trace lines.
///
/// The manager of the base library calls all threads "unknown". A library with threads derives
/// another one. It is in charge from `install` until `retire`. Managers nest.
///
/// The manager in charge is asked when a thread writes its first line since the manager's
/// installation. The thread's queue then keeps the tag.
///
///     class Manager : public Zv::TraceManager
///     {
///     public:
///         Manager() { install(); }
///         ~Manager() override { retire(); }
///         Zv::Trace *getTrace() override { return &_trace; }
///         void print(char const *text) override { Zv::LgTrace::print(text); }
///
///     private:
///         Zv::Trace _trace;
///     };
///
/// **Threads**: thread-safe. `install` and `retire` are the exception, see there.
class ZVBASE_EXPORT TraceManager
{
public:
    /// Returns the manager in charge.
    static TraceManager *getInstance();

    /// Returns the `Trace` of the calling thread. The manager owns it.
    virtual Trace *getTrace() = 0;
    /// Prints a text that is not a trace line, with `LgTrace::print`.
    virtual void print(char const *text) = 0;
    virtual ~TraceManager();

protected:
    TraceManager();
    TraceManager(TraceManager const &) = delete;
    TraceManager &operator=(TraceManager const &) = delete;

    /// Puts this manager in charge. Call it at the end of the most derived constructor, because
    /// other threads use the manager from then on.
    void install();
    /// Puts the former manager in charge again. Call it at the beginning of the most derived
    /// destructor. After the call no thread uses the manager or one of its traces for a trace line.
    /// Managers must retire in the reverse order of their installation. Further calls do nothing.
    /// Fails the assertion "inCharge == &manager" if another manager is in charge.
    ///
    /// **Blocks**: until no thread is inside of `getTrace` or `Trace::writeTag` for a trace line.
    void retire();

private:
    friend class TraceTags;

    TraceManager *_former = nullptr;
    bool _isInstalled = false;
};

} // namespace Zv
