// A search that is interrupted and continues.
#include "explore/search.private.h"
#include "simulated/scenario.h"

#include "zvbase/platform/shared.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <stdexcept>
#include <string>
#include <unistd.h>

using namespace Zv::Simulated;

KNOWN_FAULT(IsFoundInALaterSchedule,
            (Fault{.finding = "does not hold", .byRandom = 100, .byPriority = 100}), {})
{
    ZvPlatform::Shared<int> turn{0};
    int last = 0;
    auto const act = [&](int number) {
        int const former = turn.exchange(number, ZvPlatform::Order::ACQ_REL);
        step("between the two");
        last = former;
    };
    Worker other("other", [&] { act(2); });
    act(1);
    other.join();
    HOLDS(last != 0);
}

namespace {

/// File of a search, which is removed at the end.
class SearchTest : public testing::Test
{
public:
    ~SearchTest() override
    {
        ::unlink(path.c_str());
        ::unlink(other.c_str());
    }

    static std::string textOf(std::string const &file)
    {
        std::ifstream stream(file);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    std::string const path = testing::TempDir() + "search." + std::to_string(::getpid());
    std::string const other = path + ".other";
    std::vector<unsigned> const programs = {
        Schedule::fromText("MemoryIsTheSameInEachSchedule")->scenario};
    Explorer explorer{getNursery()};
};

} // namespace

TEST_F(SearchTest, ContinuesAsIfItHadNotBeenInterrupted)
{
    Search whole(path, "build", 7);
    whole.run(explorer, programs, 40);
    EXPECT_FALSE(whole.hasFound());
    {
        Search begun(other, "build", 7);
        begun.run(explorer, programs, 15);
        EXPECT_EQ(begun.getParts().at(0).series.done, 15u);
    }
    Search continued(other, "build", 7);
    continued.run(explorer, programs, 40);
    EXPECT_EQ(continued.summary(), whole.summary());
    EXPECT_EQ(textOf(other), textOf(path));
    EXPECT_NE(whole.summary().find("1 programs, priority: 40 to 40 seeds each, from seed 7 on"),
              std::string::npos);
}

TEST_F(SearchTest, IsThatOfTheOrdinaryExploration)
{
    Search search(path, "build", Explorer::FIRST_SEED);
    search.run(explorer, programs, 40);
    Tally tally;
    explorer.byChance(tally, programs[0], Choice::PRIORITY, 40, Explorer::FIRST_SEED);
    EXPECT_EQ(search.getParts().at(1).steps, tally.steps);
}

TEST_F(SearchTest, KeepsAFindingAndGoesOnWithTheOtherPrograms)
{
    std::vector<unsigned> const both = {Schedule::fromText("IsFoundInALaterSchedule")->scenario,
                                        programs[0]};
    {
        Search search(path, "build", 1);
        search.run(explorer, both, 100);
    }
    Search search(path, "build", 1);
    search.run(explorer, both, 110);
    EXPECT_TRUE(search.hasFound());
    ASSERT_EQ(search.getParts().size(), 4u);
    Search::Part const &found = search.getParts()[0];
    EXPECT_EQ(found.kind, "does not hold");
    EXPECT_LE(found.series.done, 100u);
    EXPECT_EQ(search.getParts()[2].series.done, 110u);
    auto const schedule = Schedule::fromText(found.finding);
    ASSERT_TRUE(schedule);
    Tally tally;
    EXPECT_TRUE(explorer.run(tally, *schedule, Explorer::Process::NEW));
    EXPECT_NE(search.summary().find("does not hold in IsFoundInALaterSchedule:random:seed="),
              std::string::npos);
}

TEST_F(SearchTest, IsOfOneBuildAndOneFirstSeed)
{
    Search search(path, "build", 1);
    search.run(explorer, programs, 1);
    EXPECT_THROW(Search(path, "another build", 1), std::invalid_argument);
    EXPECT_THROW(Search(path, "build", 2), std::invalid_argument);
}
