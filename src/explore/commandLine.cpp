#include "explore/commandLine.private.h"

#include "explore/search.private.h"

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
  --record FILE      search for faults with many seeds, and keep in the file what was done. A search that was
                     interrupted continues with the same command. Programs with planted faults do not run.
  --check            run each seed twice, and compare the two runs
  --brief            name the schedule of a finding, without a report
  --replay SCHEDULE  run one schedule again, step by step
  --orders           run each program, and list the memory orders of operations on shared words that it reaches. An
                     order is used if an operation has learnt by it what another thread has done.
  --weaken PLACE     weaken one of these orders, such as src/zvbase/lgRing.cpp:41:store, to relaxed, or to the one that
                     follows it, as in =acquire. Programs with planted faults do not run.
  --help             this text
)help";

struct Wishes
{
    std::optional<unsigned> schedules;
    std::string test;
    std::uint64_t seed = Explorer::FIRST_SEED;
    std::string replay;
    std::string record;
    std::optional<Weakening> weakening;
    bool listsOrders = false;
    bool isBrief = false;
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

Weakening parseWeakening(std::string const &text)
{
    auto const weakening = weakeningFromText(text);
    if (!weakening)
        throw std::invalid_argument("this is no place of a memory order: " + text);
    return *weakening;
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
        else if (option == "--record")
            wishes.record = value();
        else if (option == "--brief")
            wishes.isBrief = true;
        else if (option == "--orders")
            wishes.listsOrders = true;
        else if (option == "--weaken")
            wishes.weakening = parseWeakening(value());
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

std::vector<unsigned> choose(Wishes const &wishes)
{
    std::vector<unsigned> chosen = choose(wishes.test);
    // A planted fault says nothing of the orders, and is not searched for.
    if (wishes.weakening || wishes.listsOrders || !wishes.record.empty())
        std::erase_if(chosen, [](unsigned index) { return getScenarios()[index].fault.finding; });
    if (chosen.empty())
        throw std::invalid_argument("there is no program \"" + wishes.test + "\"");
    return chosen;
}

double stepsPerSecond(std::uint64_t steps, double seconds)
{
    return static_cast<double>(steps) / (seconds > 0 ? seconds : 1);
}

/// Returns whether there is a finding that is not expected, or the expected one was not found in
/// the number of schedules that the program chose for it.
bool exploreOne(Explorer &explorer, Tally &tally, unsigned index, Wishes const &wishes)
{
    Scenario const &scenario = getScenarios()[index];
    if (wishes.isChecking)
        explorer.byRepetition(tally, index, wishes.schedules.value_or(scenario.settings.schedules),
                              wishes.seed);
    else
        explorer.byAll(tally, index, wishes.schedules, wishes.seed);
    std::printf("%-44s %9llu %9zu %11llu %8.0f  %s\n", scenario.name,
                static_cast<unsigned long long>(tally.schedules), tally.getNbDistinct(),
                static_cast<unsigned long long>(tally.steps),
                stepsPerSecond(tally.steps, tally.seconds),
                tally.finding ? tally.finding->kind.c_str() : "nothing");
    for (auto const &[order, isUsed] : tally.orders)
        std::printf("    %s%s\n", order.c_str(), isUsed ? ", used" : "");
    std::fflush(stdout);
    char const * const expected = scenario.fault.finding;
    if (expected && !tally.finding && !wishes.schedules && !wishes.isChecking) {
        std::printf("%s has not found \"%s\"\n", scenario.name, expected);
        return true;
    }
    if (!tally.finding || (expected && tally.finding->kind == expected))
        return false;
    if (wishes.weakening && explorer.findsUnweakened(*tally.finding))
        std::printf("the same is found although no order is weakened\n");
    std::string const schedule = tally.finding->schedule.toText();
    std::printf("%s\n", wishes.isBrief ? (tally.finding->kind + " in " + schedule).c_str()
                                       : explorer.tell(*tally.finding).c_str());
    return true;
}

void checkWeakened(Wishes const &wishes, bool isWeakened)
{
    if (wishes.weakening && !isWeakened)
        throw std::invalid_argument("nothing that was run reaches " + toText(*wishes.weakening));
}

int explore(Explorer &explorer, Wishes const &wishes)
{
    std::vector<unsigned> const chosen = choose(wishes);
    std::printf("%-44s %9s %9s %11s %8s  %s\n", "program", "schedules", "distinct", "steps",
                "steps/s", "found");
    bool found = false;
    bool isWeakened = false;
    Tally total;
    for (unsigned const index : chosen) {
        Tally tally;
        found = exploreOne(explorer, tally, index, wishes) || found;
        isWeakened = isWeakened || tally.isWeakened;
        if (wishes.weakening && found)
            return FOUND;
        total.schedules += tally.schedules;
        total.steps += tally.steps;
        total.seconds += tally.seconds;
    }
    std::printf("%llu schedules, %llu steps, %.0f steps/s\n",
                static_cast<unsigned long long>(total.schedules),
                static_cast<unsigned long long>(total.steps),
                stepsPerSecond(total.steps, total.seconds));
    checkWeakened(wishes, isWeakened);
    return found ? FOUND : 0;
}

int search(Explorer &explorer, Wishes const &wishes, unsigned schedules)
{
    if (wishes.isChecking || wishes.weakening || wishes.listsOrders)
        throw std::invalid_argument("--record goes with --schedules, --seed and --test alone");
    Search search(wishes.record, getBuild(), wishes.seed);
    search.run(explorer, choose(wishes), schedules);
    std::fputs(search.summary().c_str(), stdout);
    return search.hasFound() ? FOUND : 0;
}

int replay(Explorer &explorer, Wishes const &wishes)
{
    auto const schedule = Schedule::fromText(wishes.replay);
    if (!schedule)
        throw std::invalid_argument("this is no schedule: " + wishes.replay);
    std::string const text = explorer.replay(*schedule);
    checkWeakened(wishes, explorer.hasWeakened());
    std::fputs(text.c_str(), stdout);
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
        if (wishes.weakening)
            explorer.weaken(*wishes.weakening);
        if (wishes.listsOrders)
            explorer.listOrders();
        if (!wishes.record.empty())
            return search(explorer, wishes, wishes.schedules.value_or(1000));
        return wishes.replay.empty() ? explore(explorer, wishes) : replay(explorer, wishes);
    } catch (std::invalid_argument const &failure) {
        std::fprintf(stderr, "%s: %s\n", line.command.c_str(), failure.what());
        return WRONG_ARGUMENTS;
    }
}

} // namespace Zv::Simulated
