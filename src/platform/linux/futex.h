// The kernel's one waiting primitive, and the smallest lock made of it.
#pragma once

#include <atomic>
#include <climits>
#include <cstdint>

namespace ZvPlatform::Linux {

/// Nanoseconds of the monotonic clock.
using Instant = std::int64_t;

inline constexpr Instant NEVER = INT64_MAX;
inline constexpr Instant MILLISECOND = 1'000'000;

Instant now();

/// The instant `milliseconds` from now; INFINITE is NEVER.
Instant deadlineAfter(std::uint32_t milliseconds);

/// Who may sleep on a word: the threads of this process, or those of every process that maps it.
enum class Scope
{
    PRIVATE,
    SHARED
};

/// Sleeps while the 32 bits at `word` are `value`. Returns 0, EAGAIN, EINTR or ETIMEDOUT.
int futexWait(void const *word, std::uint32_t value, Instant deadline,
              Scope scope = Scope::PRIVATE);

/// Never touches the memory itself, so that what is at `word` may be gone already.
void futexWake(void const *word, int count, Scope scope = Scope::PRIVATE);

/// Guards the layer's own tables. It is held for a few instructions, inside a `Service`, and by no thread that waits.
class Lock
{
public:
    constexpr Lock() = default;

    void lock()
    {
        std::uint32_t free = 0;
        if (!_word.compare_exchange_strong(free, 1, std::memory_order_acquire))
            lockSlowly();
    }

    void unlock()
    {
        if (_word.exchange(0, std::memory_order_release) == 2)
            futexWake(&_word, 1);
    }

private:
    void lockSlowly();

    std::atomic<std::uint32_t> _word{0};
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
