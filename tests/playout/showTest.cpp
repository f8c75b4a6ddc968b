// Tests of the output for the user and of the options.

#include "playoutTest.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>

namespace ZvTest {
namespace {

using testing::ContainsRegex;

class ShowTest : public PlayoutTest
{
protected:
    ShowTest() : _sound(make("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 8000, 8000)) {}

    Sound const _sound;
};

TEST_F(ShowTest, TheTreeItsStreamsAndWhatEachDeviceTook)
{
    Outcome const outcome = play("in.wav", "out.wav", {"--block", "1000"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out.find("( recorder ( fader ( player ) ) )\n"
                               "  player:out push fader:in\n"
                               "  fader:out push recorder:in\n"),
              0u)
        << outcome.out;
    EXPECT_NE(outcome.out.find("  100 %    1.00 s   peak "), std::string::npos) << outcome.out;
    for (std::string const device : {"recorder", "fader", "player"}) {
        EXPECT_THAT(outcome.out, ContainsRegex("ms  " + device + " +init -> "));
        EXPECT_THAT(outcome.out, ContainsRegex("ms  " + device + " +[a-z]+ -> lock"));
        EXPECT_THAT(outcome.out, ContainsRegex("ms  " + device + " +[a-z]+ -> final"));
        std::string const time = " +[0-9]+\\.[0-9]{3} ms";
        EXPECT_THAT(outcome.out,
                    ContainsRegex("\n  " + device + " +8" + time + time + time + "\n"));
    }
}

TEST_F(ShowTest, EveryDevicePassesItsStatesInOrder)
{
    // A state that was too short to be seen may be missing. The order of the states must be right.
    Outcome const outcome = play("in.wav", "out.wav", {"--block", "1000"});
    std::vector<std::string> const order{"init", "start", "wsr", "ready", "wml",
                                         "sync", "lock",  "wss", "stop",  "final"};
    std::istringstream lines(outcome.out);
    std::map<std::string, std::string> states;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string moment, unit, device, from, arrow, to;
        if (!(words >> moment >> unit >> device >> from >> arrow >> to) || arrow != "->")
            continue;
        std::string &state = states.try_emplace(device, "init").first->second;
        EXPECT_EQ(from, state) << line;
        EXPECT_LT(std::find(order.begin(), order.end(), from),
                  std::find(order.begin(), order.end(), to))
            << line;
        state = to;
    }
    EXPECT_EQ(states, (std::map<std::string, std::string>{
                          {"recorder", "final"}, {"fader", "final"}, {"player", "final"}}));
}

TEST_F(ShowTest, OtherTreesAndConnectionsWork)
{
    std::string const direct = "player:out push recorder:in";
    for (auto const &options : {
             std::vector<std::string>{"--sequence", "( recorder ( player ) )", "--stream", direct},
             std::vector<std::string>{"--sequence", "(player(recorder))", "--stream", direct},
             std::vector<std::string>{"--sequence", "( player ( fader ( recorder ) ) )"},
             std::vector<std::string>{"--sequence", "( fader ( player recorder ) )"},
         }) {
        Outcome const outcome = play("in.wav", "out.wav", options);
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        EXPECT_EQ(read("out.wav").samples, _sound.samples);
    }
}

TEST_F(ShowTest, TheTraceIsKept)
{
    Outcome const outcome =
        play("in.wav", "out.wav", {"--block", "1000", "--trace", path("trace")});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    std::ostringstream trace;
    trace << std::ifstream(path("trace")).rdbuf();
    for (std::string const device : {"recorder", "fader", "player"})
        for (std::string const what : {" starts", " locks", " ends after 8 blocks"})
            EXPECT_THAT(trace.str(), ContainsRegex("(^|\n) *[0-9]+\\.[0-9]{6} " + device +
                                                   " .*: " + device + what + "\n"));
}

TEST_F(ShowTest, HelpListsEveryOption)
{
    Outcome const outcome = Playout({"--help"}).finish();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    for (char const * const option :
         {"--from", "--length", "--to", "--gain", "--sequence", "--stream", "--property", "--block",
          "--fast", "--realtime", "--dump-show", "--trace", "--trace-events", "--report", "--help"})
        EXPECT_NE(outcome.out.find(option), std::string::npos) << option;
}

TEST_F(ShowTest, AReaderThatDisconnectsDoesNotHarmTheRecording)
{
    Playout::Surroundings surroundings;
    surroundings.closedOutput = true;
    EXPECT_EQ(play("in.wav", "out.wav", {}, surroundings).status, 0);
    EXPECT_EQ(read("out.wav").samples, _sound.samples);
}

} // namespace
} // namespace ZvTest
