// The engine's own transitions.
#pragma once

#include "resmgt/deviceManager/stateMachine/devSMTransition.h"
#include "zvbase/containers.h"

#include <cstddef>
#include <cstdint>

namespace Zv {

class DevSMExecutionEngImp;

/// Runs one of the factory's transitions and tells the machine how it went.
class ExEngPrimaryTrans final : public DevSMTransition
{
public:
    ExEngPrimaryTrans(LiString const &name, RCShdPtr<DevSMTransition> const &transition,
                      DevSMExecutionEngImp &engine, std::int32_t exception,
                      std::int32_t noException);

    void execute() override;
    /// Whether the factory's transition succeeded. The exception of one that failed is kept.
    bool run();

private:
    RCShdPtr<DevSMTransition> _transition;
    DevSMExecutionEngImp &_engine;
    std::int32_t _exception;
    std::int32_t _noException;
};

/// Does nothing: only the state changes.
class ExEngAuxTrans final : public DevSMTransition
{
public:
    using DevSMTransition::DevSMTransition;

    void execute() override {}
};

/// Asks the candidates and selects one.
class ExEngCondTrans final : public DevSMTransition
{
public:
    using Candidates = Vector<RCShdPtr<DevSMConditionalTransition>>;

    /// `candidates` lacks the last one, which is asked nothing; `events` does not.
    ExEngCondTrans(LiString const &name, DevSMExecutionEngImp &engine, Candidates const &candidates,
                   Vector<std::int32_t> const &events, std::int32_t exception,
                   std::int32_t noException);
    ~ExEngCondTrans() override;

    void execute() override;

private:
    std::size_t choose() const;

    DevSMExecutionEngImp &_engine;
    Candidates _candidates;
    Vector<std::int32_t> _events;
    std::int32_t _exception;
    std::int32_t _noException;
};

} // namespace Zv
