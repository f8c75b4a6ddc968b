// Macros that check assertions and throw exceptions (applications).
#pragma once

#include "zvbase/assertions.h"

/// Fails an assertion if the condition is false: writes a report to the trace and throws
/// `AssertionFailed`. Active in every build. The report contains the source text of the condition,
/// with its blanks.
///
///     int const nbThreads = 4;
///     ZV_ASSERT(nbThreads > 0);
#define ZV_ASSERT(...)                                                                             \
    (static_cast<bool>(__VA_ARGS__)                                                                \
         ? static_cast<void>(0)                                                                    \
         : ::Zv::Assertions::throwAssertionFailed(__FILE__, __LINE__, #__VA_ARGS__))

/// Fails an assertion if the condition, which makes a system call, is false. The report contains
/// the system's error code. Needs platform/services.h.
#define ZV_SYS_ASSERT(...)                                                                         \
    (static_cast<bool>(__VA_ARGS__)                                                                \
         ? static_cast<void>(0)                                                                    \
         : ::Zv::Assertions::throwSysAssertionFailed(__FILE__, __LINE__, #__VA_ARGS__,             \
                                                     static_cast<int>(::GetLastError())))

/// `ZV_ASSERT` for destructors. If an exception unwinds the stack, a failure is only reported, and
/// the destructor goes on.
#define ZV_ASSERT_IN_DESTRUCTOR(...)                                                               \
    (static_cast<bool>(__VA_ARGS__)                                                                \
         ? static_cast<void>(0)                                                                    \
         : ::Zv::Assertions::destructorAssertionFailed(__FILE__, __LINE__, #__VA_ARGS__))
/// `ZV_SYS_ASSERT` for destructors. If an exception unwinds the stack, a failure is only reported,
/// and the destructor goes on.
#define ZV_SYS_ASSERT_IN_DESTRUCTOR(...)                                                           \
    (static_cast<bool>(__VA_ARGS__)                                                                \
         ? static_cast<void>(0)                                                                    \
         : ::Zv::Assertions::destructorSysAssertionFailed(__FILE__, __LINE__, #__VA_ARGS__,        \
                                                          static_cast<int>(::GetLastError())))

/// Throws `ProgramAborted`, after a report to the trace. For places that control must not reach.
#define ZV_ABORT_PROGRAM() ::Zv::Assertions::throwProgramAborted(__FILE__, __LINE__)

/// Throws an exception of an `Ex` family with this source file and line. The other arguments are
/// those of its constructor behind file and line.
///
///     void checkMonth(int month)
///     {
///         if (month < 1 || month > 12)
///             ZV_THROW(Zv::OsDateEx::ExInvalidDate);
///     }
#define ZV_THROW(Class, ...) throw Class(__FILE__, __LINE__ __VA_OPT__(, ) __VA_ARGS__)
