#include "explore/commandLine.private.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <execinfo.h>
#include <malloc.h>
#include <sched.h>
#include <stdexcept>
#include <sys/personality.h>
#include <unistd.h>
#include <utility>

/// Keeps the thread sanitizer from waiting one second, at the end of each process, for threads that
/// have not ended. Killed threads never end.
extern "C" __attribute__((visibility("default"))) char const *__tsan_default_options();
char const *__tsan_default_options()
{
    return "atexit_sleep_ms=0";
}

namespace Zv::Simulated {

namespace {

constexpr int FOUND = 1;
constexpr int WRONG_ARGUMENTS = 2;

constexpr char const *HELP = R"help(usage: %s [options]

Runs programs of a few threads under many schedules, and prints a line for each. Status 1 says that one has failed. Its
report names the schedule.

  --schedules N      so many schedules of each program and strategy
  --test NAME        the program of that name, or all with that in their names
  --seed S           other schedules
  --check            run each seed twice, and compare the two runs
  --replay SCHEDULE  run one schedule again, step by step
  --help             this text
)help";

struct Wishes
{
    std::optional<unsigned> schedules;
    std::string test;
    std::uint64_t seed = Explorer::FIRST_SEED;
    std::string replay;
    bool isChecking = false;
    bool wantsHelp = false;
};

template <class Number>
Number parseNumber(std::string const &option, std::string const &text)
{
    Number number = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number == 0)
        throw std::invalid_argument(option + " takes a number from 1, not \"" + text + "\"");
    return number;
}

Wishes parse(int argc, char **argv)
{
    Wishes wishes;
    for (int i = 1; i < argc; ++i) {
        std::string const option = argv[i];
        auto const value = [&]() -> std::string {
            if (++i >= argc)
                throw std::invalid_argument(option + " takes a value");
            return argv[i];
        };
        if (option == "--check")
            wishes.isChecking = true;
        else if (option == "--help")
            wishes.wantsHelp = true;
        else if (option == "--schedules")
            wishes.schedules = parseNumber<unsigned>(option, value());
        else if (option == "--test")
            wishes.test = value();
        else if (option == "--seed")
            wishes.seed = parseNumber<std::uint64_t>(option, value());
        else if (option == "--replay")
            wishes.replay = value();
        else
            throw std::invalid_argument("unknown option " + option);
    }
    return wishes;
}

/// Returns the numbers of the programs that a name chooses: one whose whole name it is, or all that
/// contain it.
std::vector<unsigned> choose(std::string const &name)
{
    std::vector<unsigned> whole;
    std::vector<unsigned> containing;
    auto const &scenarios = getScenarios();
    for (unsigned i = 0; i < scenarios.size(); ++i) {
        if (scenarios[i].name == name)
            whole.push_back(i);
        if (std::strstr(scenarios[i].name, name.c_str()))
            containing.push_back(i);
    }
    return whole.empty() ? containing : whole;
}

/// Returns whether there is a finding that is not expected, or the expected one was not found in
/// the number of schedules that the program chose for it.
bool exploreOne(Explorer &explorer, unsigned index, Wishes const &wishes)
{
    Scenario const &scenario = getScenarios()[index];
    Tally tally;
    if (wishes.isChecking)
        explorer.byRepetition(tally, index, wishes.schedules.value_or(scenario.settings.schedules),
                              wishes.seed);
    else
        explorer.byAll(tally, index, wishes.schedules, wishes.seed);
    std::printf("%-44s %9llu %9zu %11llu %8.0f  %s\n", scenario.name,
                static_cast<unsigned long long>(tally.schedules), tally.getNbDistinct(),
                static_cast<unsigned long long>(tally.steps),
                static_cast<double>(tally.steps) / (tally.seconds > 0 ? tally.seconds : 1),
                tally.finding ? tally.finding->kind.c_str() : "nothing");
    std::fflush(stdout);
    char const * const expected = scenario.fault.finding;
    if (expected && !tally.finding && !wishes.schedules && !wishes.isChecking) {
        std::printf("%s has not found \"%s\"\n", scenario.name, expected);
        return true;
    }
    if (!tally.finding || (expected && tally.finding->kind == expected))
        return false;
    std::printf("%s\n", explorer.tell(*tally.finding).c_str());
    return true;
}

int explore(Explorer &explorer, Wishes const &wishes)
{
    std::vector<unsigned> const chosen = choose(wishes.test);
    if (chosen.empty())
        throw std::invalid_argument("there is no program \"" + wishes.test + "\"");
    std::printf("%-44s %9s %9s %11s %8s  %s\n", "program", "schedules", "distinct", "steps",
                "steps/s", "found");
    bool found = false;
    for (unsigned const index : chosen)
        found = exploreOne(explorer, index, wishes) || found;
    return found ? FOUND : 0;
}

int replay(Explorer &explorer, std::string const &text)
{
    auto const schedule = Schedule::fromText(text);
    if (!schedule)
        throw std::invalid_argument("this is no schedule: " + text);
    std::fputs(explorer.replay(*schedule).c_str(), stdout);
    return 0;
}

/// Starts the program again without random addresses. They can only be switched off before a
/// program begins.
void fixAddresses(char **argv)
{
    int const present = ::personality(0xFFFFFFFF);
    if (present & ADDR_NO_RANDOMIZE || ::personality(present | ADDR_NO_RANDOMIZE) < 0)
        return;
    ::execv("/proc/self/exe", argv);
}

void fixProcessor()
{
    cpu_set_t allowed;
    if (::sched_getaffinity(0, sizeof allowed, &allowed) != 0)
        return;
    int processor = ::sched_getcpu();
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(processor, &one);
    ::sched_setaffinity(0, sizeof one, &one);
}

} // namespace

void prepareProcess(char **argv)
{
    fixAddresses(argv);
    fixProcessor();
    ::mallopt(M_ARENA_MAX, 1);
    // The first call loads what it needs, which must not happen during a schedule.
    void *frame;
    ::backtrace(&frame, 1);
}

int runCommandLine(Nursery &nursery, int argc, char **argv, CommandLine const &line)
{
    try {
        Wishes wishes = parse(argc, argv);
        if (wishes.wantsHelp) {
            std::printf(HELP, line.command.c_str());
            return 0;
        }
        if (!wishes.schedules)
            wishes.schedules = line.schedules;
        Explorer explorer(nursery, line.command);
        return wishes.replay.empty() ? explore(explorer, wishes) : replay(explorer, wishes.replay);
    } catch (std::invalid_argument const &failure) {
        std::fprintf(stderr, "%s: %s\n", line.command.c_str(), failure.what());
        return WRONG_ARGUMENTS;
    }
}

} // namespace Zv::Simulated
