#include "platform/linux/killing.h"

#include "platform/linux/object.h"

#include <cerrno>

#if defined(__SANITIZE_THREAD__)
#define ZV_THREAD_SANITIZED
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define ZV_THREAD_SANITIZED
#endif
#endif

#if defined(__GLIBC__) && (defined(__x86_64__) || defined(__i386__) || defined(__aarch64__)) &&    \
    !defined(ZV_THREAD_SANITIZED) && !defined(ZV_KERNEL_SIMULATED)
#define ZV_SHARED_SIGNAL
#endif

namespace ZvPlatform::Linux {

constinit Lock signalLock;

namespace {

void onKill()
{
    int const error = errno;
    Thread *thread = local.thread;
    if (thread && thread->dying.load(Order::RELAXED)) {
        if (local.depth == 0)
            die();
        // A thread inside a service ends when it leaves the service. The bit ends a sleep in there.
        thread->waiter.park.fetch_or(Waiter::KILLED, Order::RELAXED);
    }
    errno = error;
}

#ifdef ZV_SHARED_SIGNAL

/// The C library uses this signal to change the user of its threads. Its handler is installed when
/// the first thread is made, and stays.
constexpr int SIGNAL = 33;

constinit Kernel::SignalAction libraryAction{};
constinit bool isTaken = false;
/// Its address distinguishes our signals from others.
constinit char sender = 0;

extern "C" void zvPlatformOnKill(int number, siginfo_t *info, void *context)
{
    if (info->si_code == SI_QUEUE && info->si_value.sival_ptr == &sender &&
        info->si_pid == static_cast<pid_t>(Kernel::processNumber()))
        onKill();
    else
        libraryAction.handler(number, info, context);
}

bool takeSignal()
{
    Locked locked(signalLock);
    if (isTaken)
        return true;
    Kernel::SignalAction action;
    if (!Kernel::getAction(SIGNAL, action) || !(action.flags & SA_SIGINFO))
        return false;
    libraryAction = action;
    action.handler = zvPlatformOnKill;
    isTaken = Kernel::setAction(SIGNAL, action);
    return isTaken;
}

} // namespace

void acceptKilling()
{
    // The thread may have inherited the mask of a thread that blocked the signal by a system call
    // of its own.
    Kernel::unblockHidden(SIGNAL);
}

bool sendKill(std::uint32_t kernelId)
{
    return takeSignal() && Kernel::queueSignal(kernelId, SIGNAL, &sender);
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
    for (int number = SIGRTMAX - 1; !killSignal && number >= SIGRTMIN; --number)
        if (Kernel::isFree(number) && Kernel::handle(number, zvPlatformOnKill))
            killSignal = number;
    return killSignal;
}

} // namespace

void acceptKilling()
{
    if (int const number = takeSignal())
        Kernel::unblock(number);
}

bool sendKill(std::uint32_t kernelId)
{
    int const number = takeSignal();
    return number && Kernel::sendSignal(kernelId, number);
}

#endif

void wakeVictim(Thread &thread)
{
    unpark(thread.waiter, Waiter::KILLED);
    if (void const *word = thread.waiter.sleepsOn.load(Order::RELAXED))
        for (Scope scope : {Scope::PRIVATE, Scope::SHARED})
            futexWake(word, INT_MAX, scope);
}

} // namespace ZvPlatform::Linux
