// The picture of a recording.
#pragma once

#include "audioStream.h"
#include "cues.h"
#include "taskPool.h"

#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

/// Has the peaks of a recording computed by a pool of threads while it is made, and draws them. Takes no more than a few
/// megabytes, however long the recording is. One thread uses it.
class Waveform
{
public:
    explicit Waveform(AudioFormat const &format);

    /// The next samples. Nobody changes them any more.
    void add(Zv::RCShdPtr<AudioBlock> const &block);
    /// A document of SVG, with what has happened where. Waits for the last peaks.
    std::string draw(Timeline const &timeline, std::vector<Cues::Cue> const &events);

private:
    /// The extremes of some samples.
    struct Extent
    {
        float lowest = 0;
        float highest = 0;

        void include(Extent const &other);
    };
    /// Of one block, over all channels.
    struct Peaks
    {
        std::int64_t frames;
        std::array<Extent, 4> parts;
    };

    static void compute(Peaks &peaks, std::vector<double> const &samples);
    void merge();
    std::vector<Extent> toColumns() const;

    AudioFormat const _format;
    std::int64_t _frames = 0;
    std::deque<Peaks> _peaks; // which stay where they are: the pool's threads fill them in
    TaskPool _pool;
};
