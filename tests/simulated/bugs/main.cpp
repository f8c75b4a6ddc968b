// Runs the program that reaches a known bug of the services, and expects that the bug is found. The
// services of this program have the bug. docs/simulated-tests.md describes the patches.
#include "explore/commandLine.private.h"
#include "simulated/scenario.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

using namespace Zv::Simulated;

Enter::Enter(char const *, Scenario const &scenario, char const *, int)
{
    getScenarios().push_back(scenario);
}

namespace {

/// Returns whether the expected findings, as "deadlock or does not hold", contain a kind.
bool isExpected(std::string const &expected, std::string const &kind)
{
    return (" or " + expected + " or ").find(" or " + kind + " or ") != std::string::npos;
}

int fail(std::string const &text)
{
    std::fprintf(stderr, "%s\n", text.c_str());
    return 1;
}

/// Runs at most `schedules` schedules by each strategy, the same as the tests run without the bug.
int findBug(Explorer &explorer, std::string const &program, std::string const &expected,
            unsigned schedules)
{
    auto const &scenarios = getScenarios();
    auto const found = std::find_if(scenarios.begin(), scenarios.end(),
                                    [&](Scenario const &one) { return one.name == program; });
    if (found == scenarios.end())
        return fail("there is no program \"" + program + "\"");
    if (schedules == 0 || schedules > found->settings.onKernel)
        return fail("the tests run " + std::to_string(found->settings.onKernel) +
                    " schedules of the program without the bug, so that many are the limit");
    Tally tally;
    explorer.byAll(tally, static_cast<unsigned>(found - scenarios.begin()), schedules,
                   Explorer::FIRST_SEED);
    if (!tally.finding)
        return fail("not found in " + std::to_string(tally.schedules) + " schedules");
    if (!isExpected(expected, tally.finding->kind))
        return fail("expected: " + expected + "\n" + explorer.tell(*tally.finding));
    std::printf("%s, in schedule %llu: %s\n", tally.finding->kind.c_str(),
                static_cast<unsigned long long>(tally.schedules),
                tally.finding->schedule.toText().c_str());
    return 0;
}

} // namespace

/// The arguments are the program, the findings that show the bug, and the number of schedules. With
/// `--explore` as the first argument, they are those of `./run explore`.
int main(int argc, char **argv)
{
    prepareProcess(argv);
    Nursery nursery;
    std::string const command = std::string(argv[0]) + " --explore";
    if (argc > 1 && std::string(argv[1]) == "--explore")
        return runCommandLine(nursery, argc - 1, argv + 1, {command, 1000});
    if (argc != 4)
        return fail("usage: PROGRAM FINDINGS SCHEDULES, or --explore");
    Explorer explorer(nursery, command);
    return findBug(explorer, argv[1], argv[2],
                   static_cast<unsigned>(std::strtoul(argv[3], nullptr, 10)));
}
