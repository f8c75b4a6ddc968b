#include "conformance/conformance.h"

#include <cstring>

namespace Conformance {

namespace {

char const *answer(bool truth)
{
    return truth ? "yes" : "no";
}

LONGLONG ticks()
{
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    return now.QuadPart;
}

LONGLONG today()
{
    FILETIME now;
    GetSystemTimePreciseAsFileTime(&now);
    return static_cast<LONGLONG>(static_cast<unsigned long long>(now.dwHighDateTime) << 32 |
                                 now.dwLowDateTime);
}

void showMachine()
{
    scene("what it runs on");
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    showText("processors", answer(info.dwNumberOfProcessors >= 1 && info.dwActiveProcessorMask));
    showText("pages of a power of two", answer((info.dwPageSize & (info.dwPageSize - 1)) == 0));
    showText("reservations of whole pages",
             answer(info.dwAllocationGranularity % info.dwPageSize == 0));
    OSVERSIONINFOA version;
    std::memset(&version, 0xFF, sizeof version);
    version.dwOSVersionInfoSize = sizeof version;
    TRUTH(GetVersionExA(&version));
    showText("a version", answer(version.dwMajorVersion >= 1 && version.dwMajorVersion < 1000));
    version.dwOSVersionInfoSize = 4;
    TRUTH(GetVersionExA(&version));
    showText("the process has a number", answer(GetCurrentProcessId() != 0));
}

void showClocks()
{
    scene("clocks");
    LARGE_INTEGER frequency, now;
    TRUTH(QueryPerformanceFrequency(&frequency));
    TRUTH(QueryPerformanceCounter(&now));
    showText("ticks a second", answer(frequency.QuadPart > 0));
    bool goesBack = false;
    LONGLONG last = ticks();
    for (int i = 0; i < 100; ++i) {
        LONGLONG const next = ticks();
        goesBack = goesBack || next < last;
        last = next;
    }
    showText("the counter goes back", answer(goesBack));

    DWORD const outer = timeGetTime();
    LONGLONG const day = today(), before = ticks();
    Sleep(5);
    LONGLONG const inner = (ticks() - before) * 1000 / frequency.QuadPart;
    showText("five milliseconds take as long, a tick of the clock aside", answer(inner >= 4));
    showText("the milliseconds agree with the counter",
             answer(LONGLONG{timeGetTime() - outer} + 2 >= inner));
    showText("so does the date", answer(today() - day >= 40000));
    // Between the years 2020 and 2200.
    LONGLONG const year = 10000000ll * 31556952;
    showText("it is of our days", answer(day / year >= 419 && day / year < 599));
}

void showSleep()
{
    scene("sleep");
    TRUTH((Sleep(0), TRUE));
    TRUTH((Sleep(1), TRUE));
    scene("waits longer than a signed number of milliseconds");
    Owned const e(CreateEventA(nullptr, FALSE, FALSE, nullptr));
    for (DWORD milliseconds : {0x80000001u, 0xFFFFFFFEu}) {
        Runner setter([&] {
            SetEvent(e);
            return DWORD{0};
        });
        WAIT(WaitForSingleObject(e, milliseconds));
    }
}

} // namespace

void showSystem()
{
    table("system");
    showMachine();
    showClocks();
    showSleep();
}

} // namespace Conformance
