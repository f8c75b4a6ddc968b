// Traces an exception that cannot be passed on.
#pragma once

#include "zvbase/lgLine.h"
#include "zvbase/trace.h"

#include <exception>

namespace Zv {

/// Writes the exception that is being handled to the trace. The caller must be in a `catch` block.
/// For code that must drop the exception, such as a destructor that runs while another exception
/// unwinds the stack, because a second one would end the process.
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
