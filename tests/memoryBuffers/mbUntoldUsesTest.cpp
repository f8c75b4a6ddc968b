// Guards that lock and unlock a buffer without its mutex.

#include "recording.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <optional>
#include <random>

namespace ZvTest {
namespace {

constexpr int SIZE = 100;
MbAlignment const ANYWHERE(0, 0, 0);

using Control = std::shared_ptr<RecordingProtocol::Control>;

/// Room for three buffers.
template <class Manager, class... Arguments>
RCShdPtr<Manager> newManager(Arguments &...arguments)
{
    return RCShdPtr<Manager>(new Manager("m", 3 * SIZE, arguments...));
}

ObjPtr<MbUnloadStrategy> newStrategy()
{
    return ObjPtr<MbUnloadStrategy>(new MbUnloadLRU(0));
}

MbBuffer newBuffer(RCShdPtr<MbManager> const &manager, Control const &control)
{
    return MbBufferSimpleFactory(initialState(), manager)
        .create("b", makeObj<RecordingProtocol>(control), SIZE, ANYWHERE);
}

void use(MbBuffer const &buffer)
{
    MbBufferRdGuardImp const guard(buffer);
}

/// A manager that counts what it is told. It must be told everything at once.
class CountingManager : public MbHeapManager
{
public:
    using MbHeapManager::MbHeapManager;

    void bufferNotUnloadable(MbBufferImp *buffer) override
    {
        ++nbCalls;
        MbHeapManager::bufferNotUnloadable(buffer);
    }
    void bufferUnloadable(MbBufferImp *buffer) override
    {
        ++nbCalls;
        MbHeapManager::bufferUnloadable(buffer);
    }

    std::atomic<int> nbCalls = 0;
};

/// A strategy that counts what it is told.
class CountingStrategy : public MbUnloadLRU
{
public:
    explicit CountingStrategy(int &nbCalls) : MbUnloadLRU(0), _nbCalls(nbCalls) {}

    void insertBuffer(MbBufferImp *buffer) override
    {
        ++_nbCalls;
        MbUnloadLRU::insertBuffer(buffer);
    }
    void removeBuffer(MbBufferImp *buffer) override
    {
        ++_nbCalls;
        MbUnloadLRU::removeBuffer(buffer);
    }

private:
    int &_nbCalls;
};

/// A manager that passes everything on to another one, and counts.
class PassingManager : public MbManager
{
public:
    explicit PassingManager(RCShdPtr<MbManager> const &other) : _other(other) {}

    LiString const &getName() const override { return _other->getName(); }
    void allocateRegion(MbBufferImp *buffer) override { _other->allocateRegion(buffer); }
    void deallocateRegion(MbBufferImp *buffer) override { _other->deallocateRegion(buffer); }
    void bufferNotUnloadable(MbBufferImp *buffer) override
    {
        ++nbCalls;
        _other->bufferNotUnloadable(buffer);
    }
    void bufferUnloadable(MbBufferImp *buffer) override
    {
        ++nbCalls;
        _other->bufferUnloadable(buffer);
    }
    void dump(std::ostream &stream) const override { _other->dump(stream); }

    int nbCalls = 0;

private:
    RCShdPtr<MbManager> _other;
};

/// Uses a buffer three times. The load itself tells the manager once, and each later use twice.
void useThreeTimes(RCShdPtr<MbManager> const &manager)
{
    MbBuffer const buffer = newBuffer(manager, std::make_shared<RecordingProtocol::Control>());
    for (int i = 0; i < 3; ++i)
        use(buffer);
    EXPECT_FALSE(MbBufferProbe(buffer).isOpen());
}

TEST(MbUntoldUses, DerivedManagerIsToldEachUse)
{
    ObjPtr<MbUnloadStrategy> strategy = newStrategy();
    auto const manager = newManager<CountingManager>(strategy);
    useThreeTimes(manager);
    EXPECT_EQ(manager->nbCalls, 6);
}

TEST(MbUntoldUses, DerivedStrategyIsToldEachUse)
{
    int nbCalls = 0;
    ObjPtr<MbUnloadStrategy> strategy(new CountingStrategy(nbCalls));
    useThreeTimes(newManager<MbHeapManager>(strategy));
    EXPECT_EQ(nbCalls, 6);
}

TEST(MbUntoldUses, ManagerThatPassesCallsOnIsToldEachUse)
{
    ObjPtr<MbUnloadStrategy> strategy = newStrategy();
    RCShdPtr<PassingManager> const manager(new PassingManager(newManager<MbHeapManager>(strategy)));
    useThreeTimes(manager);
    EXPECT_EQ(manager->nbCalls, 6);
}

TEST(MbUntoldUses, TracingMachineReceivesEachEvent)
{
    ObjPtr<MbUnloadStrategy> strategy = newStrategy();
    MbBuffer const buffer =
        MbBufferSimpleFactory(initialState(true), newManager<MbHeapManager>(strategy))
            .create("b", SIZE, ANYWHERE);
    for (int i = 0; i < 3; ++i)
        use(buffer);
    EXPECT_FALSE(MbBufferProbe(buffer).isOpen());
}

// ---- buffers of a manager of the library

class OpenBuffer : public testing::Test
{
protected:
    OpenBuffer()
    {
        use(buffer);
        control->log.take();
    }
    ~OpenBuffer() noexcept override {}

    RCShdPtr<MbHeapManager> const manager = [] {
        ObjPtr<MbUnloadStrategy> strategy = newStrategy();
        return newManager<MbHeapManager>(strategy);
    }();
    Control const control = std::make_shared<RecordingProtocol::Control>();
    MbBuffer buffer = newBuffer(manager, control);
};

TEST_F(OpenBuffer, IsLockedWithoutItsMutex)
{
    LkGuard<LkMutex const> const guard(MbBufferProbe(buffer).mutex());
    std::thread([&] {
        MbBufferRdGuardImp const one(buffer);
        MbBufferRdGuardImp const other(buffer);
    }).join();
    std::thread([&] {
        MbBufferWrGuardImp const one(buffer);
        MbBufferWrGuardImp const other(one);
    }).join();
    EXPECT_EQ(control->log.take(), (Lines{"unlocked", "unlocked"}));
    EXPECT_TRUE(buffer.isLoaded());
}

TEST_F(OpenBuffer, CountsItsReferences)
{
    EXPECT_TRUE(buffer.isUniqueOwner());
    {
        MbBufferRdGuardImp const guard(buffer);
        EXPECT_FALSE(buffer.isUniqueOwner());
        MbBuffer const copy = guard.getBuffer();
        EXPECT_FALSE(copy.isUniqueOwner());
    }
    EXPECT_TRUE(buffer.isUniqueOwner());
}

TEST_F(OpenBuffer, EndsWithItsLastGuard)
{
    {
        MbBufferRdGuardImp const guard(buffer);
        buffer = MbBuffer();
        EXPECT_EQ(control->log.take(), Lines{});
    }
    EXPECT_EQ(control->log.take(), (Lines{"unlocked", "free", "~protocol"}));
    EXPECT_EQ(manager->getAllocated(), 0u);
}

TEST_F(OpenBuffer, IsNotLoadedWhileItIsUnlocked)
{
    bool isLoaded = true;
    std::string state;
    control->hooks["unlocked"] = [&] {
        isLoaded = buffer.isLoaded();
        state = stateOf(buffer);
    };
    use(buffer);
    EXPECT_FALSE(isLoaded);
    EXPECT_EQ(state, "BeingUnlocked");
    EXPECT_EQ(stateOf(buffer), "Loaded");
}

TEST_F(OpenBuffer, RefusesToBeLockedInItsOwnUnlocked)
{
    control->hooks["unlocked"] = [&] { use(buffer); };
    EXPECT_THROW(use(buffer), AssertionFailed);
    control->hooks.clear();
    EXPECT_EQ(stateOf(buffer), "RdLocked");
    EXPECT_EQ(MbBufferProbe(buffer).lockCount(), 0);
    use(buffer);
    EXPECT_EQ(stateOf(buffer), "Loaded");
}

TEST_F(OpenBuffer, StaysLockedIfItsUnlockedThrows)
{
    control->hooks["unlocked"] = [] { throw Failure("unlocked"); };
    EXPECT_THROW({ MbBufferWrGuardImp const guard(buffer); }, Failure);
    control->hooks.clear();
    EXPECT_EQ(stateOf(buffer), "WrLocked");
    EXPECT_TRUE(buffer.isUniqueOwner());
    // It cannot be evicted.
    MbBuffer const b = newBuffer(manager, control);
    MbBuffer const c = newBuffer(manager, control);
    MbBuffer const d = newBuffer(manager, control);
    for (MbBuffer const &other : {b, c, d})
        use(other);
    EXPECT_TRUE(buffer.isLoaded());
    EXPECT_FALSE(b.isLoaded());
    buffer.free();
    MbBufferProbe probe(buffer);
    LkGuard<LkMutex const> const guard(probe.mutex());
    probe.setLockCount(1);
    probe.imp.deliver(MbEvent::UNLOCK);
}

TEST_F(OpenBuffer, IsFreedAfterItsUnlockedIfThatAsksForIt)
{
    control->hooks["unlocked"] = [&] { buffer.free(); };
    use(buffer);
    EXPECT_EQ(control->log.take(), (Lines{"unlocked", "free"}));
    EXPECT_EQ(stateOf(buffer), "Freed");
}

TEST_F(OpenBuffer, IsWrittenBackWhenItsLastGuardIsGone)
{
    {
        MbBufferRdGuardImp const guard(buffer);
        buffer.asyncSync();
        EXPECT_EQ(control->log.take(), Lines{});
    }
    EXPECT_EQ(control->log.take(), (Lines{"unlocked", "asyncSync"}));
    control->handle->performSucceeded();
    EXPECT_EQ(stateOf(buffer), "Synched");
}

TEST_F(OpenBuffer, WriterWaitsForReaders)
{
    std::optional<MbBufferRdGuardImp> first(std::in_place, buffer);
    std::optional<MbBufferRdGuardImp> second(std::in_place, buffer);
    std::thread writer([&] { MbBufferWrGuardImp const guard(buffer); });
    waitForWaiters(buffer, 1);
    first.reset();
    EXPECT_EQ(control->log.take(), Lines{});
    second.reset();
    writer.join();
    EXPECT_EQ(control->log.take(), (Lines{"unlocked", "unlocked"}));
}

TEST_F(OpenBuffer, LockedBufferIsNotEvicted)
{
    MbBuffer const b = newBuffer(manager, control);
    MbBuffer const c = newBuffer(manager, control);
    MbBuffer const d = newBuffer(manager, control);
    MbBuffer const e = newBuffer(manager, control);
    use(b);
    use(c);
    {
        MbBufferRdGuardImp const guard(buffer);
        use(d);
        EXPECT_FALSE(b.isLoaded());
        use(e);
        EXPECT_FALSE(c.isLoaded());
    }
    // Its end was told at once, because the strategy knew that it was locked.
    use(b);
    EXPECT_FALSE(d.isLoaded());
    EXPECT_TRUE(buffer.isLoaded());
}

TEST_F(OpenBuffer, UnlockEndsAWaitForMemory)
{
    MbBuffer const b = newBuffer(manager, control);
    MbBuffer const c = newBuffer(manager, control);
    MbBuffer const d = newBuffer(manager, control);
    use(b);
    use(c);
    std::optional<MbBufferRdGuardImp> first(std::in_place, buffer);
    MbBufferRdGuardImp const second(b);
    MbBufferRdGuardImp const third(c);
    std::thread loader([&] { use(d); });
    waitForWaiters(*manager, 1);
    first.reset();
    loader.join();
    EXPECT_FALSE(buffer.isLoaded());
}

// ---- loads and evictions without the mutex

/// A buffer that has been evicted, and others that take all of the memory.
class EvictedBuffer : public OpenBuffer
{
protected:
    EvictedBuffer()
    {
        for (MbBuffer const &other : others)
            use(other);
        EXPECT_EQ(control->log.take(), Lines{"unload"});
        otherControl->log.take();
    }
    ~EvictedBuffer() noexcept override {}

    Control const otherControl = std::make_shared<RecordingProtocol::Control>();
    std::vector<MbBuffer> others{newBuffer(manager, otherControl), newBuffer(manager, otherControl),
                                 newBuffer(manager, otherControl)};
};

TEST_F(EvictedBuffer, IsLoadedAndItsVictimIsEvictedWithoutAMutex)
{
    LkGuard<LkMutex const> const guard(MbBufferProbe(buffer).mutex());
    MbBufferProbe const victim(others[0]);
    LkGuard<LkMutex const> const victimGuard(victim.mutex());
    std::thread([&] { use(buffer); }).join();
    EXPECT_EQ(control->log.take(), (Lines{"reload", "unlocked"}));
    EXPECT_EQ(otherControl->log.take(), Lines{"unload"});
    EXPECT_FALSE(others[0].isLoaded());
    std::thread([&] { MbBufferWrGuardImp const writer{others[0]}; }).join();
    EXPECT_EQ(otherControl->log.take(), (Lines{"unload", "reload", "markDirty", "unlocked"}));
    EXPECT_FALSE(others[1].isLoaded());
}

TEST_F(EvictedBuffer, ShowsItsStatesMeanwhile)
{
    std::string victim;
    std::string loading;
    std::string locked;
    otherControl->hooks["unload"] = [&] {
        EXPECT_FALSE(others[0].isLoaded());
        victim = stateOf(others[0]);
    };
    control->hooks["reload"] = [&] {
        EXPECT_FALSE(buffer.isLoaded());
        loading = stateOf(buffer);
    };
    {
        MbBufferRdGuardImp const guard(buffer);
        EXPECT_TRUE(buffer.isLoaded());
        locked = stateOf(buffer);
    }
    EXPECT_EQ(victim, "BeingUnloaded");
    EXPECT_EQ(loading, "BeingRdReloaded");
    EXPECT_EQ(locked, "RdLocked");
    EXPECT_EQ(stateOf(others[0]), "Unloaded");
    EXPECT_EQ(stateOf(buffer), "Loaded");
}

TEST_F(EvictedBuffer, StaysUnloadedIfItsReloadThrows)
{
    control->hooks["reload"] = [] { throw Failure("reload"); };
    EXPECT_THROW(use(buffer), Failure);
    EXPECT_THROW({ MbBufferWrGuardImp const guard(buffer); }, Failure);
    EXPECT_EQ(stateOf(buffer), "Unloaded");
    EXPECT_TRUE(buffer.isUniqueOwner());
    EXPECT_EQ(manager->getAllocated(), 2u * SIZE);
    control->hooks.clear();
    control->log.take();
    use(buffer);
    EXPECT_EQ(control->log.take(), (Lines{"reload", "unlocked"}));
    EXPECT_EQ(manager->getAllocated(), 3u * SIZE);
}

TEST_F(EvictedBuffer, StaysUnloadedIfItsVictimFails)
{
    otherControl->hooks["unload"] = [] { throw Failure("unload"); };
    EXPECT_THROW(use(buffer), Failure);
    EXPECT_EQ(stateOf(buffer), "Unloaded");
    EXPECT_TRUE(buffer.isUniqueOwner());
    EXPECT_EQ(control->log.take(), Lines{});
    EXPECT_EQ(stateOf(others[0]), "Loaded");
    EXPECT_EQ(MbBufferProbe(others[0]).keepAlive(), 1);
    EXPECT_EQ(manager->getAllocated(), 3u * SIZE);
    // The victim counts as used.
    otherControl->hooks.clear();
    use(buffer);
    EXPECT_TRUE(others[0].isLoaded());
    EXPECT_FALSE(others[1].isLoaded());
}

TEST_F(EvictedBuffer, IsFreedAfterItsLoadIfThatAsksForIt)
{
    control->hooks["reload"] = [&] { buffer.free(); };
    {
        MbBufferRdGuardImp const guard(buffer);
        EXPECT_EQ(stateOf(buffer), "RdLockedFreed");
    }
    EXPECT_EQ(control->log.take(), (Lines{"reload", "free"}));
    EXPECT_EQ(stateOf(buffer), "Freed");
    EXPECT_TRUE(buffer.isUniqueOwner());
}

TEST_F(EvictedBuffer, IsLoadedOnceForTwoThreads)
{
    std::thread second;
    control->hooks["reload"] = [&] {
        second = std::thread([&] { use(buffer); });
        waitForWaiters(buffer, 1);
    };
    use(buffer);
    second.join();
    Lines const calls = control->log.take();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "reload"), 1);
    EXPECT_EQ(stateOf(buffer), "Loaded");
    EXPECT_TRUE(buffer.isUniqueOwner());
}

TEST_F(EvictedBuffer, VictimIsLoadedAgainForAThreadThatWantsItMeanwhile)
{
    std::thread second;
    std::atomic<bool> isFirst = true;
    otherControl->hooks["unload"] = [&] {
        if (!isFirst.exchange(false))
            return;
        second = std::thread([&] { use(others[0]); });
        waitForWaiters(others[0], 1);
    };
    use(buffer);
    second.join();
    EXPECT_TRUE(others[0].isLoaded());
    EXPECT_EQ(stateOf(buffer), "Loaded");
    EXPECT_EQ(manager->getAllocated(), 3u * SIZE);
}

TEST_F(EvictedBuffer, FailsToBeLoadedAndWakesTheThreadThatWaits)
{
    std::thread second;
    std::atomic<bool> isFirst = true;
    control->hooks["reload"] = [&] {
        if (!isFirst.exchange(false))
            return;
        second = std::thread([&] { use(buffer); });
        waitForWaiters(buffer, 1);
        throw Failure("reload");
    };
    EXPECT_THROW(use(buffer), Failure);
    second.join();
    EXPECT_EQ(stateOf(buffer), "Loaded");
    EXPECT_TRUE(buffer.isUniqueOwner());
}

// ---- the order of evictions

/// Buffers and guards that a random walk changes. The journal has all calls of the protocols.
class UsedBuffers
{
public:
    UsedBuffers(RCShdPtr<MbManager> const &manager, unsigned seed)
        : _manager(manager), _random(seed)
    {
        for (int i = 0; i < BUFFERS; ++i)
            renew(i);
    }

    Lines run(int nbSteps)
    {
        for (int i = 0; i < nbSteps; ++i)
            step();
        for (std::size_t place = 0; place < std::size(_guards); ++place)
            release(place);
        _buffers.clear();
        return _journal;
    }

private:
    static constexpr int BUFFERS = 7;

    unsigned pick(unsigned choices) { return static_cast<unsigned>(_random()) % choices; }

    void renew(std::size_t number)
    {
        auto control = std::make_shared<RecordingProtocol::Control>();
        control->hook = [this, number](std::string const &call) {
            _journal.push_back(std::to_string(number) + ' ' + call);
            if (call == "unlocked" && pick(10) == 0)
                pick(2) == 0 ? _buffers[number].free() : _buffers[number].asyncSync();
        };
        if (number == _buffers.size())
            _buffers.emplace_back();
        _buffers[number] = MbBuffer();
        _buffers[number] = newBuffer(_manager, control);
        _controls[number] = control;
    }

    void step()
    {
        std::size_t const number = pick(BUFFERS);
        std::size_t const place = pick(std::size(_guards));
        MbBuffer &buffer = _buffers[number];
        switch (pick(16)) {
        case 0:
            buffer.free();
            break;
        case 1:
            buffer.prefetch();
            complete(number);
            break;
        case 2:
            if (!isLocked(number))
                buffer.sync();
            break;
        case 3:
            if (!isLocked(number))
                renew(number);
            break;
        case 4:
        case 5:
            // There is room for one more buffer than guards, so that each load succeeds.
            release(place);
            _guards[place].emplace(buffer);
            _held[place] = number;
            break;
        case 6:
            if (!isLocked(number))
                MbBufferWrGuardImp const guard(buffer);
            break;
        default:
            use(buffer);
        }
        complete(number);
    }

    void release(std::size_t place)
    {
        _guards[place].reset();
        complete(_held[place]);
    }
    bool isLocked(std::size_t number) const
    {
        for (std::size_t place = 0; place < std::size(_guards); ++place)
            if (_guards[place] && _held[place] == number)
                return true;
        return false;
    }

    /// Completes the asynchronous operation that is under way, if there is one.
    void complete(std::size_t number)
    {
        if (LkAsyncHandle * const handle = std::exchange(_controls[number]->handle, nullptr))
            handle->performSucceeded();
    }

    RCShdPtr<MbManager> _manager;
    std::mt19937 _random;
    Lines _journal;
    Control _controls[BUFFERS];
    std::vector<MbBuffer> _buffers;
    std::optional<MbBufferRdGuardImp> _guards[2];
    std::size_t _held[2] = {};
};

TEST(MbUntoldUses, BuffersAreEvictedInTheOrderOfAManagerThatIsToldEachUse)
{
    for (unsigned seed = 1; seed <= 200; ++seed) {
        ObjPtr<MbUnloadStrategy> strategy = newStrategy();
        ObjPtr<MbUnloadStrategy> toldStrategy = newStrategy();
        Lines const calls = UsedBuffers(newManager<MbHeapManager>(strategy), seed).run(200);
        Lines const told = UsedBuffers(newManager<CountingManager>(toldStrategy), seed).run(200);
        ASSERT_EQ(calls, told) << "seed " << seed;
    }
}

/// Threads use buffers, while others need their memory. No use may be lost, and no buffer may be
/// evicted while it is used.
TEST(MbUntoldUses, ThreadsUseAndEvictBuffers)
{
    ObjPtr<MbUnloadStrategy> strategy = newStrategy();
    auto const manager = newManager<MbHeapManager>(strategy);
    class Sum : public MbProtocol
    {
    public:
        explicit Sum(int &sum) : _sum(sum) {}
        void reload(void *memory, std::uint64_t) override { *static_cast<int *>(memory) = _sum; }
        void unload(void *memory, std::uint64_t) override { _sum = *static_cast<int *>(memory); }
        void free(void *memory, std::uint64_t size) override { unload(memory, size); }

    private:
        int &_sum;
    };
    constexpr int BUFFERS = 4;
    constexpr int THREADS = 3;
    constexpr int TURNS = 3000;
    int sums[BUFFERS] = {};
    {
        MbBufferSimpleFactory factory(initialState(), manager);
        std::vector<MbBuffer> buffers;
        for (int &sum : sums)
            buffers.push_back(factory.create("b", makeObj<Sum>(sum), SIZE, ANYWHERE));
        std::vector<std::thread> threads;
        for (unsigned number = 0; number < THREADS; ++number)
            threads.emplace_back([&, number] {
                std::mt19937 random(number);
                std::vector<MbBuffer> const mine(buffers);
                for (int i = 0; i < TURNS; ++i) {
                    // Most uses are of two buffers, so that most of them need no load.
                    MbBuffer const &buffer = mine[random() % (random() % 8 == 0 ? BUFFERS : 2)];
                    {
                        MbBufferRdGuardImp const guard(buffer);
                        EXPECT_GE(*static_cast<int const *>(guard.getMemory()), 0);
                    }
                    MbBufferWrGuardImp const guard(buffer);
                    ++*static_cast<int *>(guard.getMemory());
                }
            });
        for (std::thread &thread : threads)
            thread.join();
    }
    EXPECT_EQ(sums[0] + sums[1] + sums[2] + sums[3], THREADS * TURNS);
    EXPECT_EQ(manager->getAllocated(), 0u);
}

} // namespace
} // namespace ZvTest
