#include "resmgt/deviceManager/stateMachine/devSMExecutionEng.private.h"

#include "resmgt/deviceManager/devMgrEx.h"
#include "resmgt/deviceManager/stateMachine/devSMExecutionEng.h"
#include "zvbase/failures.h"
#include "zvbase/firstFailure.private.h"

#include <algorithm>

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
    createPrimaries();
    checkAuxiliaries();
    linkConditionals();
    checkComplete();
}

DevSMExecutionEngImp::~DevSMExecutionEngImp()
{
    releaseAll(_primaries);
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

void DevSMExecutionEngImp::createPrimaries()
{
    auto const &links = _smtable->_links;
    _primaries.resize(links.kinds.size());
    for (auto const &primary : links.primaryTransitions) {
        RCShdPtr<DevSMTransition> const transition = _factory->create(primary.name);
        if (transition.isNull())
            ZV_THROW(DevMgrEx::SMBadTransitionImp);
        _primaries[_smtable->getTransition(primary)] = transition;
    }
    bool const hasEvents = links.exception >= 0 && links.noException >= 0;
    if (!hasEvents && !links.primaryTransitions.empty())
        ZV_THROW(DevMgrEx::SMDomainError);
}

void DevSMExecutionEngImp::checkAuxiliaries() const
{
    for (auto const &auxiliary : _smtable->_links.auxiliaryTransitions)
        (void)_smtable->getTransition(auxiliary);
}

void DevSMExecutionEngImp::linkConditionals()
{
    auto const &links = _smtable->_links;
    _candidates.resize(links.kinds.size());
    for (auto const &desc : links.conditionalTransitions) {
        for (std::size_t i = 0; i + 1 < desc.candidates.size(); ++i) {
            if (desc.candidates[i] < 0)
                ZV_THROW(DevMgrEx::SMBadTransitionImp);
            auto const number = static_cast<std::size_t>(desc.candidates[i]);
            if (!_candidates[number])
                _candidates[number] =
                    dynamic_cast<DevSMConditionalTransition *>(_primaries[number].get());
            if (!_candidates[number])
                ZV_THROW(DevMgrEx::SMBadTransitionImp);
        }
        bool const areEventsKnown = std::all_of(desc.events.begin(), desc.events.end(),
                                                [](std::int32_t e) { return e >= 0; });
        if (!areEventsKnown || links.exception < 0 || links.noException < 0)
            ZV_THROW(DevMgrEx::SMDomainError);
        (void)_smtable->getTransition(desc.transition);
    }
}

void DevSMExecutionEngImp::checkComplete() const
{
    auto const &kinds = _smtable->_links.kinds;
    if (std::find(kinds.begin(), kinds.end(), DevSMTable::UNKNOWN) != kinds.end())
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
    bool const hasSucceeded =
        attempt(TRANSITION_FAILED, [&] { return runPrimary(shortcut.transition); });
    _state = hasSucceeded ? shortcut.onSuccess : shortcut.onFailure;
}

/// Returns the event of the chosen transition, or -1 if the choice has failed.
std::int32_t DevSMExecutionEngImp::takeChoice(DevSMTable::Shortcut const &shortcut)
{
    auto const &links = _smtable->_links;
    std::int32_t const kind = links.kinds[static_cast<std::size_t>(shortcut.transition)];
    auto const &conditional = links.conditionalTransitions[static_cast<std::size_t>(kind)];
    std::int32_t const event = attempt(TRANSITION_FAILED, [&] { return choose(conditional); });
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
    attempt(TRANSITION_FAILED, [&] { run(t); });
    _state = attempt(NO_STATE, [&] { return table.getState(_state, t); });
    if (!table.isState(_state))
        failInconsistent();
}

void DevSMExecutionEngImp::failInconsistent()
{
    _status = INCONSISTENT;
    ZV_THROW(DevMgrEx::SMBadImp);
}

/// Runs a transition, and queues the events that follow it.
void DevSMExecutionEngImp::run(std::int32_t transition)
{
    auto const &links = _smtable->_links;
    std::int32_t const kind = links.kinds[static_cast<std::size_t>(transition)];
    if (kind == DevSMTable::PRIMARY) {
        _pending.add(runPrimary(transition) ? links.noException : links.exception);
    } else if (kind >= 0) {
        std::int32_t const event =
            choose(links.conditionalTransitions[static_cast<std::size_t>(kind)]);
        // A choice leads to a checking state, like any transition. `_noexc` leads from there to the
        // state in which the selecting event is legal.
        _pending.add(event >= 0 ? links.noException : links.exception);
        if (event >= 0)
            _pending.add(event);
    }
}

/// Runs one of the factory's transitions. If that throws an `ExBase`, keeps the exception and
/// returns false.
bool DevSMExecutionEngImp::runPrimary(std::int32_t transition)
{
    try {
        _primaries[static_cast<std::size_t>(transition)]->execute();
    } catch (ExBase const &exception) {
        keepException(exception);
        return false;
    }
    return true;
}

/// Returns the event of the transition whose condition holds first. If a condition throws an
/// `ExBase`, keeps the exception and returns -1.
std::int32_t DevSMExecutionEngImp::choose(DevSMTable::ConditionalLinks const &conditional)
{
    try {
        // The last one has no condition.
        std::size_t const last = conditional.candidates.size() - 1;
        std::size_t chosen = 0;
        while (chosen < last &&
               !_candidates[static_cast<std::size_t>(conditional.candidates[chosen])]->condition())
            ++chosen;
        return conditional.events[chosen];
    } catch (ExBase const &exception) {
        keepException(exception);
        return -1;
    }
}

/// Must be called in the `catch` clause of the exception.
void DevSMExecutionEngImp::keepException(ExBase const &exception)
{
    _thrown = std::current_exception();
    _exception.reset(exception.clone());
}

} // namespace Zv
