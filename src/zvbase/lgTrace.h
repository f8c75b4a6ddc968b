// Where the log ends up.
#pragma once

#include "zvbase/export.h"

#include <cstddef>

namespace Zv {

/// The output of the log: standard error, a function, or a file. Any thread.
class ZVBASE_EXPORT LgTrace
{
public:
    /// Takes whole lines: one call for each, one at a time. What it writes to the log itself is dropped. What it throws
    /// leaves the call that had the lines written: the line is lost, and the next one is given to it again.
    using Output = void (*)(void *context, char const *text, std::size_t length);

    /// Writes a text that is no trace line, on the way that all lines take. A line end is added where it has none.
    static void print(char const *text);

    /// Gives all lines from now on to a function; null means standard error. A file is closed. `context` is handed
    /// to each call; when this returns, the former function is not called any more.
    static void setOutput(Output output, void *context);
    /// Writes all lines from now on to a file, which is made or emptied. False, and nothing changes, where it cannot
    /// be opened.
    static bool openFile(char const *path);
    /// Closes the file and goes back to standard error. False where not all of the text could be written, or none
    /// was open.
    static bool closeFile();

    LgTrace() = delete;
};

} // namespace Zv
