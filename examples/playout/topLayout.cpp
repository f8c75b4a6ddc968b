#include "topLayout.h"

#include "chart.h"
#include "display.h"
#include "shownText.h"

#include <locale.h>

#include <algorithm>
#include <cwchar>
#include <iterator>
#include <limits>
#include <numeric>
#include <utility>

namespace {

using Row = std::vector<std::string>;
using Style = TopLine::Style;

constexpr int GAP = 2;                    // blanks between columns
constexpr int NARROW_NAME = 12;           // columns that a name keeps while other columns need room
constexpr std::size_t LONGEST_TEXT = 500; // bytes of a name or line that are shown
constexpr double LONG_WORK = 3; // seconds until a device that is at one piece of work is marked
constexpr char CUT[] = "~";     // at the end of a text that was cut

/// While it exists, the calling thread measures texts as UTF-8, in any environment.
class Utf8
{
public:
    Utf8()
        : _made(::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)),
          _former(_made ? ::uselocale(_made) : nullptr)
    {}
    Utf8(Utf8 const &) = delete;
    Utf8 &operator=(Utf8 const &) = delete;
    ~Utf8()
    {
        if (!_made)
            return;
        ::uselocale(_former);
        ::freelocale(_made);
    }

private:
    locale_t _made;
    locale_t _former;
};

/// Returns how many bytes of a text fit into that many columns. `width` becomes the columns that
/// these bytes take.
std::size_t fit(std::string const &text, int columns, int &width)
{
    width = 0;
    std::size_t place = 0;
    std::mbstate_t state = {};
    while (place < text.size()) {
        wchar_t character = 0;
        std::size_t count = std::mbrtowc(&character, &text[place], text.size() - place, &state);
        if (count == 0 || count > text.size()) { // not UTF-8
            count = 1;
            character = L'?';
            state = {};
        }
        int const taken = std::max(::wcwidth(character), 0);
        if (width + taken > columns)
            break;
        width += taken;
        place += count;
    }
    return place;
}

int measure(std::string const &text)
{
    int width = 0;
    fit(text, std::numeric_limits<int>::max(), width);
    return width;
}

/// Returns the text in exactly that many columns.
std::string pad(std::string text, int columns, bool isText)
{
    int width = 0;
    std::size_t kept = fit(text, columns, width);
    if (kept < text.size()) {
        kept = fit(text, std::max(columns - 1, 0), width);
        text.resize(kept);
        if (columns > 0) {
            text += CUT;
            ++width;
        }
    }
    std::string const gap(static_cast<std::size_t>(std::max(columns - width, 0)), ' ');
    return isText ? text + gap : gap + text;
}

std::string toSafe(std::string const &text)
{
    return toShownText(shorten(text, LONGEST_TEXT));
}

std::string toCount(std::int64_t number)
{
    return number < 0 ? "-" : std::to_string(number);
}

std::string toPercent(double share)
{
    return share < 0 ? "-" : format("%.0f %%", share * 100);
}

/// Table whose less important columns may be left out.
class FlexibleTable
{
public:
    struct Column
    {
        char const *head;
        int importance; // 0 for the name, which is always shown
        bool isText = false;
    };

    explicit FlexibleTable(std::vector<Column> columns) : _columns(std::move(columns)) {}

    void add(Row row, Style style)
    {
        _rows.push_back(std::move(row));
        _styles.push_back(style);
    }
    void appendTo(std::vector<TopLine> &lines, int width) const;

private:
    std::vector<int> choose(int width) const;

    std::vector<Column> _columns; // the name first
    std::vector<Row> _rows;
    std::vector<Style> _styles;
};

/// Returns the width of each column, 0 for one that is left out.
std::vector<int> FlexibleTable::choose(int width) const
{
    std::vector<int> needed;
    for (std::size_t i = 0; i < _columns.size(); ++i) {
        needed.push_back(measure(_columns[i].head));
        for (Row const &row : _rows)
            needed.back() = std::max(needed.back(), measure(row[i]));
    }
    std::vector<std::size_t> order(_columns.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        return _columns[a].importance < _columns[b].importance;
    });
    std::vector<int> widths(_columns.size(), 0);
    int left = width - std::min(needed[0], std::min(NARROW_NAME, width));
    for (std::size_t const i : order) {
        if (i == 0)
            continue;
        if (needed[i] + GAP > left)
            break;
        widths[i] = needed[i];
        left -= needed[i] + GAP;
    }
    int const used = std::accumulate(widths.begin(), widths.end(), 0) +
                     GAP * static_cast<int>(std::count_if(widths.begin(), widths.end(),
                                                          [](int each) { return each > 0; }));
    widths[0] = std::min(needed[0], width - used);
    return widths;
}

void FlexibleTable::appendTo(std::vector<TopLine> &lines, int width) const
{
    auto const widths = choose(width);
    auto const append = [&](auto getCell, Style style) {
        std::string text;
        for (std::size_t i = 0; i < _columns.size(); ++i)
            if (widths[i] > 0)
                text += std::string(i == 0 ? 0 : GAP, ' ') +
                        pad(getCell(i), widths[i], _columns[i].isText);
        lines.push_back({text, style});
    };
    append([&](std::size_t i) { return std::string(_columns[i].head); }, Style::HEAD);
    for (std::size_t k = 0; k < _rows.size(); ++k)
        append([&](std::size_t i) { return _rows[k][i]; }, _styles[k]);
}

bool isBad(std::string const &state)
{
    return state == "_exc" || state == "abort" || state == "recover";
}

void appendDevices(std::vector<TopLine> &lines, TopFigures const &figures, int width)
{
    if (figures.devices.empty())
        return;
    FlexibleTable table({{"device", 0, true},
                         {"state", 1, true},
                         {"input", 2},
                         {"queue", 4},
                         {"blocks", 6},
                         {"beats", 7},
                         {"late", 3},
                         {"latest", 5},
                         {"busy", 8}});
    for (TopFigures::Device const &device : figures.devices) {
        bool const isPaced = device.beats >= 0;
        table.add({std::string(static_cast<std::size_t>(std::clamp(device.depth, 0, 8)) * 2, ' ') +
                       toSafe(device.name),
                   device.state.empty() ? "-" : toSafe(device.state),
                   device.blocks < 0 ? "-" : format("%d/%d", device.blocks, device.mostBlocks),
                   toCount(device.waiting), toCount(device.done), toCount(device.beats),
                   isPaced ? toCount(device.late) : "-",
                   isPaced ? format("%.2f ms", device.lateness * 1000) : "-",
                   device.busy < 0.1 ? "-" : format("%.1f s", device.busy)},
                  device.late > 0 || isBad(device.state) || device.busy > LONG_WORK ? Style::ALARM
                                                                                    : Style::PLAIN);
    }
    table.appendTo(lines, width);
}

void appendThreads(std::vector<TopLine> &lines, TopFigures const &figures, int width,
                   bool isByProcessor)
{
    if (figures.threads.empty())
        return;
    auto threads = figures.threads;
    if (isByProcessor)
        std::stable_sort(threads.begin(), threads.end(),
                         [](auto const &a, auto const &b) { return a.share > b.share; });
    FlexibleTable table({{"thread", 0, true},
                         {"level", 1},
                         {"asked", 5, true},
                         {"got", 4, true},
                         {"cpu s", 2},
                         {"cpu %", 3}});
    for (TopFigures::Thread const &thread : threads)
        table.add({toSafe(thread.name), std::to_string(thread.level), thread.asked,
                   thread.got.empty() ? "-" : thread.got,
                   thread.seconds < 0 ? "-" : format("%.2f", thread.seconds),
                   thread.share < 0 ? "-" : format("%.1f", thread.share * 100)},
                  thread.got.empty() || thread.got == thread.asked ? Style::PLAIN : Style::ALARM);
    if (!lines.empty())
        lines.emplace_back();
    table.appendTo(lines, width);
}

/// Returns what is true of the whole show, the most important first.
Row listFacts(TopFigures const &figures)
{
    Row facts;
    std::int64_t beats = -1;
    std::int64_t late = 0;
    for (auto const &device : figures.devices)
        if (device.beats >= 0) {
            beats = std::max<std::int64_t>(beats, 0) + device.beats;
            late += device.late;
        }
    if (beats >= 0)
        facts.push_back("late beats " + toCount(late));
    if (auto const &memory = figures.memory) {
        auto const bytes = static_cast<double>(memory->bytes);
        auto const budget = static_cast<double>(memory->budget);
        facts.push_back("buffers " + toPercent(budget > 0 ? bytes / budget : 0));
        facts.push_back(Chart::toBytes(bytes) + " of " + Chart::toBytes(budget));
    }
    if (auto const &card = figures.card) {
        facts.push_back("underruns " + toCount(card->underruns));
        facts.push_back("overruns " + toCount(card->overruns));
        facts.push_back("late periods " + toCount(card->late));
        if (card->ready >= 0)
            facts.push_back(format("ready %.2f s of %.2f s", card->ready, card->room));
    }
    if (figures.peak >= 0)
        facts.push_back("peak " + Display::toDecibels(figures.peak));
    if (auto const &memory = figures.memory) {
        facts.push_back("loads " + toCount(memory->loads));
        facts.push_back("reloads " + toCount(memory->reloads));
        facts.push_back("unloads " + toCount(memory->unloads));
        facts.push_back(format("prefetch hits %ld of %ld", memory->hits, memory->visits));
        facts.push_back(toSafe(memory->kind));
    }
    if (figures.card)
        facts.push_back(toSafe(figures.card->name));
    return facts;
}

/// Puts facts side by side, on at most that many lines. Those that find no place are left out.
void appendFacts(std::vector<TopLine> &lines, Row const &facts, int width, int mostLines)
{
    int used = 0;
    for (std::string const &fact : facts) {
        int const needed = measure(fact);
        bool const isNext = used > 0 && used + GAP + needed > width;
        if (used == 0 || isNext) {
            if (mostLines-- <= 0)
                return;
            lines.push_back({pad(fact, std::min(needed, width), true), Style::PLAIN});
            used = needed;
        } else {
            lines.back().text += std::string(GAP, ' ') + fact;
            used += GAP + needed;
        }
    }
}

std::string getTitle(TopFigures const &figures)
{
    std::string title = figures.phase;
    if (!figures.position.empty())
        title += " " + figures.position;
    if (figures.share >= 0)
        title += "  " + toPercent(figures.share);
    return title + "  " + toSafe(figures.title);
}

} // namespace

int measureText(std::string const &text)
{
    Utf8 const utf8;
    return measure(text);
}

TopPicture layOutTop(TopFigures const &figures, std::deque<std::string> const &log, int width,
                     int height, TopView view)
{
    if (width <= 0 || height <= 0)
        return {};
    Utf8 const utf8;
    TopPicture picture;
    picture.lines.push_back({pad(getTitle(figures), width, true), Style::TITLE});
    bool const hasLosses =
        figures.card && (figures.card->underruns > 0 || figures.card->overruns > 0);
    appendFacts(picture.lines, listFacts(figures), width,
                height < 3    ? 0
                : height < 8  ? 1
                : height < 16 ? 2
                              : 4);
    for (std::size_t i = 1; i < picture.lines.size() && hasLosses; ++i)
        if (picture.lines[i].text.find("runs") != std::string::npos)
            picture.lines[i].style = Style::ALARM;

    std::vector<TopLine> body;
    appendDevices(body, figures, width);
    appendThreads(body, figures, width, view.isByProcessor);
    if (!log.empty()) {
        if (!body.empty())
            body.emplace_back();
        body.push_back({pad("latest lines", std::min(width, 12), true), Style::HEAD});
    }
    for (auto line = log.rbegin(); line != log.rend(); ++line) {
        std::string const text = toSafe(*line);
        body.push_back({pad(text, std::min(width, measure(text)), true), Style::PLAIN});
    }

    // The last line of a window that is not small names the keys.
    int const keys = height >= 8 ? 1 : 0;
    int const room = std::max(height - keys - static_cast<int>(picture.lines.size()), 0);
    int const most = std::max(static_cast<int>(body.size()) - room, 0);
    picture.scroll = std::clamp(view.scroll, 0, most);
    auto const begin = body.begin() + picture.scroll;
    std::copy(begin, begin + std::min(room, static_cast<int>(body.size())),
              std::back_inserter(picture.lines));
    if (keys > 0) {
        picture.lines.resize(static_cast<std::size_t>(height - 1));
        std::string const text =
            std::string("q end  s ") +
            (view.isByProcessor ? "threads by start" : "busiest threads first") +
            (most > 0 ? format("  arrows scroll, %d more", most - picture.scroll) : "");
        picture.lines.push_back({pad(text, width, true), Style::TITLE});
    }
    return picture;
}
