// Strategies that choose the next thread, and the values that loads return.
#pragma once

#include "platform/scheduler/task.h"

namespace ZvPlatform::Simulated {

/// Generator of random numbers. A seed gives the same sequence on every machine.
class Random
{
public:
    constexpr explicit Random(std::uint64_t seed = 0) : _state(seed) {}

    std::uint64_t next();
    /// Returns a number from 0 to `bound` - 1.
    std::uint32_t below(std::uint32_t bound);

private:
    std::uint64_t _state;
};

/// One of the things that can happen next.
struct Option
{
    enum What : std::uint8_t
    {
        RUN,
        STRAY, ///< a wait ends without a cause
        CLOCK  ///< time advances
    };

    What what;
    Task *thread;
};

inline constexpr unsigned MAX_OPTIONS = 250;

/// All options for the next step. The first is the running thread, if it can run.
struct Candidates
{
    Option option[MAX_OPTIONS];
    unsigned count = 0;
    bool isCurrentFirst = false;
    /// The running thread can run, but yields, or has run for too long.
    bool hasYielded = false;

    void add(Option::What what, Task *thread)
    {
        if (count < MAX_OPTIONS)
            option[count++] = {what, thread};
    }
};

class Strategy
{
public:
    constexpr Strategy() = default;

    virtual void begin(Options const &, Record &) {}
    virtual unsigned choose(Candidates const &, Record &) = 0;
    /// Returns which of `count` stores a load reads, from 0 for the newest. A load of the newest
    /// value must be likely, so that loops which wait for it end.
    virtual unsigned chooseStore(unsigned count, Record const &) = 0;
    virtual void started(Task &) {}

protected:
    ~Strategy() = default;
};

Strategy &strategyFor(Choice);

} // namespace ZvPlatform::Simulated
