// Failed assertions: a programmer's mistake, or a system call that must not fail and did.
#pragma once

#include "zvbase/export.h"

#include <cstddef>
#include <stdexcept>

namespace Zv {

/// A condition that the code relies on was false. Not an `ExBase`: nobody takes it for a device's failure.
class ZVBASE_EXPORT AssertionFailed : public std::logic_error
{
public:
    AssertionFailed(char const *file, int line, char const *expression);
    AssertionFailed(char const *file, int line, char const *expression, int systemError);
    ~AssertionFailed() override;

    char const *getFile() const noexcept { return _file; }
    int getLine() const noexcept { return _line; }
    /// The source text of the condition.
    char const *getExpression() const noexcept { return _expression; }
    bool hasSystemError() const noexcept { return _hasSystemError; }
    int getSystemError() const noexcept { return _systemError; }

private:
    char const *_file;
    int _line;
    char const *_expression;
    bool _hasSystemError;
    int _systemError;
};

/// Control reached a place that it must not reach.
class ZVBASE_EXPORT ProgramAborted : public std::logic_error
{
public:
    ProgramAborted(char const *file, int line);
    ~ProgramAborted() override;

    char const *getFile() const noexcept { return _file; }
    int getLine() const noexcept { return _line; }

private:
    char const *_file;
    int _line;
};

/// Assertions are live in every build. Each function writes its report to the trace and throws. All may be called
/// by any thread. Used through the macros of zvbase/failures.h.
class ZVBASE_EXPORT Assertions
{
public:
    /// Throws `AssertionFailed`. `expression` is the source text of the condition and outlives the exception.
    [[noreturn]] static void throwAssertionFailed(char const *file, int line,
                                                  char const *expression);
    /// The same for a system call that failed; `lastError` is the system's code, read right after the call.
    [[noreturn]] static void throwSysAssertionFailed(char const *file, int line,
                                                     char const *expression, int lastError);
    /// Throws `ProgramAborted`.
    [[noreturn]] static void throwProgramAborted(char const *file, int line);

    /// For destructors: throws like the forms above, but while an exception is passing it only writes the report.
    static void destructorAssertionFailed(char const *file, int line, char const *expression);
    static void destructorSysAssertionFailed(char const *file, int line, char const *expression,
                                             int lastError);

    Assertions() = delete;
};

} // namespace Zv
