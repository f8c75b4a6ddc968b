// A state machine: a tape deck that records only if the tape may be written.
//
// A condition chooses between two transitions. An illegal event leads to the state `_ill`.
//
// Prints:
//
//     play: the motor runs, playing
//     stop: the motor halts, stopped
//     record: the tape is protected, stopped
//     record: the head writes, recording
//     play: _ill

#include <resmgt/deviceManager.h>
#include <zvbase/zvbase.h>

#include <iostream>

using namespace Zv;

namespace {

RCShdPtr<DevSMTable> makeTable()
{
    static constexpr char const *ROWS[][4] = {
        {"stopped", "play", "the motor runs", "playing"},
        {"stopped", "record", "the head writes", "recording"}, // if its condition holds
        {"stopped", "record", "the tape is protected", "stopped"},
        {"playing", "stop", "the motor halts", "stopped"},
        {"recording", "stop", "the head lifts", "stopped"}};
    DevSMTableBuilder builder;
    for (char const *state : {"stopped", "playing", "recording"})
        builder.addState(state);
    for (char const *event : {"play", "record", "stop"})
        builder.addEvent(event);
    for (auto const &[state, event, transition, next] : ROWS) {
        builder.addTransition(transition);
        builder.addTransitionForEvent(state, event, transition);
        builder.setNextState(state, transition, next);
    }
    builder.expand();
    return builder.createTable();
}

/// Says what the deck does. The condition is checked only if a later row can be taken instead.
class Action : public DevSMConditionalTransition
{
public:
    Action(LiString const &name, bool const &isProtected)
        : DevSMConditionalTransition(name), _isProtected(isProtected)
    {}
    bool condition() override { return !_isProtected; }
    void execute() override { std::cout << getName() << ", "; }

private:
    bool const &_isProtected;
};

class Actions : public DevSMTransitionFactory
{
public:
    explicit Actions(bool const &isProtected) : _isProtected(isProtected) {}
    RCShdPtr<DevSMTransition> create(LiString const &name) override
    {
        return makeShd<Action>(name, _isProtected);
    }

private:
    bool const &_isProtected;
};

} // namespace

int main()
{
    InPackageScope const packages;
    bool isProtected = true;
    RCShdPtr<DevSMTable> const table = makeTable();
    ObjPtr<DevSMExecutionEng> const deck =
        DevSMExecutionEng::create(table, table->getState("stopped"), makeObj<Actions>(isProtected));
    auto const press = [&](char const *button) {
        std::cout << button << ": ";
        deck->execute(table->getEvent(button));
        std::cout << table->getStateName(deck->getState()) << '\n';
    };
    for (char const *button : {"play", "stop", "record"})
        press(button);
    isProtected = false; // another tape
    press("record");
    press("play");
}
