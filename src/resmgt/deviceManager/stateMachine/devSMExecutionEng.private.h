// Implementation of the execution engine, and the transitions that it makes itself.
#pragma once

#include "resmgt/deviceManager/stateMachine/devSMExecutionEng.h"
#include "zvbase/sequenceContainers.h"

#include <cstddef>
#include <cstdint>

namespace Zv {

/// The queue of internal events. It is empty after each successful `execute`, and then reuses its
/// memory.
class DevSMPendingEvents
{
public:
    DevSMPendingEvents() { _events.reserve(4); }

    bool isEmpty() const { return _first == _events.size(); }
    std::int32_t getFirst() const { return _events[_first]; }
    void add(std::int32_t event) { _events.push_back(event); }
    void removeFirst()
    {
        if (++_first == _events.size()) {
            _events.clear();
            _first = 0;
        }
    }

private:
    Vector<std::int32_t> _events;
    std::size_t _first = 0;
};

class DevSMExecutionEngImp final : public DevSMExecutionEng
{
public:
    DevSMExecutionEngImp(RCShdPtr<DevSMTable> table, std::int32_t initialState,
                         ObjPtr<DevSMTransitionFactory> factory);
    ~DevSMExecutionEngImp() override;

    std::int32_t getStatus() const override { return _status; }
    std::int32_t getState() const override { return _state; }
    RCShdPtr<DevSMTable> getTable() const override { return _smtable; }
    ObjPtrRet<ExBase> takeException() override { return _exception; }
    void execute(std::int32_t event) override;
    std::exception_ptr getException() const override { return _thrown; }

    /// Queues an event of one of the engine's own transitions.
    void pend(std::int32_t event) { _pending.add(event); }
    /// Must be called in the `catch` clause of the exception.
    void keepException(ExBase const &exception)
    {
        _thrown = std::current_exception();
        _exception.reset(exception.clone());
    }

private:
    using Transitions = Vector<RCShdPtr<DevSMTransition>>;

    enum Status : std::int32_t
    {
        HEALTHY = 0,
        NO_TRANSITION = 1,
        TRANSITION_FAILED = 2,
        NO_STATE = 3,
        INCONSISTENT = 4
    };

    Transitions createPrimaries();
    void wrapPrimaries(Transitions const &primaries);
    void addAuxiliaries();
    void addConditionals(Transitions const &primaries);
    void checkComplete() const;

    template <class Operation>
    auto attempt(Status onFailure, Operation operation);
    void takeShortcut(DevSMTable::Shortcut const &shortcut);
    std::int32_t takeChoice(DevSMTable::Shortcut const &shortcut);
    void takeLongWay(std::int32_t event);
    void takeSteps(std::int32_t event);
    void step(std::int32_t event);
    [[noreturn]] void failInconsistent();

    ObjPtr<DevSMTransitionFactory> _factory;
    RCShdPtr<DevSMTable> _smtable;
    Transitions _transVect; // one for each transition number
    DevSMPendingEvents _pending;
    std::int32_t _state;
    ObjPtr<ExBase> _exception;
    std::exception_ptr _thrown; // the original of `_exception`
    std::int32_t _status;
};

/// Runs one of the factory's transitions, and then the event of its success or failure.
class ExEngPrimaryTrans final : public DevSMTransition
{
public:
    ExEngPrimaryTrans(LiString const &name, RCShdPtr<DevSMTransition> const &transition,
                      DevSMExecutionEngImp &engine, std::int32_t exception,
                      std::int32_t noException);

    void execute() override;
    /// Runs the factory's transition. If that throws an `ExBase`, keeps the exception and returns
    /// false.
    bool run();

private:
    RCShdPtr<DevSMTransition> _transition;
    DevSMExecutionEngImp &_engine;
    std::int32_t _exception;
    std::int32_t _noException;
};

/// Does nothing. Only the state changes.
class ExEngAuxTrans final : public DevSMTransition
{
public:
    using DevSMTransition::DevSMTransition;

    void execute() override {}
};

/// Checks the conditions of the candidates and selects one.
class ExEngCondTrans final : public DevSMTransition
{
public:
    using Candidates = Vector<RCShdPtr<DevSMConditionalTransition>>;

    /// `candidates` does not contain the last transition, which has no condition. `events` has one
    /// event for each transition, including the last one.
    ExEngCondTrans(LiString const &name, DevSMExecutionEngImp &engine, Candidates &&candidates,
                   Vector<std::int32_t> const &events, std::int32_t exception,
                   std::int32_t noException);
    ~ExEngCondTrans() override;

    void execute() override;
    /// Returns the event of the selected transition. If a condition throws an `ExBase`, keeps the
    /// exception and returns -1.
    std::int32_t run();

private:
    DevSMExecutionEngImp &_engine;
    Candidates _candidates;
    Vector<std::int32_t> _events;
    std::int32_t _exception;
    std::int32_t _noException;
};

} // namespace Zv
