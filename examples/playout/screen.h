// Terminal that shows a table in place of its lines.
#pragma once

#include "topLayout.h"

#include <deque>
#include <memory>
#include <string>
#include <vector>

/// The controlling terminal of the process, from `open` to the destructor. It is left as it was:
/// with its lines, its modes and its cursor. So it is while the process is stopped by Ctrl-Z, and
/// if `Signals` ends the process at once, or a fatal signal does. What the process writes to the
/// standard error meanwhile is kept if it is a terminal, and written at the end.
///
/// **Threads**: one thread at a time. Any thread may call `wake`.
class Screen
{
public:
    enum class Key
    {
        NONE,
        UP,
        DOWN,
        PAGE_UP,
        PAGE_DOWN,
        HOME,
        END,
        QUIT,
        SORT
    };

    /// Takes the terminal. Throws `PlayoutEx::Client` if there is none, if its type cannot show a
    /// table, or if the program was built without ncurses.
    static std::unique_ptr<Screen> open();

    Screen() = default;
    Screen(Screen const &) = delete;
    Screen &operator=(Screen const &) = delete;
    virtual ~Screen() = default;

    /// Returns the columns and lines of the window.
    virtual int getWidth() const = 0;
    virtual int getHeight() const = 0;
    /// Shows the lines in place of those of the last call. Shows nothing while the process is in
    /// the background.
    virtual void draw(std::vector<TopLine> const &lines) = 0;
    /// Waits for a key, a change of the window, `wake`, or the end of the time. Stops the process,
    /// and goes on with it, if Ctrl-Z asks for that.
    virtual Key wait(double seconds) = 0;
    /// Ends a `wait`. May be called by a signal handler.
    virtual void wake() = 0;
    /// Returns the lines that were written to the standard error since the last call.
    virtual std::vector<std::string> takeErrors() = 0;
};
