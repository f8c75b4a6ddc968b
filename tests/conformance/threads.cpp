#include "conformance/conformance.h"
#include "zvbase/platform/shared.h"

namespace Conformance {

using ZvPlatform::Order;
using ZvPlatform::Shared;

namespace {

#ifdef _WIN32
DWORD WINAPI giveBack(void *argument)
#else
DWORD giveBack(void *argument)
#endif
{
    return static_cast<DWORD>(reinterpret_cast<std::uintptr_t>(argument));
}

void *argument(std::uintptr_t value)
{
    return reinterpret_cast<void *>(value);
}

void showLife()
{
    scene("a thread's handle before its end");
    DWORD code = 0;
    {
        Owned const go(CreateEventA(nullptr, TRUE, FALSE, nullptr));
        Runner t([&] {
            await(go);
            return DWORD{7};
        });
        WAIT(WaitForSingleObject(t.handle(), 0));
        WAIT(WaitForSingleObject(t.handle(), 1));
        TRUTH(GetExitCodeThread(t.handle(), &code));
        showText("exit code", code == STILL_ACTIVE ? "STILL_ACTIVE" : std::to_string(code));
        SetEvent(go);
        WAIT(WaitForSingleObject(t.handle(), LONG_TIME));

        scene("a thread's handle after its end");
        WAIT(WaitForSingleObject(t.handle(), 0));
        WAIT(WaitForSingleObject(t.handle(), 1));
        WAIT(WaitForSingleObject(t.handle(), INFINITE));
        TRUTH(GetExitCodeThread(t.handle(), &code));
        showCount("exit code", code);
        elsewhere([&] { WAIT(WaitForSingleObject(t.handle(), INFINITE)); });
        TRUTH(GetExitCodeThread(t.handle(), &code));
        showCount("exit code", code);
    }

    scene("exit codes");
    for (std::uintptr_t value : {0u, 1u, 259u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        DWORD number = 0;
        Owned const t(MADE(CreateThread(nullptr, 0, giveBack, argument(value), 0, &number)));
        WAIT(WaitForSingleObject(t, LONG_TIME));
        TRUTH(GetExitCodeThread(t, &code));
        showCount("exit code", code);
        showText("the thread has a number of its own",
                 number && number != GetCurrentThreadId() ? "yes" : "no");
    }

    scene("a handle closed while its thread runs");
    Owned const go(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    Owned const done(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    HANDLE copy = nullptr;
    Runner t([&] {
        await(go);
        SetEvent(done);
        return DWORD{0};
    });
    DuplicateHandle(GetCurrentProcess(), t.handle(), GetCurrentProcess(), &copy, 0, FALSE,
                    DUPLICATE_SAME_ACCESS);
    TRUTH(CloseHandle(copy));
    TRUTH(SetEvent(go));
    WAIT(WaitForSingleObject(done, LONG_TIME));
}

void showCreation()
{
    scene("creation");
    constexpr SIZE_T TOO_MUCH = SIZE_MAX >> (sizeof(SIZE_T) > 4 ? 14 : 0);
    Owned const whole(MADE(CreateThread(nullptr, 0, giveBack, nullptr, 0, nullptr)));
    Owned const small(MADE(CreateThread(nullptr, 0x1000, giveBack, nullptr, 0, nullptr)));
    Owned const reserving(MADE(CreateThread(nullptr, 0x10000, giveBack, nullptr,
                                            STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr)));
    for (HANDLE t : {HANDLE{whole}, HANDLE{small}, HANDLE{reserving}})
        await(t);
    MADE(CreateThread(nullptr, 0, giveBack, nullptr, 0x80000000, nullptr));
    MADE(CreateThread(nullptr, TOO_MUCH, giveBack, nullptr, 0, nullptr));
}

void showMisuse()
{
    scene("exit codes of what is no thread");
    DWORD code = 7;
    Owned const e(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    TRUTH(GetExitCodeThread(nullptr, &code));
    TRUTH(GetExitCodeThread(badHandle(), &code));
    TRUTH(GetExitCodeThread(e, &code));
    showCount("exit code", code);
    TRUTH(GetExitCodeThread(GetCurrentThread(), &code));
    showText("exit code", code == STILL_ACTIVE ? "STILL_ACTIVE" : std::to_string(code));
}

void showOwnThings()
{
    scene("what is a thread's own");
    DWORD inside = 0, before = 0;
    Runner t([&] {
        before = GetLastError();
        inside = GetCurrentThreadId();
        SetLastError(5);
        return DWORD{0};
    });
    SetLastError(UNTOUCHED);
    DWORD const mine = GetLastError();
    t.join();
    showText("its number is what its creator was told", inside == t.number() ? "yes" : "no");
    showCount("its last error at first", before);
    showText("its creator's last error", mine == UNTOUCHED ? "kept" : "changed");

    scene("last errors");
    for (DWORD code : {DWORD{0}, DWORD{1}, DWORD{0xFFFFFFFF}}) {
        SetLastError(code);
        showText("GetLastError()", std::to_string(GetLastError()));
    }

    scene("descriptions");
    Owned const e(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    TRUTH(SetThreadDescription(GetCurrentThread(), L"conformance") >= 0);
    TRUTH(SetThreadDescription(t.handle(), L"a name of more than fifteen bytes") >= 0);
    TRUTH(SetThreadDescription(nullptr, L"name") >= 0);
    TRUTH(SetThreadDescription(e, L"name") >= 0);
}

void showAffinity()
{
    scene("processors");
    DWORD_PTR process = 0, system = 0, now = 0;
    TRUTH(GetProcessAffinityMask(GetCurrentProcess(), &process, &system));
    showText("the process has some of the system's",
             process && (process & ~system) == 0 ? "yes" : "no");
    DWORD_PTR const lowest = process & (~process + 1);
    Owned const go(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    Runner t([&] {
        await(go);
        return DWORD{0};
    });
    TRUTH(SetThreadAffinityMask(t.handle(), lowest) == process);
    TRUTH(SetThreadAffinityMask(t.handle(), process) == lowest);
    TRUTH(SetThreadAffinityMask(GetCurrentThread(), lowest) == process);
    GetProcessAffinityMask(GetCurrentProcess(), &now, &system);
    showText("the process's mask", now == process ? "stays" : "changes");
    TRUTH(SetThreadAffinityMask(GetCurrentThread(), process) == lowest);
    TRUTH(SetThreadAffinityMask(t.handle(), 0));
    TRUTH(SetThreadAffinityMask(t.handle(), ~process));
    TRUTH(SetThreadAffinityMask(nullptr, lowest));
    TRUTH(SetThreadAffinityMask(badHandle(), lowest));
    TRUTH(SetThreadAffinityMask(go, lowest));
    TRUTH(GetProcessAffinityMask(nullptr, &now, &system));
    TRUTH(GetProcessAffinityMask(go, &now, &system));
    SetEvent(go);

    scene("processors of a thread whose starter has only one");
    DWORD_PTR ofChild = 0;
    elsewhere([&] {
        SetThreadAffinityMask(GetCurrentThread(), lowest);
        Runner child([&] {
            ofChild = SetThreadAffinityMask(GetCurrentThread(), process);
            return DWORD{0};
        });
        child.join();
    });
    showText("it has", ofChild == process ? "those of the process" : "others");
}

void showMany()
{
    scene("many");
    Owned const go(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    Shared<int> ran;
    int differing = 0;
    {
        std::vector<std::unique_ptr<Runner>> runners;
        for (int i = 0; i < 20; ++i)
            runners.push_back(std::make_unique<Runner>([&] {
                await(go);
                ran.fetch_add(1, Order::SEQ_CST);
                return DWORD{0};
            }));
        for (std::size_t i = 0; i < runners.size(); ++i) {
            bool isUnique = runners[i]->number() != 0;
            for (std::size_t k = 0; k < i; ++k)
                isUnique = isUnique && runners[i]->number() != runners[k]->number();
            differing += isUnique;
        }
        SetEvent(go);
    }
    showCount("ran", ran.load(Order::SEQ_CST));
    showCount("numbers that differ", differing);

    scene("four who wait for one");
    Owned const end(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    Runner one([&] {
        await(end);
        return DWORD{0};
    });
    Shared<int> released;
    {
        std::vector<std::unique_ptr<Runner>> waiters;
        for (int i = 0; i < 4; ++i)
            waiters.push_back(std::make_unique<Runner>([&] {
                if (WaitForSingleObject(one.handle(), LONG_TIME) == WAIT_OBJECT_0)
                    released.fetch_add(1, Order::SEQ_CST);
                return DWORD{0};
            }));
        SetEvent(end);
    }
    showCount("released", released.load(Order::SEQ_CST));
}

} // namespace

void showThreads()
{
    table("thread");
    showLife();
    showCreation();
    showMisuse();
    showOwnThings();
    showAffinity();
    showMany();
}

} // namespace Conformance
