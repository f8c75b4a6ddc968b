// zvplayout: plays recordings through a tree of managed devices.

#include "client.h"
#include "fileCheck.h"
#include "options.h"
#include "playoutEx.h"
#include "realTime.h"
#include "shownText.h"
#include "signals.h"

#include <zvbase/zvbase.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace {

enum Status
{
    DONE = 0,
    FAILED = 1,
    WRONG_USAGE = 2,
    NO_ANSWER = 3,  // a device hangs
    SIGNALLED = 128 // plus the number of the signal
};

constexpr std::size_t LONGEST_MESSAGE = 1000; // bytes

/// Sends the trace to a file, with all levels enabled. Without a file the trace is dropped, so that
/// a failed assertion, which is also traced, is shown only once.
class TraceFile
{
public:
    TraceFile()
    {
        Zv::LgTrace::setOutput([](void *, char const *, std::size_t) {}, nullptr);
    }
    TraceFile(TraceFile const &) = delete;
    TraceFile &operator=(TraceFile const &) = delete;
    ~TraceFile()
    {
        if (!_path.empty())
            Zv::LgTrace::closeFile();
    }

    /// Does nothing for an empty path. Throws `PlayoutEx::Output`.
    void open(std::string const &path)
    {
        if (path.empty())
            return;
        if (!Zv::LgTrace::openFile(path.c_str())) {
            if (errno == EINTR && Signals::getCaught()) // while waiting for the reader of a pipe
                ZV_THROW(PlayoutEx::Interrupted);
            ZV_THROW(PlayoutEx::Output, path.c_str(), std::strerror(errno));
        }
        _path = path;
        Zv::Trace::setEnabled("*", true);
    }

    void close()
    {
        if (!_path.empty() && !Zv::LgTrace::closeFile())
            ZV_THROW(PlayoutEx::Output, std::exchange(_path, "").c_str(),
                     "the trace is not complete");
        _path.clear();
    }

private:
    std::string _path;
};

/// Writes the trace of events, if the command line asks for it.
class TraceEventsFile
{
public:
    /// Does nothing for an empty path. Throws `Zv::TraceEx`.
    void open(std::string const &path)
    {
        if (path.empty())
            return;
        Zv::TraceEvents::nameThread("main");
        _session.emplace(path, Zv::TraceSession::Settings{.processName = "zvplayout"});
    }

    /// Throws `Zv::TraceEx`.
    void close()
    {
        if (_session)
            _session->stop();
    }

private:
    std::optional<Zv::TraceSession> _session;
};

int report(std::string const &reason, Status status = FAILED)
{
    Signals::beginReport();
    std::cerr << "zvplayout: " << toShownText(reason) << std::endl;
    return status;
}

int reportSignal(std::string const &output)
{
    Signals::beginReport();
    std::cerr << "zvplayout: " << Signals::getMessage(output) << std::endl;
    return SIGNALLED + Signals::getCaught();
}

/// Writes a text to the standard output. Throws `PlayoutEx::Output`, with `name`, if that fails.
void print(std::string const &text, char const *name)
{
    errno = 0;
    std::cout << text << std::flush;
    if (!std::cout)
        ZV_THROW(PlayoutEx::Output, name, std::strerror(errno));
}

std::string chooseOutput(Options const &options, Show const &show)
{
    if (!options.output.empty())
        return options.output;
    if (show.find("speaker"))
        return "";
    if (show.output.empty() && !options.dumpShow)
        ZV_THROW(PlayoutEx::Client, (show.getWhere() + "show: it names no output").c_str());
    return show.output.empty() ? "" : show.resolve(show.output);
}

int reportUsage(Options::Error const &error)
{
    std::cerr << "zvplayout: " << toShownText(shorten(error.what(), LONGEST_MESSAGE))
              << "\nzvplayout --help lists what it takes" << std::endl;
    return WRONG_USAGE;
}

/// Reports the exception that is being handled. Must be called in a handler.
int reportException(std::string const &output)
{
    try {
        throw;
    } catch (PlayoutEx::Interrupted const &) {
        return reportSignal(output);
    } catch (PlayoutEx::NoAnswer const &failure) {
        return report(failure.getReason(), NO_ANSWER);
    } catch (Options::Error const &error) {
        return reportUsage(error);
    } catch (Zv::ExBase const &failure) {
        return report(failure.getReason());
    } catch (std::exception const &failure) {
        return report(failure.what());
    }
}

/// Plays the show. Returns whether the recording is complete. If a device hangs, ends the process
/// instead, because its thread may still use everything.
bool run(Client *client, std::string const &output, TraceFile &trace, TraceEventsFile &events)
{
    std::unique_ptr<Client> owner(client);
    int status = DONE;
    try {
        bool const isComplete = client->run();
        if (!client->hasLeftBehind())
            return isComplete;
        events.close();
        trace.close();
        status = isComplete ? DONE : reportSignal(output);
    } catch (...) {
        if (!client->hasLeftBehind())
            throw;
        try {
            events.close();
            trace.close();
        } catch (Zv::ExBase const &) { // the first failure is worse
        }
        status = reportException(output);
    }
    static_cast<void>(owner.release());
    Signals::endWith(status);
}

int playOut(Options const &options)
{
    std::string output = options.output;
    try {
        TraceFile trace;
        TraceEventsFile events;
        bool isComplete = false;
        {
            Signals::setOutput(output);
            if (options.realTime)
                RealTime::request();
            Zv::InPackageScope packages;
            auto const show = options.makeShow();
            output = chooseOutput(options, *show);
            Signals::setOutput(output);
            options.checkFaults(*show);
            checkFiles(options, *show, output);
            trace.open(options.trace);
            if (options.dumpShow) {
                print(Zv::XmlWriter().toXmlDocument(*show).getChars(), "the show");
                return DONE;
            }
            events.open(options.traceEvents);
            isComplete = run(new Client(options, *show, output), output, trace, events);
        }
        events.close();
        trace.close();
        return isComplete ? DONE : reportSignal(output);
    } catch (...) {
        return reportException(output);
    }
}

/// Opens /dev/null for each standard stream that is closed, so that no other file gets its number.
/// It is opened for the wrong direction, so that reading or writing still fails.
void occupyStandardStreams()
{
    for (int const number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (::fcntl(number, F_GETFD) < 0) // so it is the lowest free number
            ::open("/dev/null", number == STDIN_FILENO ? O_WRONLY : O_RDONLY);
}

} // namespace

int main(int argc, char **argv)
{
    occupyStandardStreams();
    Options options;
    try {
        options = Options::parse(argc, argv);
    } catch (Options::Error const &error) {
        return reportUsage(error);
    }
    if (options.help) {
        try {
            print(Options::getHelp(), "the help");
        } catch (PlayoutEx const &failure) {
            return report(failure.getReason());
        }
        return DONE;
    }
    Signals::install();
    return playOut(options);
}
