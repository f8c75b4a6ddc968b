// Tests of the picture of a recording, and of real time.

#include "playoutTest.h"

#include "resmgt/xml.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace ZvTest {
namespace {

constexpr int RATE = 8000;
constexpr int FRAME = RATE / 25;
constexpr int PCM = SF_FORMAT_WAV | SF_FORMAT_PCM_16;

class WaveformTest : public PlayoutTest
{
protected:
    using Points = std::vector<std::pair<int, int>>;

    Outcome playShow(std::string const &tags, std::vector<std::string> arguments = {"--fast"},
                     Playout::Surroundings surroundings = {})
    {
        writeText("show.xml", "<show output='out.wav'>" + tags + "</show>");
        arguments.push_back(path("show.xml"));
        return Playout(arguments, surroundings).finish();
    }
    /// Returns the outline: its upper edge from left to right, then its lower edge from right to
    /// left.
    Points getPoints(Zv::XmlDocument const &picture) const
    {
        auto const paths = picture.getElementsByTagName("path");
        EXPECT_EQ(paths.getCardinality(), 1u);
        std::string text = (*paths)->getAttribute("d").getChars();
        EXPECT_EQ(text.front(), 'M');
        EXPECT_EQ(text.back(), 'Z');
        std::istringstream stream(text.substr(1, text.size() - 2));
        Points points;
        for (int x = 0, y = 0; stream >> x >> y;)
            points.emplace_back(x, y);
        return points;
    }
    std::string getText(std::string const &name) const
    {
        std::ostringstream text;
        text << std::ifstream(path(name)).rdbuf();
        return text.str();
    }
};

TEST_F(WaveformTest, ShowsTheExtremesOfAllChannels)
{
    Sound sound{PCM, 2, RATE, std::vector<int>(2 * 30 * FRAME)};
    for (std::size_t i = 0; i < sound.samples.size(); ++i)
        if (i >= sound.samples.size() / 2)
            sound.samples[i] = i % 2 == 0 ? 1 << 30 : -(1 << 29); // 0.5 and -0.25
    write("in.wav", sound);
    EXPECT_EQ(playShow("<clip file='in.wav'/>").status, 0);
    std::ifstream file(path("out.svg"));
    Zv::XmlDocument const picture(file);
    EXPECT_STREQ(picture.getRoot()->getNodeName().getChars(), "svg");
    EXPECT_STREQ(picture.getRoot()->getAttribute("xmlns").getChars(), "http://www.w3.org/2000/svg");
    EXPECT_STREQ(picture.getRoot()->getAttribute("viewBox").getChars(), "0 0 1200 240");
    Points const points = getPoints(picture);
    ASSERT_EQ(points.size(), 2400u);
    for (int x = 0; x < 1200; ++x) {
        auto const i = static_cast<std::size_t>(x);
        EXPECT_EQ(points[i], std::pair(x, x < 600 ? 120 : 60));
        EXPECT_EQ(points[2399 - i], std::pair(x, x < 600 ? 121 : 151));
    }
    EXPECT_EQ(files(), (std::set<std::string>{"in.wav", "out.svg", "out.wav", "show.xml"}));
}

TEST_F(WaveformTest, APeakIsAtItsPosition)
{
    for (int const at : {0, 1, 4000, 5555, 9599}) {
        Sound sound{PCM, 1, RATE, std::vector<int>(9600)};
        sound.samples[static_cast<std::size_t>(at)] = 1 << 30;
        write("in.wav", sound);
        EXPECT_EQ(playShow("<clip file='in.wav'/>").status, 0);
        std::ifstream file(path("out.svg"));
        Points const points = getPoints(Zv::XmlDocument(file));
        ASSERT_EQ(points.size(), 2400u);
        int const part = at / (FRAME / 4) * (FRAME / 4); // a frame has four parts
        for (int x = 0; x < 1200; ++x)
            EXPECT_EQ(points[static_cast<std::size_t>(x)].second,
                      x * 8 < part + FRAME / 4 && x * 8 + 8 > part ? 60 : 120)
                << at << " " << x;
    }
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
    std::ifstream file(path("out.svg"));
    Zv::XmlDocument const picture(file);
    std::vector<std::string> marks;
    for (auto line = picture.getElementsByTagName("line"); !line.atEnd(); ++line)
        marks.emplace_back((*line)->getAttribute("x1").getChars());
    EXPECT_EQ(marks, (std::vector<std::string>{"300", "1200"}));
    std::vector<std::string> labels;
    for (auto label = picture.getElementsByTagName("text"); !label.atEnd(); ++label)
        labels.emplace_back((*label)->getData().getChars());
    EXPECT_EQ(labels,
              (std::vector<std::string>{"\n00:00:01:00 gain 2 mute on", "\n00:00:04:00 mute off"}));
}

TEST_F(WaveformTest, IsFlatIfNothingWasRecorded)
{
    make("in.wav", PCM, 2, RATE, 0);
    Outcome const outcome = playShow("<clip file='in.wav'/>"
                                     "<event at='00:00:00:00' action='mute' value='on'/>");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_NE(outcome.out.find("\nits waveform is " + path("out.svg") + "\n"), std::string::npos);
    std::ifstream file(path("out.svg"));
    for (auto const &[x, y] : getPoints(Zv::XmlDocument(file)))
        EXPECT_TRUE(y == 120 || y == 121) << x;
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
