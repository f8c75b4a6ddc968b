#include "conformance/conformance.h"

namespace Conformance {

void showSections()
{
    table("critical section");
    CRITICAL_SECTION section;
    InitializeCriticalSection(&section);
    scene("entered and left");
    TRUTH(TryEnterCriticalSection(&section));
    elsewhere([&] { TRUTH(TryEnterCriticalSection(&section)); });
    TRUTH((LeaveCriticalSection(&section), TRUE));
    elsewhere([&] {
        TRUTH(TryEnterCriticalSection(&section));
        TRUTH((LeaveCriticalSection(&section), TRUE));
    });

    scene("recursion");
    TRUTH((EnterCriticalSection(&section), TRUE));
    TRUTH((EnterCriticalSection(&section), TRUE));
    TRUTH(TryEnterCriticalSection(&section));
    for (int i = 0; i < 3; ++i) {
        elsewhere([&] { TRUTH(TryEnterCriticalSection(&section)); });
        LeaveCriticalSection(&section);
    }
    elsewhere([&] {
        TRUTH(TryEnterCriticalSection(&section));
        LeaveCriticalSection(&section);
    });

    scene("a waiter comes in when it is left");
    EnterCriticalSection(&section);
    Owned const begun(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    Owned const in(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    {
        Runner other([&] {
            SetEvent(begun);
            EnterCriticalSection(&section);
            SetEvent(in);
            LeaveCriticalSection(&section);
            return DWORD{0};
        });
        await(begun);
        WAIT(WaitForSingleObject(in, 1));
        LeaveCriticalSection(&section);
        WAIT(WaitForSingleObject(in, LONG_TIME));
    }

    scene("three threads that want it");
    constexpr int ROUNDS = 100;
    long count = 0;
    {
        std::vector<std::unique_ptr<Runner>> runners;
        for (int i = 0; i < 3; ++i)
            runners.push_back(std::make_unique<Runner>([&, i] {
                for (int round = 0; round < ROUNDS; ++round) {
                    if (i == 0)
                        while (!TryEnterCriticalSection(&section))
                            Sleep(0);
                    else
                        EnterCriticalSection(&section);
                    ++count;
                    LeaveCriticalSection(&section);
                }
                return DWORD{0};
            }));
    }
    showCount("times that it was had", count);
    DeleteCriticalSection(&section);
}

} // namespace Conformance
