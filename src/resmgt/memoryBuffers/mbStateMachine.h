// The machine that every buffer lives in.
#pragma once

#include "resmgt/export.h"

namespace Zv {

class MbState;

/// The machine of the buffers: 30 states, 12 events. There are two that do the same; one of them writes each event to
/// the trace, at the level "MbBuffers". A factory of buffers is made with the initial state of one of them:
///
///     MbBufferSimpleFactory factory(MbStateMachine::getInstance(false).getInitialState(), manager);
///
/// A buffer can be found resting in these states:
///
///     Freed, Unloaded                  no memory; without and with contents to come back
///     Loaded, Synched                  memory, no guards: the manager may unload it
///     RdLocked, WrLocked               guards hold it
///     RdLockedFreed, WrLockedFreed     the same; its contents are given up when the last guard goes
///     WaitAsyncLoaded, -Reloaded, -Synched   an asynchronous operation is under way
///     Destroyed                        the last reference is gone
///
/// All others last only as long as a call of the protocol. A buffer that was synched is not so any more once it was
/// locked, be it only for reading: by design, it ends in Loaded.
class ZVRESMGT_EXPORT MbStateMachine
{
public:
    MbStateMachine(MbStateMachine const &) = delete;
    MbStateMachine &operator=(MbStateMachine const &) = delete;

    /// The silent machine for false, the tracing one for true. Made at first use, never destroyed. Any thread.
    static MbStateMachine &getInstance(bool trace);

    /// The state in which a buffer begins: Freed.
    virtual MbState const *getInitialState() const = 0;

protected:
    MbStateMachine();
    virtual ~MbStateMachine() noexcept(false);
};

} // namespace Zv
