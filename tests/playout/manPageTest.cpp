// The manual page describes the options, faults and statuses of the program.

#include "playoutTest.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

namespace ZvTest {
namespace {

using Options = std::vector<std::string>;

/// Returns what an expression finds in each line that it matches: its groups, separated by blanks.
Options findLines(std::string const &text, char const *expression)
{
    std::regex const line(expression, std::regex::ECMAScript | std::regex::multiline);
    Options found;
    for (std::sregex_iterator match(text.begin(), text.end(), line), end; match != end; ++match) {
        std::string words = (*match)[1];
        if (match->size() > 2 && (*match)[2].matched)
            words += " " + (*match)[2].str();
        found.push_back(words);
    }
    return found;
}

std::string readPage()
{
    std::ifstream file(ZVPLAYOUT_PAGE);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string getHelp()
{
    return Playout({"--help"}).finish().out;
}

TEST(ManPage, HasTheOptionsOfTheHelpInTheirOrder)
{
    Options const ofHelp = findLines(getHelp(), "^  --([a-z-]+)(?: ([A-Z][A-Z:.]*))?(?: .*)?$");
    EXPECT_GT(ofHelp.size(), 10u) << "the options were not found";
    EXPECT_EQ(findLines(readPage(), "^\\.It Fl -([a-z-]+)(?: Ar ([A-Z:.]+))?$"), ofHelp);
}

TEST(ManPage, HasThePhasesAndKindsOfFaults)
{
    auto const from = [](std::string const &text, char const *begin) {
        return text.substr(std::min(text.find(begin), text.size()));
    };
    // In the help, a line of two blanks and names in lower case.
    Options const ofHelp =
        findLines(from(getHelp(), "A fault, such as"), "^  ([a-z]+(?:[-, ]{1,2}[a-z]+)*)  .*$");
    EXPECT_GT(ofHelp.size(), 13u) << "the faults were not found";
    Options ofPage = findLines(from(readPage(), ".Sh FAULTS"), "^\\.It Cm ([a-z, -]+)$");
    for (std::string &names : ofPage)
        names = std::regex_replace(names, std::regex(" ,"), ",");
    EXPECT_EQ(ofPage, ofHelp);
}

} // namespace
} // namespace ZvTest
