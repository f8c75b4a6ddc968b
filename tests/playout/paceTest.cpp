// Tests of a show's clock and of its events.

#include "playoutTest.h"

#include <gmock/gmock.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <sstream>

namespace ZvTest {
namespace {

class PaceTest : public PlayoutTest
{
protected:
    static std::string show(std::string const &tags)
    {
        return "<show output='out.wav'>\n" + tags + "<clip file='in.wav'/>\n</show>\n";
    }
    static std::string event(std::string const &at, std::string const &action,
                             std::string const &value)
    {
        return "<event at='" + at + "' action='" + action + "' value='" + value + "'/>\n";
    }
    Outcome playShow(std::string const &tags, std::vector<std::string> arguments = {},
                     Playout::Surroundings surroundings = {})
    {
        writeText("show.xml", show(tags));
        arguments.push_back(path("show.xml"));
        return Playout(arguments, surroundings).finish();
    }
    void playWell(std::string const &tags, std::vector<std::string> const &arguments = {})
    {
        _outcome = playShow(tags, arguments);
        EXPECT_EQ(_outcome.status, 0);
        EXPECT_EQ(_outcome.err, "");
    }
    bool isShown(std::string const &text) const
    {
        return _outcome.out.find(text) != std::string::npos;
    }
    Sound const &makeFrames(int count)
    {
        return _sound = make("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, RATE, count * FRAME);
    }
    /// Appends frames of the input, multiplied by a factor, to the expected samples.
    void expect(int first, int end, double gain = 1)
    {
        for (int i = first * FRAME; i < end * FRAME; ++i)
            _expected.push_back(static_cast<int>(std::nearbyint(
                                    _sound.samples[static_cast<std::size_t>(i)] / 65536 * gain)) *
                                65536);
    }

    Sound _sound;
    std::vector<int> _expected;
    Outcome _outcome;
};

TEST_F(PaceTest, EachEventHappensBeforeItsFrame)
{
    makeFrames(14);
    std::string const tags =
        event("00:00:00:09", "gain", "1") + event("00:00:00:03", "gain", "0.5") +
        event("00:00:00:05", "mute", "on") + event("00:00:00:06", "mute", "off") +
        event("00:00:00:00", "gain", "0.25") + event("00:00:00:11", "jump", "00:00:00:02") +
        event("00:00:00:13", "jump", "00:00:00:13") + event("00:00:00:14", "gain", "9") +
        event("00:00:01:00", "mute", "on");
    expect(0, 3, 0.25);
    expect(3, 5, 0.5);
    expect(5, 6, 0);
    expect(6, 9, 0.5);
    expect(9, 11);
    expect(2, 4);
    expect(13, 14);
    for (auto const &arguments : {std::vector<std::string>{"--fast"}, std::vector<std::string>{}}) {
        playWell(tags, arguments);
        EXPECT_EQ(read("out.wav").samples, _expected);
        std::size_t last = 0;
        for (std::string const line :
             {"00:00:00:00  gain 0.25", "00:00:00:03  gain 0.5", "00:00:00:05  mute on",
              "00:00:00:06  mute off", "00:00:00:09  gain 1", "00:00:00:11  jump 00:00:00:02",
              "00:00:00:13  jump 00:00:00:13", "00:00:00:14  gain 9"}) {
            auto const place = _outcome.out.find("\n  " + line + "\n");
            EXPECT_NE(place, std::string::npos) << line << "\n" << _outcome.out;
            EXPECT_GE(place, last);
            last = place;
        }
        EXPECT_TRUE(isShown("\n  00:00:01:00  mute on was not reached\n")) << _outcome.out;
        EXPECT_TRUE(isShown("\nrecorded 00:00:00:14 in " + path("out.wav") + "\n"));
    }
}

TEST_F(PaceTest, EventsOfOneFrameHappenInTheOrderOfTheDocument)
{
    makeFrames(4);
    expect(0, 2);
    expect(2, 4, 0.5);
    for (auto const &arguments : {std::vector<std::string>{"--fast"}, std::vector<std::string>{}}) {
        playWell(event("00:00:00:02", "gain", "0.1") + event("00:00:00:02", "gain", "0.2") +
                     event("00:00:00:02", "gain", "0.5"),
                 arguments);
        EXPECT_EQ(read("out.wav").samples, _expected);
    }
}

TEST_F(PaceTest, AJumpBehindTheEndEndsTheRecording)
{
    makeFrames(6);
    expect(0, 2);
    playWell(event("00:00:00:02", "jump", "01:00:00:00"), {"--fast"});
    EXPECT_EQ(read("out.wav").samples, _expected);
}

TEST_F(PaceTest, TheFaderNextToThePlayerTakesTheGain)
{
    makeFrames(3);
    expect(0, 1);
    expect(1, 3, 0.5);
    playWell("<device name='player'/><device name='recorder'/><device name='a' kind='fader'/>"
             "<device name='b' kind='fader'/><sequence tree='( recorder ( b ( a ( player ) ) ) )'/>"
             "<connection stream='player:out push a:in'/><connection stream='a:out push b:in'/>"
             "<connection stream='b:out push recorder:in'/>" +
                 event("00:00:00:01", "gain", "0.5"),
             {"--fast", "--property", "a:levels:gain=1"});
    EXPECT_EQ(read("out.wav").samples, _expected);
    playWell("<device name='player'/><device name='recorder'/><device name='a' kind='fader'/>"
             "<device name='b' kind='fader'/><sequence tree='( recorder ( b ( a ( player ) ) ) )'/>"
             "<connection stream='player:out push a:in'/><connection stream='a:out push b:in'/>"
             "<connection stream='b:out push recorder:in'/>" +
                 event("00:00:00:01", "mute", "on"),
             {"--fast", "--property", "b:levels:mute=1"});
    EXPECT_EQ(read("out.wav").samples, std::vector<int>(3 * FRAME, 0));
}

TEST_F(PaceTest, AShowTakesItsTime)
{
    makeFrames(20);
    auto const start = std::chrono::steady_clock::now();
    playWell("");
    // The first frame is played at the first beat, and no other frame is early.
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(19 * 40));
    EXPECT_EQ(read("out.wav").samples, _sound.samples);
    EXPECT_TRUE(isShown("\n  PAL 25 FPS, 25 frames a second\n")) << _outcome.out;
    EXPECT_TRUE(isShown("  100 %  00:00:00:20   peak ")) << _outcome.out;
    auto const table = _outcome.out.find("\n  clock");
    ASSERT_NE(table, std::string::npos) << _outcome.out;
    std::istringstream lines(_outcome.out.substr(table));
    std::string clock, unit, late;
    lines >> clock >> unit >> late >> late;
    for (std::string const device : {"recorder", "player"}) {
        std::string name;
        long beats = 0;
        long nbLate = -1;
        lines >> name >> beats >> nbLate;
        EXPECT_EQ(name, device);
        EXPECT_GE(beats, 20);
        EXPECT_GE(nbLate, 0);
    }
}

TEST_F(PaceTest, ADelayedPlayoutCatchesUpAndReportsIt)
{
    makeFrames(100);
    writeText("show.xml", show(event("00:00:02:00", "mute", "on")));
    Playout playout({path("show.xml")});
    ASSERT_TRUE(playout.waitFor("   10 %"));
    playout.signal(SIGSTOP);
    ::usleep(10 * 40000); // ten beats pass
    playout.signal(SIGCONT);
    Outcome const outcome = playout.finish();
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    expect(0, 50);
    expect(50, 100, 0);
    EXPECT_EQ(read("out.wav").samples, _expected);
    std::istringstream table(outcome.out.substr(outcome.out.find("late beats") + 10));
    for (std::string const device : {"recorder", "player"}) {
        std::string name;
        long beats = 0;
        long nbLate = 0;
        table >> name >> beats >> nbLate;
        EXPECT_EQ(name, device);
        EXPECT_GE(beats, 100);
        EXPECT_GE(nbLate, 5) << outcome.out;
    }
}

TEST_F(PaceTest, AFastOneHasNoBeats)
{
    makeFrames(20);
    playWell("", {"--fast"});
    EXPECT_TRUE(isShown("\n  PAL 25 FPS, 25 frames a second, as fast as it goes\n"));
    EXPECT_FALSE(isShown("late beats"));
}

TEST_F(PaceTest, AllTreesAreKeptToTheClock)
{
    makeFrames(5);
    for (std::string const tree :
         {"( player ( fader ( recorder ) ) )", "( fader ( player recorder ) )"}) {
        playWell("<sequence tree='" + tree + "'/>\n");
        EXPECT_EQ(read("out.wav").samples, _sound.samples);
    }
}

TEST_F(PaceTest, FramesAreThoseOfTheRate)
{
    // Two seconds more than a minute, at which drop-frame skips labels.
    _sound = make("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 1, RATE, 62 * RATE);
    struct
    {
        char const *rate;
        char const *name;
        char const *at;
        std::size_t sample;
        char const *end;
    } const cases[] = {{"PAL", "PAL 25 FPS, 25", "00:01:00:00", 480000, "00:01:02:00"},
                       {"Film24", "Film 24 FPS, 24", "00:01:00:00", 480000, "00:01:02:00"},
                       {"NTSC ND", "NTSC Non-Drop Frame 29.97 FPS, 29.97", "00:01:00:00",
                        1800l * RATE * 100 / 2997, "00:01:01:28"},
                       {"NTSC DF", "NTSC Drop Frame 29.97 FPS, 29.97", "00;01;00;02",
                        1800l * RATE * 100 / 2997, "00;01;02;00"}};
    for (auto const &show : cases) {
        playWell(std::string("<clock rate='") + show.rate + "'/>\n" + event(show.at, "mute", "on"),
                 {"--fast"});
        auto const samples = read("out.wav").samples;
        ASSERT_EQ(samples.size(), _sound.samples.size());
        auto const at = static_cast<std::ptrdiff_t>(show.sample);
        EXPECT_TRUE(std::equal(samples.begin(), samples.begin() + at, _sound.samples.begin()));
        EXPECT_TRUE(std::all_of(samples.begin() + at, samples.end(),
                                [](int sample) { return sample == 0; }));
        EXPECT_TRUE(isShown(std::string("\n  ") + show.name + " frames a second")) << _outcome.out;
        EXPECT_TRUE(isShown(std::string("\n  ") + show.at + "  mute on\n")) << _outcome.out;
        EXPECT_TRUE(isShown(std::string("\nrecorded ") + show.end + " in ")) << _outcome.out;
    }
}

TEST_F(PaceTest, AFileMayHaveFewerSamplesThanTheClockHasFrames)
{
    Sound const sound = make("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 10, 7);
    playWell("", {"--fast"});
    EXPECT_EQ(read("out.wav").samples, sound.samples);
    playWell("");
    EXPECT_EQ(read("out.wav").samples, sound.samples);
}

TEST_F(PaceTest, APlainFileCanBeCuedToo)
{
    makeFrames(5);
    Outcome const outcome = play("in.wav", "out.wav", {"--property", "player:transport:cue=0.08"});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    expect(2, 5);
    EXPECT_EQ(read("out.wav").samples, _expected);
}

TEST_F(PaceTest, AnInvalidEventIsRefusedWithItsLine)
{
    makeFrames(1);
    auto const fails = [&](std::string const &reason, std::string const &tags) {
        SCOPED_TRACE(tags);
        writeText("show.xml", show(tags));
        auto const before = files();
        Outcome const outcome = playShow(tags);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(withoutFolder(outcome.err), "zvplayout: %show.xml:" + reason + "\n");
        EXPECT_EQ(files(), before);
    };
    fails("2: event gain loud: \"loud\" is no number", event("00:00:00:00", "gain", "loud"));
    fails("2: event mute 1: \"1\" is none of on, off", event("00:00:00:00", "mute", "1"));
    fails("2: event jump 5: \"5\" is no timecode of PAL 25 FPS", event("00:00:00:00", "jump", "5"));
    for (std::string const at : {"", "1", "00:00:00:25", "00:00:60:00", "24:00:00:00",
                                 "00:00:00;00", "00:00:00:000", "0:00:00:000", "-0:00:00:00"})
        fails("2: event mute on: \"" + at + "\" is no timecode of PAL 25 FPS",
              event(at, "mute", "on"));
    for (std::string const at : {"00;01;00;00", "00;09;00;01", "00:01:00:02"})
        fails("3: event mute on: \"" + at + "\" is no timecode of NTSC Drop Frame 29.97 FPS",
              "<clock rate='NTSC DF'/>\n" + event(at, "mute", "on"));
    fails("4: event mute on: the player is connected to no fader",
          "<sequence tree='( recorder ( player ) )'/>\n"
          "<connection stream='player:out push recorder:in'/>\n" +
              event("00:00:00:00", "mute", "on"));
}

TEST_F(PaceTest, AFailureOnTheWayLeavesNothing)
{
    makeFrames(50);
    for (auto const &arguments : {std::vector<std::string>{"--fast"}, std::vector<std::string>{}}) {
        Playout::Surroundings surroundings;
        surroundings.largestFile = 10000;
        Outcome const outcome = playShow(event("00:00:00:10", "jump", "00:00:00:09") +
                                             event("00:00:01:00", "mute", "on"),
                                         arguments, surroundings);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(withoutFolder(outcome.err), "zvplayout: cannot write %out.wav: File too large\n");
        EXPECT_EQ(files(), (std::set<std::string>{"in.wav", "show.xml"}));
    }
}

TEST_F(PaceTest, ASignalStopsAShow)
{
    _sound = make("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 1, RATE, 3600 * RATE);
    writeText("show.xml",
              show(event("00:00:00:02", "mute", "on") + event("00:59:00:00", "mute", "off")));
    for (std::string const text : {"( recorder", "-> lock", "mute on"}) {
        Playout playout({path("show.xml")});
        ASSERT_TRUE(playout.waitFor(text));
        playout.signal(SIGINT);
        Outcome const outcome = playout.finish();
        EXPECT_EQ(outcome.status, 128 + SIGINT);
        EXPECT_EQ(outcome.err, "zvplayout: interrupted: " + path("out.wav") + " was not written\n");
        EXPECT_EQ(files(), (std::set<std::string>{"in.wav", "show.xml"}));
    }
}

} // namespace
} // namespace ZvTest
