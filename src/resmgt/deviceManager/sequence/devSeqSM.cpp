#include "resmgt/deviceManager/sequence/devSeqSM.h"

#include "resmgt/deviceManager/sequence/devSeqSMTable.h"
#include "zvbase/trace.h"

#include <string>

namespace Zv {

DevSeqSM::DevSeqSM(ObjPtr<DevSMTransitionFactory> factory, RCShdPtr<DevSeqEvPend> evPend,
                   LiString const &label)
    : _table(DevSeqSMTable::getInstance().getTable()),
      _engine(DevSMExecutionEng::create(_table, _table->getState("init"), factory)),
      _evPend(evPend),
      _label(label)
{}

DevSeqSM::~DevSeqSM() noexcept(false) = default;

void DevSeqSM::execute(std::int32_t event, Listener *listener)
{
    execute(Step{_engine->getState(), event}, listener);
    while (_evPend->isReleased())
        for (std::int32_t const parked : _evPend->take())
            execute(Step{_engine->getState(), parked}, listener);
}

LiString DevSeqSM::getStateName() const
{
    return _table->getStateName(_engine->getState());
}

std::optional<DevMgrFailure> DevSeqSM::getFailure() const
{
    if (!_failure)
        return std::nullopt;
    DevMgrFailure failure = describe(_failure->step);
    failure.exception = _failure->exception;
    return failure;
}

DevMgrFailure DevSeqSM::getLastThrown() const
{
    return describe(_lastThrown);
}

void DevSeqSM::execute(Step const &step, Listener *listener)
{
    if (_guard && !DevSeqSMTable::getInstance().isLegal(step.state, step.event))
        return _guard->refused(step.event);
    try {
        _engine->execute(step.event);
    } catch (...) {
        stepThrew(step, listener);
        throw;
    }
    std::int32_t const state = _engine->getState();
    if (state == step.state)
        return;
    bool const hasFailed = !_table->isPrimaryState(state);
    if (hasFailed) {
        bool const isIllegal = getStateName() == "_ill";
        fail(step, isIllegal ? nullptr : _engine->getException(),
             isIllegal ? "comes to _ill" : "comes to _exc");
    }
    if (_guard)
        _guard->stateChanged(state);
    if (listener) {
        listener->stateChanged();
        if (hasFailed)
            listener->machineFailed();
    }
}

void DevSeqSM::stepThrew(Step const &step, Listener *listener)
{
    _lastThrown = step;
    bool const hasBroken = _engine->getStatus() != 0 && !_failure;
    if (!hasBroken)
        return trace(step, std::current_exception(), "refuses an event");
    fail(step, std::current_exception(), "breaks");
    if (listener)
        listener->machineFailed();
}

void DevSeqSM::fail(Step const &step, std::exception_ptr const &exception, char const *how)
{
    _failure = Failure{step, exception};
    if (!_guard)
        trace(step, exception, how);
}

void DevSeqSM::trace(Step const &step, std::exception_ptr const &exception,
                     char const *how) const noexcept
{
    try {
        DevMgrFailure failure = describe(step);
        failure.exception = exception;
        ZV_TRACE(*Trace::MainTraceLevel, _label << ' ' << how << ": " << failure);
    } catch (...) {
        // There is no memory for the line.
    }
}

DevMgrFailure DevSeqSM::describe(Step const &step) const
{
    DevMgrFailure failure;
    failure.state = _table->getStateName(step.state);
    failure.event = _table->isEvent(step.event) ? _table->getEventName(step.event)
                                                : LiString(std::to_string(step.event).c_str());
    return failure;
}

} // namespace Zv
