// Managers: budgets, eviction and waiting, one step at a time.

#include "recording.h"
#include "resmgt/dynamicAllocation.h"
#include "testing/allocations.h"
#include "testing/failures.h"
#include "zvbase/failures.h"
#include "zvbase/lgLog.h"
#include "zvbase/lgTrace.h"
#include "zvbase/trace.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <sstream>

namespace ZvTest {
namespace {

using Control = RecordingProtocol::Control;

constexpr int UNIT = 100;
MbAlignment const ANYWHERE(0, 0, 0);

std::uint64_t lengthOf(MbBuffer const &buffer)
{
    MbBufferImp const &imp = *buffer.getImp();
    return imp.getRegionEnd() - imp.getRegionStart();
}

/// A prefetch fails, and the call that reports the failure throws several times.
void failToTell(MbBuffer &buffer, Control &control, int times)
{
    control.hooks["asyncLoadFailed"] = [] { throw std::runtime_error("not now"); };
    buffer.prefetch();
    for (int i = 0; i < times; ++i)
        EXPECT_THROW(control.handle->performFailed(), std::runtime_error);
    control.hooks.clear();
    control.handle->performFailed();
    EXPECT_EQ(stateOf(buffer), "Freed");
}

class HeapManager : public testing::Test
{
protected:
    ~HeapManager() noexcept override {}

    MbBuffer make(char const *name, int size = UNIT)
    {
        return factory.create(name, size, ANYWHERE);
    }
    MbBuffer make(char const *name, std::shared_ptr<Control> const &control, int size = UNIT)
    {
        return factory.create(name, makeObj<RecordingProtocol>(control), size, ANYWHERE);
    }
    static void load(MbBuffer const &buffer) { MbBufferRdGuardImp const guard(buffer); }

    RCShdPtr<MbHeapManager> manager{new MbHeapManager("heap", 4 * UNIT, makeObj<MbUnloadLRU>(0))};
    MbBufferSimpleFactory factory{initialState(), manager};
};

TEST_F(HeapManager, HasANameABudgetAndADump)
{
    EXPECT_STREQ(manager->getName().getChars(), "heap");
    EXPECT_EQ(manager->getMaximum(), 4u * UNIT);
    EXPECT_EQ(manager->getAllocated(), 0u);
    load(make("a"));
    std::ostringstream text;
    manager->dump(text);
    EXPECT_EQ(text.str(), "Name = heap\nUnload strategy = MbUnloadLRU");
}

TEST_F(HeapManager, TakesItsStrategyOver)
{
    ObjPtr<MbUnloadStrategy> strategy(new MbUnloadLRU(0));
    MbHeapManager const other("other", 1, strategy);
    EXPECT_TRUE(strategy.isNull());
}

TEST_F(HeapManager, UnloadsAllOthersForABufferAsLargeAsTheBudget)
{
    std::vector<MbBuffer> others{make("a"), make("b"), make("c")};
    for (MbBuffer const &other : others)
        load(other);
    MbBuffer const large = factory.create("large", 4 * UNIT - 63, MbAlignment(63, 0, 0));
    load(large);
    EXPECT_EQ(manager->getAllocated(), 4u * UNIT);
    EXPECT_TRUE(large.isLoaded());
    for (MbBuffer const &other : others)
        EXPECT_EQ(stateOf(other), "Unloaded");
}

TEST_F(HeapManager, RefusesOneByteMoreThanTheBudgetAtOnceAndUnloadsNothing)
{
    MbBuffer const other = make("a");
    load(other);
    MbBuffer const large = factory.create("large", 4 * UNIT - 62, MbAlignment(63, 0, 0));
    EXPECT_EQ(reasonOf<MbEx::ExNotEnoughMemory>([&] { load(large); }),
              "Not enough memory: Buffer size larger then maximum allocated bytes..");
    EXPECT_EQ(stateOf(large), "Freed");
    EXPECT_TRUE(other.isLoaded());
    EXPECT_EQ(manager->getAllocated(), std::uint64_t{UNIT});

    // With this distance any sum wraps around.
    MbBuffer const wide = factory.create("wide", UNIT, MbAlignment(~std::uint64_t{0}, 0, 0));
    EXPECT_THROW(load(wide), MbEx::ExNotEnoughMemory);
}

TEST_F(HeapManager, ReportsThatThereIsNoHeap)
{
    MbBuffer const buffer = make("a");
    {
        FailingAllocation const failing(0, Allocations::ANSWERING_NULL);
        EXPECT_EQ(reasonOf<MbEx::ExNotEnoughMemory>([&] { load(buffer); }),
                  "Not enough memory: Unable to allocate memory..");
        EXPECT_TRUE(failing.hasFailed());
    }
    EXPECT_EQ(manager->getAllocated(), 0u);
    load(buffer);
    EXPECT_TRUE(buffer.isLoaded());
}

TEST_F(HeapManager, ReportsThatTheMachineHasNotSoMuchMemory)
{
    // On a machine of 32 bits, the distance does not fit a pointer, and its lower half is small.
    std::uint64_t const distance =
        sizeof(void *) > 4 ? std::uint64_t{1} << 62 : (std::uint64_t{1} << 32);
    RCShdPtr<MbHeapManager> const large(
        new MbHeapManager("large", ~std::uint64_t{0}, makeObj<MbUnloadLRU>(0)));
    MbBuffer const buffer = MbBufferSimpleFactory(initialState(), large)
                                .create("a", UNIT, MbAlignment(distance - 1, 0, 0));
    EXPECT_EQ(reasonOf<MbEx::ExNotEnoughMemory>([&] { load(buffer); }),
              "Not enough memory: Unable to allocate memory..");
    EXPECT_EQ(large->getAllocated(), 0u);
}

TEST_F(HeapManager, CountsTheDistanceThatTheAlignmentMayTake)
{
    RCShdPtr<MbHeapManager> const wide(new MbHeapManager("wide", 10000, makeObj<MbUnloadLRU>(0)));
    MbBuffer buffer = MbBufferSimpleFactory(initialState(), wide).create("a", 1000);
    load(buffer);
    EXPECT_EQ(wide->getAllocated(), 1127u);
    EXPECT_EQ(lengthOf(buffer), 1127u);
    buffer.free();
    EXPECT_EQ(wide->getAllocated(), 0u);
}

TEST_F(HeapManager, HasItsBytesBackAfterUnloadFreeAndDestroy)
{
    MbBuffer a = make("a");
    MbBuffer b = make("b");
    MbBuffer c = make("c", 4 * UNIT);
    load(a);
    load(b);
    EXPECT_EQ(manager->getAllocated(), 2u * UNIT);
    a.free();
    EXPECT_EQ(manager->getAllocated(), 1u * UNIT);
    EXPECT_EQ(a.getImp()->getRegionStart(), 0u);
    EXPECT_EQ(a.getImp()->getDataStart(), 0u);
    EXPECT_EQ(a.getImp()->getDataEnd(), 0u);
    EXPECT_EQ(a.getImp()->getRegionEnd(), 0u);
    b = MbBuffer();
    EXPECT_EQ(manager->getAllocated(), 0u);
    load(a);
    load(c);
    EXPECT_EQ(stateOf(a), "Unloaded");
    EXPECT_EQ(manager->getAllocated(), 4u * UNIT);
    c.sync();
    c = MbBuffer();
    EXPECT_EQ(manager->getAllocated(), 0u);
}

TEST_F(HeapManager, GetsItsBytesBackOnceEvenIfAFailureIsReportedTwice)
{
    auto const control = std::make_shared<Control>();
    MbBuffer buffer = make("a", control);
    failToTell(buffer, *control, 2);
    EXPECT_EQ(manager->getAllocated(), 0u);
    MbBuffer const large = make("large", 4 * UNIT);
    load(large);
    EXPECT_TRUE(large.isLoaded());
}

TEST_F(HeapManager, OutlivesItsClientsForTheSakeOfItsBuffers)
{
    MbBuffer const buffer = make("a");
    factory = MbBufferSimpleFactory(initialState(), RCShdPtr<MbManager>());
    manager = RCShdPtr<MbHeapManager>();
    load(buffer);
    EXPECT_TRUE(buffer.isLoaded());
}

TEST_F(HeapManager, AnUnlockWakesAWaiter)
{
    MbBuffer const small = make("small");
    MbBuffer const large = make("large", 4 * UNIT);
    std::optional<MbBufferRdGuardImp> guard(small);
    std::thread loader([&] { load(large); });
    waitForWaiters(*manager, 1);
    guard.reset();
    loader.join();
    EXPECT_EQ(stateOf(small), "Unloaded");
    EXPECT_TRUE(large.isLoaded());
}

TEST_F(HeapManager, AFreeWakesAWaiter)
{
    auto const control = std::make_shared<Control>();
    // An operation is under way, so the buffer cannot be evicted.
    MbBuffer other = make("other", control);
    other.prefetch();
    MbBuffer const large = make("large", 4 * UNIT);
    std::thread loader([&] { load(large); });
    waitForWaiters(*manager, 1);
    control->handle->performFailed();
    loader.join();
    EXPECT_EQ(stateOf(other), "Freed");

    // Freed while it was locked.
    std::optional<MbBufferRdGuardImp> guard(large);
    MbBuffer const small = make("small");
    std::thread second([&] { load(small); });
    waitForWaiters(*manager, 1);
    large.getImp()->receive(MbEvent::FREE);
    guard.reset();
    second.join();
    EXPECT_EQ(stateOf(large), "Freed");
}

TEST_F(HeapManager, TheDestructionOfABufferWakesAWaiter)
{
    std::optional<MbBufferRdGuardImp> guard;
    {
        MbBuffer const temporary = make("temporary", 4 * UNIT);
        guard.emplace(temporary);
    }
    MbBuffer const buffer = make("a");
    std::thread loader([&] { load(buffer); });
    waitForWaiters(*manager, 1);
    guard.reset();
    loader.join();
    EXPECT_TRUE(buffer.isLoaded());
}

TEST_F(HeapManager, AVictimThatFailsFailsTheLoadAndStaysLoaded)
{
    auto const victimControl = std::make_shared<Control>();
    auto const loaderControl = std::make_shared<Control>();
    MbBuffer const victim = make("victim", victimControl, 4 * UNIT);
    MbBuffer const buffer = make("a", loaderControl);
    load(victim);
    victimControl->hooks["unload"] = [] { throw Failure("unload of the victim"); };
    EXPECT_EQ(reasonOf<Failure>([&] { load(buffer); }), "unload of the victim");
    EXPECT_EQ(stateOf(victim), "Loaded");
    EXPECT_EQ(stateOf(buffer), "Freed");
    EXPECT_EQ(manager->getAllocated(), 4u * UNIT);
    EXPECT_EQ(loaderControl->log.take(), Lines{});
    EXPECT_EQ(MbBufferProbe(victim).keepAlive(), 1);
    // The buffer can still be evicted.
    victimControl->hooks.clear();
    load(buffer);
    EXPECT_EQ(stateOf(victim), "Unloaded");
    EXPECT_EQ(manager->getAllocated(), std::uint64_t{UNIT});
}

char const * const REFUSAL = "::WaitForSingleObject( _mutex, INFINITE ) == WAIT_OBJECT_0";

TEST_F(HeapManager, ALoadThatFindsTheMutexAbandonedWhenItFailsLeavesTheBufferUnloaded)
{
    auto const control = std::make_shared<Control>();
    MbBuffer const buffer = make("a", control);
    load(buffer);
    load(make("large", 4 * UNIT));
    control->hooks["reload"] = [&] {
        MbManagerProbe::abandonMutex(*manager);
        throw Failure("reload");
    };
    EXPECT_EQ(failedAssertion([&] { load(buffer); }), REFUSAL);
    EXPECT_EQ(stateOf(buffer), "Unloaded");
    control->hooks.clear();
    load(buffer);
    EXPECT_EQ(stateOf(buffer), "Loaded");
    EXPECT_EQ(manager->getAllocated(), std::uint64_t{UNIT});
}

TEST_F(HeapManager, AnUnlockThatFindsTheMutexAbandonedFailsLikeOneWhoseProtocolThrows)
{
    auto const control = std::make_shared<Control>();
    MbBuffer const buffer = make("a", control);
    load(buffer);
    load(make("large", 4 * UNIT));
    control->hooks["unlocked"] = [&] { MbManagerProbe::abandonMutex(*manager); };
    EXPECT_EQ(failedAssertion([&] { load(buffer); }), REFUSAL);
    EXPECT_EQ(stateOf(buffer), "RdLocked");
    control->hooks.clear();
    load(buffer);
    EXPECT_EQ(stateOf(buffer), "Loaded");
}

TEST_F(HeapManager, AnEvictionThatFindsTheMutexAbandonedLeavesTheVictimLoaded)
{
    auto const control = std::make_shared<Control>();
    MbBuffer const victim = make("victim", control, 4 * UNIT);
    MbBuffer const buffer = make("a");
    for (char const *before : {"Freed", "Unloaded"}) {
        load(victim);
        EXPECT_EQ(stateOf(buffer), before);
        control->hooks["unload"] = [&] { MbManagerProbe::abandonMutex(*manager); };
        EXPECT_EQ(failedAssertion([&] { load(buffer); }), REFUSAL);
        EXPECT_EQ(stateOf(victim), "Loaded");
        EXPECT_EQ(stateOf(buffer), before);
        control->hooks.clear();
        load(buffer);
        EXPECT_EQ(stateOf(victim), "Unloaded");
    }
}

TEST_F(HeapManager, AVictimThatIsLockedInBetweenIsPassedOver)
{
    MbBuffer const victim = make("victim", 3 * UNIT);
    MbBuffer const second = make("second");
    MbBuffer const buffer = make("a");
    load(victim);
    load(second);
    MbBufferProbe probe(victim);
    std::optional<MbBufferRdGuardImp> guard;
    std::thread loader;
    {
        LkGuard<LkMutex const> const lock(probe.mutex());
        probe.close();
        loader = std::thread([&] { load(buffer); });
        waitUntil([&] { return probe.keepAlive() == 2; });
        guard.emplace(victim);
    }
    loader.join();
    EXPECT_EQ(stateOf(victim), "RdLocked");
    EXPECT_EQ(stateOf(second), "Unloaded");
}

TEST_F(HeapManager, AVictimDestroyedInBetweenIsLeftToTheThreadThatChoseIt)
{
    auto const control = std::make_shared<Control>();
    MbBuffer victim = make("victim", control, 4 * UNIT);
    MbBuffer const buffer = make("a");
    load(victim);
    control->log.take();
    MbBufferProbe probe(victim);
    probe.mutex().lock();
    probe.close();
    std::thread loader([&] { load(buffer); });
    waitUntil([&] { return probe.keepAlive() == 2; });
    victim = MbBuffer();
    EXPECT_EQ(control->log.take(), (Lines{"free"}));
    EXPECT_EQ(probe.stateName(), "Destroyed");
    probe.mutex().unlock();
    loader.join();
    EXPECT_EQ(control->log.take(), Lines{"~protocol"});
    EXPECT_TRUE(buffer.isLoaded());
}

TEST_F(HeapManager, AVictimMayLoseItsLastHandleWhileItIsUnloaded)
{
    auto const control = std::make_shared<Control>();
    MbBuffer victim = make("victim", control, 4 * UNIT);
    MbBufferImp &imp = *victim.getImp();
    MbBuffer const buffer = make("a");
    load(victim);
    control->log.take();
    std::thread last;
    control->hooks["unload"] = [&] {
        last = std::thread([&] { victim = MbBuffer(); });
        MbBufferProbe const probe(imp);
        waitUntil([&] {
            LkGuard<LkMutex const> const guard(probe.mutex());
            return probe.waiters() == 1;
        });
    };
    load(buffer);
    last.join();
    EXPECT_EQ(control->log.take(), (Lines{"unload", "~protocol"}));
    EXPECT_EQ(manager->getAllocated(), std::uint64_t{UNIT});
}

/// Throws when it is destroyed.
class BadlyEndingProtocol : public RecordingProtocol
{
public:
    using RecordingProtocol::RecordingProtocol;
    ~BadlyEndingProtocol() noexcept(false) override { throw std::runtime_error("~protocol"); }
};

/// Then the thread that has selected the buffer ends it. Two failures at once do not end the
/// process.
TEST_F(HeapManager, AVictimWithoutHandlesMayFailToUnloadAndToBeDestroyed)
{
    auto const control = std::make_shared<Control>();
    MbBuffer victim =
        factory.create("victim", makeObj<BadlyEndingProtocol>(control), 4 * UNIT, ANYWHERE);
    MbBuffer const buffer = make("a");
    load(victim);
    control->log.take();
    control->hooks["unload"] = [&] {
        victim = MbBuffer();
        throw Failure("unload of the victim");
    };
    TraceCapture capture("Exception: ");
    EXPECT_EQ(reasonOf<Failure>([&] { load(buffer); }), "unload of the victim");
    EXPECT_EQ(control->log.take(), (Lines{"unload", "free", "~protocol"}));
    EXPECT_EQ(capture.take(), Lines{"Exception: ~protocol"});
    EXPECT_EQ(stateOf(buffer), "Freed");
    EXPECT_EQ(manager->getAllocated(), 0u);
    load(buffer);
}

/// Any thread may ask about the buffer meanwhile.
TEST_F(HeapManager, AThreadThatWaitsForMemoryDoesNotBlockTheBuffer)
{
    MbBuffer const held = make("held", 4 * UNIT);
    MbBuffer wanted = make("wanted");
    std::optional<MbBufferRdGuardImp> guard(held);
    std::thread loader([&] { load(wanted); });
    waitForWaiters(*manager, 1);
    EXPECT_STREQ(wanted.getName(), "wanted");
    EXPECT_FALSE(wanted.isLoaded());
    wanted.prefetch();
    wanted.getImp()->receive(MbEvent::UNLOAD);
    EXPECT_EQ(stateOf(wanted), "BeingRdLoaded");
    std::ostringstream text;
    manager->dump(text);
    EXPECT_EQ(text.str(), "Name = heap\nUnload strategy = MbUnloadLRU");
    guard.reset();
    loader.join();
    EXPECT_TRUE(wanted.isLoaded());
}

/// The name can be read while another buffer is evicted, and while the buffer is loaded.
TEST_F(HeapManager, AThreadThatUnloadsAVictimDoesNotBlockTheBuffer)
{
    auto const victimControl = std::make_shared<Control>();
    auto const control = std::make_shared<Control>();
    MbBuffer const victim = make("victim", victimControl, 4 * UNIT);
    MbBuffer const wanted = make("wanted", control);
    load(victim);
    std::string name;
    std::ostringstream text;
    victimControl->hooks["unload"] = [&] {
        std::thread([&] {
            name = wanted.getName();
            EXPECT_FALSE(wanted.isLoaded());
            manager->dump(text);
        }).join();
    };
    control->hooks["load"] = [&] { std::thread([&] { manager->dump(text); }).join(); };
    load(wanted);
    EXPECT_EQ(name, "wanted");
    EXPECT_EQ(text.str(), "Name = heap\nUnload strategy = MbUnloadLRU"
                          "Name = heap\nUnload strategy = MbUnloadLRU");
}

/// The protocol of the evicted buffer locks the buffer that its thread is loading.
TEST_F(HeapManager, AVictimCannotLockTheBufferThatNeedsItsMemory)
{
    auto const control = std::make_shared<Control>();
    MbBuffer const victim = make("victim", control, 4 * UNIT);
    MbBuffer const wanted = make("wanted");
    load(victim);
    control->hooks["unload"] = [&] { load(wanted); };
    EXPECT_EQ(failedAssertion([&] { load(wanted); }), "! _transientStateOwner.isCurrentThread()");
    EXPECT_EQ(stateOf(victim), "Loaded");
    EXPECT_EQ(stateOf(wanted), "Freed");
    control->hooks.clear();
}

TEST_F(HeapManager, GivesItsMemoryBackToTheHeap)
{
    MbBuffer buffer = make("a");
    load(buffer);
    ReleaseCount const releases;
    buffer.free();
    EXPECT_EQ(releases.get(), 1u);
}

TEST_F(HeapManager, DumpsTheBuffersOfARandomStrategy)
{
    RCShdPtr<MbManager> const random(new MbHeapManager("heap", UNIT, makeObj<MbUnloadRandom>(0)));
    MbBuffer const buffer = MbBufferSimpleFactory(initialState(), random).create("a", 1, ANYWHERE);
    load(buffer);
    std::ostringstream text;
    random->dump(text);
    EXPECT_EQ(text.str(), "Name = heap\n"
                          "Unload strategy = MbUnloadRandom\n"
                          "Nb loaded and unlocked buffers  = 1\n"
                          "\n"
                          "Random buffer container: \n"
                          "    0 = a\n"
                          "\n"
                          "Pair associative indexes : \n"
                          "                   a = 0\n");
}

/// Waits at its first character for another thread that loads a buffer.
class LoadingStream : public std::stringbuf
{
public:
    explicit LoadingStream(MbBuffer const &buffer) : _buffer(buffer) {}

private:
    int_type overflow(int_type character) override
    {
        if (!_buffer.isLoaded())
            std::thread([&] { MbBufferRdGuardImp const guard(_buffer); }).join();
        return std::stringbuf::overflow(character);
    }

    MbBuffer const &_buffer;
};

TEST_F(HeapManager, DumpsToAStreamThatUsesItsBuffers)
{
    MbBuffer const buffer = make("a");
    LoadingStream text(buffer);
    std::ostream stream(&text);
    manager->dump(stream);
    EXPECT_TRUE(buffer.isLoaded());
    EXPECT_EQ(text.str(), "Name = heap\nUnload strategy = MbUnloadLRU");
}

/// Reports that it has set a region, and has not.
class CarelessManager : public MbPoolManager
{
public:
    CarelessManager() : MbPoolManager("careless", makeObj<MbUnloadLRU>(0)) {}

private:
    bool performAllocate(MbBufferImp *) override { return true; }
    void performDeallocate(MbBufferImp *) override {}
};

TEST(MbPoolManager, AssertsThatARegionHasBeenSet)
{
    RCShdPtr<MbManager> const manager(new CarelessManager);
    MbBuffer const buffer = MbBufferSimpleFactory(initialState(), manager).create("a", 1);
    EXPECT_EQ(failedAssertion([&] { MbBufferRdGuardImp const guard(buffer); }),
              "buffer->getRegionStart() != 0");
    EXPECT_EQ(stateOf(buffer), "Freed");
}

/// A thread has selected a buffer, and takes its mutex while the buffer is loaded again and waits
/// for memory itself.
TEST_F(HeapManager, AChosenBufferThatWaitsForMemoryBlocksNoThread)
{
    for (int turn = 0; turn < 30; ++turn) {
        MbBuffer const a = make("a");
        MbBuffer const y = make("y");
        MbBuffer const x = make("x");
        MbBuffer v = make("v", 2 * UNIT);
        MbBuffer const f = make("f", 2 * UNIT);
        load(v);
        MbBufferProbe probe(v);
        std::optional<MbBufferRdGuardImp> holdsA(a);
        std::optional<MbBufferRdGuardImp> holdsF;
        std::atomic<bool> isBegun = false;
        std::thread again;
        std::thread loader;
        {
            LkGuard<LkMutex const> const lock(probe.mutex());
            probe.close();
            again = std::thread([&] {
                isBegun = true;
                load(v);
            });
            waitUntil([&] { return isBegun.load(); });
            loader = std::thread([&] {
                MbBufferRdGuardImp const holdsY(y);
                load(x);
            });
            waitUntil([&] { return probe.keepAlive() == 2; });
            v.free();
            holdsF.emplace(f);
        }
        // One buffer needs one part of the memory, and the other one needs two parts, which are
        // freed later.
        waitForWaiters(*manager, 2);
        holdsA.reset();
        loader.join();
        again.join();
        EXPECT_TRUE(v.isLoaded());
    }
    EXPECT_EQ(manager->getAllocated(), 0u);
}

// ---- without memory for the books

/// A manager of either strategy, with a budget that is large enough.
class BuffersWithoutMemory : public testing::TestWithParam<bool>
{
protected:
    ~BuffersWithoutMemory() noexcept override {}

    static ObjPtrRet<MbUnloadStrategy> makeStrategy()
    {
        return ObjPtrRet<MbUnloadStrategy>(GetParam()
                                               ? static_cast<MbUnloadStrategy *>(new MbUnloadLRU(0))
                                               : new MbUnloadRandom(0));
    }
    std::vector<MbBuffer> makeBuffers(bool isTracing)
    {
        MbBufferSimpleFactory factory(initialState(isTracing), manager);
        std::vector<MbBuffer> buffers;
        for (int i = 0; i < 50; ++i)
            buffers.push_back(factory.create("a", UNIT, ANYWHERE));
        return buffers;
    }

    RCShdPtr<MbHeapManager> manager{
        new MbHeapManager("heap", 100 * UNIT, ObjPtr<MbUnloadStrategy>(makeStrategy()))};
};

/// Buffers are locked and unlocked in any order, for the first time or again.
void unlockWithoutMemory(std::vector<MbBuffer> const &buffers)
{
    for (int round = 0; round < 3; ++round) {
        std::vector<std::optional<MbBufferRdGuardImp>> guards(buffers.size());
        for (std::size_t i = 0; i < buffers.size(); ++i)
            guards[(i + static_cast<std::size_t>(round) * 7) % guards.size()].emplace(buffers[i]);
        for (std::optional<MbBufferRdGuardImp> &guard : guards) {
            FailingAllocation const failing(0);
            guard.reset();
        }
    }
    for (MbBuffer const &buffer : buffers)
        EXPECT_EQ(stateOf(buffer), "Loaded");
}

TEST_P(BuffersWithoutMemory, AreUnlocked)
{
    AllocationCount const allocations;
    unlockWithoutMemory(makeBuffers(false));
    EXPECT_LT(0u, allocations.get());
}

TEST_P(BuffersWithoutMemory, AreUnlockedEvenIfItCannotBeTraced)
{
    LgLog::flush();
    LgTrace::setOutput([](void *, char const *, std::size_t) {}, nullptr);
    Trace::setEnabled("MbBuffers", true);
    unlockWithoutMemory(makeBuffers(true));
    Trace::setEnabled("MbBuffers", false);
    LgLog::flush();
    LgTrace::setOutput(nullptr, nullptr);
}

/// All events of a buffer that is loaded.
TEST_P(BuffersWithoutMemory, AreUsedSynchedUnloadedFreedAndEnded)
{
    for (bool const isTracing : {false, true}) {
        std::vector<MbBuffer> buffers = makeBuffers(isTracing);
        for (MbBuffer const &buffer : buffers)
            MbBufferRdGuardImp const guard(buffer);
        FailingAllocation const failing(0);
        for (std::size_t i = 0; i < buffers.size(); ++i) {
            MbBuffer &buffer = buffers[i];
            {
                MbBufferWrGuardImp const guard(buffer);
                MbBufferWrGuardImp const copy(guard);
            }
            buffer.prefetch();
            if (i % 2 == 0)
                buffer.sync();
            else
                buffer.asyncSync();
            if (i % 3 == 0)
                MbBufferRdGuardImp const guard(buffer);
            if (i % 5 == 0)
                buffer.getImp()->receive(MbEvent::UNLOAD);
            if (i % 7 == 0)
                buffer.free();
            if (i % 11 == 0)
                buffer = MbBuffer();
        }
        buffers.clear();
        EXPECT_FALSE(failing.hasFailed());
    }
    EXPECT_EQ(manager->getAllocated(), 0u);
}

TEST_P(BuffersWithoutMemory, FailToLoadAndHaveNothing)
{
    std::vector<MbBuffer> const buffers = makeBuffers(false);
    std::size_t loaded = 0;
    int const failures = failEachAllocation(
        [&] {
            for (; loaded < buffers.size(); ++loaded)
                MbBufferRdGuardImp const guard(buffers[loaded]);
        },
        [&] {
            EXPECT_EQ(stateOf(buffers[loaded]), "Freed");
            EXPECT_EQ(manager->getAllocated(), loaded * UNIT);
        },
        Allocations::THROWING);
    EXPECT_LT(4, failures);
    EXPECT_EQ(manager->getAllocated(), buffers.size() * UNIT);
}

TEST_P(BuffersWithoutMemory, FailToBePrefetchedAndHaveNothing)
{
    MbBuffer buffer = makeBuffers(false).front();
    {
        FailingAllocation const failing(0, Allocations::THROWING);
        EXPECT_THROW(buffer.prefetch(), std::bad_alloc);
    }
    EXPECT_EQ(stateOf(buffer), "Freed");
    EXPECT_EQ(manager->getAllocated(), 0u);
    buffer.prefetch();
    EXPECT_EQ(stateOf(buffer), "Loaded");
}

INSTANTIATE_TEST_SUITE_P(Strategies, BuffersWithoutMemory, testing::Bool(),
                         [](auto const &strategy) { return strategy.param ? "LRU" : "Random"; });

class ArenaManager : public testing::Test
{
protected:
    ~ArenaManager() noexcept override {}

    static MbManager *newManager(std::uint64_t size)
    {
        // Memory in pages, so that the arena begins at a multiple of every alignment in this test.
        return new MbArenaManager(
            "arena",
            ObjPtr<DaArenaPool>(DaArenaPool::create(DaMemoryMapAllocator::create("pages"), size)),
            makeObj<MbUnloadLRU>(0));
    }
    static void load(MbBuffer const &buffer) { MbBufferRdGuardImp const guard(buffer); }

    RCShdPtr<MbManager> manager{newManager(1024)};
    MbBufferSimpleFactory factory{initialState(), manager};
};

TEST_F(ArenaManager, TakesPoolAndStrategyOver)
{
    ObjPtr<DaArenaPool> pool(DaArenaPool::create(DaMallocAllocator::create(), 8));
    ObjPtr<MbUnloadStrategy> strategy(new MbUnloadRandom(0));
    {
        MbArenaManager const other("other", pool, strategy);
        EXPECT_STREQ(other.getName().getChars(), "other");
    }
    EXPECT_TRUE(pool.isNull());
    EXPECT_TRUE(strategy.isNull());
}

TEST_F(ArenaManager, TakesExactlyTheSizeFromAnAlignedAddress)
{
    // As many buffers as fit, without room for their alignment.
    std::vector<MbBuffer> buffers;
    for (int i = 0; i < 8; ++i) {
        buffers.push_back(factory.create("a", 128));
        load(buffers.back());
        EXPECT_EQ(lengthOf(buffers.back()), 128u);
        EXPECT_EQ(buffers.back().getImp()->getDataStart() % 128, 0u);
    }
    for (MbBuffer const &buffer : buffers)
        EXPECT_TRUE(buffer.isLoaded());
    load(factory.create("b", 128));
    EXPECT_EQ(stateOf(buffers.front()), "Unloaded");
    EXPECT_TRUE(buffers.back().isLoaded());
}

TEST_F(ArenaManager, GetsItsMemoryBackOnceEvenIfAFailureIsReportedTwice)
{
    auto const control = std::make_shared<Control>();
    MbBuffer buffer = factory.create("a", makeObj<RecordingProtocol>(control), 128, ANYWHERE);
    failToTell(buffer, *control, 1);
    MbBuffer const large = factory.create("large", 1024, ANYWHERE);
    load(large);
    EXPECT_TRUE(large.isLoaded());
}

TEST_F(ArenaManager, AsksThePoolForTheAlignment)
{
    MbBuffer const small = factory.create("small", 8, MbAlignment(0, 0, 0));
    load(small);
    MbBuffer const aligned = factory.create("aligned", 128);
    load(aligned);
    EXPECT_EQ(aligned.getImp()->getRegionStart() % 128, 0u);
    EXPECT_EQ(lengthOf(aligned), 128u);
    EXPECT_NE(small.getImp()->getRegionStart(), aligned.getImp()->getRegionStart());
}

TEST_F(ArenaManager, TakesMoreForAnOffset)
{
    MbBuffer const buffer = factory.create("a", 100, MbAlignment(15, 63, 32));
    load(buffer);
    EXPECT_EQ(lengthOf(buffer), 100u + MbAlignment(15, 63, 32).getRoundUpMax(16));
    EXPECT_EQ(buffer.getImp()->getDataStart() % 64, 32u);
    EXPECT_EQ(buffer.getImp()->getRegionStart() % 16, 0u);
}

TEST_F(ArenaManager, UnloadsAllOthersForABufferAsLargeAsThePool)
{
    MbBuffer const a = factory.create("a", 500);
    MbBuffer const b = factory.create("b", 500);
    load(a);
    load(b);
    MbBuffer const large = factory.create("large", 1024);
    load(large);
    EXPECT_TRUE(large.isLoaded());
    EXPECT_EQ(stateOf(a), "Unloaded");
    EXPECT_EQ(stateOf(b), "Unloaded");
    MbBuffer const larger = factory.create("larger", 1025);
    EXPECT_EQ(reasonOf<MbEx::ExNotEnoughMemory>([&] { load(larger); }),
              "Not enough memory: Buffer size larger then total arena pool size..");
    EXPECT_TRUE(large.isLoaded());
}

MbManager *newArena(ObjPtr<DaArenaPool> pool)
{
    return new MbArenaManager("arena", pool, makeObj<MbUnloadLRU>(0));
}

/// An arena gives multiples of 8 bytes.
TEST_F(ArenaManager, RefusesWhatTheEndOfThePoolIsTooShortFor)
{
    RCShdPtr<MbManager> const odd(
        newArena(ObjPtr<DaArenaPool>(DaArenaPool::create(DaMallocAllocator::create(), 1020))));
    MbBufferSimpleFactory oddFactory(initialState(), odd);
    MbBuffer const fitting = oddFactory.create("fitting", 1016, ANYWHERE);
    load(fitting);
    EXPECT_TRUE(fitting.isLoaded());
    for (int size : {1017, 1020}) {
        MbBuffer const large = oddFactory.create("large", size, ANYWHERE);
        EXPECT_EQ(reasonOf<MbEx::ExNotEnoughMemory>([&] { load(large); }),
                  "Not enough memory: Buffer does not fit though nothing is allocated..");
        EXPECT_EQ(stateOf(large), "Freed");
    }
    EXPECT_EQ(stateOf(fitting), "Unloaded");
    load(fitting);
}

/// Gives memory that begins 8 bytes after a multiple of 128.
class CrookedAllocator : public DaArenaAllocator
{
public:
    void *allocate(std::uint64_t) override { return _memory + 8; }
    void deallocate(void *, std::uint64_t) override {}

private:
    alignas(128) char _memory[2048];
};

/// That the buffer does not fit is known only when all others have given their memory back.
TEST_F(ArenaManager, RefusesWhatNoPlaceIsAlignedFor)
{
    RCShdPtr<MbManager> const crooked(
        newArena(ObjPtr<DaArenaPool>(DaArenaPool::create(new CrookedAllocator, 1024))));
    MbBufferSimpleFactory crookedFactory(initialState(), crooked);
    MbBuffer small = crookedFactory.create("small", 8, ANYWHERE);
    MbBuffer const large = crookedFactory.create("large", 1024);
    std::optional<MbBufferRdGuardImp> guard(small);
    std::string reason;
    std::thread loader([&] { reason = reasonOf<MbEx::ExNotEnoughMemory>([&] { load(large); }); });
    waitForWaiters(static_cast<MbPoolManager const &>(*crooked), 1);
    small.free();
    guard.reset();
    loader.join();
    EXPECT_EQ(reason, "Not enough memory: Buffer does not fit though nothing is allocated..");
    EXPECT_EQ(stateOf(large), "Freed");
}

TEST_F(ArenaManager, TakesPiecesThatAreTooSmallForNoMemoryAtAll)
{
    std::vector<MbBuffer> buffers;
    for (int i = 0; i < 8; ++i) {
        buffers.push_back(factory.create("a", 128));
        load(buffers.back());
    }
    for (std::size_t i = 0; i < 8; i += 2)
        buffers[i].free();
    // Half of the arena is free, but no quarter is free in one piece. The buffer between the first
    // two is evicted.
    MbBuffer const large = factory.create("large", 256);
    load(large);
    EXPECT_EQ(stateOf(buffers[1]), "Unloaded");
    EXPECT_TRUE(buffers[3].isLoaded());
    EXPECT_TRUE(buffers[5].isLoaded());
    EXPECT_TRUE(buffers[7].isLoaded());
}

TEST_F(ArenaManager, WaitsIfAllItsMemoryIsLocked)
{
    MbBuffer const a = factory.create("a", 1024);
    MbBuffer const b = factory.create("b", 8);
    std::optional<MbBufferRdGuardImp> guard(a);
    std::thread loader([&] { load(b); });
    waitForWaiters(static_cast<MbPoolManager const &>(*manager), 1);
    guard.reset();
    loader.join();
    EXPECT_EQ(stateOf(a), "Unloaded");
}

TEST_F(ArenaManager, Dumps)
{
    std::ostringstream text;
    manager->dump(text);
    EXPECT_EQ(text.str(), "Name = arena\nUnload strategy = MbUnloadLRU");
}

} // namespace
} // namespace ZvTest
