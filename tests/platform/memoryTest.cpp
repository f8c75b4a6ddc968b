#include "platform/platformTest.h"

#include <algorithm>
#include <cstring>

namespace ZvTest {

namespace {

SIZE_T page()
{
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    return info.dwPageSize;
}

bool isZero(char const *memory, SIZE_T size)
{
    return std::all_of(memory, memory + size, [](char c) { return c == 0; });
}

} // namespace

TEST(PlatformMemory, CommittedPagesAreZeroAndWritable)
{
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    SIZE_T const size = 3 * page() + 1;
    SetLastError(UNTOUCHED);
    auto *memory =
        static_cast<char *>(VirtualAlloc(nullptr, size, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE));
    EXPECT_EQ(GetLastError(), UNTOUCHED);
    ASSERT_NE(memory, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory) % info.dwAllocationGranularity, 0u);
    // Memory is given in whole pages.
    EXPECT_TRUE(isZero(memory, 4 * page()));
    std::memset(memory, 1, 4 * page());
    EXPECT_SUCCEEDS(VirtualFree(memory, 0, MEM_RELEASE));
}

TEST(PlatformMemory, AReservationIsCommittedInParts)
{
    SIZE_T const size = page();
    auto *memory = static_cast<char *>(VirtualAlloc(nullptr, 8 * size, MEM_RESERVE, PAGE_NOACCESS));
    ASSERT_NE(memory, nullptr);
    // The pages from that of the first byte to that of the last.
    EXPECT_EQ(VirtualAlloc(memory + size + 1, size, MEM_COMMIT, PAGE_READWRITE), memory + size);
    EXPECT_TRUE(isZero(memory + size, 2 * size));
    std::memset(memory + size, 7, 2 * size);
    // Memory that is committed again keeps its contents.
    EXPECT_EQ(VirtualAlloc(memory + size, size, MEM_COMMIT, PAGE_READWRITE), memory + size);
    EXPECT_EQ(memory[size], 7);
    EXPECT_SUCCEEDS(VirtualFree(memory + size, size, MEM_DECOMMIT));
    EXPECT_EQ(memory[2 * size], 7);
    EXPECT_EQ(VirtualAlloc(memory + size, size, MEM_COMMIT, PAGE_READWRITE), memory + size);
    EXPECT_TRUE(isZero(memory + size, size));
    EXPECT_TRUE(VirtualFree(memory, 0, MEM_DECOMMIT));
    EXPECT_TRUE(VirtualFree(memory, 0, MEM_RELEASE));
}

TEST(PlatformMemory, CommittingWithoutAnAddressReserves)
{
    void *memory = VirtualAlloc(nullptr, 1, MEM_COMMIT, PAGE_READWRITE);
    ASSERT_NE(memory, nullptr);
    *static_cast<char *>(memory) = 1;
    EXPECT_TRUE(VirtualFree(memory, 0, MEM_RELEASE));
}

TEST(PlatformMemory, AFreeAddressCanBeRequested)
{
    void *memory = VirtualAlloc(nullptr, 4 * page(), MEM_RESERVE, PAGE_NOACCESS);
    ASSERT_NE(memory, nullptr);
    EXPECT_FAILS(ERROR_INVALID_ADDRESS, VirtualAlloc(memory, page(), MEM_RESERVE, PAGE_NOACCESS));
    EXPECT_TRUE(VirtualFree(memory, 0, MEM_RELEASE));
    EXPECT_EQ(VirtualAlloc(memory, 4 * page(), MEM_RESERVE, PAGE_NOACCESS), memory);
    EXPECT_TRUE(VirtualFree(memory, 0, MEM_RELEASE));
}

TEST(PlatformMemory, MisuseFails)
{
    SIZE_T const size = page();
    EXPECT_FAILS(ERROR_INVALID_PARAMETER,
                 VirtualAlloc(nullptr, 0, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE));
    EXPECT_FAILS(ERROR_INVALID_PARAMETER, VirtualAlloc(nullptr, size, 0, PAGE_READWRITE));
    EXPECT_FAILS(ERROR_INVALID_PARAMETER, VirtualAlloc(nullptr, size, MEM_RELEASE, PAGE_READWRITE));
    EXPECT_FAILS(ERROR_INVALID_PARAMETER, VirtualAlloc(nullptr, size, MEM_RESERVE, 0));
    // Most of the addresses that a process can have, of which some are in use already.
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    SIZE_T const most =
        reinterpret_cast<std::uintptr_t>(info.lpMaximumApplicationAddress) / 16 * 15;
    EXPECT_FAILS(ERROR_NOT_ENOUGH_MEMORY, VirtualAlloc(nullptr, most, MEM_RESERVE, PAGE_NOACCESS));
    for (SIZE_T tooMuch : {TOO_MUCH, SIZE_T{SIZE_MAX}})
        EXPECT_EQ(VirtualAlloc(nullptr, tooMuch, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE),
                  nullptr);
    auto *memory = static_cast<char *>(VirtualAlloc(nullptr, 4 * size, MEM_RESERVE, PAGE_NOACCESS));
    ASSERT_NE(memory, nullptr);
    EXPECT_FAILS(ERROR_INVALID_ADDRESS,
                 VirtualAlloc(memory + 3 * size, 2 * size, MEM_COMMIT, PAGE_READWRITE));
    EXPECT_FAILS(ERROR_INVALID_PARAMETER, VirtualFree(memory, 4 * size, MEM_RELEASE));
    EXPECT_FAILS(ERROR_INVALID_PARAMETER, VirtualFree(memory, 0, MEM_RELEASE | MEM_DECOMMIT));
    EXPECT_FAILS(ERROR_INVALID_PARAMETER, VirtualFree(memory, 0, 0));
    EXPECT_FAILS(ERROR_INVALID_ADDRESS, VirtualFree(memory + size, 0, MEM_RELEASE));
    EXPECT_FAILS(ERROR_INVALID_PARAMETER, VirtualFree(memory + 3 * size, 2 * size, MEM_DECOMMIT));
    EXPECT_TRUE(VirtualFree(memory, 0, MEM_RELEASE));
    EXPECT_FAILS(ERROR_INVALID_ADDRESS, VirtualAlloc(memory, size, MEM_COMMIT, PAGE_READWRITE));
    EXPECT_FALSE(VirtualFree(nullptr, 0, MEM_RELEASE));
}

TEST(PlatformMemory, ReleasedMemoryCannotBeReleasedAgain)
{
    void *memory = VirtualAlloc(nullptr, page(), MEM_RESERVE, PAGE_NOACCESS);
    EXPECT_TRUE(VirtualFree(memory, 0, MEM_RELEASE));
    EXPECT_FAILS(ERROR_INVALID_ADDRESS, VirtualFree(memory, 0, MEM_RELEASE));
}

TEST(PlatformMemory, ThreadsShareTheReservations)
{
    std::vector<std::unique_ptr<Runner>> runners;
    for (int i = 0; i < 3; ++i)
        runners.push_back(std::make_unique<Runner>([] {
            for (int round = 0; round < 200; ++round) {
                void *memory =
                    VirtualAlloc(nullptr, page(), MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
                EXPECT_NE(memory, nullptr);
                std::memset(memory, round, page());
                EXPECT_TRUE(VirtualFree(memory, 0, MEM_RELEASE));
            }
            return 0;
        }));
}

using PlatformMemoryDeathTest = testing::Test;

TEST(PlatformMemoryDeathTest, UncommittedMemoryCannotBeAccessed)
{
    auto volatile *memory =
        static_cast<char volatile *>(VirtualAlloc(nullptr, page(), MEM_RESERVE, PAGE_NOACCESS));
    EXPECT_DEATH(memory[0] = 1, "");
    auto volatile *constant = static_cast<char volatile *>(
        VirtualAlloc(nullptr, page(), MEM_COMMIT | MEM_RESERVE, PAGE_READONLY));
    EXPECT_EQ(constant[0], 0);
    EXPECT_DEATH(constant[0] = 1, "");
    EXPECT_TRUE(VirtualFree(const_cast<char *>(memory), 0, MEM_RELEASE));
    EXPECT_TRUE(VirtualFree(const_cast<char *>(constant), 0, MEM_RELEASE));
}

} // namespace ZvTest
