// Options of the command line.
#pragma once

#include "fault.h"
#include "show.h"

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

struct Options
{
    /// Reports a wrong command line. The text says why.
    struct Error : std::runtime_error
    {
        using runtime_error::runtime_error;
    };

    /// Throws `Error` if the command line is wrong.
    static Options parse(int argc, char const * const *argv);
    static char const *getHelp();

    /// Returns whether the input is a show, by its extension ".xml".
    bool isShow() const;
    /// Returns the show in the input, or a show with the input as its only clip. The options
    /// replace the corresponding parts. Throws `PlayoutEx`.
    std::unique_ptr<Show> makeShow() const;
    /// Throws `Error` if a fault names a device that is not in the sequence of the show.
    void checkFaults(Show const &show) const;

    bool help = false;
    std::string input;
    std::string output; ///< may be empty for a show
    std::string to;     ///< place of the sound card that plays; empty for none
    std::string from;   ///< place of the sound card that captures; empty for none
    std::optional<double> gain;
    std::optional<double> length; ///< seconds that a microphone captures
    std::optional<std::string> sequence;
    std::vector<std::string> streams;
    std::vector<std::string> properties;
    std::string trace;       ///< empty for none
    std::string traceEvents; ///< empty for none
    std::string report;      ///< path of the page; empty for none
    std::optional<int> blockFrames;
    Faults faults;
    bool dumpShow = false;
    bool fast = false;
    bool realTime = false;
    bool top = false; ///< show a live table

private:
    bool *findFlag(std::string const &name);
    void takeFiles(std::vector<std::string> files);
    bool hasCard() const { return !to.empty() || !from.empty(); }
    void useCards(Show &show) const;
};
