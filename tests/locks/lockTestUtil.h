// Helpers of the tests of the locks.
#pragma once

#include "testing/asleep.h"
#include "testing/dump.h"
#include "testing/failures.h"
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

/// Thread that is joined at the end of its scope.
class Joined
{
public:
    template <class Body>
    explicit Joined(Body body) : _thread(std::move(body))
    {}
    Joined(Joined &&) = default;
    ~Joined() { join(); }
    void join()
    {
        if (_thread.joinable())
            _thread.join();
    }

private:
    std::thread _thread;
};

/// Thread that is joined at the end of its scope and that a test can see asleep.
class Watched
{
public:
    template <class Body>
    explicit Watched(Body body)
        : _thread([this, body = std::move(body)] {
              _number = threadNumber();
              body();
          })
    {}
    /// Waits until the thread sleeps. The thread must sleep only in the place that the test means.
    void waitUntilAsleep() const
    {
        while (!_number)
            std::this_thread::yield();
        ZvTest::waitUntilAsleep(_number);
    }
    void join() { _thread.join(); }

private:
    std::atomic<long> _number = 0;
    Joined _thread;
};

} // namespace ZvTest
