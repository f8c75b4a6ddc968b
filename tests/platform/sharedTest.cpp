#include "platform/platformTest.h"

#include "zvbase/platform/shared.h"

namespace ZvTest {

using ZvPlatform::Shared;

namespace {

enum class Phase : std::uint8_t
{
    IDLE,
    BUSY
};

// An access needs an order, and there is no conversion.
template <class Word>
concept HasPlainLoad = requires(Word &word)
{
    word.load();
};
template <class Word>
concept HasPlainStore = requires(Word &word)
{
    word.store(1);
};
template <class Word>
concept HasAssignment = requires(Word &word)
{
    word = 1;
};
template <class Word>
concept HasIncrement = requires(Word &word)
{
    ++word;
};
template <class Word>
concept HasSum = requires(Word &word)
{
    word.fetch_add({}, ZvPlatform::Order::RELAXED);
};

static_assert(!HasPlainLoad<Shared<int>> && !HasPlainStore<Shared<int>>);
static_assert(!HasAssignment<Shared<int>> && !HasIncrement<Shared<int>>);
static_assert(!std::is_convertible_v<Shared<int>, int> && !std::is_convertible_v<int, Shared<int>>);
static_assert(!std::is_copy_constructible_v<Shared<int>>);
static_assert(HasSum<Shared<int>> && !HasSum<Shared<bool>> && !HasSum<Shared<Phase>>);

template <class T>
constexpr bool
    hasLayoutOf = sizeof(Shared<T>) == sizeof(T) &&
                  alignof(Shared<T>) == sizeof(T) && std::is_trivially_destructible_v<Shared<T>>;
static_assert(hasLayoutOf<bool> && hasLayoutOf<Phase> && hasLayoutOf<std::uint16_t>);
static_assert(hasLayoutOf<std::uint32_t> && hasLayoutOf<std::uint64_t> && hasLayoutOf<void *>);

constinit Shared<std::uint32_t> constant{7};
constinit Shared<void *> empty;

} // namespace

TEST(PlatformShared, BeginsWithItsValue)
{
    EXPECT_EQ(constant.load(ZvPlatform::Order::RELAXED), 7u);
    EXPECT_EQ(empty.load(ZvPlatform::Order::ACQUIRE), nullptr);
    Shared<Phase> phase(Phase::BUSY);
    EXPECT_EQ(phase.load(ZvPlatform::Order::SEQ_CST), Phase::BUSY);
}

TEST(PlatformShared, StoresAndExchanges)
{
    Shared<Phase> phase;
    phase.store(Phase::BUSY, ZvPlatform::Order::RELEASE);
    EXPECT_EQ(phase.exchange(Phase::IDLE, ZvPlatform::Order::ACQ_REL), Phase::BUSY);
    EXPECT_EQ(phase.load(ZvPlatform::Order::RELAXED), Phase::IDLE);
}

TEST(PlatformShared, ComparesBeforeItExchanges)
{
    Shared<int> word(1);
    int expected = 2;
    EXPECT_FALSE(word.compare_exchange_strong(expected, 3, ZvPlatform::Order::ACQ_REL));
    EXPECT_EQ(expected, 1);
    EXPECT_TRUE(word.compare_exchange_strong(expected, 3, ZvPlatform::Order::SEQ_CST,
                                             ZvPlatform::Order::ACQUIRE));
    EXPECT_EQ(word.load(ZvPlatform::Order::RELAXED), 3);
    expected = 4;
    EXPECT_FALSE(word.compare_exchange_weak(expected, 5, ZvPlatform::Order::RELEASE));
    EXPECT_EQ(expected, 3);
    while (!word.compare_exchange_weak(expected, 5, ZvPlatform::Order::ACQ_REL,
                                       ZvPlatform::Order::RELAXED))
        EXPECT_EQ(expected, 3);
    EXPECT_EQ(word.load(ZvPlatform::Order::RELAXED), 5);
}

TEST(PlatformShared, ChangesNumbersAndReturnsTheFormerOne)
{
    Shared<std::uint16_t> word(0xFFFF);
    EXPECT_EQ(word.fetch_add(1, ZvPlatform::Order::RELAXED), 0xFFFF);
    EXPECT_EQ(word.fetch_sub(1, ZvPlatform::Order::SEQ_CST), 0);
    EXPECT_EQ(word.fetch_and(0x0FF0, ZvPlatform::Order::ACQUIRE), 0xFFFF);
    EXPECT_EQ(word.fetch_or(0xF000, ZvPlatform::Order::RELEASE), 0x0FF0);
    EXPECT_EQ(word.fetch_xor(0xFFFF, ZvPlatform::Order::ACQ_REL), 0xFFF0);
    EXPECT_EQ(word.load(ZvPlatform::Order::RELAXED), 0x000F);
}

TEST(PlatformShared, LosesNoSumOfTwoThreads)
{
    constexpr int ROUNDS = 10'000;
    Shared<int> sum(0);
    auto const add = [&] {
        for (int i = 0; i < ROUNDS; ++i)
            sum.fetch_add(1, ZvPlatform::Order::RELAXED);
        return 0;
    };
    {
        Runner other(add);
        add();
    }
    EXPECT_EQ(sum.load(ZvPlatform::Order::RELAXED), 2 * ROUNDS);
}

TEST(PlatformShared, FencesOrderRelaxedOperations)
{
    int payload = 0;
    Shared<bool> isReady(false);
    Runner writer([&] {
        payload = 42;
        ZvPlatform::fence(ZvPlatform::Order::RELEASE);
        isReady.store(true, ZvPlatform::Order::RELAXED);
        return 0;
    });
    while (!isReady.load(ZvPlatform::Order::RELAXED))
        Sleep(0);
    ZvPlatform::fence(ZvPlatform::Order::ACQUIRE);
    EXPECT_EQ(payload, 42);
}

TEST(PlatformShared, HasAnAddressToWaitOn)
{
    Shared<std::uint32_t> word(5);
    std::uint32_t seen = 5;
    EXPECT_FAILS(ERROR_TIMEOUT, WaitOnAddress(&word, &seen, sizeof seen, 0));
    word.store(6, ZvPlatform::Order::RELEASE);
    EXPECT_SUCCEEDS(WaitOnAddress(&word, &seen, sizeof seen, 0));
}

} // namespace ZvTest
