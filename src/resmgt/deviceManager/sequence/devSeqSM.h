// Sequence machine of one device (extenders).
#pragma once

#include "resmgt/deviceManager/devMgrFailure.h"
#include "resmgt/deviceManager/sequence/devSeqTreeNodeUtil.h"
#include "resmgt/deviceManager/stateMachine/devSMExecutionEng.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/objPtr.h"

#include <cstdint>
#include <exception>
#include <optional>

namespace Zv {

/// Makes a machine refuse illegal events, and is told of its states. Called by the thread that
/// executes the machine's events.
class ZVRESMGT_EXPORT DevSeqSMGuard
{
public:
    /// Called when the machine has reached another state.
    virtual void stateChanged(std::int32_t state) = 0;
    /// Called instead of executing an event that is illegal in the present state. The machine does
    /// not change.
    virtual void refused(std::int32_t event) = 0;

protected:
    ~DevSeqSMGuard() = default;
};

/// The sequence machine of one node. It runs from `init` to `final`, to `_exc` if a call of the
/// device has thrown an `ExBase`, or to `_ill` after an illegal event. No event leads out of these
/// three states. An exception of another class breaks the machine.
///
/// It writes one line to the trace, with its label, the event, the state and the reason, if it
/// reaches `_exc` or `_ill`, if it breaks, and if it then gets another event.
///
/// **Threads**: one thread at a time, under the tree's lock.
class ZVRESMGT_EXPORT DevSeqSM
{
public:
    /// Observes the steps of a machine. It must not execute an event of the machine.
    class Listener
    {
    public:
        /// Called after each step that has led to another state. `DevSeqSM::getStateName` returns
        /// it.
        virtual void stateChanged() = 0;
        /// Called once when the machine has reached `_exc` or `_ill`, after `stateChanged`, or has
        /// broken. `DevSeqSM::getFailure` returns the reason.
        virtual void machineFailed() = 0;

    protected:
        ~Listener() = default;
    };

    /// `evPend` is the queue in which the factory's transitions keep events. `label` is the
    /// machine's name in traces.
    DevSeqSM(ObjPtr<DevSMTransitionFactory> factory, RCShdPtr<DevSeqEvPend> evPend,
             LiString const &label);
    DevSeqSM(DevSeqSM const &) = delete;
    DevSeqSM &operator=(DevSeqSM const &) = delete;
    ~DevSeqSM() noexcept(false);

    /// Executes the event, and then the kept events as long as a transition releases them. Throws
    /// what `DevSMExecutionEng::execute` throws. Events that were released and not executed are
    /// lost then.
    void execute(std::int32_t event, Listener *listener = nullptr);
    LiString getStateName() const;
    LiString const &getLabel() const { return _label; }

    /// Returns the reason why the machine is in `_exc` or `_ill` or is broken, without the device's
    /// name. Empty if it has not failed.
    std::optional<DevMgrFailure> getFailure() const;
    /// Returns the last event for which `execute` has thrown, and the state in which the machine
    /// got it, without the device's name and the exception. Must not be called before `execute` has
    /// thrown.
    DevMgrFailure getLastThrown() const;

    /// Sets the guard. Null means none. The guard must outlive the machine. From now on the machine
    /// refuses illegal events. It does not trace its failures, because the owner of the guard
    /// reports them.
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
