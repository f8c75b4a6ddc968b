// Tests of hostile shows.

#include "playoutTest.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <filesystem>

namespace ZvTest {
namespace {

class HostileTest : public PlayoutTest
{
protected:
    HostileTest() : _sound(make("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 8000, 800)) {}

    Outcome playShow(std::string const &text, std::vector<std::string> arguments = {"--fast"})
    {
        writeText("show.xml", text);
        arguments.push_back(path("show.xml"));
        arguments.push_back(path("out.wav"));
        return Playout(arguments).finish();
    }
    static void expectShown(std::string const &text)
    {
        EXPECT_TRUE(std::none_of(text.begin(), text.end(), [](char c) {
            return (static_cast<unsigned char>(c) < 0x20 && c != '\n') || c == 0x7F;
        })) << text;
    }
    /// Returns the processor time of a show, in seconds.
    double measure(std::string const &text)
    {
        Outcome const outcome = playShow(text);
        EXPECT_EQ(outcome.status, 0) << outcome.err.substr(0, 1000);
        return outcome.processorTime;
    }

    Sound const _sound;
};

TEST_F(HostileTest, AZeroByteDoesNotEndAName)
{
    for (std::string const &zero : {std::string("&#0;"), std::string(1, '\0')}) {
        Outcome const outcome = playShow("<show>\n<clip file='in.wav" + zero + "b'/></show>");
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(withoutFolder(outcome.err),
                  "zvplayout: %show.xml:2: clip: file: its value has a zero byte\n");
        EXPECT_EQ(files(), (std::set<std::string>{"in.wav", "show.xml"}));
    }
}

TEST_F(HostileTest, NamesGiveTheTerminalNoOrders)
{
    std::string const order = "\x1b]0;you\x07\x1b[31m\xc2\x9b"
                              "2J\x7f\x9b\xc3\xa9";
    std::string const shown = R"(\x1b]0;you\x07\x1b[31m\xc2\x9b2J\x7f\x9b)"
                              "\xc3\xa9";
    Outcome outcome = playShow("<show>\n<clip file='" + order + "'/></show>");
    EXPECT_EQ(withoutFolder(outcome.err),
              "zvplayout: cannot read %" + shown + ": No such file or directory\n");
    outcome = playShow("<show>\n<clip file='in.wav'/><device name='" + order + "'/></show>");
    expectShown(outcome.err);
    EXPECT_NE(outcome.err.find(shown), std::string::npos) << outcome.err;
    outcome = Playout({"--" + order}).finish();
    EXPECT_EQ(outcome.err,
              "zvplayout: unknown option --" + shown + "\nzvplayout --help lists what it takes\n");
    outcome = play("in.wav", "a\nb" + order + ".wav");
    EXPECT_EQ(outcome.status, 0);
    expectShown(outcome.out);
    EXPECT_NE(outcome.out.find(R"(a\x0ab)" + shown + ".wav\n"), std::string::npos) << outcome.out;
    outcome = playShow("<show><clip file='" + order + "'/></show>", {"--dump-show"});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    expectShown(outcome.out);
    writeText("again.xml", outcome.out);
    EXPECT_EQ(Playout({"--dump-show", path("again.xml")}).finish().out, outcome.out);
}

TEST_F(HostileTest, ALongNameDoesNotHideTheReason)
{
    std::string const name(100'000, 'a');
    auto const expectReason = [&](std::string const &reason, Outcome const &outcome) {
        EXPECT_EQ(outcome.status, 1);
        EXPECT_LT(outcome.err.size(), 2000u);
        EXPECT_THAT(outcome.err, testing::EndsWith(reason + "\n"));
    };
    expectReason(": File name too long", playShow("<show><clip file='" + name + "'/></show>"));
    expectReason(": it has no place in show",
                 playShow("<show><" + name + "/><clip file='in.wav'/></show>"));
    expectReason(" is none of player, fader, recorder, speaker, microphone",
                 playShow("<show><device name='" + name + "'/><clip file='in.wav'/></show>"));
    expectReason(": Device name not found in the registry.",
                 playShow("<show><clip file='in.wav'/><sequence tree='( " + name + " )'/></show>"));
    expectReason(": Not a registered object.",
                 playShow("<show><clip file='in.wav'/><device name='player'/>"
                          "<device name='recorder'/><device name='fader'><property name='levels:" +
                          name + "' value='1'/></device></show>"));
}

TEST_F(HostileTest, ADeviceDoesNotFeedItself)
{
    std::string const devices = "<show><clip file='in.wav'/><device name='player'/>"
                                "<device name='recorder'/><device name='a' kind='fader'/>"
                                "<device name='b' kind='fader'/>"
                                "<sequence tree='( recorder ( a b player ) )'/>\n";
    auto const expectRefused = [&](std::string const &reason, std::string const &connections) {
        Outcome const outcome = playShow(devices + connections + "</show>");
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(withoutFolder(outcome.err), "zvplayout: %show.xml:" + reason + "\n");
    };
    expectRefused("2: stream \"a:out push a:in\": it leads back to a",
                  "<connection stream='a:out push a:in'/>");
    expectRefused(
        "4: stream \"b : out push a:in\": it leads back to b",
        "<connection stream='player:out push a:in'/>\n"
        "<connection stream='a:out push b:in'/>\n<connection stream='b : out push a:in'/>");
}

TEST_F(HostileTest, OneLongLineTakesNoLongerThanManyShortOnes)
{
    constexpr std::size_t SIZE = 20'000'000;
    std::string text(SIZE, ' ');
    double const inOne = measure("<show><clip file='in.wav'/>" + text + "</show>");
    for (std::size_t i = 0; i < SIZE; i += 1000)
        text[i] = '\n';
    double const inMany = measure("<show><clip file='in.wav'/>" + text + "</show>");
    EXPECT_LT(inOne, 4 * inMany + 0.2);
}

} // namespace
} // namespace ZvTest
