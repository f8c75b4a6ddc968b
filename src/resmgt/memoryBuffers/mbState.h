// The states of a buffer, as the buffer sees them.
#pragma once

#include "resmgt/export.h"

namespace Zv {

class MbBufferImp;

/// A state: what a buffer in it does when an event arrives. States have no data and are shared by all buffers of a
/// machine; see MbStateMachine. They are called by buffers only, with the buffer's mutex held; an operation may wait,
/// the mutex free meanwhile.
///
/// What a state does not allow is `MbEx::ExIllegalTransition`.
class ZVRESMGT_EXPORT MbState
{
public:
    virtual ~MbState() noexcept(false);

    virtual void rdlock(MbBufferImp *buffer) const = 0;
    virtual void wrlock(MbBufferImp *buffer) const = 0;
    virtual void wrdup(MbBufferImp *buffer) const = 0;
    virtual void prefetch(MbBufferImp *buffer) const = 0;
    virtual void asyncSync(MbBufferImp *buffer) const = 0;
    virtual void sync(MbBufferImp *buffer) const = 0;
    virtual void unlock(MbBufferImp *buffer) const = 0;
    virtual void unload(MbBufferImp *buffer) const = 0;
    virtual void free(MbBufferImp *buffer) const = 0;
    virtual void destroy(MbBufferImp *buffer) const = 0;
    virtual void asyncOpSucceeded(MbBufferImp *buffer) const = 0;
    virtual void asyncOpFailed(MbBufferImp *buffer) const = 0;

    /// Whether the memory has its contents and a lock is had without loading.
    virtual bool isLoaded() const = 0;
    /// The buffer has just come into this state. Answers the state that follows at once; null where this one is stable.
    virtual MbState const *entering(MbBufferImp *buffer) const = 0;
    /// The buffer is about to leave this state.
    virtual void leaving(MbBufferImp *buffer) const = 0;

protected:
    MbState();
};

} // namespace Zv
