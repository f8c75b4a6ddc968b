// Implementation of the execution engine.
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

    void createPrimaries();
    void checkAuxiliaries() const;
    void linkConditionals();
    void checkComplete() const;

    template <class Operation>
    auto attempt(Status onFailure, Operation operation);
    void takeShortcut(DevSMTable::Shortcut const &shortcut);
    std::int32_t takeChoice(DevSMTable::Shortcut const &shortcut);
    void takeLongWay(std::int32_t event);
    void takeSteps(std::int32_t event);
    void step(std::int32_t event);
    void run(std::int32_t transition);
    bool runPrimary(std::int32_t transition);
    std::int32_t choose(DevSMTable::ConditionalLinks const &conditional);
    void keepException(ExBase const &exception);
    [[noreturn]] void failInconsistent();

    ObjPtr<DevSMTransitionFactory> _factory;
    RCShdPtr<DevSMTable> _smtable;
    // One for each transition number. The table has what the engine needs of the others.
    Transitions _primaries;
    Vector<DevSMConditionalTransition *> _candidates; // those of `_primaries` that are candidates
    DevSMPendingEvents _pending;
    std::int32_t _state;
    ObjPtr<ExBase> _exception;
    std::exception_ptr _thrown; // the original of `_exception`
    std::int32_t _status;
};

} // namespace Zv
