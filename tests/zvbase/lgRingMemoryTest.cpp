#include "zvbase/lgRingMemory.private.h"

#include "zvbase/lgQueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

constexpr std::size_t USUAL = LgQueue::CAPACITY;

TEST(LgRingMemoryTest, MemoryThatWasGivenBackIsUsedAgain)
{
    LgRingMemory::Owned first = LgRingMemory::take(USUAL);
    char const * const address = first.get();
    first = nullptr;
    EXPECT_EQ(LgRingMemory::take(USUAL).get(), address);
}

TEST(LgRingMemoryTest, OwnersDoNotShareMemory)
{
    std::vector<LgRingMemory::Owned> all;
    for (int round = 0; round != 2; ++round) {
        std::set<char *> addresses;
        for (int i = 0; i != 20; ++i) {
            all.push_back(LgRingMemory::take(USUAL));
            addresses.insert(all.back().get());
            std::fill_n(all.back().get(), USUAL, static_cast<char>(i));
        }
        EXPECT_EQ(addresses.size(), all.size());
        for (std::size_t i = 0; i != all.size(); ++i)
            EXPECT_EQ(std::count(all[i].get(), all[i].get() + USUAL, static_cast<char>(i)),
                      static_cast<std::ptrdiff_t>(USUAL));
        all.clear();
    }
}

TEST(LgRingMemoryTest, MemoryOfAnotherSizeIsNotKept)
{
    for (std::size_t const size : {std::size_t{64}, 2 * USUAL}) {
        LgRingMemory::Owned memory = LgRingMemory::take(size);
        std::fill_n(memory.get(), size, 'x');
        char const * const address = memory.get();
        memory = nullptr;
        EXPECT_NE(LgRingMemory::take(USUAL).get(), address);
    }
}

} // namespace

} // namespace ZvTest
