// The code that documents quote is that of the examples, and every program in a document is run.

#include "architecture/examples.h"
#include "architecture/tree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>
#include <string>
#include <vector>

namespace ZvTest {
namespace {

namespace fs = std::filesystem;

std::string withoutIndent(std::string const &line)
{
    return line.substr(std::min(line.find_first_not_of(' '), line.size()));
}

std::vector<std::string> withoutIndents(std::vector<std::string> lines)
{
    std::ranges::transform(lines, lines.begin(), withoutIndent);
    return lines;
}

std::vector<std::string> readLines(fs::path const &name)
{
    std::ifstream file(name);
    EXPECT_TRUE(file) << name;
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    return lines;
}

using Visit = std::function<void(std::string const &place, Example const &)>;

void visitExamples(Visit const &visit)
{
    for (fs::path const &folder : {root, root / "docs"})
        for (auto const &entry : fs::directory_iterator(folder)) {
            if (entry.path().extension() != ".md")
                continue;
            std::ifstream file(entry.path());
            for (Example const &example : findExamplesOfDocument(file))
                visit(entry.path().filename().string() + ":" + std::to_string(example.line),
                      example);
        }
}

/// Returns whether the code is a part of the lines. A line "// ..." in the code means that some
/// lines are left out.
bool isPartOf(std::vector<std::string> const &lines, std::vector<std::string> const &code)
{
    auto from = lines.begin();
    for (auto part = code.begin(); part != code.end();) {
        auto const end = std::find(part, code.end(), "// ...");
        from = std::search(from, lines.end(), part, end);
        if (from == lines.end() && part != end)
            return false;
        from += end - part;
        part = end == code.end() ? end : end + 1;
    }
    return true;
}

TEST(Quotes, AreTheCodeOfTheirSources)
{
    std::size_t nbQuotes = 0;
    visitExamples([&](std::string const &place, Example const &example) {
        if (example.source.empty())
            return;
        ++nbQuotes;
        EXPECT_FALSE(example.code.empty()) << place << " is empty";
        EXPECT_TRUE(isPartOf(withoutIndents(readLines(root / example.source)),
                             withoutIndents(example.code)))
            << place << " is not in " << example.source;
    });
    EXPECT_GT(nbQuotes, 20u) << "the quotes were not found";
}

TEST(Quotes, MayLeaveOutLines)
{
    std::vector<std::string> const lines = {"a", "b", "c", "d"};
    EXPECT_TRUE(isPartOf(lines, {"b", "c"}));
    EXPECT_TRUE(isPartOf(lines, {"a", "// ...", "c", "d"}));
    EXPECT_FALSE(isPartOf(lines, {"a", "c"}));
    EXPECT_FALSE(isPartOf(lines, {"c", "// ...", "a"}));
}

/// The build runs each example of the ladder, and compares what it prints.
TEST(Quotes, ProgramsOfDocumentsAreExamples)
{
    static std::regex const program("int main\\(.*");
    visitExamples([&](std::string const &place, Example const &example) {
        bool const isProgram = std::ranges::any_of(
            example.code, [](std::string const &line) { return std::regex_match(line, program); });
        EXPECT_TRUE(!isProgram || example.source.starts_with("examples/"))
            << place << " has a program that is not run";
    });
}

} // namespace
} // namespace ZvTest
