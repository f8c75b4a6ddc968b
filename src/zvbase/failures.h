// The macros by which all failures are made. A condition's source text, blanks included, is part of its report.
#pragma once

#include "zvbase/assertions.h"

/// The code relies on the condition. Live in every build.
#define ZV_ASSERT(...)                                                                             \
    (static_cast<bool>(__VA_ARGS__)                                                                \
         ? static_cast<void>(0)                                                                    \
         : ::Zv::Assertions::throwAssertionFailed(__FILE__, __LINE__, #__VA_ARGS__))

/// The condition is a system call that must not fail; the report carries its error. Needs platform/services.h.
#define ZV_SYS_ASSERT(...)                                                                         \
    (static_cast<bool>(__VA_ARGS__)                                                                \
         ? static_cast<void>(0)                                                                    \
         : ::Zv::Assertions::throwSysAssertionFailed(__FILE__, __LINE__, #__VA_ARGS__,             \
                                                     static_cast<int>(::GetLastError())))

/// The forms for destructors: while an exception is passing, a failure is reported and the destructor goes on.
#define ZV_ASSERT_IN_DESTRUCTOR(...)                                                               \
    (static_cast<bool>(__VA_ARGS__)                                                                \
         ? static_cast<void>(0)                                                                    \
         : ::Zv::Assertions::destructorAssertionFailed(__FILE__, __LINE__, #__VA_ARGS__))
#define ZV_SYS_ASSERT_IN_DESTRUCTOR(...)                                                           \
    (static_cast<bool>(__VA_ARGS__)                                                                \
         ? static_cast<void>(0)                                                                    \
         : ::Zv::Assertions::destructorSysAssertionFailed(__FILE__, __LINE__, #__VA_ARGS__,        \
                                                          static_cast<int>(::GetLastError())))

/// Control must not come here.
#define ZV_ABORT_PROGRAM() ::Zv::Assertions::throwProgramAborted(__FILE__, __LINE__)

/// Throws an exception of an `Ex` family from this place, with the arguments that the class takes besides it.
#define ZV_THROW(Class, ...) throw Class(__FILE__, __LINE__ __VA_OPT__(, ) __VA_ARGS__)
