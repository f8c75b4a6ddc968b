// Trace lines that bear the name of their thread.
#pragma once

#include "zvbase/trace.h"
#include "zvbase/traceManager.h"

namespace Zv {

/// The trace of one thread, created by that thread. Its tag is the name of the thread, or "unknown"
/// if `MtThreadMgr` does not know the thread.
class MtTrace final : public Trace
{
public:
    MtTrace();
    ~MtTrace() override;
    void writeTag(std::ostream &stream) const override;

private:
    char _name[16];
};

/// Gives each thread its `MtTrace`, by the thread-specific data "MtTraceMgr". If `isInCharge` is
/// not 0, the manager is in charge of the process's traces from its constructor to its destructor.
/// Otherwise it must be called directly.
class MtTraceMgr final : public TraceManager
{
public:
    explicit MtTraceMgr(int isInCharge);

    Trace *getTrace() override;
    void print(char const *text) override;
    ~MtTraceMgr() override;

    /// Creates the trace of the calling thread before its first line, so that this line allocates
    /// nothing.
    static void prepareThread();

private:
    Trace _nobodys; // for lines about the creation of a trace
};

} // namespace Zv
