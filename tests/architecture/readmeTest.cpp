// The code that the README shows is that of the example.

#include "architecture/examples.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace ZvTest {
namespace {

std::ifstream open(std::string const &name)
{
    std::ifstream file(std::filesystem::path(ZV_SOURCE_FOLDER) / ".." / name);
    EXPECT_TRUE(file) << name;
    return file;
}

std::string withoutIndent(std::string const &line)
{
    return line.substr(std::min(line.find_first_not_of(' '), line.size()));
}

std::vector<std::string> readLines(std::string const &name)
{
    std::ifstream file = open(name);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back(withoutIndent(line));
    return lines;
}

TEST(Readme, ShowsPartsOfTheExampleAsTheyAre)
{
    std::ifstream readme = open("README.md");
    auto const shown = findExamplesOfDocument(readme);
    ASSERT_EQ(shown.size(), 2u) << "a device and a client";
    char const *sources[] = {"examples/counter/counter.h", "examples/counter/main.cpp"};
    for (std::size_t i = 0; i != shown.size(); ++i) {
        std::vector<std::string> const source = readLines(sources[i]);
        std::vector<std::string> code;
        for (std::string const &line : shown[i].code)
            code.push_back(withoutIndent(line));
        EXPECT_NE(std::search(source.begin(), source.end(), code.begin(), code.end()), source.end())
            << "README.md:" << shown[i].line << " is not in " << sources[i];
    }
}

} // namespace
} // namespace ZvTest
