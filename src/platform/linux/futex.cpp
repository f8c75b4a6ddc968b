#include "platform/linux/futex.h"

#include "platform/services.h"

#include <cerrno>
#include <ctime>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace ZvPlatform::Linux {

namespace {

int operation(int which, Scope scope)
{
    return scope == Scope::PRIVATE ? which | FUTEX_PRIVATE_FLAG : which;
}

} // namespace

Instant now()
{
    timespec time;
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return Instant{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

Instant deadlineAfter(std::uint32_t milliseconds, Instant start)
{
    return milliseconds == INFINITE ? NEVER : start + Instant{milliseconds} * MILLISECOND;
}

int futexWait(void const *word, std::uint32_t value, Instant deadline, Scope scope)
{
    timespec limit;
    timespec *timeout = nullptr;
    if (deadline != NEVER) {
        limit.tv_sec = deadline / 1'000'000'000;
        limit.tv_nsec = deadline % 1'000'000'000;
        timeout = &limit;
    }
    // Only the bitset form takes an absolute time of the monotonic clock.
    long const result = ::syscall(SYS_futex, word, operation(FUTEX_WAIT_BITSET, scope), value,
                                  timeout, nullptr, FUTEX_BITSET_MATCH_ANY);
    return result == 0 ? 0 : errno;
}

void futexWake(void const *word, int count, Scope scope)
{
    ::syscall(SYS_futex, word, operation(FUTEX_WAKE, scope), count, nullptr, nullptr, 0);
}

void Lock::lockSlowly()
{
    while (_word.exchange(2, std::memory_order_acquire) != 0)
        futexWait(&_word, 2, NEVER);
}

} // namespace ZvPlatform::Linux
