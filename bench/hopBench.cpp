// Round trip between two threads: a request to a device's thread, and its completion back.
//
// Each subject runs with both threads on one processor, and with each thread on a processor of its
// own. The peers make the same number of thread switches, two for a round trip. The futex peer
// always sleeps, so that it shows the cost of the switches alone.
//
// A wait of the library may spin before it sleeps. Two more benchmarks show what that costs: the
// throughput of more threads than processors, and the processor time of a thread whose waits are
// long. Their peer never spins.

#include "threads.h"

#include "resmgt/deviceManager.h"
#include "resmgt/deviceProtocol.h"
#include "resmgt/locks.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdint>
#include <ctime>
#include <linux/futex.h>
#include <semaphore.h>
#include <semaphore>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace Zv;
using namespace ZvBench;

enum Placement
{
    SAME_CORE,
    TWO_CORES
};

long switches()
{
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_nvcsw + usage.ru_nivcsw;
}

/// Measures a pair of threads. `Pair` must have `roundTrip` and a constructor that takes the
/// processor of the other thread.
template <class Pair, Placement placement>
void hop(benchmark::State &state)
{
    int const other = processor(placement == SAME_CORE ? 0 : 1);
    if (other < 0) {
        state.SkipWithError("the process may run on one processor only");
        return;
    }
    Pinned const here(processor(0));
    Pair pair(other);
    for (int i = 0; i < 100; ++i)
        pair.roundTrip();
    long const before = switches();
    for (auto _ : state)
        pair.roundTrip();
    state.counters["switches"] =
        benchmark::Counter(double(switches() - before), benchmark::Counter::kAvgIterations);
}

/// Standard device without work.
class Device : public DevMDStdAccessPrtcl
{
public:
    explicit Device(RCShdPtr<DevMDStdFifo> const &fifo)
        : DevMDStdAccessPrtcl("bench", fifo, makeObj<DevMDStdLoopThreadProtocol>(fifo),
                              makeAccessANOFactory(*this))
    {}
    void open() {}
    void close() {}
};

/// Sends an ANO through the device's FIFO to its thread. The ACO sends the answer through the
/// manager's FIFO. The caller takes the place of the manager's thread.
class ANOPair
{
public:
    explicit ANOPair(int cpu)
    {
        _device->performOpen();
        std::binary_semaphore isPinned(0);
        send(makeANO([&, cpu] {
            // Kept until the destructor of the pair.
            _pinned.reset(new Pinned(cpu));
            isPinned.release();
        }));
        isPinned.acquire();
        receive();
    }
    ~ANOPair()
    {
        send(makeANO([this] { _pinned.reset(); }));
        receive();
        _device->performClose();
    }

    void roundTrip()
    {
        send(makeANO([this] { ++_nbRequests; }));
        receive();
    }

private:
    void send(ObjPtr<DevANO> ano)
    {
        ano->setACO(makeObj<DevMgrACO>(makeANO([this] { ++_nbAnswers; }), _managerFifo));
        DevANOQueueEntry entry(ano);
        _deviceFifo->produce(entry);
    }
    void receive()
    {
        ObjPtr<DevANO> answer(_managerFifo->consume().release());
        answer->performExecute();
        answer->notify();
    }

    RCShdPtr<DevMgrFifo> _managerFifo{new DevMgrFifo(25)};
    RCShdPtr<DevMDStdFifo> _deviceFifo{new DevMDStdFifo};
    RCShdPtr<Device> _device{new Device(_deviceFifo)};
    ObjPtr<Pinned> _pinned;
    long _nbRequests = 0;
    long _nbAnswers = 0;
};

/// Word on which one thread waits. It never spins.
class Futex
{
public:
    void post()
    {
        _word.store(1, std::memory_order_release);
        ::syscall(SYS_futex, &_word, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    }
    void wait()
    {
        while (_word.load(std::memory_order_acquire) == 0)
            ::syscall(SYS_futex, &_word, FUTEX_WAIT_PRIVATE, 0, nullptr, nullptr, 0);
        _word.store(0, std::memory_order_relaxed);
    }

private:
    std::atomic<int> _word{0};
};

class FutexPair
{
public:
    explicit FutexPair(int cpu)
        : _thread([this, cpu] {
              Pinned const here(cpu);
              for (;;) {
                  _there.wait();
                  if (_isOver)
                      return;
                  _back.post();
              }
          })
    {}
    ~FutexPair()
    {
        _isOver = true;
        _there.post();
    }

    void roundTrip()
    {
        _there.post();
        _back.wait();
    }

private:
    Futex _there;
    Futex _back;
    bool _isOver = false;
    std::jthread _thread;
};

class QueuePair
{
public:
    explicit QueuePair(int cpu)
        : _thread([this, cpu] {
              Pinned const here(cpu);
              while (int const request = _there.take())
                  _back.put(request);
          })
    {}
    ~QueuePair() { _there.put(0); }

    void roundTrip()
    {
        _there.put(1);
        benchmark::DoNotOptimize(_back.take());
    }

private:
    Queue<int> _there;
    Queue<int> _back;
    std::jthread _thread;
};

struct OurSema
{
    void post() { sema.post(); }
    void wait() { sema.wait(); }

    LkUnnamedSema sema{"bench", 0};
};

struct PosixSema
{
    PosixSema() { ::sem_init(&sema, 0, 0); }
    ~PosixSema() { ::sem_destroy(&sema); }
    void post() { ::sem_post(&sema); }
    void wait() { ::sem_wait(&sema); }

    sem_t sema;
};

/// A fixed amount of computation, some microseconds.
void work()
{
    std::uint64_t value = 1;
    for (int i = 0; i < 5000; ++i) {
        value = value * 6364136223846793005 + 1;
        benchmark::DoNotOptimize(value);
    }
}

/// Two threads for each processor hand over to two others, and all of them compute.
template <class Sema>
void fullLoad(benchmark::State &state)
{
    constexpr int ROUNDS = 500;
    struct Pair
    {
        Sema there;
        Sema back;
    };
    for (auto _ : state) {
        std::vector<Pair> pairs(2 * std::thread::hardware_concurrency());
        std::vector<std::jthread> threads;
        for (Pair &pair : pairs) {
            threads.emplace_back([&pair] {
                for (int i = 0; i < ROUNDS; ++i) {
                    work();
                    pair.there.post();
                    pair.back.wait();
                }
            });
            threads.emplace_back([&pair] {
                for (int i = 0; i < ROUNDS; ++i) {
                    pair.there.wait();
                    work();
                    pair.back.post();
                }
            });
        }
        threads.clear();
    }
}

/// A thread waits, and is woken 2000 times in a second. "processor" is the time that all threads
/// spend for a wake-up.
template <class Sema>
void idle(benchmark::State &state)
{
    Sema called;
    std::atomic<bool> isOver = false;
    std::jthread waiting([&] {
        while (!isOver.load(std::memory_order_relaxed))
            called.wait();
    });
    auto const processorTime = [] {
        timespec time{};
        ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
        return double(time.tv_sec) * 1e6 + double(time.tv_nsec) * 1e-3;
    };
    double const before = processorTime();
    for (auto _ : state) {
        std::this_thread::sleep_for(std::chrono::microseconds(500));
        called.post();
    }
    state.counters["processor"] =
        benchmark::Counter(processorTime() - before, benchmark::Counter::kAvgIterations);
    isOver.store(true, std::memory_order_relaxed);
    called.post();
}

BENCHMARK(hop<ANOPair, SAME_CORE>)->Name("hop1/ANO and ACO")->UseRealTime();
BENCHMARK(hop<FutexPair, SAME_CORE>)->Name("hop1/futex")->UseRealTime();
BENCHMARK(hop<QueuePair, SAME_CORE>)->Name("hop1/condition variables")->UseRealTime();
BENCHMARK(hop<ANOPair, TWO_CORES>)->Name("hop2/ANO and ACO")->UseRealTime();
BENCHMARK(hop<FutexPair, TWO_CORES>)->Name("hop2/futex")->UseRealTime();
BENCHMARK(hop<QueuePair, TWO_CORES>)->Name("hop2/condition variables")->UseRealTime();
BENCHMARK(fullLoad<OurSema>)->Name("full load/LkUnnamedSema")->UseRealTime();
BENCHMARK(fullLoad<PosixSema>)->Name("full load/sem_t")->UseRealTime();
BENCHMARK(idle<OurSema>)->Name("idle/LkUnnamedSema")->UseRealTime();
BENCHMARK(idle<PosixSema>)->Name("idle/sem_t")->UseRealTime();

} // namespace
