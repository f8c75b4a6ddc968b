// Tests of the speaker, with a real server of JACK that has a dummy driver.

#include "soundTest.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace ZvTest {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;

std::vector<float> getSounds(std::vector<float> const &samples)
{
    std::vector<float> sounds;
    std::copy_if(samples.begin(), samples.end(), std::back_inserter(sounds), isSound);
    return sounds;
}

TEST_F(SoundTest, WhatIsHeardIsTheRecording)
{
    startServer();
    for (int const channels : {1, 2, 3}) {
        auto const expected = makeSound(channels, 2 * RATE + 7);
        SoundCapture const capture(*_server, channels);
        Outcome const outcome = playTo(capture, {path("in.wav")});
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.err, "");
        EXPECT_TRUE(getHeard(capture.getSamples()) == expected);
        EXPECT_THAT(outcome.out, HasSubstr("\nplayed 00:00:02:00 to JACK\n"));
        EXPECT_THAT(outcome.out,
                    ContainsRegex("\n  100 %  .* underruns 0   overruns 0   late [0-9]+\n"));
        EXPECT_THAT(outcome.out,
                    ContainsRegex(
                        "\n  sound card +samples +underruns +silence +overruns +lost +late periods"
                        "\n  JACK +[0-9]+ +0 +0\\.000 ms +0 +0\\.000 ms +[0-9]+\n"));
    }
}

TEST_F(SoundTest, TheCardPacesTheShow)
{
    startServer();
    auto const expected = makeSound(1, 3 * RATE);
    SoundCapture const capture(*_server, 1);
    Outcome const outcome = playTo(capture, {path("in.wav")});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    // More than the ring has room for.
    EXPECT_TRUE(getHeard(capture.getSamples()) == expected);
    long long samples = 0;
    long beats = 0;
    auto const card = outcome.out.find("\n  JACK ");
    auto const clock = outcome.out.find("\n  player", outcome.out.find("late beats"));
    ASSERT_NE(card, std::string::npos);
    ASSERT_NE(clock, std::string::npos);
    EXPECT_EQ(std::sscanf(outcome.out.c_str() + card, " JACK %lld", &samples), 1);
    EXPECT_EQ(std::sscanf(outcome.out.c_str() + clock, " player %ld", &beats), 1);
    // The end of the show is a little after the last beat.
    EXPECT_GE(samples, 3 * RATE);
    EXPECT_LE(beats, samples / FRAME + 1);
    EXPECT_GE(beats, (3 * RATE - RATE * 3 / 2) / FRAME);
}

TEST_F(SoundTest, EventsAreHeardAtTheirFrames)
{
    startServer();
    auto expected = makeSound(2, 20 * FRAME);
    SoundCapture const capture(*_server, 2);
    writeText("show.xml", "<show><device name='player'/><device name='fader'/>"
                          "<device name='out' kind='speaker' card='" +
                              capture.getPlace() +
                              "'><property name='card:latency' value='1.5'/></device>"
                              "<clip file='in.wav'/><sequence tree='( out ( fader ( player ) ) )'/>"
                              "<connection stream='player:out push fader:in'/>"
                              "<connection stream='fader:out push out:in'/>"
                              "<event at='00:00:00:05' action='gain' value='0.5'/>"
                              "<event at='00:00:00:07' action='jump' value='00:00:00:10'/></show>");
    Outcome const outcome = Playout({path("show.xml")}).finish();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    expected.erase(expected.begin() + 7 * FRAME * 2, expected.begin() + 10 * FRAME * 2);
    for (auto sample = expected.begin() + 5 * FRAME * 2; sample != expected.end(); ++sample)
        *sample *= 0.5f;
    EXPECT_TRUE(getHeard(capture.getSamples()) == expected);
    EXPECT_THAT(outcome.out, HasSubstr("\n  00:00:00:05  gain 0.5\n"));
    EXPECT_EQ(files(), (std::set<std::string>{"in.wav", "jackd.log", "show.xml"}));
}

TEST_F(SoundTest, ASpeakerTakesThePlaceOfTheRecorder)
{
    startServer();
    auto const expected = makeSound(1, 3000);
    SoundCapture const capture(*_server, 1);
    writeText("show.xml", "<show output='out.wav'><clip file='in.wav'/></show>");
    Outcome const outcome = Playout({path("show.xml"), "--to", capture.getPlace()}).finish();
    EXPECT_EQ(outcome.status, 0) << outcome.out;
    EXPECT_EQ(outcome.err, "");
    EXPECT_TRUE(getHeard(capture.getSamples()) == expected);
    EXPECT_EQ(files(), (std::set<std::string>{"in.wav", "jackd.log", "show.xml"}));
}

TEST_F(SoundTest, WithoutNamesThePortsAreThoseOfTheCard)
{
    startServer();
    makeSound(1, RATE);
    SoundCapture const capture(*_server, 1); // is not connected
    Playout playout({path("in.wav"), "--to", "jack"});
    ASSERT_TRUE(playout.waitFor("player     sync -> lock"));
    jack_port_t * const port = jack_port_by_name(capture.getClient(), "zvplayout:out_1");
    ASSERT_NE(port, nullptr);
    char const ** const names = jack_port_get_all_connections(capture.getClient(), port);
    ASSERT_NE(names, nullptr);
    std::set<std::string> connections;
    for (char const **name = names; *name; ++name)
        connections.insert(*name);
    jack_free(names);
    EXPECT_EQ(connections, (std::set<std::string>{"system:playback_1", "system:playback_2"}));
    EXPECT_EQ(playout.finish().status, 0);
}

TEST_F(SoundTest, WhatComesTooLateIsSilenceAndCounted)
{
    startServer();
    auto const expected = makeSound(2, 2 * RATE);
    SoundCapture const capture(*_server, 2);
    // Small pages, so that the player gets what is in the pipe.
    writeText("show.xml", "<show><memory page='8192' budget='100000' ahead='0'/>"
                          "<clip file='pipe'/></show>");
    ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0600), 0);
    Playout playout({path("show.xml"), "--to", capture.getPlace()});
    int const pipe = ::open(path("pipe").c_str(), O_WRONLY | O_CLOEXEC);
    std::ifstream file(path("in.wav"), std::ios::binary);
    std::string const text{std::istreambuf_iterator<char>(file), {}};
    std::size_t const half = text.size() / 2;
    ASSERT_EQ(::write(pipe, text.data(), half), static_cast<ssize_t>(half));
    // The sound has begun, and has run out.
    EXPECT_TRUE(capture.waitUntil([](auto const &samples) {
        return hasSound(samples) && !std::any_of(samples.end() - 5000, samples.end(), isSound);
    }));
    ASSERT_EQ(::write(pipe, text.data() + half, text.size() - half),
              static_cast<ssize_t>(text.size() - half));
    ::close(pipe);
    Outcome const outcome = playout.finish();
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    auto const heard = getHeard(capture.getSamples());
    EXPECT_TRUE(getSounds(heard) == expected);
    long underruns = 0;
    double silence = 0;
    auto const card = outcome.out.find("\n  JACK ");
    ASSERT_NE(card, std::string::npos) << outcome.out;
    ASSERT_EQ(std::sscanf(outcome.out.c_str() + card, " JACK %*d %ld %lf", &underruns, &silence),
              2);
    EXPECT_GE(underruns, 1);
    EXPECT_NEAR(silence, static_cast<double>(heard.size() - expected.size()) / 2 / 48, 0.001);
    EXPECT_THAT(outcome.out, ContainsRegex("\n  100 %  .* underruns [1-9]"));
}

TEST_F(SoundTest, TheShowEndsInOrderIfTheServerDies)
{
    startServer();
    makeSound(2, 20 * RATE);
    SoundCapture const capture(*_server, 2);
    Playout playout({path("in.wav"), "--to", capture.getPlace()});
    EXPECT_TRUE(capture.waitUntil(hasSound));
    _server->kill();
    Outcome const outcome = playout.finish();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "zvplayout: the JACK server has gone away\n");
    EXPECT_THAT(outcome.out, HasSubstr("\n    speaker: the JACK server has gone away\n"));
    for (std::string const device : {"speaker", "fader", "player"})
        EXPECT_THAT(outcome.out, ContainsRegex("\n  " + device + " +(failed|stopped|aborted) "));
    EXPECT_THAT(outcome.out, testing::Not(HasSubstr("left behind")));
}

TEST_F(SoundTest, TheShowEndsInOrderIfTheServerStandsStill)
{
    startServer();
    makeSound(1, 20 * RATE);
    SoundCapture const capture(*_server, 1);
    Playout playout({path("in.wav"), "--to", capture.getPlace()});
    EXPECT_TRUE(capture.waitUntil(hasSound));
    _server->signal(SIGSTOP);
    Outcome const outcome = playout.finish();
    _server->kill(); // it would not answer when the capture leaves
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "zvplayout: the JACK server does not go on\n");
    EXPECT_THAT(outcome.out, testing::Not(HasSubstr("left behind")));
}

TEST_F(SoundTest, AnInterruptEndsIt)
{
    startServer();
    makeSound(1, 20 * RATE);
    SoundCapture const capture(*_server, 1);
    Playout playout({path("in.wav"), "--to", capture.getPlace()});
    EXPECT_TRUE(capture.waitUntil(hasSound));
    playout.signal(SIGINT);
    Outcome const outcome = playout.finish();
    EXPECT_EQ(outcome.status, 130);
    EXPECT_EQ(outcome.err, "zvplayout: interrupted\n");
}

TEST_F(SoundTest, TheCallbackObeysTheRulesOfRealTimeAudio)
{
    startServer();
    auto const expected = makeSound(2, RATE);
    SoundCapture const capture(*_server, 2);
    Playout::Surroundings surroundings;
    surroundings.trapped = true;
    Outcome const outcome = playTo(capture, {path("in.wav")}, surroundings);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    EXPECT_TRUE(getHeard(capture.getSamples()) == expected);
}

TEST_F(SoundTest, ACallbackThatBreaksARuleIsTrapped)
{
    makeSound(1, RATE);
    Playout::Surroundings surroundings;
    surroundings.trapped = true;
    auto const expectTrapped = [&](std::string const &rule, std::string const &call) {
        startServer();
        surroundings.provoked = rule;
        Outcome const outcome = Playout({path("in.wav"), "--to", "jack"}, surroundings).finish();
        EXPECT_EQ(outcome.status, 99);
        EXPECT_EQ(outcome.err, "the callback of the sound server calls " + call + "\n");
        _server->kill(); // it would wait long for its client
    };
    expectTrapped("allocation", "operator new");
    expectTrapped("lock", "pthread_mutex_lock");
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the sanitizer makes system calls of its own";
#endif
    if (::prctl(PR_SET_SYSCALL_USER_DISPATCH, PR_SYS_DISPATCH_OFF, 0, 0, 0) != 0)
        GTEST_SKIP() << "this kernel cannot trap system calls";
    expectTrapped("call", "the system, number " + std::to_string(SYS_getppid));
}

TEST_F(SoundTest, WithoutAServerThereIsAClearError)
{
    ::setenv("JACK_DEFAULT_SERVER", "none", 1);
    makeSound(1, 100);
    expectError({path("in.wav"), "--to", "jack"}, 1,
                "there is no JACK server. Start one, for example by \"jackd -d alsa\", or "
                "begin this command with \"pw-jack\" if the sound is PipeWire's");
    ::unsetenv("JACK_DEFAULT_SERVER");
}

TEST_F(SoundTest, WhatTheServerDoesNotHaveIsRefused)
{
    startServer();
    makeSound(1, 100);
    expectError({path("in.wav"), "--to", "jack:none:in_1"}, 1,
                "the JACK server has no port \"none:in_1\" to play to");
    makeSound(3, 100);
    expectError({path("in.wav"), "--to", "jack"}, 1,
                "the recording needs 3 ports to play to, and jack has 2");
    makeSound(1, 100, 44100);
    expectError({path("in.wav"), "--to", "jack"}, 1,
                "the recording has 44100 samples a second, and the sound card takes 48000");
}

TEST_F(SoundTest, InvalidOptionsAreRefused)
{
    makeSound(1, 100);
    for (std::string const place : {"tape", "jacks", "Jack:system:playback_1", ""})
        expectUsage({path("in.wav"), "--to", place},
                    "--to: \"" + place +
                        "\" is none of jack, jack:PORT,PORT..., alsa, alsa:DEVICE");
    expectUsage({path("in.wav"), "--to", "jack:"}, "--to: \"jack:\" has no port behind the colon");
    for (std::string const place : {"jack:,a", "jack:a,", "jack:a,,b"})
        expectUsage({path("in.wav"), "--to", place},
                    "--to: \"" + place + "\" has a port without a name");
    expectUsage({path("in.wav"), path("out.wav"), "--to", "jack"},
                "--to plays, so that there is no OUTPUT");
    expectUsage({path("in.wav"), "--to", "jack", "--fast"},
                "--fast: a sound card has a pace of its own");
    expectUsage({path("in.wav"), "--to", "jack", "--block", "7"},
                "--block: the blocks of a show are the frames of its clock");
    expectUsage({path("in.wav"), "--to", "jack", "--length", "1"},
                "--length: the show has no microphone");
    expectUsage({"--to", "jack"}, "an INPUT is needed");
    auto const refuse = [&](std::string const &device, std::string const &reason) {
        writeText("show.xml", "<show>\n" + device + "<clip file='in.wav'/></show>");
        expectError({path("show.xml")}, 1, "%show.xml:2: device: " + reason);
    };
    refuse("<device name='fader' card='jack'/>", "card: only a speaker and a microphone have one");
    refuse("<device name='speaker' card='jack:'/>", "card: \"jack:\" has no port behind the colon");
    writeText("show.xml", "<show><device name='player'/><device name='speaker'/><sequence "
                          "tree='( player speaker )'/><clip file='in.wav'/></show>");
    expectUsage({path("show.xml"), path("out.wav")},
                "the show has a speaker, so that there is no OUTPUT");
}

} // namespace
} // namespace ZvTest
