// Tests of refused system calls: each gives one message and leaves no file.

#include "playoutTest.h"

#include <algorithm>
#include <filesystem>

namespace ZvTest {
namespace {

class RefusedTest : public PlayoutTest
{
protected:
    static constexpr int RATE = 8000;

    RefusedTest()
    {
        make("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, RATE, RATE / 5);
        writeText("show.xml", "<show output='out.wav'><memory budget='20000' page='1000'/>"
                              "<clip file='in.wav'/>"
                              "<event at='00:00:00:02' action='gain' value='2'/></show>");
    }

    /// Refuses the first call in one run, the second one in the next run and so on, until a run
    /// makes fewer calls. Returns their number.
    int refuseEach(std::string const &call, std::string const &more,
                   std::vector<std::string> const &arguments)
    {
        for (int turn = 1;; ++turn) {
            Playout::Surroundings surroundings;
            surroundings.refused = call + " " + std::to_string(turn) + more;
            surroundings.refusals = path("refusals");
            SCOPED_TRACE(surroundings.refused);
            writeText("refusals", "");
            auto const before = files();
            Outcome const outcome = Playout(arguments, surroundings).finish();
            if (std::filesystem::file_size(path("refusals")) == 0) {
                EXPECT_EQ(outcome.status, 0);
                EXPECT_EQ(outcome.err, "");
                removeOutput();
                return turn - 1;
            }
            // If the thread that checks the privilege of real time is refused, it is started once
            // more.
            if (turn == 1 && outcome.status == 0 &&
                outcome.out.find("  real time: granted; ") == 0) {
                removeOutput();
                continue;
            }
            EXPECT_EQ(outcome.status, 1);
            EXPECT_EQ(outcome.err.find("zvplayout: "), 0u) << outcome.err;
            EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
            // If the failure is at closing, the recording is in its place, and the message says so.
            if (outcome.err.ends_with(" is complete)\n"))
                removeOutput();
            EXPECT_EQ(files(), before);
            if (HasFailure())
                return turn;
        }
    }
    void removeOutput()
    {
        std::filesystem::remove(path("out.wav"));
        std::filesystem::remove(path("out.svg"));
    }
};

TEST_F(RefusedTest, AThreadMayBeRefusedAnywhere)
{
    struct
    {
        std::vector<std::string> arguments;
        int fewest; // threads that such a run starts
    } const runs[] = {{{path("in.wav"), path("out.wav")}, 5},
                      {{"--fast", path("show.xml")}, 8},
                      {{path("show.xml")}, 10},
                      {{"--realtime", path("show.xml")}, 10}};
    for (auto const &run : runs)
        for (std::string const more : {"", " on"}) {
            SCOPED_TRACE(run.arguments.front());
            EXPECT_GE(refuseEach("pthread_create", more, run.arguments), run.fewest);
        }
}

TEST_F(RefusedTest, AFileThatCannotBeSyncedDoesNotAppear)
{
    EXPECT_EQ(refuseEach("fsync", "", {path("in.wav"), path("out.wav")}), 1);
    EXPECT_EQ(refuseEach("fsync", "", {"--fast", path("show.xml")}), 2);
}

} // namespace
} // namespace ZvTest
