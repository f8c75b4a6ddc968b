// Cost of locks and semaphores without contention.

#include "resmgt/locks.h"

#include <benchmark/benchmark.h>

#include <mutex>
#include <semaphore.h>
#include <semaphore>
#include <shared_mutex>
#include <type_traits>

namespace {

using namespace Zv;

/// Lock of the library, which needs a name.
template <class Lock>
struct Named : Lock
{
    Named() : Lock("bench") {}
};

template <class Lock>
using Made = std::conditional_t<std::is_constructible_v<Lock, char const *>, Named<Lock>, Lock>;

template <class Lock>
void lockUnlock(benchmark::State &state)
{
    Made<Lock> lock;
    for (auto _ : state) {
        lock.lock();
        benchmark::ClobberMemory();
        lock.unlock();
    }
}

template <class Lock>
void lockAgain(benchmark::State &state)
{
    Made<Lock> lock;
    lock.lock();
    for (auto _ : state) {
        lock.lock();
        benchmark::ClobberMemory();
        lock.unlock();
    }
    lock.unlock();
}

BENCHMARK(lockUnlock<LkMutex>)->Name("lock/LkMutex");
BENCHMARK(lockUnlock<LkLock>)->Name("lock/LkLock");
BENCHMARK(lockUnlock<LkRecLock>)->Name("lock/LkRecLock");
BENCHMARK(lockUnlock<std::recursive_mutex>)->Name("lock/std::recursive_mutex");
BENCHMARK(lockUnlock<std::mutex>)->Name("lock/std::mutex");

BENCHMARK(lockAgain<LkMutex>)->Name("lockAgain/LkMutex");
BENCHMARK(lockAgain<LkLock>)->Name("lockAgain/LkLock");
BENCHMARK(lockAgain<LkRecLock>)->Name("lockAgain/LkRecLock");
BENCHMARK(lockAgain<std::recursive_mutex>)->Name("lockAgain/std::recursive_mutex");

void readUnlock(benchmark::State &state)
{
    LkRwLock const lock("bench");
    for (auto _ : state) {
        lock.readLock();
        benchmark::ClobberMemory();
        lock.unlock();
    }
}

void writeUnlock(benchmark::State &state)
{
    LkRwLock const lock("bench");
    for (auto _ : state) {
        lock.writeLock();
        benchmark::ClobberMemory();
        lock.unlock();
    }
}

void readUnlockPeer(benchmark::State &state)
{
    std::shared_mutex lock;
    for (auto _ : state) {
        lock.lock_shared();
        benchmark::ClobberMemory();
        lock.unlock_shared();
    }
}

BENCHMARK(readUnlock)->Name("read/LkRwLock");
BENCHMARK(readUnlockPeer)->Name("read/std::shared_mutex");
BENCHMARK(writeUnlock)->Name("write/LkRwLock");
BENCHMARK(lockUnlock<std::shared_mutex>)->Name("write/std::shared_mutex");

template <class Sema>
void postWait(benchmark::State &state)
{
    Sema sema("bench", 0);
    for (auto _ : state) {
        sema.post();
        sema.wait();
    }
}

struct StdSema
{
    StdSema(char const *, unsigned count) : sema(static_cast<std::ptrdiff_t>(count)) {}
    void post() { sema.release(); }
    void wait() { sema.acquire(); }

    std::counting_semaphore<> sema;
};

struct PosixSema
{
    PosixSema(char const *, unsigned count) { ::sem_init(&sema, 0, count); }
    ~PosixSema() { ::sem_destroy(&sema); }
    void post() { ::sem_post(&sema); }
    void wait() { ::sem_wait(&sema); }

    sem_t sema;
};

BENCHMARK(postWait<LkSema>)->Name("sema/LkSema");
BENCHMARK(postWait<LkUnnamedSema>)->Name("sema/LkUnnamedSema");
BENCHMARK(postWait<StdSema>)->Name("sema/std::counting_semaphore");
BENCHMARK(postWait<PosixSema>)->Name("sema/sem_t");

} // namespace
