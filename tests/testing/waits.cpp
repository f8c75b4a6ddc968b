// Records which threads sleep, for Windows, where the system does not always report it. The linker
// redirects all waits of a program here, also those of the C++ library. A wait that can end at once
// does not count as sleep.

#include "testing/asleep.h"

#include <windows.h>

#include <atomic>

namespace {

constinit std::atomic<bool> areAsleep[0x10000];

std::atomic<bool> &getIsAsleep(DWORD thread)
{
    return areAsleep[thread / 4 % 0x10000]; // identifiers are multiples of four
}

/// While an object exists, the calling thread counts as asleep.
class Asleep
{
public:
    Asleep() { getIsAsleep(::GetCurrentThreadId()) = true; }
    ~Asleep() { getIsAsleep(::GetCurrentThreadId()) = false; }
    Asleep(Asleep const &) = delete;
    Asleep &operator=(Asleep const &) = delete;
};

} // namespace

// The pointers through which a service is called. The linker makes all objects of the program use
// the second one.
#define ZV_WAIT(Name)                                                                              \
    extern decltype(&Name) real##Name __asm__("__real___imp_" #Name);                              \
    extern decltype(&Name) wrap##Name __asm__("__wrap___imp_" #Name)

ZV_WAIT(WaitForSingleObject);
ZV_WAIT(WaitForSingleObjectEx);
ZV_WAIT(WaitForMultipleObjects);
ZV_WAIT(WaitOnAddress);
ZV_WAIT(EnterCriticalSection);

BOOL WINAPI callWaitOnAddress(void volatile *address, void *compare, SIZE_T size,
                              DWORD milliseconds) __asm__("__wrap_WaitOnAddress");

namespace {

DWORD WINAPI waitForSingle(HANDLE object, DWORD milliseconds)
{
    DWORD const answer = realWaitForSingleObject(object, 0);
    if (answer != WAIT_TIMEOUT || milliseconds == 0)
        return answer;
    Asleep const asleep;
    return realWaitForSingleObject(object, milliseconds);
}

DWORD WINAPI waitForSingleEx(HANDLE object, DWORD milliseconds, BOOL alertable)
{
    DWORD const answer = realWaitForSingleObjectEx(object, 0, alertable);
    if (answer != WAIT_TIMEOUT || milliseconds == 0)
        return answer;
    Asleep const asleep;
    return realWaitForSingleObjectEx(object, milliseconds, alertable);
}

DWORD WINAPI waitForMultiple(DWORD count, HANDLE const *objects, BOOL all, DWORD milliseconds)
{
    DWORD const answer = realWaitForMultipleObjects(count, objects, all, 0);
    if (answer != WAIT_TIMEOUT || milliseconds == 0)
        return answer;
    Asleep const asleep;
    return realWaitForMultipleObjects(count, objects, all, milliseconds);
}

BOOL WINAPI waitOnAddress(void volatile *address, void *compare, SIZE_T size, DWORD milliseconds)
{
    BOOL const answer = realWaitOnAddress(address, compare, size, 0);
    if (answer || milliseconds == 0)
        return answer;
    Asleep const asleep;
    return realWaitOnAddress(address, compare, size, milliseconds);
}

void WINAPI enter(CRITICAL_SECTION *section)
{
    if (::TryEnterCriticalSection(section))
        return;
    Asleep const asleep;
    realEnterCriticalSection(section);
}

} // namespace

// mingw-w64's header does not declare it as imported, so it is called by its name and not through a
// pointer.
BOOL WINAPI callWaitOnAddress(void volatile *address, void *compare, SIZE_T size,
                              DWORD milliseconds)
{
    return waitOnAddress(address, compare, size, milliseconds);
}

constinit decltype(&WaitForSingleObject) wrapWaitForSingleObject = waitForSingle;
constinit decltype(&WaitForSingleObjectEx) wrapWaitForSingleObjectEx = waitForSingleEx;
constinit decltype(&WaitForMultipleObjects) wrapWaitForMultipleObjects = waitForMultiple;
constinit decltype(&WaitOnAddress) wrapWaitOnAddress = waitOnAddress;
constinit decltype(&EnterCriticalSection) wrapEnterCriticalSection = enter;

namespace ZvTest {

long threadNumber()
{
    DWORD const number = ::GetCurrentThreadId();
    getIsAsleep(number) = false; // a thread with this identifier may have been killed in a wait
    return static_cast<long>(number);
}

bool isAsleep(long number)
{
    return getIsAsleep(static_cast<DWORD>(number));
}

} // namespace ZvTest
