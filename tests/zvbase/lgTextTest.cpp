#include "zvbase/lgText.h"

#include "zvbase/logTestUtil.h"
#include "zvbase/trace.h"

#include <gtest/gtest.h>

#include <climits>
#include <iomanip>
#include <sstream>
#include <string>
#include <string_view>

namespace ZvTest {

using namespace Zv;

namespace {

/// Writes the same elements to a line and to a stream of the standard library.
#define EXPECT_SAME_TEXT(...)                                                                      \
    do {                                                                                           \
        std::ostringstream expected;                                                               \
        expected << __VA_ARGS__;                                                                   \
        ZV_TRACE(*Trace::MainTraceLevel, __VA_ARGS__);                                             \
        LgLog::flush();                                                                            \
        EXPECT_EQ(log.getTexts().back(), expected.str() + "\n");                                   \
    } while (false)

void expectTextsOfAnyStream(CapturedLog const &log)
{
    char writable[] = "writable";
    std::string const text("text");
    EXPECT_SAME_TEXT("block " << 7 << " of " << writable << text << std::string_view("view"));
    EXPECT_SAME_TEXT("" << std::string() << 'c' << "");
    EXPECT_SAME_TEXT(0 << ' ' << -1 << ' ' << INT_MIN << ' ' << INT_MAX << ' ' << UINT_MAX);
    EXPECT_SAME_TEXT(LONG_MIN << ' ' << LONG_MAX << ' ' << ULONG_MAX << ' ' << LLONG_MIN << ' '
                              << LLONG_MAX << ' ' << ULLONG_MAX);
    EXPECT_SAME_TEXT(std::hex << 255 << ' ' << -1 << ' ' << -1L << std::dec << ' ' << 255);
    EXPECT_SAME_TEXT(std::showpos << 255 << 'x' << 1U << std::noshowpos << 255);
    EXPECT_SAME_TEXT(std::setw(6) << 42 << 42 << std::setw(6) << "ab"
                                  << "ab");
    EXPECT_SAME_TEXT(std::setfill('0') << std::setw(4) << 'c' << std::setw(4) << text << text);
    EXPECT_SAME_TEXT(static_cast<short>(-3) << true << 1.5 << " then " << 3 << nullptr);
    EXPECT_SAME_TEXT(std::oct << std::showbase << 64 << std::endl << 1);
}

TEST(LgText, WritesWhatAnyStreamWrites)
{
    CapturedLog const log;
    expectTextsOfAnyStream(log);
    TestLogger logger;
    expectTextsOfAnyStream(log);
}

TEST(LgText, ObeysAFormatThatWasSetBefore)
{
    CapturedLog const log;
    TestLogger logger;
    {
        LgLine line;
        LgText &text = line.begin("a.cpp", 1);
        text.setf(std::ios_base::showpos);
        text << 1;
        text.flags(std::ios_base::hex);
        text << -1;
        text.width(4);
        text << "b";
        text.width(3);
        text << 'c';
        text.setf(std::ios_base::dec, std::ios_base::basefield);
        text.width(3);
        text << 10 << 11;
        text.setstate(std::ios_base::failbit);
        text << "not seen" << 12;
    }
    LgLog::flush();
    EXPECT_EQ(log.getTexts().back(), "+1ffffffff   b  c 1011\n");
}

TEST(LgText, ANullTextFailsTheStream)
{
    CapturedLog const log;
    TestLogger logger;
    char const *none = nullptr;
    ZV_TRACE(*Trace::MainTraceLevel, "seen" << none << "not seen" << 1);
    LgLog::flush();
    EXPECT_EQ(log.getTexts().back(), "seen\n");
}

/// Converts to much, but has an operator of its own.
struct Convertible
{
    operator int() const { return 1; }
    operator std::string() const { return "wrong"; }
    friend std::ostream &operator<<(std::ostream &stream, Convertible const &)
    {
        return stream << "own operator";
    }
};

enum Color
{
    RED
};

std::ostream &operator<<(std::ostream &stream, Color)
{
    return stream << "red";
}

struct Constants
{
    static int const UNDEFINED = 12; // a reference to it would not link
};

TEST(LgText, LeavesTypesWithTheirOwnOperatorToThem)
{
    CapturedLog const log;
    TestLogger logger;
    ZV_TRACE(*Trace::MainTraceLevel, Convertible() << ' ' << RED);
    LgLog::flush();
    EXPECT_EQ(log.getTexts().back(), "own operator red\n");
    ZV_TRACE(*Trace::MainTraceLevel, Constants::UNDEFINED);
    LgLog::flush();
    EXPECT_EQ(log.getTexts().back(), "12\n");
}

} // namespace
} // namespace ZvTest
