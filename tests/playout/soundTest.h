// Fixture for the tests of sound cards.
#pragma once

#include "playoutTest.h"
#include "soundServer.h"

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

namespace ZvTest {

inline bool isSound(float sample)
{
    return sample != 0;
}

inline bool hasSound(std::vector<float> const &samples)
{
    return std::any_of(samples.begin(), samples.end(), isSound);
}

/// Returns the samples from the first to the last one that is not 0.
inline std::vector<float> getHeard(std::vector<float> const &samples)
{
    auto const first = std::find_if(samples.begin(), samples.end(), isSound);
    auto const last = std::find_if(samples.rbegin(), samples.rend(), isSound).base();
    return first < last ? std::vector<float>(first, last) : std::vector<float>();
}

/// Fixture with recordings and, if a test starts it, a server of JACK.
class SoundTest : public PlayoutTest
{
protected:
    static constexpr int RATE = SoundServer::RATE;
    static constexpr int FRAME = RATE / 25; // samples of a frame of PAL

    /// Makes a recording in which no sample is 0. Returns what must be heard.
    std::vector<float> makeSound(int channels, int frames, int rate = RATE) const
    {
        Sound sound = make("in.wav", PCM, channels, rate, frames);
        std::replace(sound.samples.begin(), sound.samples.end(), 0, 1 << 16);
        write("in.wav", sound);
        std::vector<float> heard;
        for (int const sample : sound.samples)
            heard.push_back(static_cast<float>(sample) / 2147483648.0f);
        return heard;
    }
    /// Returns the samples of a file of floating-point numbers with that many channels.
    std::vector<float> readFloats(std::string const &name, int channels) const
    {
        SF_INFO info = {};
        SNDFILE * const file = sf_open(path(name).c_str(), SFM_READ, &info);
        EXPECT_NE(file, nullptr);
        EXPECT_EQ(info.format, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
        EXPECT_EQ(info.channels, channels);
        std::vector<float> samples(static_cast<std::size_t>(info.frames * info.channels));
        EXPECT_EQ(sf_readf_float(file, samples.data(), info.frames), info.frames);
        sf_close(file);
        return samples;
    }
    void startServer() { _server.emplace(path("")); }
    /// Plays to the capture. On a busy machine, the sound must not run out.
    Outcome playTo(SoundCapture const &capture, std::vector<std::string> arguments,
                   Playout::Surroundings surroundings = {}) const
    {
        for (auto const &more : {std::string("--to"), capture.getPlace(), std::string("--property"),
                                 std::string("speaker:card:latency=1.5")})
            arguments.push_back(more);
        return Playout(arguments, surroundings).finish();
    }
    /// Runs the program, which must fail with the message and leave no file.
    void expectError(std::vector<std::string> const &arguments, int status,
                     std::string const &message, Playout::Surroundings surroundings = {}) const
    {
        auto const before = files();
        Outcome const outcome = Playout(arguments, surroundings).finish();
        EXPECT_EQ(outcome.status, status);
        EXPECT_EQ(withoutFolder(outcome.err), "zvplayout: " + message + "\n");
        EXPECT_EQ(files(), before);
    }
    void expectUsage(std::vector<std::string> const &arguments, std::string const &message) const
    {
        expectError(arguments, 2, message + "\nzvplayout --help lists what it takes");
    }

    std::optional<SoundServer> _server;
};

} // namespace ZvTest
