#include "resmgt/threadExtensions/mtContainer.imp.h"

#include "platform/services.h"
#include "testing/failures.h"
#include "testing/watchedThread.h"
#include "virtualTime.h"
#include "zvbase/assertions.h"
#include "zvbase/containers.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <functional>
#include <limits>
#include <memory>
#include <queue>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

// The linker redirects the library's pulses here, where they are counted.

static std::atomic<int> nbPulses{0};

extern "C" void __real__ZNK2Zv14LkPulseWindows5pulseEv(Zv::LkPulseWindows const *pulse);
extern "C" void __wrap__ZNK2Zv14LkPulseWindows5pulseEv(Zv::LkPulseWindows const *pulse)
{
    ++nbPulses;
    __real__ZNK2Zv14LkPulseWindows5pulseEv(pulse);
}

// The linker also redirects the waits with a time-out, so that a test can replace them.

static thread_local std::function<DWORD(DWORD milliseconds)> answerWait;

extern "C" DWORD __real__ZN10ZvPlatform21WaitForSingleObjectExEPvji(HANDLE, DWORD, BOOL);
extern "C" DWORD __wrap__ZN10ZvPlatform21WaitForSingleObjectExEPvji(HANDLE handle,
                                                                    DWORD milliseconds,
                                                                    BOOL alertable)
{
    if (answerWait)
        return answerWait(milliseconds);
    return __real__ZN10ZvPlatform21WaitForSingleObjectExEPvji(handle, milliseconds, alertable);
}

namespace ZvTest {

using namespace Zv;

namespace {

using Queue = MtContainer<std::queue<int, Deque<int>>>;
using OwnerQueue = MtContainer<std::queue<std::unique_ptr<int>, Deque<std::unique_ptr<int>>>>;

/// Observer that records its notifications. In each, another thread takes the container's lock,
/// which must be free.
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

TEST(MtContainer, HandsElementsOverInOrder)
{
    Queue queue("queue");
    EXPECT_TRUE(queue.isEmpty());
    queue.produce(1);
    queue.produce(2);
    EXPECT_TRUE(queue.tryProduce(3));
    EXPECT_EQ(queue.getSize(), 3U);
    EXPECT_EQ(queue.consume(), 1);
    int element = 0;
    EXPECT_TRUE(queue.tryConsume(element));
    EXPECT_EQ(element, 2);
    EXPECT_TRUE(queue.timedConsume(element, 1.0));
    EXPECT_EQ(element, 3);
    EXPECT_TRUE(queue.isEmpty());
}

TEST(MtContainer, ElementsThatConsumersHaveTakenOverTakeRoomAndKeepTheirOrder)
{
    Queue queue("queue", 4);
    for (int number : {1, 2, 3})
        queue.produce(number);
    EXPECT_EQ(queue.consume(), 1);
    EXPECT_EQ(queue.getSize(), 2U);
    EXPECT_TRUE(queue.tryProduce(4));
    EXPECT_TRUE(queue.tryProduce(5));
    EXPECT_FALSE(queue.tryProduce(6));
    EXPECT_EQ(queue.getSize(), 4U);
    EXPECT_EQ(queue.consume(), 2);
    EXPECT_TRUE(queue.tryProduce(6));
    EXPECT_FALSE(queue.tryProduce(7));
    for (int number : {3, 4, 5, 6})
        EXPECT_EQ(queue.consume(), number);
    EXPECT_TRUE(queue.isEmpty());
}

TEST(MtContainer, DestroyedWithElementsThatConsumersHaveTakenOverFailsAnAssertion)
{
    EXPECT_EQ(failedAssertion([] {
                  Queue queue("queue");
                  queue.produce(1);
                  queue.produce(2);
                  EXPECT_EQ(queue.consume(), 1);
              }),
              "_container.empty()");
}

TEST(MtContainer, AdaptsPriorityQueuesAsWell)
{
    MtContainer<std::priority_queue<int>> queue("priorities");
    for (int number : {2, 3, 1})
        queue.produce(number);
    EXPECT_EQ(queue.consume(), 3);
    EXPECT_EQ(queue.consume(), 2);
    EXPECT_EQ(queue.consume(), 1);
}

TEST(MtContainer, ACapacityOfZeroMeansNoLimit)
{
    Queue queue("queue", 0);
    EXPECT_EQ(queue.getCapacity(), std::numeric_limits<std::uint64_t>::max());
    for (int i = 0; i < 10000; ++i)
        ASSERT_TRUE(queue.tryProduce(i));
    int element = 0;
    while (queue.tryConsume(element)) {
    }
    EXPECT_EQ(element, 9999);
    EXPECT_EQ(Queue("queue", 7).getCapacity(), 7U);
}

TEST(MtContainer, TryingOnAnEmptyOneLeavesTheElementAlone)
{
    Queue queue("queue");
    int element = 5;
    EXPECT_FALSE(queue.tryConsume(element));
    EXPECT_FALSE(queue.timedConsume(element, -1.0));
    EXPECT_FALSE(queue.timedConsume(element, 0.001));
    EXPECT_EQ(element, 5);
}

TEST(MtContainer, TryingOnAFullOneLeavesTheElementAlone)
{
    OwnerQueue queue("queue", 1);
    EXPECT_TRUE(queue.tryProduce(std::make_unique<int>(1)));
    auto owner = std::make_unique<int>(2);
    EXPECT_FALSE(queue.tryProduce(std::move(owner)));
    ASSERT_TRUE(owner);
    EXPECT_EQ(*owner, 2);
    EXPECT_EQ(*queue.consume(), 1);
    EXPECT_TRUE(queue.tryProduce(std::move(owner)));
    EXPECT_FALSE(owner);
    EXPECT_EQ(*queue.consume(), 2);
}

TEST(MtContainer, CallsItsObserverOutsideTheLock)
{
    std::string record;
    {
        OwnerQueue queue("queue", 2);
        queue.setObserver(RCShdPtr<OwnerQueue::Observer>(new Recorder<OwnerQueue>(record)));
        queue.produce(std::make_unique<int>(1));
        EXPECT_TRUE(queue.tryProduce(std::make_unique<int>(2)));
        EXPECT_FALSE(queue.tryProduce(std::make_unique<int>(3)));
        EXPECT_EQ(record, "produced empty of 1;produced empty of 2;");
        record.clear();
        EXPECT_EQ(*queue.consume(), 1);
        std::unique_ptr<int> element;
        EXPECT_TRUE(queue.tryConsume(element));
        EXPECT_FALSE(queue.tryConsume(element));
        EXPECT_EQ(record, "consumed 1 of 1;consumed 2 of 0;");
        record.clear();
    }
    EXPECT_EQ(record, "destroyed;gone;");
}

TEST(MtContainer, HasOneObserverForLife)
{
    std::string record;
    Queue queue("queue");
    queue.setObserver(RCShdPtr<Queue::Observer>(new Recorder<Queue>(record)));
    EXPECT_EQ(failedAssertion([&] {
                  queue.setObserver(RCShdPtr<Queue::Observer>(new Recorder<Queue>(record)));
              }),
              "_observer.isNull()");
    queue.produce(1); // the lock is free, and the first observer is still there
    EXPECT_EQ(queue.consume(), 1);
    EXPECT_EQ(record, "gone;produced 1 of 1;consumed 1 of 0;");
}

TEST(MtContainer, DestroyedWithElementsFailsAnAssertion)
{
    std::string record;
    EXPECT_EQ(failedAssertion([&] {
                  Queue queue("queue");
                  queue.setObserver(RCShdPtr<Queue::Observer>(new Recorder<Queue>(record)));
                  queue.produce(1);
                  record.clear();
              }),
              "_container.empty()");
    EXPECT_EQ(record, "destroyed;gone;");
}

TEST(MtContainer, LetsItsObserverGoBeforeItsAssertionFails)
{
    static int nbPassing = 0;
    struct Witness : Queue::Observer
    {
        ~Witness() noexcept(false) override { nbPassing = std::uncaught_exceptions(); }
        void performDestroyed(Queue &) override {}
        void performProduced(Queue &, int const &) override {}
        void performConsumed(Queue &, int const &) override {}
    };
    nbPassing = -1;
    EXPECT_EQ(failedAssertion([&] {
                  Queue queue("queue");
                  queue.setObserver(RCShdPtr<Queue::Observer>(new Witness));
                  queue.produce(1);
              }),
              "_container.empty()");
    EXPECT_EQ(nbPassing, 0);
}

TEST(MtContainer, AConsumerWaitsForAnElement)
{
    Queue queue("queue");
    std::atomic<int> got{0};
    Watched consumer([&] { got = queue.consume(); });
    consumer.waitUntilAsleep();
    EXPECT_EQ(got, 0);
    queue.produce(7);
    consumer.join();
    EXPECT_EQ(got, 7);
}

TEST(MtContainer, AProducerWaitsForRoom)
{
    Queue queue("queue", 1);
    queue.produce(1);
    std::atomic<bool> produced{false};
    Watched producer([&] {
        queue.produce(2);
        produced = true;
    });
    producer.waitUntilAsleep();
    EXPECT_FALSE(produced);
    EXPECT_EQ(queue.getSize(), 1U);
    EXPECT_EQ(queue.consume(), 1);
    producer.join();
    EXPECT_EQ(queue.consume(), 2);
}

TEST(MtContainer, AdmitsAnElementAlsoIfItIsFull)
{
    std::string record;
    Queue queue("queue", 2);
    RCShdPtr<Queue::Observer> const observer(new Recorder<Queue>(record));
    queue.setObserver(observer);
    queue.produce(1);
    queue.produce(2);
    queue.admit(3);
    int const four = 4;
    queue.admit(four);
    EXPECT_EQ(queue.getSize(), 4U);
    EXPECT_FALSE(queue.tryProduce(5));
    for (int i = 1; i <= 4; ++i)
        EXPECT_EQ(queue.consume(), i);
    EXPECT_EQ(record, "produced 1 of 1;produced 2 of 2;produced 3 of 3;produced 4 of 4;"
                      "consumed 1 of 3;consumed 2 of 2;consumed 3 of 1;consumed 4 of 0;");
}

TEST(MtContainer, AnAdmittedElementWakesAConsumer)
{
    Queue queue("queue", 1);
    std::atomic<int> got{0};
    Watched consumer([&] { got = queue.consume(); });
    consumer.waitUntilAsleep();
    queue.admit(7);
    consumer.join();
    EXPECT_EQ(got, 7);
}

// If a producer were woken while there is no room, it would only sleep again.
TEST(MtContainer, AProducerIsWokenWhenThereIsRoomBelowTheCapacityAgain)
{
    Queue queue("queue", 1);
    queue.produce(1);
    queue.admit(2);
    queue.admit(3);
    Watched producer([&] { queue.produce(4); });
    producer.waitUntilAsleep();
    nbPulses = 0;
    EXPECT_EQ(queue.consume(), 1);
    EXPECT_EQ(queue.consume(), 2);
    EXPECT_EQ(nbPulses, 0);
    EXPECT_EQ(queue.getSize(), 1U);
    EXPECT_EQ(queue.consume(), 3);
    EXPECT_EQ(nbPulses, 1);
    producer.join();
    EXPECT_EQ(queue.consume(), 4);
}

TEST(MtContainer, ATimedConsumerGetsAnElementThatArrivesInTime)
{
    Queue queue("queue");
    int element = 0;
    bool got = false;
    Watched consumer([&] { got = queue.timedConsume(element, 3600.0); });
    consumer.waitUntilAsleep();
    queue.produce(7);
    consumer.join();
    EXPECT_TRUE(got);
    EXPECT_EQ(element, 7);
}

TEST(MtContainer, NoPulseIsSentIfNoThreadWaits)
{
    Queue queue("queue", 1);
    nbPulses = 0;
    int element = 0;
    for (int i = 0; i < 100; ++i) {
        queue.produce(i);
        EXPECT_FALSE(queue.tryProduce(i));
        EXPECT_EQ(queue.consume(), i);
        EXPECT_FALSE(queue.tryConsume(element));
    }
    EXPECT_FALSE(queue.timedConsume(element, 0.001));
    queue.produce(1);
    EXPECT_TRUE(queue.timedConsume(element, 0.001));
    EXPECT_EQ(nbPulses, 0);

    Watched consumer([&] { element = queue.consume(); });
    consumer.waitUntilAsleep();
    queue.produce(7);
    consumer.join();
    EXPECT_EQ(element, 7);
    EXPECT_EQ(nbPulses, 1);
}

TEST(MtContainer, EachWaiterIsWoken)
{
    constexpr int WAITERS = 4;
    Queue queue("queue");
    std::atomic<int> sum{0};
    std::vector<std::unique_ptr<Watched>> consumers;
    for (int i = 0; i < WAITERS; ++i)
        consumers.push_back(std::make_unique<Watched>([&] { sum += queue.consume(); }));
    for (auto const &consumer : consumers)
        consumer->waitUntilAsleep();
    for (int i = 1; i <= WAITERS; ++i)
        queue.produce(i);
    for (auto const &consumer : consumers)
        consumer->join();
    EXPECT_EQ(sum, 1 + 2 + 3 + 4);
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
                // The time-out is short, so that time-outs and wake-ups coincide.
                bool const got = c == 0   ? queue.timedConsume(element, 0.0005)
                                 : c == 1 ? queue.tryConsume(element)
                                          : false;
                sum += got ? element : queue.consume();
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(sum, long{PRODUCERS} * EACH * (EACH + 1) / 2);
    EXPECT_TRUE(queue.isEmpty());
}

TEST(MtContainer, ATimedConsumerThatIsWokenInVainEndsInTime)
{
    VirtualTime const time;
    Queue queue("queue");
    std::vector<DWORD> limits;
    answerWait = [&](DWORD milliseconds) {
        limits.push_back(milliseconds);
        VirtualTime::pass(0.25);
        return limits.size() < 10 ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
    };
    int element = 0;
    EXPECT_FALSE(queue.timedConsume(element, 1.0));
    answerWait = nullptr;
    EXPECT_EQ(limits, (std::vector<DWORD>{1000, 750, 500, 250}));
}

// ---- elements that throw
// --------------------------------------------------------------------------------

/// Element whose next copy or next move can be made to throw.
struct Fragile
{
    static inline std::atomic<bool> copyThrows{false};
    static inline std::atomic<bool> moveThrows{false};

    explicit Fragile(int number = 0) : value(number) {}
    Fragile(Fragile const &other) : value(other.value)
    {
        if (copyThrows.exchange(false))
            throw std::runtime_error("the copy");
    }
    Fragile(Fragile &&other) : value(other.value)
    {
        if (moveThrows.exchange(false))
            throw std::runtime_error("the move");
    }
    Fragile &operator=(Fragile const &) = default;

    int value;
};

using FragileQueue = MtContainer<std::queue<Fragile>>;

/// Two threads that wait in a queue for the same event. One of them will fail.
class TwoWaiters
{
public:
    template <class Action>
    explicit TwoWaiters(Action action)
        : _first([this, action] { _failures[0] = whatFails(action); }),
          _second([this, action] { _failures[1] = whatFails(action); })
    {
        _first.waitUntilAsleep();
        _second.waitUntilAsleep();
    }
    /// Returns the text of what they have thrown.
    std::string join()
    {
        _first.join();
        _second.join();
        return _failures[0] + _failures[1];
    }

private:
    std::string _failures[2];
    Watched _first;
    Watched _second;
};

TEST(MtContainer, AWokenProducerPassesItsWakeUpOnIfItsElementThrows)
{
    FragileQueue queue("queue", 1);
    queue.produce(Fragile(1));
    Fragile const two(2);
    TwoWaiters producers([&] { queue.produce(two); });
    Fragile::copyThrows = true;
    EXPECT_EQ(queue.consume().value, 1);
    EXPECT_EQ(producers.join(), "the copy");
    EXPECT_EQ(queue.consume().value, 2);
}

TEST(MtContainer, AWokenConsumerPassesItsWakeUpOnIfItsElementThrows)
{
    FragileQueue queue("queue");
    std::atomic<int> sum{0};
    TwoWaiters consumers([&] { sum += queue.consume().value; });
    Fragile const seven(7);
    Fragile::moveThrows = true;
    queue.produce(seven);
    EXPECT_EQ(consumers.join(), "the move");
    EXPECT_EQ(sum, 7);
    EXPECT_TRUE(queue.isEmpty());
}

TEST(MtContainer, AWokenTimedConsumerPassesItsWakeUpOnIfItsElementThrows)
{
    FragileQueue queue("queue");
    std::atomic<int> sum{0};
    TwoWaiters consumers([&] {
        Fragile element;
        if (queue.timedConsume(element, 3600.0))
            sum += element.value;
    });
    Fragile const seven(7);
    Fragile::moveThrows = true;
    queue.produce(seven);
    EXPECT_EQ(consumers.join(), "the move");
    EXPECT_EQ(sum, 7);
}

TEST(MtContainer, AnElementThatCannotBeMovedOutStays)
{
    FragileQueue queue("queue", 1);
    Fragile const seven(7);
    queue.produce(seven);
    Fragile::moveThrows = true;
    EXPECT_EQ(whatFails([&] { static_cast<void>(queue.consume()); }), "the move");
    EXPECT_EQ(queue.consume().value, 7);
    Fragile::copyThrows = true;
    EXPECT_EQ(whatFails([&] { static_cast<void>(queue.tryProduce(seven)); }), "the copy");
    EXPECT_TRUE(queue.isEmpty());
}

TEST(MtContainer, WaitsForADurationOfTheStandardLibrary)
{
    Queue queue("queue");
    DWORD asked = 0;
    answerWait = [&asked](DWORD milliseconds) {
        asked = milliseconds;
        return WAIT_TIMEOUT;
    };
    int element = 0;
    EXPECT_FALSE(queue.timedConsume(element, std::chrono::milliseconds(250)));
    answerWait = nullptr;
    EXPECT_EQ(asked, 250U);
    queue.produce(7);
    EXPECT_TRUE(queue.timedConsume(element, std::chrono::seconds(0)));
    EXPECT_EQ(element, 7);
}

TEST(MtContainer, AFailedWaitIsNoLongerCounted)
{
    Queue queue("queue", 1);
    answerWait = [](DWORD) { return WAIT_FAILED; };
    int element = 0;
    char const * const text = "ret == WAIT_OBJECT_0 || ret == WAIT_TIMEOUT";
    EXPECT_EQ(failedAssertion([&] { static_cast<void>(queue.consume()); }), text);
    EXPECT_EQ(failedAssertion([&] { static_cast<void>(queue.timedConsume(element, 1.0)); }), text);
    queue.produce(1);
    EXPECT_EQ(failedAssertion([&] { queue.produce(2); }), text);
    answerWait = nullptr;
    nbPulses = 0;
    EXPECT_EQ(queue.consume(), 1);
    queue.produce(3);
    EXPECT_EQ(queue.consume(), 3);
    EXPECT_EQ(nbPulses, 0);
}

/// Element that ends the thread that copies it.
struct Deadly
{
    explicit Deadly(int number = 0, bool ends = false) : value(number), endsThread(ends) {}
    Deadly(Deadly const &other) : value(other.value), endsThread(other.endsThread)
    {
        if (endsThread)
            ::TerminateThread(::GetCurrentThread(), 0);
    }
    Deadly &operator=(Deadly const &) = default;

    int value;
    bool endsThread;
};

using DeadlyQueue = MtContainer<std::queue<Deadly>>;

DWORD admitDeadly(void *queue)
{
    Deadly const deadly(0, true);
    static_cast<DeadlyQueue *>(queue)->admit(deadly);
    return 0;
}

/// Leaves the lock of the queue abandoned.
void killAProducer(DeadlyQueue &queue)
{
    HANDLE const thread = ::CreateThread(nullptr, 0, admitDeadly, &queue, 0, nullptr);
    ASSERT_EQ(::WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
    ::CloseHandle(thread);
}

char const * const ABANDONED_TEXT = "::WaitForSingleObject( _mutex, INFINITE ) == WAIT_OBJECT_0";

TEST(MtContainer, AConsumerThatFindsTheLockOfTheProducersAbandonedLosesNothing)
{
    DeadlyQueue queue("queue", 3);
    for (int number : {1, 2, 3})
        queue.produce(Deadly(number));
    EXPECT_EQ(queue.consume().value, 1);
    queue.produce(Deadly(4));
    Watched producer([&] { queue.produce(Deadly(5)); });
    producer.waitUntilAsleep();
    killAProducer(queue);
    EXPECT_EQ(queue.consume().value, 2);
    producer.join();
    EXPECT_EQ(failedAssertion([&] { static_cast<void>(queue.consume()); }), ABANDONED_TEXT);
    for (int number : {3, 4, 5})
        EXPECT_EQ(queue.consume().value, number);
    EXPECT_TRUE(queue.isEmpty());
}

TEST(MtContainer, ATimedConsumerThatFindsTheLockOfTheProducersAbandonedLosesNothing)
{
    DeadlyQueue queue("queue", 2);
    queue.produce(Deadly(1));
    queue.produce(Deadly(2));
    EXPECT_EQ(queue.consume().value, 1);
    queue.produce(Deadly(3));
    Watched producer([&] { queue.produce(Deadly(4)); });
    producer.waitUntilAsleep();
    killAProducer(queue);
    Deadly element;
    EXPECT_TRUE(queue.tryConsume(element));
    EXPECT_EQ(element.value, 2);
    producer.join();
    EXPECT_EQ(failedAssertion([&] { static_cast<void>(queue.tryConsume(element)); }),
              ABANDONED_TEXT);
    EXPECT_EQ(element.value, 2);
    EXPECT_EQ(queue.consume().value, 3);
    EXPECT_EQ(queue.consume().value, 4);
}

TEST(MtContainer, AnOperationThatFindsItsLockAbandonedChangesNothing)
{
    DeadlyQueue queue("queue");
    queue.produce(Deadly(1));
    killAProducer(queue);
    EXPECT_EQ(failedAssertion([&] { static_cast<void>(queue.consume()); }), ABANDONED_TEXT);
    EXPECT_EQ(queue.consume().value, 1);
    killAProducer(queue);
    EXPECT_EQ(failedAssertion([&] { queue.produce(Deadly(2)); }), ABANDONED_TEXT);
    EXPECT_TRUE(queue.isEmpty());
}

/// Element whose destructor calls a function, which may throw.
class Ending
{
public:
    explicit Ending(std::function<void()> atTheEnd = nullptr) : _atTheEnd(std::move(atTheEnd)) {}
    Ending(Ending &&other) noexcept : _atTheEnd(std::exchange(other._atTheEnd, nullptr)) {}
    Ending &operator=(Ending &&other)
    {
        std::function<void()> const former(
            std::exchange(_atTheEnd, std::exchange(other._atTheEnd, nullptr)));
        if (former)
            former();
        return *this;
    }
    ~Ending() noexcept(false)
    {
        if (_atTheEnd)
            _atTheEnd();
    }
    bool isNull() const { return !_atTheEnd; }

private:
    std::function<void()> _atTheEnd;
};

using EndingQueue = MtContainer<std::queue<Ending, Deque<Ending>>>;

TEST(MtContainer, TheConsumersOldElementEndsWithoutTheLock)
{
    EndingQueue queue("queue");
    std::uint64_t sizeAtTheEnd = 7;
    queue.produce(Ending([] {}));
    Ending element([&] { std::thread([&] { sizeAtTheEnd = queue.getSize(); }).join(); });
    EXPECT_TRUE(queue.tryConsume(element));
    EXPECT_EQ(sizeAtTheEnd, 0U);
}

TEST(MtContainer, AThrowingDestructorOfTheConsumersOldElementLosesNothing)
{
    std::string record;
    struct Witness : EndingQueue::Observer
    {
        explicit Witness(std::string &text) : _text(text) {}
        ~Witness() noexcept(false) override = default;
        void performDestroyed(EndingQueue &) override {}
        void performProduced(EndingQueue &, Ending const &) override {}
        void performConsumed(EndingQueue &, Ending const &element) override
        {
            _text += element.isNull() ? "nothing;" : "consumed;";
        }
        std::string &_text;
    };
    EndingQueue queue("queue", 1);
    queue.setObserver(RCShdPtr<EndingQueue::Observer>(new Witness(record)));
    queue.produce(Ending([&] { record += "first ends;"; }));
    Watched producer([&] { queue.produce(Ending([&] { record += "second ends;"; })); });
    producer.waitUntilAsleep();
    {
        Ending element([] { throw std::runtime_error("the end of the old one"); });
        EXPECT_EQ(whatFails([&] { static_cast<void>(queue.tryConsume(element)); }),
                  "the end of the old one");
        EXPECT_FALSE(element.isNull());
        EXPECT_EQ(record, "consumed;");
    }
    producer.join();
    EXPECT_TRUE(!queue.consume().isNull());
    EXPECT_EQ(record, "consumed;first ends;consumed;second ends;");
}

TEST(MtContainer, DestroyedWithElementsThatThrowFailsAnAssertion)
{
    int nbEnded = 0;
    EXPECT_EQ(failedAssertion([&] {
                  EndingQueue queue("queue");
                  for (int i = 0; i < 2; ++i)
                      queue.produce(Ending([&] {
                          ++nbEnded;
                          throw std::runtime_error("the end");
                      }));
              }),
              "_container.empty()");
    EXPECT_EQ(nbEnded, 2);
}

} // namespace

} // namespace ZvTest
