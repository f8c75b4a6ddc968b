// The operating-system services that the library stands on, by their Windows names and with their semantics,
// last-error codes included. On Windows they are the system's own; elsewhere the folder of the platform has them.
//
// Included by sources only. Only the classes with the suffix `Windows` or `WinNT`, the allocators, libzvbase and
// the few utilities that name a service see this header.
#pragma once

#include "zvbase/platform/types.h"

#include <cstddef>
#include <cstdint>

#ifdef _WIN32

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <rpc.h>
#include <timeapi.h>

#ifdef __MINGW32__ // has it in its libraries, but in no header
extern "C" __declspec(dllimport) HRESULT
    __stdcall SetThreadDescription(HANDLE thread, PCWSTR description);
#endif

// Public classes hold a critical section without the system's header: these give its functions what they hold.

static_assert(sizeof(CRITICAL_SECTION) <= sizeof(ZvPlatform::CriticalSection));

inline void InitializeCriticalSection(ZvPlatform::CriticalSection *section)
{
    InitializeCriticalSection(reinterpret_cast<CRITICAL_SECTION *>(section));
}
inline void EnterCriticalSection(ZvPlatform::CriticalSection *section)
{
    EnterCriticalSection(reinterpret_cast<CRITICAL_SECTION *>(section));
}
inline BOOL TryEnterCriticalSection(ZvPlatform::CriticalSection *section)
{
    return TryEnterCriticalSection(reinterpret_cast<CRITICAL_SECTION *>(section));
}
inline void LeaveCriticalSection(ZvPlatform::CriticalSection *section)
{
    LeaveCriticalSection(reinterpret_cast<CRITICAL_SECTION *>(section));
}
inline void DeleteCriticalSection(ZvPlatform::CriticalSection *section)
{
    DeleteCriticalSection(reinterpret_cast<CRITICAL_SECTION *>(section));
}

#else

// Exported, for libzvresmgt, under private names: the namespace is no part of any interface.
#pragma GCC visibility push(default)

namespace ZvPlatform {

using BOOL = int;
using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using LONG = std::int32_t;
using LONGLONG = std::int64_t;
using UINT = unsigned;
using SIZE_T = std::size_t;
using DWORD_PTR = std::uintptr_t;
using HANDLE = Handle;
using CRITICAL_SECTION = CriticalSection;

inline constexpr BOOL FALSE = 0;
inline constexpr BOOL TRUE = 1;
inline constexpr DWORD INFINITE = 0xFFFFFFFF;
inline constexpr DWORD MAX_PATH = 260;
inline constexpr DWORD TLS_MINIMUM_AVAILABLE = 64;
inline constexpr DWORD TLS_OUT_OF_INDEXES = 0xFFFFFFFF;
inline constexpr DWORD FLS_OUT_OF_INDEXES = 0xFFFFFFFF;

// ---- last error -----------------------------------------------------------------------------------------

inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
inline constexpr DWORD ERROR_ACCESS_DENIED = 5;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;
inline constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr DWORD ERROR_NOT_SUPPORTED = 50;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr DWORD ERROR_INVALID_NAME = 123;
inline constexpr DWORD ERROR_MAX_THRDS_REACHED = 164;
inline constexpr DWORD ERROR_ALREADY_EXISTS = 183;
inline constexpr DWORD ERROR_FILENAME_EXCED_RANGE = 206;
inline constexpr DWORD ERROR_NO_MORE_ITEMS = 259;
inline constexpr DWORD ERROR_NOT_OWNER = 288;
inline constexpr DWORD ERROR_TOO_MANY_POSTS = 298;
inline constexpr DWORD ERROR_INVALID_ADDRESS = 487;
inline constexpr DWORD ERROR_PRIVILEGE_NOT_HELD = 1314;
inline constexpr DWORD ERROR_TIMEOUT = 1460;

/// The code that the calling thread's last failed service left. A service that succeeds leaves it alone, except
/// where it makes an object that can have a name: then it is 0 or ERROR_ALREADY_EXISTS. TlsGetValue clears it, too.
DWORD GetLastError();
void SetLastError(DWORD code);

// ---- waiting --------------------------------------------------------------------------------------------

inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_ABANDONED = 0x80;
inline constexpr DWORD WAIT_TIMEOUT = 258;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;

/// Waits for a mutex, semaphore, event, timer or thread. Milliseconds; INFINITE waits for ever, 0 only tries.
DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds);
DWORD WaitForSingleObjectEx(HANDLE object, DWORD milliseconds, BOOL alertable);

/// Sleeps while the `size` bytes (1, 2, 4 or 8) at `address` equal those at `compare`. May wake without a cause.
BOOL WaitOnAddress(void volatile *address, void *compare, SIZE_T size, DWORD milliseconds);
void WakeByAddressSingle(void *address);
void WakeByAddressAll(void *address);

BOOL CloseHandle(HANDLE object);

inline constexpr DWORD DUPLICATE_CLOSE_SOURCE = 1;
inline constexpr DWORD DUPLICATE_SAME_ACCESS = 2;
/// Makes a handle of what stands for the current thread; of another handle, one more that is closed by itself.
BOOL DuplicateHandle(HANDLE sourceProcess, HANDLE source, HANDLE targetProcess, HANDLE *target,
                     DWORD access, BOOL inherit, DWORD options);

// ---- mutexes, events, semaphores, timers ----------------------------------------------------------------

// A name has less than MAX_PATH bytes, and no backslash but that of a prefix: "Local\" changes nothing, "Global\" makes
// it another name.

struct SECURITY_ATTRIBUTES;

inline constexpr DWORD SEMAPHORE_ALL_ACCESS = 0x1F0003;

HANDLE CreateMutexA(SECURITY_ATTRIBUTES *, BOOL initiallyOwned, char const *name);
BOOL ReleaseMutex(HANDLE mutex);

HANDLE CreateEventA(SECURITY_ATTRIBUTES *, BOOL manualReset, BOOL initialState, char const *name);
BOOL SetEvent(HANDLE event);
BOOL ResetEvent(HANDLE event);
/// Releases those who wait at this moment, all or one, and leaves the event unset.
BOOL PulseEvent(HANDLE event);

HANDLE CreateSemaphoreA(SECURITY_ATTRIBUTES *, LONG initialCount, LONG maximumCount,
                        char const *name);
HANDLE OpenSemaphoreA(DWORD access, BOOL inherit, char const *name);
BOOL ReleaseSemaphore(HANDLE semaphore, LONG count, LONG *previousCount);

union LARGE_INTEGER
{
    LONGLONG QuadPart;
};

/// A timer to wait for. A negative due time counts from now, in units of 100 ns; `period` is in milliseconds.
/// Completion routines are not served.
HANDLE CreateWaitableTimerA(SECURITY_ATTRIBUTES *, BOOL manualReset, char const *name);
BOOL SetWaitableTimer(HANDLE timer, LARGE_INTEGER const *dueTime, LONG period, void *routine,
                      void *argument, BOOL resume);
BOOL CancelWaitableTimer(HANDLE timer);

// The names that the system's headers map to the forms above.
#define CreateMutex CreateMutexA
#define CreateEvent CreateEventA
#define CreateSemaphore CreateSemaphoreA

// ---- critical sections ----------------------------------------------------------------------------------

void InitializeCriticalSection(CRITICAL_SECTION *);
void EnterCriticalSection(CRITICAL_SECTION *);
BOOL TryEnterCriticalSection(CRITICAL_SECTION *);
void LeaveCriticalSection(CRITICAL_SECTION *);
void DeleteCriticalSection(CRITICAL_SECTION *);

// ---- threads and processes ------------------------------------------------------------------------------

using LPTHREAD_START_ROUTINE = DWORD (*)(void *);

inline constexpr int THREAD_PRIORITY_IDLE = -15;
inline constexpr int THREAD_PRIORITY_LOWEST = -2;
inline constexpr int THREAD_PRIORITY_BELOW_NORMAL = -1;
inline constexpr int THREAD_PRIORITY_NORMAL = 0;
inline constexpr int THREAD_PRIORITY_ABOVE_NORMAL = 1;
inline constexpr int THREAD_PRIORITY_HIGHEST = 2;
inline constexpr int THREAD_PRIORITY_TIME_CRITICAL = 15;
inline constexpr int THREAD_PRIORITY_ERROR_RETURN = 0x7FFFFFFF;

inline constexpr DWORD NORMAL_PRIORITY_CLASS = 32;
inline constexpr DWORD IDLE_PRIORITY_CLASS = 64;
inline constexpr DWORD HIGH_PRIORITY_CLASS = 128;
inline constexpr DWORD REALTIME_PRIORITY_CLASS = 256;

inline constexpr DWORD STILL_ACTIVE = 259;

inline constexpr DWORD STACK_SIZE_PARAM_IS_A_RESERVATION = 0x10000;

/// `stackSize` bytes are the thread's own frames' to use: thread-local storage, guard page and what a sanitizer
/// needs come on top. 0 gives a mebibyte. The only flag that is served is the one above, which changes nothing here.
HANDLE CreateThread(SECURITY_ATTRIBUTES *, SIZE_T stackSize, LPTHREAD_START_ROUTINE function,
                    void *argument, DWORD flags, DWORD *threadId);
/// Ends a thread wherever it is, waiting or computing. Its mutexes become abandoned, its handle is signalled;
/// nothing of its stack is unwound. One that is killed inside the allocator may leave it locked.
/// Returns when the thread is gone. On Linux a thread that computes is reached by a signal (linux/killing.h): one that
/// has blocked it past the C library is gone at its next service.
BOOL TerminateThread(HANDLE thread, DWORD exitCode);
BOOL GetExitCodeThread(HANDLE thread, DWORD *exitCode);
/// The first 15 bytes reach the system. What fails is told by the result, not by the last error.
long SetThreadDescription(HANDLE thread, wchar_t const *name);

/// Only threads that CreateThread made change their scheduling; for any other the level is merely remembered.
BOOL SetThreadPriority(HANDLE thread, int priority);
int GetThreadPriority(HANDLE thread);
/// REALTIME_PRIORITY_CLASS fails with ERROR_PRIVILEGE_NOT_HELD where the process may not have it.
BOOL SetPriorityClass(HANDLE process, DWORD priorityClass);
DWORD GetPriorityClass(HANDLE process);

HANDLE GetCurrentThread();
HANDLE GetCurrentProcess();
DWORD GetCurrentThreadId();
DWORD GetCurrentProcessId();

BOOL GetProcessAffinityMask(HANDLE process, DWORD_PTR *processMask, DWORD_PTR *systemMask);
DWORD_PTR SetThreadAffinityMask(HANDLE thread, DWORD_PTR mask);

DWORD TlsAlloc();
BOOL TlsFree(DWORD index);
void *TlsGetValue(DWORD index);
BOOL TlsSetValue(DWORD index, void *value);

using PFLS_CALLBACK_FUNCTION = void (*)(void *);
/// A slot whose value, where it is not null, goes to `callback` when its thread ends, whoever made that; not when it is
/// killed. In the thread itself, which is still served.
DWORD FlsAlloc(PFLS_CALLBACK_FUNCTION callback);
BOOL FlsSetValue(DWORD index, void *value);

// ---- memory ---------------------------------------------------------------------------------------------

inline constexpr DWORD MEM_COMMIT = 0x1000;
inline constexpr DWORD MEM_RESERVE = 0x2000;
inline constexpr DWORD MEM_DECOMMIT = 0x4000;
inline constexpr DWORD MEM_RELEASE = 0x8000;
inline constexpr DWORD PAGE_NOACCESS = 0x01;
inline constexpr DWORD PAGE_READONLY = 0x02;
inline constexpr DWORD PAGE_READWRITE = 0x04;

void *VirtualAlloc(void *address, SIZE_T size, DWORD type, DWORD protection);
BOOL VirtualFree(void *address, SIZE_T size, DWORD type);

// ---- system ---------------------------------------------------------------------------------------------

struct SYSTEM_INFO
{
    WORD wProcessorArchitecture;
    WORD wReserved;
    DWORD dwPageSize;
    void *lpMinimumApplicationAddress;
    void *lpMaximumApplicationAddress;
    DWORD_PTR dwActiveProcessorMask;
    DWORD dwNumberOfProcessors;
    DWORD dwProcessorType;
    DWORD dwAllocationGranularity;
    WORD wProcessorLevel;
    WORD wProcessorRevision;
};

struct OSVERSIONINFOA
{
    DWORD dwOSVersionInfoSize;
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    char szCSDVersion[128];
};

void GetSystemInfo(SYSTEM_INFO *);
BOOL GetVersionExA(OSVERSIONINFOA *);

// ---- time -----------------------------------------------------------------------------------------------

struct FILETIME
{
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};

/// Milliseconds of a monotonic clock; wraps after 49.7 days.
DWORD timeGetTime();
/// A monotonic clock of QueryPerformanceFrequency ticks a second.
BOOL QueryPerformanceCounter(LARGE_INTEGER *);
BOOL QueryPerformanceFrequency(LARGE_INTEGER *);
/// Universal time, in units of 100 ns since the first of January 1601.
void GetSystemTimePreciseAsFileTime(FILETIME *);
/// Milliseconds; 0 gives the processor away once.
void Sleep(DWORD milliseconds);

// ---- identifiers ----------------------------------------------------------------------------------------

using RPC_STATUS = long;
using RPC_CSTR = unsigned char *;

inline constexpr RPC_STATUS RPC_S_OK = 0;
inline constexpr RPC_STATUS RPC_S_OUT_OF_MEMORY = 14;
inline constexpr RPC_STATUS RPC_S_INVALID_STRING_UUID = 1705;

struct UUID
{
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];
};

RPC_STATUS UuidCreate(UUID *);
RPC_STATUS UuidCreateNil(UUID *);
int UuidIsNil(UUID *, RPC_STATUS *);
int UuidEqual(UUID *, UUID *, RPC_STATUS *);
/// -1, 0 or 1, field by field as unsigned numbers.
int UuidCompare(UUID *, UUID *, RPC_STATUS *);
std::uint16_t UuidHash(UUID *, RPC_STATUS *);
RPC_STATUS UuidFromStringA(RPC_CSTR text, UUID *);
RPC_STATUS UuidToStringA(UUID const *, RPC_CSTR *text);
RPC_STATUS RpcStringFreeA(RPC_CSTR *text);

} // namespace ZvPlatform

#pragma GCC visibility pop

using namespace ZvPlatform;

#endif

#if defined(_WIN32) || defined(ZV_PLATFORM_SIMULATED)

namespace ZvPlatform {

/// What linux/fastWays.h has is the service's alone here.
inline bool takeMutexAtOnce(Handle)
{
    return false;
}
inline bool releaseMutexAtOnce(Handle)
{
    return false;
}
inline bool enterAtOnce(CriticalSection *)
{
    return false;
}

} // namespace ZvPlatform

#else

#include "platform/linux/fastWays.h"

#endif
