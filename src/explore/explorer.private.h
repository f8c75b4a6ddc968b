// Explorer: runs programs under many schedules (extenders).
#pragma once

#include "explore/nursery.private.h"

#include <map>
#include <optional>
#include <string>
#include <unordered_set>

namespace Zv::Simulated {

/// The command that explores the programs of the tests.
#ifdef ZV_KERNEL_SIMULATED
#define ZV_EXPLORE_KERNEL " --kernel"
#else
#define ZV_EXPLORE_KERNEL ""
#endif
#ifdef ZV_RACES
#define ZV_EXPLORE_RACES " --races"
#else
#define ZV_EXPLORE_RACES ""
#endif
inline constexpr char COMMAND[] = "./run explore" ZV_EXPLORE_KERNEL ZV_EXPLORE_RACES;

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

/// Returns a text such as `src/zvbase/lgRing.cpp:40:store=relaxed`.
std::string toText(Weakening const &);
/// Returns the weakening of such a text. Without an order, it is relaxed. Returns nothing if the
/// text is not one.
std::optional<Weakening> weakeningFromText(std::string const &);

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
    bool isWeakened = false; ///< a schedule has reached the order that is weakened
    std::unordered_set<std::uint64_t> digests;
    /// The memory orders that were reached, if they are listed, and whether they were of use.
    std::map<std::string, bool> orders;
    std::optional<Finding> finding;

    std::size_t getNbDistinct() const { return digests.size(); }
};

/// Schedules of one program by one random strategy, with one seed after the other.
struct Series
{
    std::uint64_t seed = 1;      ///< the first one
    std::uint64_t done = 0;      ///< number of schedules that were run
    std::uint64_t decisions = 0; ///< in all of them
};

class Explorer
{
public:
    static constexpr std::uint64_t FIRST_SEED = 1;

    /// `command` is what runs these programs, for the texts of failures.
    explicit Explorer(Nursery &nursery, std::string command = COMMAND)
        : _nursery(nursery), _command(std::move(command))
    {}

    /// Weakens a memory order in all runs that follow.
    void weaken(Weakening const &weakening) { _weakening = weakening; }
    /// Returns whether the schedule of a finding finds something if no order is weakened.
    bool findsUnweakened(Finding const &);
    /// Returns whether the last run has reached the order that is weakened.
    bool hasWeakened() const { return _nursery.getRun().record.isWeakened; }
    /// Lets all runs that follow list the memory orders that they reach.
    void listOrders() { _listsOrders = true; }

    /// Runs at most `schedules` schedules by a random strategy, until there is a finding.
    void byChance(Tally &, unsigned scenario, Choice, unsigned schedules, std::uint64_t seed);
    /// Runs the next `schedules` schedules of a series, until there is a finding.
    void goOn(Tally &, unsigned scenario, Choice, Series &, unsigned schedules);
    /// Runs all schedules with at most `preemptions` pre-emptions, until there is a finding or
    /// `schedules` of them have been run.
    void byExhaustion(Tally &, unsigned scenario, int preemptions, unsigned schedules);
    /// Lets the first call that can be made to fail do so, then the second, and so on, in
    /// `schedules` schedules each, until there is a finding.
    void byRefusal(Tally &, unsigned scenario, unsigned schedules, std::uint64_t seed);
    /// Does all of these that the settings of the program ask for. The number of schedules is that
    /// of the settings if none is given. No call fails while orders are weakened or listed, because
    /// that takes most of the time.
    void byAll(Tally &, unsigned scenario, std::optional<unsigned> schedules, std::uint64_t seed);
    /// Runs each seed twice. If the two runs differ, this is a finding.
    void byRepetition(Tally &, unsigned scenario, unsigned schedules, std::uint64_t seed);

    /// Runs a schedule again. Returns all of its steps, and the finding.
    std::string replay(Schedule const &);
    /// Returns the text of a failure: the finding, how to run it again, and the last steps.
    std::string tell(Finding const &);

    /// The process in which a schedule runs.
    enum class Process
    {
        USED,  ///< one that may have run other schedules
        NEW,   ///< a new one
        TRACED ///< a new one, which writes all steps
    };

    /// Runs a schedule. If it finds something in a process that was used, it runs again in a new
    /// one, which must find the same.
    std::optional<Finding> run(Tally &, Schedule const &, Process = Process::USED);

private:
    std::optional<Finding> runOnce(Schedule const &, Process);

    Nursery &_nursery;
    std::string _command;
    Weakening _weakening;
    bool _listsOrders = false;
};

/// Returns the path relative to the project's root if the file is in `src` or `tests`, the path of
/// an application's file, or an empty text for a file of the system.
std::string shortPath(std::string const &path);
/// Returns the text with functions and lines in place of its addresses.
std::string withSymbols(std::string const &text);

} // namespace Zv::Simulated
