#include "resmgt/literals/liStringUtil.h"
#include "resmgt/literals/liTimestamp.h"

#include "testing/groupingLocale.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <limits>
#include <sstream>
#include <string>

namespace ZvTest {

using namespace Zv;

namespace {

TEST(LiStringParser, ReadsWordsAndQuotedTexts)
{
    std::istringstream stream("  word \"two words\" \"\" x\"y\" \" keeps\tspace \"next");
    LiStringParser parser;
    EXPECT_STREQ(parser.readToken(stream).getChars(), "word");
    EXPECT_STREQ(parser.readToken(stream).getChars(), "two words");
    EXPECT_STREQ(parser.readToken(stream).getChars(), "");
    EXPECT_TRUE(stream.good());
    EXPECT_STREQ(parser.readToken(stream).getChars(), "x\"y\"");
    EXPECT_STREQ(parser.readToken(stream).getChars(), " keeps\tspace ");
    EXPECT_STREQ(parser.readToken(stream).getChars(), "next");
    EXPECT_FALSE(stream.fail());
    EXPECT_TRUE(parser.readToken(stream).isEmpty());
    EXPECT_TRUE(stream.fail());
}

TEST(LiStringParser, KnowsNoEscape)
{
    std::istringstream stream("\"a\\\"b");
    LiStringParser parser;
    EXPECT_STREQ(parser.readToken(stream).getChars(), "a\\");
    EXPECT_STREQ(parser.readToken(stream).getChars(), "b");
}

TEST(LiStringParser, ATextThatDoesNotEndFails)
{
    std::istringstream stream("\"open");
    LiStringParser parser;
    EXPECT_TRUE(parser.readToken(stream).isEmpty());
    EXPECT_TRUE(stream.fail());
}

TEST(LiStringParser, ReadsLongWords)
{
    std::string const expected(700, 'w');
    std::istringstream stream(expected + " rest");
    EXPECT_EQ(LiStringParser().readToken(stream).getChars(), expected);
}

TEST(LiStringParser, SkipsWhiteSpaceHoweverTheStreamIsSet)
{
    std::istringstream stream("  word \t\"two words\"  ");
    stream >> std::noskipws;
    LiStringParser parser;
    EXPECT_STREQ(parser.readToken(stream).getChars(), "word");
    EXPECT_STREQ(parser.readToken(stream).getChars(), "two words");
    EXPECT_TRUE(stream.good());
    EXPECT_TRUE(parser.readToken(stream).isEmpty());
    EXPECT_TRUE(stream.fail());
    EXPECT_TRUE(stream.eof());
}

TEST(LiStringParser, AZeroByteIsPartOfAToken)
{
    std::istringstream stream(std::string("a\0b \"c\0 d\" \0", 12));
    LiStringParser parser;
    auto const next = [&] {
        LiString const token = parser.readToken(stream);
        return std::string(token.getChars(), static_cast<std::size_t>(token.getLength()));
    };
    EXPECT_EQ(next(), std::string("a\0b", 3));
    EXPECT_EQ(next(), std::string("c\0 d", 4));
    EXPECT_EQ(next(), std::string("\0", 1));
}

TEST(LiStringUtil, WritesNumbersIndependentlyOfTheLocale)
{
    GroupingLocale const locale;
    EXPECT_STREQ(LiStringUtil::convertNb(-1234567).getChars(), "-1234567");
    EXPECT_STREQ(LiStringUtil::convertNb(1234567UL).getChars(), "1234567");
    EXPECT_STREQ(LiStringUtil::convertNb(12345.5).getChars(), "12345.5");
}

TEST(LiStringUtil, WritesNumbersAsStreamsDo)
{
    EXPECT_STREQ(LiStringUtil::convertNb(-12).getChars(), "-12");
    EXPECT_STREQ(LiStringUtil::convertNb(4294967295U).getChars(), "4294967295");
    constexpr long LONG_LEAST = std::numeric_limits<long>::min();
    constexpr unsigned long LONG_GREATEST = std::numeric_limits<unsigned long>::max();
    EXPECT_EQ(LiStringUtil::convertNb(LONG_LEAST).getChars(), std::to_string(LONG_LEAST));
    EXPECT_EQ(LiStringUtil::convertNb(LONG_GREATEST).getChars(), std::to_string(LONG_GREATEST));
    EXPECT_STREQ(LiStringUtil::convertNb(1.5F).getChars(), "1.5");
    EXPECT_STREQ(LiStringUtil::convertNb(1.0 / 3.0).getChars(), "0.333333");
    EXPECT_STREQ(LiStringUtil::convertNb(1e20).getChars(), "1e+20");
}

TEST(LiTimestamp, IsAValueOfSeconds)
{
    EXPECT_TRUE(LiTimestamp(1.5) < LiTimestamp(2.0));
    EXPECT_FALSE(LiTimestamp(2.0) < LiTimestamp(1.5));
    EXPECT_FALSE(LiTimestamp(2.0) < LiTimestamp(2.0));
    EXPECT_TRUE(LiTimestamp(2.0) == LiTimestamp(2.0));
    EXPECT_EQ(LiTimestamp().getSeconds(), 0.0);
    EXPECT_EQ(LiTimestamp(2.5).getSeconds(), 2.5);
}

TEST(LiTimestamp, IsMadeOfADuration)
{
    using namespace std::chrono_literals;
    EXPECT_EQ(LiTimestamp(2500ms).getSeconds(), 2.5);
    EXPECT_EQ(LiTimestamp(-1h).getSeconds(), -3600.0);
    EXPECT_EQ(LiTimestamp(std::chrono::duration<double>(0.1)).getSeconds(), 0.1);
}

TEST(LiTimestamp, EqualTimestampsHaveEqualHashes)
{
    std::hash<LiTimestamp> const hash;
    EXPECT_EQ(LiTimestamp(0.0), LiTimestamp(-0.0));
    EXPECT_EQ(hash(LiTimestamp(0.0)), hash(LiTimestamp(-0.0)));
    EXPECT_NE(hash(LiTimestamp(1.5)), hash(LiTimestamp(2.5)));
}

} // namespace
} // namespace ZvTest
