#include "resmgt/deviceManager/stateMachine/devSMTableBuilder.h"

#include "resmgt/deviceManager/devMgrEx.h"
#include "resmgt/deviceManager/stateMachine/devSMNames.private.h"
#include "zvbase/containers.h"
#include "zvbase/failures.h"

#include <ostream>
#include <utility>

namespace Zv {

namespace {

using Detail::isMember;
using Detail::writeNames;

void addUnique(LiString const &name, Vector<LiString> &names)
{
    if (isMember(name, names))
        ZV_THROW(DevMgrEx::NameNotUnique);
    names.push_back(name);
}

/// The numbers of names, by position. The number of an unknown name is 0. So the next state of a
/// transition is state 0 if the declaration does not set it.
class Numbers
{
public:
    explicit Numbers(Vector<LiString> const &names)
    {
        for (LiString const &name : names)
            _numbers.emplace(name, static_cast<std::int32_t>(_numbers.size()));
    }

    std::int32_t operator[](LiString const &name) { return _numbers[name]; }

private:
    HashMap<LiString, std::int32_t> _numbers;
};

} // namespace

// By state and transition.
struct DevSMTableBuilder::FiringEvents : HashMap<LiString, LiString>
{};

struct DevSMTableBuilder::Tables
{
    Vector<LiString> const &getTransitions(LiString const &key) const
    {
        auto const setTblIter = _setTbl.find(key);
        ZV_ASSERT(setTblIter != _setTbl.end());
        return setTblIter->second;
    }

    HashMap<LiString, Vector<LiString>> _setTbl; // transitions by state and event
    HashMap<LiString, LiString> _stsTbl;         // next states by state and transition
};

DevSMTableBuilder::DevSMTableBuilder()
    : _tables(new Tables),
      _illegal("_ill"),
      _exception("_exc"),
      _noException("_noexc"),
      _exceptionCheck("_exchk"),
      _condState("_cs"),
      _condEvent("_ce"),
      _condTransition("_ct"),
      _separator(":"),
      _listSeparator(",")
{}

DevSMTableBuilder::~DevSMTableBuilder() noexcept(false) = default;

void DevSMTableBuilder::addState(LiString const &name)
{
    addUnique(name, _states);
}

void DevSMTableBuilder::addEvent(LiString const &name)
{
    addUnique(name, _events);
}

void DevSMTableBuilder::addTransition(LiString const &name)
{
    addUnique(name, _transitions);
}

void DevSMTableBuilder::addTransitionForEvent(LiString const &state, LiString const &event,
                                              LiString const &transition)
{
    _tables->_setTbl[key(state, event)].push_back(transition);
}

void DevSMTableBuilder::setNextState(LiString const &state, LiString const &transition,
                                     LiString const &next)
{
    _tables->_stsTbl[key(state, transition)] = next;
}

bool DevSMTableBuilder::isAssociatedStateEvent(LiString const &state, LiString const &event) const
{
    return _tables->_setTbl.contains(key(state, event));
}

bool DevSMTableBuilder::isAssociatedStateTransition(LiString const &state,
                                                    LiString const &transition) const
{
    return _tables->_stsTbl.contains(key(state, transition));
}

Vector<LiString> DevSMTableBuilder::getTransitions(LiString const &state,
                                                   LiString const &event) const
{
    return _tables->getTransitions(key(state, event));
}

LiString DevSMTableBuilder::getState(LiString const &state, LiString const &transition) const
{
    ZV_ASSERT(isAssociatedStateTransition(state, transition));
    return findNextState(state, transition);
}

LiString DevSMTableBuilder::replaceNextState(LiString const &state, LiString const &transition,
                                             LiString const &next)
{
    ZV_ASSERT(isAssociatedStateTransition(state, transition));
    return std::exchange(_tables->_stsTbl[key(state, transition)], next);
}

void DevSMTableBuilder::expand()
{
    ObjPtr<DevSMTableBuilder> sm(new DevSMTableBuilder);
    for (LiString const &name : _states)
        sm->addState(name);
    for (LiString const &name : _events)
        sm->addEvent(name);
    for (LiString const &name : _transitions)
        sm->addTransition(name);
    expandConditionals(sm.get());
    sm->expandExceptionChecks();
    sm->addExceptionHandling();
    sm->expandIllegals(_states, _events);
    _expanded = sm;
    _isExpanded = true;
}

RCShdPtr<DevSMTable> DevSMTableBuilder::createTable() const
{
    ZV_ASSERT(_isExpanded);
    DevSMTableBuilder const &sm = *_expanded;
    Numbers states(sm._states);
    Numbers transitions(sm._transitions);
    DevSMTable::Matrix stateEventTable;
    DevSMTable::Matrix stateTransitionTable;
    for (LiString const &s : sm._states) {
        Vector<std::int32_t> &fired = stateEventTable.emplace_back();
        for (LiString const &e : sm._events) {
            auto const entry = sm._tables->_setTbl.find(sm.key(s, e));
            fired.push_back(
                entry == sm._tables->_setTbl.end() ? -1 : transitions[entry->second.front()]);
        }
        Vector<std::int32_t> &next = stateTransitionTable.emplace_back();
        for (LiString const &t : sm._transitions) {
            auto const entry = sm._tables->_stsTbl.find(sm.key(s, t));
            next.push_back(entry == sm._tables->_stsTbl.end() ? -1 : states[entry->second]);
        }
    }
    return RCShdPtr<DevSMTable>(new DevSMTable(
        sm._states, sm._events, sm._transitions, stateEventTable, stateTransitionTable,
        sm._conditionalDescs, {_exception, _noException, _illegal}, _states, _events));
}

void DevSMTableBuilder::dump(std::ostream &stream) const
{
    dumpDeclaration(stream);
    if (_isExpanded) {
        stream << "\n---- Expanded State Machine ----\n\n";
        _expanded->dump(stream);
    }
}

LiString DevSMTableBuilder::key(LiString const &first, LiString const &second) const
{
    return first + _separator + second;
}

LiString DevSMTableBuilder::exchkName(LiString const &state, LiString const &event,
                                      LiString const &transition) const
{
    return _exceptionCheck + "(" + state + _separator + event + _separator + transition + ")";
}

bool DevSMTableBuilder::isTransition(LiString const &name) const
{
    return isMember(name, _transitions);
}

LiString DevSMTableBuilder::findNextState(LiString const &state, LiString const &transition) const
{
    auto const entry = _tables->_stsTbl.find(key(state, transition));
    return entry == _tables->_stsTbl.end() ? LiString() : entry->second;
}

void DevSMTableBuilder::expandConditionals(DevSMTableBuilder *sm) const
{
    for (LiString const &s : _states)
        for (LiString const &e : _events) {
            auto const entry = _tables->_setTbl.find(key(s, e));
            if (entry == _tables->_setTbl.end())
                continue;
            if (entry->second.size() >= 2)
                expandChoice(sm, s, e, entry->second);
            else
                expandSingle(sm, s, e, entry->second);
        }
}

void DevSMTableBuilder::expandChoice(DevSMTableBuilder *sm, LiString const &s, LiString const &e,
                                     Vector<LiString> const &tv) const
{
    LiString const desc = "(" + s + _separator + e + ")";
    LiString const condStateName = _condState + desc;
    LiString const condTransitionName = _condTransition + desc;
    if (!isMember(condStateName, sm->_states))
        sm->addState(condStateName);
    if (!isMember(condTransitionName, sm->_transitions))
        sm->addTransition(condTransitionName);
    sm->addTransitionForEvent(s, e, condTransitionName);
    sm->setNextState(s, condTransitionName, condStateName);

    Vector<LiString> condEvents;
    for (LiString const &t : tv) {
        LiString const condEventName = _condEvent + "(" + t + ")";
        if (!isMember(condEventName, sm->_events))
            sm->addEvent(condEventName);
        condEvents.push_back(condEventName);
        ZV_ASSERT(!sm->isAssociatedStateEvent(condStateName,condEventName));
        sm->addTransitionForEvent(condStateName, condEventName, t);
        ZV_ASSERT(!sm->isAssociatedStateTransition(condStateName,t));
        sm->setNextState(condStateName, t, findNextState(s, t));
    }
    sm->_conditionalDescs.push_back({condTransitionName, tv, condEvents});
}

void DevSMTableBuilder::expandSingle(DevSMTableBuilder *sm, LiString const &s, LiString const &e,
                                     Vector<LiString> const &tv) const
{
    ZV_ASSERT(1 == tv.size());
    ZV_ASSERT(!sm->isAssociatedStateEvent(s, e));
    sm->addTransitionForEvent(s, e, tv[0]);
    LiString const nextState = findNextState(s, tv[0]);
    if (sm->isAssociatedStateTransition(s, tv[0]))
        ZV_ASSERT(nextState == sm->getState(s, tv[0]));
    sm->setNextState(s, tv[0], nextState);
}

void DevSMTableBuilder::expandExceptionChecks()
{
    wireCheckStates(addCheckStates());
}

auto DevSMTableBuilder::addCheckStates() -> FiringEvents
{
    FiringEvents firing;
    Vector<LiString> const states = _states;
    for (LiString const &s : states)
        for (LiString const &e : _events) {
            if (!isAssociatedStateEvent(s, e))
                continue;
            Vector<LiString> const tv = getTransitions(s, e);
            ZV_ASSERT(1 == tv.size());
            LiString const exchkStateName = exchkName(s, e, tv[0]);
            addState(exchkStateName);
            addTransitionForEvent(exchkStateName, _exception, _exception);
            addTransitionForEvent(exchkStateName, _noException, _noException);
            setNextState(exchkStateName, _exception, _exception);
            firing[key(s, tv[0])] = e;
        }
    return firing;
}

// The transitions of the checking states are not in the list yet, so they are not checked
// themselves.
void DevSMTableBuilder::wireCheckStates(FiringEvents const &firing)
{
    for (LiString const &s : _states)
        for (LiString const &t : _transitions) {
            if (!isAssociatedStateTransition(s, t))
                continue;
            auto const event = firing.find(key(s, t));
            LiString const e = event == firing.end() ? LiString() : event->second;
            LiString const exchkStateName = exchkName(s, e, t);
            LiString const next = replaceNextState(s, t, exchkStateName);
            ZV_ASSERT(!isAssociatedStateTransition(exchkStateName, _noException));
            setNextState(exchkStateName, _noException, next);
        }
}

void DevSMTableBuilder::addExceptionHandling()
{
    addState(_exception);
    addState(_illegal);
    addTransition(_noException);
    addTransition(_exception);
    addTransition(_illegal);
    addEvent(_noException);
    addEvent(_exception);
}

void DevSMTableBuilder::expandIllegals(Vector<LiString> const &states,
                                       Vector<LiString> const &events)
{
    ZV_ASSERT(isTransition(_illegal));
    for (LiString const &s : states)
        for (LiString const &e : events)
            if (!isAssociatedStateEvent(s, e)) {
                addTransitionForEvent(s, e, _illegal);
                setNextState(s, _illegal, _illegal);
            }
}

void DevSMTableBuilder::dumpDeclaration(std::ostream &stream) const
{
    stream << "States: ";
    writeNames(stream, _states, ", ");
    stream << "\nEvents: ";
    writeNames(stream, _events, ", ");
    stream << "\nTransitions: ";
    writeNames(stream, _transitions, ", ");
    stream << "\n\n";
    dumpTransitions(stream);
    stream << '\n';
    dumpNextStates(stream);
    if (_conditionalDescs.empty())
        return;
    stream << "\nCondition descriptions:\n";
    for (ConditionalTransitionDesc const &desc : _conditionalDescs)
        stream << desc << '\n';
}

void DevSMTableBuilder::dumpTransitions(std::ostream &stream) const
{
    stream << "State:Event=>Transition Table\n";
    for (LiString const &e : _events)
        stream << '\t' << e;
    stream << '\n';
    for (LiString const &s : _states) {
        stream << s;
        for (LiString const &e : _events) {
            stream << '\t';
            if (isAssociatedStateEvent(s, e))
                writeNames(stream, getTransitions(s, e), _listSeparator.getChars());
            else
                stream << '.';
        }
        stream << '\n';
    }
}

void DevSMTableBuilder::dumpNextStates(std::ostream &stream) const
{
    stream << "State:Transition=>State Table\n";
    for (LiString const &t : _transitions)
        stream << '\t' << t;
    stream << '\n';
    for (LiString const &s : _states) {
        stream << s;
        for (LiString const &t : _transitions) {
            stream << '\t';
            if (isAssociatedStateTransition(s, t))
                stream << getState(s, t);
            else
                stream << '.';
        }
        stream << '\n';
    }
}

} // namespace Zv
