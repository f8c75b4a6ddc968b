// The smallest program for each kind of finding.
#include "simulated/scenario.h"

#include "zvbase/platform/interlocked.h"

#include <csignal>
#include <fcntl.h>
#include <pthread.h>
#include <stdexcept>
#include <unistd.h>

using namespace Zv::Simulated;
namespace Interlocked = ZvPlatform::Interlocked;

namespace {

/// A fault that the first schedule must find.
constexpr Fault always(char const *finding)
{
    return {.finding = finding, .byRandom = 1, .byPriority = 1};
}

HANDLE makeEvent()
{
    return ::CreateEventA(nullptr, FALSE, FALSE, nullptr);
}

} // namespace

KNOWN_FAULT(WaitsForNothing, always("deadlock"), {})
{
    ::WaitForSingleObject(makeEvent(), INFINITE);
}

/// A thread that only sleeps does not hide the deadlock of the first thread.
KNOWN_FAULT(WaitsForNothingWhileTimePasses, always("deadlock"), {.leftOver = {8, 1}})
{
    Worker ticking("ticking", [] {
        for (;;)
            ::Sleep(10);
    });
    ::WaitForSingleObject(makeEvent(), INFINITE);
}

KNOWN_FAULT(WaitsForWhatIsThere, always("waits for ever"), {})
{
    WaitingFor const stated("this holds", [] { return true; });
    ::WaitForSingleObject(makeEvent(), INFINITE);
}

KNOWN_FAULT(Spins, always("no progress"), {.bound = 5000})
{
    int flag = 0;
    while (!Interlocked::loadAcquire(flag)) {
    }
}

KNOWN_FAULT(ComputesForEver, (Fault{.finding = "computes for ever", .byRandom = 1}), {})
{
    // The system sends this signal when a schedule has used up its processor time.
    ::raise(SIGXCPU);
}

KNOWN_FAULT(ExceptionLeavesTheFirstThread, always("exception"), {})
{
    throw std::runtime_error("for nobody");
}

KNOWN_FAULT(ExceptionLeavesAThread, always("exception"), {})
{
    Worker thrower("thrower", [] { throw std::runtime_error("for nobody"); });
}

KNOWN_FAULT(ExceptionMeetsNoexcept, always("terminate"), {})
{
    auto const thrower = [] { throw std::runtime_error("for nobody"); };
    auto const caller = [&]() noexcept { thrower(); };
    caller();
}

KNOWN_FAULT(IsKilled, always("signal 9"), {})
{
    ::raise(SIGKILL);
}

KNOWN_FAULT(MutexLeftLocked, always("left locked"), {})
{
    ::CreateMutexA(nullptr, TRUE, nullptr);
}

KNOWN_FAULT(SectionLeftLocked, always("left locked"),
            {.notOnKernel = "the services of Linux keep no list of the sections of a thread"})
{
    static CRITICAL_SECTION section;
    ::InitializeCriticalSection(&section);
    ::EnterCriticalSection(&section);
}

KNOWN_FAULT(SectionLeftByAnother, always("not owner"),
            {.notOnKernel = "the services of Linux do not check the owner"})
{
    CRITICAL_SECTION section;
    ::InitializeCriticalSection(&section);
    ::LeaveCriticalSection(&section);
}

KNOWN_FAULT(SectionDeletedInUse, always("in use"),
            {.notOnKernel = "the services of Linux do not check the deletion of a section"})
{
    CRITICAL_SECTION section;
    ::InitializeCriticalSection(&section);
    ::EnterCriticalSection(&section);
    ::DeleteCriticalSection(&section);
}

KNOWN_FAULT(ThreadLeftAlive, always("left alive"), {})
{
    auto &worker = *new Worker("waiting", [] { ::WaitForSingleObject(makeEvent(), INFINITE); });
    static_cast<void>(worker);
}

KNOWN_FAULT(HandleLeftOpen, always("left over"), {})
{
    makeEvent();
}

KNOWN_FAULT(MemoryLeftBehind, always("leak"), {.leaks = true})
{
    static int * volatile kept = new int;
    static_cast<void>(kept);
}

KNOWN_FAULT(ForeignThread, always("foreign thread"), {})
{
    pthread_t thread;
    auto const run = [](void *) -> void * {
        ::Sleep(0);
        return nullptr;
    };
    ::pthread_create(&thread, nullptr, run, nullptr);
    ::pthread_join(thread, nullptr);
}

/// Can only be found if a time-out occurs although the other thread could run.
KNOWN_FAULT(TrustsATimeOut, (Fault{.finding = "does not hold", .byRandom = 200, .byPriority = 200}),
            {})
{
    HANDLE const event = makeEvent();
    Worker setter("setter", [&] { ::SetEvent(event); });
    HOLDS(::WaitForSingleObject(event, 1000) == WAIT_OBJECT_0);
    setter.join();
    ::CloseHandle(event);
}

/// Can only be found if the wait ends without a cause.
KNOWN_FAULT(TrustsAWakeUp, (Fault{.finding = "does not hold", .byRandom = 200, .byPriority = 200}),
            {.notOnKernel = "the services of Linux do not pass on a return without a cause"})
{
    std::uint32_t word = 0;
    std::uint32_t const undesired = 0;
    Worker waker("waker", [&] {
        ::Sleep(0);
        Interlocked::storeRelease(word, 1u);
        ::WakeByAddressAll(&word);
    });
    if (Interlocked::loadAcquire(word) == undesired) {
        ::WaitOnAddress(&word, const_cast<std::uint32_t *>(&undesired), sizeof word, INFINITE);
        HOLDS(Interlocked::loadAcquire(word) == 1);
    }
    waker.join();
}

/// Does not check the result of its last call. Can only be found if that call is made to fail.
KNOWN_FAULT(TrustsACall, (Fault{.finding = "does not hold", .byRefusal = 1}),
            {.notOnKernel = "no kernel refuses a semaphore without a name", .refusals = SEMAPHORES})
{
    MayBeRefused const refusals;
    for (int i = 0; i < 3; ++i) {
        HANDLE const semaphore = ::CreateSemaphoreA(nullptr, 1, 1, nullptr);
        HOLDS(::WaitForSingleObject(semaphore, 0) == WAIT_OBJECT_0 || i < 2);
        ::CloseHandle(semaphore);
    }
}

/// Depends on the number of the process, which the schedule does not determine.
KNOWN_FAULT(DependsOnTheProcess, (Fault{.finding = "not deterministic", .byRepetition = 5}), {})
{
    for (int i = ::getpid() % 1000; i > 0; --i)
        step("counting");
}

#ifdef __SANITIZE_THREAD__
/// The baton does not hide a data race from the thread sanitizer.
KNOWN_FAULT(DataRace, (Fault{.finding = "exit 66", .byRandom = 3, .byPriority = 3}), {})
{
    int shared = 0;
    Worker first("first", [&] { ++shared; });
    Worker second("second", [&] { ++shared; });
}
#endif
