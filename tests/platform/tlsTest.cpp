#include "platform/platformTest.h"

#include <atomic>
#include <thread>

namespace ZvTest {

namespace {

constexpr DWORD MOST = 1088;
constexpr DWORD MOST_FLS = 4080; // the most of any system

struct Slot
{
    Slot() { EXPECT_NE(index, TLS_OUT_OF_INDEXES); }
    ~Slot() { EXPECT_TRUE(TlsFree(index)); }
    Slot(Slot const &) = delete;
    Slot &operator=(Slot const &) = delete;

    DWORD index = TlsAlloc();
};

int values[2];

} // namespace

TEST(PlatformTls, ANewSlotIsEmptyAndKeepsWhatIsStored)
{
    Slot slot;
    EXPECT_EQ(TlsGetValue(slot.index), nullptr);
    EXPECT_SUCCEEDS(TlsSetValue(slot.index, &values[0]));
    EXPECT_EQ(TlsGetValue(slot.index), &values[0]);
    EXPECT_TRUE(TlsSetValue(slot.index, nullptr));
    EXPECT_EQ(TlsGetValue(slot.index), nullptr);
}

TEST(PlatformTls, ReadingClearsTheLastError)
{
    // Null is a valid value, so the last error tells it from a failure.
    Slot slot;
    SetLastError(UNTOUCHED);
    EXPECT_EQ(TlsGetValue(slot.index), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
}

TEST(PlatformTls, EachThreadHasItsOwnValue)
{
    Slot slot;
    EXPECT_TRUE(TlsSetValue(slot.index, &values[0]));
    for (int round = 0; round < 3; ++round) {
        Runner other([&] {
            EXPECT_EQ(TlsGetValue(slot.index), nullptr);
            EXPECT_TRUE(TlsSetValue(slot.index, &values[1]));
            EXPECT_EQ(TlsGetValue(slot.index), &values[1]);
            return 0;
        });
    }
    EXPECT_EQ(TlsGetValue(slot.index), &values[0]);
}

TEST(PlatformTls, ASlotThatIsGivenOutAnewIsEmptyInEveryThread)
{
    DWORD index = TlsAlloc();
    EXPECT_TRUE(TlsSetValue(index, &values[0]));
    Owned const stored = manualEvent(), renewed = manualEvent();
    Runner other([&] {
        EXPECT_TRUE(TlsSetValue(index, &values[1]));
        SetEvent(stored);
        WaitForSingleObject(renewed, INFINITE);
        EXPECT_EQ(TlsGetValue(index), nullptr);
        return 0;
    });
    WaitForSingleObject(stored, INFINITE);
    EXPECT_TRUE(TlsFree(index));
    ASSERT_EQ(TlsAlloc(), index);
    EXPECT_EQ(TlsGetValue(index), nullptr);
    SetEvent(renewed);
    other.join();
    EXPECT_TRUE(TlsFree(index));
}

TEST(PlatformTls, SlotsRunOutInTheEnd)
{
    std::vector<DWORD> slots;
    SetLastError(UNTOUCHED);
    for (;;) {
        DWORD const index = TlsAlloc();
        if (index == TLS_OUT_OF_INDEXES)
            break;
        slots.push_back(index);
        ASSERT_LE(slots.size(), MOST);
        EXPECT_TRUE(TlsSetValue(index, &slots));
    }
    EXPECT_EQ(GetLastError(), ERROR_NO_MORE_ITEMS);
    EXPECT_GE(slots.size(), TLS_MINIMUM_AVAILABLE);
    Runner other([&] {
        for (DWORD index : slots) {
            EXPECT_EQ(TlsGetValue(index), nullptr);
            EXPECT_TRUE(TlsSetValue(index, &index));
        }
        return 0;
    });
    other.join();
    // Later threads do not find the values of an earlier one.
    Runner next([&] {
        for (DWORD index : slots)
            EXPECT_EQ(TlsGetValue(index), nullptr);
        return 0;
    });
    next.join();
    for (DWORD index : slots) {
        EXPECT_EQ(TlsGetValue(index), &slots);
        EXPECT_TRUE(TlsFree(index));
    }
    Slot again;
}

namespace {

/// What the callback of a slot was called with, and by which thread.
struct Called
{
    std::atomic<int> count{0};
    void *value = nullptr;
    DWORD thread = 0;
    DWORD inTls = 0;
};

Called called;
DWORD tlsOfEnding;

void onEnd(void *value)
{
    called.value = value;
    called.thread = GetCurrentThreadId();
    called.inTls = TlsGetValue(tlsOfEnding) != nullptr; // the thread is still served
    ++called.count;
}

} // namespace

TEST(PlatformFls, AThreadThatEndsCallsBackWithItsValue)
{
    Slot tls;
    tlsOfEnding = tls.index;
    DWORD const index = FlsAlloc(onEnd);
    ASSERT_NE(index, FLS_OUT_OF_INDEXES);
    called.count = 0;
    DWORD number = 0;
    {
        Runner t([&] {
            EXPECT_TRUE(TlsSetValue(tls.index, &values[1]));
            EXPECT_SUCCEEDS(FlsSetValue(index, &values[0]));
            EXPECT_EQ(called.count, 0);
            return 0;
        });
        number = t.number();
    }
    EXPECT_EQ(called.count, 1);
    EXPECT_EQ(called.value, &values[0]);
    EXPECT_EQ(called.thread, number);
    EXPECT_TRUE(called.inTls);
    {
        Runner indifferent([] { return 0; });
        Runner changing([&] {
            EXPECT_TRUE(FlsSetValue(index, &values[0]));
            EXPECT_TRUE(FlsSetValue(index, nullptr));
            return 0;
        });
    }
    EXPECT_EQ(called.count, 1);
    for (DWORD bad : {MOST_FLS, FLS_OUT_OF_INDEXES})
        EXPECT_FAILS(ERROR_INVALID_PARAMETER, FlsSetValue(bad, &values[0]));
}

TEST(PlatformFls, AThreadThatIsKilledDoesNotCallBack)
{
    DWORD const index = FlsAlloc(onEnd);
    Owned const begun = manualEvent();
    called.count = 0;
    Runner t([&] {
        EXPECT_TRUE(FlsSetValue(index, &values[0]));
        SetEvent(begun);
        return WaitForSingleObject(GetCurrentThread(), INFINITE);
    });
    WaitForSingleObject(begun, INFINITE);
    EXPECT_TRUE(TerminateThread(t.handle(), 0));
    EXPECT_EQ(called.count, 0);
}

TEST(PlatformFls, AThreadThatOthersMadeCallsBackToo)
{
    Slot tls;
    tlsOfEnding = tls.index;
    DWORD const index = FlsAlloc(onEnd);
    called.count = 0;
    DWORD number = 0;
    std::thread([&] {
        number = GetCurrentThreadId();
        EXPECT_TRUE(FlsSetValue(index, &values[1]));
    }).join();
    EXPECT_EQ(called.count, 1);
    EXPECT_EQ(called.value, &values[1]);
    EXPECT_EQ(called.thread, number);
}

TEST(PlatformTls, WrongIndexesFail)
{
    for (DWORD bad : {MOST, MOST + 1, TLS_OUT_OF_INDEXES}) {
        EXPECT_FAILS(ERROR_INVALID_PARAMETER, TlsGetValue(bad));
        EXPECT_FAILS(ERROR_INVALID_PARAMETER, TlsSetValue(bad, &values[0]));
        EXPECT_FAILS(ERROR_INVALID_PARAMETER, TlsFree(bad));
    }
    DWORD const index = TlsAlloc();
    EXPECT_TRUE(TlsFree(index));
    EXPECT_FAILS(ERROR_INVALID_PARAMETER, TlsFree(index));
}

} // namespace ZvTest
