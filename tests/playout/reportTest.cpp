// Tests of the page about a show that was played.

#include "playoutTest.h"
#include "soundServer.h"

#include "resmgt/xml.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <map>
#include <sstream>

namespace ZvTest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

char const * const DEVICES[] = {"recorder", "fader", "player"};

std::vector<std::string> splitWords(std::string const &text)
{
    std::istringstream stream(text);
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

/// Returns the text with single blanks between its words.
std::string trim(std::string const &text)
{
    std::string trimmed;
    for (auto const &word : splitWords(text))
        trimmed += (trimmed.empty() ? "" : " ") + word;
    return trimmed;
}

/// What is on a page.
struct Page
{
    using Rows = std::vector<std::vector<std::string>>;

    explicit Page(std::string const &path)
    {
        std::ifstream file(path);
        std::ostringstream bytes;
        bytes << file.rdbuf();
        source = bytes.str();
        std::istringstream stream(source);
        Zv::XmlDocument const document(stream);
        EXPECT_STREQ(document.getRoot()->getNodeName().getChars(), "html");
        for (auto section = document.getElementsByTagName("section"); !section.atEnd(); ++section) {
            std::string const id = (*section)->getAttribute("id").getChars();
            sections.push_back(id);
            for (auto text = (*section)->getElementsByTagName("text"); !text.atEnd(); ++text)
                labels[id].push_back(trim((*text)->getData().getChars()));
            for (auto note = (*section)->getElementsByTagName("p"); !note.atEnd(); ++note)
                notes[id] += trim((*note)->getData().getChars());
            for (auto tip = (*section)->getElementsByTagName("title"); !tip.atEnd(); ++tip)
                tips[id].push_back(trim((*tip)->getData().getChars()));
            for (auto row = (*section)->getElementsByTagName("tr"); !row.atEnd(); ++row) {
                auto &cells = rows[id].emplace_back();
                for (char const * const kind : {"th", "td"})
                    for (auto cell = (*row)->getElementsByTagName(kind); !cell.atEnd(); ++cell)
                        cells.push_back(trim((*cell)->getData().getChars()));
            }
        }
        title = trim((*document.getElementsByTagName("h1"))->getData().getChars());
        auto const paragraph = *document.getElementsByTagName("p");
        result = trim(paragraph->getData().getChars());
        hasFailed = source.find("<p id=\"result\" class=\"failed\" >") != source.npos;
    }

    std::string source;
    std::string title;
    std::string result;
    bool hasFailed = false;
    std::vector<std::string> sections;
    std::map<std::string, std::vector<std::string>> labels; // in charts, by section
    std::map<std::string, std::string> notes;
    std::map<std::string, std::vector<std::string>> tips;
    std::map<std::string, Rows> rows;
};

class ReportTest : public PlayoutTest
{
protected:
    /// Plays a show of a second, with a clock, memory and events.
    Outcome playShow(std::vector<std::string> arguments = {},
                     Playout::Surroundings surroundings = {}) const
    {
        make("in.wav", PCM, 2, RATE, RATE);
        writeText("show.xml", "<show output='out.wav'><clip file='in.wav'/>"
                              "<memory budget='100000' page='16384' ahead='2'/>"
                              "<event at='00:00:00:05' action='gain' value='0.5'/>"
                              "<event at='00:00:00:20' action='mute' value='on'/></show>");
        arguments.insert(arguments.end(), {"--report", path("page.html"), path("show.xml")});
        return Playout(arguments, surroundings).finish();
    }
    Page getPage() const { return Page(path("page.html")); }
};

/// Returns the lines of the closing tables.
std::vector<std::string> getTableLines(std::string const &out)
{
    std::vector<std::string> lines;
    std::istringstream stream(out.substr(std::min(out.find("\n  device     end "), out.size())));
    for (std::string line; std::getline(stream, line);)
        if (line.starts_with("  ") && !line.starts_with("    ") && !line.starts_with("  0"))
            lines.push_back(trim(line));
    return lines;
}

TEST_F(ReportTest, ShowsTheFiguresOfTheRun)
{
    Outcome const outcome = playShow();
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_THAT(outcome.out, testing::EndsWith("\nits report is " + path("page.html") + "\n"));
    Page const page = getPage();
    EXPECT_EQ(page.title, path("show.xml"));
    EXPECT_EQ(page.result, "recorded 00:00:01:00 in " + path("out.wav"));
    EXPECT_FALSE(page.hasFailed);
    EXPECT_THAT(page.sections, ElementsAre("waveform", "states", "lanes", "lateness", "memory",
                                           "threads", "events", "tables"));

    // The closing tables have the same words.
    std::vector<std::string> tableLines;
    std::map<std::string, std::string> beats;
    std::vector<std::string> memory;
    bool isClock = false;
    for (auto const &row : page.rows.at("tables")) {
        std::string line;
        for (auto const &cell : row)
            line += (line.empty() ? "" : " ") + cell;
        tableLines.push_back(line);
        if (row.front() == "clock" || row.front() == "memory")
            isClock = row.front() == "clock";
        else if (isClock)
            beats[row.front()] = row.at(1);
        if (row.front() == "heap, LRU")
            memory = row;
    }
    EXPECT_EQ(tableLines, getTableLines(outcome.out));

    // The histograms have all beats.
    EXPECT_EQ(beats.size(), 2u);
    for (auto const &[device, number] : beats) {
        auto const &labels = page.labels.at("lateness");
        auto const place = std::find(labels.begin(), labels.end(), device);
        ASSERT_LT(place, labels.end() - 1) << device;
        std::int64_t sum = 0;
        auto label = place + 1;
        for (; label != labels.end() && label->find(" beats, ") == label->npos; ++label)
            if (splitWords(*label).size() == 1) // bounds have a unit
                sum += std::stol(*label);
        EXPECT_EQ(std::to_string(sum), number) << device;
        ASSERT_NE(label, labels.end());
        EXPECT_THAT(*label, StartsWith(number + " beats, the latest by "));
    }

    // The lane of loads has all loads, and the memory is that of the table.
    auto const loads = std::stol(memory.at(1)) + std::stol(memory.at(2));
    EXPECT_THAT(page.labels.at("lanes"),
                testing::Contains(StartsWith(std::to_string(loads) + " loads, ")));
    EXPECT_THAT(page.labels.at("lanes"), testing::Contains(memory.at(3) + " unloads"));
    auto const peak = static_cast<double>(std::stol(memory.at(5)));
    char text[64];
    std::snprintf(text, sizeof text, "%.4g KiB", peak / 1024);
    EXPECT_THAT(page.notes.at("memory"), HasSubstr("the budget of 97.66 KiB, "));
    EXPECT_THAT(page.notes.at("memory"), HasSubstr(std::string("use was ") + text + "."));

    EXPECT_THAT(page.labels.at("waveform"), testing::Contains("00:00:00:05 gain 0.5"));
    EXPECT_EQ(page.rows.at("events"), (Page::Rows{{"timecode", "event", ""},
                                                  {"00:00:00:05", "gain 0.5", "carried out"},
                                                  {"00:00:00:20", "mute on", "carried out"}}));
    EXPECT_EQ(files(),
              (std::set<std::string>{"in.wav", "out.svg", "out.wav", "page.html", "show.xml"}));
}

TEST_F(ReportTest, ShowsEachStateOfEachDevice)
{
    Outcome const outcome = playShow({"--fast"});
    std::set<std::string> expected;
    std::istringstream lines(outcome.out);
    for (std::string line; std::getline(lines, line);)
        if (auto const words = splitWords(line);
            words.size() == 6 && words[1] == "ms" && words[4] == "->") {
            expected.insert(words[2] + ": " + words[3]);
            expected.insert(words[2] + ": " + words[5]);
        }
    EXPECT_GE(expected.size(), 15u) << outcome.out;
    Page const page = getPage();
    std::set<std::string> shown;
    for (auto const &tip : page.tips.at("states"))
        shown.insert(tip.substr(0, tip.find(" for ")));
    EXPECT_EQ(shown, expected);
    for (char const * const device : DEVICES) {
        EXPECT_THAT(page.labels.at("states"), testing::Contains(device));
        EXPECT_THAT(page.labels.at("lanes"), testing::Contains(device));
        auto const &threads = page.rows.at("threads");
        EXPECT_TRUE(std::any_of(threads.begin(), threads.end(), [&](auto const &row) {
            return row.at(0) == device && row.at(1) == "1" && !row.at(2).empty() &&
                   !row.at(3).empty() &&
                   row.at(4) == (row.at(2) == row.at(3) ? "as asked" : "not granted");
        })) << device;
    }
}

TEST_F(ReportTest, NeedsNothingElse)
{
    playShow({"--fast"});
    std::string source = getPage().source;
    EXPECT_THAT(source, StartsWith("<!DOCTYPE html>\n"));
    for (char const * const name : {"http://www.w3.org/1999/xhtml", "http://www.w3.org/2000/svg"})
        for (auto place = source.find(name); place != source.npos; place = source.find(name))
            source.erase(place, std::string(name).size());
    for (char const * const word :
         {"http:", "https:", "<script", "src=", "href=", "url(", "@import", "<link"})
        EXPECT_THAT(source, Not(HasSubstr(word)));
    EXPECT_THAT(source, HasSubstr("prefers-color-scheme: dark"));
    EXPECT_THAT(source, HasSubstr("@media print"));
}

TEST_F(ReportTest, APlainRecordingHasOneToo)
{
    make("in.wav", PCM, 1, RATE, 10000);
    EXPECT_EQ(play("in.wav", "out.wav", {"--report", path("page.html")}).status, 0);
    Page const page = getPage();
    EXPECT_EQ(page.result, "recorded 1.25 s in " + path("out.wav"));
    EXPECT_THAT(page.labels.at("waveform"), testing::Contains("mono"));
    EXPECT_EQ(page.notes.at("lateness"), "No clock has paced the show.");
    EXPECT_EQ(page.notes.at("memory"), "The show has no budget of memory.");
    EXPECT_EQ(files(), (std::set<std::string>{"in.wav", "out.wav", "page.html"}));
}

TEST_F(ReportTest, AShowOnASoundCardHasOneToo)
{
    SoundServer server(path(""));
    SoundCapture const capture(server, 1);
    make("in.wav", PCM, 1, SoundServer::RATE, SoundServer::RATE);
    Outcome const outcome =
        Playout({"--to", capture.getPlace(), "--property", "speaker:card:latency=0.5", "--report",
                 path("page.html"), path("in.wav")})
            .finish();
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    Page const page = getPage();
    EXPECT_EQ(page.result, "played 00:00:01:00 to JACK");
    EXPECT_THAT(page.labels.at("waveform"), testing::Contains("mono"));
    EXPECT_THAT(page.labels.at("lateness"), testing::Contains("speaker"));
    EXPECT_THAT(page.rows.at("tables"),
                testing::Contains(
                    ElementsAre("JACK", testing::_, "0", "0.000 ms", "0", "0.000 ms", testing::_)));
}

TEST_F(ReportTest, AFailureIsFirst)
{
    Outcome const outcome = playShow({"--fault", "fader:lock:fails"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "zvplayout: fader fails at \"lock\", as --fault asks\n");
    Page const page = getPage();
    EXPECT_TRUE(page.hasFailed);
    EXPECT_EQ(page.result, "The show has failed: fader fails at \"lock\", as --fault asks");
    EXPECT_THAT(page.tips.at("states"), testing::Contains(StartsWith("fader: lock for ")));
    EXPECT_THAT(page.rows.at("tables").at(2), testing::Contains("failed"));
    EXPECT_EQ(page.rows.at("events").at(2).at(2), "not reached");
    EXPECT_EQ(files(), (std::set<std::string>{"in.wav", "page.html", "show.xml"}));
}

TEST_F(ReportTest, ADeviceThatFailsToOpenIsReported)
{
    Outcome const outcome = playShow({"--fault", "player:open:fails"});
    EXPECT_EQ(outcome.status, 1);
    Page const page = getPage();
    EXPECT_EQ(page.result, "The show has failed: player fails at \"open\", as --fault asks");
    EXPECT_EQ(page.sections.back(), "tables");
}

TEST_F(ReportTest, ADeviceThatIsLeftBehindIsReported)
{
    Outcome const outcome = playShow({"--fault", "player:close:hangs", "--fast"});
    EXPECT_EQ(outcome.status, 3);
    Page const page = getPage();
    EXPECT_TRUE(page.hasFailed);
    EXPECT_THAT(page.result, HasSubstr("player has not closed in time"));
    EXPECT_THAT(page.rows.at("tables").at(3),
                ElementsAre("player", "stopped, left behind", testing::_, testing::_, "-",
                            testing::_, "-", "-"));
    EXPECT_EQ(files(),
              (std::set<std::string>{"in.wav", "out.svg", "out.wav", "page.html", "show.xml"}));
}

TEST_F(ReportTest, AnInterruptedShowHasOneToo)
{
    make("in.wav", PCM, 1, RATE, 60 * RATE);
    writeText("show.xml", "<show output='out.wav'><clip file='in.wav'/></show>");
    Playout playout({"--report", path("page.html"), path("show.xml")});
    ASSERT_TRUE(playout.waitFor("sync -> lock"));
    playout.signal(SIGINT);
    EXPECT_EQ(playout.finish().status, 130);
    Page const page = getPage();
    EXPECT_TRUE(page.hasFailed);
    EXPECT_EQ(page.result,
              "The show has failed: interrupted: " + path("out.wav") + " was not written");
    EXPECT_EQ(files(), (std::set<std::string>{"in.wav", "page.html", "show.xml"}));
}

TEST_F(ReportTest, TextFromOutsideIsEscaped)
{
    std::string const name = "<b>&amp;\"'\x1b.wav";
    make(name, PCM, 1, RATE, 1000);
    EXPECT_EQ(play(name, "out.wav", {"--report", path("page.html")}).status, 0);
    std::string const source = getPage().source;
    std::string const title = path("&lt;b&gt;&amp;amp;\"'\\x1b.wav");
    EXPECT_NE(source.find("<h1 >\n" + title + "</h1"), source.npos);
    EXPECT_EQ(source.find("<b>"), source.npos);

    make("in.wav", PCM, 1, RATE, 1000);
    writeText("show.xml", "<show output='out.wav'><clip file='in.wav'/>"
                          "<device name='r&lt;i&gt;&amp;' kind='recorder'/><device name='player'/>"
                          "<sequence tree='( r&lt;i&gt;&amp; ( player ) )'/>"
                          "<connection stream='player:out push r&lt;i&gt;&amp;:in'/></show>");
    Outcome const outcome = Playout({"--report", path("page.html"), path("show.xml")}).finish();
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    std::string const page = getPage().source;
    EXPECT_EQ(page.find("<i>"), page.npos);
    for (char const * const text :
         {"r&lt;i&gt;&amp;</text", "r&lt;i&gt;&amp;: lock for ", "r&lt;i&gt;&amp;</td"})
        EXPECT_NE(page.find(text), page.npos) << text;
}

TEST_F(ReportTest, APlaceThatCannotBeWrittenIsRefusedBeforeTheShow)
{
    auto const refuses = [this](std::string const &name, std::string const &reason) {
        make("in.wav", PCM, 1, RATE, 1000);
        Outcome const outcome = play("in.wav", "out.wav", {"--report", path(name)});
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(withoutFolder(outcome.err), "zvplayout: cannot write %" + reason + "\n");
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(files(), (std::set<std::string>{"in.wav"}));
    };
    refuses("none/page.html", "none/page.html.part: No such file or directory");
    refuses("out.wav", "out.wav: it is an output already");
    refuses("out.wav.part", "out.wav.part: it is an output already");
    refuses("in.wav", "in.wav: it is the input");
    refuses("", ": Is a directory");
}

TEST_F(ReportTest, AFullDiskLeavesNoPage)
{
    make("in.wav", PCM, 1, RATE, 1000);
    Playout::Surroundings surroundings;
    surroundings.largestFile = 5000; // room for the recording
    Outcome const outcome =
        play("in.wav", "out.wav", {"--report", path("page.html")}, surroundings);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(withoutFolder(outcome.err), "zvplayout: cannot write %page.html: File too large\n");
    EXPECT_EQ(files(), (std::set<std::string>{"in.wav", "out.wav"}));
}

TEST_F(ReportTest, AFailureOfTheShowIsWorseThanOneOfThePage)
{
    make("in.wav", PCM, 1, RATE, 1000);
    Playout::Surroundings surroundings;
    surroundings.largestFile = 5000;
    Outcome const outcome =
        play("in.wav", "out.wav", {"--report", path("page.html"), "--fault", "fader:start:fails"},
             surroundings);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "zvplayout: fader fails at \"start\", as --fault asks\n");
    EXPECT_THAT(withoutFolder(outcome.out),
                testing::EndsWith("\n  cannot write %page.html: File too large\n"));
    EXPECT_EQ(files(), (std::set<std::string>{"in.wav"}));
}

TEST_F(ReportTest, ALongShowHasAPageOfTheSameSize)
{
    auto const measure = [this](int seconds) {
        write("in.wav", {PCM, 1, 100, std::vector<int>(static_cast<std::size_t>(seconds) * 100)});
        writeText("show.xml", "<show output='out.wav'><clip file='in.wav'/></show>");
        Outcome const outcome =
            Playout({"--fast", "--report", path("page.html"), path("show.xml")}).finish();
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        return getPage().source.size();
    };
    EXPECT_LT(measure(600), 500000u);
}

TEST_F(ReportTest, ADumpedShowHasNone)
{
    make("in.wav", PCM, 1, RATE, 1000);
    Outcome const outcome =
        play("in.wav", "out.wav", {"--dump-show", "--report", path("page.html")});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.err, StartsWith("zvplayout: --dump-show: it plays nothing, so that there "
                                        "is nothing to --report\n"));
    EXPECT_THAT(play("in.wav", "out.wav", {"--report="}).err,
                StartsWith("zvplayout: --report takes the name of a file\n"));
}

} // namespace
} // namespace ZvTest
