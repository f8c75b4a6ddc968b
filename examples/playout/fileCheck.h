// Keeps the program from overwriting its own input and output files.
#pragma once

#include "options.h"
#include "show.h"

#include <string>

/// Compares the files that will be written, including the trace, with the files that will be read
/// and with each other. Throws `PlayoutEx::Output` if one would be overwritten. Links are followed.
/// A file that does not exist yet is identified by its folder and its name. `output` may be empty
/// for a show that is not played.
void checkFiles(Options const &options, Show const &show, std::string const &output);
