#include "platform/platformTest.h"

namespace ZvTest {

namespace {

struct Section
{
    Section() { InitializeCriticalSection(&section); }
    ~Section() { DeleteCriticalSection(&section); }

    /// Returns whether another thread could enter now.
    bool isFree()
    {
        bool free = false;
        Runner other([&] {
            free = TryEnterCriticalSection(&section);
            if (free)
                LeaveCriticalSection(&section);
            return 0;
        });
        other.join();
        return free;
    }

    CRITICAL_SECTION section;
};

} // namespace

TEST(PlatformCriticalSection, IsRecursive)
{
    Section s;
    EXPECT_TRUE(s.isFree());
    EnterCriticalSection(&s.section);
    EXPECT_TRUE(TryEnterCriticalSection(&s.section));
    EnterCriticalSection(&s.section);
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(s.isFree());
        LeaveCriticalSection(&s.section);
    }
    EXPECT_TRUE(s.isFree());
}

TEST(PlatformCriticalSection, TouchesNoLastError)
{
    Section s;
    SetLastError(UNTOUCHED);
    EnterCriticalSection(&s.section);
    EXPECT_TRUE(TryEnterCriticalSection(&s.section));
    LeaveCriticalSection(&s.section);
    LeaveCriticalSection(&s.section);
    EXPECT_EQ(GetLastError(), UNTOUCHED);
}

TEST(PlatformCriticalSection, AWaiterEntersWhenItIsLeft)
{
    Section s;
    EnterCriticalSection(&s.section);
    Owned const begun = manualEvent(), in = manualEvent();
    Runner other([&] {
        SetEvent(begun);
        EnterCriticalSection(&s.section);
        SetEvent(in);
        LeaveCriticalSection(&s.section);
        return 0;
    });
    WaitForSingleObject(begun, INFINITE);
    EXPECT_EQ(WaitForSingleObject(in, 1), WAIT_TIMEOUT);
    LeaveCriticalSection(&s.section);
    EXPECT_EQ(WaitForSingleObject(in, LONG_TIME), WAIT_OBJECT_0);
}

TEST(PlatformCriticalSection, ExcludesUnderContention)
{
    constexpr int THREADS = 4, ROUNDS = 10000;
    Section s;
    long count = 0;
    {
        std::vector<std::unique_ptr<Runner>> runners;
        for (int i = 0; i < THREADS; ++i)
            runners.push_back(std::make_unique<Runner>([&, i] {
                for (int round = 0; round < ROUNDS; ++round) {
                    if (i == 0)
                        while (!TryEnterCriticalSection(&s.section))
                            Sleep(0);
                    else
                        EnterCriticalSection(&s.section);
                    ++count;
                    if (round % 32 == 0)
                        Sleep(0);
                    LeaveCriticalSection(&s.section);
                }
                return 0;
            }));
    }
    EXPECT_EQ(count, THREADS * ROUNDS);
    EXPECT_TRUE(s.isFree());
}

TEST(PlatformCriticalSection, TheThreadThatEntersMayDestroyIt)
{
    for (int round = 0; round < 300; ++round) {
        auto *s = new CRITICAL_SECTION;
        InitializeCriticalSection(s);
        EnterCriticalSection(s);
        Owned const begun = manualEvent();
        Runner other([&] {
            SetEvent(begun);
            EnterCriticalSection(s);
            LeaveCriticalSection(s);
            DeleteCriticalSection(s);
            delete s;
            return 0;
        });
        WaitForSingleObject(begun, INFINITE);
        LeaveCriticalSection(s);
    }
}

} // namespace ZvTest
