#include "display.h"

#include "shownText.h"
#include "signals.h"
#include "top.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <iostream>

namespace {

constexpr int BAR_WIDTH = 40;
constexpr std::size_t LONGEST_LINE = 4096; // bytes
constexpr std::size_t MOST_KEPT = 1000;    // lines that a table hides
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

void Display::setTop(Top *top)
{
    _top = top;
    if (top)
        return;
    if (auto const number = std::exchange(_nbDropped, 0); number > 0)
        print(format("  (%zu earlier lines were not kept)", number));
    for (auto const &text : std::exchange(_kept, {}))
        print(text);
}

void Display::line(std::string const &text)
{
    if (_top)
        _top->line(text);
    if (!_top || !_isTerminal)
        return print(text);
    _kept.push_back(text);
    if (_kept.size() > MOST_KEPT) {
        _kept.pop_front();
        ++_nbDropped;
    }
}

void Display::print(std::string const &text)
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

double Display::getShare(double place) const
{
    return _length > 0 ? std::min(place / _length, 1.0) : -1;
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
    double const share = std::max(getShare(place), 0.0);
    int const percent = static_cast<int>(share * 100);
    if (_isTerminal && _top)
        return; // it shows more
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

void Display::row(bool isHead, std::vector<int> const &widths,
                  std::vector<std::string> const &cells)
{
    if (isHead) {
        Table &table = _tables.emplace_back();
        for (std::size_t i = 1; i < widths.size(); ++i)
            if (widths[i] < 0)
                table.textColumns.push_back(i);
    }
    std::string text = " ";
    for (std::size_t i = 0; i < cells.size(); ++i) {
        auto const width = static_cast<std::size_t>(std::abs(widths[i]));
        std::string const gap(width - std::min(width, cells[i].size()), ' ');
        text += ' ';
        text += widths[i] < 0 ? cells[i] + gap : gap + cells[i];
    }
    line(text);
    _tables.back().rows.push_back(cells);
}

void Display::end(std::string const &name, DeviceEnd const *end)
{
    std::vector<std::string> cells{name, end ? end->text : "end"};
    for (char const * const step : {"start", "sync", "recover", "stop", "abort", "close"})
        cells.push_back(end ? getTime(*end, step) : step);
    row(!end, {-10, -22, 10, 10, 10, 10, 10, 10}, cells);
}

void Display::beats(std::string const &name, Metronome::Figures const *figures)
{
    row(!figures, {-10, 8, 17},
        {name, figures ? std::to_string(figures->beats) : "beats",
         figures ? std::to_string(figures->late) : "late beats"});
}

void Display::card(SoundCard &card)
{
    auto const figures = card.getFigures();
    auto const toTime = [&](std::int64_t samples) {
        return format("%.3f ms", 1000.0 * static_cast<double>(samples) / card.getSampleRate());
    };
    std::vector<int> const widths{-10, 12, 10, 16, 10, 16, 14};
    row(true, widths,
        {"sound card", "samples", "underruns", "silence", "overruns", "lost", "late periods"});
    row(false, widths,
        {card.getName(), std::to_string(figures.samples), std::to_string(figures.underruns),
         toTime(figures.silence), std::to_string(figures.overruns), toTime(figures.lost),
         std::to_string(figures.late)});
}

void Display::memory(ShowMemory const &show, MemoryFigures::Figures const &figures)
{
    std::vector<int> const widths{-14, 9, 9, 9, 20, 25};
    row(true, widths, {"memory", "loads", "reloads", "unloads", "prefetch hits", "peak"});
    row(false, widths,
        {show.manager + ", " + show.strategy, std::to_string(figures.loads),
         std::to_string(figures.reloads), std::to_string(figures.unloads),
         format("%ld of %ld", figures.hits, figures.visits),
         format("%lld of %lld bytes", static_cast<long long>(figures.peak),
                static_cast<long long>(show.budget))});
}

void Display::statistics(std::string const &name, PlayoutDevice::Statistics const *figures,
                         double startedAt, double stoppedAt)
{
    std::vector<int> const widths{-10, 8, 17, 17, 17};
    if (!figures) {
        row(true, widths, {name, "blocks", "longest wait", "START to lock", "STOP to final"});
        return;
    }
    auto const lapse = [](double from, double to) {
        return from > 0 && to >= from ? format("%.3f ms", (to - from) * 1000) : std::string("-");
    };
    row(false, widths,
        {name, std::to_string(figures->blocks), format("%.3f ms", figures->longestWait * 1000),
         lapse(startedAt, figures->lockedAt), lapse(stoppedAt, figures->endedAt)});
}
