// What the tests of the locks share.
#pragma once

#include "zvbase/assertions.h"

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

} // namespace Zv
