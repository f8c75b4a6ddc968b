#include "resmgt/deviceManager/stateMachine/devSMTable.h"

#include "resmgt/deviceManager/devMgrEx.h"
#include "resmgt/deviceManager/stateMachine/devSMNames.private.h"
#include "zvbase/dotText.private.h"
#include "zvbase/failures.h"

#include <algorithm>
#include <ostream>

namespace Zv {

namespace {

using Detail::isMember;
using Detail::writeDotString;
using Detail::writeNames;

std::int32_t count(Vector<LiString> const &names)
{
    return static_cast<std::int32_t>(names.size());
}

bool verifyPrimary(Vector<LiString> const &primary, Vector<LiString> const &all)
{
    return primary.size() <= all.size() && std::equal(primary.begin(), primary.end(), all.begin());
}

std::int32_t find(LiString const &name, Vector<LiString> const &names)
{
    auto const found = std::find(names.begin(), names.end(), name);
    return found == names.end() ? -1 : static_cast<std::int32_t>(found - names.begin());
}

Vector<std::int32_t> flatten(DevSMTable::Matrix const &rows, std::size_t nbRows,
                             std::size_t columns)
{
    Vector<std::int32_t> flat(nbRows * columns, -1);
    for (std::size_t row = 0; row < std::min(nbRows, rows.size()); ++row)
        std::copy_n(rows[row].begin(), std::min(columns, rows[row].size()),
                    flat.begin() + static_cast<std::ptrdiff_t>(row * columns));
    return flat;
}

void dumpNumbered(std::ostream &stream, char const *title, Vector<LiString> const &names)
{
    stream << names.size() << title << '\n';
    for (std::size_t i = 0; i < names.size(); ++i)
        stream << i << '\t' << names[i] << '\n';
    stream << '\n';
}

void dumpJoined(std::ostream &stream, char const *title, Vector<LiString> const &names)
{
    stream << names.size() << title << '\n';
    writeNames(stream, names, ", ");
    stream << "\n\n";
}

void dumpRows(std::ostream &stream, char const *title, Vector<std::int32_t> const &flat,
              std::size_t nbRows, std::size_t columns)
{
    stream << title << '\n';
    for (std::size_t row = 0; row < nbRows; ++row) {
        for (std::size_t column = 0; column < columns; ++column)
            stream << flat[row * columns + column] << '\t';
        stream << '\n';
    }
}

} // namespace

DevSMTable::DevSMTable(Vector<LiString> const &states, Vector<LiString> const &events,
                       Vector<LiString> const &transitions, Matrix const &stateEventTable,
                       Matrix const &stateTransitionTable,
                       Vector<ConditionalTransitionDesc> const &conditionalDescs,
                       Vector<LiString> const &auxiliaryTransitions,
                       Vector<LiString> const &primaryStates, Vector<LiString> const &primaryEvents)
    : _s(states),
      _e(events),
      _t(transitions),
      _stateEventTable(flatten(stateEventTable, states.size(), events.size())),
      _stateTransitionTable(flatten(stateTransitionTable, states.size(), transitions.size())),
      _conditionalDescs(conditionalDescs),
      _auxiliaryVector(auxiliaryTransitions),
      _primaryStateVector(primaryStates),
      _primaryEventVector(primaryEvents),
      _nbStates(count(states)),
      _nbEvents(count(events)),
      _nbTransitions(count(transitions)),
      _nbPrimaryStates(count(primaryStates)),
      _nbPrimaryEvents(count(primaryEvents)),
      _nbPrimaryTransitions(0)
{
    for (LiString const &name : _t)
        if (!isConditional(name) && !isMember(name, _auxiliaryVector))
            _primaryTransitionVector.push_back(name);

    _nbPrimaryTransitions = count(_primaryTransitionVector);

    ZV_ASSERT(verifyPrimary( _primaryStateVector, _s ));
    ZV_ASSERT(verifyPrimary( _primaryEventVector, _e ));
    ZV_ASSERT(verifyPrimary( _primaryTransitionVector, _t ));
    linkNames();
    linkShortcuts();
}

DevSMTable::~DevSMTable() = default;

LiString DevSMTable::getStateName(std::int32_t i) const
{
    if (!isState(i))
        throwDomainError();
    return _s[static_cast<std::size_t>(i)];
}

LiString DevSMTable::getEventName(std::int32_t i) const
{
    if (!isEvent(i))
        throwDomainError();
    return _e[static_cast<std::size_t>(i)];
}

LiString DevSMTable::getTransitionName(std::int32_t i) const
{
    if (!isTransition(i))
        throwDomainError();
    return _t[static_cast<std::size_t>(i)];
}

std::int32_t DevSMTable::getState(LiString const &name) const
{
    std::int32_t const number = find(name, _s);
    if (number < 0)
        throwDomainError();
    return number;
}

std::int32_t DevSMTable::getEvent(LiString const &name) const
{
    std::int32_t const number = find(name, _e);
    if (number < 0)
        throwDomainError();
    return number;
}

std::int32_t DevSMTable::getTransition(LiString const &name) const
{
    std::int32_t const number = find(name, _t);
    if (number < 0)
        throwDomainError();
    return number;
}

Vector<LiString> DevSMTable::getPrimaryTransitions() const
{
    return _primaryTransitionVector;
}

Vector<LiString> DevSMTable::getAuxiliaryTransitions() const
{
    return _auxiliaryVector;
}

auto DevSMTable::getConditionalTransitions() const -> Vector<ConditionalTransitionDesc>
{
    return _conditionalDescs;
}

void DevSMTable::dump(std::ostream &stream) const
{
    dumpNumbered(stream, " states:", _s);
    dumpNumbered(stream, " events:", _e);
    dumpNumbered(stream, " transitions:", _t);
    dumpJoined(stream, " primary states:", _primaryStateVector);
    dumpJoined(stream, " primary events:", _primaryEventVector);
    dumpJoined(stream, " primary transitions:", _primaryTransitionVector);
    dumpJoined(stream, " auxilliary transitions:", _auxiliaryVector);
    stream << _conditionalDescs.size() << " conditional transition descriptions:\n";
    for (ConditionalTransitionDesc const &desc : _conditionalDescs)
        stream << desc << '\n';
    stream << '\n';
    dumpRows(stream, "state:event=>transition table:", _stateEventTable, _s.size(), _e.size());
    stream << '\n';
    dumpRows(stream, "state:transition=>state table:", _stateTransitionTable, _s.size(), _t.size());
}

void DevSMTable::dumpDot(std::ostream &stream) const
{
    stream << "digraph {\n  rankdir=LR;\n  node [shape=box, style=rounded];\n";
    for (std::int32_t state = 0; state < _nbPrimaryStates; ++state) {
        Vector<LiString> arrows(_primaryStateVector.size()); // the text for each next state
        for (std::int32_t event = 0; event < _nbPrimaryEvents; ++event)
            addArrows(arrows, state, event, getEventName(event), 0);
        bool isLeft = false;
        for (std::int32_t next = 0; next < _nbPrimaryStates; ++next) {
            LiString const &text = arrows[static_cast<std::size_t>(next)];
            if (text.isEmpty())
                continue;
            isLeft = isLeft || next != state;
            stream << "  s" << state << " -> s" << next << " [label=";
            writeDotString(stream, text);
            stream << "];\n";
        }
        stream << "  s" << state << " [label=";
        writeDotString(stream, getStateName(state));
        stream << (isLeft ? "];\n" : ", peripheries=2];\n");
    }
    stream << "}\n";
}

// Adds the arrows of an event, and follows the states that the expansion has added. The number of
// steps is limited because a table that was made by hand may have a circle of such states.
void DevSMTable::addArrows(Vector<LiString> &arrows, std::int32_t state, std::int32_t event,
                           LiString const &text, std::int32_t nbSteps) const
{
    std::int32_t const transition = getTransition(state, event);
    if (!isTransition(transition) || nbSteps == _nbStates)
        return;
    std::int32_t const next = getState(state, transition);
    LiString const longer =
        isPrimaryTransition(transition) ? text + " / " + getTransitionName(transition) : text;
    if (isPrimaryState(next)) {
        LiString &arrow = arrows[static_cast<std::size_t>(next)];
        arrow = arrow.isEmpty() ? longer : arrow + "\n" + longer;
    } else if (isState(next)) {
        for (std::int32_t inner = 0; inner < _nbEvents; ++inner)
            addArrows(arrows, next, inner, longer, nbSteps + 1);
    }
}

void DevSMTable::throwDomainError()
{
    ZV_THROW(DevMgrEx::SMDomainError);
}

bool DevSMTable::isConditional(LiString const &transition) const
{
    return std::any_of(_conditionalDescs.begin(), _conditionalDescs.end(),
                       [&](auto const &desc) { return desc.name == transition; });
}

std::size_t DevSMTable::getTransition(NamedTransition const &transition) const
{
    if (transition.number < 0)
        throwDomainError();
    return static_cast<std::size_t>(transition.number);
}

DevSMTable::NamedTransition DevSMTable::nameTransition(LiString const &name) const
{
    return {name, find(name, _t)};
}

DevSMTable::ConditionalLinks DevSMTable::link(ConditionalTransitionDesc const &desc) const
{
    ZV_ASSERT(desc.transitions.size() >= 2 && desc.events.size() == desc.transitions.size());
    ConditionalLinks links{nameTransition(desc.name), {}, {}};
    for (LiString const &name : desc.transitions)
        links.candidates.push_back(find(name, _primaryTransitionVector));
    for (LiString const &name : desc.events)
        links.events.push_back(find(name, _e));
    return links;
}

// A missing name is not a failure here. The engine fails if it needs that name.
void DevSMTable::linkNames()
{
    _links.exception = find("_exc", _e);
    _links.noException = find("_noexc", _e);
    for (LiString const &name : _primaryTransitionVector)
        _links.primaryTransitions.push_back({nameTransition(name), "ExEngPrimary( " + name + " )"});
    for (LiString const &name : _auxiliaryVector)
        _links.auxiliaryTransitions.push_back(nameTransition(name));
    for (ConditionalTransitionDesc const &desc : _conditionalDescs)
        _links.conditionalTransitions.push_back(link(desc));
    for (LiString const &name : _s)
        _links.isDeadEnd.push_back(name == "_ill" || name == "_exc");
}

void DevSMTable::linkShortcuts()
{
    _links.shortcuts.resize(_stateEventTable.size());
    for (std::int32_t state = 0; state < _nbStates; ++state)
        for (std::int32_t event = 0; event < _nbEvents; ++event)
            _links.shortcuts[index(state, _nbEvents, event)] = findShortcut(state, event);
}

DevSMTable::Shortcut DevSMTable::findShortcut(std::int32_t state, std::int32_t event) const
{
    std::int32_t const transition = getTransition(state, event);
    if (!isPrimaryTransition(transition) &&
        !(isTransition(transition) && isConditional(getTransitionName(transition))))
        return {};
    std::int32_t const checkState = getState(state, transition);
    std::int32_t const onSuccess = passCheck(checkState, _links.noException);
    std::int32_t const onFailure = passCheck(checkState, _links.exception);
    if (!isState(onSuccess) || !isState(onFailure))
        return {};
    return {transition, onSuccess, onFailure};
}

// Returns the state after the check. Returns -1 if the check runs anything but an auxiliary
// transition, because only these do nothing.
std::int32_t DevSMTable::passCheck(std::int32_t checkState, std::int32_t event) const
{
    if (!isState(checkState) || !isEvent(event))
        return -1;
    std::int32_t const transition = getTransition(checkState, event);
    if (!isTransition(transition))
        return -1;
    LiString const name = getTransitionName(transition);
    if (!isMember(name, _auxiliaryVector) || isConditional(name))
        return -1;
    return getState(checkState, transition);
}

std::ostream &operator<<(std::ostream &stream, DevSMTable const &table)
{
    table.dump(stream);
    return stream;
}

std::ostream &operator<<(std::ostream &stream, DevSMTable::ConditionalTransitionDesc const &desc)
{
    stream << "{ " << desc.name << ", { ";
    writeNames(stream, desc.transitions, ", ");
    stream << " }, { ";
    writeNames(stream, desc.events, ", ");
    return stream << " } }";
}

} // namespace Zv
