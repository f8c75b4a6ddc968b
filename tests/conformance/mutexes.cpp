#include "conformance/conformance.h"

namespace Conformance {

namespace {

void showOwning()
{
    scene("owned by a wait");
    Owned const m(MADE(CreateMutexA(nullptr, FALSE, nullptr)));
    WAIT(WaitForSingleObject(m, 0));
    elsewhere([&] { WAIT(WaitForSingleObject(m, 0)); });
    elsewhere([&] { WAIT(WaitForSingleObject(m, 1)); });
    TRUTH(ReleaseMutex(m));
    elsewhere([&] {
        WAIT(WaitForSingleObject(m, 0));
        TRUTH(ReleaseMutex(m));
    });
    elsewhere([&] {
        WAIT(WaitForSingleObject(m, INFINITE));
        TRUTH(ReleaseMutex(m));
    });
    WAIT(WaitForSingleObjectEx(m, 5, FALSE));
    TRUTH(ReleaseMutex(m));

    scene("owned from the beginning");
    Owned const owned(MADE(CreateMutexA(nullptr, TRUE, nullptr)));
    elsewhere([&] { WAIT(WaitForSingleObject(owned, 0)); });
    TRUTH(ReleaseMutex(owned));
    TRUTH(ReleaseMutex(owned));
}

void showRecursion()
{
    scene("recursion");
    Owned const m(CreateMutexA(nullptr, FALSE, nullptr));
    WAIT(WaitForSingleObject(m, 0));
    WAIT(WaitForSingleObject(m, 1));
    WAIT(WaitForSingleObject(m, INFINITE));
    TRUTH(ReleaseMutex(m));
    TRUTH(ReleaseMutex(m));
    elsewhere([&] { WAIT(WaitForSingleObject(m, 0)); });
    TRUTH(ReleaseMutex(m));
    TRUTH(ReleaseMutex(m));
    elsewhere([&] {
        WAIT(WaitForSingleObject(m, 0));
        TRUTH(ReleaseMutex(m));
    });
}

void showWrongOwner()
{
    scene("released by another than its owner");
    Owned const m(CreateMutexA(nullptr, FALSE, nullptr));
    TRUTH(ReleaseMutex(m));
    WaitForSingleObject(m, 0);
    elsewhere([&] { TRUTH(ReleaseMutex(m)); });
    elsewhere([&] { WAIT(WaitForSingleObject(m, 0)); });
    TRUTH(ReleaseMutex(m));
}

void showBadHandles()
{
    scene("handles of anything else");
    Owned const e(CreateEventA(nullptr, TRUE, TRUE, nullptr));
    Owned const s(CreateSemaphoreA(nullptr, 1, 1, nullptr));
    Owned const t(CreateWaitableTimerA(nullptr, TRUE, nullptr));
    TRUTH(ReleaseMutex(nullptr));
    TRUTH(ReleaseMutex(badHandle()));
    TRUTH(ReleaseMutex(GetCurrentThread()));
    TRUTH(ReleaseMutex(e));
    TRUTH(ReleaseMutex(s));
    TRUTH(ReleaseMutex(t));

    scene("a closed handle");
    HANDLE const closed = CreateMutexA(nullptr, FALSE, nullptr);
    TRUTH(CloseHandle(closed));
    TRUTH(ReleaseMutex(closed));
    WAIT(WaitForSingleObject(closed, 0));
    WAIT(WaitForSingleObject(closed, INFINITE));
    TRUTH(CloseHandle(closed));

    scene("closed by its owner");
    HANDLE const held = CreateMutexA(nullptr, TRUE, nullptr);
    TRUTH(CloseHandle(held));
    TRUTH(ReleaseMutex(held));
    WAIT(WaitForSingleObject(held, 0));
}

void showAbandonment()
{
    scene("abandoned");
    Owned const m(CreateMutexA(nullptr, FALSE, nullptr));
    Owned const n(CreateMutexA(nullptr, FALSE, nullptr));
    elsewhere([&] {
        WAIT(WaitForSingleObject(m, 0));
        WAIT(WaitForSingleObject(m, 0));
        WAIT(WaitForSingleObject(n, 0));
    });
    WAIT(WaitForSingleObject(m, 0));
    WAIT(WaitForSingleObject(n, INFINITE));
    WAIT(WaitForSingleObject(m, 0));
    TRUTH(ReleaseMutex(m));
    TRUTH(ReleaseMutex(m));
    TRUTH(ReleaseMutex(m));
    elsewhere([&] { WAIT(WaitForSingleObject(n, 0)); });
    TRUTH(ReleaseMutex(n));
    elsewhere([&] {
        WAIT(WaitForSingleObject(n, 0));
        TRUTH(ReleaseMutex(n));
    });

    scene("abandoned while another waits");
    Owned const taken(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    Owned const goOn(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    Runner owner([&] {
        await(m);
        SetEvent(taken);
        await(goOn);
        return DWORD{0};
    });
    await(taken);
    Runner waiter([&] {
        SetEvent(goOn);
        WAIT(WaitForSingleObject(m, LONG_TIME));
        TRUTH(ReleaseMutex(m));
        return DWORD{0};
    });
    waiter.join();
    owner.join();
    WAIT(WaitForSingleObject(m, 0));
    TRUTH(ReleaseMutex(m));
}

void showContention()
{
    scene("three threads that want it");
    constexpr int ROUNDS = 100;
    Owned const m(CreateMutexA(nullptr, FALSE, nullptr));
    long count = 0;
    {
        std::vector<std::unique_ptr<Runner>> runners;
        for (DWORD patience : {DWORD{0}, DWORD{1}, DWORD{INFINITE}})
            runners.push_back(std::make_unique<Runner>([&, patience] {
                for (int i = 0; i < ROUNDS; ++i) {
                    while (WaitForSingleObject(m, patience) != WAIT_OBJECT_0)
                        Sleep(0);
                    ++count;
                    ReleaseMutex(m);
                }
                return DWORD{0};
            }));
    }
    showCount("times that it was had", count);
    WAIT(WaitForSingleObject(m, 0));
    TRUTH(ReleaseMutex(m));

    scene("a handle closed while another thread owns the mutex");
    HANDLE const closed = CreateMutexA(nullptr, FALSE, nullptr);
    Owned const taken(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    Owned const goOn(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    Runner owner([&] {
        await(closed);
        SetEvent(taken);
        await(goOn);
        return DWORD{0};
    });
    await(taken);
    TRUTH(CloseHandle(closed));
    WAIT(WaitForSingleObject(closed, 0));
    SetEvent(goOn);
}

} // namespace

void showMutexes()
{
    table("mutex");
    showOwning();
    showRecursion();
    showWrongOwner();
    showBadHandles();
    showAbandonment();
    showContention();
}

} // namespace Conformance
