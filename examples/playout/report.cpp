#include "report.h"

#include "shownText.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <map>
#include <optional>
#include <sstream>

using namespace Zv;

namespace {

using Element = XmlStreamer::ElementGuard;

// Pixels.
constexpr int WIDTH = Waveform::WIDTH;
constexpr int LEFT = 214; // room for the names of devices
constexpr int RIGHT = 20;
constexpr int INDENT = 16;
constexpr int BOTTOM = 26; // room for the times
constexpr int ROW = 26;
constexpr int ROW_DISTANCE = 32;
constexpr int LANE = 44;
constexpr int LANE_DISTANCE = 62;
constexpr int HISTOGRAM = 130;
constexpr int MEMORY = 150;

constexpr std::size_t LONGEST_NAME = 22; // bytes in a chart
// Times that the lanes show, in powers of ten of a second.
constexpr double LEAST_POWER = -5;
constexpr double MOST_POWER = 0;

constexpr char STYLE[] = R"css(
body { margin: 0 auto; max-width: 1240px; padding: 24px 20px 48px; background: #ffffff; color: #1f2933;
  font: 15px/1.5 system-ui, Helvetica, Arial, sans-serif }
h1 { font-size: 24px; line-height: 1.25; margin: 0 0 4px; overflow-wrap: anywhere }
h2 { font-size: 17px; margin: 36px 0 6px } p { margin: 4px 0 10px; max-width: 80ch; overflow-wrap: anywhere }
.note { color: #52606d; font-size: 13px } .failed { border-left: 4px solid #b4232c; padding: 6px 12px; font-weight: 600 }
dl { display: flex; flex-wrap: wrap; gap: 10px 36px; margin: 18px 0 0; padding: 12px 0; border-top: 1px solid #dde2e8;
  border-bottom: 1px solid #dde2e8 }
dt { color: #52606d; font-size: 12px } dd { margin: 0; font-size: 17px; font-variant-numeric: tabular-nums;
  overflow-wrap: anywhere }
.wide { overflow-x: auto } svg { display: block; width: 100%; min-width: 760px; height: auto }
table { border-collapse: collapse; margin: 8px 0 18px; font-size: 13px; font-variant-numeric: tabular-nums }
th, td { padding: 4px 18px 4px 0; text-align: right; border-bottom: 1px solid #dde2e8; white-space: nowrap }
th { color: #52606d; font-weight: 500 } .text, th:first-child, td:first-child { text-align: left; white-space: normal;
  overflow-wrap: anywhere }
@media screen and (prefers-color-scheme: dark) {
body { background: #14181d; color: #eef1f4 } .note, dt, th { color: #a7b1bc } .failed { border-color: #ff8a80 }
dl, th, td { border-color: #2c343d }
}
@media print {
body { padding: 0; font-size: 11pt } section { break-inside: avoid } h2 { break-after: avoid } .wide { overflow: visible }
svg { min-width: 0 } svg, rect, path { print-color-adjust: exact; -webkit-print-color-adjust: exact }
}
@page { margin: 14mm }
)css";

void addText(Element &parent, char const *tag, std::string const &text, char const *style = nullptr)
{
    Element element(parent, tag);
    if (style)
        element.addAttribute("class", style);
    element.addTextData(toMarkup(text).c_str()); // also if it is empty, because of its end tag
}

/// Section with a heading. Programs that read the page find it by its name.
class Section
{
public:
    Section(Element &body, char const *name, char const *heading) : _element(body, "section")
    {
        _element.addAttribute("id", name);
        addText(_element, "h2", heading);
    }

    Element &getElement() { return _element; }
    void note(std::string const &text) { addText(_element, "p", text, "note"); }

private:
    Element _element;
};

/// Place of a chart, which may be wider than a small screen.
class Figure
{
public:
    explicit Figure(Section &section) : _element(section.getElement(), "div")
    {
        _element.addAttribute("class", "wide");
    }
    Element &getElement() { return _element; }

private:
    Element _element;
};

void addTable(Element &parent, Table const &table)
{
    Element element(parent, "table");
    for (std::size_t i = 0; i < table.rows.size(); ++i) {
        Element row(element, "tr");
        for (std::size_t column = 0; column < table.rows[i].size(); ++column)
            addText(row, i == 0 ? "th" : "td", table.rows[i][column],
                    column > 0 && table.isText(column) ? "text" : nullptr);
    }
}

/// The states of the devices, one row for each.
class States
{
public:
    explicit States(Report const &report) : _report(report)
    {
        for (auto const &move : report.records.moves)
            _moves[move.device].push_back(&move);
    }

    void drawInto(Element &page) const
    {
        auto const split = findSplit();
        int const height = getRowsBottom(TOP) + BOTTOM + 6;
        if (split) {
            Chart chart(page, WIDTH, height, "States at the start and at the end");
            drawNames(chart);
            double const middle = (LEFT + WIDTH) / 2.0;
            double const startLength = split->first * 1.06;
            double const endLength = std::max(_report.length - split->second, 1e-6) * 1.06;
            drawPanel(chart, "The first " + Chart::toTime(split->first), 0,
                      Scale(0, startLength, LEFT, middle - 20));
            drawPanel(chart, "The last " + Chart::toTime(_report.length - split->second),
                      split->second, Scale(0, endLength, middle + 10, WIDTH - RIGHT));
        }
        Chart chart(page, WIDTH, height, "States over all of the time");
        drawNames(chart);
        drawPanel(chart, "All of the time", 0,
                  Scale(0, std::max(_report.length, 1e-6), LEFT, WIDTH - RIGHT));
    }

private:
    static constexpr int TOP = 26;

    int getTop(std::size_t row) const { return TOP + static_cast<int>(row) * ROW_DISTANCE; }
    int getRowsBottom(int top) const
    {
        return top + static_cast<int>(_report.devices.size()) * ROW_DISTANCE;
    }

    /// Returns the end of the start and the begin of the end, if most of the time is between them.
    std::optional<std::pair<double, double>> findSplit() const
    {
        auto const &moves = _report.records.moves;
        for (std::size_t i = 1; i < moves.size(); ++i)
            if (moves[i].moment - moves[i - 1].moment > _report.length / 2)
                return std::pair(moves[i - 1].moment, moves[i].moment);
        return {};
    }

    void drawNames(Chart &chart) const
    {
        for (std::size_t row = 0; row < _report.devices.size(); ++row) {
            auto const &device = _report.devices[row];
            double const x = std::min(device.depth, 6) * INDENT;
            double const y = getTop(row) + ROW / 2.0;
            if (device.depth > 0)
                chart.path("axis branch", format("M%g %g v%d h%d", x - INDENT + 5, y - 22, 22, 8));
            chart.text("strong", x, y + 4, shorten(device.name, LONGEST_NAME));
        }
    }

    /// Draws all rows in a part of the time that begins at `begin`.
    void drawPanel(Chart &chart, std::string const &title, double begin, Scale const &scale) const
    {
        int const bottom = getRowsBottom(TOP);
        chart.text("label", scale.getBegin(), TOP - 10, title);
        chart.timeAxis(scale, TOP, bottom);
        for (std::size_t row = 0; row < _report.devices.size(); ++row)
            drawRow(chart, row, begin, scale);
    }

    void drawRow(Chart &chart, std::size_t row, double begin, Scale const &scale) const
    {
        std::string const &device = _report.devices[row].name;
        auto const place = _moves.find(device);
        std::string state = "init";
        double from = 0;
        auto const draw = [&](double to) {
            double const left = scale(std::clamp(from - begin, 0.0, scale.getTo()));
            double const right = scale(std::clamp(to - begin, 0.0, scale.getTo()));
            if (right > left) {
                chart.rect(("state-" + state).c_str(), left, getTop(row), right - left, ROW,
                           device + ": " + state + " for " + Chart::toTime(to - from));
                if (Chart::measure(state) + 4 < right - left)
                    chart.text("onstate", (left + right) / 2, getTop(row) + ROW / 2.0 + 4, state,
                               Chart::Anchor::MIDDLE);
            }
        };
        if (place != _moves.end())
            for (auto const * const move : place->second) {
                draw(move->moment);
                from = move->moment;
                state = move->state;
            }
        draw(std::max(_report.length, begin + scale.getTo()));
    }

    Report const &_report;
    std::map<std::string, std::vector<Journal::Move const *>> _moves; // by device
};

/// Returns "1 request" or "12 requests".
std::string count(std::int64_t number, char const *things)
{
    std::string text = format("%lld %s", static_cast<long long>(number), things);
    if (number == 1)
        text.pop_back();
    return text;
}

/// Lane with the longest time of each span, on a logarithmic scale.
void drawLane(Chart &chart, Scale const &scale, int top, std::string const &name,
              Series const &series, std::string const &figures)
{
    double const bottom = top + LANE;
    Scale const toHeight(LEAST_POWER, MOST_POWER, 0, LANE);
    chart.rect("plot", scale.getBegin(), top, scale.getEnd() - scale.getBegin(), LANE);
    chart.text("strong", 0, top + LANE / 2.0 - 2, shorten(name, LONGEST_NAME - 4));
    chart.text("label", 0, top + LANE / 2.0 + 13, figures);
    for (double const power : {-5.0, -3.0, -1.0}) {
        double const y = bottom - toHeight(power);
        chart.line("grid", scale.getBegin(), y, scale.getEnd(), y);
        chart.text("label", scale.getBegin() - 6, y + 4, Chart::toTime(std::pow(10, power)),
                   Chart::Anchor::END);
    }
    double const length = series.getSpanLength();
    for (std::size_t i = 0; i < series.getSpans().size(); ++i) {
        auto const &span = series.getSpans()[i];
        if (span.count == 0 || static_cast<double>(i) * length >= scale.getTo())
            continue; // what happens after the end is only counted
        double const power = std::log10(std::max(span.largest, 1e-9));
        double const height = std::max(toHeight(std::clamp(power, LEAST_POWER, MOST_POWER)), 3.0);
        double const left = scale(static_cast<double>(i) * length);
        double const right = scale(std::min(static_cast<double>(i + 1) * length, scale.getTo()));
        chart.rect("bar", left, bottom - height, std::max(right - left, 1.0), height);
    }
}

void addLanes(Report const &report, Element &body)
{
    Section section(body, "lanes", "Requests and loads");
    auto const &records = report.records;
    bool const hasLoads = records.loads.getCount() > 0;
    auto const nbLanes = static_cast<int>(report.devices.size()) + (hasLoads ? 2 : 0);
    section.note("A column is the longest time in its part of the show. The scale is logarithmic, "
                 "from 10 µs to 1 s. A request includes its wait for the next device.");
    Figure figure(section);
    int const top = 10;
    int const bottom = top + nbLanes * LANE_DISTANCE - (LANE_DISTANCE - LANE);
    Chart chart(figure.getElement(), WIDTH, bottom + BOTTOM, "Requests and loads over time");
    Scale const scale(0, std::max(report.length, 1e-6), LEFT, WIDTH - RIGHT);
    int lane = 0;
    auto const draw = [&](std::string const &name, Series const &series, char const *things,
                          bool hasTimes = true) {
        std::string const longest =
            hasTimes && series.getCount() ? ", " + Chart::toTime(series.getLargest()) : "";
        drawLane(chart, scale, top + lane++ * LANE_DISTANCE, name, series,
                 count(series.getCount(), things) + longest);
    };
    for (auto const &device : report.devices) {
        auto const place = records.requests.find(device.name);
        draw(device.name, place == records.requests.end() ? Series() : place->second, "requests");
    }
    if (hasLoads) {
        draw("clips", records.loads, "loads");
        draw("clips", records.unloads, "unloads", false);
    }
    chart.timeAxis(scale, bottom, bottom);
}

void drawHistogram(Chart &chart, std::string const &device, Histogram const &histogram, double left,
                   double right, double top)
{
    auto const &counts = histogram.getCounts();
    auto const most = *std::max_element(counts.begin(), counts.end());
    double const bottom = top + HISTOGRAM;
    double const step = (right - left) / static_cast<double>(counts.size());
    chart.text("strong", left, top - 24, shorten(device, 3 * LONGEST_NAME));
    chart.rect("plot", left, top, right - left, HISTOGRAM);
    for (std::size_t i = 0; i < counts.size(); ++i) {
        double const x = left + static_cast<double>(i) * step;
        double const height =
            most ? static_cast<double>(counts[i]) / static_cast<double>(most) * (HISTOGRAM - 18)
                 : 0;
        if (counts[i] > 0) {
            chart.rect("bar", x + 1, bottom - std::max(height, 1.0), step - 2,
                       std::max(height, 1.0));
            chart.text("label", x + step / 2, bottom - std::max(height, 1.0) - 4,
                       format("%lld", static_cast<long long>(counts[i])), Chart::Anchor::MIDDLE);
        }
        // Every second bound, because their labels are wider than the columns.
        if (i < Histogram::BOUNDS.size()) {
            chart.line("axis", x + step, bottom, x + step, bottom + 4);
            if (i % 2 == 0)
                chart.text("label", x + step, bottom + Chart::LINE_HEIGHT + 1,
                           Chart::toTime(Histogram::BOUNDS[i]), Chart::Anchor::MIDDLE);
        }
    }
    chart.line("axis", left, bottom, right, bottom);
}

void addLateness(Report const &report, Element &body)
{
    Section section(body, "lateness", "Lateness of the clock");
    auto const &lateness = report.records.lateness;
    if (lateness.empty())
        return section.note("No clock has paced the show.");
    section.note("Number of beats by the time from the moment at which they were due until the "
                 "device's thread of the clock had them. The earliest beat counts as one in time.");
    Figure figure(section);
    constexpr int DISTANCE = HISTOGRAM + 78;
    auto const nbRows = static_cast<int>((lateness.size() + 1) / 2);
    Chart chart(figure.getElement(), WIDTH, nbRows * DISTANCE,
                "Histogram of the lateness of beats");
    int number = 0;
    for (auto const &[device, histogram] : lateness) {
        double const left = number % 2 * (WIDTH / 2.0 + 10);
        double const top = 38 + number / 2 * DISTANCE;
        drawHistogram(chart, device, histogram, left, left + WIDTH / 2.0 - 10, top);
        chart.text("label", left, top - 9,
                   count(histogram.getCount(), "beats") + ", the latest by " +
                       Chart::toTime(histogram.getLongest()));
        ++number;
    }
}

void addMemory(Report const &report, Element &body)
{
    Section section(body, "memory", "Memory under the budget");
    Series const &bytes = report.records.bytes;
    if (report.budget == 0)
        return section.note("The show has no budget of memory.");
    auto const budget = static_cast<double>(report.budget);
    section.note("Memory of the clips. The dashed line is the budget of " + Chart::toBytes(budget) +
                 ", and the largest use was " + Chart::toBytes(bytes.getLargest()) + ".");
    Figure figure(section);
    double const top = 12;
    double const bottom = top + MEMORY;
    Chart chart(figure.getElement(), WIDTH, bottom + BOTTOM, "Memory over time");
    Scale const toX(0, std::max(report.length, 1e-6), 80, WIDTH - RIGHT);
    double const most = std::max(budget, bytes.getLargest());
    Scale const toY(0, most * 1.08, bottom, top);
    chart.rect("plot", toX.getBegin(), top, toX.getEnd() - toX.getBegin(), MEMORY);
    double const step = std::exp2(std::ceil(std::log2(std::max(most, 4.0) / 4)));
    for (double value = 0; value <= most * 1.08; value += step) {
        chart.line("grid", toX.getBegin(), toY(value), toX.getEnd(), toY(value));
        chart.text("label", toX.getBegin() - 6, toY(value) + 4,
                   value > 0 ? Chart::toBytes(value) : "0", Chart::Anchor::END);
    }
    chart.timeAxis(toX, top, bottom);
    std::string path = format("M%g %g", toX(0), toY(0));
    double last = 0;
    auto const &spans = bytes.getSpans();
    for (std::size_t i = 0; i < spans.size(); ++i) {
        double const moment = static_cast<double>(i) * bytes.getSpanLength();
        if (moment > report.length)
            break;
        double const value = spans[i].count ? spans[i].largest : last;
        double const end = std::min(moment + bytes.getSpanLength(), report.length);
        path += format(" L%.2f %.2f L%.2f %.2f", toX(moment), toY(value), toX(end), toY(value));
        if (spans[i].count)
            last = spans[i].last;
    }
    path += format(" L%.2f %.2f L%.2f %.2f L%.2f %.2f Z", toX(report.length), toY(last),
                   toX(report.length), toY(last), toX(report.length), toY(0));
    chart.path("area", path);
    chart.line("limit", toX.getBegin(), toY(budget), toX.getEnd(), toY(budget));
}

void addThreads(Report const &report, Element &body)
{
    Section section(body, "threads", "Levels of the threads");
    if (report.threads.empty())
        return section.note("The devices have not been at work together.");
    section.note("What the library has asked the system for, and what the threads have got, when "
                 "all devices were locked. Level 0 is idle, and level 6 is time-critical.");
    Table table{{{"thread", "level", "asked for", "got", ""}}, {2, 3, 4}};
    for (auto const &thread : report.threads)
        table.rows.push_back({thread.name, std::to_string(thread.level), thread.asked, thread.got,
                              thread.asked == thread.got ? "as asked" : "not granted"});
    addTable(section.getElement(), table);
}

void addEvents(Report const &report, Element &body)
{
    if (report.events.empty() && report.otherEvents.empty())
        return;
    Section section(body, "events", "Events");
    Table table{{{"timecode", "event", ""}}, {1, 2}};
    auto const add = [&](std::vector<Cues::Cue> const &cues, char const *result) {
        for (auto const &cue : cues)
            table.rows.push_back({report.timeline->getTimecode(cue.frame), cue.text, result});
    };
    add(report.events, "carried out");
    add(report.otherEvents, "not reached");
    addTable(section.getElement(), table);
}

void addBody(Report const &report, Element &body)
{
    addText(body, "h1", report.title);
    {
        Element result(body, "p");
        result.addAttribute("id", "result");
        if (report.hasFailed)
            result.addAttribute("class", "failed");
        result.addTextData(
            toMarkup((report.hasFailed ? "The show has failed: " : "") + report.result).c_str());
    }
    {
        Element list(body, "dl");
        for (auto const &[name, value] : report.facts) {
            Element fact(list, "div");
            addText(fact, "dt", name);
            addText(fact, "dd", value);
        }
    }
    {
        Section section(body, "waveform", "Waveform");
        if (report.waveform) {
            Figure figure(section);
            report.waveform->drawInto(figure.getElement(), report.timeline, report.events);
        } else {
            section.note(
                "There is none, because nothing was recorded or its device has not ended.");
        }
    }
    {
        Section section(body, "states", "Devices and their states");
        section.note("A device waits in wsr until its children are ready, in wml until its parent "
                     "locks, and in wss until its children have stopped.");
        if (report.records.nbDroppedMoves)
            section.note(count(report.records.nbDroppedMoves, "later changes") +
                         " of state were left out.");
        Figure figure(section);
        States(report).drawInto(figure.getElement());
    }
    addLanes(report, body);
    addLateness(report, body);
    addMemory(report, body);
    addThreads(report, body);
    addEvents(report, body);
    Section section(body, "tables", "Closing tables");
    for (Table const &table : report.tables) {
        Element wide(section.getElement(), "div");
        wide.addAttribute("class", "wide");
        addTable(wide, table);
    }
}

} // namespace

std::string Report::toPage() const
{
    std::ostringstream page;
    {
        XmlStreamer streamer(page, false, "html");
        Element html(streamer, "html");
        html.addAttribute("xmlns", "http://www.w3.org/1999/xhtml");
        html.addAttribute("lang", "en");
        {
            Element head(html, "head");
            {
                Element charset(head, "meta");
                charset.addAttribute("charset", "utf-8");
            }
            {
                Element viewport(head, "meta");
                viewport.addAttribute("name", "viewport");
                viewport.addAttribute("content", "width=device-width");
            }
            {
                Element scheme(head, "meta");
                scheme.addAttribute("name", "color-scheme");
                scheme.addAttribute("content", "light dark");
            }
            addText(head, "title", title);
            Element style(head, "style");
            style.addTextData((std::string(STYLE) + Chart::STYLE).c_str());
        }
        Element body(html, "body");
        addBody(*this, body);
    }
    return page.str();
}
