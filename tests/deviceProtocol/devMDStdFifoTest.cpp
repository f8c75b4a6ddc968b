#include "recording.h"
#include "testing/asleep.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <stdexcept>
#include <thread>

namespace ZvTest {
namespace {

TEST(DevMDStdFifo, BlocksTheEleventhProduceUntilAnEntryIsConsumed)
{
    RCShdPtr<DevMDStdFifo> const fifo = makeShd<DevMDStdFifo>();
    std::atomic<bool> consumed{false};
    std::atomic<long> number{0};
    std::binary_semaphore full{0};
    std::thread producer([&] {
        for (int i = 0; i < 10; ++i)
            produce(*fifo, makeANO([] {}));
        EXPECT_FALSE(consumed);
        ObjPtr<DevANO> eleventh(makeANO([] {}));
        number = threadNumber();
        full.release();
        produce(*fifo, eleventh);
        EXPECT_TRUE(consumed);
    });
    full.acquire();
    waitUntilAsleep(number);
    consumed = true;
    ObjPtr<DevANO>(fifo->consume().release());
    producer.join();
    fifo->close();
}

TEST(DevMDStdFifo, NeverHoldsMoreThanItsCapacity)
{
    constexpr int nbRequests = 500;
    std::counting_semaphore<> produced{0};
    RCShdPtr<DevMDStdFifo> const fifo(
        new DevMDStdFifo(RCShdPtr<DevMDStdFifoObs>(new CountingObs(produced)), 3));
    std::atomic<int> queued{0};
    std::thread producer([&] {
        for (int i = 0; i < nbRequests; ++i) {
            produce(*fifo, makeANO([] {}));
            ++queued;
        }
    });
    for (int consumed = 0; consumed < nbRequests; ++consumed) {
        produced.acquire();
        EXPECT_LE(queued, consumed + 3);
        ObjPtr<DevANO>(fifo->consume().release());
    }
    producer.join();
}

TEST(DevMDStdFifo, WithACapacityOfZeroNeverBlocks)
{
    RCShdPtr<DevMDStdFifo> const fifo = makeShd<DevMDStdFifo>(0);
    int executed = 0;
    for (int i = 0; i < 3000; ++i)
        produce(*fifo, makeANO([&] { ++executed; }));
    drain(*fifo);
    EXPECT_EQ(executed, 3000);
}

TEST(DevMDStdFifo, AdmitsAboveItsCapacityInTheOrderOfItsCalls)
{
    std::counting_semaphore<> produced{0};
    RCShdPtr<DevMDStdFifo> const fifo(
        new DevMDStdFifo(RCShdPtr<DevMDStdFifoObs>(new CountingObs(produced)), 1));
    Journal log;
    produce(*fifo, recordingANO(log, "request"));
    for (char const *name : {"step", "other step"}) {
        DevANOQueueEntry entry{ObjPtr<DevANO>(recordingANO(log, name))};
        fifo->admit(entry);
        EXPECT_TRUE(entry.isNull());
    }
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(produced.try_acquire());
    drain(*fifo);
    EXPECT_EQ(log.getLines(),
              (Lines{"request", "~request", "step", "~step", "other step", "~other step"}));
}

TEST(DevMDStdFifo, DestroysWhatItAdmitsWhenItIsClosed)
{
    RCShdPtr<DevMDStdFifo> const fifo = makeShd<DevMDStdFifo>(1);
    Journal log;
    DevANOQueueEntry entry{ObjPtr<DevANO>(recordingANO(log, "queued"))};
    fifo->admit(entry);
    fifo->close();
    entry = DevANOQueueEntry{ObjPtr<DevANO>(recordingANO(log, "late"))};
    fifo->admit(entry);
    EXPECT_EQ(log.getLines(), (Lines{"~queued", "~late"}));
    EXPECT_THROW(fifo->admit(entry), RCEx::ExNullPtr);
}

TEST(DevMDStdFifo, ProduceLeavesTheEntryEmptyAndConsumeKeepsTheOrder)
{
    RCShdPtr<DevMDStdFifo> const queue = makeShd<DevMDStdFifo>();
    Journal log;
    DevANOQueueEntry entry{ObjPtr<DevANO>(recordingANO(log, "first"))};
    queue->produce(entry);
    EXPECT_TRUE(entry.isNull());
    produce(*queue, recordingANO(log, "second"));
    ObjPtr<DevANO>(queue->consume().release())->performExecute();
    ObjPtr<DevANO>(queue->consume().release())->performExecute();
    EXPECT_EQ(log.getLines(), (Lines{"first", "~first", "second", "~second"}));
}

TEST(DevMDStdFifo, TryConsumeOnAnEmptyOneReturnsFalseAndLeavesTheEntryAsItWas)
{
    RCShdPtr<DevMDStdFifo> const fifo = makeShd<DevMDStdFifo>();
    Journal log;
    DevANOQueueEntry entry{ObjPtr<DevANO>(recordingANO(log, "held"))};
    EXPECT_FALSE(fifo->tryConsume(entry));
    EXPECT_FALSE(entry.isNull());
    EXPECT_EQ(log.getLines(), Lines{});

    produce(*fifo, recordingANO(log, "queued"));
    EXPECT_TRUE(fifo->tryConsume(entry));
    EXPECT_EQ(log.getLines(), Lines{"~held"});
    ObjPtr<DevANO>(entry.release())->performExecute();
    EXPECT_EQ(log.getLines(), (Lines{"~held", "queued", "~queued"}));
}

TEST(DevMDStdFifo, ConsumeWaitsForAProducer)
{
    RCShdPtr<DevMDStdFifo> const fifo = makeShd<DevMDStdFifo>();
    std::atomic<bool> produced{false};
    std::atomic<long> number{0};
    std::binary_semaphore coming{0};
    std::thread consumer([&] {
        number = threadNumber();
        coming.release();
        ObjPtr<DevANO>(fifo->consume().release());
        EXPECT_TRUE(produced);
    });
    coming.acquire();
    waitUntilAsleep(number);
    produced = true;
    produce(*fifo, makeANO([] {}));
    consumer.join();
}

TEST(DevMDStdFifo, CallsItsObserverForEachProductionWithTheEmptiedEntry)
{
    struct Obs : DevMDStdFifoObs
    {
        void performProduced(DevANOQueue &queue, DevANOQueueEntry const &entry) override
        {
            EXPECT_TRUE(entry.isNull());
            sizes.push_back(queue.getSize()); // takes the queue's lock, which must be free
        }
        std::vector<std::uint64_t> sizes;
    };
    RCShdPtr<Obs> const obs = makeShd<Obs>();
    RCShdPtr<DevMDStdFifo> fifo = makeShd<DevMDStdFifo>(RCShdPtr<DevMDStdFifoObs>(obs), 10);
    produce(*fifo, makeANO([] {}));
    produce(*fifo, makeANO([] {}));
    drain(*fifo); // taking requests out does not call the observer
    EXPECT_EQ(obs->sizes, (std::vector<std::uint64_t>{1, 2}));
    EXPECT_FALSE(obs.isUnique());
    fifo = nullptr;
    EXPECT_TRUE(obs.isUnique());
}

TEST(DevMDStdFifo, ANullObserverIsANullPointerFailureOfEachProduction)
{
    RCShdPtr<DevMDStdFifo> const fifo = makeShd<DevMDStdFifo>(RCShdPtr<DevMDStdFifoObs>(), 10);
    EXPECT_THROW(produce(*fifo, makeANO([] {})), RCEx::ExNullPtr);
    drain(*fifo);
}

TEST(DevMDStdFifo, DestroyedWithEntriesTripsTheAssertionThatItIsEmpty)
{
    Journal log;
    RCShdPtr<DevMDStdFifo> fifo = makeShd<DevMDStdFifo>();
    produce(*fifo, recordingANO(log, "left"));
    EXPECT_THROW(fifo = nullptr, AssertionFailed);
    EXPECT_EQ(log.getLines(), Lines{"~left"});
}

TEST(DevMDStdFifo, CloseDestroysQueuedAndLaterEntries)
{
    Journal log;
    RCShdPtr<DevMDStdFifo> const fifo = makeShd<DevMDStdFifo>();
    produce(*fifo, recordingANO(log, "queued"));
    fifo->close();
    EXPECT_EQ(log.getLines(), Lines{"~queued"});
    produce(*fifo, recordingANO(log, "late"));
    EXPECT_EQ(log.getLines(), (Lines{"~queued", "~late"}));
    DevANOQueueEntry entry;
    EXPECT_FALSE(fifo->tryConsume(entry));

    fifo->open();
    produce(*fifo, recordingANO(log, "again"));
    drain(*fifo);
    EXPECT_EQ(log.getLines().back(), "~again");
    EXPECT_TRUE(log.has("again"));
}

struct FailingObs : DevMDStdFifoObs
{
    void performProduced(DevANOQueue &, DevANOQueueEntry const &) override
    {
        throw std::runtime_error("observer");
    }
};

TEST(DevMDStdFifo, IfClosedDestroysNewEntriesEvenIfItsObserverThrows)
{
    Journal log;
    RCShdPtr<DevMDStdFifo> const fifo =
        makeShd<DevMDStdFifo>(RCShdPtr<DevMDStdFifoObs>(new FailingObs));
    fifo->close();
    EXPECT_THROW(produce(*fifo, recordingANO(log, "late")), std::runtime_error);
    EXPECT_EQ(log.getLines(), Lines{"~late"});
    DevANOQueueEntry entry;
    EXPECT_FALSE(fifo->tryConsume(entry));
}

TEST(DevMDStdFifo, AnEntryWithoutAnANOIsANullPointerFailureOfItsProducer)
{
    RCShdPtr<DevMDStdFifo> const fifo = makeShd<DevMDStdFifo>();
    DevANOQueueEntry entry;
    EXPECT_THROW(fifo->produce(entry), RCEx::ExNullPtr);
    EXPECT_FALSE(fifo->tryConsume(entry));
}

TEST(DevMDStdFifo, SendReturnsWhatTheObserverThrowsAndThrowsIfTheANOIsNotQueued)
{
    Journal log;
    RCShdPtr<DevMDStdFifo> const plain = makeShd<DevMDStdFifo>();
    EXPECT_EQ(plain->send(recordingANO(log, "sent")), nullptr);
    EXPECT_THROW((void)plain->send(nullptr), RCEx::ExNullPtr);
    drain(*plain);
    EXPECT_EQ(log.getLines(), (Lines{"sent", "~sent"}));

    RCShdPtr<DevMDStdFifo> const failing =
        makeShd<DevMDStdFifo>(RCShdPtr<DevMDStdFifoObs>(new FailingObs));
    std::exception_ptr const failure = failing->send(makeANO([] {}));
    ASSERT_NE(failure, nullptr);
    EXPECT_THROW(std::rethrow_exception(failure), std::runtime_error);
    drain(*failing);
}

TEST(DevMDStdFifo, TimedConsumeWaitsForAProducerOrForItsTime)
{
    RCShdPtr<DevMDStdFifo> const fifo = makeShd<DevMDStdFifo>();
    Journal log;
    DevANOQueueEntry entry{ObjPtr<DevANO>(recordingANO(log, "held"))};
    EXPECT_FALSE(fifo->timedConsume(entry, 0.001));
    EXPECT_FALSE(entry.isNull());
    EXPECT_EQ(log.getLines(), Lines{});
    std::thread producer([&] { produce(*fifo, recordingANO(log, "queued")); });
    EXPECT_TRUE(fifo->timedConsume(entry, 3600));
    producer.join();
    EXPECT_EQ(log.getLines(), Lines{"~held"});
}

TEST(DevMDStdFifo, DestroysTheFormerContentsOfAnEntryWithoutTheLock)
{
    RCShdPtr<DevMDStdFifo> const fifo = makeShd<DevMDStdFifo>();
    Journal log;
    struct ProducesAtItsEnd : DevMDStdANO
    {
        ProducesAtItsEnd(DevMDStdFifo &f, Journal &l) : fifo(f), log(l) {}
        ~ProducesAtItsEnd() override
        {
            std::thread([this] { produce(fifo, recordingANO(log, "another")); }).join();
        }
        void performExecute() override {}
        DevMDStdFifo &fifo;
        Journal &log;
    };
    for (bool const isTimed : {false, true}) {
        DevANOQueueEntry entry{ObjPtr<DevANO>(makeObj<ProducesAtItsEnd>(*fifo, log))};
        produce(*fifo, recordingANO(log, "queued"));
        EXPECT_TRUE(isTimed ? fifo->timedConsume(entry, 3600) : fifo->tryConsume(entry));
        drain(*fifo);
        EXPECT_EQ(log.getLines().back(), "~another");
    }
}

TEST(DevMDStdFifo, CloseLetsBlockedProducersGo)
{
    RCShdPtr<DevMDStdFifo> const fifo = makeShd<DevMDStdFifo>(1);
    std::counting_semaphore<> coming{0};
    std::atomic<int> destroyed{0};
    struct Counted
    {
        explicit Counted(std::atomic<int> &count) : _count(&count) {}
        Counted(Counted &&other) noexcept : _count(std::exchange(other._count, nullptr)) {}
        ~Counted()
        {
            if (_count)
                ++*_count;
        }
        void operator()() const { ADD_FAILURE() << "executed"; }
        std::atomic<int> *_count;
    };
    std::vector<std::thread> producers;
    for (int i = 0; i < 4; ++i) {
        producers.emplace_back([&] {
            coming.release();
            for (int n = 0; n < 3; ++n)
                produce(*fifo, makeANO(Counted(destroyed)));
        });
    }
    for (int i = 0; i < 4; ++i)
        coming.acquire();
    fifo->close();
    for (auto &producer : producers)
        producer.join();
    EXPECT_EQ(destroyed, 12);
}

TEST(DevMDStdFifo, CloseDestroysAllAndReleasesProducersAlsoIfOneANOFailsToEnd)
{
    RCShdPtr<DevMDStdFifo> const fifo = makeShd<DevMDStdFifo>(3);
    Journal log;
    produce(*fifo, makeObj<FailingANO>(log, "first"));
    produce(*fifo, makeObj<FailingANO>(log, "second"));
    produce(*fifo, recordingANO(log, "third"));
    std::atomic<long> number{0};
    std::thread producer([&] {
        number = threadNumber();
        // This thread also destroys queued requests, so it may get the exception of the second one.
        (void)whatFails([&] { produce(*fifo, recordingANO(log, "fourth")); });
    });
    while (!number)
        std::this_thread::yield();
    waitUntilAsleep(number);
    EXPECT_EQ(whatFails([&] { fifo->close(); }), "first");
    producer.join();
    Lines lines = log.getLines();
    std::sort(lines.begin(), lines.end());
    EXPECT_EQ(lines, (Lines{"~first", "~fourth", "~second", "~third"}));
}

TEST(DevMDStdFifo, IfClosedThrowsWhatTheDestructorOfAnANOThrows)
{
    RCShdPtr<DevMDStdFifo> const fifo = makeShd<DevMDStdFifo>();
    Journal log;
    fifo->close();
    EXPECT_EQ(whatFails([&] { produce(*fifo, makeObj<FailingANO>(log, "late")); }), "late");
    EXPECT_EQ(log.getLines(), Lines{"~late"});
}

TEST(DevMDStdFifo, TheLastANOIsAllThatTheConsumerGets)
{
    RCShdPtr<DevMDStdFifo> const fifo = makeShd<DevMDStdFifo>();
    Journal log;
    produce(*fifo, recordingANO(log, "queued"));
    EXPECT_EQ(fifo->sendLast(recordingANO(log, "last")), nullptr);
    EXPECT_EQ(log.getLines(), Lines{"~queued"});
    produce(*fifo, recordingANO(log, "late"));
    drain(*fifo);
    EXPECT_EQ(log.getLines(), (Lines{"~queued", "last", "~last", "~late"}));

    produce(*fifo, recordingANO(log, "waits"));
    DevANOQueueEntry entry{ObjPtr<DevANO>(recordingANO(log, "held"))};
    EXPECT_FALSE(fifo->timedConsume(entry, 0.001));
    EXPECT_FALSE(entry.isNull());
    EXPECT_EQ(log.getLines().back(), "~waits");
    fifo->close();
}

TEST(DevMDStdFifo, TheLastANOIsBehindTheEarlierOnes)
{
    RCShdPtr<DevMDStdFifo> const fifo = makeShd<DevMDStdFifo>();
    Journal log;
    // Its destruction makes another producer queue a request before the last one.
    struct Late
    {
        Late(DevMDStdFifo &fifo, Journal &log) : _fifo(&fifo), _log(log) {}
        Late(Late &&other) noexcept : _fifo(std::exchange(other._fifo, nullptr)), _log(other._log)
        {}
        ~Late() noexcept(false)
        {
            if (_fifo)
                std::thread([this] { produce(*_fifo, recordingANO(_log, "late")); }).join();
        }
        void operator()() const {}
        DevMDStdFifo *_fifo;
        Journal &_log;
    };
    produce(*fifo, makeANO(Late(*fifo, log)));
    EXPECT_EQ(fifo->sendLast(recordingANO(log, "last")), nullptr);
    ObjPtr<DevANO> const last(fifo->consume().release());
    last->performExecute();
    EXPECT_EQ(log.getLines(), (Lines{"~late", "last"}));
    fifo->close();
}

TEST(DevMDStdFifo, CloseThrowsWhatADestructorThrewOnTheConsumersThread)
{
    RCShdPtr<DevMDStdFifo> const fifo = makeShd<DevMDStdFifo>();
    Journal log;
    EXPECT_EQ(fifo->sendLast(recordingANO(log, "last")), nullptr);
    produce(*fifo, makeObj<FailingANO>(log, "late"));
    drain(*fifo);
    EXPECT_EQ(log.getLines(), (Lines{"last", "~last", "~late"}));
    EXPECT_EQ(whatFails([&] { fifo->close(); }), "late");
    fifo->close();
}

TEST(DevMDStdFifo, SendLastHandsOutWhatFailsAndThrowsForANullPointer)
{
    RCShdPtr<DevMDStdFifo> const fifo = makeShd<DevMDStdFifo>();
    Journal log;
    EXPECT_THROW((void)fifo->sendLast(nullptr), RCEx::ExNullPtr);
    produce(*fifo, makeObj<FailingANO>(log, "queued"));
    std::exception_ptr const failure = fifo->sendLast(recordingANO(log, "last"));
    ASSERT_NE(failure, nullptr);
    EXPECT_EQ(whatFails([&] { std::rethrow_exception(failure); }), "queued");
    drain(*fifo);
    EXPECT_TRUE(log.has("last"));
}

TEST(DevMDStdFifo, ANegativeCapacityIsAnAssertion)
{
    EXPECT_THROW(makeShd<DevMDStdFifo>(-1), AssertionFailed);
}

TEST(DevMDStdFifo, ManyProducersLoseNothing)
{
    constexpr int nbProducers = 4;
    constexpr int nbEach = 500;
    RCShdPtr<DevMDStdFifo> const fifo = makeShd<DevMDStdFifo>(2);
    int executed = 0; // used by the consumer only
    std::vector<std::thread> producers;
    for (int i = 0; i < nbProducers; ++i) {
        producers.emplace_back([&] {
            for (int n = 0; n < nbEach; ++n)
                produce(*fifo, makeANO([&] { ++executed; }));
        });
    }
    for (int n = 0; n < nbProducers * nbEach; ++n)
        ObjPtr<DevANO>(fifo->consume().release())->performExecute();
    for (auto &producer : producers)
        producer.join();
    EXPECT_EQ(executed, nbProducers * nbEach);
}

} // namespace
} // namespace ZvTest
