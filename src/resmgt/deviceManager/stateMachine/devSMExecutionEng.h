// Execution engine of a state machine, and the transitions that it runs (extenders).
#pragma once

#include "resmgt/deviceManager/stateMachine/devSMTable.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/exBase.h"
#include "zvbase/objPtr.h"

#include <cstdint>
#include <exception>

namespace Zv {

/// A transition of a state machine: the code that runs between two states.
///
/// The author of a machine derives one class for each kind of transition. A `DevSMExecutionEng`
/// gets its transitions from a `DevSMTransitionFactory`.
///
/// **Threads**: one thread at a time, as the engine.
class ZVRESMGT_EXPORT DevSMTransition : public RCBase<LkCounter<long>>
{
public:
    explicit DevSMTransition(LiString const &name);

    LiString getName() const { return _name; }

    /// Runs the transition. The engine's `execute` calls it while the engine is still in the state
    /// that the transition leaves. It must not call `execute` of its own engine.
    ///
    /// If it throws an `ExBase`, the machine goes to its state `_exc`. If it throws anything else,
    /// the engine fails with status 2.
    virtual void execute() = 0;

protected:
    ~DevSMTransition() override;

private:
    LiString _name;
};

/// A transition that is taken only if its condition holds. If a machine has several transitions for
/// one state and event, each of them but the last must be conditional. The last one is taken if no
/// condition holds, and its condition is not checked.
class ZVRESMGT_EXPORT DevSMConditionalTransition : public DevSMTransition
{
public:
    using DevSMTransition::DevSMTransition;

    /// Returns true if the transition is to be taken. Called in the declared order, up to the first
    /// one that returns true, before `execute` of the chosen transition. An exception has the same
    /// effect as one of `execute`.
    virtual bool condition() = 0;

protected:
    ~DevSMConditionalTransition() override;
};

/// Creates the transitions of an engine.
class ZVRESMGT_EXPORT DevSMTransitionFactory
{
public:
    DevSMTransitionFactory() = default;
    DevSMTransitionFactory(DevSMTransitionFactory const &) = delete;
    DevSMTransitionFactory &operator=(DevSMTransitionFactory const &) = delete;
    virtual ~DevSMTransitionFactory() noexcept(false);

    /// Returns a transition of that name, or null if there is none. Called once for each declared
    /// transition while the engine is created.
    virtual RCShdPtr<DevSMTransition> create(LiString const &name) = 0;
};

/// Runs a state machine. It has the machine's present state and its transitions. All engines of a
/// machine share its table.
///
/// The author of a machine provides the primary transitions through a factory and calls `execute`
/// with primary events. The engine itself carries out the choices and failures that the table's
/// expansion has added.
///
/// **Threads**: one thread at a time.
///
/// **Blocks**: as long as the transitions do.
class ZVRESMGT_EXPORT DevSMExecutionEng
{
public:
    /// Creates an engine. Asks the factory for each primary transition, and keeps the factory.
    ///
    /// Throws `DevMgrEx::SMDomainError` if the initial state is not primary, or if the table lacks
    /// the events of its expansion. Throws `DevMgrEx::SMBadTransitionImp` if the factory returns
    /// null, or if a transition of a choice, other than the last, is not a
    /// `DevSMConditionalTransition`. Throws `DevMgrEx::SMBadImp` if a transition of the table gets
    /// no object.
    [[nodiscard]] static ObjPtrRet<DevSMExecutionEng>
    create(RCShdPtr<DevSMTable> table, std::int32_t initialState,
           ObjPtr<DevSMTransitionFactory> factory);

    DevSMExecutionEng(DevSMExecutionEng const &) = delete;
    DevSMExecutionEng &operator=(DevSMExecutionEng const &) = delete;
    virtual ~DevSMExecutionEng() noexcept(false);

    /// Returns 0 if the engine works. Returns 2 if a transition has thrown something that is not an
    /// `ExBase`, and 4 if the table contradicts itself. 1 (no transition found) and 3 (no next
    /// state found) do not occur, because the engine checks its numbers first. The status is 0 also
    /// in the states `_exc` and `_ill`.
    virtual std::int32_t getStatus() const = 0;
    /// Returns the state. While a transition runs, that is the state that it leaves.
    virtual std::int32_t getState() const = 0;
    virtual RCShdPtr<DevSMTable> getTable() const = 0;
    /// Returns a copy of the last `ExBase` that a transition has thrown. A second call returns
    /// null.
    virtual ObjPtrRet<ExBase> takeException() = 0;
    /// Executes one primary event to its end. The machine is in a primary state afterwards, or in
    /// `_exc` if a transition has thrown an `ExBase`, or in `_ill` if the event is illegal in the
    /// present state. This call does not fail in the last two cases, but no event leads out of
    /// these states.
    ///
    /// Throws `DevMgrEx::SMExecutionError` if the machine is in `_exc` or `_ill`, or if the status
    /// is not 0. Throws `DevMgrEx::SMDomainError` if the event is not primary, and
    /// `DevMgrEx::SMBadImp` if the table contradicts itself. Passes on what a transition throws
    /// that is not an `ExBase`.
    virtual void execute(std::int32_t event) = 0;
    /// Returns the last `ExBase` that a transition has thrown, so that it can be thrown again.
    /// Returns null if there was none. `takeException` does not change the result.
    virtual std::exception_ptr getException() const = 0;

protected:
    DevSMExecutionEng() = default;
};

} // namespace Zv
