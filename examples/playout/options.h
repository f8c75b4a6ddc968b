// The command line.
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
    /// A command line that cannot be understood: the text says why.
    struct Error : std::runtime_error
    {
        using runtime_error::runtime_error;
    };

    /// Throws `Error`.
    static Options parse(int argc, char const * const *argv);
    static char const *getHelp();

    /// Whether the input is a show: by its extension.
    bool isShow() const;
    /// The show of the document, or of the one file, with what the options say in its place. Throws `PlayoutEx`.
    std::unique_ptr<Show> makeShow() const;
    /// Throws `Error` if a fault is for a device that the sequence of the show does not have.
    void checkFaults(Show const &show) const;

    bool help = false;
    std::string input;
    std::string output; ///< may be empty for a show
    std::optional<double> gain;
    std::optional<std::string> sequence;
    std::vector<std::string> streams;
    std::vector<std::string> properties;
    std::string trace; ///< empty for none
    std::optional<int> blockFrames;
    Faults faults;
    bool dumpShow = false;
    bool fast = false;
    bool realTime = false;

private:
    bool *findFlag(std::string const &name);
};
