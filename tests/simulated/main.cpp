// Main program of the simulated tests and of `./run explore`.
#include "simulated/explorer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <execinfo.h>
#include <malloc.h>
#include <new>
#include <sched.h>
#include <sys/personality.h>
#include <unistd.h>

/// Keeps the thread sanitizer from waiting one second, at the end of each process, for threads that
/// have not ended. Killed threads never end.
extern "C" __attribute__((visibility("default"))) char const *__tsan_default_options();
char const *__tsan_default_options()
{
    return "atexit_sleep_ms=0";
}

namespace Zv::Simulated {

std::vector<Scenario> &getScenarios()
{
    static auto &scenarios = *new std::vector<Scenario>;
    return scenarios;
}

namespace {

Nursery *nursery = nullptr;

constexpr std::uint64_t FIRST_SEED = 1;
constexpr unsigned REPETITIONS = 5;
constexpr unsigned SCHEDULES_FOR_EACH_REFUSAL = 3;
/// Whether the tests run the refusals, which take most of the time. `./run explore` always does.
#ifdef ZV_KERNEL_SIMULATED
constexpr bool TRIES_REFUSALS = false;
#else
constexpr bool TRIES_REFUSALS = true;
#endif

/// Returns how many schedules the tests run by each strategy.
unsigned nbSchedules(Settings const &settings)
{
#ifdef ZV_KERNEL_SIMULATED
    return settings.onKernel ? settings.onKernel : (settings.schedules + 9) / 10;
#else
    return settings.schedules;
#endif
}

/// Test that runs a program under a fixed number of schedules.
class ScenarioTest : public testing::Test
{
public:
    explicit ScenarioTest(unsigned scenario) : _scenario(scenario) {}

    void TestBody() override
    {
        Scenario const &scenario = getScenarios()[_scenario];
        Explorer explorer(*nursery);
        if (scenario.fault.finding) {
            expectFault(explorer, scenario);
            return;
        }
        Tally tally;
        Settings const &settings = scenario.settings;
        unsigned const schedules = nbSchedules(settings);
        explorer.byChance(tally, _scenario, Choice::RANDOM, schedules, FIRST_SEED);
        explorer.byChance(tally, _scenario, Choice::PRIORITY, schedules, FIRST_SEED);
        if (settings.preemptions >= 0)
            explorer.byExhaustion(tally, _scenario, settings.preemptions, settings.exhaustive);
        if (settings.refusals && TRIES_REFUSALS)
            explorer.byRefusal(tally, _scenario, SCHEDULES_FOR_EACH_REFUSAL, FIRST_SEED);
        explorer.byRepetition(tally, _scenario, REPETITIONS, FIRST_SEED);
        if (tally.finding)
            ADD_FAILURE() << explorer.tell(*tally.finding);
    }

private:
    void expectFault(Explorer &explorer, Scenario const &scenario) const
    {
        Fault fault = scenario.fault;
#ifdef ZV_KERNEL_SIMULATED
        // The steps are smaller, so a fault takes more schedules. One strategy is enough.
        if (fault.byRandom && fault.byPriority) {
            Tally tally;
            for (Choice choice : {Choice::RANDOM, Choice::PRIORITY})
                explorer.byChance(tally, _scenario, choice, 10 * fault.byPriority, FIRST_SEED);
            ASSERT_TRUE(tally.finding) << "not found in " << tally.schedules;
            EXPECT_EQ(fault.finding, tally.finding->kind) << tally.finding->report;
            return;
        }
        fault.byExhaustion = 0;
#endif
        auto const expect = [&](char const *how, Tally const &tally) {
            ASSERT_TRUE(tally.finding) << how << ": not found in " << tally.schedules;
            EXPECT_EQ(fault.finding, tally.finding->kind) << how << ": " << tally.finding->report;
            RecordProperty(how, static_cast<int>(tally.schedules));
            expectAgain(explorer, *tally.finding, fault.text);
        };
        if (fault.byRandom) {
            Tally tally;
            explorer.byChance(tally, _scenario, Choice::RANDOM, fault.byRandom, FIRST_SEED);
            expect("random", tally);
        }
        if (fault.byPriority) {
            Tally tally;
            explorer.byChance(tally, _scenario, Choice::PRIORITY, fault.byPriority, FIRST_SEED);
            expect("priority", tally);
        }
        if (fault.byExhaustion) {
            Tally tally;
            explorer.byExhaustion(tally, _scenario, scenario.settings.preemptions,
                                  fault.byExhaustion);
            expect("exhaustion", tally);
        }
        if (fault.byRefusal) {
            Tally tally;
            explorer.byRefusal(tally, _scenario, fault.byRefusal, FIRST_SEED);
            expect("refusal", tally);
        }
        if (fault.byRepetition) {
            Tally tally;
            explorer.byRepetition(tally, _scenario, fault.byRepetition, FIRST_SEED);
            expect("repetition", tally);
        }
    }

    /// Expects that the schedule in the text of a failure reproduces the finding, and that the text
    /// contains another one.
    static void expectAgain(Explorer &explorer, Finding const &finding, char const *expected)
    {
        if (finding.kind == "not deterministic")
            return;
        std::string const text = explorer.tell(finding);
        EXPECT_NE(text.find(expected), text.npos) << expected << "\n" << text;
        std::string const command = REPLAY;
        std::size_t const begin = text.find(command) + command.size();
        ASSERT_NE(std::string::npos, text.find(command)) << text;
        auto const schedule =
            Schedule::fromText(text.substr(begin, text.find('\'', begin) - begin));
        ASSERT_TRUE(schedule) << text;
        Tally tally;
        auto const again = explorer.run(tally, *schedule);
        ASSERT_TRUE(again) << text;
        EXPECT_EQ(finding.kind, again->kind);
        EXPECT_EQ(finding.report, again->report);
    }

    unsigned _scenario;
};

// ---- ./run explore.

struct Wishes
{
    unsigned schedules = 1000;
    std::string test;
    std::uint64_t seed = FIRST_SEED;
    std::string replay;
    bool isExploring = false;
    bool isChecking = false;
};

void exploreOne(Explorer &explorer, unsigned index, Wishes const &wishes, unsigned &found)
{
    Scenario const &scenario = getScenarios()[index];
    Tally tally;
    if (wishes.isChecking) {
        explorer.byRepetition(tally, index, wishes.schedules, wishes.seed);
    } else {
        explorer.byChance(tally, index, Choice::RANDOM, wishes.schedules, wishes.seed);
        explorer.byChance(tally, index, Choice::PRIORITY, wishes.schedules, wishes.seed);
        if (scenario.settings.preemptions >= 0)
            explorer.byExhaustion(tally, index, scenario.settings.preemptions, wishes.schedules);
        if (scenario.settings.refusals)
            explorer.byRefusal(tally, index, SCHEDULES_FOR_EACH_REFUSAL, wishes.seed);
    }
    std::printf("%-44s %9llu %9zu %11llu %8.0f  %s\n", scenario.name,
                static_cast<unsigned long long>(tally.schedules), tally.getNbDistinct(),
                static_cast<unsigned long long>(tally.steps),
                static_cast<double>(tally.steps) / (tally.seconds > 0 ? tally.seconds : 1),
                tally.finding ? tally.finding->kind.c_str() : "nothing");
    std::fflush(stdout);
    bool const isExpected =
        scenario.fault.finding && tally.finding && tally.finding->kind == scenario.fault.finding;
    if (tally.finding && !isExpected)
        std::printf("%s\n", explorer.tell(*tally.finding).c_str());
    found += tally.finding && !isExpected;
}

int explore(Wishes const &wishes)
{
    Explorer explorer(*nursery);
    unsigned found = 0;
    unsigned matching = 0;
    std::printf("%-44s %9s %9s %11s %8s  %s\n", "program", "schedules", "distinct", "steps",
                "steps/s", "found");
    auto const &scenarios = getScenarios();
    bool const isWhole = std::any_of(scenarios.begin(), scenarios.end(),
                                     [&](Scenario const &one) { return one.name == wishes.test; });
    for (unsigned i = 0; i < scenarios.size(); ++i)
        if (isWhole ? scenarios[i].name == wishes.test
                    : std::strstr(scenarios[i].name, wishes.test.c_str()) != nullptr) {
            ++matching;
            exploreOne(explorer, i, wishes, found);
        }
    if (matching == 0)
        std::fprintf(stderr, "there is no program of that name\n");
    return found || !matching;
}

int replay(std::string const &text)
{
    auto const schedule = Schedule::fromText(text);
    if (!schedule) {
        std::fprintf(stderr, "this is no schedule: %s\n", text.c_str());
        return 1;
    }
    std::fputs(Explorer(*nursery).replay(*schedule).c_str(), stdout);
    return 0;
}

Wishes parse(int argc, char **argv)
{
    Wishes wishes;
    for (int i = 1; i < argc; ++i) {
        std::string const argument = argv[i];
        char const * const value = i + 1 < argc ? argv[i + 1] : "";
        if (argument == "--explore")
            wishes.isExploring = true;
        else if (argument == "--check")
            wishes.isChecking = true;
        else if (argument == "--schedules")
            wishes.schedules = static_cast<unsigned>(std::strtoul(value, nullptr, 10));
        else if (argument == "--test")
            wishes.test = value;
        else if (argument == "--seed")
            wishes.seed = std::strtoull(value, nullptr, 10);
        else if (argument == "--replay")
            wishes.replay = value;
    }
    return wishes;
}

// ---- Processes that are the same each time.

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

Enter::Enter(char const *suite, Scenario const &scenario, char const *file, int line)
{
#ifdef ZV_KERNEL_SIMULATED
    if (scenario.settings.notOnKernel)
        return;
#endif
    auto const index = static_cast<unsigned>(getScenarios().size());
    getScenarios().push_back(scenario);
    testing::RegisterTest(suite, scenario.name, nullptr, nullptr, file, line,
                          [index]() -> testing::Test * { return new ScenarioTest(index); });
}

} // namespace Zv::Simulated

int main(int argc, char **argv)
{
    using namespace Zv::Simulated;
    fixAddresses(argv);
    fixProcessor();
    ::mallopt(M_ARENA_MAX, 1);
    // The first call loads what it needs, which must not happen during a schedule.
    void *frame;
    ::backtrace(&frame, 1);
    nursery = new Nursery;
    Wishes const wishes = parse(argc, argv);
    if (!wishes.replay.empty())
        return replay(wishes.replay);
    if (wishes.isExploring)
        return explore(wishes);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
