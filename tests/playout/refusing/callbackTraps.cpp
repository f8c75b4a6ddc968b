// Ends the program if the callback of the sound server breaks a rule of real-time audio, in a build
// of the playout for the tests.
//
// Allocations and locks are wrapped by the linker. System calls, also those inside of libraries,
// are trapped by the kernel, which sends SIGSYS while the thread's selector says so. ZV_PROVOKE is
// the rule that is broken on purpose, "allocation", "lock" or "call", to see that the trap works.
// The thread sanitizer makes system calls of its own, so that there they are not trapped.

#include <jack/jack.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

// Thread-local data without a constructor.
thread_local bool isInCallback = false;
thread_local bool isPrepared = false;
thread_local char volatile selector = SYSCALL_DISPATCH_FILTER_ALLOW;

JackProcessCallback process = nullptr;

void check(char const *call)
{
    if (!isInCallback)
        return;
    selector = SYSCALL_DISPATCH_FILTER_ALLOW;
    char text[100];
    int const length =
        std::snprintf(text, sizeof text, "the callback of the sound server calls %s\n", call);
    static_cast<void>(!::write(STDERR_FILENO, text, static_cast<std::size_t>(length)));
    ::_exit(99);
}

void prepare()
{
    isPrepared = true;
#ifndef __SANITIZE_THREAD__
    struct sigaction action = {};
    action.sa_sigaction = [](int, siginfo_t *info, void *) {
        char call[40];
        std::snprintf(call, sizeof call, "the system, number %d", info->si_syscall);
        check(call);
    };
    action.sa_flags = SA_SIGINFO;
    ::sigaction(SIGSYS, &action, nullptr);
    // Fails on old kernels. The tests skip the provoked call then.
    ::prctl(PR_SET_SYSCALL_USER_DISPATCH, PR_SYS_DISPATCH_ON, 0, 0, &selector);
#endif
}

void provoke()
{
    static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    char const * const rule = std::getenv("ZV_PROVOKE");
    if (!rule)
        return;
    if (std::strcmp(rule, "allocation") == 0)
        ::operator delete(::operator new(1));
    else if (std::strcmp(rule, "lock") == 0)
        pthread_mutex_lock(&mutex);
    else if (std::strcmp(rule, "call") == 0)
        ::syscall(SYS_getppid);
}

int processTrapped(jack_nframes_t count, void *argument)
{
    if (!isPrepared)
        prepare();
    isInCallback = true;
    selector = SYSCALL_DISPATCH_FILTER_BLOCK;
    provoke();
    int const result = process(count, argument);
    selector = SYSCALL_DISPATCH_FILTER_ALLOW;
    isInCallback = false;
    return result;
}

} // namespace

extern "C" {

int __real_jack_set_process_callback(jack_client_t *client, JackProcessCallback callback,
                                     void *argument);

int __wrap_jack_set_process_callback(jack_client_t *client, JackProcessCallback callback,
                                     void *argument)
{
    process = callback;
    return __real_jack_set_process_callback(client, processTrapped, argument);
}

#define ZV_TRAP(result, name, parameters, arguments)                                               \
    result __real_##name parameters;                                                               \
    result __wrap_##name parameters                                                                \
    {                                                                                              \
        check(#name);                                                                              \
        return __real_##name arguments;                                                            \
    }

ZV_TRAP(void *, malloc, (std::size_t size), (size))
ZV_TRAP(void *, calloc, (std::size_t count, std::size_t size), (count, size))
ZV_TRAP(void *, realloc, (void *memory, std::size_t size), (memory, size))
ZV_TRAP(void, free, (void *memory), (memory))
ZV_TRAP(int, pthread_mutex_lock, (pthread_mutex_t * mutex), (mutex))
ZV_TRAP(int, pthread_mutex_trylock, (pthread_mutex_t * mutex), (mutex))
ZV_TRAP(int, pthread_rwlock_rdlock, (pthread_rwlock_t * lock), (lock))
ZV_TRAP(int, pthread_rwlock_wrlock, (pthread_rwlock_t * lock), (lock))
}

// Not inlined, because the compiler takes the pair of `malloc` and `delete` for a mistake.
[[gnu::noinline]] void *operator new(std::size_t size)
{
    check("operator new");
    if (void * const memory = std::malloc(size > 0 ? size : 1))
        return memory;
    throw std::bad_alloc();
}

[[gnu::noinline]] void *operator new(std::size_t size, std::nothrow_t const &) noexcept
{
    check("operator new");
    return std::malloc(size > 0 ? size : 1);
}

[[gnu::noinline]] void operator delete(void *memory) noexcept
{
    check("operator delete");
    std::free(memory);
}

void operator delete(void *memory, std::size_t) noexcept
{
    ::operator delete(memory);
}
