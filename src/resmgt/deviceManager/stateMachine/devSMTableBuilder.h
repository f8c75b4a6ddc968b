// Declares a state machine by names.
#pragma once

#include "resmgt/deviceManager/stateMachine/devSMTable.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/containers.h"
#include "zvbase/objPtr.h"

#include <iosfwd>

namespace Zv {

/// Takes the declaration of a machine, expands it and makes its `DevSMTable`: declare, `expand`,
/// `createTable`, discard.
///
/// The order of the declarations is part of the machine. That of states, events and transitions
/// gives their numbers; that of the transitions declared for one state and event gives the order in
/// which they are tried. Every pair of a state and a transition that can run there needs a next
/// state: one that is forgotten silently leads to state 0.
///
/// Two or more transitions for one state and event are a choice: the first whose condition holds is
/// taken, the last where none does. Names that begin with an underscore belong to the expansion. It
/// makes ordinary states, events and transitions of choices and of failures:
///
///     a --x--> t, b           runs t --> _exchk(a:x:t) --_noexc--> b
///                                                     --_exc----> _exc
///     a --x--> t1 or t2, b    runs _ct(a:x) --> _exchk(a:x:_ct(a:x)) --_noexc--> _cs(a:x)
///                             there _ce(t1) runs t1 --> _exchk(_cs(a:x):_ce(t1):t1) --_noexc--> b
///
/// Each declared state and event without a transition gets the transition `_ill`, to the state
/// `_ill`. Where several events fire one transition from one state, a checking state is made for
/// each, but only that of the last is used.
///
/// A builder is for one thread; nothing blocks.
class ZVRESMGT_EXPORT DevSMTableBuilder
{
public:
    DevSMTableBuilder();
    DevSMTableBuilder(DevSMTableBuilder const &) = delete;
    DevSMTableBuilder &operator=(DevSMTableBuilder const &) = delete;
    ~DevSMTableBuilder() noexcept(false);

    /// Throw `DevMgrEx::NameNotUnique` for a name that is already in its list.
    void addState(LiString const &name);
    void addEvent(LiString const &name);
    void addTransition(LiString const &name);

    /// One more transition for this state and event. The names are not checked.
    void addTransitionForEvent(LiString const &state, LiString const &event,
                               LiString const &transition);
    /// A repeat overwrites. The names are not checked.
    void setNextState(LiString const &state, LiString const &transition, LiString const &next);

    bool isAssociatedStateEvent(LiString const &state, LiString const &event) const;
    bool isAssociatedStateTransition(LiString const &state, LiString const &transition) const;
    /// Asserts that the pair has transitions.
    Vector<LiString> getTransitions(LiString const &state, LiString const &event) const;
    /// Asserts that the pair has a next state.
    LiString getState(LiString const &state, LiString const &transition) const;
    /// Returns the former next state. Asserts that there is one.
    LiString replaceNextState(LiString const &state, LiString const &transition,
                              LiString const &next);

    /// Makes the expanded machine, anew at each call; a declaration that follows waits for the next
    /// call. Throws `DevMgrEx::NameNotUnique` where a generated name is taken, and asserts that no
    /// two declarations mean the same pair; an expansion that fails leaves the builder as it was.
    void expand();
    /// The table of the machine as `expand` found it. Asserts that it ran, and that no state or
    /// event was declared since.
    RCShdPtr<DevSMTable> createTable() const;

    /// The declaration, and the expanded machine behind it once there is one, as readable text.
    void dump(std::ostream &stream) const;

private:
    using ConditionalTransitionDesc = DevSMTable::ConditionalTransitionDesc;

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
    HashMap<LiString, LiString> addCheckStates();
    void wireCheckStates(HashMap<LiString, LiString> const &firing);
    void addExceptionHandling();
    void expandIllegals(Vector<LiString> const &states, Vector<LiString> const &events);

    void dumpDeclaration(std::ostream &stream) const;
    void dumpTransitions(std::ostream &stream) const;
    void dumpNextStates(std::ostream &stream) const;

    Vector<LiString> _states;
    Vector<LiString> _events;
    Vector<LiString> _transitions;
    HashMap<LiString, Vector<LiString>> _setTbl;
    HashMap<LiString, LiString> _stsTbl;
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
