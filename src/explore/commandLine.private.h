// Command line of programs that explore schedules (extenders).
#pragma once

#include "explore/explorer.private.h"

#include <optional>
#include <string>

namespace Zv::Simulated {

/// Makes all processes of a program the same: no random addresses, one processor, one arena of
/// memory. May start the program again. Call it first in `main`.
void prepareProcess(char **argv);

/// How programs with a command line of their own differ.
struct CommandLine
{
    std::string command;               ///< what runs these programs, for texts
    std::optional<unsigned> schedules; ///< of each program, if the user chooses no number. By
                                       ///< default those of its settings
};

/// Does what the arguments from `argv[1]` on ask for, which `--help` prints. Returns the status of
/// the process: 0 if nothing was found, 1 if there is a finding, and 2 for wrong arguments.
int runCommandLine(Nursery &nursery, int argc, char **argv, CommandLine const &line);

} // namespace Zv::Simulated
