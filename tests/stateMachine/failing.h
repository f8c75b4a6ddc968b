// What failures say, for tests to compare.
#pragma once

#include "zvbase/assertions.h"

#include <string>

namespace Testing {

/// The source text of the assertion that fails, or "" where none does.
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
