#include "resmgt/threadExtensions/mtContainer.imp.h"

#include "asleep.h"
#include "zvbase/assertions.h"
#include "zvbase/containers.h"

#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <memory>
#include <queue>
#include <string>
#include <thread>
#include <vector>

// The linker leads the library's pulses here, to be counted.

static std::atomic<int> nbPulses{0};

extern "C" void __real__ZNK2Zv14LkPulseWindows5pulseEv(Zv::LkPulseWindows const *pulse);
extern "C" void __wrap__ZNK2Zv14LkPulseWindows5pulseEv(Zv::LkPulseWindows const *pulse)
{
    ++nbPulses;
    __real__ZNK2Zv14LkPulseWindows5pulseEv(pulse);
}

namespace Zv {
namespace {

using Queue = MtContainer<std::queue<int, Deque<int>>>;
using OwnerQueue = MtContainer<std::queue<std::unique_ptr<int>, Deque<std::unique_ptr<int>>>>;

template <class Action>
std::string failedExpression(Action action)
{
    try {
        action();
    } catch (AssertionFailed const &failure) {
        return failure.getExpression();
    }
    return "nothing failed";
}

/// Writes down what it is told, and takes the container's lock each time: it must be free.
template <class Container>
class Recorder : public Container::Observer
{
public:
    using Element = typename Container::Element;

    explicit Recorder(std::string &record) : _record(record) {}

    void performDestroyed(Container &) override { _record += "destroyed;"; }
    void performProduced(Container &container, Element const &element) override
    {
        note("produced", container, element);
    }
    void performConsumed(Container &container, Element const &element) override
    {
        note("consumed", container, element);
    }

protected:
    ~Recorder() noexcept(false) override { _record += "gone;"; }

private:
    static std::string text(int number) { return std::to_string(number); }
    static std::string text(std::unique_ptr<int> const &owner)
    {
        return owner ? text(*owner) : "empty";
    }

    void note(char const *what, Container &container, Element const &element)
    {
        std::uint64_t size = 0;
        std::thread other([&] { size = container.getSize(); });
        other.join();
        _record += what + (" " + text(element)) + " of " + std::to_string(size) + ";";
    }

    std::string &_record;
};

/// A thread whose number is known as soon as it runs.
class Runner
{
public:
    template <class Action>
    explicit Runner(Action action)
        : _thread([this, action] {
              _number.store(threadNumber());
              action();
          })
    {}
    ~Runner() { join(); }
    void waitUntilAsleep() const
    {
        while (!_number.load())
            std::this_thread::yield();
        Zv::waitUntilAsleep(_number.load());
    }
    void join()
    {
        if (_thread.joinable())
            _thread.join();
    }

private:
    std::atomic<long> _number{0};
    std::thread _thread;
};

TEST(MtContainer, HandsElementsOverInOrder)
{
    Queue queue("queue");
    EXPECT_TRUE(queue.isEmpty());
    queue.produce(1);
    queue.produce(2);
    EXPECT_TRUE(queue.tryProduce(3));
    EXPECT_EQ(3U, queue.getSize());
    EXPECT_EQ(1, queue.consume());
    int element = 0;
    EXPECT_TRUE(queue.tryConsume(element));
    EXPECT_EQ(2, element);
    EXPECT_TRUE(queue.timedConsume(element, 1.0));
    EXPECT_EQ(3, element);
    EXPECT_TRUE(queue.isEmpty());
}

TEST(MtContainer, AdaptsPriorityQueuesAsWell)
{
    MtContainer<std::priority_queue<int>> queue("priorities");
    for (int number : {2, 3, 1})
        queue.produce(number);
    EXPECT_EQ(3, queue.consume());
    EXPECT_EQ(2, queue.consume());
    EXPECT_EQ(1, queue.consume());
}

TEST(MtContainer, ACapacityOfZeroMeansNoLimit)
{
    Queue queue("queue", 0);
    EXPECT_EQ(std::numeric_limits<std::uint64_t>::max(), queue.getCapacity());
    for (int i = 0; i < 10000; ++i)
        ASSERT_TRUE(queue.tryProduce(i));
    int element = 0;
    while (queue.tryConsume(element)) {
    }
    EXPECT_EQ(9999, element);
    EXPECT_EQ(7U, Queue("queue", 7).getCapacity());
}

TEST(MtContainer, TryingOnAnEmptyOneLeavesTheElementAlone)
{
    Queue queue("queue");
    int element = 5;
    EXPECT_FALSE(queue.tryConsume(element));
    EXPECT_FALSE(queue.timedConsume(element, -1.0));
    EXPECT_FALSE(queue.timedConsume(element, 0.001));
    EXPECT_EQ(5, element);
}

TEST(MtContainer, TryingOnAFullOneLeavesTheElementAlone)
{
    OwnerQueue queue("queue", 1);
    EXPECT_TRUE(queue.tryProduce(std::make_unique<int>(1)));
    auto owner = std::make_unique<int>(2);
    EXPECT_FALSE(queue.tryProduce(std::move(owner)));
    ASSERT_TRUE(owner);
    EXPECT_EQ(2, *owner);
    EXPECT_EQ(1, *queue.consume());
    EXPECT_TRUE(queue.tryProduce(std::move(owner)));
    EXPECT_FALSE(owner);
    EXPECT_EQ(2, *queue.consume());
}

TEST(MtContainer, TellsItsObserverOutsideTheLock)
{
    std::string record;
    {
        OwnerQueue queue("queue", 2);
        queue.setObserver(RCShdPtr<OwnerQueue::Observer>(new Recorder<OwnerQueue>(record)));
        queue.produce(std::make_unique<int>(1));
        EXPECT_TRUE(queue.tryProduce(std::make_unique<int>(2)));
        EXPECT_FALSE(queue.tryProduce(std::make_unique<int>(3)));
        EXPECT_EQ("produced empty of 1;produced empty of 2;", record);
        record.clear();
        EXPECT_EQ(1, *queue.consume());
        std::unique_ptr<int> element;
        EXPECT_TRUE(queue.tryConsume(element));
        EXPECT_FALSE(queue.tryConsume(element));
        EXPECT_EQ("consumed 1 of 1;consumed 2 of 0;", record);
        record.clear();
    }
    EXPECT_EQ("destroyed;gone;", record);
}

TEST(MtContainer, HasOneObserverForLife)
{
    std::string record;
    Queue queue("queue");
    queue.setObserver(RCShdPtr<Queue::Observer>(new Recorder<Queue>(record)));
    EXPECT_EQ("_observer.isNull()", failedExpression([&] {
                  queue.setObserver(RCShdPtr<Queue::Observer>(new Recorder<Queue>(record)));
              }));
    queue.produce(1); // the lock is free, the first observer stays
    EXPECT_EQ(1, queue.consume());
    EXPECT_EQ("gone;produced 1 of 1;consumed 1 of 0;", record);
}

TEST(MtContainer, DestroyedWithElementsFailsAnAssertion)
{
    std::string record;
    EXPECT_EQ("_container.empty()", failedExpression([&] {
                  Queue queue("queue");
                  queue.setObserver(RCShdPtr<Queue::Observer>(new Recorder<Queue>(record)));
                  queue.produce(1);
                  record.clear();
              }));
    EXPECT_EQ("destroyed;gone;", record);
}

TEST(MtContainer, AConsumerWaitsForAnElement)
{
    Queue queue("queue");
    std::atomic<int> got{0};
    Runner consumer([&] { got = queue.consume(); });
    consumer.waitUntilAsleep();
    EXPECT_EQ(0, got);
    queue.produce(7);
    consumer.join();
    EXPECT_EQ(7, got);
}

TEST(MtContainer, AProducerWaitsForRoom)
{
    Queue queue("queue", 1);
    queue.produce(1);
    std::atomic<bool> produced{false};
    Runner producer([&] {
        queue.produce(2);
        produced = true;
    });
    producer.waitUntilAsleep();
    EXPECT_FALSE(produced);
    EXPECT_EQ(1U, queue.getSize());
    EXPECT_EQ(1, queue.consume());
    producer.join();
    EXPECT_EQ(2, queue.consume());
}

TEST(MtContainer, ATimedConsumerGetsWhatComesInTime)
{
    Queue queue("queue");
    int element = 0;
    bool got = false;
    Runner consumer([&] { got = queue.timedConsume(element, 3600.0); });
    consumer.waitUntilAsleep();
    queue.produce(7);
    consumer.join();
    EXPECT_TRUE(got);
    EXPECT_EQ(7, element);
}

TEST(MtContainer, NoPulseIsSentWhereNobodyWaits)
{
    Queue queue("queue", 1);
    nbPulses = 0;
    int element = 0;
    for (int i = 0; i < 100; ++i) {
        queue.produce(i);
        EXPECT_FALSE(queue.tryProduce(i));
        EXPECT_EQ(i, queue.consume());
        EXPECT_FALSE(queue.tryConsume(element));
    }
    EXPECT_FALSE(queue.timedConsume(element, 0.001));
    queue.produce(1);
    EXPECT_TRUE(queue.timedConsume(element, 0.001));
    EXPECT_EQ(0, nbPulses);

    Runner consumer([&] { element = queue.consume(); });
    consumer.waitUntilAsleep();
    queue.produce(7);
    consumer.join();
    EXPECT_EQ(7, element);
    EXPECT_EQ(1, nbPulses);
}

TEST(MtContainer, EachWaiterIsWoken)
{
    constexpr int WAITERS = 4;
    Queue queue("queue");
    std::atomic<int> sum{0};
    std::vector<std::unique_ptr<Runner>> consumers;
    for (int i = 0; i < WAITERS; ++i)
        consumers.push_back(std::make_unique<Runner>([&] { sum += queue.consume(); }));
    for (auto const &consumer : consumers)
        consumer->waitUntilAsleep();
    for (int i = 1; i <= WAITERS; ++i)
        queue.produce(i);
    for (auto const &consumer : consumers)
        consumer->join();
    EXPECT_EQ(1 + 2 + 3 + 4, sum);
}

TEST(MtContainer, NothingIsLostBetweenThreadsOfAllKinds)
{
    constexpr int PRODUCERS = 3;
    constexpr int CONSUMERS = 3;
    constexpr int EACH = 2000;
    Queue queue("queue", 2);
    std::atomic<long> sum{0};
    std::vector<std::thread> threads;
    for (int p = 0; p < PRODUCERS; ++p)
        threads.emplace_back([&queue, p] {
            for (int i = 1; i <= EACH; ++i) {
                if (p == 0 && queue.tryProduce(i))
                    continue;
                queue.produce(i);
            }
        });
    for (int c = 0; c < CONSUMERS; ++c)
        threads.emplace_back([&, c] {
            for (int i = 0; i < EACH; ++i) {
                int element = 0;
                // A short time makes time-outs and wake-ups meet.
                bool const got = c == 0   ? queue.timedConsume(element, 0.0005)
                                 : c == 1 ? queue.tryConsume(element)
                                          : false;
                sum += got ? element : queue.consume();
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(long{PRODUCERS} * EACH * (EACH + 1) / 2, sum);
    EXPECT_TRUE(queue.isEmpty());
}

} // namespace
} // namespace Zv
