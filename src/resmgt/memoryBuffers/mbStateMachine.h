// State machine of a memory buffer, with its events and states (applications).
#pragma once

#include "resmgt/export.h"

#include <cstdint>

namespace Zv {

class MbBufferImp;

/// The events of a buffer. Each is a bit of its own, so that a buffer can keep a set of postponed
/// events. A set is delivered from the lowest bit up.
enum class MbEvent : std::uint32_t
{
    RDLOCK = 0x1,               ///< a read guard is made or copied
    WRLOCK = 0x2,               ///< a write guard is made
    WRDUP = 0x4,                ///< a write guard is copied
    PREFETCH = 0x8,             ///< `MbBuffer::prefetch`
    ASYNC_SYNC = 0x10,          ///< `MbBuffer::asyncSync`
    SYNC = 0x20,                ///< `MbBuffer::sync`
    UNLOCK = 0x40,              ///< a guard is destroyed, or assigned another buffer
    UNLOAD = 0x80,              ///< the manager has chosen the buffer to be evicted
    FREE = 0x100,               ///< `MbBuffer::free`
    DESTROY = 0x200,            ///< the last reference is gone
    ASYNC_OP_SUCCEEDED = 0x400, ///< an asynchronous operation has succeeded
    ASYNC_OP_FAILED = 0x800     ///< an asynchronous operation has failed
};

/// A state of a buffer. It decides what the buffer does when an event arrives. A state has no data,
/// and all buffers of a machine share it.
///
/// **Threads**: thread-safe. Only a buffer calls the operations, and it holds its mutex. An
/// operation may release the mutex while it waits or calls the protocol.
///
/// **Throws** `MbEx::ExIllegalTransition` if the state does not allow the event, and what the
/// protocol or the manager throws.
class ZVRESMGT_EXPORT MbState
{
public:
    virtual ~MbState() noexcept(false);

    /// Each of these twelve delivers the event of its name.
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

    /// Returns true if the memory has its contents, so that a lock can be taken without loading.
    virtual bool isLoaded() const = 0;
    /// Called when the buffer has changed to this state. Returns the state that follows at once, or
    /// null if this state is stable.
    virtual MbState const *entering(MbBufferImp *buffer) const = 0;
    /// Called when the buffer is about to leave this state.
    virtual void leaving(MbBufferImp *buffer) const = 0;

protected:
    MbState();
};

/// The state machine of all buffers, with 30 states and 12 events. It exists twice. The two
/// machines do the same, and one of them traces each event at the level "MbBuffers". A factory of
/// buffers takes the initial state of one of them:
///
///     RCShdPtr<MbManager> const manager(
///         new MbHeapManager("clips", 1 << 20, ObjPtr<MbUnloadStrategy>(new MbUnloadLRU(0))));
///     MbState const * const initial = MbStateMachine::getInstance(false).getInitialState();
///     MbBufferSimpleFactory factory(initial, manager);
///
/// Between two operations a buffer is in one of these states:
///
/// - Freed: no memory and no contents.
/// - Unloaded: no memory, but the protocol can bring the contents back.
/// - Loaded, Synched: memory, and no guard. The manager may evict the buffer.
/// - RdLocked, WrLocked: guards hold the buffer.
/// - RdLockedFreed, WrLockedFreed: guards hold the buffer, and its contents are discarded with the
///   last of them.
/// - WaitAsyncLoaded, WaitAsyncReloaded, WaitAsyncSynched: an asynchronous operation is under way.
/// - Destroyed: the last reference is gone.
///
/// A buffer is in any other state only while its protocol is called. A guard, even a read guard,
/// takes a buffer from Synched to Loaded. docs/buffer-machine.svg shows all states and what leads
/// from one to the other.
class ZVRESMGT_EXPORT MbStateMachine
{
public:
    MbStateMachine(MbStateMachine const &) = delete;
    MbStateMachine &operator=(MbStateMachine const &) = delete;

    /// Returns the tracing machine if `trace` is true, else the silent one. Each is made when it is
    /// first asked for, and is never destroyed. Thread-safe.
    static MbStateMachine &getInstance(bool trace);

    /// Returns the state in which a buffer begins, Freed.
    [[nodiscard]] virtual MbState const *getInitialState() const = 0;

protected:
    MbStateMachine();
    virtual ~MbStateMachine() noexcept(false);
};

} // namespace Zv
