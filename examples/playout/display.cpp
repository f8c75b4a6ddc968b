#include "display.h"

#include "shownText.h"
#include "signals.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <iostream>

namespace {

constexpr int BAR_WIDTH = 40;
constexpr std::size_t LONGEST_LINE = 4096; // bytes
constexpr double UNKNOWN_LENGTH_STEP = 10; // seconds for each line

std::string getTime(DeviceEnd const &end, char const *step)
{
    auto const place = end.seconds.find(step);
    if (place == end.seconds.end())
        return "-";
    return place->second < 1 ? format("%.3f ms", place->second * 1000)
                             : format("%.3f s", place->second);
}

} // namespace

std::string format(char const *text, ...)
{
    char buffer[512];
    va_list arguments;
    va_start(arguments, text);
    std::vsnprintf(buffer, sizeof buffer, text, arguments);
    va_end(arguments);
    return buffer;
}

bool Display::isTerminal()
{
    return ::isatty(STDOUT_FILENO);
}

void Display::line(std::string const &text)
{
    if (std::exchange(_isBarShown, false))
        std::cout << "\r\033[K";
    std::cout << toShownText(shorten(text, LONGEST_LINE)) << std::endl;
    Signals::setLineOpen(false);
}

void Display::notice(std::string const &text)
{
    if (_notices.insert(text).second)
        line(text);
}

std::string Display::toDecibels(double level)
{
    return level > 0 ? format("%.1f dB", 20 * std::log10(level)) : "-inf dB";
}

std::string Display::toPosition(double seconds) const
{
    return _timeline ? _timeline->getTimecode(_timeline->getFrameAt(seconds))
                     : format("%.2f s", seconds);
}

void Display::progress(double position, double place, double peak, SoundCard const *card)
{
    std::string figures = format(_timeline ? "  %s" : "%10s", toPosition(position).c_str()) +
                          (peak < 0 ? "" : format("   peak %s", toDecibels(peak).c_str()));
    if (card)
        figures += format("   underruns %lld   overruns %lld   late %lld",
                          static_cast<long long>(card->getFigures().underruns),
                          static_cast<long long>(card->getFigures().overruns),
                          static_cast<long long>(card->getFigures().late));
    double const share = _length > 0 ? std::min(place / _length, 1.0) : 0;
    int const percent = static_cast<int>(share * 100);
    if (_isTerminal) {
        auto const filled = static_cast<std::size_t>(share * BAR_WIDTH);
        std::cout << "\r\033[K  [" << std::string(filled, '#')
                  << std::string(BAR_WIDTH - filled, '.') << "] " << format("%3d %%", percent)
                  << figures << std::flush;
        _isBarShown = true;
        Signals::setLineOpen(true);
        return;
    }
    int const tenth = static_cast<int>(_length > 0 ? share * 10 : position / UNKNOWN_LENGTH_STEP);
    _nextTenth = std::min(_nextTenth, tenth + 1); // after a jump back
    if (tenth < _nextTenth)
        return;
    _nextTenth = tenth + 1;
    line(_length > 0 ? format("  %3d %%", tenth * 10) + figures : "       " + figures);
}

void Display::endProgress()
{
    if (std::exchange(_isBarShown, false))
        std::cout << std::endl;
    Signals::setLineOpen(false);
}

void Display::end(std::string const &name, DeviceEnd const *end)
{
    std::string text = format("  %-10s %-22s", name.c_str(), end ? end->text.c_str() : "end");
    for (char const * const step : {"start", "sync", "recover", "stop", "abort", "close"})
        text += format(" %10s", end ? getTime(*end, step).c_str() : step);
    line(text);
}

void Display::beats(std::string const &name, Metronome::Figures const *figures)
{
    if (figures)
        line(format("  %-10s %8ld %17ld", name.c_str(), figures->beats, figures->late));
    else
        line(format("  %-10s %8s %17s", name.c_str(), "beats", "late beats"));
}

void Display::card(SoundCard &card)
{
    auto const figures = card.getFigures();
    auto const toTime = [&](std::int64_t samples) {
        return format("%.3f ms", 1000.0 * static_cast<double>(samples) / card.getSampleRate());
    };
    line(format("  %-10s %12s %10s %16s %10s %16s %14s", "sound card", "samples", "underruns",
                "silence", "overruns", "lost", "late periods"));
    line(format("  %-10s %12lld %10lld %16s %10lld %16s %14lld", card.getName(),
                static_cast<long long>(figures.samples), static_cast<long long>(figures.underruns),
                toTime(figures.silence).c_str(), static_cast<long long>(figures.overruns),
                toTime(figures.lost).c_str(), static_cast<long long>(figures.late)));
}

void Display::memory(ShowMemory const &show, MemoryFigures::Figures const &figures)
{
    line(format("  %-14s %9s %9s %9s %20s %14s", "memory", "loads", "reloads", "unloads",
                "prefetch hits", "peak"));
    std::string const hits = format("%ld of %ld", figures.hits, figures.visits);
    std::string const peak = format("%lld of %lld", static_cast<long long>(figures.peak),
                                    static_cast<long long>(show.budget));
    line(format("  %-14s %9ld %9ld %9ld %20s   %s bytes",
                (show.manager + ", " + show.strategy).c_str(), figures.loads, figures.reloads,
                figures.unloads, hits.c_str(), peak.c_str()));
}

void Display::statistics(std::string const &name, PlayoutDevice::Statistics const *figures,
                         double startedAt, double stoppedAt)
{
    if (!figures) {
        line(format("  %-10s %8s %17s %17s %17s", name.c_str(), "blocks", "longest wait",
                    "START to lock", "STOP to final"));
        return;
    }
    auto const lapse = [](double from, double to) {
        return from > 0 && to >= from ? format("%.3f ms", (to - from) * 1000) : std::string("-");
    };
    line(format("  %-10s %8ld %14.3f ms %17s %17s", name.c_str(), figures->blocks,
                figures->longestWait * 1000, lapse(startedAt, figures->lockedAt).c_str(),
                lapse(stoppedAt, figures->endedAt).c_str()));
}
