#include "platform/platformTest.h"

#include <cstring>
#include <ctime>

namespace ZvTest {

TEST(PlatformSystem, ReportsItsProcessors)
{
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    EXPECT_NE(info.wProcessorArchitecture, 0xFFFF) << "of an unknown machine";
    EXPECT_GE(info.dwNumberOfProcessors, 1u);
    EXPECT_NE(info.dwActiveProcessorMask, 0u);
    EXPECT_EQ(info.dwPageSize & (info.dwPageSize - 1), 0u);
    EXPECT_EQ(info.dwAllocationGranularity % info.dwPageSize, 0u);
    auto const address = reinterpret_cast<std::uintptr_t>(&info);
    EXPECT_GT(address, reinterpret_cast<std::uintptr_t>(info.lpMinimumApplicationAddress));
    EXPECT_LT(address, reinterpret_cast<std::uintptr_t>(info.lpMaximumApplicationAddress));
}

TEST(PlatformSystem, ReportsItsVersion)
{
    OSVERSIONINFOA version;
    std::memset(&version, 0xFF, sizeof version);
    version.dwOSVersionInfoSize = sizeof version;
    EXPECT_SUCCEEDS(GetVersionExA(&version));
    EXPECT_GE(version.dwMajorVersion, 1u);
    EXPECT_LT(version.dwMajorVersion, 1000u);
    EXPECT_LT(std::strlen(version.szCSDVersion), sizeof version.szCSDVersion);
    version.dwOSVersionInfoSize = 4;
    EXPECT_FAILS(ERROR_INSUFFICIENT_BUFFER, GetVersionExA(&version));
}

TEST(PlatformTime, TheCounterNeverGoesBack)
{
    LARGE_INTEGER frequency, last, now;
    EXPECT_TRUE(QueryPerformanceFrequency(&frequency));
    EXPECT_GT(frequency.QuadPart, 0);
    EXPECT_TRUE(QueryPerformanceCounter(&last));
    for (int i = 0; i < 10000; ++i) {
        EXPECT_TRUE(QueryPerformanceCounter(&now));
        ASSERT_GE(now.QuadPart, last.QuadPart);
        last = now;
    }
}

TEST(PlatformTime, MillisecondsAndTheCounterAgree)
{
    LARGE_INTEGER frequency, before, after;
    QueryPerformanceFrequency(&frequency);
    DWORD const first = timeGetTime();
    QueryPerformanceCounter(&before);
    Sleep(5);
    QueryPerformanceCounter(&after);
    DWORD const second = timeGetTime();
    // The inner measurement is never longer than the outer one, apart from rounding.
    LONGLONG const inner = (after.QuadPart - before.QuadPart) * 1000 / frequency.QuadPart;
    EXPECT_GE(inner, 5);
    EXPECT_GE(LONGLONG{second - first} + 1, inner);
}

TEST(PlatformTime, FileTimeIsTheUniversalTime)
{
    std::time_t const before = std::time(nullptr);
    FILETIME file;
    GetSystemTimePreciseAsFileTime(&file);
    std::time_t const after = std::time(nullptr);
    std::uint64_t const units = std::uint64_t{file.dwHighDateTime} << 32 | file.dwLowDateTime;
    auto const seconds = static_cast<std::time_t>(units / 10000000 - 11644473600);
    // The coarse clock may lag behind by a tick.
    EXPECT_GE(seconds, before);
    EXPECT_LE(seconds, after + 1);
}

TEST(PlatformTime, SleepIsNeverTooShort)
{
    LARGE_INTEGER frequency, before, after;
    QueryPerformanceFrequency(&frequency);
    Sleep(0);
    QueryPerformanceCounter(&before);
    Sleep(3);
    QueryPerformanceCounter(&after);
    EXPECT_GE((after.QuadPart - before.QuadPart) * 1000, 3 * frequency.QuadPart);
}

TEST(PlatformTime, ATimedWaitIsNeverTooShort)
{
    Owned const e = manualEvent();
    LARGE_INTEGER frequency, before, after;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&before);
    EXPECT_EQ(WaitForSingleObjectEx(e, 3, FALSE), WAIT_TIMEOUT);
    QueryPerformanceCounter(&after);
    EXPECT_GE((after.QuadPart - before.QuadPart) * 1000, 3 * frequency.QuadPart);
}

TEST(PlatformTime, LongWaitsEndWhenTheObjectIsThere)
{
    // Times that a signed number of milliseconds cannot hold. The second is just below INFINITE.
    Owned const e = autoEvent();
    for (DWORD milliseconds : {0x80000001u, 0xFFFFFFFEu}) {
        Runner setter([&] {
            SetEvent(e);
            return 0;
        });
        EXPECT_EQ(WaitForSingleObject(e, milliseconds), WAIT_OBJECT_0);
    }
}

TEST(PlatformSystem, LastErrorsAreKept)
{
    for (DWORD code : {0u, 1u, 0xFFFFFFFFu}) {
        SetLastError(code);
        EXPECT_EQ(GetLastError(), code);
    }
}

TEST(PlatformSystem, TheProcessHasOneNumber)
{
    DWORD const number = GetCurrentProcessId();
    EXPECT_NE(number, 0u);
    DWORD elsewhere = 0;
    Runner other([&] {
        elsewhere = GetCurrentProcessId();
        return 0;
    });
    other.join();
    EXPECT_EQ(elsewhere, number);
}

} // namespace ZvTest
