// What the services do nearly always, inline in their callers: nobody else wants the lock.
//
// The rest is the services' own: whatever is not settled by one interlocked operation falls to the functions out of
// line, which begin from the start.
#pragma once

#include "zvbase/platform/types.h"

#include <atomic>

#pragma GCC visibility push(default)

namespace ZvPlatform::Linux {

struct Thread;

/// What the thread itself alone touches.
struct Local
{
    ThreadNumber number; ///< 0: not yet known to the layer
    std::uint32_t lastError;
    /// Mutexes that the thread owns, counted before one is taken and after it was released: when the thread ends, by
    /// itself or from outside, none is there beyond this number.
    std::uint32_t held;
    std::uint32_t depth; ///< services that it is inside of
    Thread *thread;
};

extern constinit thread_local Local local __attribute__((tls_model("initial-exec")));

/// Makes the calling thread known.
void attach();

inline ThreadNumber currentNumber()
{
    if (!local.number) [[unlikely]]
        attach();
    return local.number;
}

/// What looking again before sleeping has come to, in the waits for one object.
struct SpinCredit
{
    std::uint16_t pauses;   ///< that may be spent on the next wait
    std::uint16_t refusals; ///< waits that sleep at once before it is tried again
    std::uint8_t failures;  ///< tries in a row that came to nothing
};

/// What is in a critical section's storage.
struct Section
{
    /// In the word, a bit that thread numbers do not have.
    static constexpr std::uint32_t SLEEPERS = 1;

    std::atomic<std::uint32_t> word{0}; ///< the owner's number, and whether somebody sleeps
    std::uint32_t again = 0;            ///< how often the owner has entered beyond the first time
    SpinCredit spin{};
};
static_assert(sizeof(Section) <= sizeof(CriticalSection));

inline Section &sectionOf(CriticalSection *section)
{
    return *reinterpret_cast<Section *>(section->storage);
}

inline bool take(Section &section, std::uint32_t mine)
{
    std::uint32_t free = 0;
    return section.word.compare_exchange_strong(free, mine, std::memory_order_acquire,
                                                std::memory_order_relaxed);
}

void wakeSleeper(Section &);

/// The lower half of a word holds its type and flags, the upper half the owner of a mutex or the count of a semaphore.
using Word = std::uint64_t;

inline constexpr int VALUE_SHIFT = 32;
/// The word of a mutex that nobody owns and nobody waits for.
inline constexpr Word FREE_MUTEX = 1;

/// What a handle points at begins with this.
struct ObjectHead
{
    std::atomic<Word> word{0};
    /// How often a mutex's owner has taken it beyond the first time. The owner's to touch.
    std::uint32_t again = 0;
};

inline bool takeFree(ObjectHead &mutex, ThreadNumber me)
{
    ++local.held;
    std::atomic_signal_fence(std::memory_order_seq_cst);
    Word free = FREE_MUTEX;
    if (mutex.word.compare_exchange_strong(free, FREE_MUTEX | Word{me} << VALUE_SHIFT,
                                           std::memory_order_acquire, std::memory_order_relaxed))
        [[likely]]
        return true;
    --local.held;
    return false;
}

} // namespace ZvPlatform::Linux

namespace ZvPlatform {

inline std::uint32_t GetCurrentThreadId()
{
    return Linux::currentNumber();
}

/// EnterCriticalSection if there is nothing to it: nobody is in, or the caller. False leaves everything to the service.
inline bool enterAtOnce(CriticalSection *section)
{
    Linux::Section &mine = Linux::sectionOf(section);
    ThreadNumber const me = Linux::local.number;
    std::uint32_t const word = mine.word.load(std::memory_order_relaxed);
    if (word == 0) [[likely]]
        return me && Linux::take(mine, me);
    if ((word & ~Linux::Section::SLEEPERS) != me)
        return false;
    ++mine.again;
    return true;
}

inline void LeaveCriticalSection(CriticalSection *section)
{
    Linux::Section &mine = Linux::sectionOf(section);
    if (mine.again)
        --mine.again;
    else if (mine.word.exchange(0, std::memory_order_release) & Linux::Section::SLEEPERS)
        [[unlikely]]
        Linux::wakeSleeper(mine);
}

/// WaitForSingleObject for the handle of a mutex, if there is nothing to it: nobody has it, or the caller alone wants
/// it. False leaves everything to the service.
inline bool takeMutexAtOnce(Handle handle)
{
    auto &mutex = *static_cast<Linux::ObjectHead *>(handle);
    ThreadNumber const me = Linux::local.number;
    if (!me) [[unlikely]]
        return false;
    Linux::Word const word = mutex.word.load(std::memory_order_relaxed);
    if (word == Linux::FREE_MUTEX) [[likely]]
        return Linux::takeFree(mutex, me);
    if (word != (Linux::FREE_MUTEX | Linux::Word{me} << Linux::VALUE_SHIFT))
        return false;
    ++mutex.again;
    return true;
}

/// ReleaseMutex in the same way: the caller owns it and nobody waits.
inline bool releaseMutexAtOnce(Handle handle)
{
    auto &mutex = *static_cast<Linux::ObjectHead *>(handle);
    ThreadNumber const me = Linux::local.number;
    Linux::Word mine = Linux::FREE_MUTEX | Linux::Word{me} << Linux::VALUE_SHIFT;
    if (!me || mutex.word.load(std::memory_order_relaxed) != mine) [[unlikely]]
        return false;
    if (mutex.again) {
        --mutex.again;
        return true;
    }
    if (!mutex.word.compare_exchange_strong(mine, Linux::FREE_MUTEX, std::memory_order_release,
                                            std::memory_order_relaxed)) [[unlikely]]
        return false;
    std::atomic_signal_fence(std::memory_order_seq_cst);
    --Linux::local.held;
    return true;
}

} // namespace ZvPlatform

#pragma GCC visibility pop
