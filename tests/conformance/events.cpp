#include "conformance/conformance.h"
#include "zvbase/platform/shared.h"

namespace Conformance {

using ZvPlatform::Order;
using ZvPlatform::Shared;

namespace {

void showStates()
{
    scene("manual");
    Owned const m(MADE(CreateEventA(nullptr, TRUE, FALSE, nullptr)));
    WAIT(WaitForSingleObject(m, 0));
    WAIT(WaitForSingleObject(m, 1));
    TRUTH(SetEvent(m));
    WAIT(WaitForSingleObject(m, 0));
    WAIT(WaitForSingleObject(m, 1));
    WAIT(WaitForSingleObject(m, INFINITE));
    TRUTH(SetEvent(m));
    TRUTH(ResetEvent(m));
    WAIT(WaitForSingleObject(m, 0));
    TRUTH(ResetEvent(m));
    WAIT(WaitForSingleObjectEx(m, 1, FALSE));

    scene("automatic");
    Owned const a(MADE(CreateEventA(nullptr, FALSE, FALSE, nullptr)));
    WAIT(WaitForSingleObject(a, 0));
    TRUTH(SetEvent(a));
    TRUTH(SetEvent(a));
    WAIT(WaitForSingleObject(a, INFINITE));
    WAIT(WaitForSingleObject(a, 0));
    WAIT(WaitForSingleObject(a, 1));
    TRUTH(SetEvent(a));
    TRUTH(ResetEvent(a));
    WAIT(WaitForSingleObject(a, 0));

    scene("set from the beginning");
    Owned const setManual(MADE(CreateEventA(nullptr, TRUE, TRUE, nullptr)));
    Owned const setAutomatic(MADE(CreateEventA(nullptr, FALSE, TRUE, nullptr)));
    WAIT(WaitForSingleObject(setManual, 0));
    WAIT(WaitForSingleObject(setManual, 0));
    WAIT(WaitForSingleObject(setAutomatic, 0));
    WAIT(WaitForSingleObject(setAutomatic, 0));
}

void showBadHandles()
{
    scene("handles of anything else");
    Owned const m(CreateMutexA(nullptr, FALSE, nullptr));
    Owned const s(CreateSemaphoreA(nullptr, 1, 1, nullptr));
    Owned const t(CreateWaitableTimerA(nullptr, TRUE, nullptr));
    TRUTH(SetEvent(nullptr));
    TRUTH(SetEvent(badHandle()));
    TRUTH(SetEvent(GetCurrentThread()));
    TRUTH(SetEvent(m));
    TRUTH(SetEvent(s));
    TRUTH(SetEvent(t));
    TRUTH(ResetEvent(nullptr));
    TRUTH(ResetEvent(badHandle()));
    TRUTH(ResetEvent(m));
    TRUTH(PulseEvent(nullptr));
    TRUTH(PulseEvent(badHandle()));
    TRUTH(PulseEvent(s));

    scene("a closed handle");
    HANDLE const closed = CreateEventA(nullptr, TRUE, TRUE, nullptr);
    TRUTH(CloseHandle(closed));
    TRUTH(SetEvent(closed));
    TRUTH(ResetEvent(closed));
    TRUTH(PulseEvent(closed));
    WAIT(WaitForSingleObject(closed, 0));
    TRUTH(CloseHandle(closed));
}

/// Threads that wait for an event. Other threads cannot see whether a thread waits already, so a
/// pulse is repeated until it has had its effect.
class Waiters
{
public:
    Waiters(HANDLE event, int count)
    {
        for (int i = 0; i < count; ++i)
            _runners.push_back(std::make_unique<Runner>([this, event] {
                if (WaitForSingleObject(event, LONG_TIME) == WAIT_OBJECT_0)
                    _released.fetch_add(1, Order::SEQ_CST);
                _returned.fetch_add(1, Order::SEQ_CST);
                return DWORD{0};
            }));
    }

    int released() const { return _released.load(Order::SEQ_CST); }
    bool haveAllReturned() const
    {
        return _returned.load(Order::SEQ_CST) == static_cast<int>(_runners.size());
    }

private:
    Shared<int> _released, _returned;
    std::vector<std::unique_ptr<Runner>> _runners;
};

void showPulses(char const *kind, HANDLE e)
{
    scene(std::string("pulses of ") + kind + " one without a waiter");
    TRUTH(PulseEvent(e));
    WAIT(WaitForSingleObject(e, 0));
    WAIT(WaitForSingleObject(e, 1));
    TRUTH(SetEvent(e));
    TRUTH(PulseEvent(e));
    WAIT(WaitForSingleObject(e, 0));

    for (int count : {1, 4}) {
        scene(std::string("pulses of ") + kind + " one that is awaited by " +
              std::to_string(count));
        int pulses = 0, good = 0;
        bool isOneEach = true;
        {
            Waiters waiters(e, count);
            while (!waiters.haveAllReturned()) {
                ++pulses;
                good += PulseEvent(e) ? 1 : 0;
                isOneEach = isOneEach && waiters.released() <= pulses;
                Sleep(1);
            }
            showCount("released", waiters.released());
        }
        showText("all pulses succeed", pulses == good ? "yes" : "no");
        if (kind == std::string("an automatic"))
            showText("each releases one at most", isOneEach ? "yes" : "no");
        WAIT(WaitForSingleObject(e, 0));
    }
}

void showSettings()
{
    scene("a manual one set while four wait");
    Owned const m(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    {
        Waiters waiters(m, 4);
        TRUTH(SetEvent(m));
        while (!waiters.haveAllReturned())
            Sleep(1);
        showCount("released", waiters.released());
    }
    WAIT(WaitForSingleObject(m, 0));

    scene("an automatic one set while four wait");
    Owned const a(CreateEventA(nullptr, FALSE, FALSE, nullptr));
    {
        Waiters waiters(a, 4);
        for (int i = 1; i <= 4; ++i) {
            SetEvent(a);
            while (waiters.released() < i)
                Sleep(1);
            showCount("released by setting " + std::to_string(i), waiters.released());
        }
    }
    WAIT(WaitForSingleObject(a, 0));

    scene("there and back between two threads");
    constexpr int ROUNDS = 100;
    Owned const there(CreateEventA(nullptr, FALSE, FALSE, nullptr));
    Owned const back(CreateEventA(nullptr, FALSE, FALSE, nullptr));
    long shared = 0;
    {
        Runner other([&] {
            for (int i = 0; i < ROUNDS; ++i) {
                await(there);
                ++shared;
                SetEvent(back);
            }
            return DWORD{0};
        });
        for (int i = 0; i < ROUNDS; ++i) {
            SetEvent(there);
            await(back);
        }
    }
    showCount("rounds", shared);

    scene("closed by whom it releases");
    HANDLE const closed = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    Runner other([&] {
        WAIT(WaitForSingleObject(closed, LONG_TIME));
        TRUTH(CloseHandle(closed));
        return DWORD{0};
    });
    SetEvent(closed);
}

} // namespace

void showEvents()
{
    table("event");
    showStates();
    showBadHandles();
    Owned const m(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    Owned const a(CreateEventA(nullptr, FALSE, FALSE, nullptr));
    showPulses("a manual", m);
    showPulses("an automatic", a);
    showSettings();
}

} // namespace Conformance
