// Word that threads share without a lock (extenders).
#pragma once

#include <cstdint>
#include <type_traits>

namespace ZvPlatform {

/// Memory order of an operation on a shared word. The meanings are those of `std::memory_order`,
/// whose header takes a compiler longer than this one.
enum class Order : int
{
    RELAXED = __ATOMIC_RELAXED,
    ACQUIRE = __ATOMIC_ACQUIRE,
    RELEASE = __ATOMIC_RELEASE,
    ACQ_REL = __ATOMIC_ACQ_REL,
    SEQ_CST = __ATOMIC_SEQ_CST
};

#ifdef ZV_PLATFORM_SIMULATED
/// What the scheduler and its memory model do in each operation on a shared word. Values are the
/// bytes of the word, extended by zeros.
namespace Simulated {
#pragma GCC visibility push(default)
/// Memory order, and the place in the source that names it.
struct PlacedOrder
{
    constexpr PlacedOrder(Order named, char const *itsFile = __builtin_FILE(),
                          unsigned itsLine = __builtin_LINE()) noexcept
        : order(named), file(itsFile), line(itsLine)
    {}
    constexpr operator Order() const noexcept { return order; }

    Order order;
    char const *file;
    unsigned line;
};

/// Lets the scheduler switch to another thread before an operation. Returns the order of the
/// operation, which is weaker than the named one if the run weakens this place.
Order reachShared(char const *operation, void const *word, Order, char const *file, unsigned line);
/// Returns the order of a compare-exchange that fails.
Order reachFailure(Order, char const *file, unsigned line);
void constructShared(void const *word, std::uint64_t value);
/// Returns the value that is read, which may be older than the newest.
std::uint64_t loadShared(void const *word, std::uint64_t newest, Order);
void storeShared(void const *word, std::uint64_t former, std::uint64_t value, Order);
void changeShared(void const *word, std::uint64_t former, std::uint64_t value, Order);
/// Returns whether a compare-exchange fails. `value` is the newest value, and becomes the one that
/// was read.
bool refuseShared(void const *word, std::uint64_t &value, std::uint64_t expected, bool isWeak,
                  Order failure);
void fenceShared(Order);
#pragma GCC visibility pop
} // namespace Simulated

using Simulated::PlacedOrder;
#else
/// Memory order of an operation. If the services are simulated, it also knows its place.
using PlacedOrder = Order;
#endif

/// A word that threads read and write without a lock.
///
///     #include <zvbase/platform/shared.h>
///
///     ZvPlatform::Shared<long> nbBeats(0);
///     nbBeats.fetch_add(1, ZvPlatform::Order::RELAXED);
///     std::cout << nbBeats.load(ZvPlatform::Order::RELAXED) << " beats\n";
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
    [[nodiscard]] T load(PlacedOrder order) const noexcept
    {
        Order const followed = reach("load", order);
        T value;
        __atomic_load(&_value, &value, toInt(order));
        return choose(value, followed);
    }

    /// Sets the word to `value`.
    void store(T value, PlacedOrder order) noexcept
    {
        announce(value, reach("store", order));
        __atomic_store(&_value, &value, toInt(order));
    }

    /// Stores `value` and returns the former value.
    T exchange(T value, PlacedOrder order) noexcept
    {
        Order const followed = reach("exchange", order);
        T former;
        __atomic_exchange(&_value, &value, &former, toInt(order));
        return noteChange(former, followed);
    }

    /// Stores `desired` if the word equals `expected`, and returns true. Otherwise sets `expected`
    /// to the value of the word and returns false.
    bool compare_exchange_strong(T &expected, T desired, PlacedOrder order,
                                 PlacedOrder failure) noexcept
    {
        Order const followed = reach("compare_exchange", order);
        return compareExchange(expected, desired, false, order, failure, followed,
                               reachFailure(failure));
    }

    /// Does what the other form does. If the comparison fails, the order is `order` without the
    /// release.
    bool compare_exchange_strong(T &expected, T desired, PlacedOrder order) noexcept
    {
        Order const followed = reach("compare_exchange", order);
        return compareExchange(expected, desired, false, order, withoutRelease(order), followed,
                               withoutRelease(followed));
    }

    /// Does what `compare_exchange_strong` does, but may also return false if the word equals
    /// `expected`. Call it in a loop.
    bool compare_exchange_weak(T &expected, T desired, PlacedOrder order,
                               PlacedOrder failure) noexcept
    {
        Order const followed = reach("compare_exchange", order);
        return compareExchange(expected, desired, true, order, failure, followed,
                               reachFailure(failure));
    }

    /// Does what the other form does. If the comparison fails, the order is `order` without the
    /// release.
    bool compare_exchange_weak(T &expected, T desired, PlacedOrder order) noexcept
    {
        Order const followed = reach("compare_exchange", order);
        return compareExchange(expected, desired, true, order, withoutRelease(order), followed,
                               withoutRelease(followed));
    }

    /// Adds `amount` to the word, and returns its former value.
    T fetch_add(T amount, PlacedOrder order) noexcept requires IS_NUMBER
    {
        Order const followed = reach("fetch_add", order);
        return noteChange(__atomic_fetch_add(&_value, amount, toInt(order)), followed);
    }

    /// Subtracts `amount` from the word, and returns its former value.
    T fetch_sub(T amount, PlacedOrder order) noexcept requires IS_NUMBER
    {
        Order const followed = reach("fetch_sub", order);
        return noteChange(__atomic_fetch_sub(&_value, amount, toInt(order)), followed);
    }

    /// Sets the bits of `bits` in the word, and returns its former value.
    T fetch_or(T bits, PlacedOrder order) noexcept requires IS_NUMBER
    {
        Order const followed = reach("fetch_or", order);
        return noteChange(__atomic_fetch_or(&_value, bits, toInt(order)), followed);
    }

    /// Keeps only the bits of `bits` in the word, and returns its former value.
    T fetch_and(T bits, PlacedOrder order) noexcept requires IS_NUMBER
    {
        Order const followed = reach("fetch_and", order);
        return noteChange(__atomic_fetch_and(&_value, bits, toInt(order)), followed);
    }

    /// Inverts the bits of `bits` in the word, and returns its former value.
    T fetch_xor(T bits, PlacedOrder order) noexcept requires IS_NUMBER
    {
        Order const followed = reach("fetch_xor", order);
        return noteChange(__atomic_fetch_xor(&_value, bits, toInt(order)), followed);
    }

private:
    static constexpr Order withoutRelease(Order order)
    {
        return order == Order::ACQ_REL   ? Order::ACQUIRE
               : order == Order::RELEASE ? Order::RELAXED
                                         : order;
    }

    static constexpr int toInt(Order order)
    {
        return static_cast<int>(order);
    }

    /// The last two orders are those that the simulation follows.
    bool compareExchange(T &expected, T desired, bool isWeak, Order order, Order failure,
                         Order followed, Order followedFailure) noexcept
    {
        if (isRefused(expected, isWeak, failure, followedFailure))
            return false;
        bool const isDone = __atomic_compare_exchange(&_value, &expected, &desired, isWeak,
                                                      toInt(order), toInt(failure));
        if (isDone)
            noteChange(expected, followed);
        return isDone;
    }

    // The part of the simulation.
#ifdef ZV_PLATFORM_SIMULATED
    static std::uint64_t toBits(T const &value)
    {
        std::uint64_t bits = 0;
        __builtin_memcpy(&bits, &value, sizeof value);
        return bits;
    }

    static T fromBits(std::uint64_t bits)
    {
        T value;
        __builtin_memcpy(static_cast<void *>(&value), &bits, sizeof value);
        return value;
    }

    std::uint64_t getNewest(Order order = Order::RELAXED) const
    {
        T value;
        __atomic_load(&_value, &value, toInt(order));
        return toBits(value);
    }

    Order reach(char const *operation, PlacedOrder order) const
    {
        return Simulated::reachShared(operation, this, order.order, order.file, order.line);
    }
    static Order reachFailure(PlacedOrder order)
    {
        return Simulated::reachFailure(order.order, order.file, order.line);
    }
    T choose(T newest, Order order) const
    {
        return fromBits(Simulated::loadShared(this, toBits(newest), order));
    }
    void announce(T value, Order order)
    {
        Simulated::storeShared(this, getNewest(), toBits(value), order);
    }
    T noteChange(T former, Order order)
    {
        Simulated::changeShared(this, toBits(former), getNewest(), order);
        return former;
    }
    bool isRefused(T &expected, bool isWeak, Order failure, Order followed)
    {
        std::uint64_t value = getNewest(failure);
        if (!Simulated::refuseShared(this, value, toBits(expected), isWeak, followed))
            return false;
        expected = fromBits(value);
        return true;
    }
#else
    static constexpr Order reach(char const *, Order order)
    {
        return order;
    }
    static constexpr Order reachFailure(Order order)
    {
        return order;
    }
    static T choose(T newest, Order)
    {
        return newest;
    }
    void announce(T, Order) {}
    static T noteChange(T former, Order)
    {
        return former;
    }
    static bool isRefused(T &, bool, Order, Order)
    {
        return false;
    }
#endif

    alignas(sizeof(T)) T _value;
};

/// Orders what the calling thread does before and after it.
inline void fence(PlacedOrder placed) noexcept
{
    Order const order = placed;
#ifdef ZV_PLATFORM_SIMULATED
    Simulated::fenceShared(
        Simulated::reachShared("fence", nullptr, order, placed.file, placed.line));
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
