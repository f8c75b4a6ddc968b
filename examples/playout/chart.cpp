#include "chart.h"

#include "display.h"
#include "shownText.h"

#include <algorithm>
#include <cmath>
#include <iterator>

using namespace Zv;

namespace {

constexpr double WIDEST_CHARACTER = 0.64; // of the size of the font, on the average of a label
constexpr double TIME_LABEL = 75;         // pixels for each label of a time axis

/// Unit of the labels of an axis, and the shortest range that has it.
struct Unit
{
    double seconds;
    char const *name;
};
constexpr Unit UNITS[] = {{1, "s"}, {1e-3, "ms"}, {1e-6, "µs"}};

/// Returns the unit in which a time is a number from 1 to 1000.
Unit const &getUnit(double seconds)
{
    auto const * const place = std::find_if(std::begin(UNITS), std::end(UNITS), [&](auto const &u) {
        return seconds >= u.seconds * (1 - 1e-9);
    });
    return place == std::end(UNITS) ? std::end(UNITS)[-1] : *place;
}

/// Returns the shortest round step that is not shorter than `least` seconds.
double getStep(double least)
{
    for (double const step : {1.0, 2.0, 5.0, 10.0, 15.0, 30.0, 60.0, 120.0, 300.0, 600.0, 900.0,
                              1800.0, 3600.0, 7200.0, 14400.0})
        if (least > 0.5 && step >= least)
            return step;
    double const power = std::pow(10, std::floor(std::log10(std::max(least, 1e-9))));
    for (double const factor : {1.0, 2.0, 5.0})
        if (factor * power >= least * (1 - 1e-9))
            return factor * power;
    return 10 * power;
}

/// Returns "1:30" or "1:00:00".
std::string toClock(double seconds, bool hasHours)
{
    auto const all = std::llround(seconds);
    long long const hours = hasHours ? all / 3600 : 0;
    long long const minutes = all / 60 - hours * 60;
    return hasHours ? format("%lld:%02lld:%02lld", hours, minutes, all % 60)
                    : format("%lld:%02lld", minutes, all % 60);
}

void addTip(XmlStreamer::ElementGuard &element, std::string const &tip)
{
    if (tip.empty())
        return;
    XmlStreamer::ElementGuard title(element, "title");
    title.addTextData(toMarkup(tip).c_str());
}

char const *getName(Chart::Anchor anchor)
{
    switch (anchor) {
    case Chart::Anchor::START:
        return "start";
    case Chart::Anchor::MIDDLE:
        return "middle";
    case Chart::Anchor::END:
        return "end";
    }
    return "";
}

} // namespace

char const * const Chart::STYLE = R"css(
.ground { fill: #ffffff } .plot { fill: #f5f7fa }
.label { fill: #52606d } .strong { fill: #1f2933; font-weight: 600 } .onstate { fill: #1f2933 }
.grid { stroke: #dde2e8 } .axis { stroke: #9aa5b1 }
.branch { fill: none }
.wave { fill: #2f6f9f } .bar { fill: #2f6f9f } .area { fill: #2f6f9f; fill-opacity: 0.3 }
.event { stroke: #b4232c } .eventtext { fill: #b4232c } .limit { stroke: #b4232c; stroke-dasharray: 5 3 }
.state-init, .state-final { fill: #cbd2d9 } .state-start { fill: #f2c94c } .state-wsr { fill: #f2994a }
.state-ready { fill: #bb9af0 } .state-wml { fill: #9fb3c8 } .state-sync { fill: #73b3e0 }
.state-lock, .state-mlock { fill: #63c08a } .state-recover { fill: #f7b267 } .state-wss { fill: #e8a598 }
.state-stop, .state-stopped { fill: #d98880 } .state-abort, .state-aborted, .state-_exc { fill: #e5534b }
@media screen and (prefers-color-scheme: dark) {
.ground { fill: #14181d } .plot { fill: #1b2128 }
.label { fill: #a7b1bc } .strong { fill: #eef1f4 }
.grid { stroke: #2c343d } .axis { stroke: #66727f }
.wave { fill: #6cb2e3 } .bar { fill: #6cb2e3 } .area { fill: #6cb2e3 }
.event { stroke: #ff8a80 } .eventtext { fill: #ff8a80 } .limit { stroke: #ff8a80 }
}
)css";

std::string toMarkup(std::string_view text)
{
    std::string markup;
    for (char const c : toShownText(text))
        switch (c) {
        case '&':
            markup += "&amp;";
            break;
        case '<':
            markup += "&lt;";
            break;
        case '>':
            markup += "&gt;";
            break;
        default:
            markup += c;
        }
    return markup;
}

Chart::Chart(XmlStreamer &streamer, double width, double height, std::string const &title)
    : _element(streamer, "svg")
{
    _element.addAttribute("xmlns", "http://www.w3.org/2000/svg");
    begin(width, height, title);
    {
        XmlStreamer::ElementGuard style(_element, "style");
        style.addTextData(STYLE);
    }
    rect("ground", 0, 0, width, height);
}

Chart::Chart(XmlStreamer::ElementGuard &parent, double width, double height,
             std::string const &title)
    : _element(parent, "svg")
{
    _element.addAttribute("xmlns", "http://www.w3.org/2000/svg");
    begin(width, height, title);
}

void Chart::begin(double width, double height, std::string const &title)
{
    _element.addAttribute("viewBox", format("0 0 %g %g", width, height).c_str());
    _element.addAttribute("font-family", "system-ui, Helvetica, Arial, sans-serif");
    _element.addAttribute("font-size", FONT_SIZE);
    _element.addAttribute("role", "img");
    _element.addAttribute("aria-label", toShownText(title).c_str());
}

void Chart::line(char const *style, double x1, double y1, double x2, double y2,
                 std::string const &tip)
{
    XmlStreamer::ElementGuard line(_element, "line");
    line.addAttribute("class", style);
    line.addAttribute("x1", x1);
    line.addAttribute("y1", y1);
    line.addAttribute("x2", x2);
    line.addAttribute("y2", y2);
    addTip(line, tip);
}

void Chart::rect(char const *style, double x, double y, double width, double height,
                 std::string const &tip)
{
    XmlStreamer::ElementGuard rect(_element, "rect");
    rect.addAttribute("class", style);
    rect.addAttribute("x", x);
    rect.addAttribute("y", y);
    rect.addAttribute("width", std::max(width, 0.0));
    rect.addAttribute("height", std::max(height, 0.0));
    addTip(rect, tip);
}

void Chart::path(char const *style, std::string const &data)
{
    XmlStreamer::ElementGuard path(_element, "path");
    path.addAttribute("class", style);
    path.addAttribute("d", data.c_str());
}

void Chart::text(char const *style, double x, double y, std::string const &text, Anchor anchor)
{
    XmlStreamer::ElementGuard element(_element, "text");
    element.addAttribute("class", style);
    element.addAttribute("x", x);
    element.addAttribute("y", y);
    element.addAttribute("text-anchor", getName(anchor));
    element.addTextData(toMarkup(text).c_str());
}

void Chart::timeAxis(Scale const &scale, double top, double bottom)
{
    auto const most = static_cast<int>((scale.getEnd() - scale.getBegin()) / TIME_LABEL);
    for (Tick const &tick : getTimes(scale, std::max(most, 2))) {
        double const x = scale(tick.value);
        line("grid", x, top, x, bottom + 4);
        text("label", x, bottom + LINE_HEIGHT + 1, tick.label, Anchor::MIDDLE);
    }
    line("axis", scale.getBegin(), bottom, scale.getEnd(), bottom);
}

std::vector<Chart::Tick> Chart::getTimes(Scale const &scale, int most)
{
    double const from = scale.getFrom();
    double const to = scale.getTo();
    if (to <= from)
        return {{from, "0 s"}};
    double const step = getStep((to - from) / most);
    double const farthest = std::max(std::abs(from), std::abs(to));
    Unit const &unit = getUnit(farthest);
    std::vector<Tick> ticks;
    for (double i = std::ceil(from / step - 1e-9); i * step <= to + step * 1e-9; ++i) {
        double const value = i * step + 0.0; // not -0
        ticks.push_back({value, farthest >= 60 && step >= 1
                                    ? toClock(value, farthest >= 3600)
                                    : format("%.6g %s", value / unit.seconds, unit.name)});
    }
    return ticks;
}

std::string Chart::toTime(double seconds)
{
    if (seconds >= 60)
        return toClock(seconds, seconds >= 3600);
    Unit const &unit = getUnit(seconds);
    return format("%.3g %s", seconds / unit.seconds, unit.name);
}

std::string Chart::toBytes(double bytes)
{
    for (auto const &[size, name] : {std::pair(1024.0 * 1024 * 1024, "GiB"),
                                     std::pair(1024.0 * 1024, "MiB"), std::pair(1024.0, "KiB")})
        if (bytes >= size)
            return format("%.4g %s", bytes / size, name);
    return format("%.0f bytes", bytes);
}

double Chart::measure(std::string const &text)
{
    auto const characters = std::count_if(text.begin(), text.end(),
                                          [](unsigned char byte) { return (byte & 0xC0) != 0x80; });
    return static_cast<double>(characters) * FONT_SIZE * WIDEST_CHARACTER;
}
