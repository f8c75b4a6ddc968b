// Cost of an event in a state machine: the engine compared with a table written by hand.

#include "resmgt/deviceManager.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace {

using namespace Zv;

// Four states in a ring. "on" goes to the next state and "back" to the previous one. "pick" goes to
// the next state or to the one after it, as the condition of its first transition says.
constexpr std::array<char const *, 4> STATES{"a", "b", "c", "d"};
enum Event : std::int32_t
{
    ON,
    BACK,
    PICK
};
constexpr std::array<std::int32_t, 8> PLAIN_EVENTS{ON, ON, BACK, ON, BACK, BACK, ON, ON};

struct Counts
{
    std::uint64_t runs = 0;
    std::uint64_t questions = 0;
};

class On final : public DevSMTransition
{
public:
    On(LiString const &name, Counts &counts) : DevSMTransition(name), _counts(counts) {}
    void execute() override { ++_counts.runs; }

private:
    Counts &_counts;
};

class Pick final : public DevSMConditionalTransition
{
public:
    Pick(LiString const &name, Counts &counts) : DevSMConditionalTransition(name), _counts(counts)
    {}
    void execute() override { ++_counts.runs; }
    bool condition() override { return ++_counts.questions & 1; }

private:
    Counts &_counts;
};

class Factory final : public DevSMTransitionFactory
{
public:
    explicit Factory(Counts &counts) : _counts(counts) {}
    RCShdPtr<DevSMTransition> create(LiString const &name) override
    {
        if (name == LiString("pick one"))
            return new Pick(name, _counts);
        return new On(name, _counts);
    }

private:
    Counts &_counts;
};

RCShdPtr<DevSMTable> makeTable()
{
    DevSMTableBuilder builder;
    for (char const * const state : STATES)
        builder.addState(state);
    for (char const * const event : {"on", "back", "pick"})
        builder.addEvent(event);
    for (char const * const transition : {"go on", "go back", "pick one", "pick two"})
        builder.addTransition(transition);
    for (std::size_t i = 0; i < 4; ++i) {
        char const * const state = STATES[i];
        builder.addTransitionForEvent(state, "on", "go on");
        builder.setNextState(state, "go on", STATES[(i + 1) % 4]);
        builder.addTransitionForEvent(state, "back", "go back");
        builder.setNextState(state, "go back", STATES[(i + 3) % 4]);
        builder.addTransitionForEvent(state, "pick", "pick one");
        builder.setNextState(state, "pick one", STATES[(i + 1) % 4]);
        builder.addTransitionForEvent(state, "pick", "pick two");
        builder.setNextState(state, "pick two", STATES[(i + 2) % 4]);
    }
    builder.expand();
    return builder.createTable();
}

/// Code for this one machine, written by hand.
class ByHand
{
public:
    ByHand()
    {
        for (std::int32_t i = 0; i < 4; ++i) {
            auto &row = _table[static_cast<std::size_t>(i)];
            row[ON] = {{{&_on, (i + 1) % 4}}};
            row[BACK] = {{{&_on, (i + 3) % 4}}};
            row[PICK] = {{{&_pick, (i + 1) % 4}, {&_pick, (i + 2) % 4}}};
        }
    }

    void execute(std::int32_t event)
    {
        Entry const &entry =
            _table[static_cast<std::size_t>(_state)][static_cast<std::size_t>(event)];
        Choice const &choice = choose(entry);
        choice.transition->execute();
        _state = choice.next;
    }
    std::int32_t getState() const { return _state; }

private:
    struct Transition
    {
        virtual ~Transition() = default;
        virtual bool condition() = 0;
        virtual void execute() = 0;
    };
    struct OnTransition : Transition
    {
        explicit OnTransition(Counts &c) : counts(c) {}
        bool condition() override { return true; }
        void execute() override { ++counts.runs; }
        Counts &counts;
    };
    struct PickTransition : OnTransition
    {
        using OnTransition::OnTransition;
        bool condition() override { return ++counts.questions & 1; }
    };
    struct Choice
    {
        Transition *transition = nullptr;
        std::int32_t next = 0;
    };
    using Entry = std::array<Choice, 2>;

    /// Chooses between two transitions. Only the condition of the first one is evaluated.
    static Choice const &choose(Entry const &entry)
    {
        bool const isFirst = !entry[1].transition || entry[0].transition->condition();
        return entry[isFirst ? 0 : 1];
    }

    Counts _counts;
    OnTransition _on{_counts};
    PickTransition _pick{_counts};
    std::array<std::array<Entry, 3>, 4> _table;
    std::int32_t _state = 0;
};

struct Engine
{
    void execute(std::int32_t event) { engine->execute(event); }
    std::int32_t getState() const { return engine->getState(); }

    Counts counts;
    ObjPtr<DevSMExecutionEng> engine{
        DevSMExecutionEng::create(makeTable(), 0, makeObj<Factory>(counts))};
};

template <class Machine>
void plainEvents(benchmark::State &state)
{
    Machine machine;
    std::size_t next = 0;
    for (auto _ : state) {
        machine.execute(PLAIN_EVENTS[next++ % PLAIN_EVENTS.size()]);
        benchmark::DoNotOptimize(machine.getState());
    }
}

template <class Machine>
void choices(benchmark::State &state)
{
    Machine machine;
    std::int32_t event = PICK;
    for (auto _ : state) {
        benchmark::DoNotOptimize(event);
        machine.execute(event);
        benchmark::DoNotOptimize(machine.getState());
    }
}

BENCHMARK(plainEvents<Engine>)->Name("event/DevSMExecutionEng");
BENCHMARK(plainEvents<ByHand>)->Name("event/by hand");
BENCHMARK(choices<Engine>)->Name("choice/DevSMExecutionEng");
BENCHMARK(choices<ByHand>)->Name("choice/by hand");

} // namespace
