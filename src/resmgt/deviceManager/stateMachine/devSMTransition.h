// The code that a state machine runs between two states.
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcShdPtr.h"

namespace Zv {

/// What runs between two states of a machine. The author of a machine derives one class for each
/// kind of transition; a `DevSMExecutionEng` gets its objects from a `DevSMTransitionFactory`.
class ZVRESMGT_EXPORT DevSMTransition : public RCBase<LkCounter<long>>
{
public:
    explicit DevSMTransition(LiString const &name);

    LiString getName() const { return _name; }

    /// Runs in the engine's `execute`, while the engine still has the state that it comes from. An
    /// `ExBase` leads the machine to its state `_exc`; anything else that is thrown breaks the
    /// engine. It must not call `execute` of its own engine.
    virtual void execute() = 0;

protected:
    ~DevSMTransition() override;

private:
    LiString _name;
};

/// A transition that is taken only where its condition holds: each of those among which a machine
/// chooses, the last one excepted, which is taken where no condition holds and is asked nothing.
class ZVRESMGT_EXPORT DevSMConditionalTransition : public DevSMTransition
{
public:
    using DevSMTransition::DevSMTransition;

    /// Asked before `execute` of whichever transition is chosen, in declared order up to the first
    /// that holds. Fails as `execute` does.
    virtual bool condition() = 0;

protected:
    ~DevSMConditionalTransition() override;
};

/// Makes an engine's transitions.
class ZVRESMGT_EXPORT DevSMTransitionFactory
{
public:
    DevSMTransitionFactory() = default;
    DevSMTransitionFactory(DevSMTransitionFactory const &) = delete;
    DevSMTransitionFactory &operator=(DevSMTransitionFactory const &) = delete;
    virtual ~DevSMTransitionFactory() noexcept(false);

    /// The transition of that name, or null where there is none. Called once for each declared
    /// transition, while the engine is made.
    virtual RCShdPtr<DevSMTransition> create(LiString const &name) = 0;
};

} // namespace Zv
