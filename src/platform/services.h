// Services of the operating system, by their Windows names and with their semantics, including
// last-error codes. On Windows they are the services of the system itself. For other systems the
// folder of the platform implements them.
//
// Only sources may include this header: the classes with the suffix `Windows` or `WinNT`, the
// allocators, libzvbase and the few utilities that name a service.
#pragma once

#include "zvbase/platform/types.h"

#include <cstddef>
#include <cstdint>

#ifdef _WIN32

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include "platform/priorityTable.h"

#include <rpc.h>
#include <timeapi.h>

#ifdef __MINGW32__ // the function is in its libraries, but in no header
extern "C" __declspec(dllimport) HRESULT
    __stdcall SetThreadDescription(HANDLE thread, PCWSTR description);
#endif

// Public classes hold a `ZvPlatform::CriticalSection`, so that they need no header of the system.
// These functions pass it to the system.

static_assert(sizeof(CRITICAL_SECTION) <= sizeof(ZvPlatform::CriticalSection));

namespace ZvPlatform {

struct Scheduling
{
    bool isRealTime;
    int priority;
};

inline Scheduling schedulingOf(DWORD priorityClass, int level)
{
    PriorityTable::Row const &row = *PriorityTable::findRow(priorityClass);
    return {priorityClass == REALTIME_PRIORITY_CLASS,
            row.basePriorities[PriorityTable::findLevel(level)]};
}

inline DWORD readScheduling(HANDLE thread, Scheduling &scheduling)
{
    int const level = ::GetThreadPriority(thread);
    DWORD exitCode = 0;
    if (PriorityTable::findLevel(level) < 0 || !::GetExitCodeThread(thread, &exitCode) ||
        exitCode != STILL_ACTIVE)
        return 0;
    scheduling = schedulingOf(::GetPriorityClass(::GetCurrentProcess()), level);
    return ::GetThreadId(thread);
}

} // namespace ZvPlatform

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

// Exported for libzvresmgt only. The functions are not part of any public interface.
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

// ---- last error ---------------------------------------------------------------------------------

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

/// Returns the code that the last failed service of the calling thread has set. A service that
/// succeeds does not change it, with two exceptions. A service that creates an object sets it to 0
/// or ERROR_ALREADY_EXISTS if the object can have a name. `TlsGetValue` sets it to 0.
DWORD GetLastError();
void SetLastError(DWORD code);

// ---- waiting ------------------------------------------------------------------------------------

inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_ABANDONED = 0x80;
inline constexpr DWORD WAIT_TIMEOUT = 258;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;

/// Waits for a mutex, semaphore, event, timer or thread. The time is in milliseconds. INFINITE
/// waits without a limit, and 0 only tries.
DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds);
DWORD WaitForSingleObjectEx(HANDLE object, DWORD milliseconds, BOOL alertable);

/// If the `size` bytes (1, 2, 4 or 8) at `address` equal those at `compare`, sleeps until the
/// address is woken. May also return TRUE without a cause. Returns FALSE, with ERROR_TIMEOUT, if
/// the time is over.
BOOL WaitOnAddress(void volatile *address, void *compare, SIZE_T size, DWORD milliseconds);
void WakeByAddressSingle(void *address);
void WakeByAddressAll(void *address);

BOOL CloseHandle(HANDLE object);

inline constexpr DWORD DUPLICATE_CLOSE_SOURCE = 1;
inline constexpr DWORD DUPLICATE_SAME_ACCESS = 2;
/// Makes a handle of the calling thread from `GetCurrentThread()`. From another handle, makes one
/// more handle of its object. Each handle must be closed separately.
BOOL DuplicateHandle(HANDLE sourceProcess, HANDLE source, HANDLE targetProcess, HANDLE *target,
                     DWORD access, BOOL inherit, DWORD options);

// ---- mutexes, events, semaphores, timers --------------------------------------------------------

// A name must have fewer than MAX_PATH bytes, and no backslash except that of a prefix. The prefix
// "Local\" has no effect. The prefix "Global\" makes it a different name.

struct SECURITY_ATTRIBUTES;

inline constexpr DWORD SEMAPHORE_ALL_ACCESS = 0x1F0003;

HANDLE CreateMutexA(SECURITY_ATTRIBUTES *, BOOL initiallyOwned, char const *name);
BOOL ReleaseMutex(HANDLE mutex);

HANDLE CreateEventA(SECURITY_ATTRIBUTES *, BOOL manualReset, BOOL initialState, char const *name);
BOOL SetEvent(HANDLE event);
BOOL ResetEvent(HANDLE event);
/// Releases threads that wait at this moment, all of them if the event is reset manually, else one.
/// Leaves the event unset.
BOOL PulseEvent(HANDLE event);

HANDLE CreateSemaphoreA(SECURITY_ATTRIBUTES *, LONG initialCount, LONG maximumCount,
                        char const *name);
HANDLE OpenSemaphoreA(DWORD access, BOOL inherit, char const *name);
BOOL ReleaseSemaphore(HANDLE semaphore, LONG count, LONG *previousCount);

union LARGE_INTEGER
{
    LONGLONG QuadPart;
};

/// A timer to wait for. A negative due time counts from now, in units of 100 ns. Another due time
/// is a moment of `GetSystemTimePreciseAsFileTime`. `period` is in milliseconds. A completion
/// routine is refused with ERROR_NOT_SUPPORTED.
HANDLE CreateWaitableTimerA(SECURITY_ATTRIBUTES *, BOOL manualReset, char const *name);
BOOL SetWaitableTimer(HANDLE timer, LARGE_INTEGER const *dueTime, LONG period, void *routine,
                      void *argument, BOOL resume);
BOOL CancelWaitableTimer(HANDLE timer);

// The system's headers map these names to the forms above.
#define CreateMutex CreateMutexA
#define CreateEvent CreateEventA
#define CreateSemaphore CreateSemaphoreA

// ---- critical sections --------------------------------------------------------------------------

void InitializeCriticalSection(CRITICAL_SECTION *);
void EnterCriticalSection(CRITICAL_SECTION *);
BOOL TryEnterCriticalSection(CRITICAL_SECTION *);
void LeaveCriticalSection(CRITICAL_SECTION *);
void DeleteCriticalSection(CRITICAL_SECTION *);

// ---- threads and processes ----------------------------------------------------------------------

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

/// The frames of the thread can use `stackSize` bytes. Thread-local storage, the guard page and
/// what a sanitizer needs are added. 0 means 1 MiB. The only allowed flag is the one above, which
/// has no effect here.
HANDLE CreateThread(SECURITY_ATTRIBUTES *, SIZE_T stackSize, LPTHREAD_START_ROUTINE function,
                    void *argument, DWORD flags, DWORD *threadId);
/// Ends a thread wherever it is, even if it waits or computes. Its mutexes become abandoned, and
/// its handle is signalled. Its stack is not unwound. If it is killed inside the allocator, the
/// allocator may stay locked. Returns when the thread is gone, unless it is the calling thread. On
/// Linux a thread that computes is reached by a signal (linux/killing.h). If the thread has blocked
/// that signal by a system call of its own, it ends at its next service.
BOOL TerminateThread(HANDLE thread, DWORD exitCode);
BOOL GetExitCodeThread(HANDLE thread, DWORD *exitCode);
/// The system gets the first 15 bytes. Returns 0 or an error code, and does not change the last
/// error.
long SetThreadDescription(HANDLE thread, wchar_t const *name);

/// Changes the scheduling of threads that CreateThread made. For other threads the level is only
/// remembered.
BOOL SetThreadPriority(HANDLE thread, int priority);
int GetThreadPriority(HANDLE thread);
/// REALTIME_PRIORITY_CLASS fails with ERROR_PRIVILEGE_NOT_HELD if the process may not have it.
BOOL SetPriorityClass(HANDLE process, DWORD priorityClass);
DWORD GetPriorityClass(HANDLE process);

/// The scheduling of a thread, in the terms of the system. On Linux the priority is that of
/// SCHED_RR or SCHED_FIFO in real time, and otherwise the nice value. On Windows and in the
/// simulated form it is the base priority.
struct Scheduling
{
    bool isRealTime;
    int priority;
};

/// Returns what a level asks the system for in a process of a class. Both must be in
/// `PriorityTable`.
Scheduling schedulingOf(DWORD priorityClass, int level);
/// Asks the system how it schedules a thread. Returns the number that the system gives the thread.
/// Returns 0, with `scheduling` as it was, if the thread has not begun or has ended.
DWORD readScheduling(HANDLE thread, Scheduling &scheduling);

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
/// Returns a slot with a callback. If the slot's value is not null when a thread ends, that thread
/// calls `callback` with the value, and can still use the services there. This holds for all
/// threads, except for those that are killed.
DWORD FlsAlloc(PFLS_CALLBACK_FUNCTION callback);
BOOL FlsSetValue(DWORD index, void *value);

// ---- memory -------------------------------------------------------------------------------------

inline constexpr DWORD MEM_COMMIT = 0x1000;
inline constexpr DWORD MEM_RESERVE = 0x2000;
inline constexpr DWORD MEM_DECOMMIT = 0x4000;
inline constexpr DWORD MEM_RELEASE = 0x8000;
inline constexpr DWORD PAGE_NOACCESS = 0x01;
inline constexpr DWORD PAGE_READONLY = 0x02;
inline constexpr DWORD PAGE_READWRITE = 0x04;

void *VirtualAlloc(void *address, SIZE_T size, DWORD type, DWORD protection);
BOOL VirtualFree(void *address, SIZE_T size, DWORD type);

// ---- system -------------------------------------------------------------------------------------

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

// ---- time ---------------------------------------------------------------------------------------

struct FILETIME
{
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};

/// Returns milliseconds of a monotonic clock. The number wraps around after 49.7 days.
DWORD timeGetTime();
/// A monotonic clock. It has `QueryPerformanceFrequency` ticks per second.
BOOL QueryPerformanceCounter(LARGE_INTEGER *);
BOOL QueryPerformanceFrequency(LARGE_INTEGER *);
/// Universal time, in units of 100 ns since the first of January 1601.
void GetSystemTimePreciseAsFileTime(FILETIME *);
/// Sleeps for milliseconds. 0 yields the processor once.
void Sleep(DWORD milliseconds);

// ---- identifiers --------------------------------------------------------------------------------

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
/// Returns -1, 0 or 1. The fields are compared one by one, as unsigned numbers.
int UuidCompare(UUID *, UUID *, RPC_STATUS *);
std::uint16_t UuidHash(UUID *, RPC_STATUS *);
RPC_STATUS UuidFromStringA(RPC_CSTR text, UUID *);
RPC_STATUS UuidToStringA(UUID const *, RPC_CSTR *text);
RPC_STATUS RpcStringFreeA(RPC_CSTR *text);

} // namespace ZvPlatform

#pragma GCC visibility pop

using namespace ZvPlatform;

#endif

// ---- stamps of moments --------------------------------------------------------------------------

namespace ZvPlatform {

/// A moment on two clocks.
struct Moment
{
    std::uint64_t stamp; ///< of `readStamp`
    LONGLONG clock;      ///< of `QueryPerformanceCounter`
};

/// Returns a number that grows with time, at a constant rate. It is cheaper than the clock. A stamp
/// that is taken after another one, on any thread, is not less. When the machine has slept, stamps
/// may begin anew.
std::uint64_t readStamp();
/// Reads both clocks. They may differ by a fraction of a microsecond.
Moment readMoment();

} // namespace ZvPlatform

#if defined(_WIN32) || (defined(ZV_PLATFORM_SIMULATED) && !defined(ZV_KERNEL_SIMULATED))

namespace ZvPlatform {

inline Moment readMoment()
{
    LARGE_INTEGER now;
    ::QueryPerformanceCounter(&now);
    return {static_cast<std::uint64_t>(now.QuadPart), now.QuadPart};
}
inline std::uint64_t readStamp()
{
    return readMoment().stamp;
}

/// On Windows and in the simulated form, only the services themselves do what linux/fastWays.h does
/// inline.
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
inline bool takeSemaphoreAtOnce(Handle)
{
    return false;
}
inline bool postSemaphoreAtOnce(Handle, std::uint32_t)
{
    return false;
}

} // namespace ZvPlatform

#else

#include "platform/linux/fastWays.h"

#endif
