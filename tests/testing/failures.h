// Texts of failures, for tests to compare.
#pragma once

#include "zvbase/assertions.h"

#include <gtest/gtest.h>

#include <exception>
#include <string>

namespace ZvTest {

/// Returns the source text of the assertion that `action` fails, or "" if none fails.
template <class Action>
std::string failedAssertion(Action &&action)
{
    try {
        action();
    } catch (Zv::AssertionFailed const &failure) {
        return failure.getExpression();
    }
    return "";
}

/// Returns the source text of the system call that fails an assertion in `action`, or "" if none
/// fails. Checks that the call has left `error`.
template <class Action>
std::string failedSystemCall(unsigned error, Action &&action)
{
    try {
        action();
    } catch (Zv::AssertionFailed const &failure) {
        EXPECT_TRUE(failure.hasSystemError());
        EXPECT_EQ(failure.getSystemError(), static_cast<int>(error));
        return failure.getExpression();
    }
    return "";
}

/// Returns the reason of the exception of class `Exception` that `action` throws, or "nothing was
/// thrown".
template <class Exception, class Action>
std::string reasonOf(Action &&action)
{
    try {
        action();
    } catch (Exception const &exception) {
        if constexpr (requires { exception.getReason(); })
            return exception.getReason();
        else
            return exception.what();
    }
    return "nothing was thrown";
}

/// Returns the text of a stored exception, or "" if there is none.
inline std::string messageOf(std::exception_ptr const &stored)
{
    try {
        if (stored)
            std::rethrow_exception(stored);
    } catch (std::exception const &exception) {
        return exception.what();
    }
    return "";
}

/// Returns the text of the exception that `action` throws, or "" if it throws none.
template <class Action>
std::string whatFails(Action &&action)
{
    try {
        action();
    } catch (std::exception const &failure) {
        return failure.what();
    }
    return "";
}

} // namespace ZvTest
