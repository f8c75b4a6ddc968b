// Texts of failed assertions, for tests to compare.
#pragma once

#include "zvbase/assertions.h"

#include <string>

namespace Testing {

/// Returns the source text of the assertion that fails, or "" if none does.
template <class Function>
std::string failedAssertion(Function function)
{
    try {
        function();
    } catch (Zv::AssertionFailed const &failure) {
        return failure.getExpression();
    }
    return "";
}

} // namespace Testing
