// Tests of the picture of a recording, and of real time.

#include "playoutTest.h"

#include "resmgt/xml.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace ZvTest {
namespace {

constexpr int FONT_SIZE = 11;
constexpr double CHARACTER_WIDTH = 0.6 * FONT_SIZE; // of DejaVu Sans, one of the widest fonts

struct Box
{
    double left;
    double top;
    double right;
    double bottom;

    bool meets(Box const &other) const
    {
        return left < other.right && other.left < right && top < other.bottom && other.top < bottom;
    }
};

/// What is in a picture.
struct Picture
{
    using Points = std::vector<std::pair<int, int>>;
    struct Text
    {
        std::string style;
        std::string text;
        double x;
        Box box;
    };

    explicit Picture(std::string const &path)
    {
        std::ifstream file(path);
        Zv::XmlDocument const document(file);
        EXPECT_STREQ(document.getRoot()->getNodeName().getChars(), "svg");
        EXPECT_STREQ(document.getRoot()->getAttribute("xmlns").getChars(),
                     "http://www.w3.org/2000/svg");
        std::istringstream box(document.getRoot()->getAttribute("viewBox").getChars());
        box >> all.left >> all.top >> all.right >> all.bottom;
        for (auto rect = document.getElementsByTagName("rect"); !rect.atEnd(); ++rect)
            if ((*rect)->getAttribute("class") == "plot")
                plots.push_back(toBox(**rect));
        for (auto wave = document.getElementsByTagName("path"); !wave.atEnd(); ++wave)
            waves.push_back(toPoints((*wave)->getAttribute("d").getChars()));
        for (auto line = document.getElementsByTagName("line"); !line.atEnd(); ++line)
            if ((*line)->getAttribute("class") == "event")
                events.push_back({getNumber(**line, "x1"), getNumber(**line, "y1"),
                                  getNumber(**line, "x2"), getNumber(**line, "y2")});
        for (auto text = document.getElementsByTagName("text"); !text.atEnd(); ++text)
            texts.push_back(toText(**text));
    }

    static double getNumber(Zv::XmlElement const &element, char const *name)
    {
        return std::stod(element.getAttribute(name).getChars());
    }
    static Box toBox(Zv::XmlElement const &rect)
    {
        double const x = getNumber(rect, "x");
        double const y = getNumber(rect, "y");
        return {x, y, x + getNumber(rect, "width"), y + getNumber(rect, "height")};
    }
    /// Returns the outline: its upper edge from left to right, then its lower edge from right to
    /// left.
    static Points toPoints(std::string const &text)
    {
        EXPECT_EQ(text.front(), 'M');
        EXPECT_EQ(text.back(), 'Z');
        std::istringstream stream(text.substr(1, text.size() - 2));
        Points points;
        for (int x = 0, y = 0; stream >> x >> y;)
            points.emplace_back(x, y);
        return points;
    }
    static Text toText(Zv::XmlElement const &element)
    {
        std::string text = element.getData().getChars();
        text.erase(0, text.find_first_not_of('\n'));
        double const x = getNumber(element, "x");
        double const y = getNumber(element, "y");
        auto const characters = std::count_if(
            text.begin(), text.end(), [](unsigned char byte) { return (byte & 0xC0) != 0x80; });
        double const width = static_cast<double>(characters) * CHARACTER_WIDTH;
        std::string const anchor = element.getAttribute("text-anchor").getChars();
        double const left = anchor == "end" ? x - width : anchor == "middle" ? x - width / 2 : x;
        return {element.getAttribute("class").getChars(),
                text,
                x,
                {left, y - 0.76 * FONT_SIZE, left + width, y + 0.24 * FONT_SIZE}};
    }

    std::vector<std::string> getTexts(std::string const &style) const
    {
        std::vector<std::string> found;
        for (Text const &text : texts)
            if (text.style == style)
                found.push_back(text.text);
        return found;
    }
    /// Returns the labels of the time axis, from left to right.
    std::vector<Text> getTimes() const
    {
        std::vector<Text> found;
        for (Text const &text : texts)
            if (text.box.top > plots.back().bottom)
                found.push_back(text);
        return found;
    }

    Box all{};
    std::vector<Box> plots;    // of the channels
    std::vector<Points> waves; // of the channels
    std::vector<Box> events;   // lines
    std::vector<Text> texts;
};

class WaveformTest : public PlayoutTest
{
protected:
    Outcome playShow(std::string const &tags, std::vector<std::string> arguments = {"--fast"},
                     Playout::Surroundings surroundings = {})
    {
        writeText("show.xml", "<show output='out.wav'>" + tags + "</show>");
        arguments.push_back(path("show.xml"));
        return Playout(arguments, surroundings).finish();
    }
    Picture getPicture() const { return Picture(path("out.svg")); }
    void writeSilence(int channels, int rate, double seconds) const
    {
        auto const frames = static_cast<std::size_t>(seconds * rate);
        write("in.wav",
              {PCM, channels, rate, std::vector<int>(static_cast<std::size_t>(channels) * frames)});
    }
};

TEST_F(WaveformTest, ShowsTheExtremesOfEachChannel)
{
    Sound sound{PCM, 2, RATE, std::vector<int>(2 * 30 * FRAME)};
    for (std::size_t i = 0; i < sound.samples.size(); ++i)
        if (i >= sound.samples.size() / 2)
            sound.samples[i] = i % 2 == 0 ? 1 << 30 : -(1 << 29); // 0.5 and -0.25
    write("in.wav", sound);
    EXPECT_EQ(playShow("<clip file='in.wav'/>").status, 0);
    Picture const picture = getPicture();
    ASSERT_EQ(picture.plots.size(), 2u);
    ASSERT_EQ(picture.waves.size(), 2u);
    for (std::size_t channel = 0; channel < 2; ++channel) {
        Box const &plot = picture.plots[channel];
        auto const left = static_cast<int>(plot.left);
        auto const width = static_cast<int>(plot.right) - left;
        auto const middle = static_cast<int>(plot.top + plot.bottom) / 2;
        double const half = (plot.bottom - plot.top) / 2;
        auto const highest = static_cast<int>(std::lround(plot.top + half * 0.5));
        auto const lowest = static_cast<int>(std::lround(plot.top + half * 1.25)) + 1;
        auto const &points = picture.waves[channel];
        ASSERT_EQ(points.size(), 2 * static_cast<std::size_t>(width));
        for (int x = 0; x < width; ++x) {
            auto const i = static_cast<std::size_t>(x);
            bool const isLoud = x >= width / 2;
            EXPECT_EQ(points[i], std::pair(left + x, isLoud && channel == 0 ? highest : middle));
            EXPECT_EQ(points[points.size() - 1 - i],
                      std::pair(left + x, isLoud && channel == 1 ? lowest : middle + 1));
        }
    }
    EXPECT_LT(picture.plots[0].bottom, picture.plots[1].top);
    EXPECT_EQ(picture.getTexts("strong"), (std::vector<std::string>{"left", "right"}));
    auto const labels = picture.getTexts("label");
    EXPECT_EQ(std::count(labels.begin(), labels.end(), "peak -6.0 dB"), 1);
    EXPECT_EQ(std::count(labels.begin(), labels.end(), "peak -12.0 dB"), 1);
    EXPECT_EQ(files(), (std::set<std::string>{"in.wav", "out.svg", "out.wav", "show.xml"}));
}

TEST_F(WaveformTest, APeakIsAtItsPosition)
{
    for (int const at : {0, 1, 4000, 5555, 9599}) {
        Sound sound{PCM, 1, RATE, std::vector<int>(9600)};
        sound.samples[static_cast<std::size_t>(at)] = 1 << 30;
        write("in.wav", sound);
        EXPECT_EQ(playShow("<clip file='in.wav'/>").status, 0);
        Picture const picture = getPicture();
        Box const &plot = picture.plots.at(0);
        auto const width = static_cast<int>(plot.right - plot.left);
        auto const &points = picture.waves.at(0);
        ASSERT_EQ(points.size(), 2 * static_cast<std::size_t>(width));
        int const part = at / (FRAME / 16) * (FRAME / 16); // a frame has sixteen parts
        auto const middle = static_cast<int>(plot.top + plot.bottom) / 2;
        auto const high = static_cast<int>(plot.top * 3 + plot.bottom) / 4;
        for (int x = 0; x < width; ++x)
            EXPECT_EQ(points[static_cast<std::size_t>(x)].second,
                      x * 9600 < (part + FRAME / 16) * width && (x + 1) * 9600 > part * width
                          ? high
                          : middle)
                << at << " " << x;
    }
}

TEST_F(WaveformTest, TheLevelsAreWhereTheWaveHasThem)
{
    writeSilence(1, RATE, 1);
    EXPECT_EQ(playShow("<clip file='in.wav'/>").status, 0);
    Picture const picture = getPicture();
    Box const &plot = picture.plots.at(0);
    double const half = (plot.bottom - plot.top) / 2;
    std::set<std::string> levels;
    for (auto const &text : picture.texts) {
        if (text.box.right > plot.left || text.text == "-∞")
            continue;
        double const height = half * std::pow(10, std::stod(text.text) / 20);
        double const y = (text.box.top + text.box.bottom) / 2;
        EXPECT_NEAR(std::abs(y - plot.top - half), height, 2.5) << text.text;
        levels.insert(text.text);
    }
    EXPECT_EQ(levels, (std::set<std::string>{"0 dB", "-3", "-6", "-12"}));
}

TEST_F(WaveformTest, TimesAreRoundAndInTheirPlaces)
{
    using Times = std::vector<std::string>;
    auto const check = [this](int rate, double seconds, Times const &expected) {
        writeSilence(1, rate, seconds);
        EXPECT_EQ(playShow("<clip file='in.wav'/>").status, 0);
        Picture const picture = getPicture();
        Times times;
        for (auto const &text : picture.getTimes()) {
            times.push_back(text.text);
            std::istringstream words(text.text);
            double value = 0;
            std::string unit;
            words >> value;
            for (char colon = 0; words.peek() == ':';) {
                double part = 0;
                words >> colon >> part;
                value = value * 60 + part;
            }
            if (words >> unit && unit == "ms")
                value /= 1000;
            Box const &plot = picture.plots.at(0);
            EXPECT_NEAR(text.x, plot.left + value / seconds * (plot.right - plot.left), 0.01)
                << text.text;
        }
        EXPECT_EQ(times, expected) << seconds;
    };
    check(RATE, 0.05,
          {"0 ms", "5 ms", "10 ms", "15 ms", "20 ms", "25 ms", "30 ms", "35 ms", "40 ms", "45 ms",
           "50 ms"});
    check(RATE, 2,
          {"0 s", "0.2 s", "0.4 s", "0.6 s", "0.8 s", "1 s", "1.2 s", "1.4 s", "1.6 s", "1.8 s",
           "2 s"});
    check(RATE, 30, {"0 s", "5 s", "10 s", "15 s", "20 s", "25 s", "30 s"});
    check(1000, 200, {"0:00", "0:30", "1:00", "1:30", "2:00", "2:30", "3:00"});
    check(100, 4000, {"0:00:00", "0:10:00", "0:20:00", "0:30:00", "0:40:00", "0:50:00", "1:00:00"});
}

TEST_F(WaveformTest, MarksWhatHasHappened)
{
    make("in.wav", PCM, 1, RATE, 100 * FRAME);
    EXPECT_EQ(playShow("<clip file='in.wav'/><event at='00:00:01:00' action='gain' value='2'/>"
                       "<event at='00:00:04:00' action='mute' value='off'/>"
                       "<event at='00:00:01:00' action='mute' value='on'/>"
                       "<event at='00:00:04:01' action='mute' value='on'/>")
                  .status,
              0);
    Picture const picture = getPicture();
    Box const &plot = picture.plots.at(0);
    ASSERT_EQ(picture.events.size(), 2u);
    EXPECT_NEAR(picture.events[0].left, plot.left + (plot.right - plot.left) / 4, 0.01);
    EXPECT_NEAR(picture.events[1].left, plot.right, 0.01);
    EXPECT_EQ(picture.getTexts("eventtext"),
              (std::vector<std::string>{"00:00:01:00 gain 2 mute on", "00:00:04:00 mute off"}));
}

TEST_F(WaveformTest, LabelsCoverNeitherEachOtherNorTheWave)
{
    auto const check = [this](int channels, double seconds, std::vector<double> const &moments,
                              std::size_t leastLabels) {
        writeSilence(channels, 1000, seconds);
        std::string tags = "<clip file='in.wav'/>";
        for (double const moment : moments) {
            auto const frame = static_cast<int>(std::lround(moment * 25));
            char timecode[32];
            std::snprintf(timecode, sizeof timecode, "%02d:%02d:%02d:%02d", frame / 90000,
                          frame / 1500 % 60, frame / 25 % 60, frame % 25);
            tags += std::string("<event at='") + timecode + "' action='mute' value='off'/>";
        }
        EXPECT_EQ(playShow(tags).status, 0);
        Picture const picture = getPicture();
        EXPECT_EQ(picture.events.size(), moments.size());
        auto const nbLabels = picture.getTexts("eventtext").size();
        EXPECT_GE(nbLabels, leastLabels) << seconds;
        std::vector<std::string> const notes = picture.getTexts("label");
        EXPECT_EQ(std::count(notes.begin(), notes.end(),
                             std::to_string(nbLabels) + " of " + std::to_string(moments.size()) +
                                 " events have a label"),
                  nbLabels < moments.size() ? 1 : 0);
        for (std::size_t i = 0; i < picture.texts.size(); ++i) {
            auto const &text = picture.texts[i];
            EXPECT_FALSE(text.box.left < 0 || text.box.top < 0 ||
                         text.box.right > picture.all.right || text.box.bottom > picture.all.bottom)
                << text.text;
            for (std::size_t other = 0; other < i; ++other)
                EXPECT_FALSE(text.box.meets(picture.texts[other].box))
                    << text.text << " and " << picture.texts[other].text;
            for (Box const &event : picture.events)
                EXPECT_FALSE(text.box.meets(event)) << text.text << " and a line";
            for (Box const &plot : picture.plots)
                EXPECT_FALSE(text.box.meets(plot)) << text.text << " and the wave";
        }
    };
    check(1, 2, {}, 0);
    check(1, 2, {0, 0.04, 0.4, 1.88, 1.92, 1.96}, 6);
    check(2, 30, {0, 10, 10.04, 12, 29.8, 29.92}, 6);
    std::vector<double> many;
    for (int i = 0; i < 59; ++i)
        many.push_back(i * 10 + 3);
    check(2, 600, many, 20);
    check(6, 3, {1, 2}, 2);
    check(10, 1, {0.5}, 1);
}

TEST_F(WaveformTest, NamesItsChannels)
{
    using Names = std::vector<std::string>;
    auto const getNames = [this](int channels) {
        writeSilence(channels, RATE, 0.1);
        EXPECT_EQ(playShow("<clip file='in.wav'/>").status, 0);
        Picture const picture = getPicture();
        EXPECT_EQ(picture.plots.size(), picture.waves.size());
        EXPECT_EQ(picture.getTexts("strong").size(), picture.waves.size());
        return picture.getTexts("strong");
    };
    EXPECT_EQ(getNames(1), (Names{"mono"}));
    EXPECT_EQ(getNames(3), (Names{"left", "right", "centre"}));
    EXPECT_EQ(getNames(8).size(), 8u);
    EXPECT_EQ(getNames(9), (Names{"9 channels"}));
}

TEST_F(WaveformTest, IsFlatIfNothingWasRecorded)
{
    make("in.wav", PCM, 2, RATE, 0);
    Outcome const outcome = playShow("<clip file='in.wav'/>"
                                     "<event at='00:00:00:00' action='mute' value='on'/>");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_NE(outcome.out.find("\nits waveform is " + path("out.svg") + "\n"), std::string::npos);
    Picture const picture = getPicture();
    for (std::size_t channel = 0; channel < 2; ++channel) {
        Box const &plot = picture.plots.at(channel);
        auto const middle = static_cast<int>(plot.top + plot.bottom) / 2;
        for (auto const &[x, y] : picture.waves.at(channel))
            EXPECT_TRUE(y == middle || y == middle + 1) << x;
    }
}

TEST_F(WaveformTest, APictureThatCannotBeWrittenIsAFailure)
{
    make("in.wav", PCM, 1, RATE, 1000);
    make("out.wav", PCM, 1, RATE, 10);
    Sound const before = read("out.wav");
    auto const fails = [&](std::string const &reason, std::string const &tags) {
        auto const known = files();
        Outcome const outcome = playShow(tags);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(withoutFolder(outcome.err), "zvplayout: cannot write %" + reason + "\n");
        EXPECT_EQ(files(), known);
        EXPECT_EQ(read("out.wav").samples, before.samples);
    };
    writeText("show.xml", "");
    std::filesystem::create_directory(path("out.svg"));
    fails("out.svg: Is a directory", "<clip file='in.wav'/>");
    std::filesystem::remove(path("out.svg"));
    writeText("out.svg.part", "another's");
    int const other = ::open(path("out.svg.part").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(::flock(other, LOCK_EX), 0);
    fails("out.svg: another process is writing it", "<clip file='in.wav'/>");
    ::close(other);
    std::filesystem::remove(path("out.svg.part"));
    std::filesystem::rename(path("in.wav"), path("out.svg"));
    fails("out.svg: it is the input", "<clip file='out.svg'/>");
}

TEST_F(WaveformTest, AFullDiskLeavesNeitherPictureNorRecording)
{
    make("in.wav", PCM, 1, RATE, 1000); // smaller than the picture
    Playout::Surroundings surroundings;
    surroundings.largestFile = 4000;
    Outcome const outcome = playShow("<clip file='in.wav'/>", {"--fast"}, surroundings);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(withoutFolder(outcome.err), "zvplayout: cannot write %out.svg: File too large\n");
    EXPECT_EQ(files(), (std::set<std::string>{"in.wav", "show.xml"}));
}

TEST_F(WaveformTest, TheSampleShowIsAShow)
{
    Outcome const outcome = Playout({"--dump-show", ZVPLAYOUT_SHOW}).finish();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
}

class RealTimeTest : public WaveformTest
{
protected:
    /// Returns whether a process with the privileges of this one may run in real time.
    static bool mayRunRealTime()
    {
        pid_t const probe = ::fork();
        if (probe == 0) {
            sched_param const highest{31};
            ::_exit(::sched_setscheduler(0, SCHED_RR, &highest) == 0 ? 0 : 1);
        }
        int status = -1;
        ::waitpid(probe, &status, 0);
        return status == 0;
    }
};

TEST_F(RealTimeTest, SaysWhatItGot)
{
    Sound const sound = make("in.wav", PCM, 1, RATE, 10 * FRAME);
    for (auto const &arguments : {std::vector<std::string>{"--realtime"},
                                  std::vector<std::string>{"--realtime", "--fast"}}) {
        Outcome const outcome = playShow("<clip file='in.wav'/>", arguments);
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        EXPECT_EQ(outcome.out.find(mayRunRealTime() ? "  real time: granted; "
                                                    : "  real time: refused; "),
                  0u)
            << outcome.out;
        EXPECT_EQ(read("out.wav").samples, sound.samples);
    }
}

TEST_F(RealTimeTest, ARefusalSaysWhatWouldGrantIt)
{
    Sound const sound = make("in.wav", PCM, 1, RATE, 10 * FRAME);
    Playout::Surroundings surroundings;
    surroundings.unprivileged = true;
    Outcome const outcome = play("in.wav", "out.wav", {"--realtime"}, surroundings);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(
        outcome.out.find(R"(  real time: refused; this process has no capability CAP_SYS_NICE, )"
                         R"(and its limit RLIMIT_RTPRIO is 0
    to have it granted, do one of these:
      a line "@audio - rtprio 31" in /etc/security/limits.conf, and a new login of a member
      setcap cap_sys_nice+ep on the program, as root
      --cap-add SYS_NICE, or --ulimit rtprio=31, where it runs in a container
)"),
        0u)
        << outcome.out;
    EXPECT_EQ(read("out.wav").samples, sound.samples);
}

TEST_F(RealTimeTest, TheEnvironmentMayForbidIt)
{
    make("in.wav", PCM, 1, RATE, FRAME);
    Playout::Surroundings surroundings;
    surroundings.noRealTime = "1";
    Outcome const outcome = play("in.wav", "out.wav", {"--realtime"}, surroundings);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.out.find(
                  "  real time: not asked for, since ZV_THREAD_NO_REALTIME is set; unset it\n"),
              0u)
        << outcome.out;
}

TEST_F(RealTimeTest, TheSystemIsNotAskedWithoutTheOption)
{
    make("in.wav", PCM, 1, RATE, FRAME);
    EXPECT_EQ(play("in.wav", "out.wav").out.find("real time"), std::string::npos);
}

} // namespace
} // namespace ZvTest
