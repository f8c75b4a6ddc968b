// Ends of threads from outside. The stack of a victim is not unwound, so a victim owns nothing.
#include "conformance/conformance.h"
#include "zvbase/platform/shared.h"

namespace Conformance {

using ZvPlatform::Order;
using ZvPlatform::Shared;

namespace {

#ifdef _WIN32
#define ENTRY WINAPI
#else
#define ENTRY
#endif

struct Scene
{
    HANDLE begun;
    HANDLE object;
    CRITICAL_SECTION *section;
    Shared<long> rounds;
};

Scene &sceneOf(void *data)
{
    return *static_cast<Scene *>(data);
}

DWORD ENTRY waitForEver(void *data)
{
    SetEvent(sceneOf(data).begun);
    WaitForSingleObject(sceneOf(data).object, INFINITE);
    return 1;
}

DWORD ENTRY sleepForEver(void *data)
{
    SetEvent(sceneOf(data).begun);
    Sleep(INFINITE);
    return 1;
}

DWORD ENTRY waitForAnAddress(void *data)
{
    long zero = 0;
    SetEvent(sceneOf(data).begun);
    for (;;)
        WaitOnAddress(&sceneOf(data).rounds, &zero, sizeof zero, INFINITE);
}

DWORD ENTRY waitForASection(void *data)
{
    SetEvent(sceneOf(data).begun);
    EnterCriticalSection(sceneOf(data).section);
    return 1;
}

DWORD ENTRY waitForItself(void *data)
{
    SetEvent(sceneOf(data).begun);
    WaitForSingleObject(GetCurrentThread(), INFINITE);
    return 1;
}

DWORD ENTRY computeForEver(void *data)
{
    SetEvent(sceneOf(data).begun);
    for (;;)
        sceneOf(data).rounds.fetch_add(1, Order::SEQ_CST);
}

DWORD ENTRY ownTwiceAndCompute(void *data)
{
    WaitForSingleObject(sceneOf(data).object, INFINITE);
    WaitForSingleObject(sceneOf(data).object, INFINITE);
    return computeForEver(data);
}

DWORD ENTRY endItself(void *data)
{
    WaitForSingleObject(sceneOf(data).object, INFINITE);
    TerminateThread(GetCurrentThread(), 5);
    return 6;
}

DWORD ENTRY endAtOnce(void *)
{
    return 1;
}

using Body = DWORD(ENTRY *)(void *);

/// A thread inside a body, and the lines about its end.
class Victim
{
public:
    explicit Victim(Body body, HANDLE object = nullptr, CRITICAL_SECTION *section = nullptr)
        : _scene{CreateEventA(nullptr, TRUE, FALSE, nullptr), object, section, {}},
          _thread(CreateThread(nullptr, 0x10000, body, &_scene, 0, nullptr))
    {
        await(_scene.begun);
    }
    ~Victim()
    {
        CloseHandle(_thread);
        CloseHandle(_scene.begun);
    }
    Victim(Victim const &) = delete;
    Victim &operator=(Victim const &) = delete;

    HANDLE handle() const { return _thread; }

    void kill(DWORD exitCode)
    {
        DWORD code = 0;
        HANDLE const victim = _thread;
        WAIT(WaitForSingleObject(victim, 0));
        TRUTH(TerminateThread(victim, exitCode));
        WAIT(WaitForSingleObject(victim, LONG_TIME));
        TRUTH(GetExitCodeThread(victim, &code));
        showCount("exit code", code);
        long const rounds = _scene.rounds.load(Order::SEQ_CST);
        Sleep(1);
        showText("it runs on", rounds == _scene.rounds.load(Order::SEQ_CST) ? "no" : "yes");
    }

private:
    Scene _scene;
    HANDLE _thread;
};

void showWaiting()
{
    Owned const m(CreateMutexA(nullptr, TRUE, nullptr)),
        manual(CreateEventA(nullptr, TRUE, FALSE, nullptr)),
        automatic(CreateEventA(nullptr, FALSE, FALSE, nullptr)),
        s(CreateSemaphoreA(nullptr, 0, 1, nullptr)),
        t(CreateWaitableTimerA(nullptr, TRUE, nullptr));
    struct
    {
        char const *name;
        HANDLE object;
    } const waits[] = {{"a mutex", m},
                       {"a manual event", manual},
                       {"an automatic event", automatic},
                       {"a semaphore", s},
                       {"a timer", t}};
    for (auto const &wait : waits) {
        scene(std::string("while it waits for ") + wait.name);
        Victim victim(waitForEver, wait.object);
        victim.kill(17);
    }
    scene("while it waits for a thread");
    {
        Owned const go(CreateEventA(nullptr, TRUE, FALSE, nullptr));
        Runner one([&] {
            await(go);
            return DWORD{0};
        });
        Victim victim(waitForEver, one.handle());
        victim.kill(18);
        SetEvent(go);
    }
    scene("while it sleeps");
    Victim(sleepForEver).kill(1);
    scene("while it waits for itself");
    Victim(waitForItself).kill(3);

    scene("what victims have waited for");
    TRUTH(ReleaseMutex(m));
    elsewhere([&] {
        WAIT(WaitForSingleObject(m, 0));
        TRUTH(ReleaseMutex(m));
    });
    TRUTH(SetEvent(automatic));
    WAIT(WaitForSingleObject(automatic, 0));
    TRUTH(ReleaseSemaphore(s, 1, nullptr));
    WAIT(WaitForSingleObject(s, 0));
}

void showComputing()
{
    scene("while it computes");
    {
        Victim victim(computeForEver);
        victim.kill(0xFFFFFFFF);
        scene("killed again");
        TRUTH(TerminateThread(victim.handle(), 8));
        DWORD code = 0;
        TRUTH(GetExitCodeThread(victim.handle(), &code));
        showCount("exit code", code);
    }
    scene("while it has a mutex twice");
    Owned const held(CreateMutexA(nullptr, FALSE, nullptr));
    {
        Victim victim(ownTwiceAndCompute, held);
        elsewhere([&] { WAIT(WaitForSingleObject(held, 0)); });
        victim.kill(0);
    }
    WAIT(WaitForSingleObject(held, LONG_TIME));
    WAIT(WaitForSingleObject(held, 0));
    TRUTH(ReleaseMutex(held));
    TRUTH(ReleaseMutex(held));
    TRUTH(ReleaseMutex(held));

    scene("while it has a mutex that another waits for");
    {
        Victim victim(ownTwiceAndCompute, held);
        Runner waiter([&] { return WaitForSingleObject(held, LONG_TIME); });
        victim.kill(0);
        waiter.join();
        showText("the wait", waiter.exitCode() == WAIT_ABANDONED ? "WAIT_ABANDONED" : "another");
    }
    WAIT(WaitForSingleObject(held, 0));
    TRUTH(ReleaseMutex(held));
}

void showEnds()
{
    scene("by itself");
    Owned const held(CreateMutexA(nullptr, FALSE, nullptr));
    Scene of{nullptr, held, nullptr, {}};
    Owned const t(CreateThread(nullptr, 0x10000, endItself, &of, 0, nullptr));
    DWORD code = 0;
    WAIT(WaitForSingleObject(t, LONG_TIME));
    TRUTH(GetExitCodeThread(t, &code));
    showCount("exit code", code);
    WAIT(WaitForSingleObject(held, LONG_TIME));
    TRUTH(ReleaseMutex(held));

    scene("after its end");
    Owned const ended(CreateThread(nullptr, 0x10000, endAtOnce, nullptr, 0, nullptr));
    await(ended);
    TRUTH(TerminateThread(ended, 10));
    TRUTH(GetExitCodeThread(ended, &code));
    showCount("exit code", code);

    // A thread that another one ends while it begins or ends may hold locks of the system. The
    // table has no row for that.
    scene("by two at once");
    int ends = 0;
    for (int round = 0; round < 5; ++round) {
        Victim victim(computeForEver);
        Runner first([&] {
            TerminateThread(victim.handle(), 1);
            return DWORD{0};
        });
        Runner second([&] {
            TerminateThread(victim.handle(), 1);
            return DWORD{0};
        });
        await(victim.handle());
        GetExitCodeThread(victim.handle(), &code);
        ends += code == 1;
    }
    showCount("victims that have ended as they were told", ends);

    scene("what is no thread");
    Owned const e(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    TRUTH(TerminateThread(nullptr, 0));
    TRUTH(TerminateThread(badHandle(), 0));
    TRUTH(TerminateThread(e, 0));
}

/// Must be the last. A thread that is killed in a queue of its process may remain there, and
/// disturb threads that wait there later.
void showQueues()
{
    scene("while it waits for an address");
    Victim(waitForAnAddress).kill(2);

    scene("while it waits for a critical section");
    CRITICAL_SECTION section;
    InitializeCriticalSection(&section);
    EnterCriticalSection(&section);
    {
        Victim victim(waitForASection, nullptr, &section);
        victim.kill(4);
    }
    LeaveCriticalSection(&section);
    DeleteCriticalSection(&section);
}

} // namespace

void showTermination()
{
    table("termination");
    showWaiting();
    showComputing();
    showEnds();
    showQueues();
}

} // namespace Conformance
