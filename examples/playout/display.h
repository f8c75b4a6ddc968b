// What the user sees.
#pragma once

#include "playoutDevice.h"

#include <map>
#include <set>
#include <string>

/// How a device has ended.
struct DeviceEnd
{
    std::string text; ///< "stopped"
    std::map<std::string, double>
        seconds; ///< by the steps that it has finished, "close" among them
};

/// Writes to the standard output: lines, and below them a progress bar where that is a terminal; elsewhere the progress
/// is lines, too, one for each tenth.
class Display
{
public:
    /// `length` in seconds, 0 where it is not known.
    void setLength(double length) { _length = length; }
    /// For positions, from now on; outlives the display.
    void setTimeline(Timeline const *timeline) { _timeline = timeline; }
    /// How often progress is worth showing, in seconds.
    double getInterval() const { return _isTerminal ? 0.04 : 0.001; }

    /// Shows the text as one line, whatever it contains; see `toShownText`.
    void line(std::string const &text);
    /// `position`, how much has been played, and `place`, where in the clips that is, in seconds; `peak` in full scale
    /// 1.0, negative where nobody measures it.
    void progress(double position, double place, double peak);
    /// The bar stays as it is.
    void endProgress();
    /// Shows the text as one line, and has the bar begin anew below it, as `line` does. At most once for each text.
    void notice(std::string const &text);
    /// `name`, and the figures of a device; null for the head of the table. `startedAt` and `stoppedAt` are moments, 0
    /// for never.
    void statistics(std::string const &name, PlayoutDevice::Statistics const *figures,
                    double startedAt, double stoppedAt);

    /// How a device has ended, and how long its steps took; null for the head of the table.
    void end(std::string const &name, DeviceEnd const *end);
    /// The same for the beats of a device.
    void beats(std::string const &name, Metronome::Figures const *figures);
    /// What became of the pages of the clips.
    void memory(ShowMemory const &show, MemoryFigures::Figures const &figures);

    /// Seconds as timecode where there is a timeline.
    std::string toPosition(double seconds) const;
    static std::string toDecibels(double level);

private:
    bool const _isTerminal = isTerminal();
    bool _isBarShown = false;
    double _length = 0;
    Timeline const *_timeline = nullptr;
    int _nextTenth = 1;
    std::set<std::string> _notices;

    static bool isTerminal();
};

/// As `printf` writes it.
[[gnu::format(printf, 1, 2)]] std::string format(char const *text, ...);
