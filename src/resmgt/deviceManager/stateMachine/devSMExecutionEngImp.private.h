// The engine behind `DevSMExecutionEng`.
#pragma once

#include "resmgt/deviceManager/stateMachine/devSMExecutionEng.h"
#include "zvbase/containers.h"

#include <cstddef>

namespace Zv {

/// Internal events wait in a queue that gives its room back whenever it is empty, which it is after
/// each `execute`.
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

    /// For the engine's own transitions.
    void pend(std::int32_t event) { _pending.add(event); }
    /// In a clause that has caught the exception.
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
    void step(std::int32_t event);
    [[noreturn]] void failInconsistent();

    ObjPtr<DevSMTransitionFactory> _factory;
    RCShdPtr<DevSMTable> _smtable;
    Transitions _transVect; // one for each transition number
    DevSMPendingEvents _pending;
    std::int32_t _state;
    ObjPtr<ExBase> _exception;
    std::exception_ptr _thrown; // the original of the above
    std::int32_t _status;
};

} // namespace Zv
