// Lines of the table of a running show.
#pragma once

#include "topFigures.h"

#include <deque>
#include <string>
#include <vector>

struct TopLine
{
    enum class Style
    {
        PLAIN,
        TITLE,
        HEAD, ///< of a part of the table
        ALARM ///< something is late, lost or failed
    };

    std::string text; ///< UTF-8 without control characters
    Style style = Style::PLAIN;
};

/// How the user looks at the table.
struct TopView
{
    int scroll = 0;             ///< lines of the body above the window
    bool isByProcessor = false; ///< the busiest threads are first
};

struct TopPicture
{
    std::vector<TopLine> lines; ///< at most as many as the window has
    int scroll = 0;             ///< that of the view, within the limits
};

/// Returns the lines for a window. No line is wider than the window. The first lines say how the
/// show goes. Below them is the body, which can be scrolled: the devices, the threads, and `log`,
/// the latest lines of the show. If a table is too wide, its least important columns are left out.
TopPicture layOutTop(TopFigures const &figures, std::deque<std::string> const &log, int width,
                     int height, TopView view);

/// Returns how many columns of a terminal a text takes.
int measureText(std::string const &text);
