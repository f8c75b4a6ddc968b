#include "platform/platformTest.h"

#include "zvbase/platform/interlocked.h"

#include <atomic>

namespace ZvTest {

namespace Interlocked = ZvPlatform::Interlocked;

namespace {

template <class T>
void waitsWhileEqual()
{
    T value = 5, same = 5, other = 6;
    EXPECT_SUCCEEDS(WaitOnAddress(&value, &other, sizeof value, INFINITE));
    EXPECT_SUCCEEDS(WaitOnAddress(&value, &other, sizeof value, 0));
    EXPECT_FAILS(ERROR_TIMEOUT, WaitOnAddress(&value, &same, sizeof value, 0));
    EXPECT_FAILS(ERROR_TIMEOUT, WaitOnAddress(&value, &same, sizeof value, 1));
    Runner changer([&] {
        Interlocked::storeRelease(value, T{7});
        WakeByAddressSingle(&value);
        return 0;
    });
    while (Interlocked::loadAcquire(value) == 5)
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
    std::uint64_t value = 1, same = 1;
    Runner changer([&] {
        Interlocked::storeRelease(value, std::uint64_t{1} << 40 | 1);
        WakeByAddressSingle(&value);
        return 0;
    });
    while (Interlocked::loadAcquire(value) == 1)
        EXPECT_TRUE(WaitOnAddress(&value, &same, sizeof value, LONG_TIME));
}

TEST(PlatformAddress, NeighbouringBytesAreDifferentAddresses)
{
    std::uint8_t bytes[8] = {};
    std::uint8_t zero = 0;
    Owned const begun = semaphore();
    std::vector<std::unique_ptr<Runner>> waiters;
    for (std::uint8_t &own : bytes)
        waiters.push_back(std::make_unique<Runner>([&] {
            ReleaseSemaphore(begun, 1, nullptr);
            while (Interlocked::loadAcquire(own) == 0)
                EXPECT_TRUE(WaitOnAddress(&own, &zero, 1, LONG_TIME));
            return 0;
        }));
    for (int i = 0; i < 8; ++i)
        WaitForSingleObject(begun, INFINITE);
    for (int i = 7; i >= 0; --i) {
        Interlocked::storeRelease(bytes[i], std::uint8_t{1});
        WakeByAddressSingle(&bytes[i]);
        waiters[static_cast<std::size_t>(i)].reset();
    }
}

TEST(PlatformAddress, AllAreWokenTogether)
{
    long value = 0, zero = 0;
    std::vector<std::unique_ptr<Runner>> waiters;
    for (int i = 0; i < 6; ++i)
        waiters.push_back(std::make_unique<Runner>([&] {
            while (Interlocked::loadAcquire(value) == 0)
                EXPECT_TRUE(WaitOnAddress(&value, &zero, sizeof value, LONG_TIME));
            return 0;
        }));
    Interlocked::storeRelease(value, 1l);
    WakeByAddressAll(&value);
}

TEST(PlatformAddress, NoWakeUpIsLostBetweenTwoThreads)
{
    constexpr std::uint32_t ROUNDS = 20000;
    std::uint32_t turn = 0;
    auto const play = [&](std::uint32_t mine) {
        for (std::uint32_t i = mine; i < ROUNDS; i += 2) {
            for (std::uint32_t seen; (seen = Interlocked::loadAcquire(turn)) != i;)
                EXPECT_TRUE(WaitOnAddress(&turn, &seen, sizeof seen, LONG_TIME));
            Interlocked::storeRelease(turn, i + 1);
            WakeByAddressSingle(&turn);
        }
        return 0;
    };
    Runner other([&] { return play(1); });
    play(0);
    other.join();
    EXPECT_EQ(turn, ROUNDS);
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
