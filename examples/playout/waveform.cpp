#include "waveform.h"

#include "display.h"

#include <resmgt/threads.h>
#include <resmgt/xml.h>

#include <algorithm>
#include <cmath>
#include <sstream>

using namespace Zv;

namespace {

constexpr int WIDTH = 1200;
constexpr int HEIGHT = 240;
constexpr std::size_t MOST_PEAKS = 1 << 16; // even

/// Returns the vertical position of a sample.
int toY(double sample)
{
    return static_cast<int>(std::lround(HEIGHT / 2.0 * (1 - std::clamp(sample, -1.0, 1.0))));
}

void drawEvent(XmlStreamer::ElementGuard &picture, double x, std::string const &text)
{
    {
        XmlStreamer::ElementGuard line(picture, "line");
        line.addAttribute("x1", x);
        line.addAttribute("x2", x);
        line.addAttribute("y1", 0);
        line.addAttribute("y2", HEIGHT);
        line.addAttribute("stroke", "firebrick");
    }
    XmlStreamer::ElementGuard label(picture, "text");
    label.addAttribute("x", 4);
    label.addAttribute("y", -4);
    label.addAttribute("transform", format("translate(%.2f 0) rotate(90)", x).c_str());
    label.addAttribute("font-size", 11);
    label.addAttribute("fill", "firebrick");
    label.addTextData(text.c_str()); // timecodes, words and numbers need no escapes
}

} // namespace

void Waveform::Extent::include(Extent const &other)
{
    lowest = std::min(lowest, other.lowest);
    highest = std::max(highest, other.highest);
}

Waveform::Waveform(AudioFormat const &format)
    : _format(format), _pool("waveform", std::max(MtThreadMgr::getInstance().getNbProcessors(), 2u))
{}

void Waveform::add(RCShdPtr<AudioBlock> const &block)
{
    auto const frames = static_cast<int>(block->samples.size()) / _format.channels;
    _frames += frames;
    if (_peaks.size() == MOST_PEAKS)
        merge();
    Peaks &peaks = _peaks.emplace_back(Peaks{frames, {}});
    _pool.add([&peaks, block] { compute(peaks, block->samples); });
}

/// Merges each two blocks into one, so that a long recording takes no more memory than a short one.
/// After that, a column of the picture still shows more than a hundred parts.
void Waveform::merge()
{
    _pool.finish();
    std::deque<Peaks> merged;
    for (std::size_t i = 0; i + 1 < _peaks.size(); i += 2) {
        Peaks &both = merged.emplace_back(Peaks{_peaks[i].frames + _peaks[i + 1].frames, {}});
        std::size_t const half = both.parts.size() / 2;
        for (std::size_t part = 0; part < both.parts.size(); ++part) {
            Peaks const &one = _peaks[i + part / half];
            std::size_t const first = part % half * 2;
            both.parts[part] = one.parts[first];
            both.parts[part].include(one.parts[first + 1]);
        }
    }
    _peaks = std::move(merged);
}

void Waveform::compute(Peaks &peaks, std::vector<double> const &samples)
{
    std::size_t const nbParts = peaks.parts.size();
    for (std::size_t i = 0; i < samples.size(); ++i) {
        auto const sample = static_cast<float>(samples[i]);
        peaks.parts[i * nbParts / samples.size()].include({sample, sample});
    }
}

std::vector<Waveform::Extent> Waveform::toColumns() const
{
    std::vector<Extent> columns(WIDTH);
    std::int64_t first = 0;
    for (Peaks const &peaks : _peaks) {
        auto const nbParts = static_cast<std::int64_t>(peaks.parts.size());
        for (std::int64_t i = 0; i < nbParts; ++i) {
            // In fractions of a frame, to be exact.
            auto const begin = (first * nbParts + peaks.frames * i) * WIDTH;
            auto const end = begin + peaks.frames * WIDTH;
            auto const column = _frames * nbParts;
            for (auto c = begin / column; c * column < end; ++c)
                columns[static_cast<std::size_t>(c)].include(
                    peaks.parts[static_cast<std::size_t>(i)]);
        }
        first += peaks.frames;
    }
    return columns;
}

std::string Waveform::draw(Timeline const &timeline, std::vector<Cues::Cue> const &events)
{
    _pool.finish();
    std::string path = "M";
    auto const columns = toColumns();
    for (int x = 0; x < WIDTH; ++x)
        path += format("%d %d ", x, toY(columns[static_cast<std::size_t>(x)].highest));
    for (int x = WIDTH; x-- > 0;)
        path += format("%d %d ", x, toY(columns[static_cast<std::size_t>(x)].lowest) + 1);
    std::ostringstream svg;
    {
        XmlStreamer streamer(svg, true, "");
        XmlStreamer::ElementGuard picture(streamer, "svg");
        picture.addAttribute("xmlns", "http://www.w3.org/2000/svg");
        picture.addAttribute("viewBox", format("0 0 %d %d", WIDTH, HEIGHT).c_str());
        {
            XmlStreamer::ElementGuard wave(picture, "path");
            wave.addAttribute("d", (path + "Z").c_str());
            wave.addAttribute("fill", "steelblue");
        }
        for (auto event = events.begin(); event != events.end();) {
            std::int64_t const frame = event->frame;
            std::string text = timeline.getTimecode(frame);
            for (; event != events.end() && event->frame == frame; ++event)
                text += " " + event->text;
            auto const at = static_cast<double>(timeline.getSample(frame, _format.rate));
            double const x = _frames > 0 ? at / static_cast<double>(_frames) * WIDTH : 0;
            drawEvent(picture, std::min<double>(x, WIDTH), text);
        }
    }
    return svg.str();
}
