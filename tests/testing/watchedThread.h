// Threads that are joined at the end of their scope.
#pragma once

#include "testing/asleep.h"

#include <atomic>
#include <functional>
#include <thread>
#include <utility>

namespace ZvTest {

/// Thread that is joined at the end of its scope. It takes a `std::function`, so that a body does
/// not compile the templates of `std::thread`.
class Joined
{
public:
    explicit Joined(std::function<void()> body) : _thread(std::move(body)) {}
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
    explicit Watched(std::function<void()> body)
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
