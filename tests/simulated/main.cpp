// Main program of the simulated tests and of `./run explore`.
#include "explore/commandLine.private.h"
#include "simulated/scenario.h"

#include <gtest/gtest.h>

#include <string>

namespace Zv::Simulated {

namespace {

Nursery *nursery = nullptr;

constexpr std::uint64_t FIRST_SEED = Explorer::FIRST_SEED;
#ifdef ZV_RACES
constexpr unsigned REPETITIONS = 0; // the forms without the check compare runs
#else
constexpr unsigned REPETITIONS = 5;
#endif

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
        explorer.byAll(tally, _scenario, {}, FIRST_SEED);
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
        std::string command = COMMAND;
        command += " --replay '";
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

} // namespace

Nursery &getNursery()
{
    return *nursery;
}

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
    prepareProcess(argv);
    nursery = new Nursery;
    // The arguments of `./run explore` follow.
    if (argc > 1 && std::string(argv[1]) == "--explore")
        return runCommandLine(*nursery, argc - 1, argv + 1, {COMMAND, 1000});
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
