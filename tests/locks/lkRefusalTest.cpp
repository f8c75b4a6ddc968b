// Tests of every report of a failed system call. The linker redirects the library's calls of the
// platform here.

#include "locks/lockTestUtil.h"
#include "platform/services.h"
#include "resmgt/locks.h"
#include "resmgt/locks/lkSingleton.imp.h"
#include "testing/failures.h"
#include "testing/threadHook.h"
#include "zvbase/exSysError.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace {

constexpr DWORD REFUSED = 4711;

/// The service that fails on the calling thread, and the number of calls that succeed before that.
thread_local std::string_view refusing;
thread_local int nbBefore = 0;
thread_local DWORD answer = WAIT_FAILED;
/// Called at the refusal.
constinit thread_local ZvTest::ThreadHook<void()> whenRefused;
/// Called when the calling thread's next wait for an event or a semaphore has ended.
constinit thread_local ZvTest::ThreadHook<void()> whenWoken;
/// Called before the calling thread's next release of a mutex.
constinit thread_local ZvTest::ThreadHook<void()> whenReleasing;
thread_local int nbWakeCalls = 0;
thread_local int nbSignals = 0;
thread_local int nbCloseCalls = 0;
thread_local int nbSemaphoreReleases = 0;
thread_local int nbSleepCalls = 0;
/// Time-out of the calling thread's last wait that takes one.
thread_local DWORD lastLimit = INFINITE;

bool refuses(std::string_view service)
{
    if (refusing != service || nbBefore-- > 0)
        return false;
    refusing = {};
    if (auto const happen = whenRefused.take())
        (*happen)();
    ::SetLastError(REFUSED);
    return true;
}

/// Lets the `nb`-th call of a service fail, once, on this thread.
void refuse(std::string_view service, int nb = 1, DWORD waitAnswer = WAIT_FAILED)
{
    refusing = service;
    nbBefore = nb - 1;
    answer = waitAnswer;
}

/// Lets the calling thread fail to take the mutex again after its next wait.
void refuseMutexWhenWoken()
{
    whenWoken = [] { refuse("WaitForSingleObject", 1, WAIT_ABANDONED); };
}

/// Returns `result`. After a wait for an event or a semaphore, first calls `whenWoken`.
template <class Result>
Result after(std::string_view service, Result result)
{
    if (service == "WaitForSingleObjectEx")
        if (auto const happen = whenWoken.take())
            (*happen)();
    return result;
}

HANDLE releasing(HANDLE mutex)
{
    if (auto const happen = whenReleasing.take())
        (*happen)();
    return mutex;
}

HANDLE releasingSemaphore(HANDLE semaphore)
{
    ++nbSemaphoreReleases;
    return semaphore;
}

HANDLE closing(HANDLE handle)
{
    ++nbCloseCalls;
    return handle;
}

DWORD noted(DWORD milliseconds)
{
    if (milliseconds != INFINITE)
        lastLimit = milliseconds;
    return milliseconds;
}

} // namespace

#define ZV_WRAP(Result, Name, Symbol, Parameters, Arguments, Refused)                              \
    extern "C" Result __real_##Symbol Parameters;                                                  \
    extern "C" Result __wrap_##Symbol Parameters                                                   \
    {                                                                                              \
        if (!refuses(#Name))                                                                       \
            return after(#Name, __real_##Symbol Arguments);                                        \
        return Refused;                                                                            \
    }

using Security = SECURITY_ATTRIBUTES;

ZV_WRAP(HANDLE, CreateMutex, _ZN10ZvPlatform12CreateMutexAEPNS_19SECURITY_ATTRIBUTESEiPKc,
        (Security * s, BOOL owned, char const *name), (s, owned, name), nullptr)
ZV_WRAP(HANDLE, CreateEvent, _ZN10ZvPlatform12CreateEventAEPNS_19SECURITY_ATTRIBUTESEiiPKc,
        (Security * s, BOOL manual, BOOL state, char const *name), (s, manual, state, name),
        nullptr)
ZV_WRAP(HANDLE, CreateSemaphore, _ZN10ZvPlatform16CreateSemaphoreAEPNS_19SECURITY_ATTRIBUTESEiiPKc,
        (Security * s, LONG count, LONG maximum, char const *name), (s, count, maximum, name),
        nullptr)
ZV_WRAP(BOOL, ReleaseMutex, _ZN10ZvPlatform12ReleaseMutexEPv, (HANDLE h), (releasing(h)), FALSE)
ZV_WRAP(BOOL, ReleaseSemaphore, _ZN10ZvPlatform16ReleaseSemaphoreEPviPi,
        (HANDLE h, LONG count, LONG *previous), (releasingSemaphore(h), count, previous), FALSE)
ZV_WRAP(DWORD, WaitForSingleObject, _ZN10ZvPlatform19WaitForSingleObjectEPvj,
        (HANDLE h, DWORD milliseconds), (h, noted(milliseconds)), answer)
ZV_WRAP(DWORD, WaitForSingleObjectEx, _ZN10ZvPlatform21WaitForSingleObjectExEPvji,
        (HANDLE h, DWORD milliseconds, BOOL alertable), (h, noted(milliseconds), alertable), answer)
ZV_WRAP(BOOL, SetEvent, _ZN10ZvPlatform8SetEventEPv, (HANDLE h), (h),
        (__real__ZN10ZvPlatform8SetEventEPv(h), FALSE))
// The handle is closed even if the call is refused.
ZV_WRAP(BOOL, CloseHandle, _ZN10ZvPlatform11CloseHandleEPv, (HANDLE h), (closing(h)),
        (__real__ZN10ZvPlatform11CloseHandleEPv(closing(h)), ::SetLastError(REFUSED), FALSE))

extern "C" void __real__ZN10ZvPlatform16WakeByAddressAllEPv(void *address);
extern "C" void __wrap__ZN10ZvPlatform16WakeByAddressAllEPv(void *address)
{
    ++nbWakeCalls;
    __real__ZN10ZvPlatform16WakeByAddressAllEPv(address);
}

extern "C" void __real__ZNK2Zv16LkCondVarWindows6signalEv(Zv::LkCondVarWindows const *condVar);
extern "C" void __wrap__ZNK2Zv16LkCondVarWindows6signalEv(Zv::LkCondVarWindows const *condVar)
{
    ++nbSignals;
    __real__ZNK2Zv16LkCondVarWindows6signalEv(condVar);
}

extern "C" void __real__ZN10ZvPlatform5SleepEj(DWORD milliseconds);
extern "C" void __wrap__ZN10ZvPlatform5SleepEj(DWORD milliseconds)
{
    EXPECT_EQ(milliseconds, 0u);
    ++nbSleepCalls;
    __real__ZN10ZvPlatform5SleepEj(milliseconds);
}

namespace ZvTest {

using namespace Zv;

namespace {

class Refused : public testing::Test
{
protected:
    void TearDown() override
    {
        EXPECT_EQ(refusing, "") << "was never called";
        refusing = {};
    }
};

constexpr char const *RET = "ret == WAIT_OBJECT_0 || ret == WAIT_TIMEOUT";
constexpr char const *RETAKE =
    "::WaitForSingleObject( externalMutex.getImp().getMutex(), INFINITE ) == WAIT_OBJECT_0";

TEST_F(Refused, MutexCannotBeMade)
{
    LkMutexAttr::getDefaultAttr();
    refuse("CreateMutex");
    EXPECT_EQ(failedSystemCall(REFUSED, [] { LkMutex mutex("m"); }), "_mutex != NULL");
}

TEST_F(Refused, MutexCannotBeClosed)
{
    EXPECT_EQ(failedSystemCall(REFUSED,
                               [] {
                                   LkMutex mutex("m");
                                   refuse("CloseHandle");
                               }),
              "::CloseHandle( _mutex )");
}

// A mutex calls its services only if another thread holds it.
TEST_F(Refused, MutexCannotBeTaken)
{
    LkMutex const mutex("m");
    std::binary_semaphore isHeld(0), mayGo(0);
    {
        Joined holder([&] {
            ::WaitForSingleObject(mutex.getImp().getMutex(), INFINITE);
            isHeld.release();
            mayGo.acquire();
            ::ReleaseMutex(mutex.getImp().getMutex());
        });
        isHeld.acquire();
        refuse("WaitForSingleObject");
        EXPECT_EQ(failedSystemCall(REFUSED, [&] { mutex.lock(); }),
                  "::WaitForSingleObject( _mutex, INFINITE ) == WAIT_OBJECT_0");
        EXPECT_FALSE(mutex.isLocked());
        mayGo.release();
    }
}

TEST_F(Refused, MutexCannotBeReleased)
{
    LkMutex const mutex("m");
    mutex.lock();
    Joined([&] {
        refuse("ReleaseMutex");
        EXPECT_EQ(failedSystemCall(REFUSED, [&] { mutex.unlock(); }), "::ReleaseMutex( _mutex )");
    });
    EXPECT_FALSE(mutex.isLocked()) << "the flag goes first";
    mutex.unlock();
}

TEST_F(Refused, MutexSpinsUntilItsTriesAreUsedUpAndThenWaits)
{
    LkMutex const mutex("m");
    refuse("WaitForSingleObject", 1, WAIT_TIMEOUT);
    EXPECT_TRUE(mutex.spinLock(1));
    EXPECT_TRUE(mutex.isLocked());
    mutex.unlock();
}

TEST_F(Refused, ConditionVariableCannotBeMade)
{
    LkCondVarAttr::getDefaultAttr();
    refuse("CreateSemaphore");
    EXPECT_EQ(failedSystemCall(REFUSED, [] { LkCondVar condVar("c"); }),
              "_sema = ::CreateSemaphore( NULL, 0, 0x7fffffff, NULL )");
    nbCloseCalls = 0;
    refuse("CreateEvent");
    EXPECT_EQ(failedSystemCall(REFUSED, [] { LkCondVar condVar("c"); }),
              "_waitersDone = ::CreateEvent( NULL, false, false, NULL )");
    EXPECT_EQ(nbCloseCalls, 1) << "the semaphore stays open";
}

TEST_F(Refused, ConditionVariableCannotBeClosed)
{
    EXPECT_EQ(failedSystemCall(REFUSED,
                               [] {
                                   LkCondVar condVar("c");
                                   nbCloseCalls = 0;
                                   refuse("CloseHandle");
                               }),
              "::CloseHandle( _sema )");
    EXPECT_EQ(nbCloseCalls, 2) << "the event stays open";
    EXPECT_EQ(failedSystemCall(REFUSED,
                               [] {
                                   LkCondVar condVar("c");
                                   refuse("CloseHandle", 2);
                               }),
              "::CloseHandle( _waitersDone )");
}

TEST_F(Refused, ConditionWaitFails)
{
    LkMutex const mutex("m");
    LkCondVar const condVar("c");
    {
        LkGuard<LkMutex const> guard(mutex);
        refuse("WaitForSingleObjectEx");
        EXPECT_EQ(failedSystemCall(REFUSED, [&] { condVar.wait(guard); }), RET);
        EXPECT_TRUE(mutex.isLocked()) << "the guard has it still";
        EXPECT_FALSE(elsewhere([&] { return mutex.tryLock(); }));
    }
    condVar.broadcast(); // counts no waiter
    EXPECT_TRUE(elsewhere([&] { return mutex.tryLock() && (mutex.unlock(), true); }));
}

TEST_F(Refused, ConditionWaitCannotTakeTheMutexAgain)
{
    LkMutex const mutex("m");
    LkCondVar const condVar("c");
    mutex.lock();
    refuse("WaitForSingleObject");
    EXPECT_EQ(failedSystemCall(REFUSED, [&] { static_cast<void>(condVar.timedWait(mutex, 0.0)); }),
              RETAKE);
}

/// Waits for a broadcast, and has a service refused when the wait ends. Returns the text of the
/// failed assertion.
std::string refusedWaiter(std::string_view service, int nb)
{
    LkMutex const mutex("m");
    LkCondVar const condVar("c");
    mutex.lock();
    Joined broadcaster([&] {
        {
            LkGuard<LkMutex const> untilSomebodyWaits(mutex);
        }
        condVar.broadcast();
    });
    refuse(service, nb);
    return failedSystemCall(REFUSED, [&] { condVar.wait(mutex); });
}

TEST_F(Refused, LastWaiterOfABroadcastCannotLeave)
{
    char const * const text = "::PulseEvent( _waitersDone ) && ::WaitForSingleObjectEx( "
                              "externalMutex.getImp().getMutex(), "
                              "INFINITE, FALSE ) == WAIT_OBJECT_0";
    EXPECT_EQ(refusedWaiter("WaitForSingleObjectEx", 2), text);
    EXPECT_EQ(refusedWaiter("SetEvent", 1), text);
}

TEST_F(Refused, BroadcastFails)
{
    LkMutex const mutex("m");
    LkCondVar const condVar("c");
    std::binary_semaphore isHeld(0);
    Joined waiter([&] {
        LkGuard<LkMutex const> guard(mutex);
        isHeld.release();
        condVar.wait(guard);
    });
    isHeld.acquire();
    {
        LkGuard<LkMutex const> untilItWaits(mutex);
    }
    refuse("ReleaseSemaphore");
    EXPECT_EQ(failedSystemCall(REFUSED, [&] { condVar.broadcast(); }),
              "::ReleaseSemaphore( _sema, _nbWaiters, 0 )");
    refuse("WaitForSingleObject");
    EXPECT_EQ(failedSystemCall(REFUSED, [&] { condVar.broadcast(); }),
              "::WaitForSingleObject( _waitersDone, INFINITE ) == WAIT_OBJECT_0");
}

/// Broadcast that is held in the middle: its waiter was woken and cannot leave yet.
class HeldBroadcast
{
public:
    /// Calls `before` before the wait.
    explicit HeldBroadcast(
        std::function<void(LkMutex const &, LkCondVar const &)> const &before = nullptr)
    {
        if (before)
            before(mutex, condVar);
        _waiter = std::make_unique<Watched>([this] {
            LkGuard<LkMutex const> guard(mutex);
            whenWoken = [this] {
                _isWoken.release();
                _mayLeave.acquire();
            };
            condVar.wait(guard);
        });
        _waiter->waitUntilAsleep();
        _broadcaster = std::make_unique<Watched>([this] {
            condVar.broadcast();
            hasReturned = true;
            _mayEnd.acquire();
        });
        _isWoken.acquire();
        _broadcaster->waitUntilAsleep();
    }
    ~HeldBroadcast() { end(); }
    void end()
    {
        if (!_waiter)
            return;
        _mayLeave.release();
        _mayEnd.release();
        _broadcaster.reset();
        _waiter.reset();
    }

    LkMutex const mutex{"m"};
    LkCondVar const condVar{"c"};
    std::atomic<bool> hasReturned = false;

private:
    std::binary_semaphore _isWoken{0};
    std::binary_semaphore _mayLeave{0};
    std::binary_semaphore _mayEnd{0};
    std::unique_ptr<Watched> _waiter;
    std::unique_ptr<Watched> _broadcaster;
};

TEST(LkCondVarBroadcast, ReturnsWhenItsWaitersHaveLeft)
{
    HeldBroadcast broadcast;
    EXPECT_FALSE(broadcast.hasReturned);
}

TEST(LkCondVarBroadcast, IsNotDisturbedByASignal)
{
    HeldBroadcast broadcast;
    nbSemaphoreReleases = 0;
    broadcast.condVar.signal();
    EXPECT_EQ(nbSemaphoreReleases, 0) << "a newcomer would take it";
}

TEST(LkCondVarBroadcast, BlocksNewWaitersDuringABroadcast)
{
    HeldBroadcast broadcast;
    Watched newcomer([&] {
        LkGuard<LkMutex const> guard(broadcast.mutex);
        static_cast<void>(broadcast.condVar.timedWait(guard, 0.0));
    });
    newcomer.waitUntilAsleep();
    EXPECT_FALSE(elsewhere([&] { return broadcast.mutex.tryLock(); })) << "it waits already";
    broadcast.end();
    newcomer.join();
}

TEST_F(Refused, BroadcastThatFailedDoesNotEndTheNext)
{
    HeldBroadcast broadcast([](LkMutex const &mutex, LkCondVar const &condVar) {
        Watched waiter([&] {
            LkGuard<LkMutex const> guard(mutex);
            condVar.wait(guard);
        });
        waiter.waitUntilAsleep();
        refuse("WaitForSingleObject");
        whenRefused = [&] { waiter.join(); };
        EXPECT_EQ(failedSystemCall(REFUSED, [&] { condVar.broadcast(); }),
                  "::WaitForSingleObject( _waitersDone, INFINITE ) == WAIT_OBJECT_0");
    });
    EXPECT_FALSE(broadcast.hasReturned);
}

TEST_F(Refused, EventFails)
{
    refuse("CreateEvent");
    EXPECT_EQ(failedSystemCall(REFUSED, [] { LkEvent event("e", false); }), "_event!= NULL");
    EXPECT_EQ(failedSystemCall(REFUSED,
                               [] {
                                   LkEvent event("e", false);
                                   refuse("CloseHandle");
                               }),
              "::CloseHandle( _event )");
    LkEvent const event("e", true);
    refuse("WaitForSingleObject");
    EXPECT_EQ(failedSystemCall(REFUSED, [&] { event.wait(); }),
              "::WaitForSingleObject( _event, INFINITE ) == WAIT_OBJECT_0");
    refuse("WaitForSingleObject");
    EXPECT_EQ(failedSystemCall(REFUSED, [&] { static_cast<void>(event.timedWait(0.0)); }), RET);
}

TEST_F(Refused, PulseFails)
{
    refuse("CreateEvent");
    EXPECT_EQ(failedSystemCall(REFUSED, [] { LkPulse pulse("p", LkPulse::WAKE_ALL); }),
              "_event!= NULL");
    refuse("CreateSemaphore");
    EXPECT_EQ(failedSystemCall(REFUSED, [] { LkPulse pulse("p", LkPulse::WAKE_ONE); }),
              "_event!= NULL");
    for (auto const type : {LkPulse::WAKE_ONE, LkPulse::WAKE_ALL})
        EXPECT_EQ(failedSystemCall(REFUSED,
                                   [type] {
                                       LkPulse pulse("p", type);
                                       refuse("CloseHandle");
                                   }),
                  "::CloseHandle( _event )");
}

TEST_F(Refused, PulseWaitFailsAndTheGuardStillHasItsMutex)
{
    LkMutex const mutex("m");
    LkPulse const pulse("p", LkPulse::WAKE_ALL);
    {
        LkGuard<LkMutex const> guard(mutex);
        refuse("WaitForSingleObjectEx");
        whenRefused = [&] { elsewhere([&] { return mutex.lock() && (mutex.unlock(), true); }); };
        EXPECT_EQ(failedSystemCall(REFUSED, [&] { pulse.wait(guard); }), RET);
        EXPECT_TRUE(mutex.isLocked());
        refuse("ReleaseMutex");
        EXPECT_EQ(failedSystemCall(REFUSED, [&] { pulse.wait(guard); }),
                  "::ReleaseMutex( externalMutex.getImp().getMutex() )");
    }
    mutex.lock();
    pulse.pulse();
    refuse("WaitForSingleObject");
    EXPECT_EQ(failedSystemCall(REFUSED, [&] { pulse.wait(mutex); }), RETAKE);
    mutex.lock(); // it is free, but its flag is still set
    mutex.unlock();
}

TEST_F(Refused, PulseWaitWithoutALimitCannotTimeOut)
{
    LkMutex const mutex("m");
    LkPulse const pulse("p", LkPulse::WAKE_ALL);
    LkGuard<LkMutex const> guard(mutex);
    refuse("WaitForSingleObjectEx", 1, WAIT_TIMEOUT);
    EXPECT_EQ(failedAssertion([&] { pulse.wait(guard); }),
              "wait_internal( externalMutex, INFINITE )");
}

/// Has another thread take the mutex and end while it holds it.
void abandon(LkMutex const &mutex)
{
    std::thread([&] { mutex.lock(); }).join();
}

TEST_F(Refused, WaitThatFindsItsMutexAbandonedFailsAndTheGuardReleasesIt)
{
    LkMutex const mutex("m");
    LkCondVar const condVar("c");
    LkPulse const pulse("p", LkPulse::WAKE_ONE);
    LkWaitable const * const waitables[] = {&condVar, &pulse};
    for (LkWaitable const *waitable : waitables) {
        {
            LkGuard<LkMutex const> guard(mutex);
            refuse("WaitForSingleObjectEx", 1, WAIT_OBJECT_0);
            whenRefused = [&] { abandon(mutex); };
            EXPECT_EQ(failedAssertion([&] { waitable->wait(guard); }), RETAKE);
            EXPECT_FALSE(elsewhere([&] { return mutex.tryLock(); }));
        }
        EXPECT_TRUE(elsewhere([&] { return mutex.tryLock() && (mutex.unlock(), true); }));
    }
}

TEST_F(Refused, WriterThatCannotWaitBlocksNoOther)
{
    LkRwLock lock("l");
    lock.readLock();
    refuse("WaitForSingleObjectEx");
    EXPECT_EQ(failedSystemCall(REFUSED, [&] { lock.writeLock(); }), RET);
    EXPECT_EQ(dumpOf(lock), "name l rwLock 1 wr wait 0 rd wait 0");
    EXPECT_TRUE(lock.tryReadLock());
    lock.unlock();
    lock.unlock();
    EXPECT_TRUE(lock.tryWriteLock());
    lock.unlock();
}

TEST_F(Refused, WriterThatCannotWaitCallsTheReadersThatItKeptOut)
{
    LkRwLock lock("l");
    lock.readLock();
    std::unique_ptr<Watched> reader;
    refuse("WaitForSingleObjectEx");
    whenRefused = [&] {
        reader = std::make_unique<Watched>([&] {
            lock.readLock();
            lock.unlock();
        });
        reader->waitUntilAsleep();
        EXPECT_EQ(dumpOf(lock), "name l rwLock 1 wr wait 1 rd wait 1");
    };
    EXPECT_EQ(failedSystemCall(REFUSED, [&] { lock.writeLock(); }), RET);
    reader->join();
    lock.unlock();
    EXPECT_EQ(dumpOf(lock), "name l rwLock 0 wr wait 0 rd wait 0");
}

TEST_F(Refused, WriterThatFailsAfterItsCallCallsTheNext)
{
    LkRwLock lock("l");
    lock.readLock();
    Watched failing([&] {
        refuseMutexWhenWoken();
        EXPECT_EQ(failedSystemCall(REFUSED, [&] { lock.writeLock(); }), RETAKE);
    });
    failing.waitUntilAsleep();
    Watched next([&] {
        lock.writeLock();
        lock.unlock();
    });
    next.waitUntilAsleep();
    lock.unlock();
    failing.join();
    next.join();
    EXPECT_EQ(dumpOf(lock), "name l rwLock 0 wr wait 0 rd wait 0");
}

TEST_F(Refused, ReaderThatCannotWaitIsNoLongerCounted)
{
    LkRwLock lock("l");
    lock.writeLock();
    refuse("ReleaseMutex");
    EXPECT_EQ(failedSystemCall(REFUSED, [&] { lock.readLock(); }),
              "::ReleaseMutex( externalMutex.getImp().getMutex() )");
    EXPECT_EQ(dumpOf(lock), "name l rwLock -1 wr wait 0 rd wait 0");
    lock.unlock();
    EXPECT_TRUE(lock.tryWriteLock());
    lock.unlock();
}

TEST_F(Refused, TicketStaysValidIfItsHolderCannotWait)
{
    LkTicket ticket("t");
    long long mine = 0;
    refuse("ReleaseMutex");
    EXPECT_EQ(failedSystemCall(REFUSED, [&] { ticket.waitForNextTicket(mine); }),
              "::ReleaseMutex( externalMutex.getImp().getMutex() )");
    EXPECT_EQ(mine, 0);
    ticket.next();
    EXPECT_FALSE(ticket.waitForNextTicket(mine));
}

TEST_F(Refused, SemaphoreHasNoWaiterAfterAFailedWait)
{
    LkSema sema("s", 0);
    nbSignals = 0;
    sema.post();
    EXPECT_TRUE(sema.tryWait());
    for (int i = 0; i < 2; ++i) {
        refuse("WaitForSingleObjectEx");
        EXPECT_EQ(failedSystemCall(REFUSED,
                                   [&] { i ? sema.wait() : static_cast<void>(sema.timedWait(1)); }),
                  RET);
        sema.post();
        EXPECT_TRUE(sema.tryWait());
    }
    EXPECT_EQ(nbSignals, 0);
}

TEST_F(Refused, SemaphoreWaiterThatFailsAfterItsSignalSignalsTheNext)
{
    LkSema sema("s", 0);
    Watched failing([&] {
        refuseMutexWhenWoken();
        EXPECT_EQ(failedSystemCall(REFUSED, [&] { sema.wait(); }), RETAKE);
    });
    failing.waitUntilAsleep();
    Watched next([&] { sema.wait(); });
    next.waitUntilAsleep();
    sema.post();
}

TEST_F(Refused, SemaphoreWokenInVainWaitsTheWholeTimeAgain)
{
    LkSema sema("s", 0);
    refuse("WaitForSingleObjectEx", 1, WAIT_OBJECT_0);
    lastLimit = INFINITE;
    EXPECT_FALSE(sema.timedWait(0.002));
    EXPECT_EQ(lastLimit, 2u);
}

TEST_F(Refused, GateTakesBackAnArrivalThatCannotWait)
{
    LkGate gate("g", 2, false);
    refuse("WaitForSingleObjectEx");
    EXPECT_EQ(failedSystemCall(REFUSED, [&] { gate.ready(); }), RET);
    EXPECT_NE(dumpOf(gate).find("num ready: 0\n"), std::string::npos);
    Watched first([&] { gate.ready(); });
    first.waitUntilAsleep();
    gate.ready();
}

TEST_F(Refused, GateTakesItsKeepersCallBackWithTheLastArrival)
{
    LkGate gate("g", 1, true);
    refuse("WaitForSingleObjectEx");
    EXPECT_EQ(failedSystemCall(REFUSED, [&] { gate.ready(); }), RET);
    EXPECT_FALSE(gate.isGateReady());
    Joined gatee([&] { gate.ready(); });
    LkGateKeeperGuard const keeper(gate);
    EXPECT_NE(dumpOf(gate).find("num ready: 1\n"), std::string::npos);
}

TEST_F(Refused, GateThatHasOpenedTakesNoArrivalBack)
{
    LkGate gate("g", 2, false);
    Watched first([&] {
        refuseMutexWhenWoken();
        EXPECT_EQ(failedSystemCall(REFUSED, [&] { gate.ready(); }), RETAKE);
    });
    first.waitUntilAsleep();
    gate.ready();
    first.join();
    EXPECT_NE(dumpOf(gate).find("num ready: 0\n"), std::string::npos);
}

TEST_F(Refused, KeeperThatArrivesUncalledFails)
{
    LkGate gate("g", 1, true);
    refuse("WaitForSingleObjectEx", 1, WAIT_OBJECT_0);
    gate.ready();
    refuse("WaitForSingleObject", 1, WAIT_OBJECT_0);
    EXPECT_EQ(failedAssertion([&] { LkGateKeeperGuard keeper(gate); }),
              "(*_gateKeeper).tryWait() == false");
}

// Two threads check whether there is room at the gate before either of them is counted.
TEST_F(Refused, KeeperOfAnOvercrowdedGateFails)
{
    LkGate gate("g", 2, true);
    auto const comeAndGo = [&] {
        refuse("WaitForSingleObjectEx", 1, WAIT_OBJECT_0);
        gate.ready();
    };
    std::vector<std::unique_ptr<Watched>> others;
    whenReleasing = [&] {
        for (int i = 0; i < 2; ++i) {
            others.push_back(std::make_unique<Watched>(comeAndGo));
            others.back()->waitUntilAsleep();
        }
    };
    comeAndGo();
    others.clear();
    EXPECT_EQ(failedAssertion([&] { LkGateKeeperGuard keeper(gate); }), "_numReady == _numGatees");
}

TEST_F(Refused, PulsePoolDestroysAllPulsesEvenIfOneFails)
{
    EXPECT_EQ(failedSystemCall(REFUSED,
                               [&] {
                                   LkPulsePool pool;
                                   ObjPtr<LkPulse> pulses[3];
                                   for (ObjPtr<LkPulse> &pulse : pulses)
                                       pulse = pool.getPulse();
                                   for (ObjPtr<LkPulse> &pulse : pulses)
                                       pool.recyclePulse(pulse);
                                   nbCloseCalls = 0;
                                   refuse("CloseHandle", 2);
                               }),
              "::CloseHandle( _event )");
    EXPECT_EQ(nbCloseCalls, 3);
}

TEST_F(Refused, KeeperOfAGateCannotBeMade)
{
    refuse("CreateSemaphore");
    EXPECT_EQ(failedAssertion([] { LkGate gate("g", 1, true); }),
              "!useGateKeeper || _gateKeeper->getErrno() == 0");
}

TEST_F(Refused, SemaphoreCannotBeClosedOrTried)
{
    EXPECT_EQ(failedSystemCall(REFUSED,
                               [] {
                                   LkUnnamedSema sema("s", 0);
                                   refuse("CloseHandle");
                               }),
              "::CloseHandle( _sema )");
    LkUnnamedSema sema("s", 1);
    refuse("WaitForSingleObject");
    EXPECT_EQ(failedSystemCall(REFUSED, [&] { static_cast<void>(sema.tryWait()); }), RET);
    refuse("CreateSemaphore");
    LkNamedSema const failed("zvRefused", 0, LkSemaTypes::CREATE, nullptr);
    EXPECT_EQ(failed.getErrno(), int{REFUSED});
    refuse("CreateSemaphore");
    LkUnnamedSema const unnamed("s", 0);
    EXPECT_EQ(unnamed.getErrno(), int{REFUSED});
}

} // namespace

struct RefusedSingleton
{};

} // namespace ZvTest

ZV_DEFINE_SINGLETON(ZvTest::RefusedSingleton, ZvTest::RefusedSingleton);

namespace ZvTest {
namespace {

TEST_F(Refused, CreationLockOfASingletonFails)
{
    for (char const *service :
         {"CreateMutex", "WaitForSingleObject", "ReleaseMutex", "CloseHandle"}) {
        refuse(service);
        EXPECT_THROW(LkSingleton<RefusedSingleton>::init(), ExSysErrorWindows) << service;
        EXPECT_NO_THROW(LkSingleton<RefusedSingleton>::init())
            << "the lock was kept after " << service;
    }
}

TEST(TimedWait, HandsItsSecondsOnAsRoundedMilliseconds)
{
    LkMutex const mutex("m");
    LkCondVar const condVar("c");
    LkPulse const counted("p", LkPulse::WAKE_ONE);
    LkPulse const latched("p", LkPulse::WAKE_ALL);
    LkEvent const event("e", false);
    LkSema sema("s", 0);
    LkGuard<LkMutex const> guard(mutex);
    struct
    {
        double seconds;
        DWORD milliseconds;
    } const limits[] = {{0.0004, 0}, {0.0005, 1}, {0.0014, 1}, {0.0015, 2}, {-1.0, 0}};
    for (auto const &limit : limits) {
        auto const limitOf = [&](auto wait) {
            lastLimit = INFINITE;
            EXPECT_FALSE(wait());
            return lastLimit;
        };
        double const seconds = limit.seconds;
        EXPECT_EQ(limitOf([&] { return condVar.timedWait(guard, seconds); }), limit.milliseconds);
        EXPECT_EQ(limitOf([&] { return counted.timedWait(guard, seconds); }), limit.milliseconds);
        EXPECT_EQ(limitOf([&] { return latched.timedWait(mutex, seconds); }), limit.milliseconds);
        EXPECT_EQ(limitOf([&] { return event.timedWait(seconds); }), limit.milliseconds);
        EXPECT_EQ(limitOf([&] { return sema.timedWait(seconds); }), limit.milliseconds);
    }
}

TEST(TimedWait, HandsADurationOnAsRoundedMilliseconds)
{
    using namespace std::chrono_literals;
    LkMutex const mutex("m");
    LkCondVar const condVar("c");
    LkPulse const counted("p", LkPulse::WAKE_ONE);
    LkEvent const event("e", false);
    LkSema sema("s", 0);
    LkGuard const guard(mutex);
    auto const limitOf = [&](auto wait) {
        lastLimit = INFINITE;
        EXPECT_FALSE(wait());
        return lastLimit;
    };
    EXPECT_EQ(limitOf([&] { return condVar.timedWait(guard, 1499us); }), 1u);
    EXPECT_EQ(limitOf([&] { return condVar.timedWait(mutex, 1500us); }), 2u);
    EXPECT_EQ(limitOf([&] { return counted.timedWait(guard, 2ms); }), 2u);
    EXPECT_EQ(limitOf([&] { return counted.timedWait(mutex, -1s); }), 0u);
    EXPECT_EQ(limitOf([&] { return event.timedWait(3ms); }), 3u);
    EXPECT_EQ(limitOf([&] { return sema.timedWait(3ms); }), 3u);
    EXPECT_FALSE(counted.timedWaitNextPulse(guard, 0ms));
    EXPECT_FALSE(counted.timedWaitNextPulse(mutex, 1us));
    counted.pulse();
    EXPECT_TRUE(counted.timedWait(guard, std::chrono::hours::max()));
}

TEST(LkUtil, YieldsIfTheEnvironmentAsksForIt)
{
    auto const countOf = [](void (*yield)()) {
        nbSleepCalls = 0;
        yield();
        return nbSleepCalls;
    };
    EXPECT_EQ(countOf(&MtUtil::yield), 1);
    EXPECT_EQ(countOf(&LkUtil::performYield), 1);
    LkUtil::disableYield();
    EXPECT_EQ(countOf(&LkUtil::yield), 0);
    LkUtil::enableYield();
    EXPECT_EQ(countOf(&LkUtil::yield), 1);
    LkUtil::disableYield();
}

TEST_F(Refused, PulseWithoutAWaiterMakesNoCallToWake)
{
    LkMutex const mutex("m");
    LkPulse const pulse("p", LkPulse::WAKE_ALL);
    nbWakeCalls = 0;
    {
        LkGuard<LkMutex const> guard(mutex);
        pulse.pulse();
        pulse.wait(guard);
        EXPECT_FALSE(pulse.timedWaitNextPulse(guard, 0.0));
        refuse("ReleaseMutex");
        EXPECT_EQ(failedSystemCall(REFUSED, [&] { pulse.waitNextPulse(guard); }),
                  "::ReleaseMutex( externalMutex.getImp().getMutex() )");
        pulse.pulse();
        EXPECT_EQ(nbWakeCalls, 0);
    }
    std::binary_semaphore isHeld(0);
    Joined sleeper([&] {
        LkGuard<LkMutex const> guard(mutex);
        isHeld.release();
        pulse.waitNextPulse(guard);
    });
    isHeld.acquire();
    {
        LkGuard<LkMutex const> untilItWaits(mutex);
    }
    pulse.pulse();
    EXPECT_EQ(nbWakeCalls, 1);
    sleeper.join();
    pulse.pulse();
    EXPECT_EQ(nbWakeCalls, 1) << "a thread that was woken is still counted";
}

} // namespace
} // namespace ZvTest
