// Table of a state machine: its states, events and transitions as numbers (extenders).
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "zvbase/sequenceContainers.h"

#include <cstddef>
#include <cstdint>
#include <iosfwd>

namespace Zv {

/// The table of a finite state machine. A `DevSMTableBuilder` makes it, and any number of
/// `DevSMExecutionEng` run it. It does not contain the code of the transitions.
///
/// In a state, an event selects a transition. The transition is code that runs between two states.
/// State and transition together select the next state, so one transition can lead to different
/// states.
///
/// States, events and transitions are numbers: indices into a list of names. Each list begins with
/// the primary ones, which the author of the machine has declared, in that order, so the author can
/// use an enumeration of the same order. The builder's expansion has added the others.
///
/// **Threads**: thread-safe. A table never changes.
class ZVRESMGT_EXPORT DevSMTable : public RCBase<LkCounter<long>>
{
public:
    /// A transition that chooses among at least two others. The i-th event selects the i-th
    /// transition.
    struct ConditionalTransitionDesc
    {
        LiString name;                ///< of the transition
        Vector<LiString> transitions; ///< the transitions to choose from
        Vector<LiString> events;      ///< the events that select them
    };

    /// One row for each state. -1 means that there is no entry.
    using Matrix = Vector<Vector<std::int32_t>>;

    /// Copies its arguments. Used by the builder. The primary transitions are those of
    /// `transitions` that neither a description nor `auxiliaryTransitions` contains.
    ///
    /// Fails an assertion if a full list does not begin with its primary list, and if a description
    /// has fewer than two transitions or another number of events.
    DevSMTable(Vector<LiString> const &states, Vector<LiString> const &events,
               Vector<LiString> const &transitions, Matrix const &stateEventTable,
               Matrix const &stateTransitionTable,
               Vector<ConditionalTransitionDesc> const &conditionalDescs,
               Vector<LiString> const &auxiliaryTransitions, Vector<LiString> const &primaryStates,
               Vector<LiString> const &primaryEvents);
    DevSMTable(DevSMTable const &) = delete;
    DevSMTable &operator=(DevSMTable const &) = delete;

    std::int32_t getNbStates() const { return _nbStates; }
    std::int32_t getNbEvents() const { return _nbEvents; }
    std::int32_t getNbTransitions() const { return _nbTransitions; }

    /// Return true if the number is in the list. A negative number is in no list.
    bool isState(std::int32_t i) const { return isIndex(i, _nbStates); }
    bool isEvent(std::int32_t i) const { return isIndex(i, _nbEvents); }
    bool isTransition(std::int32_t i) const { return isIndex(i, _nbTransitions); }
    bool isPrimaryState(std::int32_t i) const { return isIndex(i, _nbPrimaryStates); }
    bool isPrimaryEvent(std::int32_t i) const { return isIndex(i, _nbPrimaryEvents); }
    bool isPrimaryTransition(std::int32_t i) const { return isIndex(i, _nbPrimaryTransitions); }

    /// Returns the transition that the event selects, or -1 if there is none. Throws
    /// `DevMgrEx::SMDomainError` if there is no such state or event.
    std::int32_t getTransition(std::int32_t state, std::int32_t event) const
    {
        if (!isState(state) || !isEvent(event)) [[unlikely]]
            throwDomainError();
        return _stateEventTable[index(state, _nbEvents, event)];
    }
    /// Returns the state that the transition leads to, or -1 if there is none. Throws
    /// `DevMgrEx::SMDomainError` if there is no such state or transition.
    std::int32_t getState(std::int32_t state, std::int32_t transition) const
    {
        if (!isState(state) || !isTransition(transition)) [[unlikely]]
            throwDomainError();
        return _stateTransitionTable[index(state, _nbTransitions, transition)];
    }

    /// Return the name of a number. Throw `DevMgrEx::SMDomainError` if the number is not in the
    /// list.
    LiString getStateName(std::int32_t i) const;
    LiString getEventName(std::int32_t i) const;
    LiString getTransitionName(std::int32_t i) const;

    /// Return the first number of that name. Throw `DevMgrEx::SMDomainError` if there is none.
    std::int32_t getState(LiString const &name) const;
    std::int32_t getEvent(LiString const &name) const;
    std::int32_t getTransition(LiString const &name) const;

    Vector<LiString> getPrimaryTransitions() const;
    Vector<LiString> getAuxiliaryTransitions() const;
    Vector<ConditionalTransitionDesc> getConditionalTransitions() const;

    /// Writes the lists and then the matrices as readable text. An empty list is an empty line.
    void dump(std::ostream &stream) const;
    /// Writes the machine as a directed graph in DOT, for Graphviz:
    ///
    ///     dot -Tsvg machine.dot >machine.svg
    ///
    /// The nodes are the primary states. An arrow has a line for each event that leads along it,
    /// with the transition that it runs. Choices are followed to the states that they lead to.
    /// Illegal events and failed transitions are left out. States without an arrow to another state
    /// have a double border.
    void dumpDot(std::ostream &stream) const;

protected:
    ~DevSMTable() override;

private:
    friend class DevSMExecutionEngImp;

    /// A transition's name and the first number of that name, or -1 if there is none.
    struct NamedTransition
    {
        LiString name;
        std::int32_t number;
    };
    struct PrimaryTransition : NamedTransition
    {
        LiString wrapperName;
    };
    struct ConditionalLinks
    {
        NamedTransition transition;
        Vector<std::int32_t> candidates; // numbers of primary transitions
        Vector<std::int32_t> events;
    };
    /// What a state and event lead to if they run a primary or conditional transition whose check
    /// runs no code.
    struct Shortcut
    {
        std::int32_t transition = -1; // -1: there is no shortcut
        std::int32_t onSuccess = -1;
        std::int32_t onFailure = -1;
    };
    /// The numbers that all engines need, looked up by name once. -1 means that there is no such
    /// name.
    struct Links
    {
        std::int32_t exception = -1;
        std::int32_t noException = -1;
        Vector<PrimaryTransition> primaryTransitions;
        Vector<NamedTransition> auxiliaryTransitions;
        Vector<ConditionalLinks> conditionalTransitions;
        Vector<Shortcut> shortcuts;      // in the order of the state-event matrix
        Vector<unsigned char> isDeadEnd; // for each state: its name is "_ill" or "_exc"
    };

    static bool isIndex(std::int32_t i, std::int32_t count)
    {
        return static_cast<std::uint32_t>(i) < static_cast<std::uint32_t>(count);
    }
    static std::size_t index(std::int32_t row, std::int32_t columns, std::int32_t column)
    {
        return static_cast<std::size_t>(row) * static_cast<std::size_t>(columns) +
               static_cast<std::size_t>(column);
    }
    [[noreturn]] static void throwDomainError();

    std::size_t getTransition(NamedTransition const &transition) const;
    NamedTransition nameTransition(LiString const &name) const;
    ConditionalLinks link(ConditionalTransitionDesc const &desc) const;
    Shortcut const &getShortcut(std::int32_t state, std::int32_t event) const
    {
        return _links.shortcuts[index(state, _nbEvents, event)];
    }
    bool isConditional(LiString const &transition) const;
    void linkNames();
    void linkShortcuts();
    Shortcut findShortcut(std::int32_t state, std::int32_t event) const;
    std::int32_t passCheck(std::int32_t checkState, std::int32_t event) const;

    void addArrows(Vector<LiString> &arrows, std::int32_t state, std::int32_t event,
                   LiString const &text, std::int32_t nbSteps) const;

    Vector<LiString> _s;
    Vector<LiString> _e;
    Vector<LiString> _t;
    Vector<std::int32_t> _stateEventTable;      // row by row
    Vector<std::int32_t> _stateTransitionTable; // row by row
    Vector<ConditionalTransitionDesc> _conditionalDescs;
    Vector<LiString> _auxiliaryVector;
    Vector<LiString> _primaryStateVector;
    Vector<LiString> _primaryEventVector;
    Vector<LiString> _primaryTransitionVector;
    Links _links;
    // The sizes of the lists, as the type of the numbers.
    std::int32_t _nbStates;
    std::int32_t _nbEvents;
    std::int32_t _nbTransitions;
    std::int32_t _nbPrimaryStates;
    std::int32_t _nbPrimaryEvents;
    std::int32_t _nbPrimaryTransitions;
};

/// Writes what `DevSMTable::dump` writes.
ZVRESMGT_EXPORT std::ostream &operator<<(std::ostream &stream, DevSMTable const &table);
/// Writes `{ name, { transition, … }, { event, … } }`.
ZVRESMGT_EXPORT std::ostream &operator<<(std::ostream &stream,
                                         DevSMTable::ConditionalTransitionDesc const &desc);

} // namespace Zv
