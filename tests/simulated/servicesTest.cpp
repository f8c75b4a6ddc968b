// Programs of the services themselves: each wait object and the operations on it, from threads that
// meet at every point. On the simulated kernel they explore the services of Linux, on the simulated
// services they show that the programs are right.
#include "simulated/scenario.h"

#include "platform/services.h"
#include "zvbase/platform/interlocked.h"

#include <utility>

using namespace Zv::Simulated;
namespace Interlocked = ZvPlatform::Interlocked;

namespace {

/// A handle that is closed by the destructor.
class Owned
{
public:
    explicit Owned(HANDLE handle) : _handle(handle) { HOLDS(handle); }
    ~Owned() { close(); }
    Owned(Owned const &) = delete;
    Owned &operator=(Owned const &) = delete;

    operator HANDLE() const { return _handle; }
    void close()
    {
        if (_handle)
            HOLDS(::CloseHandle(std::exchange(_handle, nullptr)));
    }

private:
    HANDLE _handle;
};

struct Event : Owned
{
    explicit Event(bool manual = false) : Owned(::CreateEventA(nullptr, manual, FALSE, nullptr)) {}
};

struct Semaphore : Owned
{
    explicit Semaphore(LONG count = 0) : Owned(::CreateSemaphoreA(nullptr, count, 100, nullptr)) {}
};

struct Mutex : Owned
{
    Mutex() : Owned(::CreateMutexA(nullptr, FALSE, nullptr)) {}
};

struct Timer : Owned
{
    explicit Timer(bool manual = false) : Owned(::CreateWaitableTimerA(nullptr, manual, nullptr)) {}

    void set(LONG milliseconds, LONG period = 0)
    {
        LARGE_INTEGER due;
        due.QuadPart = -LONGLONG{milliseconds} * 10'000;
        HOLDS(::SetWaitableTimer(*this, &due, period, nullptr, nullptr, FALSE));
    }
};

/// Waits, and returns whether the wait has succeeded in time.
bool wait(HANDLE handle, DWORD milliseconds = INFINITE)
{
    DWORD const result = ::WaitForSingleObject(handle, milliseconds);
    HOLDS(result == WAIT_OBJECT_0 || result == WAIT_TIMEOUT);
    return result == WAIT_OBJECT_0;
}

void post(HANDLE semaphore, LONG count = 1)
{
    HOLDS(::ReleaseSemaphore(semaphore, count, nullptr));
}

void increment(std::uint32_t &counter)
{
    Interlocked::increment(counter);
}

} // namespace

// ---- events -------------------------------------------------------------------------------------

SIMULATED(EachSetOfAnEventWakesOne, {.onKernel = 300, .preemptions = 1})
{
    Event event;
    Semaphore woken;
    auto const body = [&] {
        HOLDS(wait(event));
        post(woken);
    };
    Worker first("first", body);
    Worker second("second", body);
    for (int i = 0; i < 2; ++i) {
        HOLDS(::SetEvent(event));
        HOLDS(wait(woken));
    }
}

SIMULATED(OneSetOfAManualEventWakesAll, {.onKernel = 300, .preemptions = 1})
{
    Event event(true);
    auto const body = [&] { HOLDS(wait(event)); };
    Worker first("first", body);
    Worker second("second", body);
    HOLDS(::SetEvent(event));
}

SIMULATED(TimeOutMeetsTheSetOfAnEvent, {.onKernel = 300})
{
    Event event;
    bool taken = false;
    Worker waiter("waiter", [&] { taken = wait(event, 1); });
    HOLDS(::SetEvent(event));
    waiter.join();
    HOLDS(taken != wait(event, 0));
}

SIMULATED(TimeOutOfOneMeetsTheSetForAnother, {.onKernel = 300})
{
    Event event;
    bool taken = false;
    Worker hasty("hasty", [&] { taken = wait(event, 1); });
    Worker patient("patient", [&] { HOLDS(wait(event)); });
    HOLDS(::SetEvent(event));
    hasty.join();
    if (taken)
        HOLDS(::SetEvent(event));
    patient.join();
    HOLDS(!wait(event, 0));
}

SIMULATED(EventIsResetWhileOthersWait, {.onKernel = 300})
{
    Event event(true);
    Worker waiter("waiter", [&] { wait(event, 1); });
    Worker resetting("resetting", [&] { HOLDS(::ResetEvent(event)); });
    HOLDS(::SetEvent(event));
    resetting.join();
    waiter.join();
    HOLDS(::ResetEvent(event));
    HOLDS(!wait(event, 0));
}

SIMULATED(ResetMeetsAWaiterOfAnEvent, {.onKernel = 300})
{
    Event event;
    Worker waiter("waiter", [&] { HOLDS(wait(event)); });
    Worker resetting("resetting", [&] { HOLDS(::ResetEvent(event)); });
    resetting.join();
    HOLDS(::SetEvent(event));
}

SIMULATED(PulseMeetsTimeOutAndSet, {.onKernel = 300})
{
    Event event;
    bool taken = false;
    Worker hasty("hasty", [&] { taken = wait(event, 1); });
    Worker patient("patient", [&] { HOLDS(wait(event)); });
    HOLDS(::PulseEvent(event));
    HOLDS(::SetEvent(event));
    hasty.join();
    // The hasty waiter may have got the set, while the pulse has reached no waiter.
    HOLDS(::SetEvent(event));
    patient.join();
}

SIMULATED(PulsesReachTheWaitersOfTheMoment, {.onKernel = 300})
{
    Event event(true);
    std::uint32_t woken = 0;
    auto const body = [&] {
        HOLDS(wait(event));
        increment(woken);
    };
    Worker first("first", body);
    Worker second("second", body);
    while (Interlocked::loadAcquire(woken) != 2) {
        HOLDS(::PulseEvent(event));
        HOLDS(!wait(event, 0));
        ::Sleep(1);
    }
}

SIMULATED(WaitsInTurnBuildCredit, {.onKernel = 300})
{
    Event ping, pong;
    Worker other("other", [&] {
        for (int i = 0; i < 4; ++i) {
            HOLDS(wait(ping));
            HOLDS(::SetEvent(pong));
        }
    });
    for (int i = 0; i < 4; ++i) {
        HOLDS(::SetEvent(ping));
        HOLDS(wait(pong));
    }
}

SIMULATED(WokenWaitersGoOnToAnotherQueue, {.onKernel = 300})
{
    Event event(true);
    Semaphore units;
    auto const body = [&] {
        HOLDS(wait(event));
        HOLDS(wait(units));
    };
    Worker first("first", body);
    Worker second("second", body);
    HOLDS(::SetEvent(event));
    post(units, 2);
    first.join();
    second.join();
    HOLDS(!wait(units, 0));
}

SIMULATED(TimedOutWaiterOfAnEventIsInItsNextQueue, {.onKernel = 1500})
{
    Event event, never;
    Worker waiter("waiter", [&] {
        wait(event, 1);
        HOLDS(!wait(never, 1));
    });
    HOLDS(::SetEvent(event));
}

SIMULATED(ThreeMeetAtTheQueueOfAnEvent, {.onKernel = 1000})
{
    Event event(true);
    auto const body = [&] {
        HOLDS(::PulseEvent(event));
        HOLDS(!wait(event, 0));
    };
    Worker first("first", body);
    Worker second("second", body);
    body();
}

SIMULATED(SpinsEndInASleep, {.onKernel = 300, .bound = 3000})
{
    Event ping, pong;
    Worker other("other", [&] {
        for (int i = 0; i < 5; ++i) {
            HOLDS(wait(ping));
            if (i == 4)
                ::Sleep(1000);
            HOLDS(::SetEvent(pong));
        }
    });
    for (int i = 0; i < 5; ++i) {
        HOLDS(::SetEvent(ping));
        HOLDS(wait(pong));
    }
}

// ---- semaphores ---------------------------------------------------------------------------------

SIMULATED(TimeOutsMeetTheReleaseOfASemaphore, {.onKernel = 300})
{
    Semaphore semaphore;
    std::uint32_t taken = 0;
    auto const body = [&] {
        if (wait(semaphore, 1))
            increment(taken);
    };
    Worker first("first", body);
    Worker second("second", body);
    post(semaphore);
    first.join();
    second.join();
    HOLDS(taken + wait(semaphore, 0) == 1);
    HOLDS(!wait(semaphore, 0));
}

SIMULATED(UnitsOfASemaphoreAreShared, {.onKernel = 300, .preemptions = 1})
{
    Semaphore semaphore(1);
    auto const body = [&] {
        HOLDS(wait(semaphore));
        post(semaphore);
    };
    Worker first("first", body);
    Worker second("second", body);
    body();
    first.join();
    second.join();
    HOLDS(wait(semaphore, 0) && !wait(semaphore, 0));
}

SIMULATED(ManyUnitsWakeMany, {.onKernel = 300})
{
    Semaphore semaphore;
    auto const body = [&] { HOLDS(wait(semaphore)); };
    Worker first("first", body);
    Worker second("second", body);
    Worker third("third", body);
    post(semaphore, 2);
    post(semaphore);
    first.join();
    second.join();
    third.join();
    HOLDS(!wait(semaphore, 0));
}

SIMULATED(NamedSemaphoreIsOpenedAndClosed, {.onKernel = 300})
{
    auto const body = [&] {
        Owned semaphore(::CreateSemaphoreA(nullptr, 0, 10, "program"));
        post(semaphore);
        HOLDS(wait(semaphore));
    };
    Worker first("first", body);
    Worker second("second", body);
    body();
}

SIMULATED(NamedSemaphoreWakesAndTimesOut, {.onKernel = 1500})
{
    Owned semaphore(::CreateSemaphoreA(nullptr, 0, 10, "program"));
    std::uint32_t taken = 0;
    Worker hasty("hasty", [&] { taken = wait(semaphore, 1); });
    Worker patient("patient", [&] { HOLDS(wait(semaphore)); });
    post(semaphore, 2);
    hasty.join();
    patient.join();
    HOLDS(taken + wait(semaphore, 0) == 1);
}

// ---- mutexes ------------------------------------------------------------------------------------

SIMULATED(MutexExcludes, {.onKernel = 300, .preemptions = 1})
{
    Mutex mutex;
    int inside = 0, rounds = 0;
    auto const body = [&] {
        for (int i = 0; i < 2; ++i) {
            HOLDS(wait(mutex));
            HOLDS(wait(mutex));
            HOLDS(++inside == 1);
            step("inside");
            ++rounds;
            --inside;
            HOLDS(::ReleaseMutex(mutex));
            HOLDS(::ReleaseMutex(mutex));
        }
    };
    Worker first("first", body);
    Worker second("second", body);
    body();
    first.join();
    second.join();
    HOLDS(rounds == 6);
}

SIMULATED(TimeOutMeetsTheReleaseOfAMutex, {.onKernel = 1000})
{
    Mutex mutex;
    HOLDS(wait(mutex));
    Worker hasty("hasty", [&] {
        if (wait(mutex, 1))
            HOLDS(::ReleaseMutex(mutex));
    });
    Worker patient("patient", [&] {
        HOLDS(wait(mutex));
        HOLDS(::ReleaseMutex(mutex));
    });
    HOLDS(::ReleaseMutex(mutex));
    hasty.join();
    patient.join();
    HOLDS(wait(mutex, 0));
    HOLDS(::ReleaseMutex(mutex));
}

SIMULATED(TimedOutWaiterOfAMutexIsInItsNextQueue, {.onKernel = 1500})
{
    Mutex mutex;
    Event event;
    HOLDS(wait(mutex));
    Worker waiter("waiter", [&] {
        if (wait(mutex, 1))
            HOLDS(::ReleaseMutex(mutex));
        HOLDS(wait(event));
    });
    HOLDS(::ReleaseMutex(mutex));
    HOLDS(::SetEvent(event));
}

SIMULATED(MutexThatIsAlwaysTakenAgain, {.onKernel = 300})
{
    Mutex mutex;
    bool stop = false;
    Worker busy("busy", [&] {
        do {
            HOLDS(wait(mutex));
            step("inside");
            HOLDS(::ReleaseMutex(mutex));
            ::Sleep(0);
        } while (!Interlocked::loadAcquire(stop));
    });
    HOLDS(wait(mutex));
    Interlocked::storeRelease(stop, true);
    HOLDS(::ReleaseMutex(mutex));
}

SIMULATED(AbandonedMutexGoesToOneWaiter, {.onKernel = 300})
{
    Mutex mutex;
    std::uint32_t abandoned = 0;
    Worker leaving("leaving", [&] { HOLDS(wait(mutex)); });
    leaving.join();

    auto const body = [&] {
        DWORD const result = ::WaitForSingleObject(mutex, INFINITE);
        HOLDS(result == WAIT_OBJECT_0 || result == WAIT_ABANDONED);
        if (result == WAIT_ABANDONED)
            increment(abandoned);
        HOLDS(::ReleaseMutex(mutex));
    };
    Worker first("first", body);
    Worker second("second", body);
    first.join();
    second.join();
    HOLDS(abandoned == 1);
}

SIMULATED(MutexIsAbandonedWhileOthersWait, {.onKernel = 300})
{
    Mutex mutex;
    Event held;
    Worker leaving("leaving", [&] {
        HOLDS(wait(mutex));
        HOLDS(::SetEvent(held));
    });
    HOLDS(wait(held));
    Worker other("other", [&] {
        DWORD const result = ::WaitForSingleObject(mutex, 1);
        HOLDS(result == WAIT_TIMEOUT || result == WAIT_ABANDONED);
        if (result == WAIT_ABANDONED)
            HOLDS(::ReleaseMutex(mutex));
    });
    other.join();
    leaving.join();
    HOLDS(::WaitForSingleObject(mutex, INFINITE) != WAIT_TIMEOUT);
    HOLDS(::ReleaseMutex(mutex));
}

// ---- threads that are killed --------------------------------------------------------------------

namespace {

/// Kills a thread, and waits for its end.
void kill(Worker &victim)
{
    HOLDS(::TerminateThread(victim.getHandle(), 7));
    HOLDS(wait(victim.getHandle(), 0));
    DWORD code = 0;
    HOLDS(::GetExitCodeThread(victim.getHandle(), &code) && (code == 7 || code == 0));
}

} // namespace

SIMULATED(OwnerIsKilled, {.onKernel = 300})
{
    Mutex mutex;
    Worker victim("victim", [&] {
        for (int i = 0; i < 3; ++i) {
            HOLDS(wait(mutex));
            step("inside");
            HOLDS(::ReleaseMutex(mutex));
        }
    });
    Worker other("other", [&] {
        HOLDS(::WaitForSingleObject(mutex, INFINITE) != WAIT_FAILED);
        HOLDS(::ReleaseMutex(mutex));
    });
    kill(victim);
    other.join();
    HOLDS(::WaitForSingleObject(mutex, 0) != WAIT_TIMEOUT);
    HOLDS(::ReleaseMutex(mutex));
}

SIMULATED(WaiterOfASemaphoreIsKilled, {.onKernel = 300})
{
    Semaphore semaphore;
    Worker victim("victim", [&] { HOLDS(wait(semaphore)); });
    Worker other("other", [&] { HOLDS(wait(semaphore)); });
    post(semaphore);
    kill(victim);
    // The victim may have died with its unit.
    post(semaphore);
    other.join();
}

SIMULATED(WaiterOfAMutexIsKilled, {.onKernel = 300})
{
    Mutex mutex;
    HOLDS(wait(mutex));
    auto const body = [&] {
        HOLDS(::WaitForSingleObject(mutex, INFINITE) != WAIT_FAILED);
        HOLDS(::ReleaseMutex(mutex));
    };
    Worker victim("victim", body);
    Worker other("other", body);
    HOLDS(::ReleaseMutex(mutex));
    kill(victim);
    other.join();
    HOLDS(::WaitForSingleObject(mutex, 0) != WAIT_TIMEOUT);
    HOLDS(::ReleaseMutex(mutex));
}

SIMULATED(WaiterOfAnEventIsKilled, {.onKernel = 300})
{
    Event event;
    Worker victim("victim", [&] { HOLDS(wait(event)); });
    Worker other("other", [&] { HOLDS(wait(event)); });
    HOLDS(::PulseEvent(event));
    kill(victim);
    HOLDS(::SetEvent(event));
    other.join();
}

SIMULATED(WaiterOfATimerOrAnAddressIsKilled, {.onKernel = 300})
{
    Timer timer;
    timer.set(1, 1);
    std::uint32_t word = 0;
    Worker victim("victim", [&] {
        std::uint32_t zero = 0;
        wait(timer);
        ::WaitOnAddress(&word, &zero, sizeof word, INFINITE);
        ::Sleep(1);
    });
    Worker other("other", [&] {
        for (std::uint32_t zero = 0; Interlocked::loadAcquire(word) == 0;)
            ::WaitOnAddress(&word, &zero, sizeof word, INFINITE);
        HOLDS(wait(timer));
    });
    kill(victim);
    Interlocked::storeRelease(word, 1u);
    ::WakeByAddressAll(&word);
    other.join();
}

SIMULATED(WaiterOfASectionIsKilled, {.onKernel = 300})
{
    CRITICAL_SECTION section;
    ::InitializeCriticalSection(&section);
    ::EnterCriticalSection(&section);
    Worker victim("victim", [&] { ::EnterCriticalSection(&section); });
    Worker other("other", [&] {
        ::EnterCriticalSection(&section);
        ::LeaveCriticalSection(&section);
    });
    kill(victim);
    ::LeaveCriticalSection(&section);
    other.join();
    ::DeleteCriticalSection(&section);
}

SIMULATED(ThreadIsKilledWhileItClosesAHandle, {.onKernel = 300})
{
    HANDLE const event = ::CreateEventA(nullptr, FALSE, FALSE, nullptr);
    HANDLE copy = nullptr;
    HOLDS(::DuplicateHandle(::GetCurrentProcess(), event, ::GetCurrentProcess(), &copy, 0, FALSE,
                            DUPLICATE_SAME_ACCESS));
    Worker victim("victim", [=] { ::CloseHandle(copy); });
    kill(victim);
    HOLDS(::PulseEvent(event));
    HOLDS(::CloseHandle(event));
    // The victim may have died before it closed its own.
    ::CloseHandle(copy);
}

SIMULATED(ThreadIsKilledInsideAnyService,
          {.onKernel = 300, .leftOver = {.objects = 3, .threads = 0}})
{
    Mutex mutex;
    Event event;
    Semaphore semaphore(1);
    Worker victim("victim", [&] {
        HOLDS(wait(mutex));
        ::CloseHandle(::CreateEventA(nullptr, FALSE, FALSE, nullptr));
        HOLDS(::SetEvent(event));
        wait(event, 0);
        HOLDS(::ReleaseMutex(mutex));
        wait(semaphore);
        post(semaphore);
        DWORD slot = ::TlsAlloc();
        ::TlsSetValue(slot, &slot);
        ::TlsFree(slot);
        ::SetThreadPriority(::GetCurrentThread(), 1);
        ::Sleep(1);
    });
    kill(victim);
    HOLDS(::WaitForSingleObject(mutex, INFINITE) != WAIT_TIMEOUT);
    HOLDS(::ReleaseMutex(mutex));
    post(semaphore);
    HOLDS(wait(semaphore));
    HOLDS(::SetEvent(event));
    HOLDS(wait(event));
    HOLDS(::TlsFree(::TlsAlloc()));
    Worker next("next", [&] { HOLDS(::SetThreadPriority(::GetCurrentThread(), 1)); });
}

SIMULATED(TwoKillEachOther, {.onKernel = 300})
{
    Worker *other = nullptr;
    Event go(true);
    Worker first("first", [&] {
        HOLDS(wait(go));
        ::TerminateThread(other->getHandle(), 7);
    });
    Worker second("second", [&] {
        HOLDS(wait(go));
        ::TerminateThread(first.getHandle(), 7);
    });
    other = &second;
    HOLDS(::SetEvent(go));
    first.join();
    second.join();
}

SIMULATED(ThreadIsKilledByTwo, {.onKernel = 300})
{
    Event never;
    Worker victim("victim", [&] { wait(never); });
    Worker killer("killer", [&] { HOLDS(::TerminateThread(victim.getHandle(), 7)); });
    kill(victim);
    killer.join();
}

// ---- handles ------------------------------------------------------------------------------------

SIMULATED(HandleIsClosedWhileAThreadWaits, {.onKernel = 300})
{
    Event event;
    Semaphore semaphore;
    Timer timer;
    for (Owned *object : {static_cast<Owned *>(&event), static_cast<Owned *>(&semaphore),
                          static_cast<Owned *>(&timer)}) {
        HANDLE const handle = *object;
        Worker waiter("waiter", [=] {
            DWORD const result = ::WaitForSingleObject(handle, 1);
            HOLDS(result == WAIT_TIMEOUT || result == WAIT_FAILED);
        });
        object->close();
    }
}

SIMULATED(MutexIsClosedWhileAThreadWaits, {.onKernel = 300})
{
    Mutex mutex;
    HANDLE const handle = mutex;
    Worker waiter("waiter", [=] {
        if (::WaitForSingleObject(handle, 1) == WAIT_OBJECT_0)
            ::ReleaseMutex(handle);
    });
    mutex.close();
}

SIMULATED(WaiterClosesTheObject, {.onKernel = 300})
{
    // A thread that has been woken may close the object at once.
    HANDLE const event = ::CreateEventA(nullptr, FALSE, FALSE, nullptr);
    Worker waiter("waiter", [=] {
        HOLDS(wait(event));
        HOLDS(::CloseHandle(event));
    });
    HOLDS(::SetEvent(event));
}

SIMULATED(NamedObjectsAreOpenedAndClosed, {.onKernel = 300})
{
    auto const body = [&] {
        Owned mutex(::CreateMutexA(nullptr, FALSE, "name"));
        HOLDS(wait(mutex));
        HOLDS(::ReleaseMutex(mutex));
    };
    Worker first("first", body);
    Worker second("second", body);
    body();
}

SIMULATED(EndOfAThreadIsWaitedForByTwo, {.onKernel = 300})
{
    Worker thread("thread", [] {});
    HANDLE copy = nullptr;
    HOLDS(::DuplicateHandle(::GetCurrentProcess(), thread.getHandle(), ::GetCurrentProcess(), &copy,
                            0, FALSE, DUPLICATE_SAME_ACCESS));
    Worker other("other", [=] {
        HOLDS(wait(copy));
        HOLDS(::CloseHandle(copy));
    });
    thread.join();
}

SIMULATED(SlotOfAClosedObjectIsNotReused, {.onKernel = 300})
{
    Event event;
    HANDLE const handle = event;
    Worker waiter("waiter", [=] { ::WaitForSingleObject(handle, 1); });
    event.close();
    Event next;
    Worker patient("patient", [&] { HOLDS(wait(next)); });
    waiter.join();
    HOLDS(::SetEvent(next));
}

SIMULATED(SlotsOfObjectsAreRecycled, {.onKernel = 600})
{
    {
        Event slots[6];
    }
    Event go;
    Worker other("other", [&] {
        Event first, second;
        first.close();
        HOLDS(wait(go));
        HOLDS(!wait(second, 0));
    });
    {
        Event first, second;
        HOLDS(::SetEvent(first));
        HOLDS(::SetEvent(second));
    }
    HOLDS(::SetEvent(go));
}

SIMULATED(ThreadIsNamedWhileItEnds, {.onKernel = 300})
{
    Worker thread("thread", [] {});
    HOLDS(::SetThreadDescription(thread.getHandle(), L"other") >= 0);
}

SIMULATED(ThreadBlocksAreRecycled, {.onKernel = 300})
{
    {
        Worker thread("thread", [] {});
    }
    Event go(true);
    std::uint32_t numbers[2] = {};
    auto const body = [&](std::uint32_t &number) {
        number = ::GetCurrentThreadId();
        HOLDS(wait(go));
    };
    Worker first("first", [&] { body(numbers[0]); });
    Worker second("second", [&] { body(numbers[1]); });
    HOLDS(::SetEvent(go));
    first.join();
    second.join();
    HOLDS(numbers[0] != numbers[1]);
}

// ---- addresses, sections, timers, slots ---------------------------------------------------------

SIMULATED(AddressIsWokenOneByOne, {.onKernel = 1000})
{
    std::uint32_t word = 0;
    auto const body = [&] {
        for (std::uint32_t zero = 0; Interlocked::loadAcquire(word) == 0;)
            ::WaitOnAddress(&word, &zero, sizeof word, INFINITE);
    };
    Worker first("first", body);
    Worker second("second", body);
    Interlocked::storeRelease(word, 1u);
    ::WakeByAddressSingle(&word);
    ::WakeByAddressSingle(&word);
}

SIMULATED(TimeOutMeetsTheWakeUpOfAnAddress, {.onKernel = 300})
{
    std::uint32_t word = 0;
    Worker hasty("hasty", [&] {
        std::uint32_t zero = 0;
        if (!::WaitOnAddress(&word, &zero, sizeof word, 1))
            HOLDS(::GetLastError() == ERROR_TIMEOUT);
    });
    Worker patient("patient", [&] {
        for (std::uint32_t zero = 0; Interlocked::loadAcquire(word) == 0;)
            ::WaitOnAddress(&word, &zero, sizeof word, INFINITE);
    });
    Interlocked::storeRelease(word, 1u);
    ::WakeByAddressAll(&word);
}

SIMULATED(TimedOutWaiterOfAnAddressIsInItsNextQueue, {.onKernel = 1500})
{
    std::uint32_t word = 0;
    Event never;
    Worker waiter("waiter", [&] {
        std::uint32_t zero = 0;
        ::WaitOnAddress(&word, &zero, sizeof word, 1);
        HOLDS(!wait(never, 1));
    });
    Interlocked::storeRelease(word, 1u);
    ::WakeByAddressSingle(&word);
}

SIMULATED(SectionExcludes, {.onKernel = 300, .preemptions = 1})
{
    CRITICAL_SECTION section;
    ::InitializeCriticalSection(&section);
    int inside = 0;
    auto const body = [&] {
        for (int i = 0; i < 2; ++i) {
            ::EnterCriticalSection(&section);
            HOLDS(::TryEnterCriticalSection(&section));
            HOLDS(++inside == 1);
            step("inside");
            --inside;
            ::LeaveCriticalSection(&section);
            ::LeaveCriticalSection(&section);
        }
    };
    {
        Worker first("first", body);
        Worker second("second", body);
        body();
    }
    ::DeleteCriticalSection(&section);
}

SIMULATED(TimerIsSetWhileOthersWait, {.onKernel = 300})
{
    Timer timer;
    auto const body = [&] { HOLDS(wait(timer)); };
    Worker first("first", body);
    Worker second("second", body);
    timer.set(1000);
    timer.set(2, 3);
}

SIMULATED(TimerIsCancelledWhileOthersWait, {.onKernel = 300})
{
    Timer timer(true);
    timer.set(1);
    bool taken = false;
    Worker waiter("waiter", [&] { taken = wait(timer, 2); });
    HOLDS(::CancelWaitableTimer(timer));
    waiter.join();
    HOLDS(taken == wait(timer, 0));
}

SIMULATED(SlotsOfThreadsThatComeAndGo, {.onKernel = 300})
{
    static std::uint32_t called;
    called = 0;
    DWORD const slot =
        ::FlsAlloc([](void *value) { increment(*static_cast<std::uint32_t *>(value)); });
    auto const body = [&] {
        HOLDS(!::TlsGetValue(slot));
        HOLDS(::FlsSetValue(slot, &called));
        DWORD const mine = ::TlsAlloc();
        HOLDS(mine != slot && !::TlsGetValue(mine));
        HOLDS(::TlsSetValue(mine, &called) && ::TlsGetValue(mine) == &called);
        HOLDS(::TlsFree(mine));
        HOLDS(::TlsGetValue(slot) == &called);
    };
    {
        Worker first("first", body);
        Worker second("second", body);
    }
    HOLDS(called == 2);
    HOLDS(::TlsFree(slot));
}

// ---- all of them --------------------------------------------------------------------------------

namespace {

/// What the threads of the mixture share.
struct Mixture
{
    Mutex mutexes[2];
    long rounds[2] = {};
    Event automatic, manual{true};
    Semaphore tokens;
    std::uint32_t released = 0, taken = 0;
    Timer timer;
    std::uint32_t word = 0;

    HANDLE event(unsigned which) { return which ? manual : automatic; }
};

/// A thread that goes from any wait to any other, in an order that its number decides.
class Mixer
{
public:
    Mixer(Mixture &mixture, std::uint32_t number) : _mixture(mixture), _random(number) {}

    void step()
    {
        switch (below(7)) {
        case 0:
            guarded();
            break;
        case 1:
            event();
            break;
        case 2:
            wait(_mixture.event(below(2)), below(3));
            break;
        case 3:
            increment(_mixture.released);
            post(_mixture.tokens);
            break;
        case 4:
            takeToken();
            break;
        case 5:
            timer();
            break;
        case 6:
            address();
            break;
        }
    }

    long rounds[2] = {};

private:
    std::uint32_t below(std::uint32_t end)
    {
        _random = _random * 1'664'525 + 1'013'904'223;
        return (_random >> 16) % end;
    }

    void guarded()
    {
        std::uint32_t const which = below(2);
        if (!wait(_mixture.mutexes[which], below(3)))
            return;
        ++_mixture.rounds[which];
        ++rounds[which];
        if (below(2))
            takeToken();
        HOLDS(::ReleaseMutex(_mixture.mutexes[which]));
    }

    void takeToken()
    {
        if (wait(_mixture.tokens, below(3)))
            increment(_mixture.taken);
    }

    void event()
    {
        HANDLE const event = _mixture.event(below(2));
        std::uint32_t const what = below(3);
        HOLDS(what == 0   ? ::SetEvent(event)
              : what == 1 ? ::ResetEvent(event)
                          : ::PulseEvent(event));
    }

    void timer()
    {
        if (below(2))
            _mixture.timer.set(static_cast<LONG>(below(2)), static_cast<LONG>(below(3)));
        else
            wait(_mixture.timer, below(3));
    }

    void address()
    {
        std::uint32_t seen = Interlocked::loadAcquire(_mixture.word);
        switch (below(3)) {
        case 0:
            increment(_mixture.word);
            ::WakeByAddressSingle(&_mixture.word);
            break;
        case 1:
            increment(_mixture.word);
            ::WakeByAddressAll(&_mixture.word);
            break;
        default:
            if (!::WaitOnAddress(&_mixture.word, &seen, sizeof seen, below(3)))
                HOLDS(::GetLastError() == ERROR_TIMEOUT);
        }
    }

    Mixture &_mixture;
    std::uint32_t _random;
};

} // namespace

SIMULATED(ThreadsGoFromAnyWaitToAnyOther, {.onKernel = 300})
{
    Mixture mixture;
    long rounds[2] = {};
    {
        std::uint32_t number = 0;
        auto const body = [&] {
            Mixer mixer(mixture, Interlocked::increment(number));
            for (int i = 0; i < 12; ++i)
                mixer.step();
            for (int i = 0; i < 2; ++i)
                Interlocked::add(rounds[i], mixer.rounds[i]);
        };
        Worker first("first", body);
        Worker second("second", body);
        Worker third("third", body);
    }
    for (int i = 0; i < 2; ++i)
        HOLDS(mixture.rounds[i] == rounds[i]);
    while (wait(mixture.tokens, 0))
        ++mixture.taken;
    HOLDS(mixture.taken == mixture.released);
}
