// Tests of the files that the program writes and of those that it must not write.

#include "playoutTest.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace ZvTest {
namespace {

namespace fs = std::filesystem;

class FileTest : public PlayoutTest
{
protected:
    FileTest() : _sound(make("in.wav", PCM, 1, 8000, 4000)) {}

    void expectRefused(std::string const &message, std::vector<std::string> arguments)
    {
        SCOPED_TRACE(message);
        auto const before = files();
        Outcome const outcome = Playout(arguments).finish();
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(withoutFolder(outcome.err), "zvplayout: " + message + "\n");
        EXPECT_EQ(files(), before);
        EXPECT_EQ(read("in.wav").samples, _sound.samples);
    }
    std::string getText(std::string const &name) const
    {
        std::ostringstream text;
        text << std::ifstream(path(name), std::ios::binary).rdbuf();
        return text.str();
    }

    Sound const _sound;
};

TEST_F(FileTest, APartThatWasLeftBehindDoesNotBarTheNextRun)
{
    writeText("out.wav.part", "left behind");
    writeText("out.svg.part", "left behind");
    writeText("show.xml", "<show output='out.wav'><clip file='in.wav'/></show>");
    Outcome const outcome = Playout({"--fast", path("show.xml")}).finish();
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(read("out.wav").samples, _sound.samples);
    EXPECT_EQ(files(), (std::set<std::string>{"in.wav", "out.svg", "out.wav", "show.xml"}));
}

TEST_F(FileTest, APartIsNeverWrittenThrough)
{
    writeText("precious", "precious");
    fs::create_hard_link(path("precious"), path("out.wav.part"));
    EXPECT_EQ(play("in.wav", "out.wav").status, 0);
    EXPECT_EQ(getText("precious"), "precious");
    fs::create_symlink(path("precious"), path("out.wav.part"));
    expectRefused("cannot write %out.wav.part: File exists", {path("in.wav"), path("out.wav")});
    EXPECT_EQ(getText("precious"), "precious");
}

/// Fixture with a recording that runs until the test ends it.
class TwoRunsTest : public FileTest
{
protected:
    TwoRunsTest()
    {
        EXPECT_EQ(::mkfifo(path("pipe").c_str(), 0600), 0);
        _first.emplace(std::vector<std::string>{path("pipe"), path("out.wav")});
        _pipe = ::open(path("pipe").c_str(), O_WRONLY | O_CLOEXEC);
        std::string const text = getText("in.wav");
        EXPECT_EQ(::write(_pipe, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        EXPECT_TRUE(_first->waitFor("player     sync -> lock"));
    }
    Outcome finishFirst()
    {
        ::close(std::exchange(_pipe, -1));
        return _first->finish();
    }

    std::optional<Playout> _first;
    int _pipe = -1;
};

TEST_F(TwoRunsTest, TheSecondIsRefused)
{
    expectRefused("cannot write %out.wav: another process is writing it",
                  {path("in.wav"), path("out.wav")});
    EXPECT_EQ(finishFirst().status, 0);
    EXPECT_EQ(read("out.wav").samples, _sound.samples);
}

TEST_F(TwoRunsTest, ARunReportsThatItsPartialFileWasTakenAway)
{
    fs::remove(path("out.wav.part"));
    writeText("out.wav.part", "another's");
    Outcome const outcome = finishFirst();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(withoutFolder(outcome.err),
              "zvplayout: cannot write %out.wav: its part was removed or replaced meanwhile\n");
    EXPECT_EQ(getText("out.wav.part"), "another's");
    EXPECT_FALSE(fs::exists(path("out.wav")));
}

TEST_F(TwoRunsTest, AnInterruptedRunLeavesThePartOfAnotherAlone)
{
    fs::remove(path("out.wav.part"));
    writeText("out.wav.part", "another's");
    _first->signal(SIGINT);
    EXPECT_EQ(_first->finish().status, 130);
    EXPECT_EQ(getText("out.wav.part"), "another's");
    ::close(_pipe);
}

TEST_F(FileTest, AnOutputThatIsALinkIsWrittenToItsTarget)
{
    fs::create_directory(path("folder"));
    fs::create_symlink("folder/far.wav", path("near.wav"));
    fs::create_symlink(path("near.wav"), path("out.wav"));
    for (int run = 0; run < 2; ++run) { // the first run makes the file
        EXPECT_EQ(play("in.wav", "out.wav").status, 0);
        EXPECT_TRUE(fs::is_symlink(path("out.wav")));
        EXPECT_TRUE(fs::is_symlink(path("near.wav")));
        EXPECT_FALSE(fs::is_symlink(path("folder/far.wav")));
        EXPECT_EQ(read("folder/far.wav").samples, _sound.samples);
    }
    fs::create_symlink("circle.wav", path("circle.wav"));
    expectRefused("cannot write %circle.wav: Too many levels of symbolic links",
                  {path("in.wav"), path("circle.wav")});
}

TEST_F(FileTest, AnOutputThatIsNoRegularFileIsRefused)
{
    ASSERT_EQ(::mkfifo(path("out.wav").c_str(), 0600), 0);
    expectRefused("cannot write %out.wav: it is not a regular file",
                  {path("in.wav"), path("out.wav")});
    EXPECT_TRUE(fs::is_fifo(path("out.wav")));
    fs::create_symlink("/dev/full", path("full.wav"));
    expectRefused("cannot write %full.wav: it is not a regular file",
                  {path("in.wav"), path("full.wav")});
    EXPECT_TRUE(fs::is_symlink(path("full.wav")));
}

TEST_F(FileTest, ATraceDoesNotWriteOverTheInput)
{
    fs::create_symlink("in.wav", path("link"));
    for (std::string const trace : {"in.wav", "link"})
        expectRefused("cannot write %" + trace + ": it is the input",
                      {"--trace", path(trace), path("in.wav"), path("out.wav")});
    writeText("show.xml", "<show output='out.wav'><clip file='in.wav'/></show>");
    for (std::string const trace : {"in.wav", "show.xml"})
        for (std::string const more : {"--fast", "--dump-show"})
            expectRefused("cannot write %" + trace + ": it is the input",
                          {"--trace", path(trace), more, path("show.xml")});
}

TEST_F(FileTest, ATraceIsNoOutputAtTheSameTime)
{
    writeText("show.xml", "<show output='out.wav'><clip file='in.wav'/></show>");
    for (std::string const trace : {"out.wav", "out.wav.part", "out.svg", "out.svg.part"})
        expectRefused("cannot write %" + trace + ": it is an output already",
                      {"--trace", path(trace), "--fast", path("show.xml")});
    fs::create_symlink("out.wav", path("trace"));
    expectRefused("cannot write %trace: it is an output already",
                  {"--trace", path("trace"), path("in.wav"), path("out.wav")});
}

TEST_F(FileTest, AShowIsNotWrittenOver)
{
    writeText("show.xml", "<show><clip file='in.wav'/></show>");
    fs::create_symlink("show.xml", path("out.wav"));
    expectRefused("cannot write %out.wav: it is the input",
                  {"--fast", path("show.xml"), path("out.wav")});
    EXPECT_EQ(getText("show.xml"), "<show><clip file='in.wav'/></show>");
}

TEST_F(FileTest, AFileWithoutANameIsRefused)
{
    for (auto const &arguments :
         {std::vector<std::string>{"", path("out.wav")},
          std::vector<std::string>{path("in.wav"), ""}, std::vector<std::string>{"a.xml", ""}}) {
        Outcome const outcome = Playout(arguments).finish();
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.err, "zvplayout: the name of a file is empty\n"
                               "zvplayout --help lists what it takes\n");
    }
}

TEST_F(FileTest, ClosedStandardStreamsDoNotReachTheOutput)
{
    for (auto const &closed : std::vector<std::set<int>>{{0}, {1}, {0, 1}, {1, 2}, {0, 1, 2}}) {
        Playout::Surroundings surroundings;
        surroundings.closed = closed;
        EXPECT_EQ(play("in.wav", "out.wav", {}, surroundings).status, 0);
        EXPECT_EQ(getText("out.wav"), getText("in.wav"));
        EXPECT_EQ(files(), (std::set<std::string>{"in.wav", "out.wav"}));
    }
    // A failure cannot be reported, and must not be written into a file.
    Playout::Surroundings surroundings;
    surroundings.closed = {0, 1, 2};
    EXPECT_EQ(play("none.wav", "out.wav", {}, surroundings).status, 1);
}

TEST_F(FileTest, ATextThatCannotBeWrittenIsAFailureIfOnlyItWasRequested)
{
    Playout::Surroundings surroundings;
    surroundings.output = "/dev/full";
    Outcome outcome = Playout({"--help"}, surroundings).finish();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "zvplayout: cannot write the help: No space left on device\n");
    outcome = Playout({"--dump-show", path("in.wav"), path("out.wav")}, surroundings).finish();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "zvplayout: cannot write the show: No space left on device\n");
    EXPECT_EQ(play("in.wav", "out.wav", {}, surroundings).status, 0);
    surroundings.output = "";
    surroundings.closed = {1};
    EXPECT_EQ(Playout({"--help"}, surroundings).finish().status, 1);
}

TEST_F(FileTest, AnEmptyRecordingCanBeReadAgain)
{
    make("empty.wav", PCM, 2, 48000, 0);
    for (std::string const output : {"out.flac", "out.ogg", "out.aiff", "out.wav"}) {
        EXPECT_EQ(play("empty.wav", output).status, 0) << output;
        EXPECT_GT(fs::file_size(path(output)), 0u) << output;
        Outcome const outcome = play(output, "again.wav");
        EXPECT_EQ(outcome.status, 0) << output << outcome.err;
        Sound const again = read("again.wav");
        EXPECT_EQ(again.samples.size(), 0u);
        EXPECT_EQ(again.channels, 2);
        EXPECT_EQ(again.rate, 48000);
    }
}

TEST_F(FileTest, AnAiffFileHasAsManyFramesAsItsInput)
{
    for (int const channels : {1, 2, 3})
        for (int const frames : {0, 1, 2, 5, 1025})
            for (int const format :
                 {SF_FORMAT_WAV | SF_FORMAT_PCM_U8, SF_FORMAT_WAV | SF_FORMAT_PCM_24}) {
                SCOPED_TRACE(std::to_string(channels) + " " + std::to_string(frames));
                Sound const sound = make("odd.wav", format, channels, 8000, frames);
                EXPECT_EQ(play("odd.wav", "odd.aiff").status, 0);
                EXPECT_EQ(read("odd.aiff").samples, sound.samples);
                // The header has the same number of frames, and the last chunk ends with the file.
                std::string const text = getText("odd.aiff");
                ASSERT_EQ(text.substr(0, 4) + text.substr(8, 8), "FORMAIFFCOMM");
                auto const getNumber = [&](std::size_t place) {
                    int number = 0;
                    for (std::size_t i = 0; i < 4; ++i)
                        number = number << 8 | static_cast<unsigned char>(text[place + i]);
                    return number;
                };
                EXPECT_EQ(getNumber(22), frames);
                auto const data = text.find("SSND");
                ASSERT_NE(data, text.npos);
                int const bytes =
                    frames * channels * (format == (SF_FORMAT_WAV | SF_FORMAT_PCM_U8) ? 1 : 3);
                EXPECT_EQ(getNumber(data + 4), bytes + 8);
                EXPECT_EQ(text.size(), data + 16 + static_cast<std::size_t>(bytes + bytes % 2));
                EXPECT_EQ(getNumber(4), static_cast<int>(text.size()) - 8);
            }
}

TEST_F(FileTest, AShowMayHaveMoreClipsThanOpenFiles)
{
    std::string text = "<show output='out.wav'>";
    for (int i = 0; i < 100; ++i)
        text += "<clip file='in.wav'/>";
    writeText("show.xml",
              text + "<event at='00:00:45:00' action='jump' value='00:00:00:10'/></show>");
    Playout::Surroundings surroundings;
    surroundings.mostFiles = 40;
    Outcome const outcome = Playout({"--fast", path("show.xml")}, surroundings).finish();
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    std::vector<int> clips;
    for (int i = 0; i < 100; ++i)
        clips.insert(clips.end(), _sound.samples.begin(), _sound.samples.end());
    std::vector<int> expected(clips.begin(), clips.begin() + 45 * 8000);
    expected.insert(expected.end(), clips.begin() + 10 * 320, clips.end());
    EXPECT_TRUE(read("out.wav").samples == expected);
}

TEST_F(FileTest, AClipThatChangesWhileItRestsIsRefused)
{
    // The second clip is closed while the player waits for the first one.
    ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0600), 0);
    make("changed.wav", PCM, 1, 8000, 4000);
    std::string text = "<show output='out.wav'><memory page='32000' budget='70000' ahead='0'/>"
                       "<clip file='pipe'/><clip file='changed.wav'/>";
    for (int i = 0; i < 10; ++i)
        text += "<clip file='in.wav'/>";
    writeText("show.xml", text + "</show>");
    Playout playout({"--fast", path("show.xml")});
    int const pipe = ::open(path("pipe").c_str(), O_WRONLY | O_CLOEXEC);
    std::string const sound = getText("in.wav");
    ASSERT_EQ(::write(pipe, sound.data(), 1000), 1000);
    ASSERT_TRUE(playout.waitFor("player     sync -> lock"));
    make("changed.wav", PCM, 1, 8000, 4001);
    ASSERT_EQ(::write(pipe, sound.data() + 1000, sound.size() - 1000),
              static_cast<ssize_t>(sound.size() - 1000));
    ::close(pipe);
    Outcome const outcome = playout.finish();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(withoutFolder(outcome.err),
              "zvplayout: cannot read %changed.wav: the file has been changed meanwhile\n");
}

} // namespace
} // namespace ZvTest
