#include "recording.h"

#include "testing/allocations.h"
#include "testing/asleep.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <thread>

namespace ZvTest {
namespace {

/// Factory that records the identifiers of the properties it is called for.
class RecordingFactory : public DevMDStdPropertyANOFactory<int>
{
public:
    explicit RecordingFactory(std::vector<LiUuid> &ids) : _ids(ids) {}

    ObjPtrRet<DevMDStdANO> createSetANO(LiUuid const &id, int value) override
    {
        _ids.push_back(id);
        return makeANO([this, value] { _value = value; });
    }
    ObjPtrRet<DevMDStdANO> createGetANO(LiUuid const &id, int &value, bool &ok) override
    {
        _ids.push_back(id);
        return makeANO([this, &value, &ok] {
            value = _value;
            ok = _value >= 0;
        });
    }

private:
    std::vector<LiUuid> &_ids;
    int _value = 0;
};

class Gain : public DevMDStdProperty<int>
{
public:
    using DevMDStdProperty<int>::DevMDStdProperty;
    using DevMDStdProperty<int>::notify;
    using DevMDStdProperty<int>::setAttributes;
};

constexpr unsigned int both = DevMDPropertyAny::READABLE | DevMDPropertyAny::WRITABLE;

class DevMDStdPropertyTest : public testing::Test
{
protected:
    ~DevMDStdPropertyTest() noexcept override {} // destructors of members may throw

    RCShdPtr<Gain> makeGain()
    {
        return makeShd<Gain>("gain", "Amplification", both,
                             ObjPtr<DevMDStdPropertyANOFactory<int>>(new RecordingFactory(_ids)),
                             _fifo);
    }

    Journal _log;
    std::vector<LiUuid> _ids;
    RCShdPtr<DevMDStdFifo> _fifo = makeShd<DevMDStdFifo>();
    RCShdPtr<Gain> _gain = makeGain();
};

/// Replaces the device's thread. Executes the given number of requests.
class Server
{
public:
    Server(DevMDStdFifo &fifo, int nbRequests)
        : _thread([&fifo, nbRequests] {
              for (int i = 0; i < nbRequests; ++i) {
                  ObjPtr<DevANO> ano(fifo.consume().release());
                  ano->performExecute();
                  ano->notify();
              }
          })
    {}
    ~Server() { _thread.join(); }

private:
    std::thread _thread;
};

TEST_F(DevMDStdPropertyTest, KnowsItselfAndIsAlwaysAvailable)
{
    EXPECT_EQ(_gain->getName(), "gain");
    EXPECT_EQ(_gain->getDescription(), "Amplification");
    EXPECT_EQ(_gain->getAttributes(), 3u);
    EXPECT_TRUE(_gain->isAvailable());
    EXPECT_FALSE(_gain->getUuid().isNil());
    EXPECT_EQ(_gain->getUuid(), _gain->getUuid());
    EXPECT_NE(_gain->getUuid(), makeGain()->getUuid());
}

TEST_F(DevMDStdPropertyTest, TheDeviceChangesWhatCanBeDone)
{
    _gain->setAttributes(DevMDPropertyAny::READABLE);
    EXPECT_EQ(_gain->getAttributes(), 1u);
    EXPECT_THROW(_gain->set(1), DevPrtclEx::ExMDPropertyIllegalOp);
    _gain->setAttributes(0);
    int value = 0;
    EXPECT_THROW(_gain->get(value), DevPrtclEx::ExMDPropertyIllegalOp);
    EXPECT_TRUE(_ids.empty());
}

TEST_F(DevMDStdPropertyTest, SetDoesNotWaitForTheDevicesThread)
{
    _gain->set(5); // no thread serves the FIFO
    EXPECT_EQ(_ids, std::vector<LiUuid>{_gain->getUuid()});
    drain(*_fifo);
    Server server(*_fifo, 1);
    int value = 0;
    _gain->get(value);
    EXPECT_EQ(value, 5);
}

TEST_F(DevMDStdPropertyTest, GetReturnsTheValueOfTheDevicesThread)
{
    Server server(*_fifo, 4);
    int value = 0;
    _gain->set(17);
    _gain->get(value);
    EXPECT_EQ(value, 17);
    _gain->set(18);
    _gain->get(value);
    EXPECT_EQ(value, 18);
}

TEST_F(DevMDStdPropertyTest, AGetThatTheDeviceCannotAnswerThrows)
{
    Server server(*_fifo, 2);
    _gain->set(-1);
    int value = 0;
    try {
        _gain->get(value);
        FAIL();
    } catch (DevPrtclEx::ExMDStdPropertyGet &failure) {
        EXPECT_STREQ(failure.getReason(), "Error while getting the value for gain");
    }
}

TEST_F(DevMDStdPropertyTest, AGetThrowsIfItsRequestIsDestroyedUnexecuted)
{
    std::thread closing([&] { DevANOQueueEntry const unrun(_fifo->consume()); });
    int value = 3;
    try {
        _gain->get(value);
        FAIL();
    } catch (DevPrtclEx::ExMDStdPropertyGet &failure) {
        EXPECT_STREQ(failure.getReason(), "Error while getting the value for gain");
    }
    EXPECT_EQ(value, 3);
    closing.join();
}

TEST_F(DevMDStdPropertyTest, AGetReturnsIfItsRequestThrows)
{
    RCShdPtr<Gain> const failing = makeShd<Gain>(
        "failing", "", both,
        makePropertyANOFactory<int>([](int) {}, [](int &) { throw std::runtime_error("get"); }),
        _fifo);
    std::thread device([&] {
        ObjPtr<DevANO> ano(_fifo->consume().release());
        EXPECT_THROW(ano->performExecute(), std::runtime_error);
    });
    int value = 0;
    EXPECT_THROW(failing->get(value), DevPrtclEx::ExMDStdPropertyGet);
    device.join();
}

// The request writes to the reader's stack, so the reader must not continue before the request
// has ended.
TEST_F(DevMDStdPropertyTest, AGetWaitsForItsRequestEvenIfTheFifosObserverThrows)
{
    struct Obs : DevMDStdFifoObs
    {
        explicit Obs(std::binary_semaphore &s) : produced(s) {}
        void performProduced(DevANOQueue &, DevANOQueueEntry const &) override
        {
            produced.release();
            throw std::runtime_error("observer");
        }
        std::binary_semaphore &produced;
    };
    std::binary_semaphore produced{0};
    RCShdPtr<DevMDStdFifo> const fifo =
        makeShd<DevMDStdFifo>(RCShdPtr<DevMDStdFifoObs>(new Obs(produced)));
    auto const gain = makeProperty<int>("gain", "", fifo, [](int &value) { value = 17; });
    std::atomic<bool> hasReturned{false};
    std::atomic<long> const reader{threadNumber()};
    bool hasWaited = false;
    std::thread device([&] {
        produced.acquire();
        while (!hasReturned && !isAsleep(reader))
            std::this_thread::yield();
        hasWaited = !hasReturned;
        if (hasWaited)
            drain(*fifo);
        else
            fifo->close();
    });
    int value = 0;
    EXPECT_THROW(gain->get(value), std::runtime_error);
    hasReturned = true;
    device.join();
    EXPECT_TRUE(hasWaited);
    EXPECT_EQ(value, 17);
}

TEST_F(DevMDStdPropertyTest, SetAndGetOnAClosedFifoDoNotWait)
{
    _fifo->close();
    _gain->set(1);
    int value = 0;
    EXPECT_THROW(_gain->get(value), DevPrtclEx::ExMDStdPropertyGet);
}

TEST_F(DevMDStdPropertyTest, NullFactoryAndNullFifoAreNullPointerFailures)
{
    RCShdPtr<Gain> const withoutFactory = makeShd<Gain>("gain", "", both, nullptr, _fifo);
    int value = 0;
    EXPECT_THROW(withoutFactory->set(1), RCEx::ExNullPtr);
    EXPECT_THROW(withoutFactory->get(value), RCEx::ExNullPtr);
    RCShdPtr<Gain> const withoutFifo = makeShd<Gain>(
        "gain", "", both, makePropertyANOFactory<int>([](int) {}, [](int &) {}), nullptr);
    EXPECT_THROW(withoutFifo->set(1), RCEx::ExNullPtr);
    EXPECT_THROW(withoutFifo->get(value), RCEx::ExNullPtr);
}

TEST_F(DevMDStdPropertyTest, ManyThreadsSetAndGetAtOnce)
{
    constexpr int nbThreads = 4;
    constexpr int nbRounds = 200;
    Server server(*_fifo, nbThreads * nbRounds * 2);
    std::vector<std::thread> clients;
    std::atomic<int> nbGood{0};
    // `RecordingFactory` is not thread-safe, so this property has another factory.
    int held = 0;
    RCShdPtr<Gain> const shared =
        makeShd<Gain>("shared", "", both,
                      makePropertyANOFactory<int>([&held](int value) { held = value; },
                                                  [&held](int &value) { value = held; }),
                      _fifo);
    for (int i = 1; i <= nbThreads; ++i) {
        clients.emplace_back([&, i] {
            for (int round = 0; round < nbRounds; ++round) {
                shared->set(i);
                int value = 0;
                shared->get(value);
                nbGood += value >= 1 && value <= nbThreads;
            }
        });
    }
    for (auto &client : clients)
        client.join();
    EXPECT_EQ(nbGood, nbThreads * nbRounds);
}

TEST(DevMDStdPropertyVector, AVectorIsSetAndRead)
{
    RCShdPtr<DevMDStdFifo> const fifo = makeShd<DevMDStdFifo>();
    Vector<double> held;
    RCShdPtr<DevMDStdProperty<Vector<double>>> const curve(new DevMDStdProperty<Vector<double>>(
        "curve", "", both,
        makePropertyANOFactory<Vector<double>>(
            [&](Vector<double> value) { held = std::move(value); },
            [&](Vector<double> &value) {
                value = held;
                return !held.empty();
            }),
        fifo));
    Server server(*fifo, 3);
    Vector<double> value;
    EXPECT_THROW(curve->get(value), DevPrtclEx::ExMDStdPropertyGet);
    curve->set({0.0, 0.5, 1.0});
    curve->get(value);
    EXPECT_EQ(value, (Vector<double>{0.0, 0.5, 1.0}));
}

TEST(DevMDStdPropertyGetACO, PostsOnceWhetherItRunsOrNot)
{
    LkUnnamedSema done("done", 0);
    bool ok = true;
    {
        DevMDStdPropertyGetACO aco(done, ok);
        aco.performExecute();
    }
    EXPECT_TRUE(ok);
    EXPECT_TRUE(done.tryWait());
    EXPECT_FALSE(done.tryWait());
    {
        DevMDStdPropertyGetACO const aco(done, ok);
    }
    EXPECT_FALSE(ok);
    EXPECT_TRUE(done.tryWait());
    EXPECT_FALSE(done.tryWait());
    {
        DevMDStdPropertyGetACO const aco(done);
    }
    EXPECT_TRUE(done.tryWait());
}

class RecordingAEO : public DevMDPropertyAEO
{
public:
    RecordingAEO(Journal &log, std::string name, Turnstile *turnstile = nullptr)
        : _log(log), _name(std::move(name)), _turnstile(turnstile)
    {}
    ~RecordingAEO() override { _log.add("~" + _name); }

    void performNotify(unsigned int events) override
    {
        if (_turnstile)
            _turnstile->pass();
        _log.add(_name + " " + std::to_string(events));
    }

private:
    Journal &_log;
    std::string _name;
    Turnstile *_turnstile;
};

TEST_F(DevMDStdPropertyTest, HasNoObserverAtFirst)
{
    _gain->notify(1);
}

TEST_F(DevMDStdPropertyTest, NotifiesItsObserverUntilItIsReplaced)
{
    _gain->setObserverAEO(ObjPtr<DevMDPropertyAEO>(new RecordingAEO(_log, "first")));
    _gain->notify(5);
    _gain->setObserverAEO(ObjPtr<DevMDPropertyAEO>(new RecordingAEO(_log, "second")));
    _gain->notify(6);
    _gain->setObserverAEO(nullptr);
    _gain->notify(7);
    EXPECT_EQ(_log.getLines(), (Lines{"first 5", "~first", "second 6", "~second"}));
}

TEST_F(DevMDStdPropertyTest, DestroysItsObserverWithItself)
{
    _gain->setObserverAEO(ObjPtr<DevMDPropertyAEO>(new RecordingAEO(_log, "observer")));
    _gain = nullptr;
    EXPECT_EQ(_log.getLines(), Lines{"~observer"});
}

TEST_F(DevMDStdPropertyTest, AChangeIsNotifiedOnceUntilTheValueIsRead)
{
    _gain->changed(); // there is no observer
    _gain->setObserverAEO(ObjPtr<DevMDPropertyAEO>(new RecordingAEO(_log, "told")));
    _gain->changed();
    _gain->changed();
    EXPECT_EQ(_log.getLines(), Lines{"told 4294967295"});
    {
        Server server(*_fifo, 1);
        int value = 0;
        _gain->get(value);
    }
    EXPECT_EQ(_log.getLines(), Lines{"told 4294967295"});
    _gain->changed();
    _gain->changed();
    EXPECT_EQ(_log.getLines(), (Lines{"told 4294967295", "told 4294967295"}));
}

TEST_F(DevMDStdPropertyTest, AGetWithoutAValueReadsAChangeAsAnyOther)
{
    _gain->setObserverAEO(ObjPtr<DevMDPropertyAEO>(new RecordingAEO(_log, "told")));
    _gain->changed();
    {
        Server server(*_fifo, 2);
        _gain->set(-1);
        int value = 0;
        EXPECT_THROW(_gain->get(value), DevPrtclEx::ExMDStdPropertyGet);
    }
    _gain->changed();
    _gain->changed();
    EXPECT_EQ(_log.getLines(), (Lines{"told 4294967295", "told 4294967295"}));
}

TEST_F(DevMDStdPropertyTest, AGetWithAThrowingRequestReadsAChangeAsAnyOther)
{
    auto const gain = makeProperty<int>("gain", "Amplification", _fifo,
                                        [](int &) { throw std::runtime_error("no gain"); });
    gain->setObserverAEO(ObjPtr<DevMDPropertyAEO>(new RecordingAEO(_log, "told")));
    gain->changed();
    std::thread device([this] {
        ObjPtr<DevANO> ano(_fifo->consume().release());
        EXPECT_THROW(ano->performExecute(), std::runtime_error);
    });
    int value = 0;
    EXPECT_THROW(gain->get(value), DevPrtclEx::ExMDStdPropertyGet);
    device.join();
    gain->changed();
    gain->changed();
    EXPECT_EQ(_log.getLines(), (Lines{"told 4294967295", "told 4294967295"}));
}

TEST_F(DevMDStdPropertyTest, ANewObserverHasNothingUnread)
{
    _gain->setObserverAEO(ObjPtr<DevMDPropertyAEO>(new RecordingAEO(_log, "first")));
    _gain->changed();
    _gain->setObserverAEO(ObjPtr<DevMDPropertyAEO>(new RecordingAEO(_log, "second")));
    _gain->changed();
    _gain->changed();
    EXPECT_EQ(_log.getLines(), (Lines{"first 4294967295", "~first", "second 4294967295"}));
}

/// Observer whose first notification throws.
struct Failing : DevMDPropertyAEO
{
    explicit Failing(int &n) : nbCalls(n) {}
    void performNotify(unsigned int) override
    {
        if (++nbCalls == 1)
            throw std::runtime_error("full");
    }
    int &nbCalls;
};

TEST_F(DevMDStdPropertyTest, AChangeThatCouldNotBeNotifiedIsNotifiedAgain)
{
    int nbCalls = 0;
    _gain->setObserverAEO(makeObj<Failing>(nbCalls));
    EXPECT_THROW(_gain->changed(), std::runtime_error);
    _gain->changed();
    _gain->changed();
    EXPECT_EQ(nbCalls, 2);
}

TEST_F(DevMDStdPropertyTest, EveryEventOfItsOwnIsNotified)
{
    _gain->setObserverAEO(ObjPtr<DevMDPropertyAEO>(new RecordingAEO(_log, "told")));
    _gain->changed();
    _gain->notify(1);
    _gain->notify(1);
    EXPECT_EQ(_log.getLines(), (Lines{"told 4294967295", "told 1", "told 1"}));
}

TEST_F(DevMDStdPropertyTest, AReadingShowsEachNewValueAndCannotBeSet)
{
    auto const position = makeShd<DevMDStdReading<double>>("position", "In seconds", _fifo, 0.5);
    position->setObserverAEO(ObjPtr<DevMDPropertyAEO>(new RecordingAEO(_log, "told")));
    EXPECT_EQ(position->getAttributes(), DevMDPropertyAny::READABLE);
    EXPECT_EQ(position->getDescription(), "In seconds");
    EXPECT_THROW(position->set(1), DevPrtclEx::ExMDPropertyIllegalOp);
    position->show(0.5); // the value has not changed
    EXPECT_EQ(_log.getLines(), Lines{});
    position->show(1);
    position->show(2);
    EXPECT_EQ(_log.getLines(), Lines{"told 4294967295"});
    double value = 0;
    {
        Server server(*_fifo, 1);
        position->get(value);
    }
    EXPECT_EQ(value, 2);
    position->show(3);
    EXPECT_EQ(_log.getLines().size(), 2u);
}

TEST_F(DevMDStdPropertyTest, AReadingThatCouldNotBeNotifiedCanBeShownAgain)
{
    auto const position = makeShd<DevMDStdReading<double>>("position", "In seconds", _fifo, 0.5);
    int nbCalls = 0;
    position->setObserverAEO(makeObj<Failing>(nbCalls));
    EXPECT_THROW(position->show(1), std::runtime_error);
    position->show(1);
    EXPECT_EQ(nbCalls, 2);
    double value = 0;
    Server server(*_fifo, 1);
    position->get(value);
    EXPECT_EQ(value, 1);
}

TEST_F(DevMDStdPropertyTest, MadeFromFunctionsItCanBeSetIfThereIsASetter)
{
    int held = 3;
    auto const read = makeProperty<int>("read", "r", _fifo, [&](int &value) { value = held; });
    auto const written = makeProperty<int>(
        "written", "b", _fifo, [&](int &value) { value = held; }, [&](int value) { held = value; });
    EXPECT_EQ(read->getName(), "read");
    EXPECT_EQ(read->getDescription(), "r");
    EXPECT_EQ(read->getAttributes(), 1u);
    EXPECT_EQ(written->getAttributes(), 3u);
    written->set(4);
    drain(*_fifo);
    Server server(*_fifo, 1);
    int value = 0;
    read->get(value);
    EXPECT_EQ(value, 4);
}

TEST_F(DevMDStdPropertyTest, ASetWithoutASetterThrowsInTheSet)
{
    auto const gain =
        makeShd<Gain>("gain", "", both, makePropertyANOFactory<int>([](int &) {}), _fifo);
    EXPECT_THROW(gain->set(1), RCEx::ExNullPtr);
    DevANOQueueEntry entry;
    EXPECT_FALSE(_fifo->tryConsume(entry));
}

TEST_F(DevMDStdPropertyTest, AnObserverThatIsBeingNotifiedMayBeReplacedAndEndsAfterwards)
{
    Turnstile turnstile;
    _gain->setObserverAEO(ObjPtr<DevMDPropertyAEO>(new RecordingAEO(_log, "slow", &turnstile)));
    std::thread device([&] { _gain->notify(1); });
    turnstile.waitForArrival();
    _gain->setObserverAEO(ObjPtr<DevMDPropertyAEO>(new RecordingAEO(_log, "next")));
    EXPECT_EQ(_log.getLines(), Lines{}); // the former observer is in use, and was not destroyed
    turnstile.open();
    device.join();
    EXPECT_EQ(_log.getLines(), (Lines{"slow 1", "~slow"}));
    _gain->notify(2);
    EXPECT_EQ(_log.getLines().back(), "next 2");
}

TEST_F(DevMDStdPropertyTest, AnObserverMayKeepItsPropertyAlive)
{
    struct Keeper : DevMDPropertyAEO
    {
        explicit Keeper(RCShdPtr<DevMDPropertyAny> const &property) : kept(property) {}
        void performNotify(unsigned int) override {}
        RCShdPtr<DevMDPropertyAny> kept;
    };
    _gain->setObserverAEO(ObjPtr<DevMDPropertyAEO>(new Keeper(_gain)));
    EXPECT_FALSE(_gain.isUnique());
    DevMDPropertyAny * const last = _gain.get();
    _gain = nullptr;
    last->setObserverAEO(nullptr); // destroys the property, too, without its lock
}

TEST_F(DevMDStdPropertyTest, ObserversComeAndGoWhileTheDeviceNotifies)
{
    struct CountingAEO : DevMDPropertyAEO
    {
        explicit CountingAEO(std::atomic<int> &living) : _living(living) { ++_living; }
        ~CountingAEO() override { --_living; }
        void performNotify(unsigned int) override { EXPECT_GT(_living, 0); }
        std::atomic<int> &_living;
    };
    std::atomic<int> living{0};
    std::atomic<bool> ended{false};
    std::thread device([&] {
        while (!ended)
            _gain->notify(1);
    });
    for (int i = 0; i < 2000; ++i) {
        _gain->setObserverAEO(ObjPtr<DevMDPropertyAEO>(new CountingAEO(living)));
        if (i % 2)
            _gain->setObserverAEO(nullptr);
    }
    ended = true;
    device.join();
    _gain->setObserverAEO(nullptr);
    EXPECT_EQ(living, 0);
}

TEST_F(DevMDStdPropertyTest, AValueIsCopiedOnceOnItsWayToTheFactory)
{
    struct Counting : DevMDStdPropertyANOFactory<Vector<int>>
    {
        explicit Counting(std::function<void()> taken) : _taken(std::move(taken)) {}
        ObjPtrRet<DevMDStdANO> createSetANO(LiUuid const &, Vector<int> value) override
        {
            _taken();
            EXPECT_EQ(value.size(), 1000u);
            return makeANO([] {});
        }
        ObjPtrRet<DevMDStdANO> createGetANO(LiUuid const &, Vector<int> &, bool &) override
        {
            return nullptr;
        }
        std::function<void()> _taken;
    };
    std::size_t nbAllocations = 0;
    std::optional<AllocationCount> count;
    auto const table = makeShd<DevMDStdProperty<Vector<int>>>(
        "table", "", both, makeObj<Counting>([&] { nbAllocations = count->get(); }), _fifo);
    Vector<int> const value(1000, 7);
    count.emplace();
    table->set(value);
    EXPECT_EQ(nbAllocations, 1u);
    drain(*_fifo);
}

} // namespace
} // namespace ZvTest
