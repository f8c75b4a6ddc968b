#include "resmgt/deviceManager.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

using Edges = std::vector<std::pair<std::string, std::string>>;

/// Returns the edges that the library reads from a string, or nothing if it refuses the string.
std::optional<Edges> parse(std::string const &config)
{
    static ObjPtr<DevMgr> &manager = *new ObjPtr<DevMgr>(DevMgr::create());
    static ObjPtr<DevMgrSyncSeqAcc> &access =
        *new ObjPtr<DevMgrSyncSeqAcc>(manager->createSyncSeqAcc());
    try {
        Edges edges;
        for (auto const &edge : access->parseConfig(LiString(config.c_str()))) {
            EXPECT_EQ(edge.size(), 2u);
            edges.emplace_back(edge[0].getChars(), edge[1].getChars());
        }
        return edges;
    } catch (DevMgrEx::ConfigSyntaxError const &failure) {
        EXPECT_STREQ(failure.getReason(), "Configuration string Syntax error.");
        return std::nullopt;
    }
}

/// The grammar as a table of states and kinds of tokens, written a second time.
std::optional<Edges> parseByTable(std::vector<std::string> const &tokens)
{
    enum Kind
    {
        OPEN,
        CLOSE,
        NAME
    };
    Edges edges;
    std::vector<std::string> stack;
    std::string last;
    int state = 0;
    if (tokens.empty())
        return std::nullopt;
    for (auto const &token : tokens) {
        Kind const kind = token == "(" ? OPEN : token == ")" ? CLOSE : NAME;
        if (state == 6)
            return std::nullopt;
        if ((state == 2 || state == 4 || state == 5) && stack.empty())
            return std::nullopt;
        if (state == 2 || state == 4)
            edges.emplace_back(stack.back(), last);
        if (state == 1)
            stack.push_back("");
        if (state == 3)
            stack.push_back(last);
        if (state == 5)
            stack.pop_back();
        static int const next[6][3] = {{1, 6, 6}, {6, 6, 2}, {3, 5, 6},
                                       {6, 6, 4}, {3, 5, 4}, {6, 5, 4}};
        state = next[state][kind];
        if (kind == NAME)
            last = token;
    }
    if (state != 5 || stack.empty() || !stack.back().empty())
        return std::nullopt;
    return edges;
}

TEST(SequenceString, EmptyGroupIsRefused)
{
    EXPECT_FALSE(parse("()"));
    EXPECT_FALSE(parse(""));
    EXPECT_FALSE(parse("   "));
}

TEST(SequenceString, SingleDeviceIsRootOnly)
{
    EXPECT_EQ(parse("( a )"), (Edges{{"", "a"}}));
    EXPECT_EQ(parse("(a)"), (Edges{{"", "a"}}));
    EXPECT_EQ(parse("\t(\na\v\f\r)"), (Edges{{"", "a"}}));
}

TEST(SequenceString, GroupsNestInOrder)
{
    EXPECT_EQ(parse("( a ( b c ( d ) ) )"), (Edges{{"", "a"}, {"a", "b"}, {"a", "c"}, {"c", "d"}}));
    EXPECT_EQ(parse("(a(b(c)d(e)))"),
              (Edges{{"", "a"}, {"a", "b"}, {"b", "c"}, {"a", "d"}, {"d", "e"}}));
}

TEST(SequenceString, RootHasNoSibling)
{
    EXPECT_FALSE(parse("( a b )"));
}

TEST(SequenceString, NameBehindAClosedGroupPassesTheParser)
{
    EXPECT_EQ(parse("( a ( b ) c )"), (Edges{{"", "a"}, {"a", "b"}, {"", "c"}}));
}

TEST(SequenceString, StartsWithABracket)
{
    EXPECT_FALSE(parse("a ( b )"));
    EXPECT_FALSE(parse(") a ("));
}

TEST(SequenceString, OpenBracketIsRefused)
{
    EXPECT_FALSE(parse("( a ( b )"));
    EXPECT_FALSE(parse("( a"));
}

TEST(SequenceString, NameAtTheVeryEndIsDropped)
{
    EXPECT_EQ(parse("( a ) b"), (Edges{{"", "a"}}));
    EXPECT_FALSE(parse("( a ) b "));
}

TEST(SequenceString, PoppingTooFarIsRefused)
{
    EXPECT_FALSE(parse("( a ) ) )"));
    EXPECT_FALSE(parse("( a ) ) b )"));
    EXPECT_FALSE(parse("( a ) ) ) b ( c ) "));
}

TEST(SequenceString, BytesOfTheUpperHalfBelongToNames)
{
    EXPECT_EQ(parse("( a\xA0\x85z )"), (Edges{{"", "a\xA0\x85z"}}));
}

TEST(SequenceString, EveryShortStringParsesAsTheTableSays)
{
    std::vector<std::string> const alphabet = {"(", ")", "a", "b"};
    int accepted = 0;
    for (int length = 0; length <= 8; ++length) {
        int const count = 1 << (2 * length);
        for (int number = 0; number < count; ++number) {
            std::vector<std::string> tokens;
            std::string text;
            for (int i = 0; i < length; ++i) {
                tokens.push_back(alphabet[(number >> (2 * i)) & 3]);
                text += tokens.back() + " ";
            }
            auto const edges = parse(text);
            ASSERT_EQ(edges, parseByTable(tokens)) << text;
            accepted += edges.has_value();
        }
    }
    EXPECT_GT(accepted, 50);
}

} // namespace
} // namespace ZvTest
