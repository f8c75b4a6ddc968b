// Picture of a recording's waveform.
#pragma once

#include "audioStream.h"
#include "cues.h"
#include "taskPool.h"

#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

/// Computes the peaks of a recording on a pool of threads, and draws them. Takes at most a few
/// megabytes for a recording of any length. Only one thread may use it.
class Waveform
{
public:
    explicit Waveform(AudioFormat const &format);

    /// Appends a block. Its samples must not change after that.
    void add(Zv::RCShdPtr<AudioBlock> const &block);
    /// Returns an SVG document with the waveform and the events. Waits for the last peaks.
    std::string draw(Timeline const &timeline, std::vector<Cues::Cue> const &events);

private:
    /// Lowest and highest value of some samples.
    struct Extent
    {
        float lowest = 0;
        float highest = 0;

        void include(Extent const &other);
    };
    /// Peaks of a block, over all channels.
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
    std::deque<Peaks> _peaks; // a deque, because the pool's threads write into its elements
    TaskPool _pool;
};
