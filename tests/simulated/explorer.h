// Takes scenarios through schedules.
#pragma once

#include "simulated/nursery.h"

#include <optional>
#include <string>
#include <unordered_set>

namespace Zv::Simulated {

/// One schedule in words, from which it can be run again: `Name:random:seed=7:hasty`.
struct Schedule
{
    unsigned scenario = 0;
    Options options;
    std::vector<std::uint8_t> script;

    std::string toText() const;
    /// Nothing where the text is none.
    static std::optional<Schedule> fromText(std::string const &);
};

struct Finding
{
    Schedule schedule;
    std::string kind;
    std::string report;
};

/// What a number of schedules came to.
struct Tally
{
    std::uint64_t schedules = 0;
    std::uint64_t steps = 0;
    std::uint64_t switches = 0;
    double seconds = 0;
    bool isComplete = false; ///< the exhaustive search came to its end
    std::unordered_set<std::uint64_t> digests;
    std::optional<Finding> finding;

    std::size_t getNbDistinct() const { return digests.size(); }
};

class Explorer
{
public:
    explicit Explorer(Nursery &nursery) : _nursery(nursery) {}

    /// So many schedules by chance, until something is found.
    void byChance(Tally &, unsigned scenario, Choice, unsigned schedules, std::uint64_t seed);
    /// All schedules with at most so many pre-emptions, until something is found or the number is used up.
    void byExhaustion(Tally &, unsigned scenario, int preemptions, unsigned schedules);
    /// Makes the first call of those that may fail do so, then the second, with a few schedules for each.
    void byRefusal(Tally &, unsigned scenario, unsigned schedules, std::uint64_t seed);
    /// Runs seeds twice. A finding where the two runs differ.
    void byRepetition(Tally &, unsigned scenario, unsigned schedules, std::uint64_t seed);

    /// Runs one schedule again and tells of it, step by step.
    std::string replay(Schedule const &);
    /// The text of a failure: what, how to run it again, and the last steps.
    std::string tell(Finding const &);

    std::optional<Finding> run(Tally &, Schedule const &, bool isTraced = false);

private:
    Nursery &_nursery;
};

/// Puts functions and lines in the place of the addresses in a text.
std::string withSymbols(std::string const &text);

} // namespace Zv::Simulated
