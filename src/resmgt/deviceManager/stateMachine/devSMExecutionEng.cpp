#include "resmgt/deviceManager/stateMachine/devSMExecutionEng.private.h"

#include "resmgt/deviceManager/devMgrEx.h"
#include "resmgt/deviceManager/stateMachine/devSMExecutionEng.h"
#include "zvbase/failures.h"
#include "zvbase/firstFailure.private.h"

#include <algorithm>
#include <utility>

namespace Zv {

DevSMTransition::DevSMTransition(LiString const &name) : _name(name) {}

DevSMTransition::~DevSMTransition() = default;

DevSMConditionalTransition::~DevSMConditionalTransition() = default;

DevSMTransitionFactory::~DevSMTransitionFactory() noexcept(false) = default;

DevSMExecutionEng::~DevSMExecutionEng() noexcept(false) = default;

ObjPtrRet<DevSMExecutionEng> DevSMExecutionEng::create(RCShdPtr<DevSMTable> table,
                                                       std::int32_t initialState,
                                                       ObjPtr<DevSMTransitionFactory> factory)
{
    return ObjPtrRet<DevSMExecutionEng>(new DevSMExecutionEngImp(table, initialState, factory));
}

DevSMExecutionEngImp::DevSMExecutionEngImp(RCShdPtr<DevSMTable> table, std::int32_t initialState,
                                           ObjPtr<DevSMTransitionFactory> factory)
    : _factory(factory), _smtable(table), _state(initialState), _status(HEALTHY)
{
    if (!_smtable->isPrimaryState(initialState))
        ZV_THROW(DevMgrEx::SMDomainError);
    _transVect.resize(static_cast<std::size_t>(_smtable->getNbTransitions()));
    Transitions const primaries = createPrimaries();
    wrapPrimaries(primaries);
    addAuxiliaries();
    addConditionals(primaries);
    checkComplete();
}

DevSMExecutionEngImp::~DevSMExecutionEngImp()
{
    releaseAll(_transVect);
}

void DevSMExecutionEngImp::execute(std::int32_t event)
{
    if (_status != HEALTHY)
        ZV_THROW(DevMgrEx::SMExecutionError);
    DevSMTable const &table = *_smtable;
    if (!table.isPrimaryEvent(event))
        ZV_THROW(DevMgrEx::SMDomainError);
    if (table._links.isDeadEnd[static_cast<std::size_t>(_state)])
        ZV_THROW(DevMgrEx::SMExecutionError);

    // If the check of a transition or choice runs no code, the table has the state after it.
    DevSMTable::Shortcut const &shortcut = table.getShortcut(_state, event);
    if (table.isPrimaryTransition(shortcut.transition))
        takeShortcut(shortcut);
    else
        takeLongWay(event);
}

// Not inline, so that a single transition saves no registers for it.
[[gnu::noinline]] void DevSMExecutionEngImp::takeLongWay(std::int32_t event)
{
    DevSMTable const &table = *_smtable;
    while (event >= 0) {
        DevSMTable::Shortcut const &shortcut = table.getShortcut(_state, event);
        if (table.isPrimaryTransition(shortcut.transition))
            return takeShortcut(shortcut);
        if (shortcut.transition < 0)
            return takeSteps(event);
        event = takeChoice(shortcut);
    }
}

DevSMExecutionEngImp::Transitions DevSMExecutionEngImp::createPrimaries()
{
    Transitions primaries(_transVect.size());
    for (auto const &primary : _smtable->_links.primaryTransitions) {
        RCShdPtr<DevSMTransition> const transition = _factory->create(primary.name);
        if (transition.isNull())
            ZV_THROW(DevMgrEx::SMBadTransitionImp);
        primaries[_smtable->getTransition(primary)] = transition;
    }
    return primaries;
}

void DevSMExecutionEngImp::wrapPrimaries(Transitions const &primaries)
{
    auto const &links = _smtable->_links;
    auto const &names = links.primaryTransitions;
    for (auto iter = names.begin(); iter != names.end(); ++iter) {
        if (links.exception < 0 || links.noException < 0)
            ZV_THROW(DevMgrEx::SMDomainError);
        ZV_ASSERT(_smtable->getTransition(*iter) < _transVect.size());
        std::size_t const number = _smtable->getTransition(*iter);
        _transVect[number] = RCShdPtr<DevSMTransition>(new ExEngPrimaryTrans(
            iter->wrapperName, primaries[number], *this, links.exception, links.noException));
    }
}

void DevSMExecutionEngImp::addAuxiliaries()
{
    auto const &names = _smtable->_links.auxiliaryTransitions;
    for (auto iter = names.begin(); iter != names.end(); ++iter) {
        ZV_ASSERT(_smtable->getTransition(*iter) < _transVect.size());
        _transVect[_smtable->getTransition(*iter)] =
            RCShdPtr<DevSMTransition>(new ExEngAuxTrans(iter->name));
    }
}

void DevSMExecutionEngImp::addConditionals(Transitions const &primaries)
{
    auto const &links = _smtable->_links;
    for (auto const &desc : links.conditionalTransitions) {
        ExEngCondTrans::Candidates candidates;
        candidates.reserve(desc.candidates.size());
        for (std::size_t i = 0; i + 1 < desc.candidates.size(); ++i) {
            std::int32_t const number = desc.candidates[i];
            RCShdPtr<DevSMConditionalTransition> const candidate(
                number < 0 ? nullptr
                           : dynamic_cast<DevSMConditionalTransition *>(
                                 primaries[static_cast<std::size_t>(number)].get()));
            if (candidate.isNull())
                ZV_THROW(DevMgrEx::SMBadTransitionImp);
            candidates.push_back(candidate);
        }
        bool const areEventsKnown = std::all_of(desc.events.begin(), desc.events.end(),
                                                [](std::int32_t e) { return e >= 0; });
        if (!areEventsKnown || links.exception < 0 || links.noException < 0)
            ZV_THROW(DevMgrEx::SMDomainError);
        auto const &name = desc.transition;
        ZV_ASSERT(_smtable->getTransition(name) < _transVect.size());
        _transVect[_smtable->getTransition(name)] = RCShdPtr<DevSMTransition>(
            new ExEngCondTrans(name.name, *this, std::move(candidates), desc.events,
                               links.exception, links.noException));
    }
}

void DevSMExecutionEngImp::checkComplete() const
{
    for (RCShdPtr<DevSMTransition> const &transition : _transVect)
        if (transition.isNull())
            ZV_THROW(DevMgrEx::SMBadImp);
}

template <class Operation>
auto DevSMExecutionEngImp::attempt(Status onFailure, Operation operation)
{
    try {
        return operation();
    } catch (...) {
        _status = onFailure;
        throw;
    }
}

void DevSMExecutionEngImp::takeShortcut(DevSMTable::Shortcut const &shortcut)
{
    auto &transition = static_cast<ExEngPrimaryTrans &>(
        *_transVect[static_cast<std::size_t>(shortcut.transition)]);
    bool const hasSucceeded = attempt(TRANSITION_FAILED, [&] { return transition.run(); });
    _state = hasSucceeded ? shortcut.onSuccess : shortcut.onFailure;
}

/// Returns the event of the chosen transition, or -1 if the choice has failed.
std::int32_t DevSMExecutionEngImp::takeChoice(DevSMTable::Shortcut const &shortcut)
{
    auto &transition =
        static_cast<ExEngCondTrans &>(*_transVect[static_cast<std::size_t>(shortcut.transition)]);
    std::int32_t const event = attempt(TRANSITION_FAILED, [&] { return transition.run(); });
    _state = event >= 0 ? shortcut.onSuccess : shortcut.onFailure;
    return event;
}

void DevSMExecutionEngImp::takeSteps(std::int32_t event)
{
    step(event);
    while (!_pending.isEmpty()) {
        step(_pending.getFirst());
        _pending.removeFirst();
    }
}

void DevSMExecutionEngImp::step(std::int32_t event)
{
    DevSMTable const &table = *_smtable;
    if (!table.isEvent(event))
        failInconsistent();
    std::int32_t const t =
        attempt(NO_TRANSITION, [&] { return table.getTransition(_state, event); });
    if (!table.isTransition(t))
        failInconsistent();
    std::size_t const slot = static_cast<std::size_t>(t);
    if (slot >= _transVect.size() || _transVect[slot].isNull())
        failInconsistent();
    attempt(TRANSITION_FAILED, [&] { _transVect[slot]->execute(); });
    _state = attempt(NO_STATE, [&] { return table.getState(_state, t); });
    if (!table.isState(_state))
        failInconsistent();
}

void DevSMExecutionEngImp::failInconsistent()
{
    _status = INCONSISTENT;
    ZV_THROW(DevMgrEx::SMBadImp);
}

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
                               Candidates &&candidates, Vector<std::int32_t> const &events,
                               std::int32_t exception, std::int32_t noException)
    : DevSMTransition(name),
      _engine(engine),
      _candidates(std::move(candidates)),
      _events(events),
      _exception(exception),
      _noException(noException)
{}

ExEngCondTrans::~ExEngCondTrans()
{
    releaseAll(_candidates);
}

// A choice leads to a checking state, like any transition. `_noexc` leads from there to the state
// in which the selecting event is legal.
void ExEngCondTrans::execute()
{
    std::int32_t const event = run();
    if (event < 0) {
        _engine.pend(_exception);
        return;
    }
    _engine.pend(_noException);
    _engine.pend(event);
}

std::int32_t ExEngCondTrans::run()
{
    try {
        std::size_t chosen = 0;
        while (chosen < _candidates.size() && !_candidates[chosen]->condition())
            ++chosen;
        return _events[chosen];
    } catch (ExBase const &exception) {
        _engine.keepException(exception);
        return -1;
    }
}

} // namespace Zv
