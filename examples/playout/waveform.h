// Picture of a recording's waveform.
#pragma once

#include "audioStream.h"
#include "chart.h"
#include "cues.h"
#include "taskPool.h"

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

/// Computes the peaks of a recording on a pool of threads, and draws them. Each channel has a
/// picture of its own if there are at most eight, otherwise all have one together. Takes at most a
/// few megabytes for a recording of any length. Only one thread may use it.
class Waveform
{
public:
    static constexpr int WIDTH = 1200; ///< of the chart

    explicit Waveform(AudioFormat const &format);

    /// Appends a block. Its samples must not change after that.
    void add(Zv::RCShdPtr<AudioBlock> const &block);
    /// Returns an SVG document with the waveform and the events. Waits for the last peaks.
    /// `timeline` may be null if there are no events.
    std::string draw(Timeline const *timeline, std::vector<Cues::Cue> const &events);
    /// Draws the same as a part of a page.
    void drawInto(Zv::XmlStreamer::ElementGuard &page, Timeline const *timeline,
                  std::vector<Cues::Cue> const &events);

private:
    /// Lowest and highest value of some samples.
    struct Extent
    {
        float lowest = 0;
        float highest = 0;

        void include(Extent const &other);
    };
    /// Peaks of a block. The parts of a channel follow each other.
    struct Peaks
    {
        std::int64_t frames;
        std::vector<Extent> parts;
    };
    struct Event;
    struct Layout;

    static constexpr std::size_t PARTS = 16; // of a block

    void compute(Peaks &peaks, std::vector<double> const &samples) const;
    void merge();
    std::vector<Extent> toColumns(std::size_t channel, int width) const;
    std::vector<Event> getEvents(Timeline const *timeline,
                                 std::vector<Cues::Cue> const &cues) const;
    void drawInto(Chart &chart, Layout const &layout) const;
    void drawChannel(Chart &chart, Layout const &layout, std::size_t channel) const;
    std::string getChannelName(std::size_t channel) const;

    AudioFormat const _format;
    std::size_t const _nbChannels; // that are drawn
    std::size_t const _mostPeaks;
    std::int64_t _frames = 0;
    std::deque<Peaks> _peaks; // a deque, because the pool's threads write into its elements
    TaskPool _pool;
};
