// The states of a buffer, generated from the table of the machine.
#pragma once

#include "resmgt/memoryBuffers/mbBufferImp.inline.h"
#include "resmgt/memoryBuffers/mbManager.h"
#include "resmgt/memoryBuffers/mbStateTable.private.h"

#include <cstdint>

namespace Zv {

/// A state with a name. It refuses every event, and is stable.
class MbStateImp : public MbState
{
public:
    void rdlock(MbBufferImp *buffer) const override { refuse(*buffer, MbEvent::RDLOCK); }
    void wrlock(MbBufferImp *buffer) const override { refuse(*buffer, MbEvent::WRLOCK); }
    void wrdup(MbBufferImp *buffer) const override { refuse(*buffer, MbEvent::WRDUP); }
    void prefetch(MbBufferImp *buffer) const override { refuse(*buffer, MbEvent::PREFETCH); }
    void asyncSync(MbBufferImp *buffer) const override { refuse(*buffer, MbEvent::ASYNC_SYNC); }
    void sync(MbBufferImp *buffer) const override { refuse(*buffer, MbEvent::SYNC); }
    void unlock(MbBufferImp *buffer) const override { refuse(*buffer, MbEvent::UNLOCK); }
    void unload(MbBufferImp *buffer) const override { refuse(*buffer, MbEvent::UNLOAD); }
    void free(MbBufferImp *buffer) const override { refuse(*buffer, MbEvent::FREE); }
    void destroy(MbBufferImp *buffer) const override { refuse(*buffer, MbEvent::DESTROY); }
    void asyncOpSucceeded(MbBufferImp *buffer) const override
    {
        refuse(*buffer, MbEvent::ASYNC_OP_SUCCEEDED);
    }
    void asyncOpFailed(MbBufferImp *buffer) const override
    {
        refuse(*buffer, MbEvent::ASYNC_OP_FAILED);
    }

    bool isLoaded() const override { return false; }
    MbState const *entering(MbBufferImp *) const override { return nullptr; }
    void leaving(MbBufferImp *) const override {}

    /// The state's name in reports: "Freed".
    virtual char const *getName() const = 0;

protected:
    [[noreturn]] void refuse(MbBufferImp const &buffer, MbEvent event) const;
    /// Writes one line at the level "MbBuffers": `what` happens to the buffer in this state.
    void write(MbBufferImp const &buffer, char const *what) const;
};

/// The states of one of the two machines: the tracing one, or the silent one.
template <bool isTracing>
class MbStates
{
public:
    template <MbStateId id>
    class State;

    /// The one object of each state.
    inline static MbState const *the[std::size(MbTable::states)] = {};

    /// Makes the objects, which are never destroyed, since buffers point to them.
    static void make() { make<MbStateId{}>(); }

private:
    template <MbStateId id>
    static void make()
    {
        the[static_cast<std::size_t>(id)] = new State<id>;
        constexpr MbStateId next{static_cast<std::uint8_t>(id) + 1};
        if constexpr (next != MbStateId::NONE)
            make<next>();
    }
};

/// The state of one row.
template <bool isTracing>
template <MbStateId id>
class MbStates<isTracing>::State : public MbStateImp
{
public:
    void rdlock(MbBufferImp *buffer) const override { react<MbEvent::RDLOCK>(buffer); }
    void wrlock(MbBufferImp *buffer) const override { react<MbEvent::WRLOCK>(buffer); }
    void wrdup(MbBufferImp *buffer) const override { react<MbEvent::WRDUP>(buffer); }
    void prefetch(MbBufferImp *buffer) const override { react<MbEvent::PREFETCH>(buffer); }
    void asyncSync(MbBufferImp *buffer) const override { react<MbEvent::ASYNC_SYNC>(buffer); }
    void sync(MbBufferImp *buffer) const override { react<MbEvent::SYNC>(buffer); }
    void unlock(MbBufferImp *buffer) const override { react<MbEvent::UNLOCK>(buffer); }
    void unload(MbBufferImp *buffer) const override { react<MbEvent::UNLOAD>(buffer); }
    void free(MbBufferImp *buffer) const override { react<MbEvent::FREE>(buffer); }
    void destroy(MbBufferImp *buffer) const override { react<MbEvent::DESTROY>(buffer); }
    void asyncOpSucceeded(MbBufferImp *buffer) const override
    {
        react<MbEvent::ASYNC_OP_SUCCEEDED>(buffer);
    }
    void asyncOpFailed(MbBufferImp *buffer) const override
    {
        react<MbEvent::ASYNC_OP_FAILED>(buffer);
    }

    bool isLoaded() const override { return MbTable::isLoaded(id); }
    MbState const *entering(MbBufferImp *buffer) const override;
    void leaving(MbBufferImp *buffer) const override
    {
        if constexpr (work.after == MbStep::UNLOADABLE)
            buffer->getManager().bufferNotUnloadable(buffer);
    }

    char const *getName() const override { return MbTable::rowOf(id).name; }

private:
    /// A copy of the row, which a sanitizer's build accepts as a constant. Its state is `NONE` if the
    /// state has no row.
    static constexpr MbEnteringRow work = MbTable::copyOfEntering(id);

    void trace(MbBufferImp const &buffer, char const *what) const
    {
        if constexpr (isTracing)
            write(buffer, what);
    }
    template <MbEvent event>
    void react(MbBufferImp *buffer) const;
    template <MbEvent event, MbStateId next>
    static void changeState(MbBufferImp *buffer, int formerCount);
    static void callProtocol(MbBufferImp *buffer);
    template <MbProtocolCall MbProtocolCalls::*which>
    static void call(MbProtocol &protocol, void *memory, std::uint64_t size, LkAsyncHandle *handle);
};

/// Does what the cell of the event says.
template <bool isTracing>
template <MbStateId id>
template <MbEvent event>
void MbStates<isTracing>::State<id>::react(MbBufferImp *buffer) const
{
    constexpr MbReaction reaction = MbTable::rowOf(id).reactions[MbTable::columnOf(event)];
    constexpr bool isIgnoredUnload =
        event == MbEvent::UNLOAD && reaction.kind == MbReaction::IGNORE;

    if constexpr (reaction.kind == MbReaction::REFUSE)
        refuse(*buffer, event);
    // A load has failed before, and its `asyncLoadFailed` has thrown: the contents have no memory
    // to be in.
    if (reaction.kind == MbReaction::COMPLETE && buffer->getRegionStart() == 0)
        refuse(*buffer, event);

    trace(*buffer, isIgnoredUnload ? "unload (ignored)" : MbTable::nameOf(event));
    int const formerCount = buffer->getLockCount();
    switch (reaction.kind) {
    case MbReaction::REFUSE:
    case MbReaction::IGNORE:
        return;
    case MbReaction::WAIT:
        return buffer->waitForChange();
    case MbReaction::DEFER:
        return buffer->isTransientStateOwner() ? buffer->postpone(event) : buffer->waitForChange();
    case MbReaction::POSTPONE:
        return buffer->postpone(event);
    case MbReaction::ADD_LOCK:
        buffer->addLock();
        return changeState<event, reaction.next>(buffer, formerCount);
    case MbReaction::DROP_LOCK:
        if (buffer->removeLock())
            changeState<event, reaction.next>(buffer, formerCount);
        return;
    case MbReaction::TOUCH:
        buffer->getManager().bufferNotUnloadable(buffer);
        return buffer->getManager().bufferUnloadable(buffer);
    case MbReaction::DEALLOCATE:
        buffer->getManager().deallocateRegion(buffer);
        return changeState<event, reaction.next>(buffer, formerCount);
    case MbReaction::CHANGE:
    case MbReaction::COMPLETE:
        return changeState<event, reaction.next>(buffer, formerCount);
    }
}

/// An event that takes a lock gives it back if it throws.
template <bool isTracing>
template <MbStateId id>
template <MbEvent event, MbStateId next>
void MbStates<isTracing>::State<id>::changeState(MbBufferImp *buffer, int formerCount)
{
    if constexpr (next != MbStateId::NONE) {
        MbState const * const state = the[static_cast<std::size_t>(next)];
        if constexpr (event == MbEvent::RDLOCK || event == MbEvent::WRLOCK)
            buffer->changeStateForLock(state, formerCount);
        else
            buffer->changeState(state);
    }
}

/// Does what the row of the state says.
template <bool isTracing>
template <MbStateId id>
MbState const *MbStates<isTracing>::State<id>::entering(MbBufferImp *buffer) const
{
    if constexpr (work.state == MbStateId::NONE) {
        return nullptr;
    } else {
        trace(*buffer, "entering");
        if constexpr (work.before == MbStep::ALLOCATE) {
            buffer->getManager().allocateRegion(buffer);
            try {
                callProtocol(buffer);
            } catch (...) {
                buffer->getManager().deallocateRegion(buffer);
                throw;
            }
        } else if constexpr (work.calls.first.name != nullptr) {
            callProtocol(buffer);
        }

        if constexpr (work.after == MbStep::DEALLOCATE)
            buffer->getManager().deallocateRegion(buffer);
        else if constexpr (work.after == MbStep::ADD_LOCK)
            buffer->addLock();
        else if constexpr (work.after == MbStep::UNLOADABLE)
            buffer->getManager().bufferUnloadable(buffer);

        if constexpr (work.next == MbStateId::NONE)
            return nullptr;
        else
            return the[static_cast<std::size_t>(work.next)];
    }
}

/// Makes all calls of the row while the mutex is free.
template <bool isTracing>
template <MbStateId id>
void MbStates<isTracing>::State<id>::callProtocol(MbBufferImp *buffer)
{
    buffer->callProtocol([&](MbProtocol &protocol, void *memory, std::uint64_t size) {
        call<&MbProtocolCalls::first>(protocol, memory, size, buffer);
        call<&MbProtocolCalls::second>(protocol, memory, size, buffer);
    });
}

template <bool isTracing>
template <MbStateId id>
template <MbProtocolCall MbProtocolCalls::*which>
void MbStates<isTracing>::State<id>::call(MbProtocol &protocol, void *memory, std::uint64_t size,
                                          LkAsyncHandle *handle)
{
    constexpr MbProtocolCall called = work.calls.*which;
    if constexpr (called.operation != nullptr)
        (protocol.*called.operation)(memory, size);
    else if constexpr (called.asyncOperation != nullptr)
        (protocol.*called.asyncOperation)(memory, size, handle);
    else if constexpr (called.result != nullptr)
        (protocol.*called.result)();
}

} // namespace Zv
