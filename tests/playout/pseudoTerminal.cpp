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
#include <cstdlib>
#include <cstring>
#include <utility>

namespace ZvTest {

namespace {

constexpr int LOOK = 20; // milliseconds between looks for an end of the program

/// Returns the length of the escape sequence at the begin of a text, 0 if it is not complete.
std::size_t measureSequence(std::string_view text)
{
    if (text.size() < 2)
        return 0;
    if (text[1] == '[') {
        auto const end =
            std::find_if(text.begin() + 2, text.end(), [](char c) { return c >= '@' && c <= '~'; });
        return end == text.end() ? 0 : static_cast<std::size_t>(end - text.begin()) + 1;
    }
    std::size_t const length = std::strchr("()*+", text[1]) ? 3 : 2;
    return text.size() < length ? 0 : length;
}

/// Returns the parameters of a sequence, 0 for one that is left out.
std::vector<std::size_t> listNumbers(std::string const &text)
{
    std::vector<std::size_t> numbers{0};
    for (char const c : text)
        if (c == ';')
            numbers.push_back(0);
        else if (c >= '0' && c <= '9')
            numbers.back() = numbers.back() * 10 + static_cast<std::size_t>(c - '0');
    return numbers;
}

std::string withoutEnd(std::string line)
{
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

} // namespace

// ---- ScreenReader

void ScreenReader::resize(int width, int height)
{
    _width = static_cast<std::size_t>(width);
    _height = static_cast<std::size_t>(height);
    for (Lines * const lines : {&_normal, &_second}) {
        lines->resize(_height);
        for (std::string &line : *lines)
            line.resize(_width, ' ');
    }
    _regionBegin = 0;
    _regionEnd = _height;
    _row = std::min(_row, _height - 1);
    _column = std::min(_column, _width - 1);
}

std::vector<std::string> ScreenReader::getLines() const
{
    Lines lines = _isSecond ? _second : _normal;
    std::transform(lines.begin(), lines.end(), lines.begin(), withoutEnd);
    return lines;
}

std::string ScreenReader::getText() const
{
    std::string text;
    for (std::string const &line : getLines())
        text += line + "\n";
    return text;
}

std::string ScreenReader::getHistory() const
{
    std::string text = _history;
    for (std::string const &line : _normal)
        text += withoutEnd(line) + "\n";
    return text;
}

void ScreenReader::read(std::string_view text)
{
    _pending += text;
    std::string_view rest = _pending;
    while (!rest.empty()) {
        char const first = rest[0];
        if (first == '\033') {
            std::size_t const length = measureSequence(rest);
            if (length == 0)
                break;
            carryOut(std::string(rest.substr(1, length - 1)));
            rest.remove_prefix(length);
            continue;
        }
        rest.remove_prefix(1);
        if (first == '\r')
            _column = 0;
        else if (first == '\n')
            feedLine();
        else if (first == '\b')
            _column -= _column > 0;
        else if (first >= ' ' || first < 0)
            put(first);
        else if (first != '\0' && first != '\017' && first != '\016' && first != '\a')
            _unknown += "control " + std::to_string(first) + "\n";
    }
    _pending = std::string(rest);
}

void ScreenReader::put(char character)
{
    if (_column == _width) {
        _column = 0;
        feedLine();
    }
    line()[_column++] = _last = character;
}

void ScreenReader::feedLine()
{
    if (_row + 1 != _regionEnd) {
        _row = std::min(_row + 1, _height - 1);
        return;
    }
    if (!_isSecond && _regionBegin == 0)
        _history += withoutEnd(lines().front()) + "\n";
    scroll(_regionBegin, 1);
}

void ScreenReader::scroll(std::size_t first, long count)
{
    auto const begin = lines().begin() + static_cast<std::ptrdiff_t>(first);
    auto const end = lines().begin() + static_cast<std::ptrdiff_t>(_regionEnd);
    long const most = std::max<long>(end - begin, 0);
    count = std::clamp(count, -most, most);
    if (count > 0) {
        std::rotate(begin, begin + count, end);
        std::fill(end - count, end, std::string(_width, ' '));
    } else {
        std::rotate(begin, end + count, end);
        std::fill(begin, begin - count, std::string(_width, ' '));
    }
}

void ScreenReader::carryOut(std::string const &sequence)
{
    char const last = sequence.back();
    if (sequence[0] != '[') {
        if (last == 'M' && _row == _regionBegin)
            scroll(_regionBegin, -1);
        else if (last == 'M')
            _row -= _row > 0;
        else if (last == 'D')
            feedLine();
        else if (!std::strchr("=>78BM0", last))
            _unknown += sequence + "\n";
        return;
    }
    std::string const text = sequence.substr(1, sequence.size() - 2);
    auto const numbers = listNumbers(text);
    std::size_t const count = std::max<std::size_t>(numbers[0], 1);
    auto const blank = [](std::string &line, std::size_t from, std::size_t to) {
        std::fill(line.begin() + static_cast<std::ptrdiff_t>(std::min(from, line.size())),
                  line.begin() + static_cast<std::ptrdiff_t>(std::min(to, line.size())), ' ');
    };
    switch (last) {
    case 'H':
        _row = std::min(count, _height) - 1;
        _column =
            std::min(std::max<std::size_t>(numbers.size() > 1 ? numbers[1] : 1, 1), _width) - 1;
        break;
    case 'd':
        _row = std::min(count, _height) - 1;
        break;
    case 'G':
        _column = std::min(count, _width) - 1;
        break;
    case 'A':
        _row -= std::min(count, _row);
        break;
    case 'B':
        _row = std::min(_row + count, _height - 1);
        break;
    case 'C':
        _column = std::min(_column + count, _width - 1);
        break;
    case 'D':
        _column -= std::min(count, _column);
        break;
    case 'J':
        for (std::size_t i = 0; i < _height; ++i)
            if (numbers[0] == 2 || i > _row)
                blank(lines()[i], 0, _width);
        if (numbers[0] != 2)
            blank(line(), _column, _width);
        break;
    case 'K':
        blank(line(), numbers[0] == 0 ? _column : 0, numbers[0] == 1 ? _column + 1 : _width);
        break;
    case 'X':
        blank(line(), _column, _column + count);
        break;
    case 'P':
        line().erase(_column, count);
        line().resize(_width, ' ');
        break;
    case '@':
        line().insert(_column, count, ' ');
        line().resize(_width);
        break;
    case 'L':
        scroll(_row, -static_cast<long>(count));
        break;
    case 'M':
        scroll(_row, static_cast<long>(count));
        break;
    case 'S':
        scroll(_regionBegin, static_cast<long>(count));
        break;
    case 'T':
        scroll(_regionBegin, -static_cast<long>(count));
        break;
    case 'b':
        for (std::size_t i = 0; i < count; ++i)
            put(_last);
        break;
    case 'h':
    case 'l':
        setMode(text, last == 'h');
        break;
    case 'm': // colours
    case 't': // titles of windows
        break;
    case 'r':
        _regionBegin = std::min(count, _height) - 1;
        _regionEnd =
            numbers.size() > 1 ? std::clamp(numbers[1], _regionBegin + 1, _height) : _height;
        _row = _column = 0;
        break;
    default:
        _unknown += sequence + "\n";
    }
}

void ScreenReader::setMode(std::string const &modes, bool isOn)
{
    if (modes == "?1049") {
        _nbSecond += isOn && !_isSecond;
        _isSecond = isOn;
        if (isOn)
            std::fill(_second.begin(), _second.end(), std::string(_width, ' '));
    } else if (modes.starts_with("?") && modes.find("25") != modes.npos) {
        _isCursorShown = isOn;
    }
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
