#include "signals.h"

#include "shownText.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <ctime>

namespace {

constexpr long SECOND = 1'000'000'000; // nanoseconds
// Nanoseconds from a signal to the end at once, and between later looks.
constexpr long USUAL_PATIENCE = 450'000'000;
constexpr long SOON = 20'000'000; // nanoseconds between looks whether the output is in its place
constexpr int LOOKS = 50;         // number of such looks before the output counts as not written
constexpr int TIMER_SIGNAL = SIGVTALRM;

enum class Phase
{
    running,
    critical,
    complete,  // the output is in its place
    reporting, // a thread reports how the process ends
    ending     // the process is being ended at once
};

struct File
{
    std::atomic<bool> isUsed = false;
    int descriptor = -1;
    char path[PATH_MAX] = {};
};

struct Message
{
    char text[1024] = {};
    std::size_t length = 0;
};

// State that the signal handlers use.
std::atomic<int> caught = 0;
std::atomic<Phase> phase = Phase::running;
std::array<File, 4> files;
std::array<Message, 2> messages; // one is read while the other is written
std::atomic<std::size_t> current = 0;
std::atomic<long> patience = USUAL_PATIENCE; // nanoseconds
std::atomic<bool> isPatienceOver = false;
std::atomic<bool> isLineOpen = false;
std::atomic<void (*)()> leaving = nullptr;
timer_t timer = {};
bool hasTimer = false;

static_assert(std::atomic<int>::is_always_lock_free);
static_assert(std::atomic<Phase>::is_always_lock_free);
static_assert(std::atomic<std::size_t>::is_always_lock_free);
static_assert(std::atomic<bool>::is_always_lock_free);
static_assert(std::atomic<long>::is_always_lock_free);
static_assert(std::atomic<void (*)()>::is_always_lock_free);

void setTimer(long nanoseconds)
{
    itimerspec const times = {{0, USUAL_PATIENCE}, {nanoseconds / SECOND, nanoseconds % SECOND}};
    if (hasTimer)
        timer_settime(timer, 0, &times, nullptr);
}

void leaveTerminal()
{
    if (auto const leave = leaving.load())
        leave();
}

[[noreturn]] void endNow(int status)
{
    leaveTerminal();
    ::_exit(status);
}

[[noreturn]] void waitForEnd()
{
    for (;;)
        ::pause();
}

void removeFiles()
{
    for (File const &file : files)
        if (file.isUsed && Signals::isFileAt(file.path, file.descriptor))
            ::unlink(file.path);
}

/// Ends the process at once, because the orderly stop takes too long. Handler of the timer's
/// signal.
void stopNow(int)
{
    int const error = errno;
    bool const isSecondLook = isPatienceOver.exchange(true);
    Phase seen = Phase::running;
    if (phase.compare_exchange_strong(seen, Phase::ending)) {
        leaveTerminal();
        removeFiles();
        Message const &message = messages[current];
        [[maybe_unused]] ssize_t ignored = isLineOpen ? ::write(STDOUT_FILENO, "\n", 1) : 0;
        ignored = ::write(STDERR_FILENO, message.text, message.length);
        ::_exit(128 + caught);
    }
    if (isSecondLook && seen == Phase::complete)
        endNow(0);
    if (isSecondLook && seen == Phase::reporting)
        endNow(128 + caught);
    errno = error;
}

/// Begins an orderly stop. Returns false if one has begun already.
bool askForStop(int number)
{
    int none = 0;
    bool const isFirst = caught.compare_exchange_strong(none, number);
    if (isFirst)
        setTimer(patience);
    return isFirst;
}

/// Begins an orderly stop. At a second signal, ends the process at once. Handler of the signals
/// that ask for a stop.
void stopLater(int number)
{
    if (askForStop(number))
        return;
    isPatienceOver = true;
    setTimer(SOON);
    stopNow(number);
}

} // namespace

void Signals::install()
{
    setOutput("");
    struct sigaction action = {};
    action.sa_handler = &stopNow;
    sigaction(TIMER_SIGNAL, &action, nullptr);
    struct sigevent event = {};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = TIMER_SIGNAL;
    hasTimer = timer_create(CLOCK_MONOTONIC, &event, &timer) == 0;
    for (int const signal : {SIGINT, SIGTERM, SIGHUP}) {
        action = {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler == SIG_IGN)
            continue; // set by nohup, or by a shell for a background job
        action = {};
        action.sa_handler = &stopLater;
        sigaction(signal, &action, nullptr);
    }
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

void Signals::askForStop()
{
    ::askForStop(SIGINT);
}

int Signals::getCaught()
{
    return caught;
}

void Signals::beginEnd(double seconds)
{
    patience = static_cast<long>(seconds * SECOND);
    if (caught) // if a signal arrives later, its handler uses the new time
        setTimer(patience);
}

void Signals::setLeaving(void (*leave)())
{
    leaving = leave;
}

void Signals::setLineOpen(bool isOpen)
{
    isLineOpen = isOpen;
}

void Signals::endWith(int status)
{
    Phase seen = Phase::running;
    if (phase.compare_exchange_strong(seen, Phase::ending) || seen == Phase::reporting)
        removeFiles();
    endNow(status);
}

void Signals::setOutput(std::string const &path)
{
    std::string const text = "zvplayout: " + getMessage(path) + "\n";
    std::size_t const next = 1 - current;
    Message &message = messages[next];
    message.length = std::min(text.size(), sizeof message.text);
    std::memcpy(message.text, text.data(), message.length);
    current = next;
}

std::string Signals::getMessage(std::string const &path)
{
    return "interrupted" + (path.empty() ? "" : ": " + toShownText(path) + " was not written");
}

bool Signals::beginReport()
{
    timespec const moment = {0, SOON};
    for (int i = 0; i < LOOKS; ++i) {
        Phase seen = Phase::running;
        if (phase.compare_exchange_strong(seen, Phase::reporting))
            return false;
        if (seen == Phase::ending)
            waitForEnd();
        if (seen != Phase::critical)
            return seen == Phase::complete;
        ::nanosleep(&moment, nullptr);
    }
    return false;
}

Signals::Critical::Critical()
{
    Phase seen = Phase::running;
    if (!phase.compare_exchange_strong(seen, Phase::critical) &&
        (seen == Phase::ending || seen == Phase::reporting))
        waitForEnd();
}

Signals::Critical::~Critical()
{
    Phase seen = Phase::critical;
    phase.compare_exchange_strong(seen, _isComplete ? Phase::complete : Phase::running);
}

int Signals::remember(std::string const &path, int descriptor)
{
    for (std::size_t i = 0; i < files.size(); ++i) {
        File &file = files[i];
        if (file.isUsed || path.size() >= sizeof file.path)
            continue;
        std::memcpy(file.path, path.c_str(), path.size() + 1);
        file.descriptor = descriptor;
        file.isUsed = true;
        return static_cast<int>(i);
    }
    return -1;
}

void Signals::forget(int number)
{
    if (number >= 0)
        files[static_cast<std::size_t>(number)].isUsed = false;
}

bool Signals::isFileAt(char const *path, int descriptor)
{
    struct stat file = {};
    struct stat there = {};
    return ::fstat(descriptor, &file) == 0 && ::lstat(path, &there) == 0 &&
           file.st_dev == there.st_dev && file.st_ino == there.st_ino;
}
