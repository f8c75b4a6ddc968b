// Latch and barrier for tests. Those of GCC's standard library lose wake-ups if the system has no
// futex, and then a thread waits without end.
#pragma once

#include <condition_variable>
#include <mutex>

namespace ZvTest {

/// Latch as std::latch.
class Latch
{
public:
    explicit Latch(int nb) : _nb(nb) {}

    void count_down()
    {
        std::lock_guard const guard(_mutex);
        if (--_nb == 0)
            _isOpen.notify_all();
    }
    void wait()
    {
        std::unique_lock guard(_mutex);
        _isOpen.wait(guard, [this] { return _nb == 0; });
    }
    void arrive_and_wait()
    {
        count_down();
        wait();
    }

private:
    std::mutex _mutex;
    std::condition_variable _isOpen;
    int _nb;
};

/// Barrier as std::barrier without a completion function.
class Barrier
{
public:
    explicit Barrier(int nb) : _nb(nb), _nbMissing(nb) {}

    void arrive_and_wait()
    {
        std::unique_lock guard(_mutex);
        if (--_nbMissing == 0) {
            ++_phase;
            _nbMissing = _nb;
            _hasChanged.notify_all();
            return;
        }
        int const phase = _phase;
        _hasChanged.wait(guard, [&] { return _phase != phase; });
    }

private:
    std::mutex _mutex;
    std::condition_variable _hasChanged;
    int const _nb;
    int _nbMissing;
    int _phase = 0;
};

} // namespace ZvTest
