// Place where threads wait until another one opens it.
#pragma once

#include <semaphore>

namespace ZvTest {

/// Holds each thread in `pass` until `open`. Thread-safe.
class Turnstile
{
public:
    void pass()
    {
        _arrived.release();
        _open.acquire();
        _left.release();
    }
    void waitForArrival(int nbThreads = 1)
    {
        for (int i = 0; i != nbThreads; ++i)
            _arrived.acquire();
    }
    void open(int nbThreads = 1) { _open.release(nbThreads); }
    void waitForLeaving() { _left.acquire(); }

private:
    std::counting_semaphore<> _arrived{0};
    std::counting_semaphore<> _open{0};
    std::counting_semaphore<> _left{0};
};

} // namespace ZvTest
