// Trace of a failure that cannot be told to the caller.
#pragma once

#include "zvbase/lgLine.h"
#include "zvbase/trace.h"

#include <exception>

namespace Zv {

/// Writes the exception that is being handled to the trace. For code that must drop it, such as a destructor that runs
/// while another exception passes: a second one would end the process. The caller must be in a `catch` block.
inline void traceCaught(char const *file, int line) noexcept
{
    try {
        try {
            throw;
        } catch (ExBase const &failure) {
            Trace::printException(failure, file, line);
        } catch (std::exception const &failure) {
            LgLine text;
            text.begin(file, line) << "Exception: " << failure.what();
        } catch (...) {
            LgLine text;
            text.begin(file, line) << "Exception of an unknown class";
        }
    } catch (...) {
        // There is no memory for the line.
    }
}

} // namespace Zv
