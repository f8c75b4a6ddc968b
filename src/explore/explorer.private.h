// Explorer: runs programs under many schedules (extenders).
#pragma once

#include "explore/nursery.private.h"

#include <optional>
#include <string>
#include <unordered_set>

namespace Zv::Simulated {

/// The command that runs these programs.
#ifdef ZV_KERNEL_SIMULATED
inline constexpr char EXPLORE[] = "./run explore --kernel";
#else
inline constexpr char EXPLORE[] = "./run explore";
#endif

/// A schedule. It can be run again from its text, such as `Name:random:seed=7:hasty`.
struct Schedule
{
    unsigned scenario = 0;
    Options options;
    std::vector<std::uint8_t> script;

    std::string toText() const;
    /// Returns nothing if the text is not a schedule.
    static std::optional<Schedule> fromText(std::string const &);
};

struct Finding
{
    Schedule schedule;
    std::string kind;
    std::string report;
};

/// Results of a number of schedules.
struct Tally
{
    std::uint64_t schedules = 0;
    std::uint64_t steps = 0;
    std::uint64_t switches = 0;
    double seconds = 0;
    bool isComplete = false; ///< the exhaustive search has run all schedules
    std::unordered_set<std::uint64_t> digests;
    std::optional<Finding> finding;

    std::size_t getNbDistinct() const { return digests.size(); }
};

class Explorer
{
public:
    static constexpr std::uint64_t FIRST_SEED = 1;

    /// `command` is what runs these programs, for the texts of failures.
    explicit Explorer(Nursery &nursery, std::string command = EXPLORE)
        : _nursery(nursery), _command(std::move(command))
    {}

    /// Runs at most `schedules` schedules by a random strategy, until there is a finding.
    void byChance(Tally &, unsigned scenario, Choice, unsigned schedules, std::uint64_t seed);
    /// Runs all schedules with at most `preemptions` pre-emptions, until there is a finding or
    /// `schedules` of them have been run.
    void byExhaustion(Tally &, unsigned scenario, int preemptions, unsigned schedules);
    /// Lets the first call that can be made to fail do so, then the second, and so on, in
    /// `schedules` schedules each, until there is a finding.
    void byRefusal(Tally &, unsigned scenario, unsigned schedules, std::uint64_t seed);
    /// Does all of these that the settings of the program ask for. The number of schedules is that
    /// of the settings if none is given.
    void byAll(Tally &, unsigned scenario, std::optional<unsigned> schedules, std::uint64_t seed);
    /// Runs each seed twice. If the two runs differ, this is a finding.
    void byRepetition(Tally &, unsigned scenario, unsigned schedules, std::uint64_t seed);

    /// Runs a schedule again. Returns all of its steps, and the finding.
    std::string replay(Schedule const &);
    /// Returns the text of a failure: the finding, how to run it again, and the last steps.
    std::string tell(Finding const &);

    std::optional<Finding> run(Tally &, Schedule const &, bool isTraced = false);

private:
    Nursery &_nursery;
    std::string _command;
};

/// Returns the text with functions and lines in place of its addresses.
std::string withSymbols(std::string const &text);

} // namespace Zv::Simulated
