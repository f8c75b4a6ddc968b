// What the tests of the locks share.
#pragma once

#include "threadExtensions/asleep.h"
#include "zvbase/assertions.h"

#include <atomic>
#include <semaphore>
#include <sstream>
#include <string>
#include <thread>
#include <utility>

// Locks are misused here on purpose.
#ifdef __clang__
#pragma clang diagnostic ignored "-Wthread-safety-analysis"
#endif

namespace Zv {

/// The source text of the assertion that `action` fails, or "" where it fails none.
template <class Action>
std::string assertionOf(Action action)
{
    try {
        action();
    } catch (AssertionFailed const &failure) {
        return failure.getExpression();
    }
    return "";
}

/// What `object` writes into a dump.
template <class T>
std::string dumpOf(T const &object)
{
    std::ostringstream stream;
    object.dump(stream);
    return stream.str();
}

/// Runs `action` in a thread of its own and gives its answer.
template <class Action>
auto elsewhere(Action action)
{
    decltype(action()) answer{};
    std::thread([&] { answer = action(); }).join();
    return answer;
}

/// A thread that is joined where its scope ends.
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

/// A thread that is joined where its scope ends, and of which the test can know that it sleeps.
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
    /// Returns once the thread sleeps: it does so where the test wants it and nowhere else.
    void waitUntilAsleep() const
    {
        while (!_number)
            std::this_thread::yield();
        Zv::waitUntilAsleep(_number);
    }
    void join() { _thread.join(); }

private:
    std::atomic<long> _number = 0;
    Joined _thread;
};

} // namespace Zv
