// Tests that a signal ends the program within a few seconds, even if it waits without end.

#include "playoutTest.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <sstream>

namespace ZvTest {
namespace {

/// Seconds to the end. It takes two at most on an idle machine.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr double PROMPT = 20;
#else
constexpr double PROMPT = 10;
#endif

class StallTest : public PlayoutTest
{
protected:
    StallTest()
    {
        make("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 48000, 100000);
        EXPECT_EQ(::mkfifo(path("pipe").c_str(), 0600), 0);
    }

    /// Writes the beginning of the recording into the pipe after the program has opened it. Leaves
    /// the pipe open.
    void feed(std::size_t bytes)
    {
        _pipe = ::open(path("pipe").c_str(), O_WRONLY | O_CLOEXEC);
        ASSERT_GE(_pipe, 0);
        std::ostringstream text;
        text << std::ifstream(path("in.wav"), std::ios::binary).rdbuf();
        std::string const begin = text.str().substr(0, bytes);
        ASSERT_EQ(::write(_pipe, begin.data(), begin.size()), static_cast<ssize_t>(begin.size()));
    }
    void expectStop(Playout &playout, int number, std::string const &output = "out.wav")
    {
        auto before = files();
        before.erase("out.wav.part");
        before.erase("out.svg.part");
        playout.signal(number);
        EXPECT_TRUE(playout.endsWithin(PROMPT));
        Outcome const outcome = playout.finish();
        EXPECT_EQ(outcome.status, 128 + number);
        EXPECT_EQ(withoutFolder(outcome.err),
                  "zvplayout: interrupted: %" + output + " was not written\n");
        EXPECT_EQ(files(), before);
        if (_pipe >= 0)
            ::close(std::exchange(_pipe, -1));
    }
    /// Waits until a process sleeps in a system call.
    void waitForSleep(Playout const &playout)
    {
        while (!playout.isAsleep())
            ::usleep(5000);
    }

    int _pipe = -1;
};

TEST_F(StallTest, AStalledRecordingCanBeInterrupted)
{
    for (int const number : {SIGINT, SIGTERM, SIGHUP}) {
        Playout playout({path("pipe"), path("out.wav")});
        feed(60000);
        ASSERT_TRUE(playout.waitFor("player     sync -> lock"));
        expectStop(playout, number);
    }
}

TEST_F(StallTest, SoCanAHeadThatIsNotComplete)
{
    Playout playout({path("pipe"), path("out.wav")});
    feed(20);
    waitForSleep(playout);
    expectStop(playout, SIGINT);
}

TEST_F(StallTest, SoCanAPipeWithoutAWriter)
{
    Playout playout({path("pipe"), path("out.wav")});
    waitForSleep(playout);
    expectStop(playout, SIGTERM);
}

TEST_F(StallTest, SoCanAStalledShow)
{
    ASSERT_EQ(::rename(path("pipe").c_str(), path("pipe.xml").c_str()), 0);
    Playout playout({path("pipe.xml"), path("out.wav")});
    int const pipe = ::open(path("pipe.xml").c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(::write(pipe, "<show>\n", 7), 7);
    waitForSleep(playout);
    expectStop(playout, SIGINT);
    ::close(pipe);
}

TEST_F(StallTest, SoCanATraceWithoutAReader)
{
    Playout playout({"--trace", path("pipe"), path("in.wav"), path("out.wav")});
    waitForSleep(playout);
    expectStop(playout, SIGHUP);
}

TEST_F(StallTest, SoCanAnOutputWithoutAReader)
{
    Playout::Surroundings surroundings;
    surroundings.fullOutput = true;
    Playout playout({path("in.wav"), path("out.wav")}, surroundings);
    waitForSleep(playout);
    expectStop(playout, SIGINT);
}

} // namespace
} // namespace ZvTest
