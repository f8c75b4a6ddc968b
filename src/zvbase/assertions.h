// Exceptions of failed assertions, and the functions that report and throw them (applications).
#pragma once

#include "zvbase/export.h"

#include <cstddef>
#include <stdexcept>

namespace Zv {

/// Thrown if an assertion fails: the program broke a rule, or a system call that must not fail has
/// failed. It is not an `ExBase`, so that a handler of expected failures does not catch it.
///
///     try {
///         ZV_ASSERT(1 + 1 == 3);
///     } catch (Zv::AssertionFailed const &failure) {
///         Zv::LgTrace::print(failure.getExpression()); // 1 + 1 == 3
///     }
class ZVBASE_EXPORT AssertionFailed : public std::logic_error
{
public:
    /// `file` and `expression` are not copied. They must outlive the exception.
    AssertionFailed(char const *file, int line, char const *expression);
    /// `systemError` is the code that the failed system call left.
    AssertionFailed(char const *file, int line, char const *expression, int systemError);
    ~AssertionFailed() override;

    char const *getFile() const noexcept { return _file; }
    int getLine() const noexcept { return _line; }
    /// Returns the source text of the condition.
    char const *getExpression() const noexcept { return _expression; }
    /// Returns true if the condition was a system call.
    bool hasSystemError() const noexcept { return _hasSystemError; }
    /// Returns the code that the system call left, or 0 if the condition was not a system call.
    int getSystemError() const noexcept { return _systemError; }

private:
    char const *_file;
    int _line;
    char const *_expression;
    bool _hasSystemError;
    int _systemError;
};

/// Thrown if control reaches a place that it must not reach (`ZV_ABORT_PROGRAM`).
class ZVBASE_EXPORT ProgramAborted : public std::logic_error
{
public:
    /// `file` is not copied. It must outlive the exception.
    ProgramAborted(char const *file, int line);
    ~ProgramAborted() override;

    char const *getFile() const noexcept { return _file; }
    int getLine() const noexcept { return _line; }

private:
    char const *_file;
    int _line;
};

/// Reports failed assertions. Use the macros of zvbase/failures.h instead of these functions.
///
/// Assertions are active in every build. Each function writes a report to the trace and then
/// throws.
///
/// **Threads**: thread-safe.
class ZVBASE_EXPORT Assertions
{
public:
    /// Throws `AssertionFailed`. `expression` is the source text of the condition. It is not
    /// copied.
    [[noreturn]] static void throwAssertionFailed(char const *file, int line,
                                                  char const *expression);
    /// Throws `AssertionFailed` for a failed system call. `lastError` is the system's error code.
    /// Read it right after the call.
    [[noreturn]] static void throwSysAssertionFailed(char const *file, int line,
                                                     char const *expression, int lastError);
    /// Throws `ProgramAborted`.
    [[noreturn]] static void throwProgramAborted(char const *file, int line);

    /// For destructors: throws `AssertionFailed`, unless an exception unwinds the stack of the
    /// calling thread. Then it only writes the report.
    static void destructorAssertionFailed(char const *file, int line, char const *expression);
    /// For destructors: as `destructorAssertionFailed`, for a failed system call.
    static void destructorSysAssertionFailed(char const *file, int line, char const *expression,
                                             int lastError);

    Assertions() = delete;
};

} // namespace Zv
