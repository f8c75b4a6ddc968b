#include "platform/linux/futex.h"

namespace ZvPlatform::Linux {

Instant now()
{
    return Kernel::now();
}

Instant deadlineAfter(std::uint32_t milliseconds, Instant start)
{
    return milliseconds == INFINITE ? NEVER : start + Instant{milliseconds} * MILLISECOND;
}

int futexWait(void const *word, std::uint32_t value, Instant deadline, Scope scope)
{
    return Kernel::wait(word, value, deadline, scope);
}

void futexWake(void const *word, int count, Scope scope)
{
    Kernel::wake(word, count, scope);
}

void Lock::lockSlowly()
{
    while (_word.exchange(2, Order::ACQUIRE) != 0)
        futexWait(&_word, 2, NEVER);
}

} // namespace ZvPlatform::Linux
