#include "platform/platformTest.h"

#include "zvbase/platform/shared.h"

#include <atomic>

namespace ZvTest {

using ZvPlatform::Order;
using ZvPlatform::Shared;

namespace {

template <class T>
void waitsWhileEqual()
{
    Shared<T> value{5};
    T same = 5, other = 6;
    EXPECT_SUCCEEDS(WaitOnAddress(&value, &other, sizeof value, INFINITE));
    EXPECT_SUCCEEDS(WaitOnAddress(&value, &other, sizeof value, 0));
    EXPECT_FAILS(ERROR_TIMEOUT, WaitOnAddress(&value, &same, sizeof value, 0));
    EXPECT_FAILS(ERROR_TIMEOUT, WaitOnAddress(&value, &same, sizeof value, 1));
    Runner changer([&] {
        value.store(T{7}, Order::RELEASE);
        WakeByAddressSingle(&value);
        return 0;
    });
    while (value.load(Order::ACQUIRE) == 5)
        EXPECT_TRUE(WaitOnAddress(&value, &same, sizeof value, LONG_TIME));
}

} // namespace

TEST(PlatformAddress, WaitsWhileEqualInEverySize)
{
    waitsWhileEqual<std::uint8_t>();
    waitsWhileEqual<std::uint16_t>();
    waitsWhileEqual<std::uint32_t>();
    waitsWhileEqual<std::uint64_t>();
}

TEST(PlatformAddress, TheUpperHalfOfALongOneCountsToo)
{
    Shared<std::uint64_t> value{1};
    std::uint64_t same = 1;
    Runner changer([&] {
        value.store(std::uint64_t{1} << 40 | 1, Order::RELEASE);
        WakeByAddressSingle(&value);
        return 0;
    });
    while (value.load(Order::ACQUIRE) == 1)
        EXPECT_TRUE(WaitOnAddress(&value, &same, sizeof value, LONG_TIME));
}

TEST(PlatformAddress, NeighbouringBytesAreDifferentAddresses)
{
    Shared<std::uint8_t> bytes[8];
    std::uint8_t zero = 0;
    Owned const begun = semaphore();
    std::vector<std::unique_ptr<Runner>> waiters;
    for (auto &own : bytes)
        waiters.push_back(std::make_unique<Runner>([&] {
            ReleaseSemaphore(begun, 1, nullptr);
            while (own.load(Order::ACQUIRE) == 0)
                EXPECT_TRUE(WaitOnAddress(&own, &zero, 1, LONG_TIME));
            return 0;
        }));
    for (int i = 0; i < 8; ++i)
        WaitForSingleObject(begun, INFINITE);
    for (int i = 7; i >= 0; --i) {
        bytes[i].store(std::uint8_t{1}, Order::RELEASE);
        WakeByAddressSingle(&bytes[i]);
        waiters[static_cast<std::size_t>(i)].reset();
    }
}

TEST(PlatformAddress, AllAreWokenTogether)
{
    Shared<long> value{0};
    long zero = 0;
    std::vector<std::unique_ptr<Runner>> waiters;
    for (int i = 0; i < 6; ++i)
        waiters.push_back(std::make_unique<Runner>([&] {
            while (value.load(Order::ACQUIRE) == 0)
                EXPECT_TRUE(WaitOnAddress(&value, &zero, sizeof value, LONG_TIME));
            return 0;
        }));
    value.store(1l, Order::RELEASE);
    WakeByAddressAll(&value);
}

TEST(PlatformAddress, NoWakeUpIsLostBetweenTwoThreads)
{
    constexpr std::uint32_t ROUNDS = 20000;
    Shared<std::uint32_t> turn{0};
    auto const play = [&](std::uint32_t mine) {
        for (std::uint32_t i = mine; i < ROUNDS; i += 2) {
            for (std::uint32_t seen; (seen = turn.load(Order::ACQUIRE)) != i;)
                EXPECT_TRUE(WaitOnAddress(&turn, &seen, sizeof seen, LONG_TIME));
            turn.store(i + 1, Order::RELEASE);
            WakeByAddressSingle(&turn);
        }
        return 0;
    };
    Runner other([&] { return play(1); });
    play(0);
    other.join();
    EXPECT_EQ(turn.load(Order::RELAXED), ROUNDS);
}

TEST(PlatformAddress, WakingWithoutAWaiterDoesNothing)
{
    long value = 0;
    SetLastError(UNTOUCHED);
    WakeByAddressSingle(&value);
    WakeByAddressAll(&value);
    WakeByAddressAll(nullptr);
    EXPECT_EQ(GetLastError(), UNTOUCHED);
}

TEST(PlatformAddress, MisuseFails)
{
    std::uint64_t value = 0, same = 0;
    for (SIZE_T size : {0, 3, 5, 16})
        EXPECT_FAILS(ERROR_INVALID_PARAMETER, WaitOnAddress(&value, &same, size, 0));
}

} // namespace ZvTest
