// Throughput of the queues between threads. Producers wait while the queue is full, and consumers
// while it is empty.
//
// Our queues are first in, first out across all producers, have an observer, and survive a failed
// wait, a throwing element and a killed waiter. The peers promise less. TBB's bounded queue also
// keeps the order and blocks when it is full, so it is the fair peer. moodycamel's queue keeps only
// the order of each producer, has no capacity, and so never blocks a producer.

#include "resmgt/deviceProtocol.h"
#include "resmgt/threadExtensions/mtContainer.imp.h"

#include <benchmark/benchmark.h>
#include <concurrentqueue/blockingconcurrentqueue.h>
#include <tbb/concurrent_queue.h>

#include <barrier>
#include <chrono>
#include <memory>
#include <queue>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace Zv;

constexpr int CAPACITY = 1000;
constexpr long NB_ITEMS = 40'000; // of all producers in an iteration

// ---- Queues of numbers.

class OurNumbers
{
public:
    void put(long number) { _numbers.produce(number); }
    long take() { return _numbers.consume(); }

private:
    MtContainer<std::queue<long>> _numbers{"bench", CAPACITY};
};

template <class Item>
class TbbQueue
{
public:
    TbbQueue() { _items.set_capacity(CAPACITY); }
    void put(Item item) { _items.push(std::move(item)); }
    Item take()
    {
        Item item{};
        _items.pop(item);
        return item;
    }

private:
    tbb::concurrent_bounded_queue<Item> _items;
};

template <class Item>
class MoodycamelQueue
{
public:
    void put(Item item) { _items.enqueue(std::move(item)); }
    Item take()
    {
        Item item{};
        _items.wait_dequeue(item);
        return item;
    }

private:
    moodycamel::BlockingConcurrentQueue<Item> _items;
};

// ---- Queues of requests, each of which is an object of its own that the consumer executes.

class Request
{
public:
    virtual ~Request() = default;
    virtual void execute() = 0;
};

class CountingRequest final : public Request
{
public:
    explicit CountingRequest(long &count) : _count(count) {}
    void execute() override { ++_count; }

private:
    long &_count;
};

template <template <class> class Queue>
class PeerRequests
{
public:
    void put(long) { _requests.put(std::make_unique<CountingRequest>(_count)); }
    long take()
    {
        _requests.take()->execute();
        return _count;
    }

private:
    Queue<std::unique_ptr<Request>> _requests;
    long _count = 0; // of the one consumer
};

class OurRequests
{
public:
    void put(long)
    {
        DevANOQueueEntry entry(makeANO([&count = _count] { ++count; }));
        _fifo->produce(entry);
    }
    long take()
    {
        ObjPtr<DevANO> const request(_fifo->consume().release());
        request->performExecute();
        request->notify();
        return _count;
    }

private:
    RCShdPtr<DevMDStdFifo> _fifo{new DevMDStdFifo(CAPACITY)};
    long _count = 0;
};

// ---- The measurement.

/// Measures how long the producers and consumers need for all items. Reports the microseconds for
/// each item.
template <class Queue, int NB_PRODUCERS, int NB_CONSUMERS>
void pass(benchmark::State &state)
{
    Queue queue;
    std::barrier<> step(NB_PRODUCERS + NB_CONSUMERS + 1);
    bool isOver = false;
    auto const repeat = [&](auto action, int nbThreads) {
        for (;;) {
            step.arrive_and_wait();
            if (isOver)
                return;
            for (long i = 0; i < NB_ITEMS / nbThreads; ++i)
                action(i);
            step.arrive_and_wait();
        }
    };
    std::vector<std::jthread> threads;
    for (int i = 0; i < NB_PRODUCERS; ++i)
        threads.emplace_back([&] { repeat([&](long item) { queue.put(item); }, NB_PRODUCERS); });
    for (int i = 0; i < NB_CONSUMERS; ++i)
        threads.emplace_back(
            [&] { repeat([&](long) { benchmark::DoNotOptimize(queue.take()); }, NB_CONSUMERS); });
    double seconds = 0;
    for (auto _ : state) {
        auto const begin = std::chrono::steady_clock::now();
        step.arrive_and_wait();
        step.arrive_and_wait();
        std::chrono::duration<double> const time = std::chrono::steady_clock::now() - begin;
        state.SetIterationTime(time.count());
        seconds += time.count();
    }
    isOver = true;
    step.arrive_and_wait();
    state.counters["item"] =
        benchmark::Counter(seconds * 1e6 / double(NB_ITEMS), benchmark::Counter::kAvgIterations);
}

using TbbNumbers = TbbQueue<long>;
using MoodycamelNumbers = MoodycamelQueue<long>;
using TbbRequests = PeerRequests<TbbQueue>;
using MoodycamelRequests = PeerRequests<MoodycamelQueue>;

// The requests have one consumer, as a device has one thread.
BENCHMARK(pass<OurNumbers, 1, 1>)->Name("queue 1, 1/MtContainer")->UseManualTime();
BENCHMARK(pass<TbbNumbers, 1, 1>)->Name("queue 1, 1/TBB")->UseManualTime();
BENCHMARK(pass<MoodycamelNumbers, 1, 1>)->Name("queue 1, 1/moodycamel")->UseManualTime();
BENCHMARK(pass<OurNumbers, 4, 4>)->Name("queue 4, 4/MtContainer")->UseManualTime();
BENCHMARK(pass<TbbNumbers, 4, 4>)->Name("queue 4, 4/TBB")->UseManualTime();
BENCHMARK(pass<MoodycamelNumbers, 4, 4>)->Name("queue 4, 4/moodycamel")->UseManualTime();
BENCHMARK(pass<OurRequests, 1, 1>)->Name("requests 1, 1/DevMDStdFifo")->UseManualTime();
BENCHMARK(pass<TbbRequests, 1, 1>)->Name("requests 1, 1/TBB")->UseManualTime();
BENCHMARK(pass<MoodycamelRequests, 1, 1>)->Name("requests 1, 1/moodycamel")->UseManualTime();
BENCHMARK(pass<OurRequests, 4, 1>)->Name("requests 4, 1/DevMDStdFifo")->UseManualTime();
BENCHMARK(pass<TbbRequests, 4, 1>)->Name("requests 4, 1/TBB")->UseManualTime();
BENCHMARK(pass<MoodycamelRequests, 4, 1>)->Name("requests 4, 1/moodycamel")->UseManualTime();

} // namespace
