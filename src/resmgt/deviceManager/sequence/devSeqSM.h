// One running sequence machine.
#pragma once

#include "resmgt/deviceManager/devMgrFailure.h"
#include "resmgt/deviceManager/sequence/devSeqEvPend.h"
#include "resmgt/deviceManager/stateMachine/devSMExecutionEng.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/objPtr.h"

#include <cstdint>
#include <exception>
#include <optional>

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

/// The sequence machine of one node, from `init` to `final`, to `_exc` if a protocol call threw an `ExBase`, or to
/// `_ill` after an illegal event. None of the three has a way back. An exception of another class breaks the machine.
/// When it ends in `_exc` or `_ill`, breaks, or refuses an event because it has ended so, it writes one line to the
/// trace, with its label, the event, the state and the reason.
///
/// It has no lock. The tree's callers take turns.
class ZVRESMGT_EXPORT DevSeqSM
{
public:
    /// Follows the steps of a machine. It must not execute an event of the machine.
    class Listener
    {
    public:
        /// Called after each step that has led to another state. `DevSeqSM::getStateName` tells it.
        virtual void stateChanged() = 0;
        /// Called once when the machine has come to `_exc` or `_ill`, after `stateChanged`, or has broken.
        /// `DevSeqSM::getFailure` tells why.
        virtual void machineFailed() = 0;

    protected:
        ~Listener() = default;
    };

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
    void execute(std::int32_t event, Listener *listener = nullptr);
    LiString getStateName() const;
    LiString const &getLabel() const { return _label; }

    /// Returns why the machine has ended in `_exc` or `_ill` or has broken, without the device's name. Empty if it has
    /// not.
    std::optional<DevMgrFailure> getFailure() const;
    /// Returns the event that `execute` has thrown for the last time, and the state in which the machine got it,
    /// without the device's name and the exception.
    DevMgrFailure getLastThrown() const;

    /// From now on illegal events are refused, and the guard reports failures instead of the trace. The guard must outlive
    /// the machine. Null for none.
    void setGuard(DevSeqSMGuard *guard) { _guard = guard; }

private:
    /// An event, and the state in which the machine got it.
    struct Step
    {
        std::int32_t state;
        std::int32_t event;
    };
    struct Failure
    {
        Step step;
        std::exception_ptr exception;
    };

    void execute(Step const &step, Listener *listener);
    void stepThrew(Step const &step, Listener *listener);
    void fail(Step const &step, std::exception_ptr const &exception, char const *how);
    void trace(Step const &step, std::exception_ptr const &exception,
               char const *how) const noexcept;
    DevMgrFailure describe(Step const &step) const;

    RCShdPtr<DevSMTable> _table;
    ObjPtr<DevSMExecutionEng> _engine;
    RCShdPtr<DevSeqEvPend> _evPend;
    LiString _label;
    std::optional<Failure> _failure;
    Step _lastThrown = {};
    DevSeqSMGuard *_guard = nullptr;
};

} // namespace Zv
