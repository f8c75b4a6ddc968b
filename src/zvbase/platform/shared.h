// Word that threads share without a lock (extenders).
#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace ZvPlatform {

#ifdef ZV_PLATFORM_SIMULATED
/// What the scheduler and its memory model do in each operation on a shared word. Values are the
/// bytes of the word, extended by zeros.
namespace Simulated {
#pragma GCC visibility push(default)
/// Lets the scheduler switch to another thread before an operation.
void reachShared(char const *operation, void const *word);
void constructShared(void const *word, std::uint64_t value);
/// Returns the value that is read, which may be older than the newest.
std::uint64_t loadShared(void const *word, std::uint64_t newest, std::memory_order);
void storeShared(void const *word, std::uint64_t former, std::uint64_t value, std::memory_order);
void changeShared(void const *word, std::uint64_t former, std::uint64_t value, std::memory_order);
/// Returns whether a compare-exchange fails. `value` is the newest value, and becomes the one that
/// was read.
bool refuseShared(void const *word, std::uint64_t &value, std::uint64_t expected, bool isWeak,
                  std::memory_order failure);
void fenceShared(std::memory_order);
#pragma GCC visibility pop
} // namespace Simulated
#endif

/// A word that threads read and write without a lock.
///
///     #include <zvbase/platform/shared.h>
///
///     ZvPlatform::Shared<long> nbBeats(0);
///     nbBeats.fetch_add(1, std::memory_order_relaxed);
///     std::cout << nbBeats.load(std::memory_order_relaxed) << " beats\n";
///
/// The operations are those of the standard atomic types, with the same code and the same meaning,
/// but each of them needs a memory order, and there is no conversion to or from `T`. So each access
/// and its order can be seen in the source. The word has the size and the layout of a `T`, and its
/// address may be given to `WaitOnAddress`.
///
/// If the services are simulated, each operation is a scheduling point, and a load may return an
/// older value if the C++ memory model permits that.
///
/// **Threads** Any thread may call the operations at any time. The constructor is no operation: the
/// thread that constructs the word must publish it by other means.
template <class T>
class Shared
{
    static_assert(std::is_trivially_copyable_v<T>);
    static_assert(__atomic_always_lock_free(sizeof(T), nullptr));
    static constexpr bool IS_NUMBER = std::is_integral_v<T> && !std::is_same_v<T, bool>;

public:
    constexpr Shared() noexcept : Shared(T{}) {}
    constexpr explicit Shared(T value) noexcept : _value(value)
    {
#ifdef ZV_PLATFORM_SIMULATED
        if (!std::is_constant_evaluated())
            Simulated::constructShared(this, toBits(value));
#endif
    }
    Shared(Shared const &) = delete;
    Shared &operator=(Shared const &) = delete;

    /// Returns the value of the word.
    [[nodiscard]] T load(std::memory_order order) const noexcept
    {
        reach("load");
        T value;
        __atomic_load(&_value, &value, static_cast<int>(order));
        return choose(value, order);
    }

    /// Sets the word to `value`.
    void store(T value, std::memory_order order) noexcept
    {
        reach("store");
        announce(value, order);
        __atomic_store(&_value, &value, static_cast<int>(order));
    }

    /// Stores `value` and returns the former value.
    T exchange(T value, std::memory_order order) noexcept
    {
        reach("exchange");
        T former;
        __atomic_exchange(&_value, &value, &former, static_cast<int>(order));
        return noteChange(former, order);
    }

    /// Stores `desired` if the word equals `expected`, and returns true. Otherwise sets `expected`
    /// to the value of the word and returns false.
    bool compare_exchange_strong(T &expected, T desired, std::memory_order order,
                                 std::memory_order failure) noexcept
    {
        return compareExchange(expected, desired, false, order, failure);
    }

    /// Does what the other form does. If the comparison fails, the order is `order` without the
    /// release.
    bool compare_exchange_strong(T &expected, T desired, std::memory_order order) noexcept
    {
        return compareExchange(expected, desired, false, order, withoutRelease(order));
    }

    /// Does what `compare_exchange_strong` does, but may also return false if the word equals
    /// `expected`. Call it in a loop.
    bool compare_exchange_weak(T &expected, T desired, std::memory_order order,
                               std::memory_order failure) noexcept
    {
        return compareExchange(expected, desired, true, order, failure);
    }

    /// Does what the other form does. If the comparison fails, the order is `order` without the
    /// release.
    bool compare_exchange_weak(T &expected, T desired, std::memory_order order) noexcept
    {
        return compareExchange(expected, desired, true, order, withoutRelease(order));
    }

    /// Adds `amount` to the word, and returns its former value.
    T fetch_add(T amount, std::memory_order order) noexcept requires IS_NUMBER
    {
        reach("fetch_add");
        return noteChange(__atomic_fetch_add(&_value, amount, static_cast<int>(order)), order);
    }

    /// Subtracts `amount` from the word, and returns its former value.
    T fetch_sub(T amount, std::memory_order order) noexcept requires IS_NUMBER
    {
        reach("fetch_sub");
        return noteChange(__atomic_fetch_sub(&_value, amount, static_cast<int>(order)), order);
    }

    /// Sets the bits of `bits` in the word, and returns its former value.
    T fetch_or(T bits, std::memory_order order) noexcept requires IS_NUMBER
    {
        reach("fetch_or");
        return noteChange(__atomic_fetch_or(&_value, bits, static_cast<int>(order)), order);
    }

    /// Keeps only the bits of `bits` in the word, and returns its former value.
    T fetch_and(T bits, std::memory_order order) noexcept requires IS_NUMBER
    {
        reach("fetch_and");
        return noteChange(__atomic_fetch_and(&_value, bits, static_cast<int>(order)), order);
    }

    /// Inverts the bits of `bits` in the word, and returns its former value.
    T fetch_xor(T bits, std::memory_order order) noexcept requires IS_NUMBER
    {
        reach("fetch_xor");
        return noteChange(__atomic_fetch_xor(&_value, bits, static_cast<int>(order)), order);
    }

private:
    static constexpr std::memory_order withoutRelease(std::memory_order order)
    {
        return order == std::memory_order_acq_rel   ? std::memory_order_acquire
               : order == std::memory_order_release ? std::memory_order_relaxed
                                                    : order;
    }

    bool compareExchange(T &expected, T desired, bool isWeak, std::memory_order order,
                         std::memory_order failure) noexcept
    {
        reach("compare_exchange");
        if (isRefused(expected, isWeak, failure))
            return false;
        bool const isDone =
            __atomic_compare_exchange(&_value, &expected, &desired, isWeak, static_cast<int>(order),
                                      static_cast<int>(failure));
        if (isDone)
            noteChange(expected, order);
        return isDone;
    }

    // The part of the simulation.
#ifdef ZV_PLATFORM_SIMULATED
    static std::uint64_t toBits(T const &value)
    {
        std::uint64_t bits = 0;
        std::memcpy(&bits, &value, sizeof value);
        return bits;
    }

    static T fromBits(std::uint64_t bits)
    {
        T value;
        std::memcpy(static_cast<void *>(&value), &bits, sizeof value);
        return value;
    }

    std::uint64_t getNewest(std::memory_order order = std::memory_order_relaxed) const
    {
        T value;
        __atomic_load(&_value, &value, static_cast<int>(order));
        return toBits(value);
    }

    void reach(char const *operation) const
    {
        Simulated::reachShared(operation, this);
    }
    T choose(T newest, std::memory_order order) const
    {
        return fromBits(Simulated::loadShared(this, toBits(newest), order));
    }
    void announce(T value, std::memory_order order)
    {
        Simulated::storeShared(this, getNewest(), toBits(value), order);
    }
    T noteChange(T former, std::memory_order order)
    {
        Simulated::changeShared(this, toBits(former), getNewest(), order);
        return former;
    }
    bool isRefused(T &expected, bool isWeak, std::memory_order failure)
    {
        std::uint64_t value = getNewest(failure);
        if (!Simulated::refuseShared(this, value, toBits(expected), isWeak, failure))
            return false;
        expected = fromBits(value);
        return true;
    }
#else
    void reach(char const *) const {}
    static T choose(T newest, std::memory_order)
    {
        return newest;
    }
    void announce(T, std::memory_order) {}
    static T noteChange(T former, std::memory_order)
    {
        return former;
    }
    static bool isRefused(T &, bool, std::memory_order)
    {
        return false;
    }
#endif

    alignas(sizeof(T)) T _value;
};

/// Orders what the calling thread does before and after it.
inline void fence(std::memory_order order) noexcept
{
#ifdef ZV_PLATFORM_SIMULATED
    Simulated::reachShared("fence", nullptr);
    Simulated::fenceShared(order);
#endif
#ifdef __SANITIZE_THREAD__
    // The thread sanitizer does not know fences. All operations on one word order at least as much.
    static constinit std::uint32_t word = 0;
    __atomic_fetch_add(&word, 0, static_cast<int>(order));
#else
    __atomic_thread_fence(static_cast<int>(order));
#endif
}

static_assert(sizeof(Shared<bool>) == sizeof(bool));
static_assert(sizeof(Shared<void *>) == sizeof(void *));
static_assert(sizeof(Shared<std::uint64_t>) == sizeof(std::uint64_t));

} // namespace ZvPlatform
