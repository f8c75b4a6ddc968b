// Terminal without a window, in which a test runs a program and reads its screen.
#pragma once

#include <sys/types.h>
#include <termios.h>
#include <vterm.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ZvTest {

/// What a terminal shows: its normal lines, and a second screen that a program may use meanwhile.
class ScreenReader
{
public:
    ScreenReader(int width, int height);
    ScreenReader(ScreenReader const &) = delete;
    ScreenReader &operator=(ScreenReader const &) = delete;

    void resize(int width, int height);
    void read(std::string_view text);

    /// Returns the lines of the screen that is shown, without the blanks at their ends.
    std::vector<std::string> getLines() const;
    std::string getText() const;
    /// Returns the lines that have left the normal screen, and those of the screen that is shown.
    std::string getHistory() const { return _history + getText(); }
    bool isSecondShown() const { return _isSecond; }
    /// Returns how often the second screen was shown in place of the normal one.
    int getNbSecond() const { return _nbSecond; }
    bool isCursorShown() const { return _isCursorShown; }
    /// Returns the controls that were not understood.
    std::string const &getUnknown() const { return _unknown; }

private:
    struct Callbacks;

    std::unique_ptr<VTerm, void (*)(VTerm *)> _terminal;
    VTermScreen *_screen;
    bool _isSecond = false;
    int _nbSecond = 0;
    bool _isCursorShown = true;
    std::string _history; // lines that have left the normal screen
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
