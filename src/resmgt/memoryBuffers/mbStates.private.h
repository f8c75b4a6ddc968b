// The states of a buffer: the table of the machine, and the classes that are generated from it.
#pragma once

#include "resmgt/memoryBuffers/mbBufferImp.h"
#include "resmgt/memoryBuffers/mbManager.h"
#include "resmgt/memoryBuffers/mbProtocol.h"
#include "resmgt/memoryBuffers/mbStateMachine.h"
#include "zvbase/traceEvents.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>

namespace Zv {

/// The states, in the order of the rows below.
enum class MbStateId : std::uint8_t
{
    FREED,
    UNLOADED,
    LOADED,
    SYNCHED,
    RD_LOCKED,
    WR_LOCKED,
    RD_LOCKED_FREED,
    WR_LOCKED_FREED,
    BEING_RD_LOADED,
    BEING_WR_LOADED,
    BEING_ASYNC_LOADED,
    BEING_RD_RELOADED,
    BEING_WR_RELOADED,
    BEING_ASYNC_RELOADED,
    BEING_SYNCHED,
    BEING_ASYNC_SYNCHED,
    BEING_UNLOCKED,
    BEING_UNLOADED,
    BEING_FREED,
    BEING_DESTROYED,
    WAIT_ASYNC_LOADED,
    WAIT_ASYNC_RELOADED,
    WAIT_ASYNC_SYNCHED,
    ASYNC_LOAD_SUCCEEDED,
    ASYNC_LOAD_FAILED,
    ASYNC_RELOAD_SUCCEEDED,
    ASYNC_RELOAD_FAILED,
    ASYNC_SYNC_SUCCEEDED,
    ASYNC_SYNC_FAILED,
    DESTROYED,
    NONE ///< no state: the buffer stays in the state that it is in
};

/// A cell of the table: what a state does when an event arrives.
struct MbReaction
{
    enum Kind : std::uint8_t
    {
        REFUSE,     ///< throws `MbEx::ExIllegalTransition`
        IGNORE,     ///< does nothing
        WAIT,       ///< waits for a change, then delivers the event again
        DEFER,      ///< `POSTPONE` on the thread that runs the transition, else `WAIT`
        POSTPONE,   ///< keeps the event until the end of the next transition
        ADD_LOCK,   ///< adds one to the lock count, then changes to `next`
        DROP_LOCK,  ///< subtracts one from the lock count, then changes to `next` if it is 0
        TOUCH,      ///< makes the buffer the most recently used one
        DEALLOCATE, ///< gives the memory back, then changes to `next`
        CHANGE,     ///< changes to `next`
        COMPLETE    ///< `CHANGE` if the buffer has memory, else `REFUSE`
    };

    constexpr MbReaction(Kind kindOfReaction, MbStateId nextState = MbStateId::NONE)
        : kind(kindOfReaction), next(nextState)
    {}
    constexpr MbReaction(MbStateId nextState) : MbReaction(CHANGE, nextState) {}

    Kind kind;
    MbStateId next;
};

/// An operation of the protocol. A state calls it when it is entered.
struct MbProtocolCall
{
    using Operation = void (MbProtocol::*)(void *, std::uint64_t);
    using AsyncOperation = void (MbProtocol::*)(void *, std::uint64_t, LkAsyncHandle *);
    using Result = void (MbProtocol::*)();

    constexpr MbProtocolCall() = default;
    constexpr MbProtocolCall(char const *text, Operation called) : name(text), operation(called) {}
    constexpr MbProtocolCall(char const *text, AsyncOperation called)
        : name(text), asyncOperation(called)
    {}
    constexpr MbProtocolCall(char const *text, Result called) : name(text), result(called) {}

    char const *name = nullptr; ///< null if there is no call
    Operation operation = nullptr;
    AsyncOperation asyncOperation = nullptr;
    Result result = nullptr;
};

/// The calls that a state makes when it is entered, one after the other, while the buffer's mutex
/// is free.
struct MbProtocolCalls
{
    constexpr MbProtocolCalls() = default;
    constexpr MbProtocolCalls(MbProtocolCall const &one, MbProtocolCall const &other = {})
        : first(one), second(other)
    {}

    MbProtocolCall first;
    MbProtocolCall second;
};

/// What a state asks of the manager, or does with the lock count, when it is entered.
enum class MbStep : std::uint8_t
{
    NOTHING,
    ALLOCATE,
    DEALLOCATE,
    ADD_LOCK,
    UNLOADABLE ///< tells the manager that it may unload the buffer; leaving the state takes this back
};

/// A row of the table.
struct MbStateRow
{
    MbStateId state;
    char const *name;
    MbReaction reactions[12]; ///< in the order of the events' bits
};

/// What entering a state does, in this order. If a call throws, memory that the row has allocated
/// is given back.
struct MbEnteringRow
{
    MbStateId state;
    MbStep before;
    MbProtocolCalls calls;
    MbStep after;
    MbStateId next; ///< the state that follows at once
};

namespace MbTable {

using enum MbStateId;

inline constexpr MbReaction X = MbReaction::REFUSE;
inline constexpr MbReaction o = MbReaction::IGNORE;
inline constexpr MbReaction W = MbReaction::WAIT;
inline constexpr MbReaction D = MbReaction::DEFER;
inline constexpr MbReaction Q = MbReaction::POSTPONE;
inline constexpr MbReaction TOUCH = MbReaction::TOUCH;

constexpr MbReaction plus1(MbStateId next = NONE)
{
    return {MbReaction::ADD_LOCK, next};
}
constexpr MbReaction minus1(MbStateId next)
{
    return {MbReaction::DROP_LOCK, next};
}
constexpr MbReaction dealloc(MbStateId next)
{
    return {MbReaction::DEALLOCATE, next};
}
constexpr MbReaction complete(MbStateId next)
{
    return {MbReaction::COMPLETE, next};
}

// clang-format off
inline constexpr MbStateRow states[] = {
    //                                                    rdlock             wrlock             wrdup    prefetch              asyncSync            sync           unlock                  unload          free             destroy             asyncOpSucceeded                  asyncOpFailed
    {FREED,                  "Freed",                    {BEING_RD_LOADED,   BEING_WR_LOADED,   X,       BEING_ASYNC_LOADED,   o,                   o,             X,                      o,              o,               DESTROYED,          X,                                X}},
    {UNLOADED,               "Unloaded",                 {BEING_RD_RELOADED, BEING_WR_RELOADED, X,       BEING_ASYNC_RELOADED, o,                   o,             X,                      o,              FREED,           DESTROYED,          X,                                X}},
    {LOADED,                 "Loaded",                   {plus1(RD_LOCKED),  plus1(WR_LOCKED),  X,       TOUCH,                BEING_ASYNC_SYNCHED, BEING_SYNCHED, X,                      BEING_UNLOADED, BEING_FREED,     BEING_DESTROYED,    X,                                X}},
    {SYNCHED,                "Synched",                  {plus1(RD_LOCKED),  plus1(WR_LOCKED),  X,       TOUCH,                o,                   o,             X,                      BEING_UNLOADED, BEING_FREED,     dealloc(DESTROYED), X,                                X}},
    {RD_LOCKED,              "RdLocked",                 {plus1(),           W,                 X,       o,                    Q,                   W,             minus1(BEING_UNLOCKED), o,              RD_LOCKED_FREED, X,                  X,                                X}},
    {WR_LOCKED,              "WrLocked",                 {W,                 W,                 plus1(), o,                    Q,                   W,             minus1(BEING_UNLOCKED), o,              WR_LOCKED_FREED, X,                  X,                                X}},
    {RD_LOCKED_FREED,        "RdLockedFreed",            {plus1(),           W,                 X,       o,                    o,                   o,             minus1(BEING_FREED),    o,              o,               X,                  X,                                X}},
    {WR_LOCKED_FREED,        "WrLockedFreed",            {W,                 W,                 plus1(), o,                    o,                   o,             minus1(BEING_FREED),    o,              o,               X,                  X,                                X}},
    {BEING_RD_LOADED,        "BeingRdLoaded",            {W,                 W,                 X,       o,                    D,                   W,             X,                      o,              D,               X,                  X,                                X}},
    {BEING_WR_LOADED,        "BeingWrLoaded",            {W,                 W,                 X,       o,                    D,                   W,             X,                      o,              D,               X,                  X,                                X}},
    {BEING_ASYNC_LOADED,     "BeingAsyncLoaded",         {W,                 W,                 X,       o,                    D,                   W,             X,                      o,              D,               X,                  Q,                                Q}},
    {BEING_RD_RELOADED,      "BeingRdReloaded",          {W,                 W,                 X,       o,                    D,                   W,             X,                      o,              D,               X,                  X,                                X}},
    {BEING_WR_RELOADED,      "BeingWrReloaded",          {W,                 W,                 X,       o,                    D,                   W,             X,                      o,              D,               X,                  X,                                X}},
    {BEING_ASYNC_RELOADED,   "BeingAsyncReloaded",       {W,                 W,                 X,       o,                    D,                   W,             X,                      o,              D,               X,                  Q,                                Q}},
    {BEING_SYNCHED,          "BeingSynched",             {W,                 W,                 X,       o,                    D,                   W,             X,                      o,              D,               X,                  X,                                X}},
    {BEING_ASYNC_SYNCHED,    "BeingAsyncSynched",        {W,                 W,                 X,       o,                    D,                   W,             X,                      o,              D,               X,                  Q,                                Q}},
    {BEING_UNLOCKED,         "BeingUnlocked",            {W,                 W,                 X,       o,                    D,                   W,             X,                      o,              D,               X,                  X,                                X}},
    {BEING_UNLOADED,         "BeingUnloaded",            {W,                 W,                 X,       D,                    D,                   W,             X,                      o,              D,               D,                  X,                                X}},
    {BEING_FREED,            "BeingFreed",               {W,                 W,                 X,       D,                    o,                   o,             X,                      o,              o,               D,                  X,                                X}},
    {BEING_DESTROYED,        "BeingDestroyed",           {X,                 X,                 X,       X,                    X,                   X,             X,                      o,              X,               X,                  X,                                X}},
    {WAIT_ASYNC_LOADED,      "WaitAsyncLoaded",          {W,                 W,                 X,       o,                    D,                   W,             X,                      o,              D,               D,                  complete(ASYNC_LOAD_SUCCEEDED),   dealloc(ASYNC_LOAD_FAILED)}},
    {WAIT_ASYNC_RELOADED,    "WaitAsyncReloaded",        {W,                 W,                 X,       o,                    D,                   W,             X,                      o,              D,               D,                  complete(ASYNC_RELOAD_SUCCEEDED), dealloc(ASYNC_RELOAD_FAILED)}},
    {WAIT_ASYNC_SYNCHED,     "WaitAsyncSynched",         {W,                 W,                 X,       o,                    D,                   W,             X,                      o,              D,               D,                  ASYNC_SYNC_SUCCEEDED,             ASYNC_SYNC_FAILED}},
    {ASYNC_LOAD_SUCCEEDED,   "AsyncLoadSucceeded",       {W,                 W,                 X,       o,                    D,                   W,             X,                      o,              D,               X,                  X,                                X}},
    {ASYNC_LOAD_FAILED,      "AsyncLoadFailed",          {W,                 W,                 X,       o,                    D,                   W,             X,                      o,              D,               X,                  X,                                X}},
    {ASYNC_RELOAD_SUCCEEDED, "AsyncReloadSucceeded",     {W,                 W,                 X,       o,                    D,                   W,             X,                      o,              D,               X,                  X,                                X}},
    {ASYNC_RELOAD_FAILED,    "AsyncReloadFailed",        {W,                 W,                 X,       o,                    D,                   W,             X,                      o,              D,               X,                  X,                                X}},
    {ASYNC_SYNC_SUCCEEDED,   "AsyncSyncSucceeded",       {W,                 W,                 X,       o,                    D,                   W,             X,                      o,              D,               X,                  X,                                X}},
    {ASYNC_SYNC_FAILED,      "AsyncSyncFailed",          {W,                 W,                 X,       o,                    D,                   W,             X,                      o,              D,               X,                  X,                                X}},
    {DESTROYED,              "Destroyed",                {X,                 X,                 X,       X,                    X,                   X,             X,                      o,              X,               X,                  X,                                X}},
};

inline constexpr MbProtocolCall load                {"load",                 &MbProtocol::load};
inline constexpr MbProtocolCall asyncLoad           {"asyncLoad",            &MbProtocol::asyncLoad};
inline constexpr MbProtocolCall asyncLoadSucceeded  {"asyncLoadSucceeded",   &MbProtocol::asyncLoadSucceeded};
inline constexpr MbProtocolCall asyncLoadFailed     {"asyncLoadFailed",      &MbProtocol::asyncLoadFailed};
inline constexpr MbProtocolCall reload              {"reload",               &MbProtocol::reload};
inline constexpr MbProtocolCall asyncReload         {"asyncReload",          &MbProtocol::asyncReload};
inline constexpr MbProtocolCall asyncReloadSucceeded{"asyncReloadSucceeded", &MbProtocol::asyncReloadSucceeded};
inline constexpr MbProtocolCall asyncReloadFailed   {"asyncReloadFailed",    &MbProtocol::asyncReloadFailed};
inline constexpr MbProtocolCall unlocked            {"unlocked",             &MbProtocol::unlocked};
inline constexpr MbProtocolCall sync                {"sync",                 &MbProtocol::sync};
inline constexpr MbProtocolCall asyncSync           {"asyncSync",            &MbProtocol::asyncSync};
inline constexpr MbProtocolCall asyncSyncSucceeded  {"asyncSyncSucceeded",   &MbProtocol::asyncSyncSucceeded};
inline constexpr MbProtocolCall asyncSyncFailed     {"asyncSyncFailed",      &MbProtocol::asyncSyncFailed};
inline constexpr MbProtocolCall unload              {"unload",               &MbProtocol::unload};
inline constexpr MbProtocolCall free                {"free",                 &MbProtocol::free};
inline constexpr MbProtocolCall markDirty           {"markDirty",            &MbProtocol::markDirty};

inline constexpr MbEnteringRow enterings[] = {
    //                       before             calls                    after               next
    {LOADED,                 MbStep::NOTHING,  {},                       MbStep::UNLOADABLE, NONE},
    {SYNCHED,                MbStep::NOTHING,  {},                       MbStep::UNLOADABLE, NONE},
    {BEING_RD_LOADED,        MbStep::ALLOCATE, {load},                   MbStep::ADD_LOCK,   RD_LOCKED},
    {BEING_WR_LOADED,        MbStep::ALLOCATE, {load, markDirty},        MbStep::ADD_LOCK,   WR_LOCKED},
    {BEING_ASYNC_LOADED,     MbStep::ALLOCATE, {asyncLoad},              MbStep::NOTHING,    WAIT_ASYNC_LOADED},
    {BEING_RD_RELOADED,      MbStep::ALLOCATE, {reload},                 MbStep::ADD_LOCK,   RD_LOCKED},
    {BEING_WR_RELOADED,      MbStep::ALLOCATE, {reload, markDirty},      MbStep::ADD_LOCK,   WR_LOCKED},
    {BEING_ASYNC_RELOADED,   MbStep::ALLOCATE, {asyncReload},            MbStep::NOTHING,    WAIT_ASYNC_RELOADED},
    {BEING_SYNCHED,          MbStep::NOTHING,  {sync},                   MbStep::NOTHING,    SYNCHED},
    {BEING_ASYNC_SYNCHED,    MbStep::NOTHING,  {asyncSync},              MbStep::NOTHING,    WAIT_ASYNC_SYNCHED},
    {BEING_UNLOCKED,         MbStep::NOTHING,  {unlocked},               MbStep::NOTHING,    LOADED},
    {BEING_UNLOADED,         MbStep::NOTHING,  {unload},                 MbStep::DEALLOCATE, UNLOADED},
    {BEING_FREED,            MbStep::NOTHING,  {free},                   MbStep::DEALLOCATE, FREED},
    {BEING_DESTROYED,        MbStep::NOTHING,  {free},                   MbStep::DEALLOCATE, DESTROYED},
    {ASYNC_LOAD_SUCCEEDED,   MbStep::NOTHING,  {asyncLoadSucceeded},     MbStep::NOTHING,    LOADED},
    {ASYNC_LOAD_FAILED,      MbStep::NOTHING,  {asyncLoadFailed},        MbStep::NOTHING,    FREED},
    {ASYNC_RELOAD_SUCCEEDED, MbStep::NOTHING,  {asyncReloadSucceeded},   MbStep::NOTHING,    LOADED},
    {ASYNC_RELOAD_FAILED,    MbStep::NOTHING,  {asyncReloadFailed},      MbStep::NOTHING,    UNLOADED},
    {ASYNC_SYNC_SUCCEEDED,   MbStep::NOTHING,  {asyncSyncSucceeded},     MbStep::NOTHING,    SYNCHED},
    {ASYNC_SYNC_FAILED,      MbStep::NOTHING,  {asyncSyncFailed},        MbStep::NOTHING,    LOADED},
};

inline constexpr char const *eventNames[] = {"rdlock", "wrlock", "wrdup", "prefetch", "asyncSync",        "sync",
                                      "unlock", "unload", "free",  "destroy",  "asyncOpSucceeded", "asyncOpFailed"};
// clang-format on

static_assert(std::size(states) == static_cast<std::size_t>(NONE));
static_assert(std::all_of(std::begin(states), std::end(states), [](MbStateRow const &row) {
    return &row == &states[static_cast<std::size_t>(row.state)];
}));

/// The column of an event.
constexpr std::size_t columnOf(MbEvent event)
{
    return static_cast<std::size_t>(std::countr_zero(static_cast<std::uint32_t>(event)));
}

constexpr char const *nameOf(MbEvent event)
{
    return eventNames[columnOf(event)];
}

constexpr MbStateRow const &rowOf(MbStateId state)
{
    return states[static_cast<std::size_t>(state)];
}

/// Null if entering the state does nothing.
constexpr MbEnteringRow const *enteringOf(MbStateId state)
{
    for (MbEnteringRow const &row : enterings)
        if (row.state == state)
            return &row;
    return nullptr;
}

/// Returns the row, or one that does nothing, with the state `NONE`.
constexpr MbEnteringRow copyOfEntering(MbStateId state)
{
    for (MbEnteringRow const &row : enterings)
        if (row.state == state)
            return row;
    return {NONE, MbStep::NOTHING, {}, MbStep::NOTHING, NONE};
}

/// Whether a lock can be taken without loading.
constexpr bool isLoaded(MbStateId state)
{
    return state >= LOADED && state <= WR_LOCKED_FREED;
}

// ---- The families of states. The table is checked against what the states of a family share.

inline constexpr MbStateId LockedStates[] = {RD_LOCKED, WR_LOCKED};
inline constexpr MbStateId LoadedStates[] = {LOADED, SYNCHED};
inline constexpr MbStateId TransientStates[] = {
    BEING_RD_LOADED,        BEING_WR_LOADED,      BEING_ASYNC_LOADED,   BEING_RD_RELOADED,
    BEING_WR_RELOADED,      BEING_ASYNC_RELOADED, BEING_SYNCHED,        BEING_ASYNC_SYNCHED,
    BEING_UNLOCKED,         BEING_UNLOADED,       BEING_FREED,          WAIT_ASYNC_LOADED,
    WAIT_ASYNC_RELOADED,    WAIT_ASYNC_SYNCHED,   ASYNC_LOAD_SUCCEEDED, ASYNC_LOAD_FAILED,
    ASYNC_RELOAD_SUCCEEDED, ASYNC_RELOAD_FAILED,  ASYNC_SYNC_SUCCEEDED, ASYNC_SYNC_FAILED};
inline constexpr MbStateId BeingAsyncStates[] = {BEING_ASYNC_LOADED, BEING_ASYNC_RELOADED,
                                                 BEING_ASYNC_SYNCHED};
inline constexpr MbStateId WaitAsyncStates[] = {WAIT_ASYNC_LOADED, WAIT_ASYNC_RELOADED,
                                                WAIT_ASYNC_SYNCHED};
inline constexpr MbStateId AsyncResultStates[] = {ASYNC_LOAD_SUCCEEDED,   ASYNC_LOAD_FAILED,
                                                  ASYNC_RELOAD_SUCCEEDED, ASYNC_RELOAD_FAILED,
                                                  ASYNC_SYNC_SUCCEEDED,   ASYNC_SYNC_FAILED};

/// Returns true if each state of the family has this reaction to the event.
template <std::size_t size>
constexpr bool share(MbStateId const (&family)[size], MbEvent event, MbReaction reaction)
{
    return std::all_of(std::begin(family), std::end(family), [=](MbStateId state) {
        MbReaction const &cell = rowOf(state).reactions[columnOf(event)];
        return cell.kind == reaction.kind && cell.next == reaction.next;
    });
}

static_assert(share(LockedStates, MbEvent::PREFETCH, o));
static_assert(share(LockedStates, MbEvent::ASYNC_SYNC, Q));
static_assert(share(LockedStates, MbEvent::SYNC, W));
static_assert(share(LockedStates, MbEvent::UNLOCK, minus1(BEING_UNLOCKED)));
static_assert(share(LoadedStates, MbEvent::RDLOCK, plus1(RD_LOCKED)));
static_assert(share(LoadedStates, MbEvent::WRLOCK, plus1(WR_LOCKED)));
static_assert(share(LoadedStates, MbEvent::PREFETCH, TOUCH));
static_assert(share(TransientStates, MbEvent::RDLOCK, W));
static_assert(share(TransientStates, MbEvent::WRLOCK, W));
static_assert(share(BeingAsyncStates, MbEvent::ASYNC_OP_SUCCEEDED, Q));
static_assert(share(BeingAsyncStates, MbEvent::ASYNC_OP_FAILED, Q));
static_assert(share(WaitAsyncStates, MbEvent::DESTROY, D));
static_assert(share(AsyncResultStates, MbEvent::DESTROY, X));

} // namespace MbTable

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
    std::optional<TraceEvents::Slice> slice;
    if constexpr (id != MbStateId::BEING_UNLOCKED) // those would be too many
        slice.emplace("buffer", work.calls.first.name, std::string_view(buffer->getName()));
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
