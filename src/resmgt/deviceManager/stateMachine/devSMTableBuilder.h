// Builder of a state machine, which is declared by names (extenders).
#pragma once

#include "resmgt/deviceManager/stateMachine/devSMTable.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/objPtr.h"
#include "zvbase/sequenceContainers.h"

#include <iosfwd>

namespace Zv {

/// Builds the `DevSMTable` of a machine from its declaration:
///
///     DevSMTableBuilder builder;
///     builder.addState("off");
///     builder.addState("on");
///     builder.addEvent("press");
///     builder.addTransition("toggle");
///     builder.addTransitionForEvent("off", "press", "toggle");
///     builder.setNextState("off", "toggle", "on");
///     builder.addTransitionForEvent("on", "press", "toggle");
///     builder.setNextState("on", "toggle", "off");
///     builder.expand();
///     RCShdPtr<DevSMTable> const table = builder.createTable();
///
/// The order of the declarations matters. States, events and transitions get their numbers in the
/// order in which they are declared. If several transitions are declared for one state and event,
/// they are tried in that order: the first one whose condition holds is taken, or the last one if
/// no condition holds.
///
/// Every pair of a state and a transition that can run in it needs a next state. If it is
/// forgotten, the transition leads to state 0.
///
/// Names that begin with an underscore are reserved for the expansion. It turns choices and
/// failures into ordinary states, events and transitions:
///
///     a --x--> t, b           runs t --> _exchk(a:x:t) --_noexc--> b
///                                                     --_exc----> _exc
///     a --x--> t1 or t2, b    runs _ct(a:x) --> _exchk(a:x:_ct(a:x)) --_noexc--> _cs(a:x)
///                             there _ce(t1) runs t1 --> _exchk(_cs(a:x):_ce(t1):t1) --_noexc--> b
///
/// Each declared state and event without a transition gets the transition `_ill`, to the state
/// `_ill`. If several events fire one transition from one state, a checking state is made for each,
/// but only that of the last event is used.
///
/// **Threads**: one thread at a time.
class ZVRESMGT_EXPORT DevSMTableBuilder
{
public:
    DevSMTableBuilder();
    DevSMTableBuilder(DevSMTableBuilder const &) = delete;
    DevSMTableBuilder &operator=(DevSMTableBuilder const &) = delete;
    ~DevSMTableBuilder() noexcept(false);

    /// Declare a state, an event or a transition. Throw `DevMgrEx::NameNotUnique` if the list has
    /// that name already.
    void addState(LiString const &name);
    void addEvent(LiString const &name);
    void addTransition(LiString const &name);

    /// Adds a transition for the state and event. The names are not checked.
    void addTransitionForEvent(LiString const &state, LiString const &event,
                               LiString const &transition);
    /// Sets the next state, and replaces an earlier one. The names are not checked.
    void setNextState(LiString const &state, LiString const &transition, LiString const &next);

    /// Return true if the pair has a transition, or a next state.
    bool isAssociatedStateEvent(LiString const &state, LiString const &event) const;
    bool isAssociatedStateTransition(LiString const &state, LiString const &transition) const;
    /// Returns the transitions of the pair in their order. Fails an assertion if it has none.
    Vector<LiString> getTransitions(LiString const &state, LiString const &event) const;
    /// Returns the next state of the pair. Fails an assertion if it has none.
    LiString getState(LiString const &state, LiString const &transition) const;
    /// Sets the next state and returns the former one. Fails an assertion if there is none.
    LiString replaceNextState(LiString const &state, LiString const &transition,
                              LiString const &next);

    /// Makes the expanded machine from the declarations so far. Each call begins anew.
    ///
    /// Throws `DevMgrEx::NameNotUnique` if a generated name is in use. Fails an assertion if two
    /// declarations mean the same pair. If it fails, the builder is unchanged.
    void expand();
    /// Returns the table of the machine that `expand` has made. Fails an assertion if `expand` was
    /// not called, or if a state or event has been declared since.
    [[nodiscard]] RCShdPtr<DevSMTable> createTable() const;

    /// Writes the declaration, and the expanded machine if there is one, as readable text.
    void dump(std::ostream &stream) const;

private:
    using ConditionalTransitionDesc = DevSMTable::ConditionalTransitionDesc;
    struct FiringEvents;
    struct Tables;

    LiString key(LiString const &first, LiString const &second) const;
    LiString exchkName(LiString const &state, LiString const &event,
                       LiString const &transition) const;
    bool isTransition(LiString const &name) const;
    LiString findNextState(LiString const &state, LiString const &transition) const;

    void expandConditionals(DevSMTableBuilder *sm) const;
    void expandChoice(DevSMTableBuilder *sm, LiString const &s, LiString const &e,
                      Vector<LiString> const &tv) const;
    void expandSingle(DevSMTableBuilder *sm, LiString const &s, LiString const &e,
                      Vector<LiString> const &tv) const;
    void expandExceptionChecks();
    FiringEvents addCheckStates();
    void wireCheckStates(FiringEvents const &firing);
    void addExceptionHandling();
    void expandIllegals(Vector<LiString> const &states, Vector<LiString> const &events);

    void dumpDeclaration(std::ostream &stream) const;
    void dumpTransitions(std::ostream &stream) const;
    void dumpNextStates(std::ostream &stream) const;

    Vector<LiString> _states;
    Vector<LiString> _events;
    Vector<LiString> _transitions;
    ObjPtr<Tables> _tables;
    ObjPtr<DevSMTableBuilder> _expanded;
    bool _isExpanded = false;
    LiString _illegal;
    LiString _exception;
    LiString _noException;
    LiString _exceptionCheck;
    LiString _condState;
    LiString _condEvent;
    LiString _condTransition;
    LiString _separator;
    LiString _listSeparator;
    Vector<ConditionalTransitionDesc> _conditionalDescs;
};

} // namespace Zv
