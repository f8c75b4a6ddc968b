// Tests of the microphone, with a real server of JACK that has a dummy driver.

#include "soundTest.h"

#include <gmock/gmock.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace ZvTest {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;

/// Checks that the samples are the tone without a gap. The connection to the tone may take effect a
/// period or two after the beginning.
void expectTone(std::vector<float> const &samples, std::size_t length)
{
    auto const heard = getHeard(samples);
    ASSERT_LE(heard.size(), length);
    ASSERT_GE(heard.size() + 2 * SoundServer::PERIOD, length);
    for (std::size_t i = 1; i < heard.size(); ++i)
        ASSERT_EQ(heard[i], SoundTone::getNext(heard[i - 1])) << i;
}

class MicrophoneTest : public SoundTest
{
protected:
    void startTone()
    {
        startServer();
        _tone.emplace(*_server);
    }
    /// Returns the arguments that record the tone in out.wav, and more.
    std::vector<std::string> record(std::vector<std::string> const &more = {}) const
    {
        std::vector<std::string> arguments{"--from", SoundTone::getPlace(), path("out.wav")};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }

    /// Writes a show that records the tone in out.wav, without an end.
    void writeShow() const
    {
        writeText("show.xml", "<show output='out.wav'><device name='microphone' card='" +
                                  SoundTone::getPlace() +
                                  "'/><device name='fader'/><device name='recorder'/>"
                                  "<event at='00:00:00:05' action='mute' value='off'/></show>");
    }
    /// Waits until the show has come to its event.
    static void waitForEvent(Playout &playout)
    {
        EXPECT_TRUE(playout.waitFor("00:00:00:05  mute off"));
    }

    std::optional<SoundTone> _tone;
};

TEST_F(MicrophoneTest, WhatIsCapturedIsTheTone)
{
    startTone();
    Outcome const outcome = Playout(record({"--length", "1.5"})).finish();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_THAT(outcome.out,
                ContainsRegex("\n  100 %  .* underruns 0   overruns 0   late [0-9]+\n"));
    EXPECT_THAT(outcome.out,
                ContainsRegex("\n  JACK +[0-9]+ +0 +0\\.000 ms +0 +0\\.000 ms +[0-9]+\n"));
    EXPECT_THAT(outcome.out, HasSubstr("\nrecorded 00:00:01:12 in " + path("out.wav") + "\n"));
    auto const captured = readFloats("out.wav", 1);
    EXPECT_EQ(captured.size(), RATE * 3u / 2);
    expectTone(captured, RATE * 3u / 2);
}

TEST_F(MicrophoneTest, EachPortIsAChannel)
{
    startTone();
    writeText("show.xml", "<show output='out.wav'><device name='left' kind='microphone' "
                          "card='jack:tone:out_1,tone:out_1'><property name='transport:length' "
                          "value='0.5'/></device><device name='recorder'/>"
                          "<sequence tree='( recorder ( left ) )'/>"
                          "<connection stream='left:out push recorder:in'/></show>");
    EXPECT_EQ(Playout({path("show.xml")}).finish().status, 0);
    auto const captured = readFloats("out.wav", 2);
    std::vector<float> channels[2];
    for (std::size_t i = 0; i < captured.size(); ++i)
        channels[i % 2].push_back(captured[i]);
    expectTone(channels[0], RATE / 2);
    EXPECT_TRUE(channels[0] == channels[1]);
    // Without names, the ports are those of the card, which hears nothing.
    EXPECT_EQ(Playout({"--from", "jack", "--length=0.1", path("out.wav")}).finish().status, 0);
    EXPECT_TRUE(readFloats("out.wav", 2) == std::vector<float>(2 * RATE / 10));
}

TEST_F(MicrophoneTest, AMicrophoneIsHeardInASpeaker)
{
    startTone();
    SoundCapture const capture(*_server, 1);
    Outcome const outcome = Playout({"--from", SoundTone::getPlace(), "--to", capture.getPlace(),
                                     "--length", "2", "--property", "speaker:card:latency=1"})
                                .finish();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_THAT(outcome.out, HasSubstr("\nplayed 00:00:02:00 to JACK\n"));
    expectTone(capture.getSamples(), 2 * RATE);
    EXPECT_EQ(files(), (std::set<std::string>{"jackd.log"}));
}

TEST_F(MicrophoneTest, EventsTakeEffectAtTheirFrames)
{
    startTone();
    writeText("show.xml", "<show output='out.wav'><device name='microphone' card='" +
                              SoundTone::getPlace() +
                              "'/><device name='fader'/><device name='recorder'/>"
                              "<event at='00:00:00:05' action='mute' value='on'/></show>");
    EXPECT_EQ(Playout({path("show.xml"), "--length", "0.5"}).finish().status, 0);
    auto captured = readFloats("out.wav", 1);
    EXPECT_EQ(captured.size(), RATE / 2u);
    EXPECT_TRUE(std::none_of(captured.begin() + 5 * FRAME, captured.end(), isSound));
    captured.resize(5 * FRAME);
    expectTone(captured, 5 * FRAME);
}

TEST_F(MicrophoneTest, AnInterruptCompletesTheRecording)
{
    startTone();
    writeShow();
    for (int const signal : {SIGINT, SIGTERM}) {
        Playout playout({path("show.xml")});
        waitForEvent(playout);
        playout.signal(signal);
        Outcome const outcome = playout.finish();
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.err, "");
        EXPECT_THAT(outcome.out, HasSubstr(" in " + path("out.wav") + "\n"));
        auto const captured = readFloats("out.wav", 1);
        EXPECT_GE(captured.size(), 5u * FRAME);
        expectTone(captured, captured.size());
    }
    EXPECT_EQ(files(), (std::set<std::string>{"jackd.log", "out.svg", "out.wav", "show.xml"}));
}

TEST_F(MicrophoneTest, WhatHasNoRoomIsLostAndCounted)
{
    startTone();
    // The reserve is 4 periods less one sample.
    Outcome const outcome = Playout(record({"--length", "2", "--fault", "fader:lock:slow",
                                            "--property", "microphone:card:reserve=0.0853125"}))
                                .finish();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, ContainsRegex("\n  100 %  .* overruns [1-9]"));
    long overruns = 0;
    double lost = 0; // milliseconds
    auto const card = outcome.out.find("\n  JACK ");
    ASSERT_NE(card, std::string::npos) << outcome.out;
    ASSERT_EQ(
        std::sscanf(outcome.out.c_str() + card, " JACK %*d %*d %*f ms %ld %lf", &overruns, &lost),
        2);
    EXPECT_GE(overruns, 1);
    EXPECT_NEAR(lost * 48, static_cast<double>(overruns * SoundServer::PERIOD), 0.1);
    // What is missing in the recording is as much, apart from whole turns of the tone.
    auto const captured = readFloats("out.wav", 1);
    EXPECT_EQ(captured.size(), 2u * RATE);
    auto const heard = getHeard(captured);
    long missing = 0;
    for (std::size_t i = 1; i < heard.size(); ++i) {
        long const gap = SoundTone::getDistance(SoundTone::getNext(heard[i - 1]), heard[i]);
        ASSERT_EQ(gap % SoundServer::PERIOD, 0) << i;
        missing += gap;
    }
    EXPECT_EQ(missing % SoundTone::LENGTH, overruns * SoundServer::PERIOD % SoundTone::LENGTH);
}

TEST_F(MicrophoneTest, TheShowEndsInOrderIfTheServerDies)
{
    startTone();
    writeShow();
    Playout playout({path("show.xml")});
    waitForEvent(playout);
    _server->kill();
    Outcome const outcome = playout.finish();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "zvplayout: the JACK server has gone away\n");
    for (std::string const device : {"recorder", "fader", "microphone"})
        EXPECT_THAT(outcome.out, ContainsRegex("\n  " + device + " +(failed|stopped|aborted) "));
    EXPECT_THAT(outcome.out, testing::Not(HasSubstr("left behind")));
    EXPECT_EQ(files(), (std::set<std::string>{"jackd.log", "show.xml"}));
}

TEST_F(MicrophoneTest, TheCallbackObeysTheRulesOfRealTimeAudio)
{
    startTone();
    SoundCapture const capture(*_server, 1);
    Playout::Surroundings surroundings;
    surroundings.trapped = true;
    Outcome const outcome =
        playTo(capture, {"--from", SoundTone::getPlace(), "--length", "0.5"}, surroundings);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    expectTone(capture.getSamples(), RATE / 2);
}

TEST_F(MicrophoneTest, WithoutAServerThereIsAClearError)
{
    ::setenv("JACK_DEFAULT_SERVER", "none", 1);
    std::string const reason =
        "there is no JACK server. Start one, for example by \"jackd -d alsa\", or begin this "
        "command with \"pw-jack\" if the sound is PipeWire's";
    expectError({"--from", "jack", path("out.wav")}, 1, reason);
    expectError({"--from", "jack", "--to", "jack"}, 1, reason);
    ::unsetenv("JACK_DEFAULT_SERVER");
}

TEST_F(MicrophoneTest, WhatTheServerDoesNotHaveIsRefused)
{
    startServer();
    std::string const reason = "the JACK server has no port \"none:out_1\" to capture from";
    expectError({"--from", "jack:none:out_1", path("out.wav")}, 1, reason);
    expectError({"--from", "jack:none:out_1", "--to", "jack:none:in_1"}, 1, reason);
    expectError({"--from", "jack", "--to", "jack:none:in_1,none:in_2"}, 1,
                "the JACK server has no port \"none:in_1\" to play to");
}

TEST_F(MicrophoneTest, InvalidOptionsAreRefused)
{
    expectUsage({"--from", "tape", path("out.wav")},
                "--from: \"tape\" is none of jack, jack:PORT,PORT..., alsa, alsa:DEVICE");
    expectUsage({"--from", "jack:", path("out.wav")},
                "--from: \"jack:\" has no port behind the colon");
    expectUsage({"--from", "jack"}, "an OUTPUT is needed");
    expectUsage({"--from", "jack", ""}, "the name of a file is empty");
    expectUsage({"--from", "jack", path("in.wav"), path("out.wav")},
                "--from captures, so that there is no INPUT");
    expectUsage({"--from", "jack", "--to", "jack", path("out.wav")},
                "--to plays, so that there is no OUTPUT");
    expectUsage({"--from", "jack", path("out.wav"), "--fast"},
                "--fast: a sound card has a pace of its own");
    expectUsage({"--from", "jack", "--to", "alsa"},
                "the cards are jack and alsa, but one sound system must pace a show");
    for (std::string const length : {"0", "-1", "1e9"})
        expectUsage({"--from", "jack", path("out.wav"), "--length", length},
                    "--length takes more than 0 seconds and at most a year, not \"" + length +
                        "\"");
    expectUsage({"--from", "jack", path("out.wav"), "--length", "1 s"},
                "--length takes a number, not \"1 s\"");
}

TEST_F(MicrophoneTest, AShowThatIsWrongIsRefused)
{
    startServer();
    auto const refuse = [&](std::string const &show, std::string const &reason) {
        writeText("show.xml", "<show output='out.wav'>\n" + show + "</show>");
        expectError({path("show.xml")}, 1, "%show.xml:" + reason);
    };
    std::string const devices = "<device name='fader'/><device name='microphone'/>"
                                "<device name='player'/><device name='recorder'/>\n";
    refuse(devices + "<sequence tree='( recorder ( fader ( microphone ) ) )'/>"
                     "<event at='00:00:00:01' action='jump' value='00:00:00:00'/>",
           "3: event jump 00:00:00:00: a microphone does not jump");
    refuse(devices + "<sequence tree='( recorder ( player microphone ) )'/>",
           "3: sequence \"( recorder ( player microphone ) )\": it has a player and a microphone");
    refuse(devices + "<clip file='in.wav'/>", "3: a show with a microphone plays no clips");
}

} // namespace
} // namespace ZvTest
