// Linux as the services use it: every call of the system and of the threads of the C library.
//
// No other file of this folder calls the system. `tests/architecture` checks that. All functions
// are inline and do nothing but their call, so that the seam costs nothing. If the kernel is
// simulated, they are those of simulatedKernel/kernel.h.
#pragma once

#ifdef ZV_KERNEL_SIMULATED
#include "platform/simulatedKernel/kernel.h"
#else

#include "platform/common/clock.h"
#include "zvbase/platform/pause.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/futex.h>
#include <pthread.h>
#include <sched.h>
#include <sys/auxv.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#ifdef __x86_64__
#include <x86intrin.h>
#endif
#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

namespace ZvPlatform::Linux {

/// Which threads may sleep on a word: those of this process, or those of every process that maps
/// it.
enum class Scope
{
    PRIVATE,
    SHARED
};

} // namespace ZvPlatform::Linux

namespace ZvPlatform::Linux::Kernel {

// ---- futexes ------------------------------------------------------------------------------------

#ifdef SYS_futex_time64 // on machines of 32 bits
inline constexpr long FUTEX = SYS_futex_time64;
#else
inline constexpr long FUTEX = SYS_futex;
#endif

inline int futexOperation(int which, Scope scope)
{
    return scope == Scope::PRIVATE ? which | FUTEX_PRIVATE_FLAG : which;
}

/// Sleeps until a wake-up or the deadline if the 32 bits at `word` equal `value`. May also return
/// without a cause. Returns 0, EAGAIN, EINTR or ETIMEDOUT.
inline int wait(void const *word, std::uint32_t value, Instant deadline, Scope scope)
{
    // The kernel's form of a time, which does not depend on the C library.
    struct Time
    {
        std::int64_t seconds;
        std::int64_t nanoseconds;
    };
    Time const limit{deadline / 1'000'000'000, deadline % 1'000'000'000};
    // Only the bitset form takes an absolute time of the monotonic clock.
    long const result =
        ::syscall(FUTEX, word, futexOperation(FUTEX_WAIT_BITSET, scope), value,
                  deadline == NEVER ? nullptr : &limit, nullptr, FUTEX_BITSET_MATCH_ANY);
    return result == 0 ? 0 : errno;
}

/// Wakes up to `count` threads that sleep on `word`. Does not access the memory.
inline void wake(void const *word, int count, Scope scope)
{
    ::syscall(FUTEX, word, futexOperation(FUTEX_WAKE, scope), count, nullptr, nullptr, 0);
}

// ---- time ---------------------------------------------------------------------------------------

/// Returns the time of the monotonic clock.
inline Instant now()
{
    timespec time;
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return Instant{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

/// Returns the date in nanoseconds since the first of January 1970.
inline Instant date()
{
    timespec time;
    ::clock_gettime(CLOCK_REALTIME, &time);
    return Instant{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

/// Sleeps for less than a second. A signal may end the sleep.
inline void sleep(long nanoseconds)
{
    timespec const pause{0, nanoseconds};
    ::clock_nanosleep(CLOCK_MONOTONIC, 0, &pause, nullptr);
}

inline void yield()
{
    ::sched_yield();
}

/// Tells the processor that the thread spins.
inline void pause()
{
    pauseProcessor();
}

/// Waits until the thread's earlier operations on memory are complete, so that a clock is read
/// after them. A barrier of the memory model orders them before later operations on memory alone.
inline void completeMemory()
{
#ifdef __aarch64__
    __asm__ volatile("dsb ish" ::: "memory");
#else
    __atomic_thread_fence(__ATOMIC_SEQ_CST);
#endif
}

// ---- the processors' counter --------------------------------------------------------------------

#ifdef __x86_64__

/// Returns true if the counter runs at the same rate in all states of the processor, and is the
/// kernel's clock. The kernel has found then that the counters of all processors agree.
inline bool hasTrustedCounter()
{
    constexpr unsigned LEAF = 0x80000007;
    constexpr unsigned INVARIANT = 1 << 8;
    unsigned a, b, c, d;
    if (!::__get_cpuid(LEAF, &a, &b, &c, &d) || !(d & INVARIANT))
        return false;
    int const file = ::open("/sys/devices/system/clocksource/clocksource0/current_clocksource",
                            O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return false;
    char name[4] = {};
    ssize_t const length = ::read(file, name, sizeof name);
    ::close(file);
    return length == sizeof name && std::memcmp(name, "tsc\n", sizeof name) == 0;
}

/// Reads the counter when all earlier instructions are executed.
inline std::uint64_t readCounter()
{
    ::_mm_lfence();
    return ::__rdtsc();
}

#else

inline bool hasTrustedCounter()
{
    return false;
}

inline std::uint64_t readCounter()
{
    return 0;
}

#endif

// ---- threads ------------------------------------------------------------------------------------

using ThreadId = pthread_t;
using ProcessorSet = cpu_set_t;
using ThreadFunction = void *(*)(void *);

/// Key of a value of each thread, with a function that a thread calls with its value at its end.
using EndKey = pthread_key_t;

inline bool makeEndKey(EndKey &key, void (*atEnd)(void *))
{
    return ::pthread_key_create(&key, atEnd) == 0;
}

inline void setEndValue(EndKey key, void *value)
{
    ::pthread_setspecific(key, value);
}

/// Returns what a thread needs on its stack besides its own frames.
inline std::size_t stackOverhead()
{
    pthread_attr_t attributes;
    ::pthread_attr_init(&attributes);
    // What the C library itself keeps on a new thread's stack. The function is not public.
    using GetMinStack = std::size_t (*)(pthread_attr_t const *);
    auto const getMinStack =
        reinterpret_cast<GetMinStack>(::dlsym(RTLD_DEFAULT, "__pthread_get_minstack"));
    std::size_t overhead = getMinStack ? getMinStack(&attributes) : std::size_t{64 * 1024};
    ::pthread_attr_destroy(&attributes);
    // The frame of the signal that kills, and the frames before the thread's function.
#ifdef AT_MINSIGSTKSZ
    overhead += ::getauxval(AT_MINSIGSTKSZ);
#endif
    return overhead + 16 * 1024;
}

/// Starts a thread, on the given processors if `processors` is not null. Returns 0 or an error.
inline int createThread(ThreadId &id, std::size_t stack, ProcessorSet const *processors,
                        ThreadFunction function, void *argument)
{
    pthread_attr_t attributes;
    ::pthread_attr_init(&attributes);
    if (processors)
        ::pthread_attr_setaffinity_np(&attributes, sizeof *processors, processors);
    int const error = stack && ::pthread_attr_setstacksize(&attributes, stack) == 0
                          ? ::pthread_create(&id, &attributes, function, argument)
                          : ENOMEM;
    ::pthread_attr_destroy(&attributes);
    return error;
}

inline ThreadId currentThread()
{
    return ::pthread_self();
}

inline void detach(ThreadId id)
{
    ::pthread_detach(id);
}

inline void join(ThreadId id)
{
    ::pthread_join(id, nullptr);
}

inline void setName(ThreadId id, char const *name)
{
    ::pthread_setname_np(id, name);
}

/// Ends the calling thread, without the C library's function, which would unwind the stack.
[[noreturn]] inline void endThread()
{
    for (;;)
        ::syscall(SYS_exit, 0);
}

/// Returns the system's number of the calling thread.
inline std::uint32_t threadNumber()
{
    return static_cast<std::uint32_t>(::syscall(SYS_gettid));
}

/// Returns the number of the process, which is also that of its main thread.
inline std::uint32_t processNumber()
{
    return static_cast<std::uint32_t>(::getpid());
}

/// Sends a signal to a thread of the process. The signal 0 only asks whether the thread exists.
inline bool sendSignal(std::uint32_t thread, int signal)
{
    return ::syscall(SYS_tgkill, ::getpid(), thread, signal) == 0;
}

/// Registers what a fork calls before it, and after it in the parent and in the child.
inline void atFork(void (*before)(), void (*inParent)(), void (*inChild)())
{
    ::pthread_atfork(before, inParent, inChild);
}

// ---- signals ------------------------------------------------------------------------------------

/// Returns whether a signal has no handler.
inline bool isFree(int signal)
{
    struct sigaction present;
    return ::sigaction(signal, nullptr, &present) == 0 && present.sa_handler == SIG_DFL;
}

/// Installs a handler. The signal ends waits.
inline bool handle(int signal, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    ::sigemptyset(&action.sa_mask);
    return ::sigaction(signal, &action, nullptr) == 0; // no SA_RESTART
}

/// Makes the calling thread accept a signal.
inline void unblock(int signal)
{
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, signal);
    ::pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

// The following functions do not let the C library know what happens to one of its own signals.

inline constexpr std::size_t SIGNAL_MASK_SIZE = 8;

/// The kernel's form of `struct sigaction`.
struct SignalAction
{
    void (*handler)(int, siginfo_t *, void *);
    unsigned long flags;
    void (*restorer)();
    std::uint64_t mask;
};

inline bool getAction(int signal, SignalAction &action)
{
    return ::syscall(SYS_rt_sigaction, signal, nullptr, &action, SIGNAL_MASK_SIZE) == 0;
}

inline bool setAction(int signal, SignalAction const &action)
{
    return ::syscall(SYS_rt_sigaction, signal, &action, nullptr, SIGNAL_MASK_SIZE) == 0;
}

/// Makes the calling thread accept a signal of the C library.
inline void unblockHidden(int signal)
{
    std::uint64_t const mask = std::uint64_t{1} << (signal - 1);
    ::syscall(SYS_rt_sigprocmask, SIG_UNBLOCK, &mask, nullptr, SIGNAL_MASK_SIZE);
}

/// Sends a signal with a value to a thread of the process.
inline bool queueSignal(std::uint32_t thread, int signal, void *value)
{
    siginfo_t info;
    std::memset(&info, 0, sizeof info);
    info.si_signo = signal;
    info.si_code = SI_QUEUE;
    info.si_pid = ::getpid();
    info.si_uid = ::getuid();
    info.si_value.sival_ptr = value;
    return ::syscall(SYS_rt_tgsigqueueinfo, ::getpid(), thread, signal, &info) == 0;
}

// ---- scheduling ---------------------------------------------------------------------------------

// The thread 0 is the calling one.

inline bool setPolicy(std::uint32_t thread, int policy, int priority)
{
    sched_param parameter{};
    parameter.sched_priority = priority;
    return ::sched_setscheduler(static_cast<pid_t>(thread), policy, &parameter) == 0;
}

inline int getPolicy(std::uint32_t thread)
{
    return ::sched_getscheduler(static_cast<pid_t>(thread));
}

inline int getPriority(std::uint32_t thread)
{
    sched_param parameter{};
    ::sched_getparam(static_cast<pid_t>(thread), &parameter);
    return parameter.sched_priority;
}

inline bool setNice(std::uint32_t thread, int nice)
{
    return ::setpriority(PRIO_PROCESS, thread, nice) == 0;
}

inline int getNice(std::uint32_t thread)
{
    return ::getpriority(PRIO_PROCESS, thread);
}

/// Returns the limit of the nice value, in the system's form: 20 minus the lowest nice value.
inline std::uint64_t getNiceLimit()
{
    rlimit limit{};
    ::getrlimit(RLIMIT_NICE, &limit);
    return limit.rlim_cur;
}

inline bool getProcessors(std::uint32_t thread, ProcessorSet &set)
{
    return ::sched_getaffinity(static_cast<pid_t>(thread), sizeof set, &set) == 0;
}

inline bool setProcessors(std::uint32_t thread, ProcessorSet const &set)
{
    return ::sched_setaffinity(static_cast<pid_t>(thread), sizeof set, &set) == 0;
}

/// Returns the number of the processor on which the calling thread runs.
inline int currentProcessor()
{
    return ::sched_getcpu();
}

inline long nbConfiguredProcessors()
{
    return ::sysconf(_SC_NPROCESSORS_CONF);
}

inline long nbOnlineProcessors()
{
    return ::sysconf(_SC_NPROCESSORS_ONLN);
}

/// Returns the signature of the processor's model, or 0 if there is none.
inline unsigned processorSignature()
{
#if defined(__x86_64__) || defined(__i386__)
    unsigned signature = 0, b = 0, c = 0, d = 0;
    if (::__get_cpuid(1, &signature, &b, &c, &d))
        return signature;
#endif
    return 0;
}

// ---- memory -------------------------------------------------------------------------------------

inline std::size_t pageSize()
{
    return static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

/// Returns memory whose pages are made when they are used, or null.
inline void *reserve(std::size_t size)
{
    void *memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE,
                          MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    return memory == MAP_FAILED ? nullptr : memory;
}

/// Returns whether there is memory for a stack.
inline bool hasMemoryForStack(std::size_t size)
{
    void *memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE,
                          MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (memory == MAP_FAILED)
        return false;
    ::munmap(memory, size);
    return true;
}

// ---- names that processes share -----------------------------------------------------------------

// Files and folders. Each function that returns a number returns -1 with `errno` set if it fails.

using Status = struct stat;

inline unsigned userNumber()
{
    return ::geteuid();
}

inline int makeFolder(char const *path, unsigned mode)
{
    return ::mkdir(path, mode);
}

inline int changeMode(char const *path, unsigned mode)
{
    return ::chmod(path, mode);
}

inline int changeMode(int folder, char const *name, unsigned mode)
{
    return ::fchmodat(folder, name, mode, 0);
}

inline int changeMode(int file, unsigned mode)
{
    return ::fchmod(file, mode);
}

/// Does not follow a link.
inline int getStatus(char const *path, Status &status)
{
    return ::lstat(path, &status);
}

inline int getStatus(int file, Status &status)
{
    return ::fstat(file, &status);
}

inline int openFile(char const *path, int flags)
{
    return ::open(path, flags | O_CLOEXEC);
}

inline int openFile(int folder, char const *name, int flags, unsigned mode = 0)
{
    return ::openat(folder, name, flags | O_CLOEXEC, mode);
}

inline void closeFile(int file)
{
    ::close(file);
}

inline void removeFile(int folder, char const *name)
{
    ::unlinkat(folder, name, 0);
}

inline int setSize(int file, std::size_t size)
{
    return ::ftruncate(file, static_cast<off_t>(size));
}

/// Takes or releases a lock of what `openFile` has made.
inline int lockFile(int file, int operation)
{
    return ::flock(file, operation);
}

/// Returns the memory of a file, which all processes that map it share, or null with `errno` set.
inline void *mapFile(int file, std::size_t size)
{
    void *memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    return memory == MAP_FAILED ? nullptr : memory;
}

inline void unmapFile(void *memory, std::size_t size)
{
    ::munmap(memory, size);
}

/// Calls `what` with the name of each file in a folder.
template <class What>
void forEachFile(int folder, What what)
{
    int const copy = ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR *entries = copy < 0 ? nullptr : ::fdopendir(copy);
    if (!entries) {
        if (copy >= 0)
            ::close(copy);
        return;
    }
    while (dirent const *entry = ::readdir(entries))
        if (entry->d_name[0] != '.')
            what(entry->d_name);
    ::closedir(entries);
}

// ---- random bytes, and the system's version -----------------------------------------------------

/// Returns the number of bytes, which may be less than `size`, or -1 with `errno` set.
inline ssize_t getRandom(void *bytes, std::size_t size)
{
    return ::getrandom(bytes, size, 0);
}

using Version = utsname;

inline bool getVersion(Version &version)
{
    return ::uname(&version) == 0;
}

} // namespace ZvPlatform::Linux::Kernel

#endif
