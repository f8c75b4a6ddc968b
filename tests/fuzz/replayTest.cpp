// Replays the texts of the fuzzing corpus.

#include "fuzzing.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

std::map<std::string, ZvTest::Body> &ZvTest::targets()
{
    static auto &all = *new std::map<std::string, Body>;
    return all;
}

namespace ZvTest {

namespace {

namespace fs = std::filesystem;

class Replay : public testing::TestWithParam<std::string>
{};

TEST_P(Replay, TheCorpusBreaksNoProperty)
{
    std::size_t replayed = 0;
    for (auto const &entry : fs::directory_iterator(fs::path(ZV_FUZZ_CORPUS) / GetParam())) {
        std::ifstream file(entry.path(), std::ios_base::binary);
        std::string const text{std::istreambuf_iterator<char>(file), {}};
        SCOPED_TRACE(entry.path().filename().string());
        targets().at(GetParam())(reinterpret_cast<std::uint8_t const *>(text.data()), text.size());
        ++replayed;
    }
    EXPECT_GT(replayed, 0u);
}

TEST(ReplayTargets, EachHasACorpusAndEachCorpusATarget)
{
    std::size_t folders = 0;
    for (auto const &entry : fs::directory_iterator(ZV_FUZZ_CORPUS)) {
        EXPECT_TRUE(targets().contains(entry.path().filename().string())) << entry.path();
        ++folders;
    }
    EXPECT_EQ(folders, targets().size());
}

INSTANTIATE_TEST_SUITE_P(All, Replay,
                         testing::Values("date", "property", "sequence", "stream", "token", "uuid",
                                         "xml"),
                         [](auto const &target) { return target.param; });

} // namespace
} // namespace ZvTest
