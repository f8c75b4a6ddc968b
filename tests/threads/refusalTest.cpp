// Tests of every report of a failed service. The linker redirects the library's calls of the
// platform here.

#include "platform/services.h"
#include "resmgt/threads/mtEx.h"
#include "resmgt/threads/mtPriorityMgr.h"
#include "resmgt/threads/mtSpecificData.h"
#include "resmgt/threads/mtThreadMgr.h"
#include "resmgt/threads/priority.h"
#include "resmgt/threads/rtPriorities.h"
#include "testing/allocations.h"
#include "testing/childProcess.h"
#include "testing/failures.h"
#include "testing/threadHook.h"
#include "threads/threadTesting.h"
#include "zvbase/lgLog.h"
#include "zvbase/lgTrace.h"
#include "zvbase/trace.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <sstream>
#include <string_view>
#include <thread>
#include <utility>

namespace {

constexpr DWORD REFUSED = 4711;

/// The service that fails on the calling thread, how often, and with which error.
thread_local std::string_view refusing;
thread_local int nbRefusals = 0;
thread_local DWORD error = REFUSED;
thread_local int nbCalls = 0; // of the service above
thread_local BOOL pretending = FALSE;
thread_local DWORD given = REALTIME_PRIORITY_CLASS; // the class that SetPriorityClass really sets
thread_local std::uint64_t asked = 0;               // the argument of the last refused call

bool refuses(std::string_view service)
{
    if (refusing != service)
        return false;
    ++nbCalls;
    if (nbRefusals == 0)
        return false;
    --nbRefusals;
    ::SetLastError(error);
    return true;
}

/// Lets the next calls of a service fail on this thread.
void refuse(std::string_view service, int count = 1, DWORD code = REFUSED)
{
    refusing = service;
    nbRefusals = count;
    error = code;
    nbCalls = 0;
    pretending = FALSE;
}

/// Lets the next call of a service do nothing and report success.
void pretend(std::string_view service)
{
    refuse(service);
    pretending = TRUE;
}

DWORD mapped(DWORD milliseconds)
{
    auto const map = ZvTest::mapTimeout.load();
    return map && milliseconds != INFINITE ? map(milliseconds) : milliseconds;
}

} // namespace

#define ZV_WRAP(Result, Name, Symbol, Parameters, Arguments, Refused)                              \
    extern "C" Result __real_##Symbol Parameters;                                                  \
    extern "C" Result __wrap_##Symbol Parameters                                                   \
    {                                                                                              \
        if (!refuses(#Name))                                                                       \
            return __real_##Symbol Arguments;                                                      \
        return Refused;                                                                            \
    }

using Security = SECURITY_ATTRIBUTES;

constinit thread_local ZvTest::ThreadHook<void()> duringCreateThread;

ZV_WRAP(HANDLE, CreateThread, _ZN10ZvPlatform12CreateThreadEPNS_19SECURITY_ATTRIBUTESEmPFjPvES2_jPj,
        (Security * s, SIZE_T size, LPTHREAD_START_ROUTINE f, void *argument, DWORD flags,
         DWORD *id),
        ((duringCreateThread ? duringCreateThread() : void(), s), size, f, argument, flags, id),
        (asked = size, nullptr))
ZV_WRAP(HANDLE, CreateSemaphoreA, _ZN10ZvPlatform16CreateSemaphoreAEPNS_19SECURITY_ATTRIBUTESEiiPKc,
        (Security * s, LONG initial, LONG maximum, char const *name), (s, initial, maximum, name),
        nullptr)
ZV_WRAP(BOOL, DuplicateHandle, _ZN10ZvPlatform15DuplicateHandleEPvS0_S0_PS0_jij,
        (HANDLE p, HANDLE h, HANDLE q, HANDLE *t, DWORD access, BOOL inherit, DWORD options),
        (p, h, q, t, access, inherit, options), FALSE)
ZV_WRAP(BOOL, TerminateThread, _ZN10ZvPlatform15TerminateThreadEPvj, (HANDLE h, DWORD code),
        (h, code), FALSE)
ZV_WRAP(BOOL, SetPriorityClass, _ZN10ZvPlatform16SetPriorityClassEPvj, (HANDLE h, DWORD c), (h, c),
        pretending)
extern "C" DWORD __real__ZN10ZvPlatform16GetPriorityClassEPv(HANDLE process);
extern "C" DWORD __wrap__ZN10ZvPlatform16GetPriorityClassEPv(HANDLE process)
{
    return pretending && refusing == "SetPriorityClass"
               ? given
               : __real__ZN10ZvPlatform16GetPriorityClassEPv(process);
}
ZV_WRAP(BOOL, SetThreadPriority, _ZN10ZvPlatform17SetThreadPriorityEPvi, (HANDLE h, int level),
        (h, level), FALSE)
ZV_WRAP(DWORD, WaitForSingleObject, _ZN10ZvPlatform19WaitForSingleObjectEPvj, (HANDLE h, DWORD ms),
        (h, mapped(ms)), WAIT_FAILED)
std::atomic<int> nbPlacings{0}; // of all threads

ZV_WRAP(DWORD_PTR, SetThreadAffinityMask, _ZN10ZvPlatform21SetThreadAffinityMaskEPvm,
        (HANDLE h, DWORD_PTR m), ((++nbPlacings, h), m),
        (asked = m, pretending ? DWORD_PTR{1} : DWORD_PTR{0}))
ZV_WRAP(BOOL, GetProcessAffinityMask, _ZN10ZvPlatform22GetProcessAffinityMaskEPvPmS1_,
        (HANDLE h, DWORD_PTR *p, DWORD_PTR *s), (h, p, s), FALSE)
// Frees in any case, even if it reports a failure.
ZV_WRAP(BOOL, TlsFree, _ZN10ZvPlatform7TlsFreeEj, (DWORD i), (i),
        (__real__ZN10ZvPlatform7TlsFreeEj(i), ::SetLastError(REFUSED), FALSE))
ZV_WRAP(DWORD, TlsAlloc, _ZN10ZvPlatform8TlsAllocEv, (), (), TLS_OUT_OF_INDEXES)
ZV_WRAP(BOOL, TlsSetValue, _ZN10ZvPlatform11TlsSetValueEjPv, (DWORD i, void *value), (i, value),
        FALSE)

namespace ZvTest {

using namespace Zv;

namespace {

class ThreadRefused : public ThreadTest
{
protected:
    void TearDown() override
    {
        EXPECT_EQ(nbRefusals, 0) << refusing << " was never called";
        refusing = {};
    }
};

TEST_F(ThreadRefused, ThreadThatCannotBeMadeIsNotRunningAndCanStartLater)
{
    ObjPtr<MtThread> const thread = makeWaitingThread();
    refuse("CreateThread");
    EXPECT_EQ(failedSystemCall(REFUSED, [&] { thread->start(); }), "threadHandle != NULL");
    EXPECT_FALSE(thread->isRunning());
    thread->start();
    EXPECT_TRUE(thread->isRunning());
}

TEST_F(ThreadRefused, ThreadWithoutItsSemaphoresIsNotMade)
{
    auto const nbThreads = MtThreadMgr::getInstance().getNbThreads();
    refuse("CreateSemaphoreA");
    EXPECT_EQ(failedAssertion([&] { ObjPtr<MtThread> const thread = makeWaitingThread(); }),
              "_started.getErrno() == 0 && _created.getErrno() == 0");
    EXPECT_EQ(MtThreadMgr::getInstance().getNbThreads(), nbThreads);
}

TEST_F(ThreadRefused, TheSystemIsAskedForTheStackThatWasAskedFor)
{
    for (unsigned size : {0u, 4096u, 0x10001u}) {
        ObjPtr<MtThread> const thread = makeThread(
            "stack", [](TestProtocol &, MtThread *) {}, size);
        refuse("CreateThread");
        EXPECT_EQ(failedSystemCall(REFUSED, [&] { thread->start(); }), "threadHandle != NULL");
        EXPECT_EQ(asked, size ? size : 65536u);
    }
}

TEST_F(ThreadRefused, ProcessorNumbersShiftABitModulo32)
{
    std::binary_semaphore ready{0};
    ObjPtr<MtThread> const thread = makeThread("placed", [&](TestProtocol &protocol, MtThread *) {
        ready.release(); // it has set its processor
        protocol.waitForStop();
    });
    thread->start();
    ready.acquire();
    for (auto [number, mask] : {std::pair(0, 1u), std::pair(31, 1u << 31), std::pair(33, 2u)}) {
        pretend("SetThreadAffinityMask");
        thread->setProcessorNb(number);
        EXPECT_EQ(asked, mask);
        EXPECT_EQ(thread->getProcessorNb(), number);
    }
    DWORD_PTR process = 0, system = 0;
    ASSERT_TRUE(::GetProcessAffinityMask(::GetCurrentProcess(), &process, &system));
    pretend("SetThreadAffinityMask");
    thread->setProcessorNb(-1);
    EXPECT_EQ(asked, process);
}

TEST_F(ThreadRefused, ThreadRunsEvenIfItsLevelCannotBeSet)
{
    ObjPtr<MtThread> const thread = makeWaitingThread();
    refuse("SetThreadPriority");
    EXPECT_EQ(failedSystemCall(REFUSED, [&] { thread->start(); }),
              "::SetThreadPriority( _threadHandle, _priorityValue )");
    EXPECT_TRUE(thread->isRunning());
    thread->stop();
    thread->join();
    EXPECT_FALSE(thread->isRunning());
}

TEST_F(ThreadRefused, LevelOfARunningThreadCannotBeSet)
{
    ObjPtr<MtThread> const thread = makeWaitingThread();
    thread->start();
    refuse("SetThreadPriority");
    EXPECT_EQ(failedSystemCall(REFUSED,
                               [&] {
                                   PriorityRelation const relation(
                                       "level", RtPriorities::getInstance().getInterruptPriority(),
                                       PriorityRelation::EQUAL, thread->getPriority());
                               }),
              "::SetThreadPriority( _threadHandle, _priorityValue )");
}

TEST_F(ThreadRefused, LevelThatWasRefusedIsAskedForAgain)
{
    ObjPtr<MtThread> const thread = makeWaitingThread();
    thread->start();
    Priority node("moved", MtPriorityMgr::getInstance(), 0);
    PriorityRelation const relation("moved", node, PriorityRelation::EQUAL, thread->getPriority());
    auto const isAtItsLevel = [&] {
        std::ostringstream os;
        thread->dump(os);
        return os.str().find(" prio   6 ") != std::string::npos;
    };
    refuse("SetThreadPriority");
    EXPECT_EQ(failedSystemCall(REFUSED, [&] { node.setPriority(6); }),
              "::SetThreadPriority( _threadHandle, _priorityValue )");
    EXPECT_FALSE(isAtItsLevel());
    MtPriorityMgr::getInstance().notify(PriorityMgr::VALUE_CHANGED);
    EXPECT_TRUE(isAtItsLevel());
}

TEST_F(ThreadRefused, LevelThatWasRefusedAtTheStartIsAskedForAgain)
{
    ObjPtr<MtThread> const thread = makeWaitingThread();
    Priority node("moved", MtPriorityMgr::getInstance(), 6);
    PriorityRelation const relation("moved", node, PriorityRelation::EQUAL, thread->getPriority());
    refuse("SetThreadPriority", 1);
    EXPECT_EQ(failedSystemCall(REFUSED, [&] { thread->start(); }),
              "::SetThreadPriority( _threadHandle, _priorityValue )");
    nbCalls = 0;
    node.setPriority(5);
    EXPECT_EQ(nbCalls, 1);
}

TEST_F(ThreadRefused, AThreadThatCannotBeMadeLeavesItsLockToOthers)
{
    ObjPtr<MtThread> const thread = makeWaitingThread();
    refuse("CreateThread");
    EXPECT_EQ(failedSystemCall(REFUSED, [&] { thread->start(); }), "threadHandle != NULL");
    std::thread([&] { thread->getProtocol(); }).join();
}

TEST_F(ThreadRefused, StartHoldsTheThreadsLock)
{
    ObjPtr<MtThread> const thread = makeWaitingThread();
    std::unique_ptr<Blocked> other;
    duringCreateThread = [&] { other = std::make_unique<Blocked>([&] { thread->getProtocol(); }); };
    thread->start();
    duringCreateThread = nullptr;
    EXPECT_TRUE(other->wasBlocked());
}

TEST_F(ThreadRefused, LevelThatDoesNotChangeMakesNoCall)
{
    ObjPtr<MtThread> const thread = makeWaitingThread();
    Priority &baseLine = RtPriorities::getInstance().getBaseLinePriority();
    thread->start();
    refuse("SetThreadPriority", 0);
    {
        PriorityRelation const relation("level", baseLine, PriorityRelation::EQUAL,
                                        thread->getPriority());
        EXPECT_EQ(nbCalls, 0);
    }
    {
        PriorityRelation const relation("level", baseLine, PriorityRelation::LESS,
                                        thread->getPriority());
        EXPECT_EQ(nbCalls, 1);
    }
    EXPECT_EQ(nbCalls, 2);
}

/// Priority whose notification fails once.
class DeafPriority : public Priority
{
public:
    DeafPriority() : Priority("deaf", MtPriorityMgr::getInstance(), NOT_SET, AT_EACH_SOLVING)
    {
        join();
    }
    ~DeafPriority() noexcept(false) override { leave(); }
    void updatePriority(int) override
    {
        if (std::exchange(isDeaf, false))
            throw MtEx::ExNotImplemented("f", 1, "hearing");
    }
    bool isDeaf = false;
};

TEST_F(ThreadRefused, AnUnchangedLevelMakesNoCall)
{
    ObjPtr<MtThread> const thread = makeWaitingThread();
    thread->start();
    DeafPriority deaf;
    deaf.isDeaf = true;
    PriorityMgr &mgr = MtPriorityMgr::getInstance();
    EXPECT_THROW(mgr.notify(PriorityMgr::VALUE_CHANGED), MtEx::ExNotImplemented);
    refuse("SetThreadPriority", 0);
    mgr.notify(PriorityMgr::VALUE_CHANGED); // notifies all nodes again
    EXPECT_EQ(nbCalls, 0);
}

TEST_F(ThreadRefused, WaitForTheEndFailsAndTheThreadCanBeJoinedLater)
{
    ObjPtr<MtThread> const thread = makeWaitingThread();
    thread->start();
    thread->stop();
    refuse("WaitForSingleObject");
    EXPECT_EQ(failedSystemCall(REFUSED, [&] { thread->join(); }), "waitResult == WAIT_OBJECT_0");
    EXPECT_TRUE(thread->isRunning());
    refuse("DuplicateHandle");
    EXPECT_EQ(
        failedSystemCall(REFUSED, [&] { thread->join(); }),
        "::DuplicateHandle( process, handle, process, &_handle, 0, FALSE, DUPLICATE_SAME_ACCESS )");
    thread->join();
    EXPECT_FALSE(thread->isRunning());
}

TEST_F(ThreadRefused, ThreadThatCannotBeKilledRunsOn)
{
    std::binary_semaphore ready{0};
    ObjPtr<MtThread> const thread =
        makeThread("tough", [&](TestProtocol &protocol, MtThread *self) {
            self->enableCancel();
            ready.release();
            protocol.waitForStop();
        });
    thread->start();
    ready.acquire();
    refuse("TerminateThread");
    EXPECT_EQ(failedSystemCall(REFUSED, [&] { thread->cancel(); }),
              "::TerminateThread( _threadHandle, 0 )");
    EXPECT_TRUE(thread->isRunning());
}

TEST_F(ThreadRefused, ThreadCannotBePlaced)
{
    ObjPtr<MtThread> const thread = makeWaitingThread();
    thread->start();
    refuse("SetThreadAffinityMask");
    EXPECT_EQ(failedSystemCall(REFUSED, [&] { thread->setProcessorNb(0); }),
              "::SetThreadAffinityMask( _threadHandle, mask )");
    refuse("GetProcessAffinityMask");
    EXPECT_EQ(failedSystemCall(REFUSED, [&] { thread->setProcessorNb(-1); }),
              "::GetProcessAffinityMask( processHandle, &threadAffinity, &systemAffinity )");
    EXPECT_EQ(thread->getProcessorNb(), -1);
}

TEST_F(ThreadRefused, AThreadWithoutAProcessorOfItsOwnIsNotPlaced)
{
    ObjPtr<MtThread> const thread = makeThread("anywhere", [](TestProtocol &, MtThread *) {});
    nbPlacings = 0;
    thread->start();
    thread->join();
    EXPECT_EQ(nbPlacings, 0);
    thread->setProcessorNb(0);
    thread->setProcessorNb(-1);
    thread->start();
    thread->join();
    EXPECT_EQ(nbPlacings, 0);
}

TEST_F(ThreadRefused, TheMainThreadThatCouldNotBeAdoptedCanBeLater)
{
    ChildProcess child({"--child", "adopt"});
    ChildProcess::End const end = child.await();
    EXPECT_EQ(end.code, 0) << end.output;
}

TEST_F(ThreadRefused, RealTimeThatFailsForAnotherReasonThanPrivilegeIsAnAssertion)
{
    MtThreadMgr &manager = MtThreadMgr::getInstance();
    refuse("SetPriorityClass", 2);
    EXPECT_EQ(failedSystemCall(REFUSED, [&] { manager.setRealTime(true); }),
              "::SetPriorityClass( _processHandle, REALTIME_PRIORITY_CLASS )");
    EXPECT_FALSE(manager.isRealTime());
}

TEST_F(ThreadRefused, RealTimeWithoutPrivilegeIsIgnoredIfItIsNotRequired)
{
    MtThreadMgr &manager = MtThreadMgr::getInstance();
    refuse("SetPriorityClass", 1, ERROR_PRIVILEGE_NOT_HELD);
    EXPECT_NO_THROW(manager.setRealTime(true));
    EXPECT_FALSE(manager.isRealTime());
}

TEST_F(ThreadRefused, RealTimeIsOffIfTheSystemGrantsLess)
{
    MtThreadMgr &manager = MtThreadMgr::getInstance();
    pretend("SetPriorityClass");
    given = HIGH_PRIORITY_CLASS;
    EXPECT_NO_THROW(manager.setRealTime(true));
    given = REALTIME_PRIORITY_CLASS;
    EXPECT_FALSE(manager.isRealTime());
}

TEST_F(ThreadRefused, RealTimeThatCannotBeLeftStaysOn)
{
    EXPECT_EXIT(
        {
            MtThreadMgr &manager = MtThreadMgr::getInstance();
            pretend("SetPriorityClass"); // so that it works without the privilege
            manager.setRealTime(true);
            refuse("SetPriorityClass");
            std::string const failed =
                failedSystemCall(REFUSED, [&] { manager.setRealTime(false); });
            bool const isGood =
                failed == "::SetPriorityClass( _processHandle, NORMAL_PRIORITY_CLASS )" &&
                manager.isRealTime();
            std::_Exit(isGood ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

struct Value
{
    int value = 0;
};

TEST_F(ThreadRefused, ThreadLocalStorageThatIsRefusedFailsAnAssertion)
{
    refuse("TlsAlloc");
    EXPECT_EQ(failedSystemCall(REFUSED, [] { MtSpecificData<Value> const data("data"); }),
              "_tlsIndex != 0xFFFFFFFF");
    EXPECT_EQ(failedSystemCall(REFUSED,
                               [] {
                                   MtSpecificData<Value> const data("data");
                                   refuse("TlsFree");
                               }),
              "::TlsFree( _tlsIndex ) == TRUE");
    MtSpecificData<Value> const data("data");
    refuse("TlsSetValue");
    EXPECT_EQ(failedSystemCall(REFUSED, [&] { data.getPointee(); }),
              "::TlsSetValue( _tlsIndex, data ) != 0");
    EXPECT_TRUE(data.isNull());
    EXPECT_EQ(data->value, 0);
}

TEST_F(ThreadRefused, ALineAboutTheFailureToMakeItsQueueOrTagIsWrittenWithoutThem)
{
    static int nbLines;
    nbLines = 0;
    LgTrace::setOutput([](void *, char const *, std::size_t) { ++nbLines; }, nullptr);
    std::thread([] {
        refuse("TlsSetValue", 100000); // at every attempt
        LgTrace::print("line");
        ZV_TRACE(*Trace::MainTraceLevel, "line");
        EXPECT_GT(nbCalls, 0);
        EXPECT_LT(nbCalls, 20);
        refusing = {};
    }).join();
    LgLog::flush();
    LgTrace::setOutput(nullptr, nullptr);
    EXPECT_GE(nbLines, 2);
}

} // namespace

} // namespace ZvTest

int zvChildMain(int argc, char **argv);

/// Runs while no package is up and no manager of threads exists. Checks that the manager can be
/// created after its creation has failed.
int zvChildMain(int, char **)
{
    refuse("DuplicateHandle");
    std::string failed = ZvTest::failedAssertion([] { Zv::MtThreadMgr::getInstance(); });
    if (!failed.starts_with("::DuplicateHandle( processHandle, threadHandle, "))
        return 1;
    bool isMade = false;
    for (long nbGood = 0; !isMade; ++nbGood) {
        failed = ZvTest::failedAssertion([&isMade, nbGood] {
            ZvTest::FailingAllocation const failing(nbGood);
            try {
                Zv::MtThreadMgr::getInstance();
                isMade = true;
            } catch (std::bad_alloc const &) {
            }
        });
        if (!failed.empty())
            return 2;
    }
    return Zv::MtThreadMgr::findCurrentThread() ? 0 : 3;
}
