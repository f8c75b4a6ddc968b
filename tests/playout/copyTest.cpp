// Tests that the output has the samples of the input.

#include "playoutTest.h"

#include <cmath>
#include <limits>

namespace ZvTest {
namespace {

constexpr int BLOCK = 64;

std::string getExtension(int format)
{
    switch (format & SF_FORMAT_TYPEMASK) {
    case SF_FORMAT_WAV:
        return ".wav";
    case SF_FORMAT_AIFF:
        return ".aiff";
    case SF_FORMAT_FLAC:
        return ".flac";
    default:
        return ".ogg";
    }
}

void expectSame(Sound const &one, Sound const &other)
{
    EXPECT_EQ(one.channels, other.channels);
    EXPECT_EQ(one.rate, other.rate);
    EXPECT_TRUE(one.samples == other.samples);
}

class CopyTest : public PlayoutTest, public testing::WithParamInterface<int>
{};

TEST_P(CopyTest, APcmFileIsCopiedSampleBySample)
{
    std::string const input = "in" + getExtension(GetParam());
    std::string const output = "out" + getExtension(GetParam());
    struct
    {
        int channels;
        int rate;
        sf_count_t frames;
    } const recordings[] = {
        {1, 8000, 1},          {2, 44100, BLOCK - 1},       {1, 48000, BLOCK},
        {3, 48000, BLOCK + 1}, {6, 96000, 20 * BLOCK + 17}, {8, 22050, 3 * BLOCK}};
    for (auto const &recording : recordings) {
        SCOPED_TRACE(recording.frames);
        Sound const sound =
            make(input, GetParam(), recording.channels, recording.rate, recording.frames);
        Outcome const outcome = play(input, output, {"--block", std::to_string(BLOCK)});
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.err, "");
        Sound const copy = read(output);
        EXPECT_EQ(copy.format, GetParam());
        expectSame(sound, copy);
    }
    EXPECT_EQ(files(), (std::set<std::string>{input, output}));
}

INSTANTIATE_TEST_SUITE_P(
    Formats, CopyTest,
    testing::Values(SF_FORMAT_WAV | SF_FORMAT_PCM_U8, SF_FORMAT_WAV | SF_FORMAT_PCM_16,
                    SF_FORMAT_WAV | SF_FORMAT_PCM_24, SF_FORMAT_WAV | SF_FORMAT_PCM_32,
                    SF_FORMAT_AIFF | SF_FORMAT_PCM_S8, SF_FORMAT_AIFF | SF_FORMAT_PCM_16,
                    SF_FORMAT_AIFF | SF_FORMAT_PCM_24, SF_FORMAT_AIFF | SF_FORMAT_PCM_32,
                    SF_FORMAT_FLAC | SF_FORMAT_PCM_S8, SF_FORMAT_FLAC | SF_FORMAT_PCM_16,
                    SF_FORMAT_FLAC | SF_FORMAT_PCM_24));

TEST_F(PlayoutTest, ARecordingWithoutFramesIsWrittenWithoutFrames)
{
    for (int const format : {SF_FORMAT_WAV | SF_FORMAT_PCM_16, SF_FORMAT_AIFF | SF_FORMAT_PCM_24}) {
        std::string const extension = getExtension(format);
        make("in" + extension, format, 2, 48000, 0);
        EXPECT_EQ(play("in" + extension, "out" + extension).status, 0);
        expectSame(read("in" + extension), read("out" + extension));
    }
}

TEST_F(PlayoutTest, TheNearestEncodingIsTakenIfTheContainerLacksTheSame)
{
    struct
    {
        int from;
        char const *output;
        int to;
    } const ways[] = {
        {SF_FORMAT_WAV | SF_FORMAT_PCM_U8, "out.aif", SF_FORMAT_AIFF | SF_FORMAT_PCM_S8},
        {SF_FORMAT_WAV | SF_FORMAT_PCM_U8, "out.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_S8},
        {SF_FORMAT_AIFF | SF_FORMAT_PCM_S8, "out.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_U8},
        {SF_FORMAT_WAV | SF_FORMAT_PCM_16, "out.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
        {SF_FORMAT_FLAC | SF_FORMAT_PCM_24, "OUT.WAV", SF_FORMAT_WAV | SF_FORMAT_PCM_24}};
    for (auto const &way : ways) {
        std::string const input = "in" + getExtension(way.from);
        Sound const sound = make(input, way.from, 2, 44100, 1000);
        EXPECT_EQ(play(input, way.output).status, 0);
        EXPECT_EQ(read(way.output).format, way.to) << way.output;
        expectSame(sound, read(way.output));
    }
}

TEST_F(PlayoutTest, SamplesTooFineForTheContainerAreRounded)
{
    Sound const sound = make("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_32, 1, 44100, 1000);
    EXPECT_EQ(play("in.wav", "out.flac").status, 0);
    Sound const copy = read("out.flac");
    EXPECT_EQ(copy.format, SF_FORMAT_FLAC | SF_FORMAT_PCM_24);
    ASSERT_EQ(copy.samples.size(), sound.samples.size());
    for (std::size_t i = 0; i < sound.samples.size(); ++i)
        EXPECT_LE(std::abs(std::int64_t(copy.samples[i]) - sound.samples[i]), 128);
}

TEST_F(PlayoutTest, FloatingPointStaysAsItIs)
{
    SF_INFO info = {0, 48000, 1, SF_FORMAT_WAV | SF_FORMAT_DOUBLE, 0, 0};
    std::vector<double> const samples{0, 0.1, -1.0 / 3, 1.5, -7};
    SNDFILE *file = sf_open(path("in.wav").c_str(), SFM_WRITE, &info);
    sf_write_double(file, samples.data(), 5);
    sf_close(file);
    EXPECT_EQ(play("in.wav", "out.wav").status, 0);
    file = sf_open(path("out.wav").c_str(), SFM_READ, &info);
    ASSERT_NE(file, nullptr);
    std::vector<double> copy(6);
    EXPECT_EQ(sf_read_double(file, copy.data(), 6), 5);
    sf_close(file);
    copy.resize(5);
    EXPECT_EQ(copy, samples);
}

TEST_F(PlayoutTest, AVorbisFileHasAllFramesAndCanBePlayedAgain)
{
    make("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 44100, 5000);
    EXPECT_EQ(play("in.wav", "out.ogg").status, 0);
    Sound const ogg = read("out.ogg");
    EXPECT_EQ(ogg.format, SF_FORMAT_OGG | SF_FORMAT_VORBIS);
    EXPECT_EQ(ogg.samples.size(), 10000u);
    EXPECT_EQ(play("out.ogg", "again.wav").status, 0);
    EXPECT_EQ(read("again.wav").samples.size(), 10000u);
}

TEST_F(PlayoutTest, TheGainIsAFactorOnEverySampleAndRoundsToTheFilesBits)
{
    Sound sound{SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 48000, {}};
    for (int const sample : {0, 1, 2, 3, -1, -2, -3, 1000, -32768, 32767})
        sound.samples.push_back(sample * 65536);
    write("in.wav", sound);
    for (auto const &options : {std::vector<std::string>{"--gain", "0.5"},
                                std::vector<std::string>{"--property", "fader:levels:gain=0.5"}}) {
        Outcome const outcome = play("in.wav", "out.wav", options);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_NE(outcome.out.find("peak -6.0 dB"), std::string::npos) << outcome.out;
        std::vector<int> expected;
        for (int const sample : sound.samples)
            expected.push_back(static_cast<int>(std::nearbyint(sample / 65536 * 0.5)) * 65536);
        EXPECT_EQ(read("out.wav").samples, expected);
    }
}

TEST_F(PlayoutTest, TooLoudSamplesAreClipped)
{
    Sound sound{SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 48000, {}};
    for (int const sample : {100, 16384, 32767, -16384, -32768})
        sound.samples.push_back(sample * 65536);
    write("in.wav", sound);
    EXPECT_EQ(play("in.wav", "out.wav", {"--gain=4"}).status, 0);
    constexpr int HIGH = 32767 * 65536;
    constexpr int LOW = std::numeric_limits<int>::min();
    EXPECT_EQ(read("out.wav").samples, (std::vector<int>{400 * 65536, HIGH, HIGH, LOW, LOW}));
}

TEST_F(PlayoutTest, AnExistingOutputIsReplaced)
{
    Sound const sound = make("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, 48000, 500);
    make("out.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 2, 8000, 5000);
    EXPECT_EQ(play("in.wav", "out.wav").status, 0);
    expectSame(sound, read("out.wav"));
    EXPECT_EQ(files(), (std::set<std::string>{"in.wav", "out.wav"}));
}

} // namespace
} // namespace ZvTest
