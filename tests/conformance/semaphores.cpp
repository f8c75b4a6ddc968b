#include "conformance/conformance.h"
#include "zvbase/platform/shared.h"

namespace Conformance {

using ZvPlatform::Order;
using ZvPlatform::Shared;

namespace {

void showCounting()
{
    scene("counting");
    Owned const s(MADE(CreateSemaphoreA(nullptr, 2, 5, nullptr)));
    LONG previous = -1;
    WAIT(WaitForSingleObject(s, 0));
    WAIT(WaitForSingleObject(s, INFINITE));
    WAIT(WaitForSingleObject(s, 0));
    WAIT(WaitForSingleObject(s, 1));
    TRUTH(ReleaseSemaphore(s, 3, &previous));
    showCount("previous", previous);
    TRUTH(ReleaseSemaphore(s, 1, &previous));
    showCount("previous", previous);
    TRUTH(ReleaseSemaphore(s, 1, nullptr));
    for (int i = 0; i < 6; ++i)
        WAIT(WaitForSingleObject(s, 0));
    // A thread that has no unit may release one.
    elsewhere([&] { TRUTH(ReleaseSemaphore(s, 1, nullptr)); });
    WAIT(WaitForSingleObjectEx(s, 5, FALSE));
}

void showMaximum()
{
    scene("maximum");
    Owned const s(CreateSemaphoreA(nullptr, 1, 3, nullptr));
    LONG previous = -1;
    TRUTH(ReleaseSemaphore(s, 3, &previous));
    showCount("previous", previous);
    TRUTH(ReleaseSemaphore(s, 2, &previous));
    showCount("previous", previous);
    TRUTH(ReleaseSemaphore(s, 1, nullptr));
    for (int i = 0; i < 4; ++i)
        WAIT(WaitForSingleObject(s, 0));

    scene("the largest maximum");
    Owned const l(MADE(CreateSemaphoreA(nullptr, 1, 0x7FFFFFFF, nullptr)));
    TRUTH(ReleaseSemaphore(l, 0x7FFFFFFF, nullptr));
    TRUTH(ReleaseSemaphore(l, 0x7FFFFFFE, nullptr));
    TRUTH(ReleaseSemaphore(l, 1, nullptr));
    WAIT(WaitForSingleObject(l, 0));
    TRUTH(ReleaseSemaphore(l, 1, nullptr));

    scene("full from the beginning");
    Owned const f(MADE(CreateSemaphoreA(nullptr, 2, 2, nullptr)));
    TRUTH(ReleaseSemaphore(f, 1, nullptr));
}

void showMisuse()
{
    scene("counts that cannot be");
    MADE(CreateSemaphoreA(nullptr, -1, 1, nullptr));
    MADE(CreateSemaphoreA(nullptr, 0, 0, nullptr));
    MADE(CreateSemaphoreA(nullptr, 0, -1, nullptr));
    MADE(CreateSemaphoreA(nullptr, 2, 1, nullptr));
    Owned const s(CreateSemaphoreA(nullptr, 0, 1, nullptr));
    TRUTH(ReleaseSemaphore(s, 0, nullptr));
    TRUTH(ReleaseSemaphore(s, -1, nullptr));
    WAIT(WaitForSingleObject(s, 0));

    scene("handles of anything else");
    Owned const m(CreateMutexA(nullptr, FALSE, nullptr));
    Owned const e(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    TRUTH(ReleaseSemaphore(nullptr, 1, nullptr));
    TRUTH(ReleaseSemaphore(badHandle(), 1, nullptr));
    TRUTH(ReleaseSemaphore(GetCurrentThread(), 1, nullptr));
    TRUTH(ReleaseSemaphore(m, 1, nullptr));
    TRUTH(ReleaseSemaphore(e, 1, nullptr));

    scene("a closed handle");
    HANDLE const closed = CreateSemaphoreA(nullptr, 1, 1, nullptr);
    TRUTH(CloseHandle(closed));
    TRUTH(ReleaseSemaphore(closed, 1, nullptr));
    WAIT(WaitForSingleObject(closed, 0));
    TRUTH(CloseHandle(closed));
}

void showWaiters()
{
    scene("four wait and three units come");
    Owned const s(CreateSemaphoreA(nullptr, 0, 4, nullptr));
    Shared<int> served;
    {
        std::vector<std::unique_ptr<Runner>> waiters;
        for (int i = 0; i < 4; ++i)
            waiters.push_back(std::make_unique<Runner>([&] {
                if (WaitForSingleObject(s, LONG_TIME) == WAIT_OBJECT_0)
                    served.fetch_add(1, Order::SEQ_CST);
                return DWORD{0};
            }));
        TRUTH(ReleaseSemaphore(s, 3, nullptr));
        while (served.load(Order::SEQ_CST) < 3)
            Sleep(1);
        WAIT(WaitForSingleObject(s, 0));
        showCount("served", served.load(Order::SEQ_CST));
        TRUTH(ReleaseSemaphore(s, 1, nullptr));
    }
    showCount("served", served.load(Order::SEQ_CST));
    WAIT(WaitForSingleObject(s, 0));

    scene("units taken and given by four, one of whom gives up now and then");
    constexpr int ROUNDS = 50;
    Owned const u(CreateSemaphoreA(nullptr, 0, 1000, nullptr));
    Shared<int> taken;
    {
        std::vector<std::unique_ptr<Runner>> runners;
        for (DWORD patience : {DWORD{1}, DWORD{INFINITE}}) {
            runners.push_back(std::make_unique<Runner>([&, patience] {
                for (int i = 0; i < ROUNDS; ++i) {
                    while (WaitForSingleObject(u, patience) != WAIT_OBJECT_0) {
                    }
                    taken.fetch_add(1, Order::SEQ_CST);
                }
                return DWORD{0};
            }));
            runners.push_back(std::make_unique<Runner>([&] {
                for (int i = 0; i < ROUNDS; i += 2)
                    ReleaseSemaphore(u, 2, nullptr);
                return DWORD{0};
            }));
        }
    }
    showCount("units", taken.load(Order::SEQ_CST));
    WAIT(WaitForSingleObject(u, 0));
}

} // namespace

void showSemaphores()
{
    table("semaphore");
    showCounting();
    showMaximum();
    showMisuse();
    showWaiters();
}

} // namespace Conformance
