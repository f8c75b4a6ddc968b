#include "waveform.h"

#include "display.h"
#include "shownText.h"

#include <resmgt/threads.h>

#include <algorithm>
#include <cmath>
#include <sstream>

using namespace Zv;

namespace {

constexpr std::size_t MOST_CHANNELS = 8;
constexpr std::size_t MOST_PEAKS = 1 << 14; // of all channels
constexpr std::size_t LONGEST_LABEL = 34;   // bytes
constexpr int MOST_ROWS = 8;                // of labels

// Pixels.
constexpr int LEFT = 52;   // room for the levels
constexpr int RIGHT = 116; // room for the names of the channels
constexpr int GAP = 16;    // between channels, so that their lowest and highest levels are apart
constexpr int BOTTOM = 26; // room for the times
constexpr int LEVEL_DISTANCE = 13;
constexpr double LABEL_DISTANCE = 4;

/// Levels in the order in which they get a label, if there is room.
constexpr double LEVELS[] = {0, -6, -12, -3, -18, -24};

} // namespace

/// Events of one frame.
struct Waveform::Event
{
    double share; // of the recording
    std::string text;
    std::string label; // a short text
    int row = -1;      // of the label, 0 for the lowest; -1 for none
};

/// Places in the chart.
struct Waveform::Layout
{
    Layout(std::vector<Event> placedEvents, std::size_t channels) : events(std::move(placedEvents))
    {
        // All labels extend to the right of their lines, so the last ones may need room there.
        double room = WIDTH - LEFT - RIGHT;
        for (Event const &event : events)
            if (event.share > 0)
                room =
                    std::min(room, (WIDTH - LEFT - LABEL_DISTANCE - Chart::measure(event.label)) /
                                       event.share);
        width = static_cast<int>(room);
        placeLabels();
        channelHeight = channels == 1 ? 180 : channels == 2 ? 110 : 72;
        auto const number = static_cast<int>(channels);
        bottom = top + number * channelHeight + (number - 1) * GAP;
    }

    double getX(Event const &event) const { return LEFT + event.share * width; }
    int getTop(std::size_t channel) const
    {
        return top + static_cast<int>(channel) * (channelHeight + GAP);
    }
    int getHeight() const { return bottom + BOTTOM; }

    /// Gives each label the lowest row in which it covers no other label and no line. From right to
    /// left, only the lines below its own width can be in the way, and these are placed already.
    void placeLabels()
    {
        int nbRows = 0;
        for (auto event = events.rbegin(); event != events.rend(); ++event) {
            double const end = getX(*event) + 2 * LABEL_DISTANCE + Chart::measure(event->label);
            int row = 0;
            for (auto other = events.rbegin(); other != event && row < MOST_ROWS; ++other)
                if (getX(*other) < end)
                    row = std::max(row, other->row + 1);
            if (row == MOST_ROWS)
                continue;
            event->row = row;
            nbRows = std::max(nbRows, row + 1);
        }
        auto const nbLabels = std::count_if(events.begin(), events.end(),
                                            [](Event const &event) { return event.row >= 0; });
        if (nbLabels < std::ssize(events))
            note = format("%d of %d events have a label", static_cast<int>(nbLabels),
                          static_cast<int>(events.size()));
        top = 12 + (nbRows + !note.empty()) * Chart::LINE_HEIGHT;
    }

    std::vector<Event> events;
    std::string note; // above the labels; empty for none
    int width = 0;
    int top = 0;
    int channelHeight = 0;
    int bottom = 0;
};

void Waveform::Extent::include(Extent const &other)
{
    lowest = std::min(lowest, other.lowest);
    highest = std::max(highest, other.highest);
}

Waveform::Waveform(AudioFormat const &format)
    : _format(format),
      _nbChannels(static_cast<std::size_t>(format.channels) <= MOST_CHANNELS
                      ? static_cast<std::size_t>(format.channels)
                      : 1),
      _mostPeaks(MOST_PEAKS / _nbChannels / 2 * 2),
      _pool("waveform", std::max(MtThreadMgr::getInstance().getNbProcessors(), 2u))
{}

void Waveform::add(RCShdPtr<AudioBlock> const &block)
{
    auto const frames = static_cast<int>(block->samples.size()) / _format.channels;
    _frames += frames;
    if (_peaks.size() == _mostPeaks)
        merge();
    Peaks &peaks = _peaks.emplace_back(Peaks{frames, std::vector<Extent>(PARTS * _nbChannels)});
    _pool.add([this, &peaks, block] { compute(peaks, block->samples); });
}

/// Merges each two blocks into one, so that a long recording takes no more memory than a short one.
/// After that, a column of the picture still shows ten parts or more.
void Waveform::merge()
{
    _pool.finish();
    std::deque<Peaks> merged;
    for (std::size_t i = 0; i + 1 < _peaks.size(); i += 2) {
        Peaks &both = merged.emplace_back(Peaks{_peaks[i].frames + _peaks[i + 1].frames,
                                                std::vector<Extent>(PARTS * _nbChannels)});
        for (std::size_t part = 0; part < both.parts.size(); ++part) {
            std::size_t const channel = part / PARTS * PARTS;
            Peaks const &one = _peaks[i + part % PARTS / (PARTS / 2)];
            std::size_t const first = channel + part % (PARTS / 2) * 2;
            both.parts[part] = one.parts[first];
            both.parts[part].include(one.parts[first + 1]);
        }
    }
    _peaks = std::move(merged);
}

void Waveform::compute(Peaks &peaks, std::vector<double> const &samples) const
{
    auto const nbChannels = static_cast<std::size_t>(_format.channels);
    std::size_t const frames = samples.size() / nbChannels;
    for (std::size_t i = 0; i < frames * nbChannels; ++i) {
        auto const sample = static_cast<float>(samples[i]);
        std::size_t const channel = i % nbChannels % _nbChannels;
        peaks.parts[channel * PARTS + i / nbChannels * PARTS / frames].include({sample, sample});
    }
}

std::vector<Waveform::Extent> Waveform::toColumns(std::size_t channel, int width) const
{
    std::vector<Extent> columns(static_cast<std::size_t>(width));
    auto const nbParts = static_cast<std::int64_t>(PARTS);
    std::int64_t first = 0;
    for (Peaks const &peaks : _peaks) {
        for (std::int64_t i = 0; i < nbParts; ++i) {
            // In fractions of a frame, to be exact.
            auto const begin = (first * nbParts + peaks.frames * i) * width;
            auto const end = begin + peaks.frames * width;
            auto const column = _frames * nbParts;
            for (auto c = begin / column; c * column < end; ++c)
                columns[static_cast<std::size_t>(c)].include(
                    peaks.parts[channel * PARTS + static_cast<std::size_t>(i)]);
        }
        first += peaks.frames;
    }
    return columns;
}

std::vector<Waveform::Event> Waveform::getEvents(Timeline const *timeline,
                                                 std::vector<Cues::Cue> const &cues) const
{
    std::vector<Event> events;
    for (auto cue = cues.begin(); cue != cues.end();) {
        std::int64_t const frame = cue->frame;
        std::string text = timeline->getTimecode(frame);
        for (; cue != cues.end() && cue->frame == frame; ++cue)
            text += " " + cue->text;
        auto const at = static_cast<double>(timeline->getSample(frame, _format.rate));
        double const share = _frames > 0 ? at / static_cast<double>(_frames) : 0;
        events.push_back({std::min(share, 1.0), text, shorten(text, LONGEST_LABEL)});
    }
    return events;
}

std::string Waveform::draw(Timeline const *timeline, std::vector<Cues::Cue> const &events)
{
    _pool.finish();
    std::ostringstream svg;
    {
        XmlStreamer streamer(svg, true, "");
        Layout const layout(getEvents(timeline, events), _nbChannels);
        Chart chart(streamer, WIDTH, layout.getHeight(), "Waveform");
        drawInto(chart, layout);
    }
    return svg.str();
}

void Waveform::drawInto(XmlStreamer::ElementGuard &page, Timeline const *timeline,
                        std::vector<Cues::Cue> const &events)
{
    _pool.finish();
    Layout const layout(getEvents(timeline, events), _nbChannels);
    Chart chart(page, WIDTH, layout.getHeight(), "Waveform");
    drawInto(chart, layout);
}

void Waveform::drawInto(Chart &chart, Layout const &layout) const
{
    for (std::size_t channel = 0; channel < _nbChannels; ++channel)
        chart.rect("plot", LEFT, layout.getTop(channel), layout.width, layout.channelHeight);
    double const seconds = static_cast<double>(_frames) / _format.rate;
    chart.timeAxis(Scale(0, seconds, LEFT, LEFT + layout.width), layout.top, layout.bottom);
    for (std::size_t channel = 0; channel < _nbChannels; ++channel)
        drawChannel(chart, layout, channel);
    if (!layout.note.empty())
        chart.text("label", LEFT, Chart::LINE_HEIGHT - 2, layout.note);
    for (Event const &event : layout.events) {
        double const x = layout.getX(event);
        int const labelTop = layout.top - 5 - (event.row + 1) * Chart::LINE_HEIGHT;
        chart.line("event", x, event.row < 0 ? layout.top : labelTop + 4, x, layout.bottom,
                   event.text);
        if (event.row >= 0)
            chart.text("eventtext", x + LABEL_DISTANCE, labelTop + Chart::LINE_HEIGHT - 2,
                       event.label);
    }
}

void Waveform::drawChannel(Chart &chart, Layout const &layout, std::size_t channel) const
{
    int const top = layout.getTop(channel);
    double const half = layout.channelHeight / 2.0;
    auto const toY = [&](double sample) {
        return top + half * (1 - std::clamp(sample, -1.0, 1.0));
    };
    std::vector<double> labelled{0}; // heights above the middle
    chart.text("label", LEFT - 6, top + half + 4, "-∞", Chart::Anchor::END);
    for (double const level : LEVELS) {
        double const sample = std::pow(10, level / 20);
        double const height = half * sample;
        if (std::any_of(labelled.begin(), labelled.end(),
                        [&](double other) { return std::abs(height - other) < LEVEL_DISTANCE; }))
            continue;
        labelled.push_back(height);
        for (double const sign : {1.0, -1.0}) {
            chart.line("grid", LEFT - 3, toY(sign * sample), LEFT + layout.width,
                       toY(sign * sample));
            chart.text("label", LEFT - 6, toY(sign * sample) + 4,
                       format(level == 0 ? "%g dB" : "%g", level), Chart::Anchor::END);
        }
    }
    auto const columns = toColumns(channel, layout.width);
    std::string path = "M";
    for (int x = 0; x < layout.width; ++x)
        path += format("%d %ld ", LEFT + x,
                       std::lround(toY(columns[static_cast<std::size_t>(x)].highest)));
    for (int x = layout.width; x-- > 0;)
        path += format("%d %ld ", LEFT + x,
                       std::lround(toY(columns[static_cast<std::size_t>(x)].lowest)) + 1);
    chart.path("wave", path + "Z");
    double peak = 0;
    for (Extent const &extent : columns)
        peak = std::max({peak, std::abs(static_cast<double>(extent.lowest)),
                         std::abs(static_cast<double>(extent.highest))});
    double const textLeft = LEFT + layout.width + 8;
    chart.text("strong", textLeft, top + half - 2, getChannelName(channel));
    chart.text("label", textLeft, top + half + Chart::LINE_HEIGHT - 2,
               "peak " + Display::toDecibels(peak));
}

std::string Waveform::getChannelName(std::size_t channel) const
{
    if (_nbChannels < static_cast<std::size_t>(_format.channels))
        return format("%d channels", _format.channels);
    return _format.layout.getName(channel);
}
