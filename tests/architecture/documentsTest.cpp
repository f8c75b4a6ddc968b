// What the documents name is in the tree.

#include "architecture/tree.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace ZvTest {
namespace {

namespace fs = std::filesystem;

std::vector<fs::path> findDocuments()
{
    std::vector<fs::path> documents;
    for (fs::path const &folder : {root, root / "docs"})
        for (auto const &entry : fs::directory_iterator(folder))
            if (entry.path().extension() == ".md")
                documents.push_back(entry.path());
    return documents;
}

std::vector<std::string> findAll(std::string const &text, std::regex const &pattern)
{
    std::vector<std::string> found;
    for (std::sregex_iterator match(text.begin(), text.end(), pattern), end; match != end; ++match)
        found.push_back((*match)[1]);
    return found;
}

/// The names of all files below the folders of sources.
std::set<std::string> findFileNames()
{
    std::set<std::string> names;
    for (char const *folder : {"src", "tests", "examples", "bench", "cmake"})
        for (auto const &entry : fs::recursive_directory_iterator(root / folder))
            names.insert(entry.path().filename().string());
    return names;
}

TEST(Documents, LinksLeadToFiles)
{
    static std::regex const link("\\]\\(([^)#:\\s]+)(?:#[^)]*)?\\)");
    std::size_t nbLinks = 0;
    for (fs::path const &document : findDocuments())
        for (std::string const &target : findAll(read(document), link)) {
            ++nbLinks;
            EXPECT_TRUE(fs::exists(document.parent_path() / target))
                << document.filename() << " links to " << target;
        }
    EXPECT_GT(nbLinks, 20u) << "the links were not found";
}

TEST(Documents, NamedSourcesExist)
{
    static std::regex const source(
        "`(?:[\\w./-]*/)?(\\w+(?:\\.(?:private|imp|inline))?\\.(?:h|cpp|py|sh))`");
    std::set<std::string> const names = findFileNames();
    std::size_t nbSources = 0;
    for (fs::path const &document : findDocuments()) {
        if (document.filename() == "CHANGELOG.md") // names what was there
            continue;
        for (std::string const &name : findAll(read(document), source)) {
            // Placeholders of names.
            if (name == "fooBar.h" || name == "fooBar.cpp")
                continue;
            ++nbSources;
            EXPECT_TRUE(names.contains(name)) << document.filename() << " names " << name;
        }
    }
    EXPECT_GT(nbSources, 30u) << "the sources were not found";
}

} // namespace
} // namespace ZvTest
