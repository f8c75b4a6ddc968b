// The version is in one place, and the changelog describes it.

#include "architecture/tree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

namespace ZvTest {
namespace {

namespace fs = std::filesystem;

/// Returns the first group of the first match, and an empty string without a match.
std::string findFirst(std::string const &text, std::regex const &pattern)
{
    std::smatch match;
    return std::regex_search(text, match, pattern) ? match[1].str() : "";
}

/// Returns true if a line has the version, and not as a part of a longer number.
bool hasVersion(std::string const &line)
{
    static std::string const version = ZV_VERSION;
    static std::string const digits = "0123456789";
    std::size_t const start = line.find(version);
    if (start == std::string::npos)
        return false;
    std::size_t const end = start + version.size();
    return (start == 0 || (digits + ".").find(line[start - 1]) == std::string::npos) &&
           (end == line.size() || digits.find(line[end]) == std::string::npos);
}

/// Returns true for what is in the repository: not the build folders, and nothing hidden.
bool isOurs(fs::path const &name)
{
    std::string const first = fs::relative(name, root).begin()->string();
    return first != "build" && first != "out" && (first == "." || first[0] != '.');
}

/// Returns the files that have the version.
std::vector<std::string> findPlaces()
{
    std::vector<std::string> places;
    for (auto entry = fs::recursive_directory_iterator(root); entry != fs::end(entry); ++entry) {
        if (!isOurs(entry->path()))
            entry.disable_recursion_pending();
        else if (entry->is_regular_file() && entry->file_size() < 1'000'000) {
            std::ifstream file(entry->path());
            for (std::string line; std::getline(file, line);)
                if (hasVersion(line)) {
                    places.push_back(fs::relative(entry->path(), root).generic_string());
                    break;
                }
        }
    }
    std::sort(places.begin(), places.end());
    return places;
}

TEST(Version, StandsInOnePlace)
{
    // The form of a changelog names each version, and the symbols have that which added them.
    std::vector<std::string> const allowed{"CHANGELOG.md", "CMakeLists.txt", "debian/changelog",
                                           "debian/libzvresmgt" ZV_ABI ".symbols"};
    std::vector<std::string> const places = findPlaces();
    EXPECT_EQ(std::count(places.begin(), places.end(), "CMakeLists.txt"), 1);
    for (std::string const &place : places)
        EXPECT_TRUE(std::count(allowed.begin(), allowed.end(), place))
            << place << " has the version " ZV_VERSION ", which it must take from CMakeLists.txt";
}

TEST(Version, IsFirstInTheChangelog)
{
    EXPECT_EQ(findFirst(read(root / "CHANGELOG.md"), std::regex("\\n## \\[([^\\]]+)\\]")),
              ZV_VERSION);
}

TEST(Version, IsThatOfThePackages)
{
    EXPECT_EQ(findFirst(read(root / "debian/changelog"), std::regex("^zvresmgt \\(([^)]+)\\)")),
              ZV_VERSION);
}

/// The name of a package of libraries ends with the number of their SONAMEs.
TEST(Version, OfTheInterfaceNamesThePackage)
{
    std::string const name = "libzvresmgt" ZV_ABI;
    EXPECT_NE(read(root / "debian/control").find("\nPackage: " + name + "\n"), std::string::npos);
    EXPECT_TRUE(fs::exists(root / "debian" / (name + ".symbols")));
}

/// The symbols of libzvbase that only libzvresmgt uses are under a version of the interface.
TEST(Version, OfSymbolsIsThatOfTheInterface)
{
    EXPECT_EQ(findFirst(read(root / "src/zvbase/zvbase.map"), std::regex("ZVBASE_PRIVATE_(\\d+)")),
              ZV_ABI);
}

} // namespace
} // namespace ZvTest
