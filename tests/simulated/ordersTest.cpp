// Memory orders that are weakened while a program runs.
#include "explore/commandLine.private.h"
#include "simulated/scenario.h"

#include "zvbase/platform/shared.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

using namespace Zv::Simulated;
using ZvPlatform::Shared;

namespace {

constexpr unsigned SCHEDULES = 200;

/// A message and the flag that announces it.
class Letter
{
public:
    void write() { _message.store(1, ZvPlatform::Order::RELAXED); }
    void check() const { HOLDS(_message.load(ZvPlatform::Order::RELAXED) == 1); }

    static constexpr int PUBLISHES = __LINE__ + 1;
    void announce() { _isThere.store(1, ZvPlatform::Order::RELEASE); }

    static constexpr int READS = __LINE__ + 1;
    bool isThere() const { return _isThere.load(ZvPlatform::Order::ACQUIRE) == 1; }

    static constexpr int TAKES = __LINE__ + 5;
    /// Returns whether the letter is there. One caller takes it.
    bool take()
    {
        int one = 1;
        return _isThere.compare_exchange_strong(one, 2, ZvPlatform::Order::ACQ_REL,
                                                ZvPlatform::Order::ACQUIRE) ||
               one == 2;
    }

private:
    Shared<int> _message{0};
    Shared<int> _isThere{0};
};

} // namespace

SIMULATED(LetterIsRead, {.schedules = SCHEDULES})
{
    Letter letter;
    Worker const writer("writer", [&] {
        letter.write();
        letter.announce();
    });
    if (letter.isThere())
        letter.check();
}

// The second of two takers learns by its failure that the letter is there.
SIMULATED(LetterIsTakenOnce, {.schedules = SCHEDULES})
{
    Letter letter;
    Worker const writer("writer", [&] {
        letter.write();
        letter.announce();
    });
    Worker const other("other", [&] {
        if (letter.take())
            letter.check();
    });
    if (letter.take())
        letter.check();
}

namespace ZvTest {

namespace {

unsigned numberOf(std::string const &name)
{
    auto const &all = getScenarios();
    auto const found =
        std::find_if(all.begin(), all.end(), [&](Scenario const &one) { return one.name == name; });
    return static_cast<unsigned>(found - all.begin());
}

std::string placeOf(int line, std::string const &operation)
{
    return "tests/simulated/ordersTest.cpp:" + std::to_string(line) + ':' + operation;
}

/// Returns what a program finds if an order is weakened, or an empty text.
std::string findWith(std::string const &program, std::string const &weakening)
{
    Explorer explorer(getNursery(), "explore");
    auto const parsed = weakeningFromText(weakening);
    EXPECT_TRUE(parsed) << weakening;
    explorer.weaken(*parsed);
    Tally tally;
    explorer.byAll(tally, numberOf(program), SCHEDULES, Explorer::FIRST_SEED);
    EXPECT_TRUE(tally.isWeakened) << weakening;
    return tally.finding ? tally.finding->kind : "";
}

struct Outcome
{
    int status;
    std::string output;
    std::string errors;
};

Outcome runWith(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), "explore");
    std::vector<char *> pointers;
    for (std::string &argument : arguments)
        pointers.push_back(argument.data());
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    int const status = runCommandLine(getNursery(), static_cast<int>(pointers.size()),
                                      pointers.data(), {"explore", {}});
    std::fflush(stdout);
    std::string const output = testing::internal::GetCapturedStdout();
    return {status, output, testing::internal::GetCapturedStderr()};
}

} // namespace

TEST(WeakenedOrders, AreFoundOneAtATime)
{
    EXPECT_EQ(findWith("LetterIsRead", placeOf(Letter::PUBLISHES, "store")), "does not hold");
    EXPECT_EQ(findWith("LetterIsRead", placeOf(Letter::READS, "load=relaxed")), "does not hold");
    // As it is named.
    EXPECT_EQ(findWith("LetterIsRead", placeOf(Letter::READS, "load=acquire")), "");
}

TEST(WeakenedOrders, HaveTheOrderThatIsAskedFor)
{
    // The taker must acquire, and need not release.
    EXPECT_EQ(findWith("LetterIsTakenOnce", placeOf(Letter::TAKES, "compare_exchange=acquire")),
              "");
    EXPECT_EQ(findWith("LetterIsTakenOnce", placeOf(Letter::TAKES, "compare_exchange=release")),
              "does not hold");
}

TEST(WeakenedOrders, OfAFailureAreTheirOwn)
{
    EXPECT_EQ(findWith("LetterIsTakenOnce", placeOf(Letter::TAKES, "failure")), "does not hold");
}

TEST(WeakenedOrders, ReportNamesThem)
{
    auto const [status, output, errors] =
        runWith({"--test", "LetterIsRead", "--schedules", "200", "--weaken",
                 placeOf(Letter::PUBLISHES, "store")});
    EXPECT_EQ(status, 1) << errors;
    std::string const again = "explore --weaken " + placeOf(Letter::PUBLISHES, "store=relaxed") +
                              " --replay 'LetterIsRead:";
    ASSERT_NE(output.find(again), output.npos) << output;
    std::size_t const begin =
        output.find(again) + again.size() - std::string("LetterIsRead:").size();
    std::string const schedule = output.substr(begin, output.find('\'', begin) - begin);
    EXPECT_NE(runWith({"--weaken", placeOf(Letter::PUBLISHES, "store"), "--replay", schedule})
                  .output.find("does not hold\n"),
              output.npos);
    EXPECT_NE(runWith({"--replay", schedule}).output.find("nothing was found\n"), output.npos);
}

TEST(WeakenedOrders, PlaceMustBeReached)
{
    std::vector<std::string> arguments = {"--test", "LetterIsRead", "--schedules",
                                          "5",      "--weaken",     placeOf(1, "store")};
    auto outcome = runWith(arguments);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.errors,
              "explore: nothing that was run reaches " + placeOf(1, "store=relaxed") + "\n");
    arguments.back() = placeOf(Letter::PUBLISHES, "load");
    EXPECT_EQ(runWith(arguments).status, 2);
    arguments.back() =
        "sts/simulated/ordersTest.cpp:" + std::to_string(Letter::PUBLISHES) + ":store";
    EXPECT_EQ(runWith(arguments).status, 2);
    EXPECT_EQ(
        runWith({"--weaken", placeOf(1, "store"), "--replay", "LetterIsRead:random:seed=1"}).status,
        2);
}

TEST(WeakenedOrders, PlaceIsChecked)
{
    for (std::string const place :
         {"", "a.cpp", "a.cpp:1", ":1:load", "a.cpp::load", "a.cpp:0:load", "a.cpp:-1:load",
          "a.cpp:1x:load", "a.cpp:1:", "a.cpp:1:load=", "a.cpp:1:load=strong",
          "a.cpp:1:an_operation_of_such_a_length"}) {
        auto const outcome = runWith({"--weaken", place});
        EXPECT_EQ(outcome.status, 2) << place;
        EXPECT_EQ(outcome.errors, "explore: this is no place of a memory order: " + place + "\n");
    }
    std::string place(200, 'a');
    place += ":1:load";
    EXPECT_FALSE(weakeningFromText(place));
    auto const whole = weakeningFromText("src/a.cpp:12:fetch_add=acq_rel");
    ASSERT_TRUE(whole);
    EXPECT_EQ(toText(*whole), "src/a.cpp:12:fetch_add=acq_rel");
}

TEST(WeakenedOrders, AreListed)
{
    auto const [status, output, errors] =
        runWith({"--test", "LetterIsRead", "--schedules", "50", "--orders"});
    EXPECT_EQ(status, 0) << errors;
    EXPECT_NE(output.find("\n    " + placeOf(Letter::PUBLISHES, "store=release, used\n")),
              output.npos)
        << output;
    EXPECT_NE(output.find("\n    " + placeOf(Letter::READS, "load=acquire, used\n")), output.npos);
    EXPECT_EQ(output.find(placeOf(Letter::TAKES, "")), output.npos);
}

} // namespace ZvTest
