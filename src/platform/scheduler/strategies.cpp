#include "platform/scheduler/strategies.h"

#include <algorithm>

namespace ZvPlatform::Simulated {

std::uint64_t Random::next()
{
    // The generator splitmix64 by Sebastiano Vigna.
    _state += 0x9E3779B97F4A7C15;
    std::uint64_t z = _state;
    z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9;
    z = (z ^ z >> 27) * 0x94D049BB133111EB;
    return z ^ z >> 31;
}

std::uint32_t Random::below(std::uint32_t bound)
{
    return static_cast<std::uint32_t>((next() >> 32) * bound >> 32);
}

namespace {

/// Returns the first option that may be chosen. A running thread that yields is skipped if there is
/// another option.
unsigned firstAllowed(Candidates const &candidates)
{
    return candidates.hasYielded && candidates.count > 1 ? 1 : 0;
}

/// Any thread, each with the same probability. In half of the runs, the running thread is sometimes
/// held back for a while, as one that loses its processor, so that others take many steps between
/// two of its own.
class RandomChoice final : public Strategy
{
public:
    void begin(Options const &options, Record &) override
    {
        _random = Random(options.seed);
        _haste = options.haste;
        _clockWeight = 1 << _random.below(4);
        _delays = _random.below(2) ? 0 : FREQUENT << _random.below(4);
        _delayed = nullptr;
    }

    unsigned choose(Candidates const &candidates, Record &record) override
    {
        delay(candidates, record.decisions);
        // All threads have the same weight. Wake-ups without a cause and advances of the clock are
        // less likely.
        std::uint32_t weight = 0;
        unsigned const first = firstAllowed(candidates);
        for (unsigned i = first; i < candidates.count; ++i)
            weight += weightOf(candidates.option[i]);
        std::uint32_t draw = _random.below(weight);
        unsigned chosen = first;
        while (draw >= weightOf(candidates.option[chosen]))
            draw -= weightOf(candidates.option[chosen++]);
        return chosen;
    }

    /// Sometimes any of the older values, each with the same probability.
    unsigned chooseStore(unsigned count, Record const &) override
    {
        return _random.below(OLDER) ? 0 : 1 + _random.below(count - 1);
    }

private:
    static constexpr std::uint32_t OLDER = 6;
    /// The most frequent delays begin once in so many decisions.
    static constexpr std::uint32_t FREQUENT = 8;
    /// How many times as likely a delay is behind a release.
    static constexpr std::uint32_t AFTER_RELEASE = 2;
    /// How long a delay lasts at most, in multiples of the time between two of them.
    static constexpr std::uint32_t LONGEST = 8;

    /// Sometimes begins to hold the running thread back.
    void delay(Candidates const &candidates, std::uint32_t decisions)
    {
        if (_delayed && decisions >= _delayedUntil)
            _delayed = nullptr;
        if (!_delays || _delayed || !candidates.isCurrentFirst)
            return;
        Task * const current = candidates.option[0].thread;
        if (_random.below(current->hasReleased ? _delays / AFTER_RELEASE : _delays))
            return;
        _delayed = current;
        _delayedUntil = decisions + 1 + _random.below(LONGEST * _delays);
    }

    std::uint32_t weightOf(Option const &option) const
    {
        if (option.what == Option::CLOCK)
            return _clockWeight;
        if (option.what == Option::STRAY)
            return _haste / 16;
        // A thread that is held back hardly ever runs if another can. If none can, time may advance
        // first.
        return option.thread == _delayed ? 1 : _haste / 2;
    }

    Random _random;
    std::uint32_t _haste = 0;
    std::uint32_t _clockWeight = 1;
    /// One in so many decisions begins a delay, or 0 if none does.
    std::uint32_t _delays = 0;
    Task *_delayed = nullptr;
    std::uint32_t _delayedUntil = 0;
};

/// Random priorities, after Burckhardt, Kothari, Musuvathi and Nagarakatte, "A randomized scheduler
/// with probabilistic guarantees of finding bugs", 2010. With n threads and k steps, a fault that
/// needs d orderings is found with a probability of at least 1 / (n * k^(d-1)). Behind a release, a
/// change is more likely.
class PriorityChoice final : public Strategy
{
public:
    void begin(Options const &options, Record &) override
    {
        _random = Random(options.seed);
        _haste = std::max(options.haste >> _random.below(4), MOST_HASTE);
        _changes = options.depth > MAX_DEPTH ? MAX_DEPTH : options.depth ? options.depth - 1 : 0;
        for (unsigned i = 0; i < _changes; ++i)
            _change[i] = 1 + _random.below(options.length ? options.length : 1);
        _releases = _random.below(2) ? 0 : RELEASES;
        _clock = draw();
        _lowest = 0;
        _isBehind = false;
    }

    void started(Task &thread) override { thread.priority = draw(); }

    unsigned choose(Candidates const &candidates, Record &record) override
    {
        Task *current = candidates.isCurrentFirst ? candidates.option[0].thread : nullptr;
        bool isTired = current && candidates.hasYielded;
        for (unsigned i = 0; i < _changes; ++i)
            if (_change[i] <= record.decisions) {
                isTired = isTired || current;
                _change[i] = UINT32_MAX;
            }
        if (_releases && current && current->hasReleased && _random.below(_releases) == 0)
            isTired = true;
        if (isTired)
            current->priority = --_lowest;
        unsigned best = 0;
        for (unsigned i = 1; i < candidates.count; ++i)
            if (priorityOf(candidates.option[i]) > priorityOf(candidates.option[best]))
                best = i;
        // The clock and wake-ups without a cause share one priority, which drops after each use.
        if (candidates.option[best].what != Option::RUN)
            _clock = --_lowest;
        if (_random.below(_haste) == 0)
            _clock = draw();
        return best;
    }

    /// The oldest value, for a few loads that follow each other.
    unsigned chooseStore(unsigned count, Record const &) override
    {
        _isBehind = _random.below(_isBehind ? STAYS_BEHIND : FALLS_BEHIND) == 0;
        return _isBehind ? count - 1 : 0;
    }

private:
    static constexpr std::uint32_t FALLS_BEHIND = 12;
    static constexpr std::uint32_t STAYS_BEHIND = 2;
    static constexpr unsigned MAX_DEPTH = 16;
    /// If time advanced more often, a thread that wakes at intervals could keep others from running.
    static constexpr std::uint32_t MOST_HASTE = 64;
    /// In half of the runs, one in so many releases is followed by a change of priority.
    static constexpr std::uint32_t RELEASES = 16;

    std::int64_t draw() { return static_cast<std::int64_t>(_random.next() >> 2); }

    std::int64_t priorityOf(Option const &option) const
    {
        return option.what == Option::RUN ? option.thread->priority : _clock;
    }

    Random _random;
    std::uint32_t _change[MAX_DEPTH] = {};
    unsigned _changes = 0;
    std::uint32_t _releases = 0;
    std::uint32_t _haste = 0;
    std::int64_t _clock = 0;
    std::int64_t _lowest = 0;
    bool _isBehind = false;
};

/// The decisions that an exhaustive search has given, then the running thread as long as it can
/// run, and the newest values.
class ScriptedChoice final : public Strategy
{
public:
    unsigned choose(Candidates const &candidates, Record &record) override
    {
        return isGiven(record) ? given(candidates.count, record) : firstAllowed(candidates);
    }

    unsigned chooseStore(unsigned count, Record const &record) override
    {
        return isGiven(record) ? given(count, record) : 0;
    }

private:
    static bool isGiven(Record const &record) { return record.decisions < record.scripted; }

    static unsigned given(unsigned count, Record const &record)
    {
        unsigned const chosen = record.decision[record.decisions].chosen;
        if (chosen >= count)
            find("script", "decision %u of the script is %u of %u", record.decisions, chosen,
                 count);
        return chosen;
    }
};

constinit RandomChoice randomChoice;
constinit PriorityChoice priorityChoice;
constinit ScriptedChoice scriptedChoice;

} // namespace

Strategy &strategyFor(Choice choice)
{
    switch (choice) {
    case Choice::PRIORITY:
        return priorityChoice;
    case Choice::SCRIPT:
        return scriptedChoice;
    default:
        return randomChoice;
    }
}

} // namespace ZvPlatform::Simulated
