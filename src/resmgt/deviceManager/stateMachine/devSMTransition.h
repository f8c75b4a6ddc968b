// Transition of a state machine: the code that runs between two states (extenders).
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcShdPtr.h"

namespace Zv {

/// A transition of a state machine: the code that runs between two states.
///
/// The author of a machine derives one class for each kind of transition. A `DevSMExecutionEng`
/// gets its transitions from a `DevSMTransitionFactory`.
///
/// **Threads**: one thread at a time, as the engine.
class ZVRESMGT_EXPORT DevSMTransition : public RCBase<LkCounter<long>>
{
public:
    explicit DevSMTransition(LiString const &name);

    LiString getName() const { return _name; }

    /// Runs the transition. The engine's `execute` calls it while the engine is still in the state
    /// that the transition leaves. It must not call `execute` of its own engine.
    ///
    /// If it throws an `ExBase`, the machine goes to its state `_exc`. If it throws anything else,
    /// the engine fails with status 2.
    virtual void execute() = 0;

protected:
    ~DevSMTransition() override;

private:
    LiString _name;
};

/// A transition that is taken only if its condition holds. If a machine has several transitions for
/// one state and event, each of them but the last must be conditional. The last one is taken if no
/// condition holds, and its condition is not checked.
class ZVRESMGT_EXPORT DevSMConditionalTransition : public DevSMTransition
{
public:
    using DevSMTransition::DevSMTransition;

    /// Returns true if the transition is to be taken. Called in the declared order, up to the first
    /// one that returns true, before `execute` of the chosen transition. An exception has the same
    /// effect as one of `execute`.
    virtual bool condition() = 0;

protected:
    ~DevSMConditionalTransition() override;
};

/// Creates the transitions of an engine.
class ZVRESMGT_EXPORT DevSMTransitionFactory
{
public:
    DevSMTransitionFactory() = default;
    DevSMTransitionFactory(DevSMTransitionFactory const &) = delete;
    DevSMTransitionFactory &operator=(DevSMTransitionFactory const &) = delete;
    virtual ~DevSMTransitionFactory() noexcept(false);

    /// Returns a transition of that name, or null if there is none. Called once for each declared
    /// transition while the engine is created.
    virtual RCShdPtr<DevSMTransition> create(LiString const &name) = 0;
};

} // namespace Zv
