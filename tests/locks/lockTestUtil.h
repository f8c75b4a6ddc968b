// Helpers of the tests of the locks.
#pragma once

#include "testing/dump.h"
#include "testing/failures.h"
#include "testing/watchedThread.h"
#include "zvbase/assertions.h"

#include <atomic>
#include <semaphore>
#include <sstream>
#include <string>
#include <thread>
#include <utility>

// The tests misuse locks on purpose.
#ifdef __clang__
#pragma clang diagnostic ignored "-Wthread-safety-analysis"
#endif

namespace ZvTest {

using namespace Zv;

/// Runs `action` on a thread of its own and returns its result.
template <class Action>
auto elsewhere(Action action)
{
    decltype(action()) answer{};
    std::thread([&] { answer = action(); }).join();
    return answer;
}

} // namespace ZvTest
