// Execution engine of a state machine (extenders).
#pragma once

#include "resmgt/deviceManager/stateMachine/devSMTable.h"
#include "resmgt/deviceManager/stateMachine/devSMTransition.h"
#include "resmgt/export.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/exBase.h"
#include "zvbase/objPtr.h"

#include <cstdint>
#include <exception>

namespace Zv {

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
