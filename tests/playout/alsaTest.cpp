// Tests of sound through ALSA, with its plugins `file` and `null` in place of a sound card.

#include "soundTest.h"

#include <gmock/gmock.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace ZvTest {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;

class AlsaTest : public SoundTest
{
protected:
    AlsaTest()
    {
        writeText("asoundrc",
                  "pcm.null { type null }\n"
                  "pcm.out { type file slave.pcm null file '" +
                      path("out.raw") +
                      "' format raw }\n"
                      "pcm.in { type file slave.pcm null file /dev/null infile '" +
                      path("in.raw") +
                      "' format raw }\n"
                      "pcm.full { type file slave.pcm null file /dev/full format raw }\n"
                      "pcm.rate { type rate slave { pcm null rate 48000 } }\n"
                      "pcm.converter { type lfloat slave { pcm rate format S16_LE } }\n"
                      "pcm.whole { type linear slave { pcm null format S16_LE } }\n");
        ::setenv("ALSA_CONFIG_PATH", path("asoundrc").c_str(), 1);
    }
    ~AlsaTest() override { ::unsetenv("ALSA_CONFIG_PATH"); }

    /// Makes what the device "in" captures: 1, 2, 3 and so on, in two channels.
    void makeInput(int seconds) const
    {
        std::vector<float> samples;
        for (int i = 1; i <= 2 * seconds * RATE; ++i)
            samples.push_back(static_cast<float>(i));
        std::ofstream(path("in.raw"), std::ios::binary)
            .write(reinterpret_cast<char const *>(samples.data()),
                   static_cast<std::streamsize>(samples.size() * sizeof(float)));
    }
    /// Returns what the device "out" has played.
    std::vector<float> getPlayed() const
    {
        std::vector<float> samples(std::filesystem::file_size(path("out.raw")) / sizeof(float));
        std::ifstream(path("out.raw"), std::ios::binary)
            .read(reinterpret_cast<char *>(samples.data()),
                  static_cast<std::streamsize>(samples.size() * sizeof(float)));
        return samples;
    }
    /// Checks that the samples are a part of the input without a gap.
    static void expectInput(std::vector<float> const &samples, std::size_t frames)
    {
        ASSERT_EQ(samples.size(), 2 * frames);
        for (std::size_t i = 1; i < samples.size(); ++i)
            ASSERT_EQ(samples[i], samples[i - 1] + 1) << i;
    }
    /// Returns surroundings in which a call is refused.
    Playout::Surroundings refuse(std::string const &call) const
    {
        Playout::Surroundings surroundings;
        surroundings.refused = call;
        surroundings.refusals = "/dev/null";
        return surroundings;
    }
    /// Runs the program. On a busy machine, the sound must not run out.
    static Outcome run(std::vector<std::string> arguments, Playout::Surroundings surroundings = {})
    {
        arguments.insert(arguments.end(), {"--property", "speaker:card:latency=1.5"});
        return Playout(arguments, surroundings).finish();
    }
};

TEST_F(AlsaTest, WhatIsHeardIsTheRecording)
{
    for (int const channels : {1, 2, 5}) {
        auto const expected = makeSound(channels, RATE + 7);
        Outcome const outcome = run({path("in.wav"), "--to", "alsa:out"});
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.err, "");
        EXPECT_TRUE(getHeard(getPlayed()) == expected);
        EXPECT_THAT(outcome.out, HasSubstr("\nplayed 00:00:01:00 to ALSA\n"));
        EXPECT_THAT(outcome.out,
                    ContainsRegex("\n  ALSA +[0-9]+ +0 +0\\.000 ms +0 +0\\.000 ms +0\n"));
    }
}

TEST_F(AlsaTest, TheDeviceTakesTheRateOfTheRecording)
{
    auto const expected = makeSound(2, 3 * 44100, 44100); // more than the ring has room for
    EXPECT_EQ(run({path("in.wav"), "--to", "alsa:out"}).status, 0);
    EXPECT_TRUE(getHeard(getPlayed()) == expected);
}

TEST_F(AlsaTest, WhatIsCapturedIsTheInput)
{
    makeInput(6);
    Outcome const outcome =
        Playout({"--from", "alsa:in", path("out.wav"), "--length", "1.5"}).finish();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_THAT(outcome.out, HasSubstr("\nrecorded 00:00:01:12 in " + path("out.wav") + "\n"));
    EXPECT_THAT(outcome.out, ContainsRegex("\n  ALSA +[0-9]+ +0 +0\\.000 ms +0 +0\\.000 ms +0\n"));
    expectInput(readFloats("out.wav", 2), RATE * 3 / 2);
}

TEST_F(AlsaTest, AMicrophoneIsHeardInASpeaker)
{
    makeInput(8);
    Outcome const outcome = run({"--from", "alsa:in", "--to", "alsa:out", "--length", "2"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    expectInput(getHeard(getPlayed()), 2 * RATE);
}

TEST_F(AlsaTest, ADeviceOfAShowHasItsOwnCard)
{
    auto const expected = makeSound(1, RATE);
    writeText("show.xml", "<show><device name='player'/><device name='fader'/>"
                          "<device name='out' kind='speaker' card='alsa:out'>"
                          "<property name='card:latency' value='1.5'/></device>"
                          "<clip file='in.wav'/></show>");
    EXPECT_EQ(Playout({path("show.xml")}).finish().status, 0);
    EXPECT_TRUE(getHeard(getPlayed()) == expected);
}

TEST_F(AlsaTest, TheSequenceChoosesAmongTheDevicesOfAShow)
{
    auto const expected = makeSound(1, RATE);
    writeText("show.xml", "<show><device name='player'/><device name='fader'/>"
                          "<device name='studio' kind='speaker' card='alsa:none'>"
                          "<property name='card:latency' value='2'/></device>"
                          "<device name='hall' kind='speaker' card='alsa:out'>"
                          "<property name='card:latency' value='1.5'/></device>"
                          "<device name='line' kind='microphone' card='jack'/>"
                          "<sequence tree='(hall(fader(player)))'/>"
                          "<connection stream='player:out push fader:in'/>"
                          "<connection stream='fader:out push hall:in'/>"
                          "<clip file='in.wav'/></show>");
    Outcome const outcome = Playout({path("show.xml")}).finish();
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_TRUE(getHeard(getPlayed()) == expected);
    std::vector<std::string> const choice{path("show.xml"), "--sequence", "( studio ( player ) )",
                                          "--stream", "player:out push studio:in"};
    expectError(choice, 1,
                "the ALSA device \"none\" cannot be opened: No such file or directory. "
                "\"aplay -L\" lists the devices");
}

TEST_F(AlsaTest, EachMicrophoneOfAShowHasItsOwnCard)
{
    makeInput(6);
    writeText("show.xml", "<show output='out.wav'>"
                          "<device name='booth' kind='microphone' card='alsa:none'/>"
                          "<device name='desk' kind='microphone' card='alsa:in'/>"
                          "<device name='monitor' kind='speaker' card='alsa:none'/>"
                          "<device name='recorder'/>"
                          "<sequence tree='( recorder ( desk ) )'/>"
                          "<connection stream='desk:out push recorder:in'/></show>");
    Outcome const outcome = Playout({path("show.xml"), "--length=0.5"}).finish();
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    expectInput(readFloats("out.wav", 2), RATE / 2);
    expectUsage({path("show.xml"), "--sequence", "( recorder ( player ) )"},
                "--sequence: without a microphone, a show needs a clip");
    expectUsage({path("show.xml"), "--sequence", "( recorder )", "--from", "alsa"},
                "--from: the sequence has no player");
}

TEST_F(AlsaTest, TwoDevicesOfAKindAreRefusedWithTheirCards)
{
    makeSound(1, RATE);
    std::string const devices = "<device name='hall' kind='speaker' card='alsa:out'/>"
                                "<device name='studio' kind='speaker' card='alsa:null'/>"
                                "<device name='desk' kind='microphone' card='alsa:in'/>"
                                "<device name='booth' kind='microphone' card='alsa:null'/>"
                                "<device name='stage' kind='microphone'/>"
                                "<device name='player'/><device name='recorder'/>\n";
    auto const refuse = [&](std::string const &tree, std::string const &more,
                            std::string const &reason) {
        writeText("show.xml",
                  "<show>\n" + devices + "<sequence tree='" + tree + "'/>" + more + "</show>");
        std::vector<std::string> arguments{path("show.xml")};
        if (tree.find("hall") == tree.npos)
            arguments.push_back(path("out.wav"));
        expectError(arguments, 1, "%show.xml:3: sequence \"" + tree + "\": it has " + reason);
    };
    makeInput(1);
    refuse("( hall ( studio ( player ) ) )", "<clip file='in.wav'/>",
           "more than one speaker: hall (alsa:out) and studio (alsa:null)");
    refuse("( recorder ( desk booth ) )", "",
           "more than one microphone: desk (alsa:in) and booth (alsa:null)");
    refuse("( hall ( recorder ( player ) ) )", "<clip file='in.wav'/>", "a recorder and a speaker");
}

TEST_F(AlsaTest, TheCommandLineReplacesTheDeviceThatTheSequenceNames)
{
    auto const expected = makeSound(1, RATE);
    writeText("show.xml", "<show><device name='player'/>"
                          "<device name='studio' kind='speaker' card='alsa:out'/>"
                          "<device name='hall' kind='speaker' card='alsa:none'/>"
                          "<sequence tree='( hall ( player ) )'/>"
                          "<connection stream='player:out push hall:in'/>"
                          "<clip file='in.wav'/></show>");
    std::vector<std::string> const arguments{path("show.xml"), "--to", "alsa:out", "--property",
                                             "hall:card:latency=1.5"};
    Outcome const outcome = Playout(arguments).finish();
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_TRUE(getHeard(getPlayed()) == expected);
}

TEST_F(AlsaTest, TheCommandLineReplacesTheDevicesOfAShow)
{
    makeInput(8);
    writeText("show.xml", "<show output='never.wav'><clip file='missing.wav'/></show>");
    EXPECT_EQ(Playout({path("show.xml"), "--from", "alsa:in", path("out.wav"), "--length=0.5"})
                  .finish()
                  .status,
              0);
    expectInput(readFloats("out.wav", 2), RATE / 2);
    // The names of the devices stay.
    Outcome const outcome = Playout({path("show.xml"), "--from", "alsa:in", "--to", "alsa:out",
                                     "--length=0.5", "--property", "recorder:card:latency=1.5"})
                                .finish();
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    expectInput(getHeard(getPlayed()), RATE / 2);
    EXPECT_FALSE(files().contains("never.wav"));
}

TEST_F(AlsaTest, AShowThatIsWrittenCanBePlayed)
{
    makeInput(8);
    Outcome const outcome = Playout({"--from", "alsa:in", path("out.wav"), "--dump-show"}).finish();
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("kind=\"microphone\"\n        card=\"alsa:in\">"));
    EXPECT_THAT(outcome.out, testing::Not(HasSubstr("<memory")));
    writeText("show.xml", outcome.out);
    EXPECT_EQ(Playout({path("show.xml"), "--length=0.5"}).finish().status, 0);
    expectInput(readFloats("out.wav", 2), RATE / 2);
    expectUsage({"--from", "alsa:in", path("out.wav"), "--dump-show", "--length=1"},
                "--dump-show: a show has properties of its own");
}

TEST_F(AlsaTest, AnUnderrunIsRepairedAndCounted)
{
    auto const expected = makeSound(2, 2 * RATE);
    Outcome const outcome = run({path("in.wav"), "--to", "alsa:out"}, refuse("writei 40"));
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_TRUE(getHeard(getPlayed()) == expected);
    EXPECT_THAT(outcome.out, ContainsRegex("\n  100 %  .* underruns 1   overruns 0 "));
    EXPECT_THAT(outcome.out, ContainsRegex("\n  ALSA +[0-9]+ +1 +0\\.000 ms +0 "));
}

TEST_F(AlsaTest, AnOverrunIsRepairedAndCounted)
{
    makeInput(8);
    Outcome const outcome =
        Playout({"--from", "alsa:in", path("out.wav"), "--length", "2"}, refuse("readi 40"))
            .finish();
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    expectInput(readFloats("out.wav", 2), 2 * RATE);
    EXPECT_THAT(outcome.out, ContainsRegex("\n  100 %  .* underruns 0   overruns 1 "));
    EXPECT_THAT(outcome.out, ContainsRegex("\n  ALSA +[0-9]+ +0 +0\\.000 ms +1 "));
}

TEST_F(AlsaTest, TheShowEndsInOrderIfADeviceIsUnplugged)
{
    makeSound(2, 20 * RATE);
    makeInput(20);
    auto const expectEnd = [&](std::vector<std::string> const &arguments, std::string const &call,
                               std::string const &device) {
        Outcome const outcome = Playout(arguments, refuse(call + "-gone 40 on")).finish();
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.err,
                  "zvplayout: the ALSA device \"" + device + "\" has failed: No such device\n");
        EXPECT_THAT(outcome.out, HasSubstr("\n  fader      "));
        EXPECT_THAT(outcome.out, testing::Not(HasSubstr("left behind")));
    };
    expectEnd({path("in.wav"), "--to", "alsa:out"}, "writei", "out");
    expectEnd({"--from", "alsa:in", path("out.wav")}, "readi", "in");
    expectEnd({"--from", "alsa:in", "--to", "alsa:out"}, "writei", "out");
    EXPECT_EQ(files(), (std::set<std::string>{"asoundrc", "in.raw", "in.wav", "out.raw"}));
}

TEST_F(AlsaTest, TheShowEndsInOrderIfADeviceFails)
{
    makeSound(2, 20 * RATE);
    expectError({path("in.wav"), "--to", "alsa:full"}, 1,
                "the ALSA device \"full\" has failed: Input/output error");
}

TEST_F(AlsaTest, WhatADeviceDoesNotTakeIsRefused)
{
    std::string const missing = " cannot be opened: No such file or directory. \"aplay -L\" lists "
                                "the devices";
    makeSound(1, 100);
    expectError({path("in.wav"), "--to", "alsa:none"}, 1, "the ALSA device \"none\"" + missing);
    // The configuration of these tests has no default.
    expectError({path("in.wav"), "--to", "alsa"}, 1, "the ALSA device \"default\"" + missing);
    expectError({"--from", "alsa:none", path("out.wav")}, 1, "the ALSA device \"none\"" + missing);
    expectError({"--from", "alsa:none", "--to", "alsa:nothing"}, 1,
                "the ALSA device \"none\"" + missing);
    expectError({"--from", "alsa:null", "--to", "alsa:nothing"}, 1,
                "the ALSA device \"nothing\"" + missing);
    expectError({path("in.wav"), "--to", "alsa:whole"}, 1,
                "the ALSA device \"whole\" does not take floating-point samples: Invalid argument");
    makeSound(1, 100, 1000);
    expectError({path("in.wav"), "--to", "alsa:converter"}, 1,
                "the ALSA device \"converter\" does not take 1000 samples a second: "
                "Invalid argument");
    expectUsage({path("in.wav"), "--to", "alsa:"},
                "--to: \"alsa:\" has no device behind the colon");
}

TEST_F(AlsaTest, AnInterruptEndsIt)
{
    makeSound(1, 20 * RATE);
    Playout playout({path("in.wav"), "--to", "alsa:null"});
    EXPECT_TRUE(playout.waitFor("  10 %"));
    playout.signal(SIGINT);
    Outcome const outcome = playout.finish();
    EXPECT_EQ(outcome.status, 130);
    EXPECT_EQ(outcome.err, "zvplayout: interrupted\n");
}

TEST_F(AlsaTest, AnInterruptBeforeTheMicrophoneStartsLeavesNoFile)
{
    Playout playout({"--from", "alsa:null", path("out.wav"), "--fault", "recorder:start:slow"});
    EXPECT_TRUE(playout.waitFor("init -> start"));
    playout.signal(SIGINT);
    Outcome const outcome = playout.finish();
    EXPECT_EQ(outcome.status, 130);
    EXPECT_EQ(withoutFolder(outcome.err), "zvplayout: interrupted: %out.wav was not written\n");
    EXPECT_EQ(files(), (std::set<std::string>{"asoundrc"}));
}

TEST_F(AlsaTest, AnInterruptEndsItIfTheRecorderHangs)
{
    writeText("show.xml", "<show output='out.wav'><device name='microphone' card='alsa:null'/>"
                          "<device name='fader'/><device name='recorder'/>"
                          "<event at='00:00:00:05' action='mute' value='off'/></show>");
    Playout playout({path("show.xml"), "--fault", "recorder:lock:hangs"});
    EXPECT_TRUE(playout.waitFor("00:00:00:05  mute off"));
    playout.signal(SIGINT);
    Outcome const outcome = playout.finish();
    EXPECT_EQ(outcome.status, 130);
    EXPECT_EQ(withoutFolder(outcome.err), "zvplayout: interrupted: %out.wav was not written\n");
    EXPECT_EQ(files(), (std::set<std::string>{"asoundrc", "show.xml"}));
}

} // namespace
} // namespace ZvTest
