#include "resmgt/literals/liFormat.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace ZvTest {

using namespace Zv;

namespace {

#ifdef __cpp_lib_format

TEST(LiFormat, AStringIsFormattedAsAViewOfAllItsBytes)
{
    using namespace std::string_view_literals;
    EXPECT_EQ(std::format("<{}>", LiString("a\0b"sv)), std::string("<a\0b>", 5));
    EXPECT_EQ(std::format("<{:>5}>", LiString("ab")), "<   ab>");
}

TEST(LiFormat, IdentifiersDatesAndTimestampsAreFormattedAsTheyAreWritten)
{
    EXPECT_EQ(std::format("{}", LiUuid()), "00000000-0000-0000-0000-000000000000");
    EXPECT_EQ(std::format("{}", LiDate()), "1970/01/01 00:00:00.000 UTC");
    EXPECT_EQ(std::format("{:.2f}", LiTimestamp(1.5)), "1.50");
}

#else

TEST(LiFormat, NeedsAStandardLibraryWithFormat)
{
    GTEST_SKIP() << "this standard library has no <format>";
}

#endif

} // namespace
} // namespace ZvTest
