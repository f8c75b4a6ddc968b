// Inline fast paths of the services: no other thread wants the lock.
//
// If one interlocked operation does not settle a call, the service out of line carries out the
// whole call.
#pragma once

#include "zvbase/platform/shared.h"
#include "zvbase/platform/types.h"

#pragma GCC visibility push(default)

namespace ZvPlatform::Linux {

struct Thread;

/// Data of a thread that only the thread itself touches.
struct Local
{
    ThreadNumber number; ///< 0 if the layer does not know the thread yet
    std::uint32_t lastError;
    /// At least the number of mutexes that the thread owns. The fast paths count before they take a
    /// mutex and after they have released it. No owned mutex is missed, whenever the thread ends or
    /// is killed.
    std::uint32_t held;
    std::uint32_t depth; ///< how many services the thread is inside of
    Thread *thread;
};

extern constinit thread_local Local local __attribute__((tls_model("initial-exec")));

/// Makes the calling thread known to the layer.
void attach();

inline ThreadNumber currentNumber()
{
    if (!local.number) [[unlikely]]
        attach();
    return local.number;
}

/// What spinning before a sleep has achieved, in the waits for one object. Aligned as the number of
/// its size, because clang calls a library for an atomic object of less alignment.
struct alignas(std::uint32_t) SpinCredit
{
    std::uint8_t trust;     ///< 0 if the next wait must sleep at once
    std::uint8_t failures;  ///< tries since the last success
    std::uint16_t refusals; ///< short waits that must sleep before the next try

    bool operator==(SpinCredit const &) const = default;
};

/// The contents of a critical section's storage.
struct Section
{
    /// A bit of `word` that thread numbers do not have.
    static constexpr std::uint32_t SLEEPERS = 1;

    Shared<std::uint32_t> word{0}; ///< the owner's number, and SLEEPERS if a thread may sleep
    std::uint32_t again = 0;       ///< how often the owner has entered beyond the first time
    Shared<SpinCredit> spin{};
};
static_assert(sizeof(Section) <= sizeof(CriticalSection));

inline Section &sectionOf(CriticalSection *section)
{
    return *reinterpret_cast<Section *>(section->storage);
}

inline bool take(Section &section, std::uint32_t mine)
{
    std::uint32_t free = 0;
    return section.word.compare_exchange_strong(free, mine, Order::ACQUIRE, Order::RELAXED);
}

void wakeSleeper(Section &);

/// The state of an object. Its lower half holds the type and the flags. Its upper half holds the
/// owner of a mutex or the count of a semaphore.
using Word = std::uint64_t;

inline constexpr int VALUE_SHIFT = 32;
/// The word of a mutex that has no owner and no waiters.
inline constexpr Word FREE_MUTEX = 1;
/// The word of a semaphore of this process with a count of 0 and no waiters.
inline constexpr Word EMPTY_SEMAPHORE = 3;
/// One of the count of a semaphore.
inline constexpr Word ONE = Word{1} << VALUE_SHIFT;

/// The beginning of every object that a handle points to.
struct ObjectHead
{
    Shared<Word> word{0};
    /// How often the owner of a mutex has taken it beyond the first time. Only the owner touches
    /// it.
    std::uint32_t again = 0;
};

inline bool takeFree(ObjectHead &mutex, ThreadNumber me)
{
    ++local.held;
    __atomic_signal_fence(__ATOMIC_SEQ_CST);
    Word free = FREE_MUTEX;
    if (mutex.word.compare_exchange_strong(free, FREE_MUTEX | Word{me} << VALUE_SHIFT,
                                           Order::ACQUIRE, Order::RELAXED)) [[likely]]
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

/// Enters the section if it is free or the caller is inside it already. Returns false, with nothing
/// changed, if the service must do the work.
inline bool enterAtOnce(CriticalSection *section)
{
    Linux::Section &mine = Linux::sectionOf(section);
    ThreadNumber const me = Linux::local.number;
    std::uint32_t const word = mine.word.load(Order::RELAXED);
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
    else if (mine.word.exchange(0, Order::RELEASE) & Linux::Section::SLEEPERS) [[unlikely]]
        Linux::wakeSleeper(mine);
}

/// Takes a mutex if it is free or the caller owns it, and no other thread waits for it. `handle`
/// must be that of a mutex. Returns false, with nothing changed, if the service must do the work.
inline bool takeMutexAtOnce(Handle handle)
{
    auto &mutex = *static_cast<Linux::ObjectHead *>(handle);
    ThreadNumber const me = Linux::local.number;
    if (!me) [[unlikely]]
        return false;
    Linux::Word const word = mutex.word.load(Order::RELAXED);
    if (word == Linux::FREE_MUTEX) [[likely]]
        return Linux::takeFree(mutex, me);
    if (word != (Linux::FREE_MUTEX | Linux::Word{me} << Linux::VALUE_SHIFT))
        return false;
    ++mutex.again;
    return true;
}

/// Releases a mutex if the caller owns it and no other thread waits for it. Returns false, with
/// nothing changed, if the service must do the work.
inline bool releaseMutexAtOnce(Handle handle)
{
    auto &mutex = *static_cast<Linux::ObjectHead *>(handle);
    ThreadNumber const me = Linux::local.number;
    Linux::Word mine = Linux::FREE_MUTEX | Linux::Word{me} << Linux::VALUE_SHIFT;
    if (!me || mutex.word.load(Order::RELAXED) != mine) [[unlikely]]
        return false;
    if (mutex.again) {
        --mutex.again;
        return true;
    }
    if (!mutex.word.compare_exchange_strong(mine, Linux::FREE_MUTEX, Order::RELEASE,
                                            Order::RELAXED)) [[unlikely]]
        return false;
    __atomic_signal_fence(__ATOMIC_SEQ_CST);
    --Linux::local.held;
    return true;
}

/// Subtracts 1 from the count of a semaphore if it is above 0 and no thread waits. `handle` must be
/// that of a semaphore. Returns false, with nothing changed, if the service must do the work.
inline bool takeSemaphoreAtOnce(Handle handle)
{
    auto &semaphore = *static_cast<Linux::ObjectHead *>(handle);
    Linux::Word word = semaphore.word.load(Order::RELAXED);
    return static_cast<std::uint32_t>(word) == Linux::EMPTY_SEMAPHORE &&
           word != Linux::EMPTY_SEMAPHORE &&
           semaphore.word.compare_exchange_strong(word, word - Linux::ONE, Order::ACQUIRE,
                                                  Order::RELAXED);
}

/// Adds 1 to the count of a semaphore whose largest count is `largest`, if it is below that and no
/// thread waits. `handle` must be that of a semaphore. Returns false, with nothing changed, if the
/// service must do the work.
inline bool postSemaphoreAtOnce(Handle handle, std::uint32_t largest)
{
    auto &semaphore = *static_cast<Linux::ObjectHead *>(handle);
    Linux::Word word = semaphore.word.load(Order::RELAXED);
    return static_cast<std::uint32_t>(word) == Linux::EMPTY_SEMAPHORE &&
           word >> Linux::VALUE_SHIFT < largest &&
           semaphore.word.compare_exchange_strong(word, word + Linux::ONE, Order::RELEASE,
                                                  Order::RELAXED);
}

} // namespace ZvPlatform

#pragma GCC visibility pop
