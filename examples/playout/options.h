// The command line.
#pragma once

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

    bool help = false;
    std::string input;
    std::string output;
    std::optional<double> gain;
    std::string sequence = "( recorder ( fader ( player ) ) )";
    std::vector<std::string> streams; ///< the default ones where none is given
    std::vector<std::string> properties;
    std::string trace; ///< empty for none
    int blockFrames = 1024;
};

/// The whole text as a number, or nothing. Infinities are none.
std::optional<double> parseNumber(std::string const &text);
