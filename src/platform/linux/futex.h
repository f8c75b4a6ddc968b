// Futexes, the kernel's primitive for waiting, and a small mutex made of one.
#pragma once

#include "platform/linux/kernel.h"
#include "zvbase/platform/shared.h"

namespace ZvPlatform::Linux {

/// Returns the present time.
Instant now();

/// Returns the instant `milliseconds` after `start`, or NEVER for INFINITE.
Instant deadlineAfter(std::uint32_t milliseconds, Instant start = now());

/// Sleeps until a wake-up or the deadline if the 32 bits at `word` equal `value`. Returns 0,
/// EAGAIN, EINTR or ETIMEDOUT.
int futexWait(void const *word, std::uint32_t value, Instant deadline,
              Scope scope = Scope::PRIVATE);

/// Wakes up to `count` threads that sleep on `word`. Does not access the memory, which may be gone
/// already.
void futexWake(void const *word, int count, Scope scope = Scope::PRIVATE);

/// Guards a table of the layer. A thread must hold it inside a `Service`, because nothing releases
/// it if the thread is killed, and must not wait for an object meanwhile.
class Lock
{
public:
    constexpr Lock() = default;

    void lock()
    {
        std::uint32_t free = 0;
        if (!_word.compare_exchange_strong(free, 1, Order::ACQUIRE))
            lockSlowly();
    }

    void unlock()
    {
        if (_word.exchange(0, Order::RELEASE) == 2)
            futexWake(&_word, 1);
    }

private:
    void lockSlowly();

    Shared<std::uint32_t> _word{0};
};

class Locked
{
public:
    explicit Locked(Lock &lock) : _lock(lock) { _lock.lock(); }
    ~Locked() { _lock.unlock(); }

    Locked(Locked const &) = delete;
    Locked &operator=(Locked const &) = delete;

private:
    Lock &_lock;
};

} // namespace ZvPlatform::Linux
