// Trace lines that bear the name of their thread.
#pragma once

#include "zvbase/trace.h"

namespace Zv {

/// The trace of one thread, made by that thread. Its tag is the thread's name, or "unknown" for a thread that
/// `MtThreadMgr` does not know.
class MtTrace final : public Trace
{
public:
    MtTrace();
    ~MtTrace() override;
    void writeTag(std::ostream &stream) const override;

private:
    char _name[16];
};

} // namespace Zv
