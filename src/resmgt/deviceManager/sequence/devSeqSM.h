// One running sequence machine.
#pragma once

#include "resmgt/deviceManager/sequence/devSeqEvPend.h"
#include "resmgt/deviceManager/stateMachine/devSMExecutionEng.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/objPtr.h"

#include <cstdint>

namespace Zv {

/// Guards a machine against illegal events, and is told of its states. Called by the thread that steps the machine.
class ZVRESMGT_EXPORT DevSeqSMGuard
{
public:
    /// The machine has come to another state.
    virtual void stateChanged(std::int32_t state) = 0;
    /// The event is illegal in the present state. The machine stays as it is.
    virtual void refused(std::int32_t event) = 0;

protected:
    ~DevSeqSMGuard() = default;
};

/// The sequence machine of one node, from `init` to `final`, to `_exc` where a protocol call threw
/// an `ExBase`, or to `_ill` after an illegal event. None of the three has a way back. No lock: the
/// tree's callers take turns.
class ZVRESMGT_EXPORT DevSeqSM
{
public:
    /// `evPend` is the queue in which the factory's transitions park events; `label` is for
    /// reports.
    DevSeqSM(ObjPtr<DevSMTransitionFactory> factory, RCShdPtr<DevSeqEvPend> evPend,
             LiString const &label);
    DevSeqSM(DevSeqSM const &) = delete;
    DevSeqSM &operator=(DevSeqSM const &) = delete;
    ~DevSeqSM() noexcept(false);

    /// Runs the event, then the parked ones for as long as a transition has released them. Throws
    /// what `DevSMExecutionEng::execute` throws; parked events that did not have their turn then
    /// are lost.
    void execute(std::int32_t event);
    LiString getStateName() const;
    LiString const &getLabel() const { return _label; }

    /// From now on illegal events are refused. The guard must outlive the machine. Null for none.
    void setGuard(DevSeqSMGuard *guard) { _guard = guard; }

private:
    void step(std::int32_t event);

    ObjPtr<DevSMExecutionEng> _engine;
    RCShdPtr<DevSeqEvPend> _evPend;
    LiString _label;
    DevSeqSMGuard *_guard = nullptr;
};

} // namespace Zv
