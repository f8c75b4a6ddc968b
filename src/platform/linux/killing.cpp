#include "platform/linux/killing.h"

#include "platform/linux/object.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/syscall.h>
#include <unistd.h>

#if defined(__SANITIZE_THREAD__)
#define ZV_THREAD_SANITIZED
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define ZV_THREAD_SANITIZED
#endif
#endif

#if defined(__GLIBC__) && (defined(__x86_64__) || defined(__aarch64__)) &&                         \
    !defined(ZV_THREAD_SANITIZED)
#define ZV_SHARED_SIGNAL
#endif

namespace ZvPlatform::Linux {

constinit Lock signalLock;

namespace {

void onKill()
{
    int const error = errno;
    Thread *thread = local.thread;
    if (thread && thread->dying.load(std::memory_order_relaxed)) {
        if (local.depth == 0)
            die();
        // A thread inside a service ends when it leaves the service. The bit ends a sleep in there.
        thread->waiter.park.fetch_or(Waiter::KILLED, std::memory_order_relaxed);
    }
    errno = error;
}

#ifdef ZV_SHARED_SIGNAL

/// The C library uses this signal to change the user of its threads. Its handler is installed when
/// the first thread is made, and stays.
constexpr int SIGNAL = 33;
constexpr std::size_t MASK_SIZE = 8;

using Handler = void (*)(int, siginfo_t *, void *);

/// The kernel's form of `struct sigaction`.
struct Action
{
    Handler handler;
    unsigned long flags;
    void (*restorer)();
    std::uint64_t mask;
};

constinit Action libraryAction{};
constinit bool isTaken = false;
/// Its address distinguishes our signals from others.
constinit char sender = 0;

extern "C" void zvPlatformOnKill(int number, siginfo_t *info, void *context)
{
    if (info->si_code == SI_QUEUE && info->si_value.sival_ptr == &sender &&
        info->si_pid == ::getpid())
        onKill();
    else
        libraryAction.handler(number, info, context);
}

bool takeSignal()
{
    Locked locked(signalLock);
    if (isTaken)
        return true;
    Action action;
    if (::syscall(SYS_rt_sigaction, SIGNAL, nullptr, &action, MASK_SIZE) != 0 ||
        !(action.flags & SA_SIGINFO))
        return false;
    libraryAction = action;
    action.handler = zvPlatformOnKill;
    isTaken = ::syscall(SYS_rt_sigaction, SIGNAL, &action, nullptr, MASK_SIZE) == 0;
    return isTaken;
}

} // namespace

void acceptKilling()
{
    // The thread may have inherited the mask of a thread that blocked the signal by a system call
    // of its own.
    std::uint64_t const mask = std::uint64_t{1} << (SIGNAL - 1);
    ::syscall(SYS_rt_sigprocmask, SIG_UNBLOCK, &mask, nullptr, MASK_SIZE);
}

bool sendKill(std::uint32_t kernelId)
{
    if (!takeSignal())
        return false;
    siginfo_t info;
    std::memset(&info, 0, sizeof info);
    info.si_signo = SIGNAL;
    info.si_code = SI_QUEUE;
    info.si_pid = ::getpid();
    info.si_uid = ::getuid();
    info.si_value.sival_ptr = &sender;
    return ::syscall(SYS_rt_tgsigqueueinfo, ::getpid(), kernelId, SIGNAL, &info) == 0;
}

#else

constinit int killSignal = 0;

extern "C" void zvPlatformOnKill(int)
{
    onKill();
}

/// Returns the signal that kills, or 0 if there is none. The first call that finds a real-time
/// signal without a handler installs the handler.
int takeSignal()
{
    Locked locked(signalLock);
    for (int number = SIGRTMAX - 1; !killSignal && number >= SIGRTMIN; --number) {
        struct sigaction present;
        if (::sigaction(number, nullptr, &present) != 0 || present.sa_handler != SIG_DFL)
            continue;
        struct sigaction action = {};
        action.sa_handler = zvPlatformOnKill;
        ::sigemptyset(&action.sa_mask);
        // The signal must end waits, hence no SA_RESTART.
        if (::sigaction(number, &action, nullptr) == 0)
            killSignal = number;
    }
    return killSignal;
}

} // namespace

void acceptKilling()
{
    int const number = takeSignal();
    if (!number)
        return;
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, number);
    ::pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

bool sendKill(std::uint32_t kernelId)
{
    int const number = takeSignal();
    return number && ::syscall(SYS_tgkill, ::getpid(), kernelId, number) == 0;
}

#endif

void wakeVictim(Thread &thread)
{
    unpark(thread.waiter, Waiter::KILLED);
    if (void const *word = thread.waiter.sleepsOn.load(std::memory_order_seq_cst))
        for (Scope scope : {Scope::PRIVATE, Scope::SHARED})
            futexWake(word, INT_MAX, scope);
}

} // namespace ZvPlatform::Linux
