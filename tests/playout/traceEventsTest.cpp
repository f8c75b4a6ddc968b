// Tests of the file of `--trace-events`, against what the program says of its run.

#include "playoutTest.h"
#include "testing/traceFile.h"

#include <csignal>
#include <filesystem>
#include <map>
#include <sstream>

namespace ZvTest {
namespace {

class TraceEventsOfPlayout : public PlayoutTest
{
protected:
    void makeShow(std::string const &tags = "")
    {
        make("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 8000, 8000);
        writeText("show.xml",
                  "<show output='out.wav'>\n" + tags + "<clip file='in.wav'/>\n</show>\n");
    }
    std::vector<std::string> arguments(std::vector<std::string> options = {}) const
    {
        options.insert(options.end(), {"--trace-events", path("events.json"), path("show.xml")});
        return options;
    }
    TracedEvents getEvents() const
    {
        TracedEvents events(path("events.json"));
        EXPECT_EQ(events.processName(), "zvplayout");
        events.expectNested();
        return events;
    }
    /// Returns the numbers of the rows of a table that begins with `head`, by the first word of
    /// each.
    static std::map<std::string, std::vector<long>> getTable(std::string const &out,
                                                             std::string const &head)
    {
        std::map<std::string, std::vector<long>> rows;
        std::istringstream lines(out.substr(std::min(out.find("  " + head + " "), out.size())));
        std::string line;
        std::getline(lines, line);
        while (std::getline(lines, line) && line.starts_with("  ")) {
            std::istringstream words(line);
            std::string name, word;
            words >> name;
            std::vector<long> numbers;
            while (words >> word)
                if (word.find_first_not_of("0123456789") == word.npos)
                    numbers.push_back(std::stol(word));
            if (!rows.emplace(name, numbers).second)
                break;
        }
        return rows;
    }
    static std::map<std::string, std::string> getSteps(TracedEvents const &events)
    {
        std::map<std::string, std::string> steps;
        for (TracedEvent const &event : events.find("device"))
            steps[events.nameOf(event.thread)] += event.name + ";";
        return steps;
    }
    static long count(TracedEvents const &events, std::string const &name)
    {
        return static_cast<long>(events.find("buffer", name).size());
    }
};

TEST_F(TraceEventsOfPlayout, AgreeWithTheTablesOfTheRun)
{
    makeShow("<memory page='1600' budget='8000' ahead='2'/>\n");
    Playout playout(arguments());
    ASSERT_TRUE(playout.waitFor("20 %"));
    playout.signal(SIGSTOP); // the beats go on without the program, which is late then
    EXPECT_FALSE(playout.endsWithin(0.3));
    playout.signal(SIGCONT);
    Outcome const outcome = playout.finish();
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    TracedEvents const events = getEvents();

    EXPECT_EQ(getSteps(events),
              (std::map<std::string, std::string>{{"fader", "start;sync;stop;"},
                                                  {"player", "start;sync;stop;"},
                                                  {"recorder", "start;sync;stop;"}}));
    EXPECT_GT(events.expectWholeFlows(), 100u);
    EXPECT_EQ(events.find("request", "send").size(), events.find("request", "completed").size());
    EXPECT_TRUE(events.find("trace").empty());

    std::vector<long> const memory = getTable(outcome.out, "memory").at("heap,");
    EXPECT_EQ(count(events, "load") + count(events, "asyncLoad"), memory.at(0));
    EXPECT_EQ(count(events, "reload") + count(events, "asyncReload"), memory.at(1));
    EXPECT_EQ(count(events, "unload"), memory.at(2));
    EXPECT_GT(memory.at(0), 0);
    EXPECT_GT(memory.at(2), 0);

    std::map<std::string, long> late;
    for (TracedEvent const &event : events.find("clock", "beat"))
        if (event.phase == 'X')
            late[events.nameOf(event.thread)] += event.value("late");
    long all = 0;
    for (std::string const name : {"recorder", "player"}) {
        long const shown = getTable(outcome.out, "clock").at(name).at(1);
        EXPECT_EQ(late[name + " beats"], shown);
        all += shown;
    }
    EXPECT_GT(all, 0);
    EXPECT_EQ(files(),
              (std::set<std::string>{"events.json", "in.wav", "out.svg", "out.wav", "show.xml"}));
}

TEST_F(TraceEventsOfPlayout, AreWholeAfterASignal)
{
    makeShow();
    Playout playout(arguments());
    ASSERT_TRUE(playout.waitFor("10 %"));
    playout.signal(SIGINT);
    EXPECT_EQ(playout.finish().status, 128 + SIGINT);
    TracedEvents const events = getEvents();
    events.expectWholeFlows();
    EXPECT_EQ(getSteps(events).at("recorder"), "start;sync;stop;");
}

TEST_F(TraceEventsOfPlayout, AreValidIfTheProcessIsKilled)
{
    makeShow();
    Playout playout(arguments());
    ASSERT_TRUE(playout.waitFor("20 %"));
    playout.signal(SIGKILL);
    playout.finish();
    TracedEvents const events(Json::parse(readCutFile(path("events.json"))));
    EXPECT_EQ(getSteps(events).at("recorder"), "start;sync;");
}

TEST_F(TraceEventsOfPlayout, ShowTheStepThatHangs)
{
    makeShow();
    Outcome const outcome = Playout(arguments({"--fault", "fader:stop:hangs"})).finish();
    EXPECT_EQ(outcome.status, 3);
    TracedEvents const events = getEvents();
    std::string unfinished;
    for (TracedEvent const &event : events.find("device"))
        if (event.hasValue("unfinished"))
            unfinished += events.nameOf(event.thread) + " " + event.name + ";";
    EXPECT_NE(unfinished.find("fader stop;"), unfinished.npos) << unfinished;
}

TEST_F(TraceEventsOfPlayout, AFileThatCannotBeWrittenIsReported)
{
    makeShow();
    for (auto const &[file, reason] :
         std::map<std::string, std::string>{{path("none/events"), "No such file or directory"},
                                            {"/dev/full", "No space left on device"}}) {
        Outcome const outcome =
            Playout({"--fast", "--trace-events", file, path("show.xml")}).finish();
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.err, "zvplayout: The trace of events \"" + file +
                                   "\" cannot be written: " + reason + "\n");
    }
}

TEST_F(TraceEventsOfPlayout, AreNeitherAnInputNorAnotherOutput)
{
    makeShow();
    for (auto const &[file, reason] :
         std::map<std::string, std::string>{{"in.wav", "it is the input"},
                                            {"out.wav", "it is an output already"},
                                            {"trace", "it is an output already"}}) {
        Outcome const outcome = Playout({"--fast", "--trace", path("trace"), "--trace-events",
                                         path(file), path("show.xml")})
                                    .finish();
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(withoutFolder(outcome.err),
                  "zvplayout: cannot write %" + file + ": " + reason + "\n");
    }
}

} // namespace
} // namespace ZvTest
