// Macros for the bodies of exception classes (libraries' sources).
#pragma once

#include "zvbase/exBase.h"

#define ZV_EXCEPTION_PARAMETERS(...) (char const *file, int line __VA_OPT__(, ) __VA_ARGS__)

/// Defines the constructor of an exception family.
#define ZV_EXCEPTION_FAMILY_BODY(Family)                                                           \
    Family::Family(char const *file, int line) noexcept : ExBase(file, line) {}

/// Defines constructor and destructor of `Family::Class`, whose standard base `Standard` is the
/// first one. `Parameters` are the constructor's parameters behind file and line, in parentheses.
/// The rest is the statement that sets the reason.
#define ZV_EXCEPTION_BODY(Family, Class, Standard, Parameters, ...)                                \
    Family::Class::Class ZV_EXCEPTION_PARAMETERS Parameters : Standard(""), Family(file, line)     \
    {                                                                                              \
        __VA_ARGS__;                                                                               \
    }                                                                                              \
    Family::Class::~Class() = default;

/// The same for a class whose family is the first base.
#define ZV_EXCEPTION_BODY_FAMILY_FIRST(Family, Class, Standard, Parameters, ...)                   \
    Family::Class::Class ZV_EXCEPTION_PARAMETERS Parameters : Family(file, line), Standard("")     \
    {                                                                                              \
        __VA_ARGS__;                                                                               \
    }                                                                                              \
    Family::Class::~Class() = default;
