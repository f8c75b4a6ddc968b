#include "screen.h"

#include "playoutEx.h"

#ifdef ZVPLAYOUT_NCURSES

#define NCURSES_NOMACROS // which would replace names of ours

#include "signals.h"

#include <curses.h>
#include <fcntl.h>
#include <langinfo.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <term.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#undef lines // of <term.h>

namespace {

constexpr int LOOKS = 10;                      // for room in the terminal, in an end at once
constexpr int LOOK = 20;                       // milliseconds for each
constexpr std::size_t MOST_ERRORS = 64 * 1024; // bytes that are kept of the standard error
constexpr int FATAL[] = {SIGQUIT, SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV};

/// What the signal handlers need. It is written before they are installed.
struct WayBack
{
    std::atomic<bool> isNeeded = false; // the screen shows the table
    int screen = -1;                    // to which ncurses writes
    int terminal = -1;                  // does not block
    int nothing = -1;                   // /dev/null
    int errors = -1;                    // the standard error of before; -1 if it was left alone
    int wakeUp = -1;
    termios modes = {};
    std::array<char, 512> text = {}; // what the terminal needs to show its lines again
    std::size_t length = 0;
};
WayBack wayBack;
std::atomic<bool> mustStop = false; // Ctrl-Z asks for it
std::atomic<bool> hasGoneOn = false;

static_assert(std::atomic<bool>::is_always_lock_free);

/// Lets the calling thread set the modes of the terminal in the background, too.
class InBackground
{
public:
    InBackground()
    {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGTTOU);
        pthread_sigmask(SIG_BLOCK, &signals, &_former);
    }
    InBackground(InBackground const &) = delete;
    InBackground &operator=(InBackground const &) = delete;
    ~InBackground() { pthread_sigmask(SIG_SETMASK, &_former, nullptr); }

private:
    sigset_t _former;
};

/// Leaves the terminal as it was, while the thread that draws may be anywhere. Calls only what a
/// signal handler may call. What is still drawn after it is lost.
void leaveAtOnce()
{
    if (!wayBack.isNeeded.exchange(false))
        return;
    int const error = errno;
    InBackground const inBackground;
    ::dup2(wayBack.nothing, wayBack.screen);
    std::size_t done = 0;
    for (int looks = 0; done < wayBack.length && looks < LOOKS;) {
        auto const count =
            ::write(wayBack.terminal, wayBack.text.data() + done, wayBack.length - done);
        if (count > 0) {
            done += static_cast<std::size_t>(count);
            continue;
        }
        pollfd room = {wayBack.terminal, POLLOUT, 0};
        ::poll(&room, 1, LOOK);
        ++looks;
    }
    ::tcsetattr(wayBack.terminal, TCSANOW, &wayBack.modes);
    if (wayBack.errors >= 0)
        ::dup2(wayBack.errors, STDERR_FILENO);
    errno = error;
}

void wakeUp()
{
    int const error = errno;
    [[maybe_unused]] ssize_t const ignored = ::write(wayBack.wakeUp, "", 1);
    errno = error;
}

/// Handler of the signals of a fatal error, which it passes on.
void leaveAndFail(int number)
{
    leaveAtOnce();
    ::raise(number); // the handler is no longer installed
}

void stopLater(int)
{
    mustStop = true;
    wakeUp();
}

void drawAgain(int)
{
    hasGoneOn = true;
    wakeUp();
}

void measureAgain(int)
{
    wakeUp();
}

/// Handlers in place of the default ones.
class Handlers
{
public:
    Handlers() = default;
    Handlers(Handlers const &) = delete;
    Handlers &operator=(Handlers const &) = delete;
    ~Handlers()
    {
        for (auto const &[number, former] : _former)
            sigaction(number, &former, nullptr);
    }

    /// Does nothing if the signal has a handler already or is ignored.
    void set(int number, void (*handler)(int), int flags)
    {
        struct sigaction former = {};
        sigaction(number, nullptr, &former);
        if (former.sa_handler != SIG_DFL)
            return;
        struct sigaction action = {};
        action.sa_handler = handler;
        action.sa_flags = flags;
        sigaction(number, &action, nullptr);
        _former.emplace_back(number, former);
    }

private:
    std::vector<std::pair<int, struct sigaction>> _former;
};

class Descriptor
{
public:
    explicit Descriptor(int number = -1) : _number(number) {}
    Descriptor(Descriptor const &) = delete;
    Descriptor &operator=(Descriptor const &) = delete;
    ~Descriptor() { set(-1); }

    void set(int number)
    {
        if (_number >= 0)
            ::close(_number);
        _number = number;
    }
    int get() const { return _number; }

private:
    int _number;
};

[[noreturn]] void refuse(std::string const &reason)
{
    ZV_THROW(PlayoutEx::Client, ("--top: " + reason).c_str());
}

int openTerminal(int flags)
{
    int const terminal = ::open("/dev/tty", flags | O_CLOEXEC | O_NOCTTY);
    if (terminal < 0)
        refuse(std::string("there is no terminal to draw on: ") + std::strerror(errno));
    return terminal;
}

/// Appends a character to the text that leads back. For `tputs`.
int addToWayBack(int character)
{
    if (wayBack.length < wayBack.text.size())
        wayBack.text[wayBack.length++] = static_cast<char>(character);
    return character;
}

/// Returns a capability of the terminal. Returns null if it lacks it.
char *getCapability(char const *name)
{
    char * const text = tigetstr(const_cast<char *>(name));
    return text == reinterpret_cast<char *>(-1) ? nullptr : text;
}

void keepWayBack()
{
    wayBack.length = 0;
    for (char const * const name : {"sgr0", "op", "rmkx", "cnorm", "rmcup"})
        if (char * const text = getCapability(name))
            tputs(text, 1, &addToWayBack);
    if (!getCapability("rmcup")) // the cursor is at the end of the table
        for (char const character : {'\r', '\n'})
            addToWayBack(character);
}

class NcursesScreen final : public Screen
{
public:
    NcursesScreen();
    ~NcursesScreen() override;

    int getWidth() const override { return COLS; }
    int getHeight() const override { return LINES; }
    void draw(std::vector<TopLine> const &lines) override;
    Key wait(double seconds) override;
    void wake() override { wakeUp(); }
    std::vector<std::string> takeErrors() override;

private:
    void begin();
    void end();
    bool isInForeground() const;
    void enter();
    void leave();
    void stop();
    void followSize() const;
    void redirectErrors();
    void readErrors();
    Key readKey() const;

    Descriptor _terminal;
    Descriptor _nothing;
    Descriptor _wakeUp; // the ends of a pipe
    Descriptor _wokenUp;
    Descriptor _errors; // of the standard error: what it was, and what is written to it now
    Descriptor _newErrors;
    std::string _errorText;
    std::size_t _errorPlace = 0; // up to which its lines were taken
    FILE *_file = nullptr;
    SCREEN *_screen = nullptr;
    Handlers _handlers;
    bool _hasColors = false;
    bool _isUtf8 = false;
    bool _isIn = false;   // the terminal shows the table
    bool _isGone = false; // the terminal was closed
};

NcursesScreen::NcursesScreen()
    : _terminal(openTerminal(O_WRONLY | O_NONBLOCK)),
      _nothing(::open("/dev/null", O_WRONLY | O_CLOEXEC))
{
    int const screen = openTerminal(O_RDWR);
    _file = ::fdopen(screen, "r+");
    try {
        begin();
    } catch (...) {
        end();
        throw;
    }
}

NcursesScreen::~NcursesScreen()
{
    end();
}

void NcursesScreen::begin()
{
    int wakeUp[2] = {-1, -1};
    if (!_file || _nothing.get() < 0 || ::pipe2(wakeUp, O_CLOEXEC | O_NONBLOCK) != 0 ||
        ::tcgetattr(_terminal.get(), &wayBack.modes) != 0)
        refuse(std::strerror(errno));
    _wokenUp.set(wakeUp[0]);
    _wakeUp.set(wakeUp[1]);
    wayBack.screen = ::fileno(_file);
    wayBack.terminal = _terminal.get();
    wayBack.nothing = _nothing.get();
    wayBack.wakeUp = _wakeUp.get();
    mustStop = false;
    hasGoneOn = false;

    // Handlers that exist already are left alone by ncurses, whose own ones draw.
    _handlers.set(SIGTSTP, &stopLater, SA_RESTART);
    _handlers.set(SIGWINCH, &measureAgain, SA_RESTART);
    _handlers.set(SIGCONT, &drawAgain, SA_RESTART);

    char const * const type = std::getenv("TERM");
    if (!type || !*type)
        refuse("the type of the terminal is not known, because TERM is not set");
    std::setlocale(LC_CTYPE, "");
    _isUtf8 = std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
    _screen = newterm(nullptr, _file, _file);
    if (!_screen)
        refuse(std::string("there is no description of the terminal's type \"") + type + "\"");
    if (!getCapability("cup") || !getCapability("clear"))
        refuse(std::string("a terminal of the type \"") + type + "\" cannot show a table");
    cbreak();
    noecho();
    nonl();
    keypad(stdscr, TRUE);
    nodelay(stdscr, TRUE);
    set_escdelay(25);
    _hasColors = has_colors() && start_color() != ERR && use_default_colors() != ERR &&
                 init_pair(1, COLOR_RED, -1) != ERR;
    termios modes = {};
    ::tcgetattr(_terminal.get(), &modes);
    modes.c_iflag &= ~static_cast<tcflag_t>(IXON); // Ctrl-S would hold up the end
    ::tcsetattr(_terminal.get(), TCSANOW, &modes);
    def_prog_mode();

    keepWayBack();
    redirectErrors();
    for (int const number : FATAL)
        _handlers.set(number, &leaveAndFail, SA_RESETHAND);
    Signals::setLeaving(&leaveAtOnce);
    _isIn = true;
    wayBack.isNeeded = true;
    curs_set(0);
}

/// Leaves the terminal and takes back what `begin` has done so far.
void NcursesScreen::end()
{
    InBackground const inBackground;
    if (_screen) {
        leave();
        Signals::setLeaving(nullptr);
        ::tcsetattr(_terminal.get(), TCSADRAIN, &wayBack.modes);
        delscreen(std::exchange(_screen, nullptr));
    }
    if (_errors.get() >= 0) {
        ::dup2(_errors.get(), STDERR_FILENO);
        wayBack.errors = -1;
        readErrors();
        [[maybe_unused]] ssize_t const ignored =
            ::write(STDERR_FILENO, _errorText.data(), _errorText.size());
        _errors.set(-1);
    }
    if (_file)
        std::fclose(std::exchange(_file, nullptr));
}

/// Lets what is written to the standard error wait for the end, if it would be written over the
/// table. A writer never waits. What has no room is lost.
void NcursesScreen::redirectErrors()
{
    int ends[2] = {-1, -1};
    if (!::isatty(STDERR_FILENO) || ::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    _newErrors.set(ends[0]);
    _errors.set(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0));
    wayBack.errors = _errors.get();
    if (_errors.get() >= 0)
        ::dup2(ends[1], STDERR_FILENO);
    ::close(ends[1]);
}

void NcursesScreen::readErrors()
{
    char buffer[4096];
    for (ssize_t count;
         _newErrors.get() >= 0 && (count = ::read(_newErrors.get(), buffer, sizeof buffer)) > 0;) {
        auto const room = MOST_ERRORS - _errorText.size();
        _errorText.append(buffer, std::min(static_cast<std::size_t>(count), room));
    }
}

std::vector<std::string> NcursesScreen::takeErrors()
{
    readErrors();
    std::vector<std::string> lines;
    for (std::size_t end; (end = _errorText.find('\n', _errorPlace)) != _errorText.npos;) {
        lines.push_back(_errorText.substr(_errorPlace, end - _errorPlace));
        _errorPlace = end + 1;
    }
    return lines;
}

bool NcursesScreen::isInForeground() const
{
    return ::tcgetpgrp(_terminal.get()) == ::getpgrp();
}

void NcursesScreen::enter()
{
    InBackground const inBackground;
    _isIn = true;
    wayBack.isNeeded = true;
    clearok(curscr, TRUE);
    ::refresh();
}

void NcursesScreen::leave()
{
    InBackground const inBackground;
    if (!std::exchange(_isIn, false))
        return;
    ::endwin();
    wayBack.isNeeded = false;
}

/// Stops the process with its terminal as it was. Returns when the process goes on.
void NcursesScreen::stop()
{
    leave();
    struct sigaction own = {};
    struct sigaction standard = {};
    standard.sa_handler = SIG_DFL;
    sigaction(SIGTSTP, &standard, &own);
    ::raise(SIGTSTP);
    sigaction(SIGTSTP, &own, nullptr);
}

void NcursesScreen::followSize() const
{
    winsize size = {};
    if (::ioctl(_terminal.get(), TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0)
        return;
    if (size.ws_row != LINES || size.ws_col != COLS)
        ::resizeterm(size.ws_row, size.ws_col);
}

void NcursesScreen::draw(std::vector<TopLine> const &lines)
{
    if (!isInForeground())
        return;
    if (!_isIn)
        enter();
    ::erase();
    int line = 0;
    for (TopLine const &each : lines) {
        using Style = TopLine::Style;
        std::string text = each.text;
        if (!_isUtf8)
            std::replace_if(
                text.begin(), text.end(), [](char c) { return c < 0; }, '?');
        attr_t const style = each.style == Style::TITLE   ? A_REVERSE
                             : each.style == Style::PLAIN ? A_NORMAL
                                                          : A_BOLD;
        bool const isRed = each.style == Style::ALARM && _hasColors;
        attrset(static_cast<int>(style) | (isRed ? COLOR_PAIR(1) : 0));
        mvaddnstr(line++, 0, text.data(), static_cast<int>(text.size()));
    }
    attrset(A_NORMAL);
    ::move(LINES - 1, 0);
    ::refresh();
}

Screen::Key NcursesScreen::readKey() const
{
    switch (::getch()) {
    case KEY_UP:
    case 'k':
        return Key::UP;
    case KEY_DOWN:
    case 'j':
        return Key::DOWN;
    case KEY_PPAGE:
        return Key::PAGE_UP;
    case KEY_NPAGE:
    case ' ':
        return Key::PAGE_DOWN;
    case KEY_HOME:
        return Key::HOME;
    case KEY_END:
        return Key::END;
    case 'q':
        return Key::QUIT;
    case 's':
        return Key::SORT;
    default:
        return Key::NONE;
    }
}

Screen::Key NcursesScreen::wait(double seconds)
{
    bool const isRead = _isIn && !_isGone && isInForeground();
    pollfd events[] = {{isRead ? ::fileno(_file) : -1, POLLIN, 0},
                       {_wokenUp.get(), POLLIN, 0},
                       {_newErrors.get(), POLLIN, 0}};
    ::poll(events, std::size(events), static_cast<int>(seconds * 1000));
    char buffer[64];
    while (::read(_wokenUp.get(), buffer, sizeof buffer) > 0) {
    }
    if (mustStop.exchange(false))
        stop();
    // A process that was stopped by SIGSTOP has not left the table. Another program may have drawn
    // over it.
    if (hasGoneOn.exchange(false)) {
        if (isInForeground())
            leave();
        _isIn = false;
        wayBack.isNeeded = false;
    }
    followSize();
    _isGone = _isGone || (events[0].revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
    return isRead && _isIn && (events[0].revents & POLLIN) != 0 ? readKey() : Key::NONE;
}

} // namespace

std::unique_ptr<Screen> Screen::open()
{
    return std::make_unique<NcursesScreen>();
}

#else

std::unique_ptr<Screen> Screen::open()
{
    ZV_THROW(PlayoutEx::Client, ("--top: " + describeMissing("ncurses", "libncurses-dev")).c_str());
}

#endif
