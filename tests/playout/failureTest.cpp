// Tests of failures: each gives one message with the reason and a status, and leaves no file.

#include "playoutTest.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>

namespace ZvTest {
namespace {

class FailureTest : public PlayoutTest
{
protected:
    FailureTest() { make("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 48000, 20000); }

    void expectFailure(std::string const &message, std::string const &input,
                       std::string const &output, std::vector<std::string> const &options = {},
                       Playout::Surroundings surroundings = Playout::Surroundings())
    {
        auto const before = files();
        Outcome const outcome = play(input, output, options, surroundings);
        EXPECT_EQ(outcome.status, 1) << outcome.out;
        EXPECT_EQ(withoutFolder(outcome.err), "zvplayout: " + message + "\n");
        EXPECT_EQ(files(), before);
    }
    void expectFailure(std::string const &message, std::vector<std::string> const &options)
    {
        expectFailure(message, "in.wav", "out.wav", options);
    }
};

TEST_F(FailureTest, AnInputThatCannotBeRead)
{
    std::ofstream(path("text.wav")) << "no sound";
    std::filesystem::create_directory(path("folder"));
    expectFailure("cannot read %none.wav: No such file or directory", "none.wav", "out.wav");
    expectFailure("cannot read %folder: Is a directory", "folder", "out.wav");
    expectFailure("cannot read %text.wav: Format not recognised.", "text.wav", "out.wav");
}

TEST_F(FailureTest, AnInputThatEndsBeforeItsTime)
{
    make("in.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 48000, 200000);
    std::filesystem::resize_file(path("in.flac"), std::filesystem::file_size(path("in.flac")) / 2);
    auto const before = files();
    Outcome const outcome = play("in.flac", "out.wav");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(withoutFolder(outcome.err).find("zvplayout: cannot read %in.flac: "), 0u)
        << outcome.err;
    EXPECT_EQ(files(), before);
}

TEST_F(FailureTest, AnOutputThatCannotBeWritten)
{
    std::filesystem::create_directory(path("folder.wav"));
    expectFailure("cannot write %none/out.wav.part: No such file or directory", "in.wav",
                  "none/out.wav");
    expectFailure("cannot write %folder.wav: Is a directory", "in.wav", "folder.wav");
    expectFailure("cannot write %out.txt: its name ends in none of .wav .aiff .flac .ogg", "in.wav",
                  "out.txt");
    make("many.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 12, 48000, 10);
    expectFailure(
        "cannot write %out.flac: such a file takes no recording with this rate and these channels",
        "many.wav", "out.flac");
}

TEST_F(FailureTest, AnOutputThatIsTheInput)
{
    std::filesystem::create_symlink(path("in.wav"), path("link.wav"));
    std::filesystem::create_hard_link(path("in.wav"), path("out.wav.part"));
    Sound const sound = read("in.wav");
    expectFailure("cannot write %in.wav: it is the input", "in.wav", "in.wav");
    expectFailure("cannot write %link.wav: it is the input", "in.wav", "link.wav");
    expectFailure("cannot write %out.wav.part: it is the input", "in.wav", "out.wav");
    EXPECT_EQ(read("in.wav").samples, sound.samples);
}

TEST_F(FailureTest, APartialFileOfAnotherProcessIsNotTouched)
{
    std::ofstream(path("out.wav.part")) << "another's";
    int const other = ::open(path("out.wav.part").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(::flock(other, LOCK_EX), 0);
    expectFailure("cannot write %out.wav: another process is writing it", "in.wav", "out.wav");
    ::close(other);
    EXPECT_EQ(std::filesystem::file_size(path("out.wav.part")), 9u);
}

TEST_F(FailureTest, AFullDiskLeavesWhatStoodThereBefore)
{
    for (std::string const output : {"out.wav", "out.aiff", "out.flac", "out.ogg"}) {
        make(output,
             (output == "out.wav"    ? SF_FORMAT_WAV
              : output == "out.aiff" ? SF_FORMAT_AIFF
                                     : SF_FORMAT_FLAC) |
                 SF_FORMAT_PCM_16,
             1, 8000, 100);
        auto const before = std::filesystem::file_size(path(output));
        for (rlim_t const limit : {1, 100, 5000}) {
            SCOPED_TRACE(output + " " + std::to_string(limit));
            Playout::Surroundings surroundings;
            surroundings.largestFile = limit;
            expectFailure("cannot write %" + output + ": File too large", "in.wav", output, {},
                          surroundings);
        }
        EXPECT_EQ(std::filesystem::file_size(path(output)), before);
    }
}

TEST_F(FailureTest, AFailureMayComeAtAnyBlock)
{
    // Small blocks fill all queues, so that devices are pushing, waiting or idle at the failure.
    for (rlim_t limit = 44; limit < 80000; limit = limit * 3 / 2) {
        SCOPED_TRACE(limit);
        Playout::Surroundings surroundings;
        surroundings.largestFile = limit;
        expectFailure("cannot write %out.wav: File too large", "in.wav", "out.wav",
                      {"--block", "7"}, surroundings);
    }
}

TEST_F(FailureTest, AnInvalidSequence)
{
    auto const fails = [this](std::string const &sequence, std::string const &reason) {
        expectFailure("sequence \"" + sequence + "\": " + reason, {"--sequence", sequence});
    };
    fails("", "Configuration string Syntax error.");
    fails("recorder ( fader ( player ) )", "Configuration string Syntax error.");
    fails("( recorder ( fader ( player ) )", "Configuration string Syntax error.");
    fails("( recorder fader )", "Configuration string Syntax error.");
    fails("( recorder ( mixer ( player ) ) )", "Device name not found in the registry.");
    fails("( recorder ( player player ) )", "player stands in it twice");
    fails("( recorder ( player ) fader )", "fader stands behind the root's group");
    fails("( recorder ( fader ) )", "it has no player");
    fails("( player )", "it has no recorder");
}

TEST_F(FailureTest, AnInvalidStream)
{
    auto const fails = [this](std::string const &stream, std::string const &reason) {
        expectFailure("stream \"" + stream + "\": " + reason, {"--stream", stream});
    };
    fails("", "[ unexpected end of tokens ]");
    fails("player:out push", "player : out push [ unexpected end of tokens ]");
    fails("player out", "player [ expected first colon ]");
    fails("player:out throw fader:in", "player : out [ expected pull/push verb ]");
    fails("player:tape push fader:in", "Named device not found.");
    fails("mixer:out push fader:in", "Device name not found in the registry.");
    fails(":out push fader:in", "Not a registered object.");
    fails("player:out pull fader:in", "Managed device protocol not implemented.");
    fails("player:out push fader:out", "Managed device protocol not implemented.");
    std::string const twice = "player:out push fader:in";
    expectFailure("stream \"" + twice + "\": one of its two ends is connected already",
                  {"--stream", twice, "--stream", twice});
}

TEST_F(FailureTest, AStreamThatIsNotConnected)
{
    // Two devices find that their stream is not connected. The first one reports it.
    Outcome const outcome = play("in.wav", "out.wav", {"--stream", "player:out push fader:in"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, testing::AnyOf("zvplayout: fader:out is not connected\n",
                                            "zvplayout: recorder:in is not connected\n"));
    EXPECT_EQ(files(), (std::set<std::string>{"in.wav"}));
    expectFailure("fader:in is not connected", {"--stream", "player:out push recorder:in"});
    expectFailure("fader:in is not connected", {"--stream", "fader:out push recorder:in",
                                                "--stream", "player:out push fader:in"});
    // A device that no stream connects to the others.
    expectFailure("fader:in is not connected", {"--sequence", "( recorder ( player fader ) )",
                                                "--stream", "player:out push recorder:in"});
}

TEST_F(FailureTest, ADeviceThatIsConnectedButNotInTheSequence)
{
    expectFailure("fader was pushed into, but not started: it is not in the sequence",
                  {"--sequence", "( recorder ( player ) )"});
    expectFailure("--gain: the sequence has no fader",
                  {"--sequence", "( recorder ( player ) )", "--stream",
                   "player:out push recorder:in", "--gain", "2"});
}

TEST_F(FailureTest, AnInvalidProperty)
{
    auto const fails = [this](std::string const &property, std::string const &reason) {
        expectFailure("property \"" + property + "\": " + reason, {"--property", property});
    };
    fails("fader:levels:gain", "it has no =value");
    fails("fader=1", "fader [ unexpected end of tokens ]");
    fails("fader levels=1", "fader [ expected colon after device name ]");
    fails("mixer:levels:gain=1", "Named device not found.");
    fails("fader:knobs:gain=1", "Not a registered object.");
    fails("fader:levels:treble=1", "Not a registered object.");
    fails("fader:levels:gain=loud", "\"loud\" is no value for it");
    fails("fader:levels:gain=inf", "\"inf\" is no value for it");
    fails("fader:levels:gain=", "\"\" is no value for it");
    fails("player:transport:position=1", "\"set\" is not available for property position\".");
}

TEST_F(FailureTest, ATraceThatCannotBeWritten)
{
    expectFailure("cannot write %none/trace: No such file or directory",
                  {"--trace", path("none/trace")});
}

TEST_F(FailureTest, AnInvalidCommandLine)
{
    std::string const input = path("in.wav");
    std::string const output = path("out.wav");
    struct
    {
        std::vector<std::string> arguments;
        char const *message;
    } const lines[] = {{{}, "an INPUT and an OUTPUT are needed"},
                       {{input}, "an INPUT and an OUTPUT are needed"},
                       {{input, output, output}, "an INPUT and an OUTPUT are needed"},
                       {{input, output, "--gain"}, "--gain takes a value"},
                       {{input, output, "--gain", "loud"}, "--gain takes a number, not \"loud\""},
                       {{input, output, "--gain=nan"}, "--gain takes a number, not \"nan\""},
                       {{input, output, "--block", "0"},
                        "--block takes a whole number from 1 to 1048576, not \"0\""},
                       {{input, output, "--block", "1.5"},
                        "--block takes a whole number from 1 to 1048576, not \"1.5\""},
                       {{input, output, "--loop"}, "unknown option --loop"},
                       {{path("a.xml"), output, output}, "an INPUT and an OUTPUT are needed"},
                       {{path("a.xml"), "--block", "7"},
                        "--block: the blocks of a show are the frames of its clock"},
                       {{path("a.xml"), "--dump-show", "--gain", "1"},
                        "--dump-show: a show has properties of its own"},
                       {{path("a.xml"), "--dump-show", "--property", "a:b=1"},
                        "--dump-show: a show has properties of its own"}};
    for (auto const &line : lines) {
        Outcome const outcome = Playout(line.arguments).finish();
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err, std::string("zvplayout: ") + line.message +
                                   "\nzvplayout --help lists what it takes\n");
    }
    EXPECT_EQ(files(), (std::set<std::string>{"in.wav"}));
}

/// Long recording. It is a sparse file, and small blocks make it slow.
class SignalTest : public PlayoutTest
{
protected:
    SignalTest()
    {
        constexpr std::uint32_t BYTES = 1u << 30;
        make("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 48000, 0);
        std::fstream file(path("in.wav"), std::ios::in | std::ios::out | std::ios::binary);
        auto const put = [&](std::streamoff offset, std::uint32_t number) {
            char const bytes[] = {static_cast<char>(number), static_cast<char>(number >> 8),
                                  static_cast<char>(number >> 16), static_cast<char>(number >> 24)};
            file.seekp(offset);
            file.write(bytes, sizeof bytes);
        };
        put(4, BYTES + 36);
        put(40, BYTES);
        file.close();
        std::filesystem::resize_file(path("in.wav"), BYTES + 44);
    }

    void expectStop(int number)
    {
        Playout playout({path("in.wav"), path("out.wav"), "--block", "16"});
        ASSERT_TRUE(playout.waitFor("-> lock"));
        playout.signal(number);
        Outcome const outcome = playout.finish();
        EXPECT_EQ(outcome.status, 128 + number);
        EXPECT_EQ(outcome.err, "zvplayout: interrupted: " + path("out.wav") + " was not written\n");
        for (char const * const device : {"recorder", "fader", "player"})
            EXPECT_TRUE(outcome.out.find(device) != std::string::npos);
        EXPECT_EQ(files(), (std::set<std::string>{"in.wav"}));
    }
};

TEST_F(SignalTest, AnInterruptStopsItInOrder)
{
    expectStop(SIGINT);
}

TEST_F(SignalTest, TheOtherTerminatingSignalsAlsoDo)
{
    expectStop(SIGTERM);
    expectStop(SIGHUP);
}

TEST_F(SignalTest, ASignalBeforeTheStartIsNoticedToo)
{
    Playout playout({path("in.wav"), path("out.wav"), "--block", "16"});
    ASSERT_TRUE(playout.waitFor("( recorder"));
    playout.signal(SIGINT);
    EXPECT_EQ(playout.finish().status, 130);
    EXPECT_EQ(files(), (std::set<std::string>{"in.wav"}));
}

} // namespace
} // namespace ZvTest
