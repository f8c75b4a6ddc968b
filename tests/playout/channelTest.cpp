// Tests that each channel keeps its loudspeaker.

#include "playoutTest.h"

#include <cmath>
#include <map>
#include <numbers>

namespace ZvTest {
namespace {

constexpr int FRAMES = 4000;

using Names = std::vector<std::string>;

/// Returns the tone of a loudspeaker in these tests, in Hz. It is low for the channel of low
/// frequencies, in which Vorbis keeps only those.
int getTone(std::string const &name)
{
    static std::map<std::string, int> const tones{
        {"mono", 300}, {"L", 500},   {"R", 700},   {"C", 900},   {"LFE", 60},
        {"RL", 1100},  {"RR", 1300}, {"RC", 1500}, {"SL", 1700}, {"SR", 1900}};
    return tones.at(name);
}

/// Returns the order that the WAV and FLAC formats define.
Names getUsual(int count)
{
    return std::vector<Names>{{},
                              {"mono"},
                              {"L", "R"},
                              {"L", "R", "C"},
                              {"L", "R", "RL", "RR"},
                              {"L", "R", "C", "RL", "RR"},
                              {"L", "R", "C", "LFE", "RL", "RR"},
                              {"L", "R", "C", "LFE", "RC", "SL", "SR"},
                              {"L", "R", "C", "LFE", "RL", "RR", "SL", "SR"}}
        .at(static_cast<std::size_t>(count));
}

/// Returns the order that the Vorbis format defines.
Names getVorbis(int count)
{
    return std::vector<Names>{{},
                              {"mono"},
                              {"L", "R"},
                              {"L", "C", "R"},
                              {"L", "R", "RL", "RR"},
                              {"L", "C", "R", "RL", "RR"},
                              {"L", "C", "R", "RL", "RR", "LFE"},
                              {"L", "C", "R", "SL", "SR", "RC", "LFE"},
                              {"L", "C", "R", "SL", "SR", "RL", "RR", "LFE"}}
        .at(static_cast<std::size_t>(count));
}

struct Kind
{
    char const *extension;
    int format;
    Names (*getNames)(int count);
};

constexpr Kind KINDS[] = {{".wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, &getUsual},
                          {".aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16, &getUsual},
                          {".flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, &getUsual},
                          {".ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, &getVorbis}};

class ChannelTest : public PlayoutTest
{
protected:
    using Map = std::vector<int>; // values of SF_CHANNEL_MAP

    /// Makes a file in which each channel has the tone of its loudspeaker.
    void makeTones(std::string const &name, int format, Names const &names, Map map = {}) const
    {
        SF_INFO info = {};
        info.format = format;
        info.channels = static_cast<int>(names.size());
        info.samplerate = RATE;
        SNDFILE * const file = sf_open(path(name).c_str(), SFM_WRITE, &info);
        ASSERT_NE(file, nullptr) << sf_strerror(nullptr);
        if (!map.empty()) {
            ASSERT_EQ(sf_command(file, SFC_SET_CHANNEL_MAP_INFO, map.data(),
                                 static_cast<int>(map.size() * sizeof map[0])),
                      SF_TRUE);
        }
        std::vector<double> samples;
        for (int i = 0; i < FRAMES; ++i)
            for (auto const &channel : names)
                samples.push_back(0.3 *
                                  std::sin(2 * std::numbers::pi * getTone(channel) * i / RATE));
        EXPECT_EQ(sf_writef_double(file, samples.data(), FRAMES), FRAMES);
        EXPECT_EQ(sf_close(file), 0);
    }
    /// Returns the loudspeakers of a file's channels, found by their tones.
    Names findTones(std::string const &name) const
    {
        SF_INFO info = {};
        SNDFILE * const file = sf_open(path(name).c_str(), SFM_READ, &info);
        EXPECT_NE(file, nullptr) << name;
        auto const count = static_cast<std::size_t>(info.channels);
        std::vector<double> samples(FRAMES * count);
        EXPECT_EQ(sf_readf_double(file, samples.data(), FRAMES), FRAMES);
        sf_close(file);
        Names found;
        for (std::size_t channel = 0; channel < count; ++channel) {
            std::string loudest;
            double most = 0;
            for (std::string const speaker :
                 {"mono", "L", "R", "C", "LFE", "RL", "RR", "RC", "SL", "SR"}) {
                double sine = 0;
                double cosine = 0;
                for (std::size_t i = 0; i < FRAMES; ++i) {
                    double const angle =
                        2 * std::numbers::pi * getTone(speaker) * static_cast<double>(i) / RATE;
                    double const sample = samples[i * count + channel];
                    sine += sample * std::sin(angle);
                    cosine += sample * std::cos(angle);
                }
                double const level = std::hypot(sine, cosine) / FRAMES * 2;
                if (level > most)
                    loudest = speaker;
                most = std::max(most, level);
            }
            EXPECT_NEAR(most, 0.3, 0.05) << name << " " << channel;
            found.push_back(loudest);
        }
        return found;
    }
    /// Returns the names that a file gives its channels. Empty if it gives none.
    Map getMap(std::string const &name) const
    {
        SF_INFO info = {};
        SNDFILE * const file = sf_open(path(name).c_str(), SFM_READ, &info);
        EXPECT_NE(file, nullptr);
        Map map(static_cast<std::size_t>(info.channels));
        bool const isTold = sf_command(file, SFC_GET_CHANNEL_MAP_INFO, map.data(),
                                       static_cast<int>(map.size() * sizeof map[0])) == SF_TRUE;
        sf_close(file);
        return isTold ? map : Map();
    }
};

TEST_F(ChannelTest, EachChannelKeepsItsLoudspeakerFromEachKindOfFileToEach)
{
    for (Kind const &from : KINDS)
        for (int count = 1; count <= 8; ++count) {
            std::string const input = std::string("in") + from.extension;
            makeTones(input, from.format, from.getNames(count));
            for (Kind const &to : KINDS) {
                SCOPED_TRACE(input + std::to_string(count) + to.extension);
                std::string const output = std::string("out") + to.extension;
                Outcome const outcome = play(input, output);
                ASSERT_EQ(outcome.status, 0) << outcome.err;
                EXPECT_EQ(findTones(output), to.getNames(count));
            }
        }
}

constexpr int L = SF_CHANNEL_MAP_LEFT;
constexpr int R = SF_CHANNEL_MAP_RIGHT;
constexpr int C = SF_CHANNEL_MAP_CENTER;
constexpr int LFE = SF_CHANNEL_MAP_LFE;
constexpr int RL = SF_CHANNEL_MAP_REAR_LEFT;
constexpr int RR = SF_CHANNEL_MAP_REAR_RIGHT;
constexpr int RC = SF_CHANNEL_MAP_REAR_CENTER;
constexpr int SL = SF_CHANNEL_MAP_SIDE_LEFT;
constexpr int SR = SF_CHANNEL_MAP_SIDE_RIGHT;

TEST_F(ChannelTest, AFileMayNameItsChannelsInAnotherOrder)
{
    makeTones("in.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16, {"L", "R", "RL", "RR", "C", "LFE"},
              {L, R, RL, RR, C, LFE});
    ASSERT_EQ(getMap("in.aiff"), (Map{L, R, RL, RR, C, LFE}));
    for (Kind const &to : KINDS) {
        std::string const output = std::string("out") + to.extension;
        ASSERT_EQ(play("in.aiff", output).status, 0);
        EXPECT_EQ(findTones(output), to.getNames(6)) << output;
    }
}

TEST_F(ChannelTest, NamesAreKeptIfTheFileFormatHasRoom)
{
    makeTones("in.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, getVorbis(6));
    ASSERT_EQ(play("in.ogg", "out.wav").status, 0);
    EXPECT_EQ(getMap("out.wav"), (Map{L, R, C, LFE, RL, RR}));
    ASSERT_EQ(play("in.ogg", "out.aiff").status, 0);
    EXPECT_EQ(getMap("out.aiff"), (Map{L, R, C, LFE, RL, RR}));

    makeTones("in.wav", SF_FORMAT_WAVEX | SF_FORMAT_PCM_16, {"L", "R", "C", "LFE", "SL", "SR"},
              {L, R, C, LFE, SL, SR});
    ASSERT_EQ(play("in.wav", "out.wav").status, 0);
    EXPECT_EQ(getMap("out.wav"), (Map{L, R, C, LFE, SL, SR}));
    EXPECT_EQ(findTones("out.wav"), (Names{"L", "R", "C", "LFE", "SL", "SR"}));

    makeTones("in.wav", SF_FORMAT_WAVEX | SF_FORMAT_PCM_16, {"L", "R", "LFE"}, {L, R, LFE});
    ASSERT_EQ(play("in.wav", "out.wav").status, 0);
    EXPECT_EQ(getMap("out.wav"), (Map{L, R, LFE}));
    EXPECT_EQ(findTones("out.wav"), (Names{"L", "R", "LFE"}));
}

TEST_F(ChannelTest, ASinglePairOfSurroundsMayBeCalledSideOrRear)
{
    makeTones("in.wav", SF_FORMAT_WAVEX | SF_FORMAT_PCM_16, {"L", "R", "C", "LFE", "SL", "SR"},
              {L, R, C, LFE, SL, SR});
    ASSERT_EQ(play("in.wav", "out.ogg").status, 0);
    EXPECT_EQ(findTones("out.ogg"), (Names{"L", "C", "R", "SL", "SR", "LFE"}));
    makeTones("in.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16,
              {"L", "R", "C", "LFE", "RL", "RR", "RC"}, {L, R, C, LFE, RL, RR, RC});
    ASSERT_EQ(play("in.aiff", "out.flac").status, 0);
    EXPECT_EQ(findTones("out.flac"), (Names{"L", "R", "C", "LFE", "RC", "RL", "RR"}));
}

TEST_F(ChannelTest, AFileThatHasNoPlaceForAChannelIsRefused)
{
    makeTones("in.wav", SF_FORMAT_WAVEX | SF_FORMAT_PCM_16, {"L", "R", "LFE"}, {L, R, LFE});
    for (std::string const output : {"out.flac", "out.ogg"}) {
        Outcome const outcome = play("in.wav", output);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(
            withoutFolder(outcome.err),
            "zvplayout: cannot write %" + output +
                ": such a file has no place for these channels: left, right, low frequencies\n");
        EXPECT_EQ(files(), (std::set<std::string>{"in.wav"}));
    }
}

TEST_F(ChannelTest, ClipsInARowMayHaveTheirChannelsInDifferentOrders)
{
    makeTones("one.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16, {"L", "R", "RL", "RR", "C", "LFE"},
              {L, R, RL, RR, C, LFE});
    makeTones("two.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, getUsual(6));
    writeText("show.xml",
              "<show output='out.wav'><clip file='two.wav'/><clip file='one.aiff'/></show>");
    ASSERT_EQ(Playout({"--fast", path("show.xml")}).finish().status, 0);
    Sound sound = read("out.wav");
    for (std::string const half : {"first.wav", "second.wav"}) {
        Sound part = sound;
        part.samples.resize(FRAMES * 6);
        write(half, part);
        EXPECT_EQ(findTones(half), getUsual(6)) << half;
        sound.samples.erase(sound.samples.begin(), sound.samples.begin() + FRAMES * 6);
    }

    makeTones("one.wav", SF_FORMAT_WAVEX | SF_FORMAT_PCM_16, {"L", "R", "LFE"}, {L, R, LFE});
    makeTones("two.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, getUsual(3));
    writeText("show.xml",
              "<show output='no.wav'><clip file='two.wav'/><clip file='one.wav'/></show>");
    EXPECT_EQ(
        withoutFolder(Playout({"--fast", path("show.xml")}).finish().err),
        "zvplayout: cannot read %one.wav: its channels and its rate are not those of the clip "
        "before it\n");
}

TEST_F(ChannelTest, MoreChannelsThanHaveNamesKeepTheirPlaces)
{
    Sound const sound = make("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 12, RATE, 100);
    for (std::string const output : {"out.wav", "out.aiff"}) {
        ASSERT_EQ(play("in.wav", output).status, 0);
        EXPECT_EQ(read(output).samples, sound.samples);
    }
}

} // namespace
} // namespace ZvTest
