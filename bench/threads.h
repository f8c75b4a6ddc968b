// Helpers of the benchmarks of threads.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <pthread.h>
#include <sched.h>
#include <utility>

namespace ZvBench {

/// Returns the `which`-th processor on which the process may run, counted from 0, or -1 if there is
/// none.
inline int processor(int which)
{
    cpu_set_t allowed;
    ::sched_getaffinity(0, sizeof(allowed), &allowed);
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu)
        if (CPU_ISSET(cpu, &allowed) && which-- == 0)
            return cpu;
    return -1;
}

/// Keeps the calling thread on one processor while the object exists.
class Pinned
{
public:
    explicit Pinned(int cpu)
    {
        ::pthread_getaffinity_np(::pthread_self(), sizeof(_former), &_former);
        cpu_set_t only;
        CPU_ZERO(&only);
        CPU_SET(cpu, &only);
        ::pthread_setaffinity_np(::pthread_self(), sizeof(only), &only);
    }
    ~Pinned() { ::pthread_setaffinity_np(::pthread_self(), sizeof(_former), &_former); }
    Pinned(Pinned const &) = delete;
    Pinned &operator=(Pinned const &) = delete;

private:
    cpu_set_t _former;
};

/// Simple queue with a mutex and a condition variable.
template <class T>
class Queue
{
public:
    void put(T value)
    {
        {
            std::lock_guard const guard(_mutex);
            _values.push_back(std::move(value));
        }
        _filled.notify_one();
    }
    T take()
    {
        std::unique_lock guard(_mutex);
        _filled.wait(guard, [this] { return !_values.empty(); });
        T value(std::move(_values.front()));
        _values.pop_front();
        return value;
    }

private:
    std::mutex _mutex;
    std::condition_variable _filled;
    std::deque<T> _values;
};

} // namespace ZvBench
