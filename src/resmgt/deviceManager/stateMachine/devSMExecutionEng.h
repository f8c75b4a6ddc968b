// Runs a state machine.
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

/// One running machine: the state that it is in, and its transitions, over a table that all engines
/// of the machine share. The author gives the primary transitions through a factory and feeds
/// primary events; the choices and failures that the table's expansion added are the engine's own
/// work.
///
/// An engine has no lock: its callers take turns. It blocks where a transition does.
class ZVRESMGT_EXPORT DevSMExecutionEng
{
public:
    /// Asks the factory, which the engine then keeps, for each primary transition. Throws
    /// `DevMgrEx::SMDomainError` where the initial state is not primary,
    /// `DevMgrEx::SMBadTransitionImp` where the factory lacks a transition or where one of a
    /// choice, the last excepted, is not a `DevSMConditionalTransition`, and `DevMgrEx::SMBadImp`
    /// where a transition of the table stays without an object.
    static ObjPtrRet<DevSMExecutionEng> create(RCShdPtr<DevSMTable> table,
                                               std::int32_t initialState,
                                               ObjPtr<DevSMTransitionFactory> factory);

    DevSMExecutionEng(DevSMExecutionEng const &) = delete;
    DevSMExecutionEng &operator=(DevSMExecutionEng const &) = delete;
    virtual ~DevSMExecutionEng() noexcept(false);

    /// 0 while healthy. 1: no transition could be looked up; 2: something other than an `ExBase`
    /// left a transition; 3: no next state could be looked up; 4: the table contradicts itself. 1
    /// and 3 do not occur: the engine asks its table for numbers that it has checked before. A
    /// machine in `_exc` or `_ill` is healthy: only its state tells.
    virtual std::int32_t getStatus() const = 0;
    /// While a transition runs, still the state that it comes from.
    virtual std::int32_t getState() const = 0;
    virtual RCShdPtr<DevSMTable> getTable() const = 0;
    /// A copy of the last failure of a transition, once; then null.
    virtual ObjPtrRet<ExBase> takeException() = 0;
    /// Runs one primary event to its end: in a primary state, in `_exc` where a transition threw an
    /// `ExBase`, or in `_ill` where the event is not legal in this state. Neither of the latter is
    /// a failure of this call, and neither has a way back: the next call throws
    /// `DevMgrEx::SMExecutionError`, as each does once the status is not 0. Throws
    /// `DevMgrEx::SMDomainError` for an event that is not primary, `DevMgrEx::SMBadImp` where the
    /// table contradicts itself, and what a transition throws that is no `ExBase`.
    virtual void execute(std::int32_t event) = 0;
    /// Returns the last `ExBase` that a transition threw, as it was thrown, to be rethrown. Null if there was none.
    virtual std::exception_ptr getException() const = 0;

protected:
    DevSMExecutionEng() = default;
};

} // namespace Zv
