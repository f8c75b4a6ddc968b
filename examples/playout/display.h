// Output for the user.
#pragma once

#include "playoutDevice.h"

#include <algorithm>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

class Top;

/// How a device ended.
struct DeviceEnd
{
    std::string text; ///< "stopped"
    /// How long its finished steps and "close" took, by name.
    std::map<std::string, double> seconds;
};

/// Table that was shown. The first row is its head.
struct Table
{
    std::vector<std::vector<std::string>> rows;
    std::vector<std::size_t> textColumns; ///< that have no numbers, besides the first column

    bool isText(std::size_t column) const
    {
        return std::find(textColumns.begin(), textColumns.end(), column) != textColumns.end();
    }
};

/// Writes to the standard output. On a terminal it shows a progress bar below the lines. Otherwise
/// the progress is lines, too, one for each tenth of the length.
class Display
{
public:
    /// `length` is in seconds, 0 if it is not known.
    void setLength(double length) { _length = length; }
    /// Returns which part of the length a place is, at most 1. Negative if the length is not known.
    double getShare(double place) const;
    /// Shows positions as timecode from now on. `timeline` must outlive the display.
    void setTimeline(Timeline const *timeline) { _timeline = timeline; }
    /// Passes the lines to a live table as well, from now on. If the standard output is a terminal,
    /// they are also kept, and shown when the table has ended, which is said by null.
    void setTop(Top *top);
    /// Returns the shortest useful interval between calls of `progress`, in seconds.
    double getInterval() const { return _isTerminal ? 0.04 : 0.001; }

    /// Shows the text as one line. `toShownText` replaces its control characters.
    void line(std::string const &text);
    /// Shows the progress. `position` is how much was played and `place` the place in the clips,
    /// both in seconds. `peak` has full scale 1.0, and is negative if it is not measured. `card` is
    /// null if there is no sound card.
    void progress(double position, double place, double peak, SoundCard const *card);
    /// Ends the bar and leaves it on the terminal.
    void endProgress();
    /// Shows the text like `line`, but at most once for each text.
    void notice(std::string const &text);
    /// Shows the figures of a device. If `figures` is null, shows the head of the table.
    /// `startedAt` and `stoppedAt` are moments, 0 for never.
    void statistics(std::string const &name, PlayoutDevice::Statistics const *figures,
                    double startedAt, double stoppedAt);

    /// Shows how a device ended and how long its steps took. If `end` is null, shows the head of
    /// the table.
    void end(std::string const &name, DeviceEnd const *end);
    /// Shows the beats of a device. If `figures` is null, shows the head of the table.
    void beats(std::string const &name, Metronome::Figures const *figures);
    /// Shows the figures of the sound card.
    void card(SoundCard &card);
    /// Shows what happened to the pages of the clips.
    void memory(ShowMemory const &show, MemoryFigures::Figures const &figures);

    /// Returns the tables that were shown.
    std::vector<Table> const &getTables() const { return _tables; }

    /// Returns the text of a position in seconds: a timecode if there is a timeline, else seconds.
    std::string toPosition(double seconds) const;
    static std::string toDecibels(double level);

private:
    bool const _isTerminal = isTerminal();
    bool _isBarShown = false;
    double _length = 0;
    Timeline const *_timeline = nullptr;
    int _nextTenth = 1;
    std::set<std::string> _notices;
    Top *_top = nullptr;
    std::deque<std::string> _kept; // lines, while the table hides them
    std::size_t _nbDropped = 0;    // of these
    std::vector<Table> _tables;

    /// Shows a row with its cells aligned on the right, or on the left if the width is negative.
    /// The head begins a table.
    void row(bool isHead, std::vector<int> const &widths, std::vector<std::string> const &cells);
    static bool isTerminal();
    void print(std::string const &text);
};

/// Returns the text that `printf` would write, cut to 511 bytes.
[[gnu::format(printf, 1, 2)]] std::string format(char const *text, ...);
