// Tests of devices that misbehave because of `--fault`: the others end in order, and the program
// reports what has happened.

#include "playoutTest.h"

#include <gmock/gmock.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <map>
#include <memory>
#include <sstream>

namespace ZvTest {
namespace {

using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;

/// Seconds from a signal to the end. It takes two or three on an idle machine.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr double FEW = 40;
constexpr double PROMPT = 20;
#else
constexpr double FEW = 15;
constexpr double PROMPT = 1.5; // after a second signal
#endif

char const * const DEVICES[] = {"recorder", "fader", "player"};

/// Row of the table that shows how the devices ended.
struct Row
{
    std::string end; // "no answer, left behind"
    std::map<std::string, std::string> times;
};

class FaultTest : public PlayoutTest
{
protected:
    FaultTest() : _sound(make("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 8000, 100000)) {}

    Outcome playWith(std::vector<std::string> const &faults)
    {
        std::vector<std::string> arguments;
        for (auto const &fault : faults)
            arguments.insert(arguments.end(), {"--fault", fault});
        return play("in.wav", "out.wav", arguments);
    }
    /// Reads the table. Its columns have fixed widths, so that an end may contain blanks.
    static std::map<std::string, Row> readEnds(std::string const &out)
    {
        std::map<std::string, Row> rows;
        std::istringstream lines(out.substr(std::min(out.find("  device     end "), out.size())));
        std::string line;
        std::getline(lines, line);
        while (std::getline(lines, line) && line.size() == WIDTH && line.substr(0, 4) != "    ") {
            std::istringstream name(line.substr(2, 10));
            std::string device;
            name >> device;
            std::string end = line.substr(13, 22);
            end.resize(end.find_last_not_of(' ') + 1);
            Row row{end, {}};
            std::size_t column = 35;
            for (char const * const step : {"start", "sync", "recover", "stop", "abort", "close"}) {
                std::string const time = line.substr(column, 11);
                row.times[step] = time.substr(time.find_first_not_of(' '));
                column += 11;
            }
            rows[device] = row;
        }
        return rows;
    }
    static std::string endOf(Outcome const &outcome, std::string const &device)
    {
        auto const rows = readEnds(outcome.out);
        auto const place = rows.find(device);
        return place == rows.end() ? "not in the table" : place->second.end;
    }
    /// Expects that all devices but one have ended and closed in order.
    static void expectOthersEnded(Outcome const &outcome, std::string const &culprit)
    {
        for (auto const &[device, row] : readEnds(outcome.out)) {
            if (device == culprit)
                continue;
            EXPECT_THAT(row.end, AnyOf("stopped", "aborted", "failed", "not started")) << device;
            EXPECT_NE(row.times.at("close"), "-") << device;
        }
        EXPECT_EQ(readEnds(outcome.out).size(), 3u) << outcome.out;
    }
    void expectNothingWritten() { EXPECT_EQ(files(), (std::set<std::string>{"in.wav"})); }
    void expectWritten()
    {
        EXPECT_EQ(files(), (std::set<std::string>{"in.wav", "out.wav"}));
        EXPECT_EQ(read("out.wav").samples, _sound.samples);
    }
    void removeOutput() { std::filesystem::remove(path("out.wav")); }
    /// Makes a recording that is long enough for a fault at its first block to take effect.
    void makeLong() { make("long.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 1, 8000, 4'000'000); }

    static constexpr std::size_t WIDTH = 35 + 6 * 11;
    Sound const _sound;
};

std::string join(std::string const &device, std::string const &phase, std::string const &kind)
{
    return device + ":" + phase + ":" + kind;
}

// ---- the option

TEST_F(FaultTest, TheOptionReportsWhatIsWrongAndWhatIsPossible)
{
    std::string const input = path("in.wav");
    std::string const output = path("out.wav");
    struct
    {
        std::vector<std::string> arguments;
        char const *message;
    } const lines[] = {
        {{"--fault"}, "--fault takes a value"},
        {{"--fault", "recorder"},
         "--fault takes DEVICE:PHASE:KIND, such as \"recorder:start:hangs\", not \"recorder\""},
        {{"--fault=:start:hangs"},
         "--fault takes DEVICE:PHASE:KIND, such as \"recorder:start:hangs\", not \":start:hangs\""},
        {{"--fault", "start:hangs"},
         "--fault takes DEVICE:PHASE:KIND, such as \"recorder:start:hangs\", not \"start:hangs\""},
        {{"--fault", "recorder:begin:hangs"},
         "--fault \"recorder:begin:hangs\": there is no phase \"begin\", only open, start, ready, "
         "sync, lock, recover, stop, abort, close"},
        {{"--fault", "recorder:start:sleeps"},
         "--fault \"recorder:start:sleeps\": at \"start\" there is no kind \"sleeps\", only fails, "
         "fails-otherwise, hangs, slow, silent, drops, twice, recovers, aborts"},
        {{"--fault", "recorder:open:twice"},
         "--fault \"recorder:open:twice\": at \"open\" there is no kind \"twice\", only fails, "
         "fails-otherwise, hangs, slow"},
        {{"--fault", "recorder:abort:recovers"},
         "--fault \"recorder:abort:recovers\": at \"abort\" there is no kind \"recovers\", only "
         "fails, fails-otherwise, hangs, slow, silent, drops, twice"},
        {{"--fault", "recorder:stop:hangs", "--fault", "recorder:stop:slow"},
         "--fault \"recorder:stop:slow\": recorder has a fault at \"stop\" already"},
        {{"--fault", "camera:start:hangs"},
         "--fault: the sequence has no device \"camera\", only recorder, fader, player"},
        {{"--sequence", "( recorder ( player ) )", "--fault", "fader:start:hangs"},
         "--fault: the sequence has no device \"fader\", only recorder, player"},
        {{"--sequence", "(recorder(player))", "--fault", "fader:start:hangs"},
         "--fault: the sequence has no device \"fader\", only recorder, player"},
        {{"--dump-show", "--fault", "recorder:stop:slow"},
         "--dump-show: it plays nothing, so that no device can have a --fault"}};
    for (auto const &line : lines) {
        std::vector<std::string> arguments{input, output};
        arguments.insert(arguments.end(), line.arguments.begin(), line.arguments.end());
        Outcome const outcome = Playout(arguments).finish();
        EXPECT_EQ(outcome.status, 2) << line.message;
        EXPECT_EQ(outcome.out, "") << line.message;
        EXPECT_EQ(outcome.err, std::string("zvplayout: ") + line.message +
                                   "\nzvplayout --help lists what it takes\n");
    }
    expectNothingWritten();
}

TEST_F(FaultTest, AWrongSequenceIsReportedBeforeAFault)
{
    Outcome const outcome =
        play("in.wav", "out.wav", {"--sequence", "", "--fault", "a:open:fails"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "zvplayout: sequence \"\": Configuration string Syntax error.\n");
}

TEST_F(FaultTest, TheHelpNamesEachPhaseAndKind)
{
    Outcome const outcome = Playout({"--help"}).finish();
    EXPECT_EQ(outcome.status, 0);
    for (std::string const word :
         {"--fault DEVICE:PHASE:KIND", "open, close", "start, sync, stop", "ready", "lock",
          "recover, abort", "fails ", "fails-otherwise", "hangs", "slow", "silent", "drops",
          "twice", "recovers", "aborts", "3 if a device gave no", "130 for Ctrl-C"})
        EXPECT_THAT(outcome.out, HasSubstr(word));
}

// ---- the table

TEST_F(FaultTest, TheTableHasHowEachDeviceEndedAndTheTimesOfItsSteps)
{
    Outcome const outcome = playWith({});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, "");
    auto rows = readEnds(outcome.out);
    ASSERT_EQ(rows.size(), 3u) << outcome.out;
    for (char const * const device : DEVICES) {
        Row &row = rows[device];
        EXPECT_EQ(row.end, "stopped");
        for (char const * const step : {"start", "sync", "stop", "close"})
            EXPECT_GT(std::stod(row.times[step]), 0) << device << " " << step;
        EXPECT_EQ(row.times["recover"], "-");
        EXPECT_EQ(row.times["abort"], "-");
    }
    expectWritten();
}

TEST_F(FaultTest, TheTableHasTheTimeOfEachStep)
{
    for (std::string const step : {"start", "stop", "close"}) {
        Outcome const outcome = playWith({join("fader", step, "slow")});
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        auto rows = readEnds(outcome.out);
        EXPECT_EQ(rows["fader"].end, "stopped");
        EXPECT_THAT(rows["fader"].times[step], testing::MatchesRegex("[0-9]+\\.[0-9]+ s")) << step;
        EXPECT_GE(std::stod(rows["fader"].times[step]), 1.4) << step;
        expectWritten();
    }
}

// ---- each kind at each phase

TEST_F(FaultTest, ADeviceThatFailsIsNamedAndTheOthersEnd)
{
    for (std::string const phase : {"start", "ready", "sync", "lock", "recover"})
        for (std::string const device : DEVICES)
            for (std::string const kind : {"fails", "fails-otherwise"}) {
                std::string const fault = join(device, phase, kind);
                SCOPED_TRACE(fault);
                Outcome const outcome = playWith({fault});
                EXPECT_EQ(outcome.status, 1);
                // The short recording may be complete before the recovery begins.
                bool const isComplete =
                    phase == "recover" && outcome.err.ends_with(" is complete)\n");
                EXPECT_EQ(withoutFolder(outcome.err),
                          "zvplayout: " + device + (kind == "fails" ? " fails" : " throws") +
                              " at \"" + phase + "\", as --fault asks" +
                              (isComplete ? " (%out.wav is complete)\n" : "\n"));
                EXPECT_EQ(endOf(outcome, device), "failed");
                expectOthersEnded(outcome, device);
                if (!isComplete) {
                    expectNothingWritten();
                } else {
                    expectWritten();
                    std::filesystem::remove(path("out.wav"));
                }
            }
}

TEST_F(FaultTest, ADeviceThatCannotBeOpenedEndsTheRun)
{
    for (std::string const device : DEVICES) {
        Outcome const outcome = playWith({join(device, "open", "fails")});
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.err, "zvplayout: " + device + " fails at \"open\", as --fault asks\n");
        expectNothingWritten();
    }
    Outcome const outcome = playWith({"fader:open:fails-otherwise"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err,
              "zvplayout: sequence \"( recorder ( fader ( player ) ) )\": fader throws "
              "at \"open\", as --fault asks\n");
}

TEST_F(FaultTest, AFailureAfterTheRecordingIsReportedAndTheRecordingIsKept)
{
    for (std::string const phase : {"stop", "close"})
        for (std::string const device : DEVICES)
            for (std::string const kind : {"fails", "fails-otherwise"}) {
                std::string const fault = join(device, phase, kind);
                SCOPED_TRACE(fault);
                Outcome const outcome = playWith({fault});
                EXPECT_EQ(outcome.status, 1);
                EXPECT_EQ(withoutFolder(outcome.err),
                          "zvplayout: " + device + (kind == "fails" ? " fails" : " throws") +
                              " at \"" + phase + "\", as --fault asks (%out.wav is complete)\n");
                EXPECT_EQ(endOf(outcome, device), phase == "stop" ? "failed" : "stopped");
                EXPECT_THAT(outcome.out, HasSubstr("    " + device + " "));
                EXPECT_THAT(outcome.out, HasSubstr("recorded 12.50 s in "));
                expectOthersEnded(outcome, device);
                expectWritten();
            }
}

TEST_F(FaultTest, SlowOrUnusualDevicesDoNoHarm)
{
    for (std::string const fault :
         {"recorder:start:twice", "fader:sync:twice", "player:stop:twice", "fader:recover:twice",
          "recorder:open:slow", "fader:ready:slow", "player:lock:slow", "fader:lock:recovers",
          "player:lock:recovers", "recorder:lock:recovers", "player:recover:slow",
          "fader:start:recovers"}) {
        SCOPED_TRACE(fault);
        Outcome const outcome = playWith({fault});
        EXPECT_EQ(outcome.status, 0) << outcome.err << outcome.out;
        EXPECT_EQ(outcome.err, "");
        for (std::string const device : DEVICES)
            EXPECT_EQ(endOf(outcome, device), "stopped");
        expectWritten();
    }
    EXPECT_THAT(playWith({"recorder:start:twice"}).out,
                HasSubstr("    recorder: 1 report was refused, because the device was not in the "
                          "state for it\n"));
    EXPECT_NE(readEnds(playWith({"fader:lock:recovers"}).out)["fader"].times["recover"], "-");
}

TEST_F(FaultTest, ADeviceThatAbortsOrDropsItsAnswerEndsTheRun)
{
    for (std::string const device : DEVICES) {
        std::string const dropped = ": It has destroyed a completion without running it.";
        std::map<std::string, std::string> const messages{
            {"start:drops", dropped},        {"sync:drops", dropped},
            {"recover:drops", dropped},      {"abort:drops", dropped},
            {"lock:aborts", " has aborted"}, {"abort:twice", " has aborted"},
            {"sync:aborts", " has aborted"}};
        for (auto const &[fault, message] : messages) {
            SCOPED_TRACE(device + ":" + fault);
            Outcome const outcome = playWith({device + ":" + fault});
            EXPECT_EQ(outcome.status, 1);
            EXPECT_EQ(endOf(outcome, device), message == dropped ? "failed" : "aborted");
            expectOthersEnded(outcome, device);
            // The recording may be complete before the fault.
            if (outcome.err.ends_with("(" + path("out.wav") + " is complete)\n")) {
                EXPECT_EQ(outcome.err.find("zvplayout: " + device + message + " ("), 0u);
                expectWritten();
                removeOutput();
                continue;
            }
            EXPECT_EQ(outcome.err, "zvplayout: " + device + message + "\n");
            expectNothingWritten();
        }
    }
}

TEST_F(FaultTest, SeveralDevicesMayMisbehave)
{
    Outcome const outcome =
        playWith({"fader:lock:slow", "player:start:twice", "recorder:stop:fails"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(withoutFolder(outcome.err),
              "zvplayout: recorder fails at \"stop\", as --fault asks (%out.wav is complete)\n");
    EXPECT_THAT(outcome.out, HasSubstr("    player: 1 report was refused"));
    expectWritten();
}

// ---- devices that hang

// The programs run at the same time, because each waits for its limits.
TEST_F(FaultTest, AHungDeviceIsReportedAndTheOthersAreStoppedAndClosed)
{
    struct Case
    {
        std::string device;
        char const *fault;
        int status;
        char const *message;
        char const *end;
        char const *reasons;
        bool isComplete;
    };
    char const * const leftBehind = "    recorder was left behind: it has not closed in time\n";
    Case const cases[] = {
        {"recorder", "start:hangs", 3, "recorder gave no answer to \"start\" within 10 s",
         "no answer, left behind", leftBehind, false},
        {"fader", "start:silent", 3, "fader gave no answer to \"start\" within 10 s", "aborted", "",
         false},
        {"recorder", "ready:hangs", 3, "recorder gave no answer to \"getLatency\" within 10 s",
         "no answer, left behind", "    recorder gave no answer to \"getLatency\"\n", false},
        {"recorder", "stop:hangs", 3, "recorder gave no answer to \"stop\"",
         "no answer, left behind", leftBehind, true},
        {"fader", "stop:silent", 1, "fader gave no answer to \"stop\" and was aborted", "aborted",
         "", true},
        {"player", "close:hangs", 3, "player has not closed in time", "stopped, left behind", "",
         true}};
    std::vector<std::unique_ptr<Playout>> playouts;
    for (Case const &one : cases)
        playouts.push_back(std::make_unique<Playout>(
            std::vector<std::string>{"--fault", one.device + ":" + one.fault, path("in.wav"),
                                     path("out" + std::to_string(playouts.size()) + ".wav")}));
    for (std::size_t i = 0; i < playouts.size(); ++i) {
        Case const &one = cases[i];
        SCOPED_TRACE(one.device + ":" + one.fault);
        std::string const output = "out" + std::to_string(i) + ".wav";
        Outcome const outcome = playouts[i]->finish();
        EXPECT_EQ(outcome.status, one.status);
        EXPECT_EQ(withoutFolder(outcome.err),
                  std::string("zvplayout: ") + one.message + " (%" + output +
                      (one.isComplete ? " is complete)\n" : " was not written)\n"));
        EXPECT_EQ(endOf(outcome, one.device), one.end);
        EXPECT_THAT(outcome.out, HasSubstr(one.reasons));
        expectOthersEnded(outcome, one.device);
        EXPECT_EQ(files().contains(output), one.isComplete);
        EXPECT_FALSE(files().contains(output + ".part"));
        if (one.isComplete) {
            EXPECT_EQ(read(output).samples, _sound.samples);
        }
    }
}

TEST_F(FaultTest, CtrlCEndsItWhenADeviceHangs)
{
    struct Case
    {
        std::string device;
        char const *fault;
        char const *text; // shown when the device hangs
        char const *end;
        bool isComplete; // whether the recording is complete by then
        int number;
    };
    Case const cases[] = {
        {"fader", "close:hangs", "recorder   stop -> final", "stopped, left behind", true, SIGINT},
        {"recorder", "open:hangs", "recorder has not opened", "left behind", false, SIGINT},
        {"player", "open:hangs", "player has not opened", "left behind", false, SIGINT},
        {"fader", "start:hangs", "recorder   init -> start", "no answer, left behind", false,
         SIGINT},
        {"fader", "start:hangs", "recorder   init -> start", "no answer, left behind", false,
         SIGTERM},
        {"fader", "start:silent", "fader has not answered \"start\"", "aborted", false, SIGINT},
        {"fader", "ready:hangs", "recorder   init -> start", "no answer, left behind", false,
         SIGINT},
        {"player", "sync:hangs", "player     wml -> sync", "no answer, left behind", false, SIGINT},
        {"recorder", "lock:hangs", "recorder has been at one piece of its work",
         "no answer, left behind", false, SIGINT},
        {"fader", "lock:hangs", "fader has been at one piece of its work", "no answer, left behind",
         false, SIGINT},
        {"player", "lock:hangs", "player has been at one piece of its work",
         "no answer, left behind", false, SIGINT},
        {"player", "recover:hangs", "player has not answered \"recover\"", "no answer, left behind",
         false, SIGINT},
        {"fader", "abort:hangs", "fader      lock -> abort", "no answer, left behind", false,
         SIGINT},
        {"recorder", "stop:hangs", "recorder   wss -> stop", "no answer, left behind", true,
         SIGINT}};
    makeLong();
    // The programs run at the same time, because most wait for a limit.
    std::vector<std::unique_ptr<Playout>> playouts;
    for (Case const &one : cases) {
        std::string const number = std::to_string(playouts.size());
        playouts.push_back(std::make_unique<Playout>(std::vector<std::string>{
            "--block", one.isComplete ? "1024" : "16", "--fault", one.device + ":" + one.fault,
            path(one.isComplete ? "in.wav" : "long.wav"), path("out" + number + ".wav")}));
    }
    for (std::size_t i = 0; i < playouts.size(); ++i) {
        SCOPED_TRACE(cases[i].device + ":" + cases[i].fault);
        EXPECT_TRUE(playouts[i]->waitFor(cases[i].text));
        playouts[i]->signal(cases[i].number);
    }
    for (std::size_t i = 0; i < playouts.size(); ++i) {
        Case const &one = cases[i];
        SCOPED_TRACE(one.device + ":" + one.fault);
        EXPECT_TRUE(playouts[i]->endsWithin(FEW));
        Outcome const outcome = playouts[i]->finish();
        std::string const output = "out" + std::to_string(i) + ".wav";
        EXPECT_EQ(endOf(outcome, one.device), one.end) << outcome.out;
        if (one.isComplete) {
            EXPECT_EQ(outcome.status, 3);
            EXPECT_THAT(withoutFolder(outcome.err), HasSubstr("(%" + output + " is complete)\n"));
            EXPECT_EQ(read(output).samples, _sound.samples);
        } else {
            EXPECT_EQ(outcome.status, 128 + one.number);
            EXPECT_EQ(withoutFolder(outcome.err),
                      "zvplayout: interrupted: %" + output + " was not written\n");
            EXPECT_FALSE(files().contains(output));
        }
        EXPECT_FALSE(files().contains(output + ".part"));
        for (auto const &[other, row] : readEnds(outcome.out))
            if (other != one.device) {
                EXPECT_NE(row.times.at("close"), "-") << outcome.out;
            }
    }
}

TEST_F(FaultTest, ASecondCtrlCEndsItAtOnce)
{
    for (std::string const fault : {"recorder:lock:hangs", "fader:open:hangs"}) {
        SCOPED_TRACE(fault);
        Playout playout({"--fault", fault, path("in.wav"), path("out.wav")});
        ASSERT_TRUE(playout.waitFor("Ctrl-C ends the program"));
        auto const begin = std::chrono::steady_clock::now();
        playout.signal(SIGINT);
        ::usleep(100'000);
        EXPECT_FALSE(playout.endsWithin(0));
        playout.signal(SIGINT);
        EXPECT_TRUE(playout.endsWithin(PROMPT));
        std::chrono::duration<double> const took = std::chrono::steady_clock::now() - begin;
        Outcome const outcome = playout.finish();
        EXPECT_EQ(outcome.status, 130);
        EXPECT_EQ(withoutFolder(outcome.err), "zvplayout: interrupted: %out.wav was not written\n");
        EXPECT_THAT(outcome.out, Not(HasSubstr("  device     end "))) << took.count();
        expectNothingWritten();
    }
}

} // namespace
} // namespace ZvTest
