#include "pseudoTerminal.h"

#include "playoutTest.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <span>

namespace ZvTest {

namespace {

constexpr int LOOK = 20; // milliseconds between looks for an end of the program

/// Returns a line of the terminal without the blanks at its end.
std::string toText(std::span<VTermScreenCell const> cells)
{
    constexpr auto BEHIND_WIDE = static_cast<std::uint32_t>(-1);
    std::u32string line;
    for (VTermScreenCell const &cell : cells)
        if (cell.chars[0] != BEHIND_WIDE)
            line += cell.chars[0] ? static_cast<char32_t>(cell.chars[0]) : U' ';
    line.erase(line.find_last_not_of(U' ') + 1);
    std::u8string const text = std::filesystem::path(line).u8string(); // which converts it
    return {text.begin(), text.end()};
}

} // namespace

// ---- ScreenReader

struct ScreenReader::Callbacks
{
    static ScreenReader &toReader(void *reader) { return *static_cast<ScreenReader *>(reader); }

    static int setProperty(VTermProp property, VTermValue *value, void *reader)
    {
        ScreenReader &self = toReader(reader);
        if (property == VTERM_PROP_CURSORVISIBLE)
            self._isCursorShown = value->boolean;
        if (property == VTERM_PROP_ALTSCREEN) {
            self._nbSecond += value->boolean && !self._isSecond;
            self._isSecond = value->boolean;
        }
        return 1;
    }
    static int keepLine(int width, VTermScreenCell const *cells, void *reader)
    {
        toReader(reader)._history += toText({cells, static_cast<std::size_t>(width)}) + "\n";
        return 1;
    }
    static int noteControl(unsigned char control, void *reader)
    {
        toReader(reader)._unknown += "control " + std::to_string(control) + "\n";
        return 1;
    }
    static int noteSequence(char const *, long const *, int, char const *, char command,
                            void *reader)
    {
        if (command != 't') // titles of windows
            toReader(reader)._unknown += std::string("sequence ") + command + "\n";
        return 1;
    }

    static constexpr VTermScreenCallbacks SCREEN = {nullptr, nullptr, nullptr,   &setProperty,
                                                    nullptr, nullptr, &keepLine, nullptr};
    static constexpr VTermParserCallbacks UNKNOWN = {nullptr, &noteControl, nullptr, &noteSequence,
                                                     nullptr, nullptr,      nullptr};
};

ScreenReader::ScreenReader(int width, int height)
    : _terminal(::vterm_new(height, width), &::vterm_free),
      _screen(::vterm_obtain_screen(_terminal.get()))
{
    ::vterm_set_utf8(_terminal.get(), 1);
    ::vterm_screen_set_callbacks(_screen, &Callbacks::SCREEN, this);
    ::vterm_screen_set_unrecognised_fallbacks(_screen, &Callbacks::UNKNOWN, this);
    ::vterm_screen_enable_altscreen(_screen, 1);
    ::vterm_screen_reset(_screen, 1);
}

void ScreenReader::resize(int width, int height)
{
    ::vterm_set_size(_terminal.get(), height, width);
}

void ScreenReader::read(std::string_view text)
{
    ::vterm_input_write(_terminal.get(), text.data(), text.size());
}

std::vector<std::string> ScreenReader::getLines() const
{
    VTermPos size;
    ::vterm_get_size(_terminal.get(), &size.row, &size.col);
    std::vector<std::string> lines;
    std::vector<VTermScreenCell> cells(static_cast<std::size_t>(size.col));
    for (int row = 0; row < size.row; ++row) {
        for (int column = 0; column < size.col; ++column)
            ::vterm_screen_get_cell(_screen, {row, column},
                                    &cells[static_cast<std::size_t>(column)]);
        lines.push_back(toText(cells));
    }
    return lines;
}

std::string ScreenReader::getText() const
{
    std::string text;
    for (std::string const &line : getLines())
        text += line + "\n";
    return text;
}

// ---- PseudoTerminal

PseudoTerminal::PseudoTerminal(std::vector<std::string> const &arguments, Settings settings)
    : _screen(settings.width, settings.height)
{
    winsize const size = {static_cast<unsigned short>(settings.height),
                          static_cast<unsigned short>(settings.width), 0, 0};
    EXPECT_EQ(::openpty(&_master, &_slave, nullptr, nullptr, &size), 0);
    ::fcntl(_master, F_SETFD, FD_CLOEXEC);
    ::tcgetattr(_slave, &_modes);
    int reports[2] = {-1, -1};
    int orders[2] = {-1, -1};
    EXPECT_EQ(::pipe2(reports, O_CLOEXEC), 0);
    EXPECT_EQ(::pipe2(orders, O_CLOEXEC), 0);
    _leader = ::fork();
    if (_leader == 0)
        lead(arguments, settings, reports[1], orders[0]);
    ::close(reports[1]);
    ::close(orders[0]);
    _reports = reports[0];
    _orders = orders[1];
    EXPECT_EQ(::read(_reports, &_process, sizeof _process), sizeof _process);
}

/// Leads the session: starts the program, reports its stops and its end, and lets it go on.
void PseudoTerminal::lead(std::vector<std::string> const &arguments, Settings const &settings,
                          int reports, int orders)
{
    ::alarm(LONGEST_RUN);
    ::setsid();
    if (settings.isControlling)
        ::ioctl(_slave, TIOCSCTTY, 0);
    ::signal(SIGTTOU, SIG_IGN);
    for (int const number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        ::dup2(_slave, number);
    pid_t const program = ::fork();
    if (program == 0) {
        ::setpgid(0, 0);
        ::tcsetpgrp(STDIN_FILENO, ::getpid());
        for (int const number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGTTOU, SIGQUIT, SIGTSTP})
            ::signal(number, SIG_DFL); // the tests may ignore them
        rlimit const none{0, 0};
        ::setrlimit(RLIMIT_CORE, &none);
        if (!settings.output.empty())
            ::dup2(::open(settings.output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600),
                   STDOUT_FILENO);
        ::unsetenv("LINES");
        ::unsetenv("COLUMNS");
        ::unsetenv("ZV_THREAD_NO_REALTIME");
        ::setenv("LC_ALL", "C.UTF-8", 1);
        if (settings.type)
            ::setenv("TERM", settings.type->c_str(), 1);
        else
            ::unsetenv("TERM");
        std::vector<char const *> argv{ZVPLAYOUT};
        for (auto const &argument : arguments)
            argv.push_back(argument.c_str());
        argv.push_back(nullptr);
        ::alarm(LONGEST_RUN);
        ::execv(argv[0], const_cast<char * const *>(argv.data()));
        ::_exit(127);
    }
    ::setpgid(program, program);
    ::tcsetpgrp(STDIN_FILENO, program);
    [[maybe_unused]] ssize_t ignored = ::write(reports, &program, sizeof program);
    for (int status = 0; ::waitpid(program, &status, WUNTRACED) == program;) {
        bool const isStopped = WIFSTOPPED(status);
        if (isStopped)
            ::tcsetpgrp(STDIN_FILENO, ::getpgrp());
        ignored = ::write(reports, &status, sizeof status);
        char order = 0;
        if (!isStopped || ::read(orders, &order, 1) != 1)
            break;
        ::tcsetpgrp(STDIN_FILENO, program);
        ::kill(-program, SIGCONT);
    }
    ::_exit(0);
}

PseudoTerminal::~PseudoTerminal()
{
    if (!_status && _process > 0)
        ::kill(_process, SIGKILL);
    ::kill(_leader, SIGKILL);
    ::waitpid(_leader, nullptr, 0);
    for (int const descriptor : {_master, _slave, _reports, _orders})
        ::close(descriptor);
}

/// Reads what there is, or waits for a moment.
void PseudoTerminal::readOn()
{
    std::array<pollfd, 2> events = {pollfd{_master, POLLIN, 0},
                                    pollfd{_status ? -1 : _reports, POLLIN, 0}};
    ::poll(events.data(), events.size(), LOOK);
    char buffer[4096];
    if (events[0].revents & POLLIN) {
        auto const count = ::read(_master, buffer, sizeof buffer);
        if (count > 0)
            _screen.read({buffer, static_cast<std::size_t>(count)});
    } else if (events[1].revents & POLLIN) { // all that was written before it was read
        int status = 0;
        if (::read(_reports, &status, sizeof status) != sizeof status)
            return;
        _isStopped = WIFSTOPPED(status);
        if (!_isStopped)
            _status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    } else if (events[1].revents & POLLHUP) {
        _status = -1;
    }
}

bool PseudoTerminal::waitFor(std::function<bool()> const &condition)
{
    while (!condition()) {
        if (_status)
            return false;
        readOn();
    }
    return true;
}

bool PseudoTerminal::waitFor(std::string const &text)
{
    return waitFor([&] { return _screen.getText().find(text) != std::string::npos; });
}

void PseudoTerminal::type(std::string const &keys)
{
    EXPECT_EQ(::write(_master, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
}

void PseudoTerminal::resize(int width, int height)
{
    winsize const size = {static_cast<unsigned short>(height), static_cast<unsigned short>(width),
                          0, 0};
    _screen.resize(width, height);
    EXPECT_EQ(::ioctl(_master, TIOCSWINSZ, &size), 0); // which sends SIGWINCH
}

void PseudoTerminal::signal(int number)
{
    EXPECT_EQ(::kill(_process, number), 0);
}

bool PseudoTerminal::waitForStop()
{
    return waitFor([this] { return _isStopped; });
}

void PseudoTerminal::goOn()
{
    _isStopped = false;
    EXPECT_EQ(::write(_orders, "", 1), 1);
}

int PseudoTerminal::finish()
{
    waitFor([] { return false; });
    return *_status;
}

bool PseudoTerminal::hasItsModes() const
{
    termios now = {};
    ::tcgetattr(_slave, &now);
    return now.c_iflag == _modes.c_iflag && now.c_oflag == _modes.c_oflag &&
           now.c_cflag == _modes.c_cflag && now.c_lflag == _modes.c_lflag &&
           std::equal(std::begin(now.c_cc), std::end(now.c_cc), std::begin(_modes.c_cc));
}

} // namespace ZvTest
