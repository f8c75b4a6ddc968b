// Exit status of a process that ends by abort().
#pragma once

#include <gtest/gtest.h>

#include <csignal>

namespace ZvTest {

/// Returns the predicate for EXPECT_EXIT.
inline auto aborted()
{
#ifdef _WIN32
    return testing::ExitedWithCode(3);
#else
    return testing::KilledBySignal(SIGABRT);
#endif
}

} // namespace ZvTest
