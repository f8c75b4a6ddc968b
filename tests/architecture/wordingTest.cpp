// The public headers are written by the rules of docs/style.md.

#include "architecture/comments.h"
#include "architecture/tree.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace ZvTest {
namespace {

namespace fs = std::filesystem;

/// How many offences each folder may have, from wording.txt. They may only become fewer.
std::map<std::string, std::size_t> readLimits()
{
    std::ifstream file(sourceFolder / "../tests/architecture/wording.txt");
    EXPECT_TRUE(file) << "wording.txt";
    std::map<std::string, std::size_t> limits;
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string folder;
        std::size_t limit = 0;
        if (line.starts_with('#') || !(words >> folder >> limit))
            continue;
        EXPECT_TRUE(limits.emplace(folder, limit).second) << folder << " has two lines";
    }
    return limits;
}

/// The package of a header. Headers that belong to no package are those of "resmgt".
std::string folderOf(fs::path const &header)
{
    fs::path const name = fs::relative(header, sourceFolder);
    auto part = name.begin();
    std::string const library = part->string();
    ++part;
    return library == "zvbase" || std::next(part) == name.end() ? library : part->string();
}

struct Folder
{
    WordCount count;
    std::size_t nbOffences = 0;
    std::string list;
};

std::map<std::string, Folder> const &readFolders()
{
    static auto const folders = [] {
        std::map<std::string, Folder> read;
        for (fs::path const &header : findPublicHeaders(sourceFolder)) {
            std::ifstream file(header);
            Folder &folder = read[folderOf(header)];
            for (Offence const &offence : findOffences(readComments(file), folder.count)) {
                ++folder.nbOffences;
                folder.list += fs::relative(header, sourceFolder / "..").generic_string() + ':' +
                               std::to_string(offence.line) + ": " + offence.rule + ": " +
                               offence.sentence + '\n';
            }
        }
        return read;
    }();
    return folders;
}

std::vector<std::string> rulesBrokenBy(std::string const &source)
{
    std::istringstream stream("// A header (applications).\n" + source);
    WordCount count;
    std::vector<std::string> rules;
    for (Offence const &offence : findOffences(readComments(stream), count))
        rules.push_back(offence.rule);
    return rules;
}

TEST(Wording, FoldersHaveNoMoreOffencesThanTheirLimit)
{
    std::map<std::string, std::size_t> const limits = readLimits();
    for (auto const &[name, folder] : readFolders()) {
        ASSERT_TRUE(limits.contains(name)) << name << " has no line in wording.txt";
        EXPECT_LE(folder.nbOffences, limits.at(name)) << name << '\n' << folder.list;
    }
    EXPECT_EQ(readFolders().size(), limits.size()) << "wording.txt names a folder that is none";
}

/// The ratios of two large libraries of the field, and some room. Measured over the folders that are finished.
TEST(Wording, FinishedFoldersUseTheWordsOfTheField)
{
    WordCount sum;
    std::map<std::string, std::size_t> const limits = readLimits();
    for (auto const &[name, folder] : readFolders()) {
        auto const limit = limits.find(name);
        if (limit == limits.end() || limit->second != 0)
            continue;
        sum.words += folder.count.words;
        sum.sentences += folder.count.sentences;
        sum.ifs += folder.count.ifs;
        sum.returns += folder.count.returns;
        sum.colons += folder.count.colons;
    }
    if (sum.words < 2000)
        GTEST_SKIP() << "too few words for a ratio: " << sum.words;
    double const thousands = static_cast<double>(sum.words) / 1000;
    EXPECT_GE(static_cast<double>(sum.ifs) / thousands, 6) << "\"if\" for each 1000 words";
    EXPECT_GE(static_cast<double>(sum.returns) / thousands, 6) << "\"returns\" for each 1000 words";
    EXPECT_LE(static_cast<double>(sum.colons) / static_cast<double>(sum.sentences), 0.26)
        << "colons and semicolons for each sentence";
}

TEST(Wording, ConditionsBeginWithIf)
{
    EXPECT_EQ(rulesBrokenBy("/// Where none is held, it throws.").size(), 1u);
    EXPECT_EQ(rulesBrokenBy("/// Returns null where none\n/// is held.").size(), 1u);
    EXPECT_EQ(rulesBrokenBy("/// It is kept, also where it throws.").size(), 1u);
    EXPECT_EQ(rulesBrokenBy("/// Returns the place where it was thrown.").size(), 0u);
    EXPECT_EQ(rulesBrokenBy("/// Throws `where` if \"where\" is missing.").size(), 0u);
}

TEST(Wording, ThreadsAndObjectsAreIt)
{
    EXPECT_EQ(rulesBrokenBy("int a; ///< whoever is first").size(), 1u);
    EXPECT_EQ(rulesBrokenBy("/// The keeper acts while he\n/// holds it.").size(), 1u);
    EXPECT_EQ(rulesBrokenBy("/// A thread that waits, the header of it.").size(), 0u);
    EXPECT_EQ(rulesBrokenBy("char const *text = \"who // he\";").size(), 0u);
}

TEST(Wording, VerbsSayWhatHappens)
{
    EXPECT_EQ(rulesBrokenBy("/// A seed stands for one order.").size(), 1u);
    EXPECT_EQ(rulesBrokenBy("/// It comes to rest for ever.").size(), 2u);
    EXPECT_EQ(rulesBrokenBy("/// What it throws comes out of the call.").size(), 1u);
    EXPECT_EQ(rulesBrokenBy("/// The first package comes up early.").size(), 0u);
    EXPECT_EQ(rulesBrokenBy("/// The income of standard outcomes.").size(), 0u);
}

TEST(Wording, SentencesHaveOneColonAtMost)
{
    EXPECT_EQ(rulesBrokenBy("/// One: two; three.").size(), 1u);
    EXPECT_EQ(rulesBrokenBy("/// One: two.\n/// Three; four.").size(), 0u);
    EXPECT_EQ(rulesBrokenBy("/// **Threads**: one at a time: see `A::b`.").size(), 0u);
    EXPECT_EQ(rulesBrokenBy("/// A list:\n/// - one: two;\n/// - three: four.").size(), 0u);
    EXPECT_EQ(rulesBrokenBy("/// One:\n///     a; b; c;\n/// Two; three.").size(), 0u);
}

TEST(Wording, CommentLinesAreNotTooLong)
{
    EXPECT_EQ(rulesBrokenBy("/// " + std::string(97, 'x')).size(), 1u);
    EXPECT_EQ(rulesBrokenBy("/// " + std::string(96, 'x')).size(), 0u);
}

TEST(Wording, FirstLineSaysWhatTheFileIsForAndToWhom)
{
    WordCount count;
    auto const broken = [&](char const *source) {
        std::istringstream stream(source);
        return findOffences(readComments(stream), count).size();
    };
    EXPECT_EQ(broken("// A mutex (applications).\n#pragma once"), 0u);
    EXPECT_EQ(broken("// Makes\n// threads (device writers).\n"), 0u);
    EXPECT_EQ(broken("// Times (applications and extenders).\n"), 0u);
    EXPECT_EQ(broken("// Forwards to locks/lkMutex.h.\n"), 0u);
    EXPECT_EQ(broken("#pragma once\n// A mutex (applications).\n"), 1u);
    EXPECT_EQ(broken("// A mutex.\n"), 1u);
    EXPECT_EQ(broken("// What waits (extenders).\n"), 1u);
}

TEST(Wording, OffencesAreCountedAndFoundAtTheirLine)
{
    std::istringstream stream("// A header (applications).\n"
                              "\n"
                              "/// Returns one. Returns two if\n"
                              "/// three; four. The rest is null where none is held.\n");
    WordCount count;
    std::vector<Offence> const offences = findOffences(readComments(stream), count);
    ASSERT_EQ(offences.size(), 1u);
    EXPECT_EQ(offences[0].line, 4);
    EXPECT_EQ(count.sentences, 4u);
    EXPECT_EQ(count.returns, 2u);
    EXPECT_EQ(count.ifs, 1u);
    EXPECT_EQ(count.colons, 1u);
}

} // namespace
} // namespace ZvTest
