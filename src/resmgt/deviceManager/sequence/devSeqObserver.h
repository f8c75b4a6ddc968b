// Watching the devices of a sequence.
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/smartPtrs/rcBase.h"

namespace Zv {

/// Written by a client that wants to see how the machines of its devices move.
class ZVRESMGT_EXPORT DevSeqObserver : public RCBase<LkCounter<long>>
{
public:
    /// The machine of `device` has come to another state, such as "wml". Called on the thread that delivers the event,
    /// a client's or "DevMgr ANO", under the tree's lock: it takes a note, and neither waits nor calls the tree.
    virtual void stateChanged(LiString const &device, LiString const &state) = 0;

protected:
    ~DevSeqObserver() override;
};

} // namespace Zv
