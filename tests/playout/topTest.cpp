// Tests of the live table, in a terminal that the test reads.

#include "playoutTest.h"
#include "pseudoTerminal.h"
#include "testing/traceFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace ZvTest {
namespace {

constexpr int PCM = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
constexpr int RATE = 8000;
constexpr char CTRL_C[] = "\003";
constexpr char CTRL_Z[] = "\032";
constexpr char CTRL_BACKSLASH[] = "\034";

class TopTest : public PlayoutTest
{
protected:
    using Settings = PseudoTerminal::Settings;
    using Arguments = std::vector<std::string>;

    /// Makes a show of that many seconds, which its clock paces.
    void makeShow(int seconds, std::string const &tags = "")
    {
        make("in.wav", PCM, 1, RATE, RATE * seconds);
        writeText("show.xml", "<show output='out.wav'>" + tags + "<clip file='in.wav'/></show>");
    }
    Arguments arguments(Arguments options = {}) const
    {
        options.insert(options.begin(), {"--top", path("show.xml")});
        return options;
    }
    /// Returns the words of the first line of the screen that begins with a word.
    static Arguments getRow(PseudoTerminal const &terminal, std::string const &name)
    {
        for (std::string const &line : terminal.screen().getLines()) {
            std::istringstream words(line);
            Arguments row;
            for (std::string word; words >> word;)
                row.push_back(word);
            if (!row.empty() && row[0] == name)
                return row;
        }
        return {};
    }
    /// Waits for a line that begins with these words.
    static bool waitForRow(PseudoTerminal &terminal, Arguments const &expected)
    {
        return terminal.waitFor([&] {
            Arguments row = getRow(terminal, expected[0]);
            row.resize(std::min(row.size(), expected.size()));
            return row == expected;
        });
    }
    static bool isPlaying(PseudoTerminal &terminal)
    {
        return terminal.waitFor("playing") && terminal.screen().isSecondShown();
    }
    static void expectAsItWas(PseudoTerminal const &terminal)
    {
        EXPECT_FALSE(terminal.screen().isSecondShown());
        EXPECT_TRUE(terminal.screen().isCursorShown());
        EXPECT_TRUE(terminal.hasItsModes());
        EXPECT_EQ(terminal.screen().getUnknown(), "");
    }
    std::string getFile(std::string const &name) const
    {
        std::ifstream file(path(name));
        return {std::istreambuf_iterator<char>(file), {}};
    }
};

TEST_F(TopTest, ShowsTheDevicesTheThreadsAndThePagesOfAShow)
{
    makeShow(3, "<memory budget='16000' page='8000' ahead='1'/>");
    PseudoTerminal terminal(arguments());
    EXPECT_TRUE(waitForRow(terminal, {"device", "state", "input", "queue", "blocks", "beats",
                                      "late", "latest", "busy"}));
    EXPECT_TRUE(waitForRow(terminal, {"recorder", "lock"}));
    EXPECT_TRUE(waitForRow(terminal, {"fader", "lock"}));
    EXPECT_TRUE(waitForRow(terminal, {"player", "lock", "-"})); // it has no input
    EXPECT_TRUE(waitForRow(terminal, {"thread", "level", "asked", "got", "cpu", "s", "cpu", "%"}));
    EXPECT_TRUE(waitForRow(terminal, {"top", "0"}));
    EXPECT_TRUE(terminal.waitFor([&] {
        Arguments const row = getRow(terminal, "recorder");
        return row.size() > 5 && row[4] != "0";
    }));
    EXPECT_FALSE(terminal.screen().isCursorShown());
    EXPECT_FALSE(terminal.hasItsModes());
    EXPECT_TRUE(terminal.waitFor("late beats "));
    EXPECT_TRUE(terminal.waitFor("prefetch hits "));
    EXPECT_EQ(terminal.finish(), 0);
    expectAsItWas(terminal);
    std::string const history = terminal.screen().getHistory();
    for (char const * const text :
         {"( recorder ( fader ( player ) ) )", "ms  recorder   init -> start", "stopped",
          "longest wait", "late beats", "recorded 00:00:03:00 in "})
        EXPECT_NE(history.find(text), history.npos) << text << " in\n" << history;
    EXPECT_EQ(read("out.wav").samples, read("in.wav").samples);
}

TEST_F(TopTest, IsReadableOnATerminalWithoutASecondScreen)
{
    makeShow(2);
    Settings settings;
    settings.type = "vt100";
    PseudoTerminal terminal(arguments(), settings);
    ASSERT_TRUE(terminal.waitFor("playing"));
    ASSERT_TRUE(waitForRow(terminal, {"recorder", "lock"}));
    EXPECT_EQ(terminal.finish(), 0);
    expectAsItWas(terminal);
    EXPECT_NE(terminal.screen().getHistory().find("recorded 00:00:02:00 in "), std::string::npos);
}

TEST_F(TopTest, FollowsTheSizeOfTheWindow)
{
    makeShow(20);
    PseudoTerminal terminal(arguments());
    ASSERT_TRUE(isPlaying(terminal));
    ASSERT_TRUE(waitForRow(terminal, {"recorder", "lock"}));
    terminal.resize(20, 5);
    ASSERT_TRUE(terminal.waitFor([&] {
        auto const lines = terminal.screen().getLines();
        return lines.size() == 5 && lines[0].starts_with("playing ") &&
               lines[2] == "device      state" && lines[3] == "recorder    lock";
    })) << terminal.screen().getText();
    terminal.resize(100, 30);
    ASSERT_TRUE(terminal.waitFor("q end")) << terminal.screen().getText();
    ASSERT_TRUE(terminal.waitFor("asked"));
    terminal.type("q");
    EXPECT_EQ(terminal.finish(), 130);
    expectAsItWas(terminal);
}

TEST_F(TopTest, KeysScrollAndSort)
{
    makeShow(20);
    Settings settings;
    settings.height = 8;
    PseudoTerminal terminal(arguments(), settings);
    ASSERT_TRUE(isPlaying(terminal));
    ASSERT_TRUE(waitForRow(terminal, {"device", "state"}));
    auto const isGone = [&](std::string const &text) {
        return terminal.waitFor(
            [&] { return terminal.screen().getText().find(text) == std::string::npos; });
    };
    terminal.type("\033OB"); // down, by the terminal's description
    EXPECT_TRUE(isGone("input"));
    terminal.type("\033OA");
    EXPECT_TRUE(waitForRow(terminal, {"device", "state"}));
    terminal.type("\033[6~");
    EXPECT_TRUE(isGone("input"));
    terminal.type("\033[5~");
    EXPECT_TRUE(waitForRow(terminal, {"device", "state"}));
    terminal.type("\033OF"); // the end: the first line of the show
    EXPECT_TRUE(terminal.waitFor("( recorder ( fader ( player ) ) )"));
    terminal.type("\033OH");
    EXPECT_TRUE(waitForRow(terminal, {"device", "state"}));
    terminal.type("s");
    EXPECT_TRUE(terminal.waitFor("s threads by start"));
    terminal.type("s");
    EXPECT_TRUE(terminal.waitFor("s busiest threads first"));
    terminal.type("q");
    EXPECT_EQ(terminal.finish(), 130);
    expectAsItWas(terminal);
}

TEST_F(TopTest, QDoesWhatCtrlCDoes)
{
    makeShow(20);
    for (std::string const key : {"q", CTRL_C}) {
        PseudoTerminal terminal(arguments());
        ASSERT_TRUE(isPlaying(terminal));
        terminal.type(key);
        EXPECT_EQ(terminal.finish(), 130);
        expectAsItWas(terminal);
        std::string const history = terminal.screen().getHistory();
        EXPECT_NE(history.find("zvplayout: interrupted: "), history.npos) << history;
        EXPECT_NE(history.find("recorder   stopped"), history.npos) << history;
        EXPECT_EQ(files(), (std::set<std::string>{"in.wav", "show.xml"}));
    }
}

// The recorder hangs, so that the end in order takes a while.
TEST_F(TopTest, ASecondCtrlCLeavesTheTerminalAsItWas)
{
    makeShow(20);
    for (char const * const type : {"xterm", "vt100"}) {
        Settings settings;
        settings.type = type;
        PseudoTerminal terminal(arguments({"--fault", "recorder:lock:hangs"}), settings);
        ASSERT_TRUE(terminal.waitFor("playing"));
        terminal.type(CTRL_C);
        ASSERT_TRUE(terminal.waitFor("ending")) << terminal.screen().getText();
        terminal.type(CTRL_C);
        EXPECT_EQ(terminal.finish(), 130);
        expectAsItWas(terminal);
        std::string const history = terminal.screen().getHistory();
        EXPECT_NE(history.find("zvplayout: interrupted: "), history.npos) << history;
        EXPECT_EQ(history.find("no answer"), history.npos) << "the end was in order";
    }
}

TEST_F(TopTest, AFatalSignalLeavesTheTerminalAsItWas)
{
    makeShow(20);
    PseudoTerminal terminal(arguments());
    ASSERT_TRUE(isPlaying(terminal));
    terminal.type(CTRL_BACKSLASH);
    EXPECT_EQ(terminal.finish(), 128 + SIGQUIT);
    expectAsItWas(terminal);
}

TEST_F(TopTest, CtrlZLeavesTheTerminalAsItWasUntilItGoesOn)
{
    makeShow(20);
    PseudoTerminal terminal(arguments());
    ASSERT_TRUE(isPlaying(terminal));
    for (int i = 0; i < 2; ++i) {
        terminal.type(CTRL_Z);
        ASSERT_TRUE(terminal.waitForStop());
        ASSERT_TRUE(terminal.waitForSecond(false));
        expectAsItWas(terminal);
        terminal.goOn();
        ASSERT_TRUE(terminal.waitForSecond(true));
        ASSERT_TRUE(isPlaying(terminal));
        EXPECT_FALSE(terminal.hasItsModes());
    }
    terminal.type("q");
    EXPECT_EQ(terminal.finish(), 130);
    expectAsItWas(terminal);
}

TEST_F(TopTest, DrawsEverythingAgainAfterSigstop)
{
    makeShow(20);
    PseudoTerminal terminal(arguments());
    ASSERT_TRUE(isPlaying(terminal));
    terminal.signal(SIGSTOP);
    ASSERT_TRUE(terminal.waitForStop());
    terminal.goOn();
    ASSERT_TRUE(terminal.waitFor([&] { return terminal.screen().getNbSecond() == 2; }));
    ASSERT_TRUE(isPlaying(terminal));
    terminal.type("q");
    EXPECT_EQ(terminal.finish(), 130);
    expectAsItWas(terminal);
}

TEST_F(TopTest, LinesGoToAFileMeanwhile)
{
    makeShow(3);
    Settings settings;
    settings.output = path("lines.txt");
    PseudoTerminal terminal(arguments(), settings);
    ASSERT_TRUE(isPlaying(terminal));
    ASSERT_TRUE(terminal.waitFor([&] {
        return getFile("lines.txt").find("recorder   sync -> lock") != std::string::npos;
    })) << getFile("lines.txt");
    EXPECT_EQ(terminal.finish(), 0);
    expectAsItWas(terminal);
    EXPECT_NE(getFile("lines.txt").find("100 %"), std::string::npos);
    EXPECT_EQ(getFile("lines.txt").find('\033'), std::string::npos);
    EXPECT_EQ(terminal.screen().getHistory().find_first_not_of('\n'), std::string::npos);
}

// A library may write messages of its own.
TEST_F(TopTest, TheStandardErrorWaitsForTheEnd)
{
    makeShow(20);
    PseudoTerminal terminal(arguments());
    ASSERT_TRUE(isPlaying(terminal));
    int const error = ::open(("/proc/" + std::to_string(terminal.getProcess()) + "/fd/2").c_str(),
                             O_WRONLY | O_CLOEXEC);
    ASSERT_GE(error, 0);
    std::string const text = "message of a\033[2J library\n";
    EXPECT_EQ(::write(error, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    ::close(error);
    EXPECT_TRUE(terminal.waitFor("message of a\\x1b[2J library")); // below the tables
    terminal.type("q");
    EXPECT_EQ(terminal.finish(), 130);
    expectAsItWas(terminal);
    EXPECT_NE(terminal.screen().getHistory().find("library\n"), std::string::npos);
}

TEST_F(TopTest, GoesWithAReportAndATrace)
{
    makeShow(1);
    PseudoTerminal terminal(arguments({"--report", path("report.html"), "--trace-events",
                                       path("events.json"), "--trace", path("trace.txt")}));
    EXPECT_EQ(terminal.finish(), 0);
    expectAsItWas(terminal);
    EXPECT_NE(terminal.screen().getHistory().find("its report is "), std::string::npos);
    EXPECT_NE(getFile("report.html").find("</html>"), std::string::npos);
    EXPECT_EQ(TracedEvents(path("events.json")).processName(), "zvplayout");
    EXPECT_NE(getFile("trace.txt"), "");
}

TEST_F(TopTest, AFailureIsShownOnTheNormalScreen)
{
    makeShow(20);
    PseudoTerminal terminal(arguments({"--fault", "fader:lock:fails"}));
    EXPECT_EQ(terminal.finish(), 1);
    expectAsItWas(terminal);
    std::string const history = terminal.screen().getHistory();
    EXPECT_NE(history.find("zvplayout: fader fails at \"lock\", as --fault asks"), history.npos)
        << history;
}

TEST_F(TopTest, ATerminalThatCannotShowItIsRefused)
{
    makeShow(1);
    auto const expectRefused = [&](std::string const &reason, Settings const &settings,
                                   Arguments const &options = {}) {
        SCOPED_TRACE(reason);
        auto const before = files();
        PseudoTerminal terminal(arguments(options), settings);
        EXPECT_EQ(terminal.finish(), 1);
        expectAsItWas(terminal);
        std::string const history = terminal.screen().getHistory();
        EXPECT_EQ(history.substr(0, history.find('\n')), "zvplayout: " + reason);
        EXPECT_EQ(files(), before);
    };
    Settings settings;
    settings.type = "dumb";
    expectRefused("--top: a terminal of the type \"dumb\" cannot show a table", settings);
    settings.type = "no-such-type";
    expectRefused("--top: there is no description of the terminal's type \"no-such-type\"",
                  settings);
    settings.type.reset();
    expectRefused("--top: the type of the terminal is not known, because TERM is not set",
                  settings);
    settings = Settings();
    settings.isControlling = false;
    expectRefused("--top: there is no terminal to draw on: No such device or address", settings);
    settings = Settings();
    expectRefused("cannot write /dev/tty: it is a terminal, which --top needs", settings,
                  {"--trace", "/dev/tty"});
    expectRefused("cannot write /dev/tty: it is a terminal, which --top needs", settings,
                  {"--trace-events", "/dev/tty"});
}

TEST_F(TopTest, ADumpHasNoTable)
{
    makeShow(1);
    Outcome const outcome = Playout(arguments({"--dump-show"})).finish();
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err, "zvplayout: --dump-show: it plays nothing, so that there is nothing to "
                           "see by --top\nzvplayout --help lists what it takes\n");
}

} // namespace
} // namespace ZvTest
