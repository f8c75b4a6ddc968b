// The traces of all threads.
#pragma once

#include "zvbase/trace.h"
#include "zvbase/traceManager.h"

namespace Zv {

/// Gives each thread its `MtTrace`, by the thread-specific data "MtTraceMgr". In charge of the process's traces from
/// its constructor to its destructor.
class MtTraceMgr final : public TraceManager
{
public:
    /// `isInCharge` 0: for a manager that is asked directly only.
    explicit MtTraceMgr(int isInCharge);

    Trace *getTrace() override;
    void print(char const *text) override;
    ~MtTraceMgr() override;

    /// Makes the calling thread's trace ahead of its first line, so that this allocates nothing.
    static void prepareThread();

private:
    Trace _nobodys; // for lines about the making of a trace
};

} // namespace Zv
