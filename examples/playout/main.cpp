// zvplayout: recordings through a tree of managed devices.

#include "client.h"
#include "options.h"
#include "playoutEx.h"
#include "realTime.h"
#include "signals.h"

#include <zvbase/zvbase.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <string>

namespace {

enum Status
{
    DONE = 0,
    FAILED = 1,
    WRONG_USAGE = 2,
    SIGNALLED = 128 // and the number of the signal
};

/// Sends the log to a file, with all levels on.
class TraceFile
{
public:
    /// Nothing for an empty path.
    explicit TraceFile(std::string const &path) : _path(path)
    {
        if (path.empty())
            return;
        if (!Zv::LgTrace::openFile(path.c_str()))
            ZV_THROW(PlayoutEx::Output, path.c_str(), std::strerror(errno));
        Zv::Trace::setEnabled("*", true);
    }
    TraceFile(TraceFile const &) = delete;
    TraceFile &operator=(TraceFile const &) = delete;
    ~TraceFile()
    {
        if (!_path.empty())
            Zv::LgTrace::closeFile();
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

int report(char const *reason)
{
    std::cerr << "zvplayout: " << reason << std::endl;
    return FAILED;
}

int dump(Show &show)
{
    std::cout << Zv::XmlWriter().toXmlDocument(show).getChars() << std::flush;
    if (!std::cout)
        ZV_THROW(PlayoutEx::Output, "the show", std::strerror(errno));
    return DONE;
}

int playOut(Options const &options)
{
    try {
        TraceFile trace(options.trace);
        bool isComplete = false;
        std::string output;
        {
            if (options.realTime)
                RealTime::request();
            Zv::InPackageScope packages;
            auto const show = options.makeShow();
            if (options.dumpShow)
                return dump(*show);
            Client client(options, *show);
            output = client.getOutput();
            isComplete = client.run();
        }
        trace.close();
        if (isComplete)
            return DONE;
        report(("interrupted: " + output + " was not written").c_str());
        return SIGNALLED + Signals::getCaught();
    } catch (Zv::ExBase const &failure) {
        return report(failure.getReason());
    } catch (std::exception const &failure) {
        return report(failure.what());
    }
}

} // namespace

int main(int argc, char **argv)
{
    Options options;
    try {
        options = Options::parse(argc, argv);
    } catch (Options::Error const &error) {
        std::cerr << "zvplayout: " << error.what() << "\nzvplayout --help lists what it takes"
                  << std::endl;
        return WRONG_USAGE;
    }
    if (options.help) {
        std::cout << Options::getHelp();
        return DONE;
    }
    Signals::install();
    return playOut(options);
}
