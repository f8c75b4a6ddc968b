// What must not be written over.
#pragma once

#include "options.h"
#include "show.h"

#include <string>

/// Compares the files that are written, the trace among them, with the files that are read and with each other. Throws
/// `PlayoutEx::Output` if one would be written over. Links are followed; a file that does not exist yet is known by its
/// folder and its name. `output` may be empty for a show that is not played.
void checkFiles(Options const &options, Show const &show, std::string const &output);
