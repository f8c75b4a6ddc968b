// Draws docs/buffer-machine.svg: the states of a memory buffer and what leads from one to the other.
//
// The states, the events and the work of a state are read from the table of the machine. This file holds only places.
// The program fails if the table has a change of state that has no route here, or if a route has no change of state.

#include "resmgt/memoryBuffers/mbStateTable.private.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace Zv;
using enum MbStateId;

/// In columns and rows, which need not be whole.
struct Point
{
    double column;
    double row;
};

struct Pixel
{
    int x;
    int y;
};

constexpr double columns[] = {115, 370, 620, 810, 1030, 1290, 1500};
constexpr int ROW_HEIGHT = 74;
constexpr int TOP = 148;
constexpr int WIDTH = 1580;
constexpr int HEIGHT = 1030;

Pixel pixelOf(Point point)
{
    auto const whole = static_cast<std::size_t>(std::clamp(std::floor(point.column), 0.0, 5.0));
    double const part = point.column - static_cast<double>(whole);
    double const x = columns[whole] + part * (columns[whole + 1] - columns[whole]);
    return {static_cast<int>(std::lround(x)),
            static_cast<int>(std::lround(TOP + point.row * ROW_HEIGHT))};
}

struct Box
{
    MbStateId state;
    Point centre;
    int width = 176;
    int height = 46;
    bool isCopy = false; ///< a second box of a state that is far away
};

// clang-format off
constexpr Box boxes[] = {
    {RD_LOCKED,              {2.895, -1.25}, 1540, 34},
    {WR_LOCKED,              {2.895, 11.25}, 1540, 34},
    {FREED,                  {0, 2.5},      116, 246},
    {UNLOADED,               {0, 7.5},      116, 246},
    {LOADED,                 {3, 5},         90, 660},
    {SYNCHED,                {6, 5},         90, 760},
    {BEING_RD_LOADED,        {0, -0.2},        176, 62},
    {RD_LOCKED_FREED,        {1, 0},        150, 30},
    {BEING_FREED,            {1, 1}},
    {BEING_ASYNC_LOADED,     {1, 2}},
    {WAIT_ASYNC_LOADED,      {2, 2},        150, 30},
    {ASYNC_LOAD_FAILED,      {1, 3}},
    {ASYNC_LOAD_SUCCEEDED,   {2, 3}},
    {BEING_WR_LOADED,        {1, 4},        176, 62},
    {DESTROYED,              {0.13, 5},     92, 30, true},
    {BEING_RD_RELOADED,      {1, 6},        176, 62},
    {BEING_ASYNC_RELOADED,   {1, 7}},
    {WAIT_ASYNC_RELOADED,    {2, 7},        150, 30},
    {ASYNC_RELOAD_FAILED,    {1, 8}},
    {ASYNC_RELOAD_SUCCEEDED, {2, 8}},
    {BEING_UNLOADED,         {1, 9}},
    {BEING_WR_RELOADED,      {0, 10.2},       176, 62},
    {WR_LOCKED_FREED,        {1, 10},       150, 30},
    {BEING_SYNCHED,          {4, 1.7}},
    {BEING_DESTROYED,        {4, 3.4}},
    {DESTROYED,              {5, 3.4},       92, 30},
    {BEING_UNLOCKED,         {4, 5}},
    {BEING_ASYNC_SYNCHED,    {4, 7}},
    {WAIT_ASYNC_SYNCHED,     {5, 7},        150, 30},
    {ASYNC_SYNC_FAILED,      {4, 8}},
    {ASYNC_SYNC_SUCCEEDED,   {5, 8}},
};
// clang-format on

Box const &boxOf(MbStateId state, bool isCopy)
{
    for (Box const &box : boxes)
        if (box.state == state && box.isCopy == isCopy)
            return box;
    throw std::runtime_error(std::string("no box for ") + MbTable::rowOf(state).name);
}

enum class Side
{
    LEFT,
    RIGHT
};

/// The way of an arrow. The parts inside the two boxes are cut off.
struct Route
{
    MbStateId from;
    MbStateId to;
    std::vector<Point> points;
    Side side = Side::RIGHT; ///< of the text; above, if the first part is level
    double at = 0.5;         ///< where on the first part the text is
    bool isToCopy = false;
};

// clang-format off
std::vector<Route> const routes = {
    {FREED,                  BEING_RD_LOADED,        {{0, 1.5}, {0, -0.2}}},
    {BEING_RD_LOADED,        RD_LOCKED,              {{0, -0.2}, {0, -1.25}}},
    {FREED,                  BEING_WR_LOADED,        {{0, 4}, {1, 4}}},
    {BEING_WR_LOADED,        WR_LOCKED,              {{1, 4}, {1.42, 4}, {1.42, 11.25}}},
    {FREED,                  BEING_ASYNC_LOADED,     {{0, 2}, {1, 2}}},
    {BEING_ASYNC_LOADED,     WAIT_ASYNC_LOADED,      {{1, 2}, {2, 2}}},
    {WAIT_ASYNC_LOADED,      ASYNC_LOAD_SUCCEEDED,   {{2, 2}, {2, 3}}},
    {WAIT_ASYNC_LOADED,      ASYNC_LOAD_FAILED,      {{2, 2}, {1, 3}}, Side::LEFT},
    {ASYNC_LOAD_SUCCEEDED,   LOADED,                 {{2, 3}, {3, 3}}},
    {ASYNC_LOAD_FAILED,      FREED,                  {{1, 3}, {0, 3}}},
    {FREED,                  DESTROYED,              {{0.13, 4}, {0.13, 5}}, Side::RIGHT, 0.5, true},
    {UNLOADED,               BEING_RD_RELOADED,      {{0, 6}, {1, 6}}},
    {BEING_RD_RELOADED,      RD_LOCKED,              {{1, 6}, {1.48, 6}, {1.48, -1.25}}},
    {UNLOADED,               BEING_WR_RELOADED,      {{0, 9}, {0, 10.2}}},
    {BEING_WR_RELOADED,      WR_LOCKED,              {{0, 10.2}, {0, 11.25}}},
    {UNLOADED,               BEING_ASYNC_RELOADED,   {{0, 7}, {1, 7}}},
    {BEING_ASYNC_RELOADED,   WAIT_ASYNC_RELOADED,    {{1, 7}, {2, 7}}},
    {WAIT_ASYNC_RELOADED,    ASYNC_RELOAD_SUCCEEDED, {{2, 7}, {2, 8}}},
    {WAIT_ASYNC_RELOADED,    ASYNC_RELOAD_FAILED,    {{2, 7}, {1, 8}}, Side::LEFT},
    {ASYNC_RELOAD_SUCCEEDED, LOADED,                 {{2, 8}, {3, 8}}},
    {ASYNC_RELOAD_FAILED,    UNLOADED,               {{1, 8}, {0, 8}}},
    {UNLOADED,               FREED,                  {{-0.12, 6}, {-0.12, 4}}, Side::LEFT},
    {UNLOADED,               DESTROYED,              {{0.13, 6}, {0.13, 5}}, Side::RIGHT, 0.5, true},
    {LOADED,                 RD_LOCKED,              {{3, 1}, {3, -1.25}}},
    {LOADED,                 WR_LOCKED,              {{3, 9}, {3, 11.25}}},
    {LOADED,                 BEING_SYNCHED,          {{3, 1.7}, {4, 1.7}}},
    {BEING_SYNCHED,          SYNCHED,                {{4, 1.7}, {6, 1.7}}},
    {LOADED,                 BEING_ASYNC_SYNCHED,    {{3, 7}, {4, 7}}},
    {BEING_ASYNC_SYNCHED,    WAIT_ASYNC_SYNCHED,     {{4, 7}, {5, 7}}},
    {WAIT_ASYNC_SYNCHED,     ASYNC_SYNC_SUCCEEDED,   {{5, 7}, {5, 8}}},
    {WAIT_ASYNC_SYNCHED,     ASYNC_SYNC_FAILED,      {{5, 7}, {4, 8}}, Side::LEFT},
    {ASYNC_SYNC_SUCCEEDED,   SYNCHED,                {{5, 8}, {6, 8}}},
    {ASYNC_SYNC_FAILED,      LOADED,                 {{4, 8}, {3, 8}}},
    {LOADED,                 BEING_UNLOADED,         {{3, 9}, {1, 9}}},
    {BEING_UNLOADED,         UNLOADED,               {{1, 9}, {0, 9}}},
    {LOADED,                 BEING_FREED,            {{3, 1}, {1, 1}}},
    {BEING_FREED,            FREED,                  {{1, 1}, {0, 1}}},
    {LOADED,                 BEING_DESTROYED,        {{3, 3.4}, {4, 3.4}}},
    {BEING_DESTROYED,        DESTROYED,              {{4, 3.4}, {5, 3.4}}},
    {SYNCHED,                RD_LOCKED,              {{6, 1}, {6, -1.25}}},
    {SYNCHED,                WR_LOCKED,              {{6, 9}, {6, 11.25}}},
    {SYNCHED,                BEING_UNLOADED,         {{6, 9.7}, {1.6, 9.7}, {1.6, 9.15}, {1, 9.15}}},
    {SYNCHED,                BEING_FREED,            {{6, 0.2}, {1.6, 0.2}, {1.6, 0.85}, {1, 0.85}}},
    {SYNCHED,                DESTROYED,              {{6, 3.4}, {5, 3.4}}},
    {RD_LOCKED,              BEING_UNLOCKED,         {{4.5, -1.25}, {4.5, 4.85}, {4, 4.85}}, Side::RIGHT, 0.06},
    {WR_LOCKED,              BEING_UNLOCKED,         {{4.5, 11.25}, {4.5, 5.15}, {4, 5.15}}, Side::RIGHT, 0.06},
    {BEING_UNLOCKED,         LOADED,                 {{4, 5}, {3, 5}}},
    {RD_LOCKED,              RD_LOCKED_FREED,        {{1, -1.25}, {1, 0}}},
    {RD_LOCKED_FREED,        BEING_FREED,            {{1, 0}, {1, 1}}},
    {WR_LOCKED,              WR_LOCKED_FREED,        {{1, 11.25}, {1, 10}}},
    {WR_LOCKED_FREED,        BEING_FREED,            {{1, 10}, {1.54, 10}, {1.54, 1.15}, {1, 1.15}}, Side::RIGHT, 1.3},
};
// clang-format on

/// A change of state, and the text of its arrow.
struct Change
{
    MbStateId from;
    MbStateId to;
    std::string text;
};

std::vector<Change> changesOfTable()
{
    std::vector<Change> changes;
    for (MbStateRow const &row : MbTable::states) {
        for (std::size_t column = 0; column < std::size(row.reactions); ++column) {
            MbReaction const reaction = row.reactions[column];
            if (reaction.next == NONE)
                continue;
            std::string text = MbTable::eventNames[column];
            if (reaction.kind == MbReaction::ADD_LOCK)
                text += ", +1";
            else if (reaction.kind == MbReaction::DROP_LOCK)
                text += ", last";
            else if (reaction.kind == MbReaction::DEALLOCATE)
                text += ", dealloc";
            changes.push_back({row.state, reaction.next, text});
        }
    }
    for (MbEnteringRow const &row : MbTable::enterings)
        if (row.next != NONE)
            changes.push_back({row.state, row.next, ""});
    return changes;
}

bool isTransient(MbStateId state)
{
    MbEnteringRow const * const row = MbTable::enteringOf(state);
    return row && row->next != NONE;
}

/// What a transient state does, in the lines of its box.
std::vector<std::string> workOf(MbStateId state)
{
    std::vector<std::string> lines;
    MbEnteringRow const * const row = MbTable::enteringOf(state);
    if (!row || row->next == NONE)
        return lines;
    if (row->before == MbStep::ALLOCATE)
        lines.emplace_back("allocateRegion");
    std::string calls = std::string(row->calls.first.name) + "()";
    if (row->calls.second.name)
        calls += std::string(", ") + row->calls.second.name + "()";
    lines.push_back(calls);
    if (row->after == MbStep::ADD_LOCK)
        lines.emplace_back("lock count +1");
    else if (row->after == MbStep::DEALLOCATE)
        lines.emplace_back("deallocateRegion");
    return lines;
}

class Drawing
{
public:
    void draw()
    {
        begin();
        drawRoutes();
        for (Box const &box : boxes)
            drawBox(box);
        // Texts come last, so that no line crosses them.
        _svg << _labels.str() << "</svg>\n";
    }
    std::string text() const { return _svg.str(); }

private:
    void begin()
    {
        _svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << WIDTH << "\" height=\""
             << HEIGHT << "\" viewBox=\"0 0 " << WIDTH << ' ' << HEIGHT << "\">\n"
             << "<title>The states of a memory buffer</title>\n"
             << "<style>\n"
                "text { font: 12px sans-serif; text-anchor: middle; fill: #222 }\n"
                ".name { font-weight: bold }\n"
                ".event { paint-order: stroke; stroke: #fff; stroke-width: 5px; fill: #06c }\n"
                ".right { text-anchor: start }\n"
                ".left { text-anchor: end }\n"
                "rect { stroke: #444; stroke-width: 1 }\n"
                ".stable { fill: #d8ecd8; stroke-width: 2 }\n"
                ".transient { fill: #f6f1e1 }\n"
                ".copy { fill: #fff; stroke-dasharray: 4 3 }\n"
                "path { fill: none; stroke: #666; stroke-width: 1.3; marker-end: url(#arrow) }\n"
                "</style>\n"
                "<marker id=\"arrow\" viewBox=\"0 0 8 8\" refX=\"8\" refY=\"4\" markerWidth=\"8\" "
                "markerHeight=\"8\" orient=\"auto\"><polygon points=\"0,0 8,4 0,8\" "
                "fill=\"#666\"/></marker>\n"
             << "<rect width=\"" << WIDTH << "\" height=\"" << HEIGHT
             << "\" style=\"fill: #fff; stroke: none\"/>\n";
        note(24,
             "Green: stable states. Sand: transient states, with what is done when the state is "
             "entered. The state at the arrow then follows at once.");
        note(HEIGHT - 8,
             "Blue: events. +1: the lock count goes up. last: the lock count has come to "
             "0. dealloc: deallocateRegion comes first. Events that leave the state "
             "as it is are not shown.");
    }

    void note(int y, char const *text)
    {
        _labels << "<text class=\"right\" x=\"20\" y=\"" << y << "\">" << text << "</text>\n";
    }

    void drawBox(Box const &box)
    {
        Pixel const centre = pixelOf(box.centre);
        char const * const kind = box.isCopy               ? "copy"
                                  : isTransient(box.state) ? "transient"
                                                           : "stable";
        _svg << "<rect class=\"" << kind << "\" x=\"" << centre.x - box.width / 2 << "\" y=\""
             << centre.y - box.height / 2 << "\" width=\"" << box.width << "\" height=\""
             << box.height << "\" rx=\"6\"/>\n";
        std::vector<std::string> const work = workOf(box.state);
        int y = centre.y + 4 - static_cast<int>(work.size()) * 7;
        print("name", centre.x, y, MbTable::rowOf(box.state).name);
        for (std::string const &line : work)
            print("", centre.x, y += 14, line);
    }

    void print(char const *kind, int x, int y, std::string const &text)
    {
        _labels << "<text class=\"" << kind << "\" x=\"" << x << "\" y=\"" << y << "\">" << text
                << "</text>\n";
    }

    void drawRoutes()
    {
        std::vector<Change> changes = changesOfTable();
        for (Route const &route : routes) {
            auto const change =
                std::find_if(changes.begin(), changes.end(), [&](Change const &candidate) {
                    return candidate.from == route.from && candidate.to == route.to;
                });
            if (change == changes.end())
                fail("The table has no change", route.from, route.to);
            drawRoute(route, change->text);
            changes.erase(change);
        }
        if (!changes.empty())
            fail("There is no route for the change", changes[0].from, changes[0].to);
    }

    [[noreturn]] static void fail(char const *what, MbStateId from, MbStateId to)
    {
        throw std::runtime_error(std::string(what) + " from " + MbTable::rowOf(from).name + " to " +
                                 MbTable::rowOf(to).name);
    }

    void drawRoute(Route const &route, std::string const &text)
    {
        std::vector<Pixel> pixels;
        for (Point const &point : route.points)
            pixels.push_back(pixelOf(point));
        pixels.front() = borderOf(boxOf(route.from, false), pixels[0], pixels[1]);
        pixels.back() =
            borderOf(boxOf(route.to, route.isToCopy), pixels.back(), pixels[pixels.size() - 2]);
        _svg << "<path d=\"M";
        for (Pixel const &pixel : pixels)
            _svg << ' ' << pixel.x << ',' << pixel.y;
        _svg << "\"/>\n";
        if (!text.empty())
            label(route, pixels[0], pixels[1], text);
    }

    void label(Route const &route, Pixel begin, Pixel end, std::string const &text)
    {
        int const x = begin.x + static_cast<int>(std::lround(route.at * (end.x - begin.x)));
        int const y = begin.y + static_cast<int>(std::lround(route.at * (end.y - begin.y)));
        if (begin.y == end.y)
            print("event", x, y - 5, text);
        else if (route.side == Side::LEFT)
            print("event left", x - 8, y + 4, text);
        else
            print("event right", x + 8, y + 4, text);
    }

    /// Where the way from a point inside the box to one outside leaves it.
    static Pixel borderOf(Box const &box, Pixel inside, Pixel outside)
    {
        Pixel const centre = pixelOf(box.centre);
        double part = 1;
        auto const limit = [&](int from, int to, int middle, int half) {
            int const border = to > from ? middle + half : middle - half;
            if (to != from)
                part = std::min(part, static_cast<double>(border - from) / (to - from));
        };
        limit(inside.x, outside.x, centre.x, box.width / 2);
        limit(inside.y, outside.y, centre.y, box.height / 2);
        return {static_cast<int>(std::lround(inside.x + part * (outside.x - inside.x))),
                static_cast<int>(std::lround(inside.y + part * (outside.y - inside.y)))};
    }

    std::ostringstream _svg;
    std::ostringstream _labels;
};

} // namespace

int main(int count, char **arguments)
{
    try {
        if (count != 2)
            throw std::runtime_error("usage: zv_buffer_chart FILE");
        Drawing drawing;
        drawing.draw();
        std::ofstream file(arguments[1], std::ios::binary);
        file << drawing.text();
        if (!file.flush())
            throw std::runtime_error(std::string("cannot write ") + arguments[1]);
    } catch (std::exception const &failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
}
