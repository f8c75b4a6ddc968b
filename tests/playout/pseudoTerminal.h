// Terminal without a window, in which a test runs a program and reads its screen.
#pragma once

#include <sys/types.h>
#include <termios.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace ZvTest {

/// What a terminal shows: its normal lines, and a second screen that a program may use meanwhile.
/// Understands what ncurses writes to the types "xterm" and "vt100".
class ScreenReader
{
public:
    ScreenReader(int width, int height) { resize(width, height); }

    void resize(int width, int height);
    void read(std::string_view text);

    /// Returns the lines of the screen that is shown, without the blanks at their ends.
    std::vector<std::string> getLines() const;
    std::string getText() const;
    /// Returns the lines that were shown on the normal screen, including those that have left it.
    std::string getHistory() const;
    bool isSecondShown() const { return _isSecond; }
    /// Returns how often the second screen was shown in place of the normal one.
    int getNbSecond() const { return _nbSecond; }
    bool isCursorShown() const { return _isCursorShown; }
    /// Returns the sequences that were not understood.
    std::string const &getUnknown() const { return _unknown; }

private:
    using Lines = std::vector<std::string>; // all as wide as the screen

    Lines &lines() { return _isSecond ? _second : _normal; }
    void put(char character);
    void feedLine();
    /// Moves the lines from `first` to the end of the region up, or down if `count` is negative.
    void scroll(std::size_t first, long count);
    void carryOut(std::string const &sequence);
    void setMode(std::string const &modes, bool isOn);
    std::string &line() { return lines()[_row]; }

    std::size_t _width = 0;
    std::size_t _height = 0;
    std::size_t _row = 0;
    std::size_t _column = 0;
    std::size_t _regionBegin = 0; // lines that scroll
    std::size_t _regionEnd = 0;
    bool _isSecond = false;
    int _nbSecond = 0;
    bool _isCursorShown = true;
    char _last = ' ';
    Lines _normal;
    Lines _second;
    std::string _history; // lines that have left the normal screen
    std::string _pending; // begin of a sequence
    std::string _unknown;
};

/// A program in a terminal of its own, with job control as a shell has it.
class PseudoTerminal
{
public:
    struct Settings
    {
        std::optional<std::string> type = "xterm"; // TERM; without a value it is not set
        int width = 100;
        int height = 30;
        bool isControlling = true; // the terminal is that of the program's session
        std::string output;        // a file to which the standard output goes
    };

    PseudoTerminal(std::vector<std::string> const &arguments, Settings settings);
    explicit PseudoTerminal(std::vector<std::string> const &arguments)
        : PseudoTerminal(arguments, Settings())
    {}
    PseudoTerminal(PseudoTerminal const &) = delete;
    PseudoTerminal &operator=(PseudoTerminal const &) = delete;
    ~PseudoTerminal();

    ScreenReader const &screen() const { return _screen; }
    /// Reads what the program writes until the condition holds. Returns false if the program has
    /// ended before that.
    bool waitFor(std::function<bool()> const &condition);
    /// Waits until the screen shows a text.
    bool waitFor(std::string const &text);
    bool waitForSecond(bool isShown)
    {
        return waitFor([this, isShown] { return _screen.isSecondShown() == isShown; });
    }
    void type(std::string const &keys);
    void resize(int width, int height);
    void signal(int number);
    pid_t getProcess() const { return _process; }
    /// Waits until the program is stopped. Then it is in the background.
    bool waitForStop();
    /// Lets the stopped program go on in the foreground.
    void goOn();
    /// Waits for the end of the program and reads all of its output. Returns its status, and 128
    /// plus the number of a signal that has ended it.
    int finish();
    /// Returns whether the modes of the terminal are those of the begin.
    bool hasItsModes() const;

private:
    [[noreturn]] void lead(std::vector<std::string> const &arguments, Settings const &settings,
                           int reports, int orders);
    void readOn();

    ScreenReader _screen;
    int _master = -1;
    int _slave = -1;
    int _reports = -1; // from the leader of the session: what `waitpid` has said of the program
    int _orders = -1;  // to the leader
    pid_t _leader = -1;
    pid_t _process = -1;
    bool _isStopped = false;
    std::optional<int> _status;
    termios _modes = {};
};

} // namespace ZvTest
