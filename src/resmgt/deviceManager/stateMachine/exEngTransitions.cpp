#include "resmgt/deviceManager/stateMachine/exEngTransitions.private.h"

#include "resmgt/deviceManager/stateMachine/devSMExecutionEngImp.private.h"
#include "zvbase/firstFailure.private.h"

namespace Zv {

ExEngPrimaryTrans::ExEngPrimaryTrans(LiString const &name,
                                     RCShdPtr<DevSMTransition> const &transition,
                                     DevSMExecutionEngImp &engine, std::int32_t exception,
                                     std::int32_t noException)
    : DevSMTransition(name),
      _transition(transition),
      _engine(engine),
      _exception(exception),
      _noException(noException)
{}

void ExEngPrimaryTrans::execute()
{
    _engine.pend(run() ? _noException : _exception);
}

bool ExEngPrimaryTrans::run()
{
    try {
        _transition->execute();
    } catch (ExBase const &exception) {
        _engine.keepException(exception);
        return false;
    }
    return true;
}

ExEngCondTrans::ExEngCondTrans(LiString const &name, DevSMExecutionEngImp &engine,
                               Candidates const &candidates, Vector<std::int32_t> const &events,
                               std::int32_t exception, std::int32_t noException)
    : DevSMTransition(name),
      _engine(engine),
      _candidates(candidates),
      _events(events),
      _exception(exception),
      _noException(noException)
{}

ExEngCondTrans::~ExEngCondTrans()
{
    releaseAll(_candidates);
}

// The table leads a choice into a checking state like any transition: `_noexc` takes it through,
// and then the selecting event finds the state that it is meant for.
void ExEngCondTrans::execute()
{
    std::size_t chosen = 0;
    try {
        chosen = choose();
    } catch (ExBase const &exception) {
        _engine.keepException(exception);
        _engine.pend(_exception);
        return;
    }
    _engine.pend(_noException);
    _engine.pend(_events[chosen]);
}

std::size_t ExEngCondTrans::choose() const
{
    std::size_t i = 0;
    while (i < _candidates.size() && !_candidates[i]->condition())
        ++i;
    return i;
}

} // namespace Zv
