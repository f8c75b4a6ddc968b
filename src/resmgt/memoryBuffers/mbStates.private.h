// The 30 states, family by family.
#pragma once

#include "resmgt/memoryBuffers/mbBufferImp.inline.h"
#include "resmgt/memoryBuffers/mbManager.h"
#include "resmgt/memoryBuffers/mbProtocol.h"
#include "resmgt/memoryBuffers/mbStateImp.private.h"

#include <cstdint>

namespace Zv {

/// The states of one machine; `isTracing` tells the two apart. Each event that a class does not name does what its
/// family does, and in the end is refused.
///
/// The reactions are named once, in `States`, and the states read like the rows of a table.
template <bool isTracing>
class MbStates
{
public:
    // stable
    class Freed;
    class RdLocked;
    class WrLocked;
    class RdLockedFreed;
    class WrLockedFreed;
    class Loaded;
    class Synched;
    class Unloaded;
    class Destroyed;
    class WaitAsyncLoaded;
    class WaitAsyncReloaded;
    class WaitAsyncSynched;
    // as long as a call of the protocol
    class BeingRdLoaded;
    class BeingWrLoaded;
    class BeingAsyncLoaded;
    class BeingRdReloaded;
    class BeingWrReloaded;
    class BeingAsyncReloaded;
    class BeingSynched;
    class BeingAsyncSynched;
    class BeingUnlocked;
    class BeingUnloaded;
    class BeingFreed;
    class BeingDestroyed;
    class AsyncLoadSucceeded;
    class AsyncLoadFailed;
    class AsyncReloadSucceeded;
    class AsyncReloadFailed;
    class AsyncSyncSucceeded;
    class AsyncSyncFailed;

    /// The one object of a state.
    template <class State>
    inline static State const *the = nullptr;

protected:
    // families
    class States;
    class LockedStates;
    class LoadedStates;
    class TransientStates;
    class BeingAsyncStates;
    class AsyncResultStates;
    class WaitAsyncStates;
};

// ---- the families

template <bool isTracing>
class MbStates<isTracing>::States : public MbStateImp
{
public:
    void unload(MbBufferImp *buffer) const override { trace(buffer, "unload (ignored)"); }

protected:
    void trace(MbBufferImp *buffer, char const *what) const
    {
        if constexpr (isTracing)
            write(*buffer, what);
    }
    void traceEntering(MbBufferImp *buffer) const { trace(buffer, "entering"); }
    void trace(MbBufferImp *buffer, MbEvent event) const
    {
        if constexpr (isTracing)
            write(*buffer, nameOf(event));
    }

    void ignore(MbBufferImp *buffer, MbEvent event) const { trace(buffer, event); }
    template <class Next>
    void change(MbBufferImp *buffer, MbEvent event) const
    {
        trace(buffer, event);
        buffer->changeState(the<Next>);
    }
    /// Gives the region back first.
    template <class Next>
    void surrender(MbBufferImp *buffer, MbEvent event) const
    {
        trace(buffer, event);
        buffer->getManager().deallocateRegion(buffer);
        buffer->changeState(the<Next>);
    }
    /// Puts the event off, whoever delivers it.
    void keep(MbBufferImp *buffer, MbEvent event) const
    {
        trace(buffer, event);
        buffer->postpone(event);
    }
    /// Waits for a change, then lets the new state decide.
    void wait(MbBufferImp *buffer, MbEvent event) const
    {
        trace(buffer, event);
        buffer->waitForChange();
    }
    /// Puts the event off where the thread runs the transition itself, and waits otherwise.
    void defer(MbBufferImp *buffer, MbEvent event) const
    {
        trace(buffer, event);
        if (buffer->isTransientStateOwner())
            buffer->postpone(event);
        else
            buffer->waitForChange();
    }
    /// One hold more.
    void addLock(MbBufferImp *buffer, MbEvent event) const
    {
        trace(buffer, event);
        buffer->addLock();
    }
    template <class Next>
    void addLock(MbBufferImp *buffer, MbEvent event) const
    {
        trace(buffer, event);
        int const formerCount = buffer->getLockCount();
        buffer->addLock();
        buffer->changeStateForLock(the<Next>, formerCount);
    }
    /// One hold more, which a state that follows counts.
    template <class Next>
    void loadForLock(MbBufferImp *buffer, MbEvent event) const
    {
        trace(buffer, event);
        buffer->changeStateForLock(the<Next>, buffer->getLockCount());
    }
    /// One hold less; `Next` when it was the last.
    template <class Next>
    void removeLock(MbBufferImp *buffer, MbEvent event) const
    {
        trace(buffer, event);
        if (buffer->removeLock())
            buffer->changeState(the<Next>);
    }

    // What states do when they are entered: calls of the protocol.

    template <class... Operations>
    static void call(MbBufferImp *buffer, Operations... operations)
    {
        buffer->callProtocol([&](MbProtocol &protocol, void *memory, std::uint64_t size) {
            ((protocol.*operations)(memory, size), ...);
        });
    }
    static void callAsync(MbBufferImp *buffer,
                          void (MbProtocol::*operation)(void *, std::uint64_t, LkAsyncHandle *))
    {
        buffer->callProtocol([&](MbProtocol &protocol, void *memory, std::uint64_t size) {
            (protocol.*operation)(memory, size, buffer);
        });
    }
    static void callResult(MbBufferImp *buffer, void (MbProtocol::*result)())
    {
        buffer->callProtocol(
            [&](MbProtocol &protocol, void *, std::uint64_t) { (protocol.*result)(); });
    }
    /// Runs what fills a new region; there is no region where that throws.
    template <class Filling>
    static void allocateFor(MbBufferImp *buffer, Filling filling)
    {
        buffer->getManager().allocateRegion(buffer);
        try {
            filling();
        } catch (...) {
            buffer->getManager().deallocateRegion(buffer);
            throw;
        }
    }
};

/// Guards hold the buffer.
template <bool isTracing>
class MbStates<isTracing>::LockedStates : public States
{
public:
    void wrlock(MbBufferImp *buffer) const override { this->wait(buffer, MbEvent::WRLOCK); }
    void prefetch(MbBufferImp *buffer) const override { this->ignore(buffer, MbEvent::PREFETCH); }
    void asyncSync(MbBufferImp *buffer) const override { this->keep(buffer, MbEvent::ASYNC_SYNC); }
    void sync(MbBufferImp *buffer) const override { this->wait(buffer, MbEvent::SYNC); }
    void unlock(MbBufferImp *buffer) const override
    {
        this->template removeLock<BeingUnlocked>(buffer, MbEvent::UNLOCK);
    }
    bool isLoaded() const override { return true; }
};

/// The memory has its contents, and nobody holds it: the manager may take it away.
template <bool isTracing>
class MbStates<isTracing>::LoadedStates : public States
{
public:
    void rdlock(MbBufferImp *buffer) const override
    {
        this->template addLock<RdLocked>(buffer, MbEvent::RDLOCK);
    }
    void wrlock(MbBufferImp *buffer) const override
    {
        this->template addLock<WrLocked>(buffer, MbEvent::WRLOCK);
    }
    /// Touches the buffer: it counts as just used.
    void prefetch(MbBufferImp *buffer) const override
    {
        this->trace(buffer, MbEvent::PREFETCH);
        buffer->getManager().bufferNotUnloadable(buffer);
        buffer->getManager().bufferUnloadable(buffer);
    }
    void unload(MbBufferImp *buffer) const override
    {
        this->template change<BeingUnloaded>(buffer, MbEvent::UNLOAD);
    }
    void free(MbBufferImp *buffer) const override
    {
        this->template change<BeingFreed>(buffer, MbEvent::FREE);
    }
    bool isLoaded() const override { return true; }
    MbState const *entering(MbBufferImp *buffer) const override
    {
        this->traceEntering(buffer);
        buffer->getManager().bufferUnloadable(buffer);
        return nullptr;
    }
    void leaving(MbBufferImp *buffer) const override
    {
        buffer->getManager().bufferNotUnloadable(buffer);
    }
};

/// Somebody is at work on the buffer.
template <bool isTracing>
class MbStates<isTracing>::TransientStates : public States
{
public:
    void rdlock(MbBufferImp *buffer) const override { this->wait(buffer, MbEvent::RDLOCK); }
    void wrlock(MbBufferImp *buffer) const override { this->wait(buffer, MbEvent::WRLOCK); }
    void prefetch(MbBufferImp *buffer) const override { this->ignore(buffer, MbEvent::PREFETCH); }
    void asyncSync(MbBufferImp *buffer) const override { this->defer(buffer, MbEvent::ASYNC_SYNC); }
    void sync(MbBufferImp *buffer) const override { this->wait(buffer, MbEvent::SYNC); }
    void free(MbBufferImp *buffer) const override { this->defer(buffer, MbEvent::FREE); }
};

/// An asynchronous operation is being begun; its end may come before the beginning is over.
template <bool isTracing>
class MbStates<isTracing>::BeingAsyncStates : public TransientStates
{
public:
    void asyncOpSucceeded(MbBufferImp *buffer) const override
    {
        this->keep(buffer, MbEvent::ASYNC_OP_SUCCEEDED);
    }
    void asyncOpFailed(MbBufferImp *buffer) const override
    {
        this->keep(buffer, MbEvent::ASYNC_OP_FAILED);
    }
};

/// The protocol is told how an asynchronous operation has ended.
template <bool isTracing>
class MbStates<isTracing>::AsyncResultStates : public TransientStates
{
protected:
    template <class Next>
    MbState const *tell(MbBufferImp *buffer, void (MbProtocol::*result)()) const
    {
        this->traceEntering(buffer);
        this->callResult(buffer, result);
        return the<Next>;
    }
};

/// An asynchronous operation is under way.
template <bool isTracing>
class MbStates<isTracing>::WaitAsyncStates : public TransientStates
{
public:
    void destroy(MbBufferImp *buffer) const override { this->defer(buffer, MbEvent::DESTROY); }

protected:
    /// A loading has succeeded. Refused when its region is gone: it has failed before, and telling that has thrown.
    template <class Next>
    void succeed(MbBufferImp *buffer) const
    {
        if (buffer->getRegionStart() == 0)
            MbStateImp::asyncOpSucceeded(buffer);
        this->template change<Next>(buffer, MbEvent::ASYNC_OP_SUCCEEDED);
    }
};

// ---- without memory

template <bool isTracing>
class MbStates<isTracing>::Freed : public States
{
public:
    void rdlock(MbBufferImp *buffer) const override
    {
        this->template loadForLock<BeingRdLoaded>(buffer, MbEvent::RDLOCK);
    }
    void wrlock(MbBufferImp *buffer) const override
    {
        this->template loadForLock<BeingWrLoaded>(buffer, MbEvent::WRLOCK);
    }
    void prefetch(MbBufferImp *buffer) const override
    {
        this->template change<BeingAsyncLoaded>(buffer, MbEvent::PREFETCH);
    }
    void asyncSync(MbBufferImp *buffer) const override
    {
        this->ignore(buffer, MbEvent::ASYNC_SYNC);
    }
    void sync(MbBufferImp *buffer) const override { this->ignore(buffer, MbEvent::SYNC); }
    void free(MbBufferImp *buffer) const override { this->ignore(buffer, MbEvent::FREE); }
    void destroy(MbBufferImp *buffer) const override
    {
        this->template change<Destroyed>(buffer, MbEvent::DESTROY);
    }
};

template <bool isTracing>
class MbStates<isTracing>::Unloaded : public States
{
public:
    void rdlock(MbBufferImp *buffer) const override
    {
        this->template loadForLock<BeingRdReloaded>(buffer, MbEvent::RDLOCK);
    }
    void wrlock(MbBufferImp *buffer) const override
    {
        this->template loadForLock<BeingWrReloaded>(buffer, MbEvent::WRLOCK);
    }
    void prefetch(MbBufferImp *buffer) const override
    {
        this->template change<BeingAsyncReloaded>(buffer, MbEvent::PREFETCH);
    }
    void asyncSync(MbBufferImp *buffer) const override
    {
        this->ignore(buffer, MbEvent::ASYNC_SYNC);
    }
    void sync(MbBufferImp *buffer) const override { this->ignore(buffer, MbEvent::SYNC); }
    void free(MbBufferImp *buffer) const override
    {
        this->template change<Freed>(buffer, MbEvent::FREE);
    }
    void destroy(MbBufferImp *buffer) const override
    {
        this->template change<Destroyed>(buffer, MbEvent::DESTROY);
    }
};

template <bool isTracing>
class MbStates<isTracing>::Destroyed : public States
{};

// ---- loaded

template <bool isTracing>
class MbStates<isTracing>::Loaded : public LoadedStates
{
public:
    void asyncSync(MbBufferImp *buffer) const override
    {
        this->template change<BeingAsyncSynched>(buffer, MbEvent::ASYNC_SYNC);
    }
    void sync(MbBufferImp *buffer) const override
    {
        this->template change<BeingSynched>(buffer, MbEvent::SYNC);
    }
    void destroy(MbBufferImp *buffer) const override
    {
        this->template change<BeingDestroyed>(buffer, MbEvent::DESTROY);
    }
};

template <bool isTracing>
class MbStates<isTracing>::Synched : public LoadedStates
{
public:
    void asyncSync(MbBufferImp *buffer) const override
    {
        this->ignore(buffer, MbEvent::ASYNC_SYNC);
    }
    void sync(MbBufferImp *buffer) const override { this->ignore(buffer, MbEvent::SYNC); }
    void destroy(MbBufferImp *buffer) const override
    {
        this->template surrender<Destroyed>(buffer, MbEvent::DESTROY);
    }
};

// ---- locked

template <bool isTracing>
class MbStates<isTracing>::RdLocked : public LockedStates
{
public:
    void rdlock(MbBufferImp *buffer) const override { this->addLock(buffer, MbEvent::RDLOCK); }
    void free(MbBufferImp *buffer) const override
    {
        this->template change<RdLockedFreed>(buffer, MbEvent::FREE);
    }
};

template <bool isTracing>
class MbStates<isTracing>::WrLocked : public LockedStates
{
public:
    void rdlock(MbBufferImp *buffer) const override { this->wait(buffer, MbEvent::RDLOCK); }
    void wrdup(MbBufferImp *buffer) const override { this->addLock(buffer, MbEvent::WRDUP); }
    void free(MbBufferImp *buffer) const override
    {
        this->template change<WrLockedFreed>(buffer, MbEvent::FREE);
    }
};

template <bool isTracing>
class MbStates<isTracing>::RdLockedFreed : public RdLocked
{
public:
    void asyncSync(MbBufferImp *buffer) const override
    {
        this->ignore(buffer, MbEvent::ASYNC_SYNC);
    }
    void sync(MbBufferImp *buffer) const override { this->ignore(buffer, MbEvent::SYNC); }
    void unlock(MbBufferImp *buffer) const override
    {
        this->template removeLock<BeingFreed>(buffer, MbEvent::UNLOCK);
    }
    void free(MbBufferImp *buffer) const override { this->ignore(buffer, MbEvent::FREE); }
};

template <bool isTracing>
class MbStates<isTracing>::WrLockedFreed : public WrLocked
{
public:
    void asyncSync(MbBufferImp *buffer) const override
    {
        this->ignore(buffer, MbEvent::ASYNC_SYNC);
    }
    void sync(MbBufferImp *buffer) const override { this->ignore(buffer, MbEvent::SYNC); }
    void unlock(MbBufferImp *buffer) const override
    {
        this->template removeLock<BeingFreed>(buffer, MbEvent::UNLOCK);
    }
    void free(MbBufferImp *buffer) const override { this->ignore(buffer, MbEvent::FREE); }
};

// ---- being loaded, synched, unlocked, unloaded, freed

template <bool isTracing>
class MbStates<isTracing>::BeingRdLoaded : public TransientStates
{
public:
    MbState const *entering(MbBufferImp *buffer) const override
    {
        this->traceEntering(buffer);
        this->allocateFor(buffer, [&] { this->call(buffer, &MbProtocol::load); });
        buffer->addLock();
        return the<RdLocked>;
    }
};

template <bool isTracing>
class MbStates<isTracing>::BeingWrLoaded : public TransientStates
{
public:
    MbState const *entering(MbBufferImp *buffer) const override
    {
        this->traceEntering(buffer);
        this->allocateFor(buffer,
                          [&] { this->call(buffer, &MbProtocol::load, &MbProtocol::markDirty); });
        buffer->addLock();
        return the<WrLocked>;
    }
};

template <bool isTracing>
class MbStates<isTracing>::BeingAsyncLoaded : public BeingAsyncStates
{
public:
    MbState const *entering(MbBufferImp *buffer) const override
    {
        this->traceEntering(buffer);
        this->allocateFor(buffer, [&] { this->callAsync(buffer, &MbProtocol::asyncLoad); });
        return the<WaitAsyncLoaded>;
    }
};

template <bool isTracing>
class MbStates<isTracing>::BeingRdReloaded : public TransientStates
{
public:
    MbState const *entering(MbBufferImp *buffer) const override
    {
        this->traceEntering(buffer);
        this->allocateFor(buffer, [&] { this->call(buffer, &MbProtocol::reload); });
        buffer->addLock();
        return the<RdLocked>;
    }
};

template <bool isTracing>
class MbStates<isTracing>::BeingWrReloaded : public TransientStates
{
public:
    MbState const *entering(MbBufferImp *buffer) const override
    {
        this->traceEntering(buffer);
        this->allocateFor(buffer,
                          [&] { this->call(buffer, &MbProtocol::reload, &MbProtocol::markDirty); });
        buffer->addLock();
        return the<WrLocked>;
    }
};

template <bool isTracing>
class MbStates<isTracing>::BeingAsyncReloaded : public BeingAsyncStates
{
public:
    MbState const *entering(MbBufferImp *buffer) const override
    {
        this->traceEntering(buffer);
        this->allocateFor(buffer, [&] { this->callAsync(buffer, &MbProtocol::asyncReload); });
        return the<WaitAsyncReloaded>;
    }
};

template <bool isTracing>
class MbStates<isTracing>::BeingSynched : public TransientStates
{
public:
    MbState const *entering(MbBufferImp *buffer) const override
    {
        this->traceEntering(buffer);
        this->call(buffer, &MbProtocol::sync);
        return the<Synched>;
    }
};

template <bool isTracing>
class MbStates<isTracing>::BeingAsyncSynched : public BeingAsyncStates
{
public:
    MbState const *entering(MbBufferImp *buffer) const override
    {
        this->traceEntering(buffer);
        this->callAsync(buffer, &MbProtocol::asyncSync);
        return the<WaitAsyncSynched>;
    }
};

template <bool isTracing>
class MbStates<isTracing>::BeingUnlocked : public TransientStates
{
public:
    MbState const *entering(MbBufferImp *buffer) const override
    {
        this->traceEntering(buffer);
        this->call(buffer, &MbProtocol::unlocked);
        return the<Loaded>;
    }
};

template <bool isTracing>
class MbStates<isTracing>::BeingUnloaded : public TransientStates
{
public:
    void prefetch(MbBufferImp *buffer) const override { this->defer(buffer, MbEvent::PREFETCH); }
    void destroy(MbBufferImp *buffer) const override { this->defer(buffer, MbEvent::DESTROY); }
    MbState const *entering(MbBufferImp *buffer) const override
    {
        this->traceEntering(buffer);
        this->call(buffer, &MbProtocol::unload);
        buffer->getManager().deallocateRegion(buffer);
        return the<Unloaded>;
    }
};

template <bool isTracing>
class MbStates<isTracing>::BeingFreed : public TransientStates
{
public:
    void prefetch(MbBufferImp *buffer) const override { this->defer(buffer, MbEvent::PREFETCH); }
    void asyncSync(MbBufferImp *buffer) const override
    {
        this->ignore(buffer, MbEvent::ASYNC_SYNC);
    }
    void sync(MbBufferImp *buffer) const override { this->ignore(buffer, MbEvent::SYNC); }
    void free(MbBufferImp *buffer) const override { this->ignore(buffer, MbEvent::FREE); }
    void destroy(MbBufferImp *buffer) const override { this->defer(buffer, MbEvent::DESTROY); }
    MbState const *entering(MbBufferImp *buffer) const override
    {
        this->traceEntering(buffer);
        this->call(buffer, &MbProtocol::free);
        buffer->getManager().deallocateRegion(buffer);
        return the<Freed>;
    }
};

template <bool isTracing>
class MbStates<isTracing>::BeingDestroyed : public States
{
public:
    MbState const *entering(MbBufferImp *buffer) const override
    {
        this->traceEntering(buffer);
        this->call(buffer, &MbProtocol::free);
        buffer->getManager().deallocateRegion(buffer);
        return the<Destroyed>;
    }
};

// ---- asynchronous operations

template <bool isTracing>
class MbStates<isTracing>::WaitAsyncLoaded : public WaitAsyncStates
{
public:
    void asyncOpSucceeded(MbBufferImp *buffer) const override
    {
        this->template succeed<AsyncLoadSucceeded>(buffer);
    }
    void asyncOpFailed(MbBufferImp *buffer) const override
    {
        this->template surrender<AsyncLoadFailed>(buffer, MbEvent::ASYNC_OP_FAILED);
    }
};

template <bool isTracing>
class MbStates<isTracing>::WaitAsyncReloaded : public WaitAsyncStates
{
public:
    void asyncOpSucceeded(MbBufferImp *buffer) const override
    {
        this->template succeed<AsyncReloadSucceeded>(buffer);
    }
    void asyncOpFailed(MbBufferImp *buffer) const override
    {
        this->template surrender<AsyncReloadFailed>(buffer, MbEvent::ASYNC_OP_FAILED);
    }
};

template <bool isTracing>
class MbStates<isTracing>::WaitAsyncSynched : public WaitAsyncStates
{
public:
    void asyncOpSucceeded(MbBufferImp *buffer) const override
    {
        this->template change<AsyncSyncSucceeded>(buffer, MbEvent::ASYNC_OP_SUCCEEDED);
    }
    void asyncOpFailed(MbBufferImp *buffer) const override
    {
        this->template change<AsyncSyncFailed>(buffer, MbEvent::ASYNC_OP_FAILED);
    }
};

template <bool isTracing>
class MbStates<isTracing>::AsyncLoadSucceeded : public AsyncResultStates
{
public:
    MbState const *entering(MbBufferImp *buffer) const override
    {
        return this->template tell<Loaded>(buffer, &MbProtocol::asyncLoadSucceeded);
    }
};

template <bool isTracing>
class MbStates<isTracing>::AsyncLoadFailed : public AsyncResultStates
{
public:
    MbState const *entering(MbBufferImp *buffer) const override
    {
        return this->template tell<Freed>(buffer, &MbProtocol::asyncLoadFailed);
    }
};

template <bool isTracing>
class MbStates<isTracing>::AsyncReloadSucceeded : public AsyncResultStates
{
public:
    MbState const *entering(MbBufferImp *buffer) const override
    {
        return this->template tell<Loaded>(buffer, &MbProtocol::asyncReloadSucceeded);
    }
};

template <bool isTracing>
class MbStates<isTracing>::AsyncReloadFailed : public AsyncResultStates
{
public:
    MbState const *entering(MbBufferImp *buffer) const override
    {
        return this->template tell<Unloaded>(buffer, &MbProtocol::asyncReloadFailed);
    }
};

template <bool isTracing>
class MbStates<isTracing>::AsyncSyncSucceeded : public AsyncResultStates
{
public:
    MbState const *entering(MbBufferImp *buffer) const override
    {
        return this->template tell<Synched>(buffer, &MbProtocol::asyncSyncSucceeded);
    }
};

template <bool isTracing>
class MbStates<isTracing>::AsyncSyncFailed : public AsyncResultStates
{
public:
    MbState const *entering(MbBufferImp *buffer) const override
    {
        return this->template tell<Loaded>(buffer, &MbProtocol::asyncSyncFailed);
    }
};

} // namespace Zv
