// Tests of clips that are read through memory buffers.

#include "playoutTest.h"

#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace ZvTest {
namespace {

class MemoryTest : public PlayoutTest
{
protected:
    struct Figures
    {
        long loads = 0;
        long reloads = 0;
        long unloads = 0;
        long hits = 0;
        long visits = 0;
        long peak = 0;
        long budget = 0;
    };

    std::string show(std::string const &clip, std::string const &memory,
                     std::string const &more = "") const
    {
        return "<show output='out.wav'>\n<memory " + memory + "/>\n<clip file='" + clip + "'/>\n" +
               more + "</show>\n";
    }
    Outcome playShow(std::string const &text)
    {
        writeText("show.xml", text);
        return Playout({"--fast", path("show.xml")}).finish();
    }
    Figures playWell(std::string const &text)
    {
        SCOPED_TRACE(text);
        Outcome const outcome = playShow(text);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.err, "");
        return getFigures(outcome.out);
    }
    static Figures getFigures(std::string const &out)
    {
        Figures figures;
        auto const head = out.find("memory ");
        EXPECT_NE(head, out.npos) << out;
        std::istringstream line(out.substr(out.find('\n', head)));
        std::string manager, strategy, of, unit;
        line >> manager >> strategy >> figures.loads >> figures.reloads >> figures.unloads >>
            figures.hits >> of >> figures.visits >> figures.peak >> of >> figures.budget >> unit;
        EXPECT_EQ(unit, "bytes") << out;
        return figures;
    }
};

TEST_F(MemoryTest, EverySampleIsPlayedWithAnyMemory)
{
    Sound const sound = make("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 3, 8000, 5000);
    for (std::string const manager : {"heap", "arena"})
        for (std::string const strategy : {"LRU", "random"})
            for (std::string const sizes :
                 {"page='64' budget='100'", "page='1000' budget='1200' ahead='9'",
                  "page='4099' budget='8300' ahead='1'", "page='24000' budget='1000000' ahead='0'",
                  "page='1000000' budget='1000000'"}) {
                Figures const figures = playWell(show(
                    "in.wav", "manager='" + manager + "' strategy='" + strategy + "' " + sizes));
                EXPECT_EQ(read("out.wav").samples, sound.samples);
                EXPECT_LE(figures.peak, figures.budget);
                EXPECT_LE(figures.hits, figures.visits);
            }
    EXPECT_EQ(files(), (std::set<std::string>{"in.wav", "out.svg", "out.wav", "show.xml"}));
}

TEST_F(MemoryTest, PagesThatHaveRoomStay)
{
    make("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 8000, 10000);
    Figures const figures = playWell(show("in.wav", "page='8000' budget='90000'"));
    EXPECT_EQ(figures.loads, 10);
    EXPECT_EQ(figures.reloads, 0);
    EXPECT_EQ(figures.unloads, 0);
    EXPECT_EQ(figures.visits, 10);
    EXPECT_EQ(figures.peak, 80000);
    EXPECT_EQ(figures.budget, 90000);
}

TEST_F(MemoryTest, PlayedStraightNoPageIsLoadedTwiceByLRU)
{
    make("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 8000, 40500);
    for (std::string const ahead : {"0", "1", "3", "1000"}) {
        Figures const figures =
            playWell(show("in.wav", "page='8000' budget='40100' ahead='" + ahead + "'"));
        EXPECT_EQ(figures.loads, 41);
        EXPECT_EQ(figures.reloads, 0);
        EXPECT_GE(figures.unloads, 36);
        EXPECT_EQ(figures.visits, 41);
        EXPECT_LE(figures.peak, 40100);
    }
}

TEST_F(MemoryTest, ClipsShareIt)
{
    Sound const one = make("one.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 8000, 1003);
    make("two.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 8000, 0);
    Sound const three = make("three.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 8000, 2999);
    playWell(show("one.wav", "page='999' budget='3000'",
                  "<clip file='two.wav'/><clip file='three.flac'/>"));
    std::vector<int> expected = one.samples;
    expected.insert(expected.end(), three.samples.begin(), three.samples.end());
    EXPECT_EQ(read("out.wav").samples, expected);
}

TEST_F(MemoryTest, AClipWithoutFramesTakesNone)
{
    make("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 8000, 0);
    Figures const figures = playWell(show("in.wav", "budget='1'"));
    EXPECT_EQ(figures.loads + figures.unloads + figures.visits + figures.peak, 0);
    EXPECT_EQ(read("out.wav").samples.size(), 0u);
}

TEST_F(MemoryTest, APageThatIsLargerThanTheBudgetIsRefusedWithItsLine)
{
    make("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 8000, 10000);
    for (std::string const manager : {"heap", "arena"}) {
        Outcome const outcome =
            playShow(show("in.wav", "page='8000' budget='7000' manager='" + manager + "'"));
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(
            withoutFolder(outcome.err).find("zvplayout: %show.xml:2: memory: Not enough memory: "),
            0u)
            << outcome.err;
        EXPECT_EQ(files(), (std::set<std::string>{"in.wav", "show.xml"}));
    }
}

TEST_F(MemoryTest, APageThatIsUsedAgainIsReloaded)
{
    make("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 8000, 10000);
    Figures const figures =
        playWell(show("in.wav", "page='8000' budget='24100' ahead='0'",
                      "<event at='00:00:01:00' action='jump' value='00:00:00:00'/>"));
    EXPECT_EQ(figures.loads, 10);
    EXPECT_EQ(figures.reloads, 8); // of the pages before the jump
    EXPECT_EQ(figures.unloads, 15);
    EXPECT_EQ(figures.visits, 18);
}

TEST_F(MemoryTest, APageThatCannotBeReadFailsWhenItIsItsTurn)
{
    make("in.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 48000, 200000);
    std::filesystem::resize_file(path("in.flac"), std::filesystem::file_size(path("in.flac")) / 2);
    for (std::string const ahead : {"0", "4"}) {
        Outcome const outcome =
            playShow(show("in.flac", "page='100000' budget='1000000' ahead='" + ahead + "'"));
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(withoutFolder(outcome.err).find("zvplayout: cannot read %in.flac: "), 0u)
            << outcome.err;
        EXPECT_NE(outcome.out.find("player"), std::string::npos);
        EXPECT_EQ(files(), (std::set<std::string>{"in.flac", "show.xml"}));
    }
}

/// Two hours of sound, or ten minutes with a sanitizer.
class LongTest : public MemoryTest
{
protected:
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
    static constexpr int MINUTES = 10;
#else
    static constexpr int MINUTES = 120;
#endif
    static constexpr int RATE = 8000;
    static constexpr int SIZE = MINUTES * 60 * RATE; // bytes, as many as frames
    static constexpr int HEAD = 44;
    using Second = std::array<char, RATE>;

    static Second getSecond(int index)
    {
        Second second;
        for (int i = 0; i < RATE; ++i)
            second[static_cast<std::size_t>(i)] = static_cast<char>(i * 31 + index * 17 + i / 251);
        return second;
    }

    LongTest()
    {
        make("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 1, RATE, 0);
        std::fstream file(path("in.wav"), std::ios::in | std::ios::out | std::ios::binary);
        auto const put = [&](std::streamoff offset, int number) {
            file.seekp(offset);
            for (int shift = 0; shift < 32; shift += 8)
                file.put(static_cast<char>(number >> shift));
        };
        put(4, SIZE + HEAD - 8);
        put(40, SIZE);
        for (int i = 0; i < SIZE / RATE; ++i)
            file.write(getSecond(i).data(), RATE);
    }
};

TEST_F(LongTest, IsPlayedWithinAFewMegabytes)
{
    Outcome const outcome = playShow(show("in.wav", "budget='4000000' page='100000'"));
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    Figures const figures = getFigures(outcome.out);
    EXPECT_EQ(figures.loads, (SIZE + 12499) / 12500);
    EXPECT_EQ(figures.reloads, 0);
    EXPECT_GT(figures.peak, 3000000);
    EXPECT_LE(figures.peak, 4000000);
#if !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
    EXPECT_LT(outcome.largestMemory, 40l << 20); // its samples would take 460 million bytes
#endif
    std::ifstream file(path("out.wav"), std::ios::binary);
    file.seekg(HEAD);
    Second second;
    int nbRight = 0;
    while (file.read(second.data(), RATE) && second == getSecond(nbRight))
        ++nbRight;
    EXPECT_EQ(nbRight, SIZE / RATE);
}

#if !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
TEST_F(LongTest, TakesHardlyMoreMemoryThanAMinute)
{
    // Memory that each page or each block leaks would show.
    std::string const memory = "budget='1000000' page='16384'";
    long const large = playShow(show("in.wav", memory)).largestMemory;
    make("short.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 1, RATE, 60 * RATE);
    EXPECT_LT(large - playShow(show("short.wav", memory)).largestMemory, 6l << 20);
}
#endif

} // namespace
} // namespace ZvTest
