// Behaviour of buffers that a client can observe.

#include "recording.h"
#include "testing/failures.h"
#include "zvbase/failures.h"
#include "zvbase/rcEx.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <optional>
#include <semaphore>
#include <span>
#include <type_traits>

namespace ZvTest {
namespace {

class MbBufferTest : public testing::Test
{
protected:
    ~MbBufferTest() noexcept override {}

    std::shared_ptr<RecordingProtocol::Control> control =
        std::make_shared<RecordingProtocol::Control>();
    RCShdPtr<RecordingManager> manager{new RecordingManager(control->log)};
    MbBufferSimpleFactory factory{initialState(), manager};
    MbBuffer buffer =
        factory.create("b", makeObj<RecordingProtocol>(control), 100, MbAlignment(63, 0, 0));
};

TEST_F(MbBufferTest, LivesFromLoadToFree)
{
    {
        MbBufferRdGuardImp const guard(buffer);
        EXPECT_EQ(control->memory, guard.getMemory());
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(guard.getMemory()) % 64, 0u);
        EXPECT_EQ(control->size, 100u);
        EXPECT_TRUE(buffer.isLoaded());
    }
    EXPECT_EQ(control->log.take(),
              (Lines{"allocateRegion", "load", "unlocked", "bufferUnloadable"}));
    buffer = MbBuffer();
    EXPECT_EQ(control->log.take(),
              (Lines{"bufferNotUnloadable", "free", "deallocateRegion", "~protocol"}));
}

TEST_F(MbBufferTest, WithoutEverHavingBeenUsedEndsWithoutACall)
{
    buffer = MbBuffer();
    EXPECT_EQ(control->log.take(), Lines{"~protocol"});
}

TEST_F(MbBufferTest, SynchedEndsWithoutFree)
{
    {
        MbBufferRdGuardImp const guard(buffer);
    }
    buffer.sync();
    control->log.take();
    buffer = MbBuffer();
    EXPECT_EQ(control->log.take(), (Lines{"deallocateRegion", "bufferNotUnloadable", "~protocol"}));
}

TEST_F(MbBufferTest, WritersMarkItDirtyOnlyIfTheyLoadIt)
{
    {
        MbBufferWrGuardImp const guard(buffer);
        static_cast<char *>(guard.getMemory())[99] = 1;
    }
    EXPECT_EQ(control->log.take(),
              (Lines{"allocateRegion", "load", "markDirty", "unlocked", "bufferUnloadable"}));
    {
        MbBufferWrGuardImp const guard(buffer);
    }
    buffer.sync();
    {
        MbBufferWrGuardImp const guard(buffer);
    }
    Lines const lines = control->log.take();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "markDirty"), 0);
}

TEST_F(MbBufferTest, FreedWhileLockedIsLoadedAnewAfterTheLastGuard)
{
    {
        MbBufferRdGuardImp const guard(buffer);
        buffer.free();
        MbBufferRdGuardImp const second(buffer);
        EXPECT_TRUE(buffer.isLoaded());
        EXPECT_EQ(control->log.take(), (Lines{"allocateRegion", "load"}));
    }
    EXPECT_EQ(control->log.take(), (Lines{"free", "deallocateRegion"}));
    MbBufferRdGuardImp const guard(buffer);
    EXPECT_EQ(control->log.take(), (Lines{"allocateRegion", "load"}));
}

TEST_F(MbBufferTest, TwoReadersShareItsMemoryAndAWriterWaitsForBoth)
{
    std::optional<MbBufferRdGuardImp> first(buffer);
    void const *memory = nullptr;
    std::optional<MbBufferRdGuardImp> second;
    std::thread([&] {
        second.emplace(buffer);
        memory = second->getMemory();
    }).join();
    EXPECT_NE(memory, nullptr);
    EXPECT_EQ(first->getMemory(), memory);

    std::atomic<bool> isLocked = false;
    std::thread writer([&] {
        MbBufferWrGuardImp const guard(buffer);
        isLocked = true;
        EXPECT_EQ(stateOf(buffer), "WrLocked");
    });
    waitForWaiters(buffer, 1);
    first.reset();
    EXPECT_EQ(stateOf(buffer), "RdLocked");
    waitForWaiters(buffer, 1);
    EXPECT_FALSE(isLocked);
    second.reset();
    writer.join();
    EXPECT_TRUE(isLocked);
    EXPECT_EQ(stateOf(buffer), "Loaded");
}

TEST_F(MbBufferTest, ReadersWaitForTheLastWriteGuard)
{
    std::optional<MbBufferWrGuardImp> writer(buffer);
    std::optional<MbBufferWrGuardImp> copy(*writer);
    std::thread reader([&] { MbBufferRdGuardImp const guard(buffer); });
    waitForWaiters(buffer, 1);
    writer.reset();
    waitForWaiters(buffer, 1);
    EXPECT_EQ(stateOf(buffer), "WrLocked");
    copy.reset();
    reader.join();
}

TEST_F(MbBufferTest, AThreadThatLocksItDuringALoadWaitsForTheLoad)
{
    std::binary_semaphore isLoading(0);
    std::binary_semaphore mayLoad(0);
    control->hooks["load"] = [&] {
        isLoading.release();
        mayLoad.acquire();
    };
    std::thread loader([&] { MbBufferRdGuardImp const guard(buffer); });
    isLoading.acquire();
    EXPECT_FALSE(buffer.isLoaded());
    std::thread reader([&] { MbBufferRdGuardImp const guard(buffer); });
    waitForWaiters(buffer, 1);
    mayLoad.release();
    loader.join();
    reader.join();
    Lines const lines = control->log.take();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "load"), 1);
}

TEST_F(MbBufferTest, AFailedLoadLeavesItFreedAndAWaiterTriesAgain)
{
    std::binary_semaphore isLoading(0);
    std::binary_semaphore mayFail(0);
    std::atomic<int> nbLoads = 0;
    control->hooks["load"] = [&] {
        if (++nbLoads == 1) {
            isLoading.release();
            mayFail.acquire();
            throw Failure("load");
        }
    };
    std::string failure;
    std::thread loader(
        [&] { failure = reasonOf<Failure>([&] { MbBufferRdGuardImp const guard(buffer); }); });
    isLoading.acquire();
    std::thread reader([&] { MbBufferRdGuardImp const guard(buffer); });
    waitForWaiters(buffer, 1);
    mayFail.release();
    loader.join();
    reader.join();
    EXPECT_EQ(failure, "load");
    EXPECT_EQ(nbLoads, 2);
    EXPECT_EQ(control->log.take(),
              (Lines{"allocateRegion", "load", "deallocateRegion", "allocateRegion", "load",
                     "unlocked", "bufferUnloadable"}));
}

TEST_F(MbBufferTest, AsyncLoadMayBeEndedByAnyThread)
{
    buffer.prefetch();
    EXPECT_EQ(stateOf(buffer), "WaitAsyncLoaded");
    EXPECT_FALSE(buffer.isLoaded());
    std::thread reader([&] { MbBufferRdGuardImp const guard(buffer); });
    waitForWaiters(buffer, 1);
    std::thread([&] { control->handle->performSucceeded(); }).join();
    reader.join();
    EXPECT_EQ(control->log.take(),
              (Lines{"allocateRegion", "asyncLoad", "asyncLoadSucceeded", "bufferUnloadable",
                     "bufferNotUnloadable", "unlocked", "bufferUnloadable"}));
}

TEST_F(MbBufferTest, AsyncLoadMayEndBeforeItsCallReturns)
{
    std::thread::id teller;
    control->hooks["asyncLoad"] = [&] {
        std::thread([&] { control->handle->performSucceeded(); }).join();
        EXPECT_EQ(stateOf(buffer), "BeingAsyncLoaded");
    };
    control->hooks["asyncLoadSucceeded"] = [&] { teller = std::this_thread::get_id(); };
    buffer.prefetch();
    EXPECT_EQ(teller, std::this_thread::get_id());
    EXPECT_EQ(stateOf(buffer), "Loaded");
}

TEST_F(MbBufferTest, AsyncLoadThatFailsGivesTheMemoryBack)
{
    control->hooks["asyncLoad"] = [&] { control->handle->performFailed(); };
    buffer.prefetch();
    EXPECT_EQ(stateOf(buffer), "Freed");
    EXPECT_EQ(control->log.take(),
              (Lines{"allocateRegion", "asyncLoad", "deallocateRegion", "asyncLoadFailed"}));
}

TEST_F(MbBufferTest, OfTwoEndsOfOneOperationTheSuccessCountsAndTheFailureIsRefused)
{
    control->hooks["asyncLoad"] = [&] {
        control->handle->performFailed();
        control->handle->performSucceeded();
    };
    EXPECT_EQ(reasonOf<MbEx::ExIllegalTransition>([&] { buffer.prefetch(); }),
              "Illegal transition: buffer b received event asyncOpFailed() from state Loaded.");
    EXPECT_EQ(stateOf(buffer), "Loaded");
    EXPECT_EQ(control->log.take(),
              (Lines{"allocateRegion", "asyncLoad", "asyncLoadSucceeded", "bufferUnloadable"}));
}

TEST_F(MbBufferTest, AnEndBeforeAFailedBeginningStaysPending)
{
    control->hooks["asyncLoad"] = [&] {
        control->handle->performSucceeded();
        throw Failure("asyncLoad");
    };
    EXPECT_EQ(reasonOf<Failure>([&] { buffer.prefetch(); }), "asyncLoad");
    EXPECT_EQ(stateOf(buffer), "Freed");
    EXPECT_EQ(control->log.take(), (Lines{"allocateRegion", "asyncLoad", "deallocateRegion"}));
    // The next run that succeeds delivers it, in the state in which that run ends.
    EXPECT_EQ(
        reasonOf<MbEx::ExIllegalTransition>([&] { MbBufferRdGuardImp const guard(buffer); }),
        "Illegal transition: buffer b received event asyncOpSucceeded() from state RdLocked.");
    // The lock was taken before the failure, and has been released.
    EXPECT_EQ(stateOf(buffer), "Loaded");
    EXPECT_EQ(buffer.getImp()->getLockCount(), 0);
    EXPECT_EQ(control->log.take(),
              (Lines{"allocateRegion", "load", "unlocked", "bufferUnloadable"}));
    MbBufferWrGuardImp const writer(buffer);
    EXPECT_FALSE(writer.isNull());
}

/// Locks a buffer, while its manager fails at the call that is made when the state is left.
template <class Guard>
void failToLeave(MbBuffer const &buffer, RecordingManager &manager)
{
    manager.hook = [](std::string const &what) {
        if (what == "bufferNotUnloadable")
            throw Failure(what);
    };
    EXPECT_EQ(reasonOf<Failure>([&] { Guard const guard(buffer); }), "bufferNotUnloadable");
    manager.hook = nullptr;
    EXPECT_EQ(stateOf(buffer), "Loaded");
    EXPECT_EQ(buffer.getImp()->getLockCount(), 0);
}

TEST_F(MbBufferTest, ALockThatItsManagerFailsIsNotHeld)
{
    {
        MbBufferRdGuardImp const guard(buffer);
    }
    failToLeave<MbBufferRdGuardImp>(buffer, *manager);
    failToLeave<MbBufferWrGuardImp>(buffer, *manager);
    buffer.sync();
    manager->hook = [](std::string const &what) {
        if (what == "bufferNotUnloadable")
            throw Failure(what);
    };
    EXPECT_THROW(MbBufferWrGuardImp{buffer}, Failure);
    manager->hook = nullptr;
    EXPECT_EQ(stateOf(buffer), "Synched");
    MbBufferWrGuardImp const writer(buffer);
    EXPECT_EQ(buffer.getImp()->getLockCount(), 1);
}

TEST_F(MbBufferTest, OfTwoFailuresOfItsManagerTheFirstIsThrown)
{
    {
        MbBufferRdGuardImp const guard(buffer);
    }
    int failures = 0;
    manager->hook = [&](std::string const &what) {
        if (what != "allocateRegion")
            throw Failure(what + ' ' + std::to_string(++failures));
    };
    // The calls that leave the state, leave it again on the way back, and enter it.
    TraceCapture capture("Exception: ");
    EXPECT_EQ(reasonOf<Failure>([&] { MbBufferRdGuardImp const guard(buffer); }),
              "bufferNotUnloadable 1");
    EXPECT_EQ(capture.take(),
              (Lines{"Exception: bufferNotUnloadable 2", "Exception: bufferUnloadable 3"}));
    manager->hook = nullptr;
    EXPECT_EQ(stateOf(buffer), "Loaded");
    EXPECT_EQ(buffer.getImp()->getLockCount(), 0);
}

/// A postponed event stays postponed, and a thread that waits looks at the buffer again.
TEST_F(MbBufferTest, IfItsManagerFailsKeepsPostponedEventsAndWakesWaiters)
{
    {
        MbBufferRdGuardImp const guard(buffer);
    }
    std::thread reader;
    control->hooks["sync"] = [&] {
        buffer.asyncSync();
        reader = std::thread([&] { MbBufferRdGuardImp const guard(buffer); });
        waitForWaiters(buffer, 1);
        manager->hook = [&](std::string const &what) {
            manager->hook = nullptr;
            throw Failure(what);
        };
    };
    // It begins when the reader has unlocked the buffer.
    control->hooks["asyncSync"] = [&] { control->handle->performSucceeded(); };
    EXPECT_EQ(reasonOf<Failure>([&] { buffer.sync(); }), "bufferUnloadable");
    reader.join();
    EXPECT_EQ(stateOf(buffer), "Synched");
}

/// Each result operation, which fails at first.
TEST_F(MbBufferTest, AResultThatThrowsLeavesItWaitingForAnother)
{
    struct Result
    {
        char const *call;
        bool succeeds;
        char const *state;
        char const *end;
    };
    for (Result const &result : {Result{"asyncLoadSucceeded", true, "WaitAsyncLoaded", "Loaded"},
                                 {"asyncLoadFailed", false, "WaitAsyncLoaded", "Freed"},
                                 {"asyncReloadSucceeded", true, "WaitAsyncReloaded", "Loaded"},
                                 {"asyncReloadFailed", false, "WaitAsyncReloaded", "Unloaded"},
                                 {"asyncSyncSucceeded", true, "WaitAsyncSynched", "Synched"},
                                 {"asyncSyncFailed", false, "WaitAsyncSynched", "Loaded"}}) {
        SCOPED_TRACE(result.call);
        MbBuffer other =
            factory.create("b", makeObj<RecordingProtocol>(control), 100, MbAlignment(0, 0, 0));
        std::string const state = result.state;
        if (state != "WaitAsyncLoaded")
            MbBufferRdGuardImp const guard(other);
        if (state == "WaitAsyncReloaded")
            other.getImp()->receive(MbEvent::UNLOAD);
        if (state == "WaitAsyncSynched")
            other.asyncSync();
        else
            other.prefetch();
        auto const report = [&](bool succeeds) {
            if (succeeds)
                control->handle->performSucceeded();
            else
                control->handle->performFailed();
        };
        control->hooks[result.call] = [] { throw Failure("not now"); };
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(reasonOf<Failure>([&] { report(result.succeeds); }), "not now");
            EXPECT_EQ(stateOf(other), state);
        }
        bool const hasRegion = result.succeeds || state == "WaitAsyncSynched";
        EXPECT_EQ(other.getImp()->getRegionStart() != 0, hasRegion);
        // If the memory is gone, nothing can have been loaded.
        if (!hasRegion) {
            EXPECT_EQ(reasonOf<MbEx::ExIllegalTransition>([&] { report(true); }),
                      "Illegal transition: buffer b received event asyncOpSucceeded() from state " +
                          state + ".");
            EXPECT_EQ(stateOf(other), state);
        }
        control->hooks.clear();
        report(result.succeeds);
        EXPECT_EQ(stateOf(other), result.end);
    }
}

/// The last handle waits for any transition of another thread, in every state of the buffer.
TEST_F(MbBufferTest, TheLastHandleWaitsForATransitionOfAnotherThread)
{
    using enum MbEvent;
    struct Call
    {
        char const *name;
        char const *state;
        std::vector<MbEvent> before;
        MbEvent event;
    };
    std::vector<MbEvent> const loaded = {RDLOCK, UNLOCK};
    std::vector<MbEvent> const unloaded = {RDLOCK, UNLOCK, UNLOAD};
    std::vector<MbEvent> const reloading = {RDLOCK, UNLOCK, UNLOAD, PREFETCH};
    std::vector<MbEvent> const synching = {RDLOCK, UNLOCK, ASYNC_SYNC};
    for (Call const &call : {
             Call{"asyncLoadSucceeded", "AsyncLoadSucceeded", {PREFETCH}, ASYNC_OP_SUCCEEDED},
             Call{"asyncLoadFailed", "AsyncLoadFailed", {PREFETCH}, ASYNC_OP_FAILED},
             Call{"asyncReloadSucceeded", "AsyncReloadSucceeded", reloading, ASYNC_OP_SUCCEEDED},
             Call{"asyncReloadFailed", "AsyncReloadFailed", reloading, ASYNC_OP_FAILED},
             Call{"asyncSyncSucceeded", "AsyncSyncSucceeded", synching, ASYNC_OP_SUCCEEDED},
             Call{"asyncSyncFailed", "AsyncSyncFailed", synching, ASYNC_OP_FAILED},
             Call{"asyncLoad", "BeingAsyncLoaded", {}, PREFETCH},
             Call{"asyncReload", "BeingAsyncReloaded", unloaded, PREFETCH},
             Call{"asyncSync", "BeingAsyncSynched", loaded, ASYNC_SYNC},
             Call{"sync", "BeingSynched", loaded, SYNC},
             Call{"unlocked", "BeingUnlocked", {RDLOCK}, UNLOCK},
             Call{"unload", "BeingUnloaded", loaded, UNLOAD},
             Call{"free", "BeingFreed", loaded, FREE},
         }) {
        SCOPED_TRACE(call.name);
        MbBuffer other =
            factory.create("b", makeObj<RecordingProtocol>(control), 100, MbAlignment(0, 0, 0));
        MbBufferImp &imp = *other.getImp();
        for (MbEvent const event : call.before)
            imp.receive(event);
        std::thread last;
        control->hooks[call.name] = [&] {
            if (last.joinable())
                return; // called for the end of the buffer
            last = std::thread([&] { other = MbBuffer(); });
            MbBufferProbe const probe(imp);
            waitUntil([&] {
                LkGuard<LkMutex const> const guard(probe.mutex());
                return probe.waiters() == 1;
            });
            LkGuard<LkMutex const> const guard(probe.mutex());
            EXPECT_EQ(probe.stateName(), call.state);
            // The operation that was begun here ends, too.
            if (call.event == PREFETCH || call.event == ASYNC_SYNC)
                imp.deliver(ASYNC_OP_SUCCEEDED);
        };
        // This thread has no reference, but uses the object until its call returns.
        imp.addKeepAlive();
        imp.receive(call.event);
        last.join();
        EXPECT_EQ(MbBufferProbe(imp).stateName(), "Destroyed");
        control->log.take();
        control->hooks.clear();
        imp.releaseKeepAlive();
        EXPECT_EQ(control->log.take(), Lines{"~protocol"});
    }
}

/// The last handle is destroyed inside a call. Another thread that uses the buffer meanwhile must
/// not end it.
TEST_F(MbBufferTest, IsDestroyedAfterTheCallInWhichItsLastHandleIsReleased)
{
    control->hooks["asyncLoad"] = [&] {
        LkAsyncHandle * const handle = control->handle;
        buffer = MbBuffer();
        std::thread([=] { handle->performSucceeded(); }).join();
        EXPECT_EQ(control->log.take(), (Lines{"allocateRegion", "asyncLoad"}));
    };
    std::thread::id ending;
    control->hooks["free"] = [&] { ending = std::this_thread::get_id(); };
    buffer.prefetch();
    EXPECT_EQ(ending, std::this_thread::get_id());
    EXPECT_EQ(control->log.take(),
              (Lines{"asyncLoadSucceeded", "bufferUnloadable", "bufferNotUnloadable", "free",
                     "deallocateRegion", "~protocol"}));
}

/// The postponed event has a lower bit than the completion, and waits for it nevertheless.
TEST_F(MbBufferTest, EventsPostponedInsideACompletingCallFollowTheCompletion)
{
    control->hooks["asyncLoad"] = [&] {
        buffer.free();
        control->handle->performSucceeded();
    };
    buffer.prefetch();
    EXPECT_EQ(stateOf(buffer), "Freed");
    EXPECT_EQ(control->log.take(),
              (Lines{"allocateRegion", "asyncLoad", "asyncLoadSucceeded", "bufferUnloadable",
                     "bufferNotUnloadable", "free", "deallocateRegion"}));

    // A later completion finds it, too.
    control->hooks["asyncLoad"] = [&] { buffer.asyncSync(); };
    control->hooks["asyncSync"] = [&] { control->handle->performSucceeded(); };
    buffer.prefetch();
    EXPECT_EQ(stateOf(buffer), "WaitAsyncLoaded");
    control->handle->performSucceeded();
    EXPECT_EQ(stateOf(buffer), "Synched");
}

/// Of the events that a call postpones, `asyncSync` is delivered first. It fails, and the later
/// ones are lost.
TEST_F(MbBufferTest, PostponedEventsAreLostAfterAFailure)
{
    control->hooks["unlocked"] = [&] {
        buffer.free();
        buffer.asyncSync();
    };
    control->hooks["asyncSync"] = [] { throw Failure("asyncSync"); };
    EXPECT_EQ(reasonOf<Failure>([&] { MbBufferRdGuardImp const guard(buffer); }), "asyncSync");
    EXPECT_EQ(control->log.take(), (Lines{"allocateRegion", "load", "unlocked", "bufferUnloadable",
                                          "bufferNotUnloadable", "asyncSync", "bufferUnloadable"}));
    EXPECT_EQ(stateOf(buffer), "Loaded");
    MbBufferProbe const probe(buffer);
    LkGuard<LkMutex const> const lock(probe.mutex());
    EXPECT_EQ(probe.pending(), 0u);
}

/// Sets a flag when it is destroyed.
class LeavingManager : public RecordingManager
{
public:
    explicit LeavingManager(Journal &log) : RecordingManager(log), _log(log) {}
    ~LeavingManager() noexcept(false) override { _log.add("~manager"); }

private:
    Journal &_log;
};

TEST_F(MbBufferTest, DeletesItsProtocolAndThenReleasesItsManager)
{
    Journal log;
    auto const logging = std::make_shared<RecordingProtocol::Control>();
    MbBuffer other;
    {
        RCShdPtr<MbManager> const leaving(new LeavingManager(logging->log));
        other = MbBufferSimpleFactory(initialState(), leaving)
                    .create("other", makeObj<RecordingProtocol>(logging), 8, MbAlignment(0, 0, 0));
    }
    EXPECT_EQ(logging->log.take(), Lines());
    other = MbBuffer();
    EXPECT_EQ(logging->log.take(), (Lines{"~protocol", "~manager"}));
}

TEST_F(MbBufferTest, OfACopiedFactoryIsOfTheSameMachineAndManager)
{
    MbBufferSimpleFactory copy(factory);
    MbBufferSimpleFactory assigned(nullptr, RCShdPtr<MbManager>());
    assigned = factory;
    factory = MbBufferSimpleFactory(nullptr, RCShdPtr<MbManager>());
    for (MbBufferSimpleFactory *each : {&copy, &assigned}) {
        MbBuffer other = each->create("other", 8);
        {
            MbBufferRdGuardImp const guard(other);
        }
        EXPECT_EQ(stateOf(other), "Loaded");
        EXPECT_EQ(control->log.take(), (Lines{"allocateRegion", "bufferUnloadable"}));
        other = MbBuffer();
        control->log.take();
    }
}

TEST_F(MbBufferTest, WithoutAStateIsNotMadeAndWithoutTheRestCannotBeLocked)
{
    char const expected[] = "Dereferencing a null pointer";
    MbBufferSimpleFactory stateless(nullptr, manager);
    EXPECT_EQ(reasonOf<RCEx::ExNullPtr>([&] { stateless.create("other", 8); }), expected);
    MbBufferSimpleFactory unmanaged(initialState(), RCShdPtr<MbManager>());
    MbBuffer const poor = unmanaged.create("poor", 8);
    EXPECT_EQ(reasonOf<RCEx::ExNullPtr>([&] { MbBufferRdGuardImp const guard(poor); }), expected);
    EXPECT_EQ(stateOf(poor), "Freed");
    MbBuffer const empty = factory.create("empty", ObjPtr<MbProtocol>(), 8, MbAlignment(0, 0, 0));
    EXPECT_EQ(reasonOf<RCEx::ExNullPtr>([&] { MbBufferRdGuardImp const guard(empty); }), expected);
    EXPECT_EQ(stateOf(empty), "Freed");
}

/// An exception that cannot be thrown is traced, also if its class is unknown.
TEST_F(MbBufferTest, FailuresWhileAnExceptionPassesAreTraced)
{
    TraceCapture capture("Exception");
    auto const passing = [&](auto failure) {
        control->hooks["unlocked"] = [=] { throw failure; };
        EXPECT_EQ(reasonOf<Failure>([&] {
                      MbBufferRdGuardImp const guard(buffer);
                      throw Failure("passing");
                  }),
                  "passing");
        control->hooks.clear();
        MbBufferRdGuardImp const guard(buffer);
    };
    passing(std::runtime_error("unlocked"));
    EXPECT_EQ(capture.take(), Lines{"Exception: unlocked"});
    passing(1);
    EXPECT_EQ(capture.take(), Lines{"Exception of an unknown class"});
    passing(MbEx::ExRangeError("f", 1, "x"));
    EXPECT_EQ(capture.take(), Lines{"Exception: f(1): Out of range: x."});

    control->hooks["free"] = [] { throw std::runtime_error("free"); };
    MbBufferProbe const probe(buffer);
    EXPECT_EQ(reasonOf<Failure>([&] {
                  MbBuffer const last(std::move(buffer));
                  throw Failure("passing");
              }),
              "passing");
    EXPECT_EQ(capture.take(), Lines{"Exception: free"});
    EXPECT_EQ(probe.stateName(), "Loaded");
    control->hooks.clear();
    // The buffer has not ended. Release a last reference once more.
    RCShdPtr<MbBufferImp> const last(&probe.imp);
}

TEST_F(MbBufferTest, WithoutARegionThereIsNothingToFree)
{
    manager->hook = [](std::string const &what) {
        if (what == "allocateRegion")
            throw Failure("no region");
    };
    EXPECT_EQ(reasonOf<Failure>([&] { MbBufferRdGuardImp const guard(buffer); }), "no region");
    EXPECT_EQ(reasonOf<Failure>([&] { buffer.prefetch(); }), "no region");
    EXPECT_EQ(control->log.take(), (Lines{"allocateRegion", "allocateRegion"}));
    EXPECT_EQ(stateOf(buffer), "Freed");
}

TEST_F(MbBufferTest, ItsProtocolCannotWaitForItself)
{
    std::string assertions;
    control->hooks["load"] = [&] {
        auto const note = [&](auto function) {
            try {
                function();
            } catch (AssertionFailed const &failure) {
                assertions += failure.getExpression() + std::string(";");
            }
        };
        note([&] { MbBufferRdGuardImp const guard(buffer); });
        note([&] { MbBufferWrGuardImp const guard(buffer); });
        note([&] { buffer.sync(); });
        // These events are postponed.
        buffer.asyncSync();
        buffer.free();
    };
    {
        MbBufferRdGuardImp const guard(buffer);
        EXPECT_EQ(stateOf(buffer), "RdLockedFreed");
    }
    EXPECT_EQ(assertions, "! _transientStateOwner.isCurrentThread();"
                          "! _transientStateOwner.isCurrentThread();"
                          "! _transientStateOwner.isCurrentThread();");
    EXPECT_EQ(control->log.take(), (Lines{"allocateRegion", "load", "free", "deallocateRegion"}));
}

/// Is not stable when a failure leads back to it.
class Unsteady : public MbStateImp
{
public:
    void rdlock(MbBufferImp *buffer) const override { buffer->changeState(next); }
    void destroy(MbBufferImp *) const override {}
    MbState const *entering(MbBufferImp *) const override { return next; }
    char const *getName() const override { return "Unsteady"; }

    MbState const *next = nullptr;
};

class Refusing : public MbStateImp
{
public:
    MbState const *entering(MbBufferImp *) const override { throw Failure("refused"); }
    char const *getName() const override { return "Refusing"; }
};

TEST_F(MbBufferTest, AssertsThatTheStateItFallsBackToIsStable)
{
    Unsteady unsteady;
    Refusing const refusing;
    MbBuffer const other = MbBufferSimpleFactory(&unsteady, manager).create("other", 8);
    unsteady.next = &refusing;
    EXPECT_EQ(failedAssertion([&] { MbBufferRdGuardImp const guard(other); }),
              "_state->entering( this ) == 0");
    MbBufferProbe const probe(other);
    LkGuard<LkMutex const> const guard(probe.mutex());
    EXPECT_EQ(probe.state(), &unsteady);
    EXPECT_TRUE(probe.owner().isNull());
}

TEST_F(MbBufferTest, AsyncSyncOfALockedBufferBeginsWithTheLastUnlock)
{
    {
        MbBufferWrGuardImp const guard(buffer);
        buffer.asyncSync();
        EXPECT_EQ(control->log.take(), (Lines{"allocateRegion", "load", "markDirty"}));
    }
    EXPECT_EQ(control->log.take(),
              (Lines{"unlocked", "bufferUnloadable", "bufferNotUnloadable", "asyncSync"}));
    control->handle->performSucceeded();
    EXPECT_EQ(stateOf(buffer), "Synched");
}

TEST_F(MbBufferTest, SyncThatFailsLeavesItLoadedAndUnloadable)
{
    {
        MbBufferRdGuardImp const guard(buffer);
    }
    control->hooks["sync"] = [] { throw Failure("sync"); };
    control->log.take();
    EXPECT_EQ(reasonOf<Failure>([&] { buffer.sync(); }), "sync");
    EXPECT_EQ(stateOf(buffer), "Loaded");
    EXPECT_EQ(control->log.take(), (Lines{"bufferNotUnloadable", "sync", "bufferUnloadable"}));
}

TEST_F(MbBufferTest, TheLastHandleWaitsForAnAsynchronousOperation)
{
    buffer.prefetch();
    LkAsyncHandle * const handle = control->handle;
    MbBufferImp &imp = *buffer.getImp();
    std::thread last([&] { buffer = MbBuffer(); });
    MbBufferProbe const probe(imp);
    waitUntil([&] {
        LkGuard<LkMutex const> const guard(probe.mutex());
        return probe.waiters() == 1;
    });
    control->log.take();
    // A keep-alive count keeps the object until the operation is over.
    imp.addKeepAlive();
    handle->performSucceeded();
    last.join();
    EXPECT_EQ(control->log.take(), (Lines{"asyncLoadSucceeded", "bufferUnloadable",
                                          "bufferNotUnloadable", "free", "deallocateRegion"}));
    imp.releaseKeepAlive();
    EXPECT_EQ(control->log.take(), Lines{"~protocol"});
}

TEST_F(MbBufferTest, TheLastHandleMayGoInsideACallOfTheProtocol)
{
    {
        MbBufferRdGuardImp guard(buffer);
        control->hooks["unlocked"] = [&] { buffer = MbBuffer(); };
        control->log.take();
    }
    EXPECT_EQ(control->log.take(), (Lines{"unlocked", "bufferUnloadable", "bufferNotUnloadable",
                                          "free", "deallocateRegion", "~protocol"}));
}

TEST_F(MbBufferTest, OfAPlainProtocolHasItsContentsWhileItIsLoaded)
{
    RCShdPtr<MbManager> heap(new MbHeapManager("heap", 2 * 1127 - 1, makeObj<MbUnloadLRU>(0)));
    MbBufferSimpleFactory plain(initialState(), heap);
    MbBuffer first = plain.create("first", 1000);
    MbBuffer second = plain.create("second", 1000);
    EXPECT_EQ(first.getAlignment().getAlignmentMask(), 127u);
    EXPECT_EQ(first.getAlignment().getOffsetMask(), 0u);
    EXPECT_EQ(first.getAlignment().getOffsetPattern(), 0u);
    {
        MbBufferWrGuardImp const guard(first);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(guard.getMemory()) % 128, 0u);
        std::memset(guard.getMemory(), 'x', 1000);
    }
    {
        MbBufferRdGuardImp const guard(first);
        EXPECT_EQ(static_cast<char const *>(guard.getMemory())[999], 'x');
    }
    {
        MbBufferWrGuardImp const guard(second);
        std::memset(guard.getMemory(), 'y', 1000);
    }
    EXPECT_EQ(stateOf(first), "Unloaded");
    // The plain protocol does not bring the contents back, so they are undefined.
    MbBufferWrGuardImp const guard(first);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(guard.getMemory()) % 128, 0u);
    std::memset(guard.getMemory(), 'z', 1000);
}

TEST_F(MbBufferTest, GuardsGiveTheDataAsASpan)
{
    static_assert(std::is_same_v<decltype(std::declval<MbBufferRdGuardImp>().getData()),
                                 std::span<std::byte const>>);
    static_assert(std::is_same_v<decltype(std::declval<MbBufferWrGuardImp>().getData()),
                                 std::span<std::byte>>);
    {
        MbBufferWrGuardImp const guard(buffer);
        EXPECT_EQ(guard.getData().data(), guard.getMemory());
        EXPECT_EQ(guard.getData().size(), static_cast<std::size_t>(buffer.getSize()));
        guard.getData().back() = std::byte{7};
    }
    MbBufferRdGuardImp const guard(buffer);
    EXPECT_EQ(guard.getData().data(), guard.getMemory());
    EXPECT_EQ(guard.getData().size(), static_cast<std::size_t>(buffer.getSize()));
    EXPECT_EQ(guard.getData().back(), std::byte{7});
}

TEST_F(MbBufferTest, NullGuardsHaveNoData)
{
    EXPECT_THROW(static_cast<void>(MbBufferRdGuardImp().getData()), RCEx::ExNullPtr);
    EXPECT_THROW(static_cast<void>(MbBufferWrGuardImp().getData()), RCEx::ExNullPtr);
}

TEST(MbProtocol, GivesItsMemoryAsASpan)
{
    struct Protocol : MbProtocol
    {
        using MbProtocol::getData;
    };
    char memory[5] = {};
    std::span<std::byte> const data = Protocol::getData(memory, sizeof memory);
    EXPECT_EQ(static_cast<void *>(data.data()), memory);
    EXPECT_EQ(data.size(), sizeof memory);
}

TEST_F(MbBufferTest, RegionCanBeSetAsASpan)
{
    // 7 bytes behind a multiple of 64: the data, at a multiple of 64, begins 57 bytes later.
    alignas(64) std::byte memory[512];
    std::span<std::byte> const region(memory + 7, 300);
    MbBufferImp &imp = *buffer.getImp();
    imp.setRegion(region);
    EXPECT_EQ(imp.getRegionStart(), reinterpret_cast<std::uintptr_t>(memory + 7));
    EXPECT_EQ(imp.getRegionEnd(), reinterpret_cast<std::uintptr_t>(memory + 307));
    EXPECT_EQ(imp.getDataStart(), reinterpret_cast<std::uintptr_t>(memory + 64));
    imp.clearRegion();
}

TEST_F(MbBufferTest, RegionHasRoomForTheAlignment)
{
    MbBuffer plain = factory.create("plain", 1000);
    MbBufferRdGuardImp const guard(plain);
    MbBufferImp const &imp = *plain.getImp();
    EXPECT_EQ(imp.getRegionEnd() - imp.getRegionStart(), 1127u);
    EXPECT_EQ(imp.getDataEnd() - imp.getDataStart(), 1000u);
    EXPECT_EQ(imp.getDataStart() % 128, 0u);
    EXPECT_LE(imp.getRegionStart(), imp.getDataStart());
    EXPECT_LE(imp.getDataEnd(), imp.getRegionEnd());
    EXPECT_EQ(guard.getMemory(), reinterpret_cast<void const *>(imp.getDataStart()));
}

// ---- the protocol's defaults

class Chain : public MbProtocol
{
public:
    explicit Chain(Journal &log) : _log(log) {}
    void reload(void *, std::uint64_t size) override { tell("reload", size); }
    void unload(void *, std::uint64_t size) override { tell("unload", size); }
    void asyncReloadSucceeded() override { _log.add("asyncReloadSucceeded"); }
    void asyncReloadFailed() override { _log.add("asyncReloadFailed"); }

    bool fails = false;

private:
    void tell(char const *what, std::uint64_t size)
    {
        _log.add(what + std::string(" ") + std::to_string(size));
        if (fails)
            throw 1; // not derived from any exception class
    }

    Journal &_log;
};

struct RecordingHandle : LkAsyncHandle
{
    explicit RecordingHandle(Journal &log) : _log(log) {}
    void performSucceeded() override { _log.add("succeeded"); }
    void performFailed() override { _log.add("failed"); }

private:
    Journal &_log;
};

TEST(MbProtocol, LoadsByReloadingAndSynchsByUnloading)
{
    Journal log;
    Chain protocol(log);
    RecordingHandle handle(log);
    protocol.load(nullptr, 1);
    protocol.asyncLoad(nullptr, 2, &handle);
    protocol.asyncReload(nullptr, 3, &handle);
    protocol.sync(nullptr, 4);
    protocol.asyncSync(nullptr, 5, &handle);
    protocol.asyncLoadSucceeded();
    protocol.asyncLoadFailed();
    EXPECT_EQ(log.take(),
              (Lines{"reload 1", "reload 2", "succeeded", "reload 3", "succeeded", "unload 4",
                     "unload 5", "succeeded", "asyncReloadSucceeded", "asyncReloadFailed"}));
}

TEST(MbProtocol, ReportsAFailureToTheHandleAndDropsIt)
{
    Journal log;
    Chain protocol(log);
    protocol.fails = true;
    RecordingHandle handle(log);
    protocol.asyncLoad(nullptr, 2, &handle);
    protocol.asyncReload(nullptr, 3, &handle);
    protocol.asyncSync(nullptr, 5, &handle);
    EXPECT_EQ(log.take(),
              (Lines{"reload 2", "failed", "reload 3", "failed", "unload 5", "failed"}));
    EXPECT_THROW(protocol.load(nullptr, 1), int);
    EXPECT_THROW(protocol.sync(nullptr, 1), int);
}

TEST(MbProtocol, DoesNothingElseByItself)
{
    Journal log;
    MbProtocol protocol;
    RecordingHandle handle(log);
    protocol.load(nullptr, 0);
    protocol.reload(nullptr, 0);
    protocol.unload(nullptr, 0);
    protocol.free(nullptr, 0);
    protocol.unlocked(nullptr, 0);
    protocol.markDirty(nullptr, 0);
    protocol.sync(nullptr, 0);
    protocol.asyncSyncSucceeded();
    protocol.asyncSyncFailed();
    protocol.asyncReloadSucceeded();
    protocol.asyncReloadFailed();
    protocol.asyncLoad(nullptr, 0, &handle);
    protocol.asyncSync(nullptr, 0, &handle);
    EXPECT_EQ(log.take(), (Lines{"succeeded", "succeeded"}));
}

// ---- texts of the failures

TEST(MbEx, HasItsTexts)
{
    MbEx::ExIllegalTransition const transition("f", 1, "b", "unlock()", "Loaded");
    EXPECT_STREQ(transition.what(),
                 "Illegal transition: buffer b received event unlock() from state Loaded.");
    MbEx::ExInvalidArgument const argument("f", 1, "x");
    EXPECT_STREQ(argument.what(), "Invalid argument: x.");
    MbEx::ExRangeError const range("f", 1, "x");
    EXPECT_STREQ(range.what(), "Out of range: x.");
    MbEx::ExNotEnoughMemory const memory("f", 1, "x.");
    EXPECT_STREQ(memory.what(), "Not enough memory: x..");
    static_assert(std::is_base_of_v<std::logic_error, MbEx::ExIllegalTransition>);
    static_assert(std::is_base_of_v<std::invalid_argument, MbEx::ExInvalidArgument>);
    static_assert(std::is_base_of_v<std::range_error, MbEx::ExRangeError>);
    static_assert(std::is_base_of_v<std::range_error, MbEx::ExNotEnoughMemory>);
    // A long name does not overrun the text, and its beginning is kept.
    MbEx::ExIllegalTransition const longName("f", 1, std::string(100000, 'n').c_str(), "e", "s");
    EXPECT_EQ(std::string(longName.what()).find("Illegal transition: buffer nnn"), 0u);
}

} // namespace
} // namespace ZvTest
