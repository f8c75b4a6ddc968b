#include "resmgt/literals/liTimeCode.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <limits>
#include <locale>
#include <string>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

/// Counts labels as an editor does: after the last frame of a second follows the next second, and a minute begins with
/// label 2 unless it is a tenth one.
class DropFrameCounter
{
public:
    char const *getLabel()
    {
        write(0, _hours);
        write(3, _minutes);
        write(6, _seconds);
        write(9, _frames);
        return _label;
    }
    void next()
    {
        if (++_frames != 30)
            return;
        _frames = 0;
        if (++_seconds != 60)
            return;
        _seconds = 0;
        if (++_minutes == 60) {
            _minutes = 0;
            _hours = (_hours + 1) % 24;
        }
        if (_minutes % 10 != 0)
            _frames = 2;
    }

private:
    void write(int place, int number)
    {
        _label[place] = static_cast<char>('0' + number / 10);
        _label[place + 1] = static_cast<char>('0' + number % 10);
    }

    int _hours = 0;
    int _minutes = 0;
    int _seconds = 0;
    int _frames = 0;
    char _label[12] = "00;00;00;00";
};

std::string text(LiString const &string)
{
    return string.getChars();
}

struct Rate
{
    RCShdPtr<LiTimeCode> timeCode;
    char const *fullName;
    char const *shortName;
    Rational editRate;
    bool isDrop;
    DtTimeIndex perSecond;
    DtTimeIndex perDay;
};

std::vector<Rate> makeRates()
{
    return {
        {LiTimeCodeNtscNd::create(), "NTSC Non-Drop Frame 29.97 FPS", "NTSC ND",
         Rational(2997, 100), false, 30, 2592000},
        {LiTimeCodeNtscDf::create(), "NTSC Drop Frame 29.97 FPS", "NTSC DF", Rational(2997, 100),
         true, 30, 2589408},
        {LiTimeCodePal::create(), "PAL 25 FPS", "PAL", Rational(25, 1), false, 25, 2160000},
        {LiTimeCodeFilm24::create(), "Film 24 FPS", "Film24", Rational(24, 1), false, 24, 2073600},
    };
}

TEST(LiTimeCode, EachRateHasItsProperties)
{
    for (Rate const &rate : makeRates()) {
        LiTimeCode const &timeCode = *rate.timeCode;
        EXPECT_EQ(text(timeCode.getFullName()), rate.fullName);
        EXPECT_EQ(text(timeCode.getShortName()), rate.shortName);
        EXPECT_EQ(timeCode.getEditRate(), rate.editRate);
        EXPECT_EQ(timeCode.getDropFlag(), rate.isDrop);
        EXPECT_EQ(timeCode.getFramesPerTCSecond(), rate.perSecond);
        EXPECT_EQ(timeCode.getFramesPerTC24h(), rate.perDay);
    }
}

TEST(LiTimeCode, EachCallMakesAnObjectOfItsOwn)
{
    RCShdPtr<LiTimeCodePal> const one(LiTimeCodePal::create());
    RCShdPtr<LiTimeCodePal> const other(LiTimeCodePal::create());
    EXPECT_NE(one, other);
    EXPECT_TRUE(one.isUnique());
}

TEST(LiTimeCode, AllLabelsOfADropFrameDayAreThoseOfTheCounter)
{
    RCShdPtr<LiTimeCode> const timeCode(LiTimeCodeNtscDf::create());
    DropFrameCounter counter;
    for (DtTimeIndex frame = 0; frame != 2589408; ++frame, counter.next())
        ASSERT_STREQ(counter.getLabel(), timeCode->getTimecode(frame).getChars()) << frame;
    EXPECT_STREQ(counter.getLabel(), "00;00;00;00");
}

TEST(LiTimeCode, ADropFrameLabelNeverShowsADroppedFrame)
{
    RCShdPtr<LiTimeCode> const timeCode(LiTimeCodeNtscDf::create());
    for (int minute = 0; minute != 24 * 60; ++minute) {
        DtTimeIndex const first = minute * DtTimeIndex{1798} + (minute + 9) / 10 * 2;
        bool const isTenth = minute % 10 == 0;
        std::string const label = text(timeCode->getTimecode(first));
        EXPECT_EQ(label.substr(5), isTenth ? ";00;00" : ";00;02") << label;
        EXPECT_EQ(std::stoi(label) * 60 + std::stoi(label.substr(3)), minute) << label;
        EXPECT_EQ(text(timeCode->getTimecode(first - 1)).substr(5), ";59;29") << label;
    }
}

TEST(LiTimeCode, KnownDropFrameLabels)
{
    RCShdPtr<LiTimeCode> const timeCode(LiTimeCodeNtscDf::create());
    EXPECT_EQ(text(timeCode->getTimecode(0)), "00;00;00;00");
    EXPECT_EQ(text(timeCode->getTimecode(1)), "00;00;00;01");
    EXPECT_EQ(text(timeCode->getTimecode(1799)), "00;00;59;29");
    EXPECT_EQ(text(timeCode->getTimecode(1800)), "00;01;00;02");
    EXPECT_EQ(text(timeCode->getTimecode(17982)), "00;10;00;00");
    EXPECT_EQ(text(timeCode->getTimecode(2589407)), "23;59;59;29");
    EXPECT_EQ(text(timeCode->getTimecode(2589408)), "00;00;00;00");
    EXPECT_EQ(text(timeCode->getTimecode(-1)), "23;59;59;29");
    EXPECT_EQ(text(timeCode->getTimecode(-2589408)), "00;00;00;00");
}

TEST(LiTimeCode, AllLabelsOfADayWithoutDropping)
{
    for (Rate const &rate : makeRates()) {
        if (rate.isDrop)
            continue;
        DtTimeIndex frame = 0;
        for (int second = 0; second != 86400; ++second)
            for (int inSecond = 0; inSecond != rate.perSecond; ++inSecond, ++frame) {
                if (frame % 7 != 0 && inSecond != 0 && inSecond != rate.perSecond - 1)
                    continue;
                char label[48];
                std::snprintf(label, sizeof label, "%02d:%02d:%02d:%02d", second / 3600,
                              second / 60 % 60, second % 60, inSecond);
                ASSERT_STREQ(label, rate.timeCode->getTimecode(frame).getChars()) << frame;
            }
        EXPECT_EQ(frame, rate.perDay);
    }
}

TEST(LiTimeCode, FrameZeroAndTheFrameBeforeIt)
{
    EXPECT_EQ(text(LiTimeCodePal::create()->getTimecode(0)), "00:00:00:00");
    EXPECT_EQ(text(LiTimeCodeFilm24::create()->getTimecode(0)), "00:00:00:00");
    EXPECT_EQ(text(LiTimeCodeNtscNd::create()->getTimecode(0)), "00:00:00:00");
    EXPECT_EQ(text(LiTimeCodePal::create()->getTimecode(-1)), "23:59:59:24");
    EXPECT_EQ(text(LiTimeCodeFilm24::create()->getTimecode(-1)), "23:59:59:23");
    EXPECT_EQ(text(LiTimeCodeNtscNd::create()->getTimecode(-1)), "23:59:59:29");
}

TEST(LiTimeCode, LabelsStartAgainEachDay)
{
    for (Rate const &rate : makeRates())
        for (DtTimeIndex const frame : {0, 1, 1799, 1800, 17981, 17982, 2073599})
            for (DtTimeIndex const day : {-3, -1, 1, 1000000})
                EXPECT_EQ(rate.timeCode->getTimecode(frame),
                          rate.timeCode->getTimecode(frame + day * rate.perDay))
                    << rate.fullName << ' ' << frame << ' ' << day;
}

TEST(LiTimeCode, TheDayIsRoundedTowardsThePast)
{
    for (Rate const &rate : makeRates()) {
        LiTimeCode const &timeCode = *rate.timeCode;
        EXPECT_EQ(timeCode.getDay(0), 0);
        EXPECT_EQ(timeCode.getDay(-1), -1);
        EXPECT_EQ(timeCode.getDay(rate.perDay - 1), 0);
        EXPECT_EQ(timeCode.getDay(rate.perDay), 1);
        EXPECT_EQ(timeCode.getDay(-rate.perDay), -1);
        EXPECT_EQ(timeCode.getDay(-rate.perDay - 1), -2);
    }
}

TEST(LiTimeCode, TheEndsOfTheRangeHaveDaysAndLabels)
{
    constexpr DtTimeIndex FIRST = std::numeric_limits<DtTimeIndex>::min();
    constexpr DtTimeIndex LAST = std::numeric_limits<DtTimeIndex>::max();
    for (Rate const &rate : makeRates()) {
        DtTimeIndex const first = rate.timeCode->getDay(FIRST);
        EXPECT_EQ(FIRST / rate.perDay - (FIRST % rate.perDay ? 1 : 0), first);
        EXPECT_EQ(rate.timeCode->getDay(LAST), LAST / rate.perDay);
        EXPECT_EQ(rate.timeCode->getTimecode(LAST % rate.perDay), rate.timeCode->getTimecode(LAST));
        EXPECT_EQ(rate.timeCode->getTimecode(FIRST % rate.perDay + rate.perDay),
                  rate.timeCode->getTimecode(FIRST));
    }
}

TEST(LiTimeCode, FieldsArePaddedAsAsked)
{
    RCShdPtr<LiTimeCode> const pal(LiTimeCodePal::create());
    EXPECT_EQ(text(pal->getGenericTimecode(((60 + 2) * 60 + 3) * 25 + 4, ':', ':', ':', 3, ' ')),
              "  1:  2:  3:  4");
    EXPECT_EQ(text(pal->getGenericTimecode(((60 + 2) * 60 + 3) * 25 + 24, '-', '/', '.', 0, '0')),
              "1-2/3.24");
    EXPECT_EQ(text(pal->getGenericTimecode(((60 + 2) * 60 + 3) * 25 + 24, '-', '/', '.', -5, '0')),
              "1-2/3.24");
}

TEST(LiTimeCode, AGenericLabelNeitherWrapsNorDrops)
{
    RCShdPtr<LiTimeCode> const drop(LiTimeCodeNtscDf::create());
    EXPECT_EQ(text(drop->getGenericTimecode(1800, ':', ':', ':', 2, '0')), "00:01:00:00");
    EXPECT_EQ(text(drop->getGenericTimecode(1234 * 108000 + 29, ':', ':', ':', 2, '0')),
              "1234:00:00:29");
    EXPECT_EQ(text(drop->getGenericTimecode(-108000 - 1800 - 30 - 1, ':', ':', ':', 2, '0')),
              "-1:-1:-1:-1");
    EXPECT_EQ(text(drop->getGenericTimecode(-5, ':', ':', ':', 3, '0')).substr(12), "0-5");
}

TEST(LiTimeCode, AZeroByteEndsTheText)
{
    RCShdPtr<LiTimeCode> const pal(LiTimeCodePal::create());
    EXPECT_EQ(text(pal->getGenericTimecode(0, ':', '\0', ':', 2, '0')), "00:00");
    EXPECT_EQ(pal->getGenericTimecode(0, ':', '\0', ':', 2, '0').getLength(), 5);
    EXPECT_EQ(text(pal->getGenericTimecode(0, ':', ':', ':', 2, '\0')), "");
}

TEST(LiTimeCode, TheProgramsLocaleGroupsNoDigits)
{
    struct Grouping : std::numpunct<char>
    {
        char do_thousands_sep() const override { return '\''; }
        std::string do_grouping() const override { return "\3"; }
    };
    std::locale const former = std::locale::global(std::locale(std::locale(), new Grouping));
    std::string const label =
        text(LiTimeCodePal::create()->getGenericTimecode(1234 * 90000, ':', ':', ':', 2, '0'));
    std::locale::global(former);
    EXPECT_EQ(label, "1234:00:00:00");
}

} // namespace
} // namespace ZvTest
