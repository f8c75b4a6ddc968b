// Output of the log: standard error, a file or a function (applications).
#pragma once

#include "zvbase/export.h"

#include <cstddef>

namespace Zv {

/// Selects the output of the log. It is standard error at first.
///
///     if (!Zv::LgTrace::openFile("mixer.log"))
///         Zv::LgTrace::print("The log goes to standard error.");
///
/// **Threads**: thread-safe.
///
/// **Blocks**: while another thread writes to the output. The operations that select an output
/// first write everything that was logged before.
class ZVBASE_EXPORT LgTrace
{
public:
    /// Receives the log. The library calls it once for each line, with the whole line, on one
    /// thread at a time. What the function itself writes to the log is dropped. If it throws, the
    /// exception leaves the call that was writing lines. That line is lost.
    using Output = void (*)(void *context, char const *text, std::size_t length);

    /// Writes a text that is not a trace line to the log, in order with all other lines. Adds a
    /// line end if the text has none.
    static void print(char const *text);

    /// Sends all lines from now on to a function, or to standard error if `output` is null. An open
    /// file is closed. `context` is passed to each call. When this returns, the former function is
    /// not called again.
    static void setOutput(Output output, void *context);
    /// Sends all lines from now on to a file, which is created or emptied. Returns false and
    /// changes nothing if the file cannot be opened.
    static bool openFile(char const *path);
    /// Closes the file and sends all lines from now on to standard error. Returns false if a part
    /// of the text could not be written, or if no file was open.
    static bool closeFile();

    LgTrace() = delete;
};

} // namespace Zv
