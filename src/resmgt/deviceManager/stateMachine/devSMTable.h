// The finished description of a state machine.
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "zvbase/containers.h"

#include <cstddef>
#include <cstdint>
#include <iosfwd>

namespace Zv {

/// One finite state machine, as small numbers: what a `DevSMTableBuilder` makes, what any number of
/// `DevSMExecutionEng` run. It knows nothing of what transitions do.
///
/// An event does not lead to a state: it selects a transition, and the transition, which is code
/// that runs in between, selects the next state. So one transition can serve several states and
/// lead elsewhere from each.
///
/// A number is an index into the list of states, events or transitions. The first ones of each
/// list, the primary ones, are what the author of the machine declared, in that order, so that the
/// author's own enumeration can be used here; behind them stands what the builder's expansion
/// added.
///
/// A table never changes: all threads may read it at once, and nothing blocks.
class ZVRESMGT_EXPORT DevSMTable : public RCBase<LkCounter<long>>
{
public:
    /// A transition that chooses: the i-th event selects the i-th transition. There are at least
    /// two.
    struct ConditionalTransitionDesc
    {
        LiString name;
        Vector<LiString> transitions;
        Vector<LiString> events;
    };

    /// One row for each state; -1 stands where there is no entry.
    using Matrix = Vector<Vector<std::int32_t>>;

    /// Copies everything; for the builder. The primary transitions are those of `transitions` that
    /// neither a description nor `auxiliaryTransitions` names. Asserts that each primary list is
    /// where its full list begins, and that a description has at least two transitions and as many
    /// events.
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

    /// A negative number is outside every domain.
    bool isState(std::int32_t i) const { return isIndex(i, _nbStates); }
    bool isEvent(std::int32_t i) const { return isIndex(i, _nbEvents); }
    bool isTransition(std::int32_t i) const { return isIndex(i, _nbTransitions); }
    bool isPrimaryState(std::int32_t i) const { return isIndex(i, _nbPrimaryStates); }
    bool isPrimaryEvent(std::int32_t i) const { return isIndex(i, _nbPrimaryEvents); }
    bool isPrimaryTransition(std::int32_t i) const { return isIndex(i, _nbPrimaryTransitions); }

    /// The transition that the event selects, -1 for none. Throws `DevMgrEx::SMDomainError` when
    /// there is no such state or event.
    std::int32_t getTransition(std::int32_t state, std::int32_t event) const
    {
        if (!isState(state) || !isEvent(event)) [[unlikely]]
            throwDomainError();
        return _stateEventTable[index(state, _nbEvents, event)];
    }
    /// The state that the transition leads to, -1 for none. Throws `DevMgrEx::SMDomainError` when
    /// there is no such state or transition.
    std::int32_t getState(std::int32_t state, std::int32_t transition) const
    {
        if (!isState(state) || !isTransition(transition)) [[unlikely]]
            throwDomainError();
        return _stateTransitionTable[index(state, _nbTransitions, transition)];
    }

    /// Throw `DevMgrEx::SMDomainError` for a number that the list lacks.
    LiString getStateName(std::int32_t i) const;
    LiString getEventName(std::int32_t i) const;
    LiString getTransitionName(std::int32_t i) const;

    /// The first number of that name. Throw `DevMgrEx::SMDomainError` where there is none.
    std::int32_t getState(LiString const &name) const;
    std::int32_t getEvent(LiString const &name) const;
    std::int32_t getTransition(LiString const &name) const;

    Vector<LiString> getPrimaryTransitions() const { return _primaryTransitionVector; }
    Vector<LiString> getAuxiliaryTransitions() const { return _auxiliaryVector; }
    Vector<ConditionalTransitionDesc> getConditionalTransitions() const
    {
        return _conditionalDescs;
    }

    /// Lists, then matrices, as readable text. A list without names, which no builder makes, is an
    /// empty line.
    void dump(std::ostream &stream) const;

protected:
    ~DevSMTable() override;

private:
    friend class DevSMExecutionEngImp;

    /// A transition by its name, and the first number of that name: -1 where there is none.
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
    /// Where a state and event lead when a plain transition runs between them, its check included.
    struct Shortcut
    {
        std::int32_t transition = -1; // -1: go step by step
        std::int32_t onSuccess = -1;
        std::int32_t onFailure = -1;
    };
    /// What engines would look up by name, looked up once for all of them. -1 stands for a name
    /// that is not there.
    struct Links
    {
        std::int32_t exception = -1;
        std::int32_t noException = -1;
        Vector<PrimaryTransition> primaryTransitions;
        Vector<NamedTransition> auxiliaryTransitions;
        Vector<ConditionalLinks> conditionalTransitions;
        Vector<Shortcut> shortcuts;      // as the state-event matrix
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
    void linkNames();
    void linkShortcuts();
    Shortcut findShortcut(std::int32_t state, std::int32_t event) const;
    std::int32_t passCheck(std::int32_t checkState, std::int32_t event) const;

    Vector<LiString> _s;
    Vector<LiString> _e;
    Vector<LiString> _t;
    Vector<std::int32_t> _stateEventTable;      // the rows, one behind the other
    Vector<std::int32_t> _stateTransitionTable; // the rows, one behind the other
    Vector<ConditionalTransitionDesc> _conditionalDescs;
    Vector<LiString> _auxiliaryVector;
    Vector<LiString> _primaryStateVector;
    Vector<LiString> _primaryEventVector;
    Vector<LiString> _primaryTransitionVector;
    Links _links;
    // The sizes of the lists, where engines find them at once.
    std::int32_t _nbStates;
    std::int32_t _nbEvents;
    std::int32_t _nbTransitions;
    std::int32_t _nbPrimaryStates;
    std::int32_t _nbPrimaryEvents;
    std::int32_t _nbPrimaryTransitions;
};

ZVRESMGT_EXPORT std::ostream &operator<<(std::ostream &stream, DevSMTable const &table);
/// `{ name, { transition, … }, { event, … } }`
ZVRESMGT_EXPORT std::ostream &operator<<(std::ostream &stream,
                                         DevSMTable::ConditionalTransitionDesc const &desc);

} // namespace Zv
