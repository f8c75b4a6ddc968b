// Live table of a running show in the terminal.
#pragma once

#include "screen.h"
#include "topFigures.h"

#include <resmgt/locks.h>
#include <resmgt/threads.h>

#include <zvbase/zvbase.h>

#include <deque>
#include <memory>
#include <string>

/// Draws the figures of a show in place of the terminal's lines, and follows the keys. A thread of
/// the lowest level draws, and only it waits for the terminal. It takes no lock of a device: the
/// client reads the figures.
///
/// **Threads**: only one thread may use the object.
class Top
{
public:
    static constexpr double INTERVAL = 0.2;        // seconds between figures
    static constexpr std::size_t MOST_LINES = 100; // that can be scrolled to

    /// Takes the terminal. Throws `PlayoutEx::Client` if that is impossible, see `Screen::open`.
    Top();
    Top(Top const &) = delete;
    Top &operator=(Top const &) = delete;
    /// Leaves the terminal as it was.
    ~Top() noexcept(false);

    /// Shows other figures.
    void show(TopFigures figures);
    /// Shows a line below the tables.
    void line(std::string const &text);

private:
    class Body;

    Zv::LkLock _lock{"Top"};
    TopFigures _figures ZV_GUARDED_BY(_lock);
    std::deque<std::string> _log ZV_GUARDED_BY(_lock);
    bool _isEnding ZV_GUARDED_BY(_lock) = false;

    std::unique_ptr<Screen> _screen; // used by the thread
    Zv::ObjPtr<Zv::MtThread> _thread;
};
