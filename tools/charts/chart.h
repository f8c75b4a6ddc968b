// Draws a state machine as SVG: boxes for states, and arrows for what leads from one to the other.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace ZvCharts {

/// In columns and rows, which need not be whole.
struct Point
{
    double column;
    double row;
};

enum class Side
{
    LEFT,
    RIGHT
};

/// A state's box. The kind is a class of the style: "stable", "transient" or "copy". A copy is a
/// second box of a state that is far away.
struct Box
{
    std::string name;
    Point centre;
    int width;
    int height;
    std::string kind;
    std::vector<std::string> lines; ///< below the name
};

/// The way of an arrow. The parts inside the two boxes are cut off.
struct Route
{
    std::string from;
    std::string to;
    std::vector<Point> points;
    Side side = Side::RIGHT; ///< of the text, which is above the first part if that is level
    double at = 0.5;         ///< the place of the text on the first part
    bool isToCopy = false;
};

/// A change of state, and the text of its arrow.
struct Change
{
    std::string from;
    std::string to;
    std::string text;
};

struct Sheet
{
    char const *title;
    std::vector<double> columns; ///< in pixels
    int rowHeight;
    int top;
    int width;
    int height;
    char const *header;
    char const *footer;
};

class Chart
{
public:
    /// Throws `std::runtime_error` if a change has no route, or a route no change.
    Chart(Sheet sheet, std::vector<Box> boxes, std::vector<Route> const &routes,
          std::vector<Change> changes)
        : _sheet(std::move(sheet)), _boxes(std::move(boxes))
    {
        begin();
        drawRoutes(routes, std::move(changes));
        for (Box const &box : _boxes)
            drawBox(box);
        // Texts are written last, so that no line crosses them.
        _svg << _labels.str() << "</svg>\n";
    }

    std::string text() const { return _svg.str(); }

private:
    struct Pixel
    {
        int x;
        int y;
    };

    void begin()
    {
        _svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << _sheet.width
             << "\" height=\"" << _sheet.height << "\" viewBox=\"0 0 " << _sheet.width << ' '
             << _sheet.height << "\">\n"
             << "<title>" << _sheet.title << "</title>\n"
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
             << "<rect width=\"" << _sheet.width << "\" height=\"" << _sheet.height
             << "\" style=\"fill: #fff; stroke: none\"/>\n";
        note(24, _sheet.header);
        note(_sheet.height - 8, _sheet.footer);
    }

    void note(int y, char const *text)
    {
        _labels << "<text class=\"right\" x=\"20\" y=\"" << y << "\">" << text << "</text>\n";
    }

    void drawBox(Box const &box)
    {
        Pixel const centre = pixelOf(box.centre);
        _svg << "<rect class=\"" << box.kind << "\" x=\"" << centre.x - box.width / 2 << "\" y=\""
             << centre.y - box.height / 2 << "\" width=\"" << box.width << "\" height=\""
             << box.height << "\" rx=\"6\"/>\n";
        int y = centre.y + 4 - static_cast<int>(box.lines.size()) * 7;
        print("name", centre.x, y, box.name);
        for (std::string const &line : box.lines)
            print("", centre.x, y += 14, line);
    }

    void print(char const *kind, int x, int y, std::string const &text)
    {
        _labels << "<text class=\"" << kind << "\" x=\"" << x << "\" y=\"" << y << "\">" << text
                << "</text>\n";
    }

    void drawRoutes(std::vector<Route> const &routes, std::vector<Change> changes)
    {
        for (Route const &route : routes) {
            auto const change =
                std::find_if(changes.begin(), changes.end(), [&](Change const &candidate) {
                    return candidate.from == route.from && candidate.to == route.to;
                });
            if (change == changes.end())
                throw std::runtime_error("The table has no change from " + route.from + " to " +
                                         route.to);
            drawRoute(route, change->text);
            changes.erase(change);
        }
        if (!changes.empty())
            throw std::runtime_error("There is no route for the change from " + changes[0].from +
                                     " to " + changes[0].to);
    }

    Box const &boxOf(std::string const &name, bool isCopy) const
    {
        for (Box const &box : _boxes)
            if (box.name == name && (box.kind == "copy") == isCopy)
                return box;
        throw std::runtime_error("There is no box for " + name);
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

    /// Returns the point at which the way from a point inside the box to one outside leaves it.
    Pixel borderOf(Box const &box, Pixel inside, Pixel outside) const
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

    Pixel pixelOf(Point point) const
    {
        std::vector<double> const &columns = _sheet.columns;
        auto const last = static_cast<double>(columns.size() - 2);
        auto const whole =
            static_cast<std::size_t>(std::clamp(std::floor(point.column), 0.0, last));
        double const part = point.column - static_cast<double>(whole);
        double const x = columns[whole] + part * (columns[whole + 1] - columns[whole]);
        return {static_cast<int>(std::lround(x)),
                static_cast<int>(std::lround(_sheet.top + point.row * _sheet.rowHeight))};
    }

    Sheet _sheet;
    std::vector<Box> _boxes;
    std::ostringstream _svg;
    std::ostringstream _labels;
};

/// Writes the chart that `make` returns into the file that the command line names. For `main`.
template <class Make>
int drawChart(int count, char **arguments, Make make)
{
    try {
        if (count != 2)
            throw std::runtime_error(std::string("usage: ") + arguments[0] + " FILE");
        Chart const chart = make();
        std::ofstream file(arguments[1], std::ios::binary);
        file << chart.text();
        if (!file.flush())
            throw std::runtime_error(std::string("cannot write ") + arguments[1]);
    } catch (std::exception const &failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
    return 0;
}

} // namespace ZvCharts
