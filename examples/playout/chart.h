// Charts in SVG, with axes and labels.
#pragma once

#include <resmgt/xml.h>

#include <string>
#include <string_view>
#include <vector>

/// Returns a text from outside as text of an XML document. Control characters are written like
/// "\x1b".
std::string toMarkup(std::string_view text);

/// Maps values to a range of pixels.
class Scale
{
public:
    Scale(double from, double to, double begin, double end)
        : _from(from), _to(to), _begin(begin), _end(end)
    {}

    double operator()(double value) const
    {
        double const share = _to > _from ? (value - _from) / (_to - _from) : 0;
        return _begin + share * (_end - _begin);
    }
    double getFrom() const { return _from; }
    double getTo() const { return _to; }
    double getBegin() const { return _begin; }
    double getEnd() const { return _end; }

private:
    double _from;
    double _to;
    double _begin;
    double _end;
};

/// A chart: one element `svg`, from the constructor to the destructor. Its colours are those of
/// `STYLE`, which the document must contain. Lengths are in pixels, from the left and from the top.
class Chart
{
public:
    /// Rules for the classes that this file and its users name, in light and in dark.
    static char const * const STYLE;
    static constexpr int FONT_SIZE = 11;
    static constexpr int LINE_HEIGHT = 15;

    enum class Anchor
    {
        START,
        MIDDLE,
        END
    };
    struct Tick
    {
        double value;
        std::string label;
    };

    /// Begins a document of its own.
    Chart(Zv::XmlStreamer &streamer, double width, double height, std::string const &title);
    /// Begins a chart in a page that contains `STYLE`.
    Chart(Zv::XmlStreamer::ElementGuard &parent, double width, double height,
          std::string const &title);
    Chart(Chart const &) = delete;
    Chart &operator=(Chart const &) = delete;

    // A pointer on a line or rectangle shows `tip`, if that is not empty.
    void line(char const *style, double x1, double y1, double x2, double y2,
              std::string const &tip = "");
    void rect(char const *style, double x, double y, double width, double height,
              std::string const &tip = "");
    void path(char const *style, std::string const &data);
    /// Writes a text with its base line at `y`.
    void text(char const *style, double x, double y, std::string const &text,
              Anchor anchor = Anchor::START);
    /// Draws a time axis below the area from `top` to `bottom`. The values are seconds.
    void timeAxis(Scale const &scale, double top, double bottom);

    /// Returns at most `most` round times, in the range of the scale, in seconds. Their labels have
    /// the unit that suits the range, or are like "1:30".
    static std::vector<Tick> getTimes(Scale const &scale, int most);
    /// Returns a time with its unit: "12.5 ms".
    static std::string toTime(double seconds);
    /// Returns a number of bytes with its unit: "64 KiB".
    static std::string toBytes(double bytes);
    /// Returns a width that the text does not exceed in usual fonts.
    static double measure(std::string const &text);

private:
    void begin(double width, double height, std::string const &title);

    Zv::XmlStreamer::ElementGuard _element;
};
