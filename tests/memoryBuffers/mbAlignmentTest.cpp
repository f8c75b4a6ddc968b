#include "resmgt/memoryBuffers/mbAlignment.h"
#include "resmgt/memoryBuffers/mbEx.h"
#include "testing/failures.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace ZvTest {
namespace {

using namespace Zv;

constexpr std::uint64_t TOP = ~std::uint64_t{0};

char const notAPowerMinus1[] = "Invalid argument: Argument is not a power of 2 minus 1.";

TEST(MbAlignment, MaskOf127AsksForMultiplesOf128)
{
    MbAlignment const alignment(127, 0, 0);
    EXPECT_EQ(alignment.roundUpToAlignment(1), 128u);
    EXPECT_EQ(alignment.roundUpToAlignment(128), 128u);
    EXPECT_EQ(alignment.roundUpToAlignment(0), 0u);
    EXPECT_EQ(alignment.getRoundUpMax(1), 127u);
    EXPECT_EQ(alignment.getRoundUpMax(128), 0u);
    EXPECT_EQ(alignment.getRoundUpMax(64), 64u);
    EXPECT_EQ(alignment.roundDownToAlignment(127), 0u);
    EXPECT_EQ(alignment.getRoundDownMax(1), 127u);
}

TEST(MbAlignment, WithoutMasksEveryAddressIsAligned)
{
    MbAlignment const alignment(0, 0, 0);
    for (std::uint64_t const address :
         {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{77}, TOP}) {
        EXPECT_TRUE(alignment.isAligned(address));
        EXPECT_EQ(alignment.roundUpToAlignment(address), address);
        EXPECT_EQ(alignment.roundDownToAlignment(address), address);
    }
    EXPECT_EQ(alignment.getRoundUpMax(1), 0u);
    EXPECT_EQ(alignment.getRoundDownMax(1), 0u);
}

TEST(MbAlignment, PatternPlacesTheDataBehindABoundary)
{
    MbAlignment const alignment(0, 255, 16);
    EXPECT_EQ(alignment.roundUpToAlignment(17), 272u);
    EXPECT_EQ(alignment.roundUpToAlignment(16), 16u);
    EXPECT_EQ(alignment.roundUpToAlignment(0), 16u);
    EXPECT_EQ(alignment.roundDownToAlignment(271), 16u);
    EXPECT_TRUE(alignment.isAligned(16 + 1024));
    EXPECT_FALSE(alignment.isAligned(1024));
}

TEST(MbAlignment, AlignmentMaskOverrulesThePattern)
{
    // Of the pattern 0x3f, the three low bits must be 0.
    MbAlignment const alignment(7, 63, 0x3f);
    EXPECT_TRUE(alignment.isAligned(0x38));
    EXPECT_FALSE(alignment.isAligned(0x3f));
    EXPECT_EQ(alignment.roundUpToAlignment(0x39), 0x38u + 64);
}

TEST(MbAlignment, RoundingIsTheNearestAlignedAddress)
{
    std::vector<MbAlignment> const alignments{{0, 0, 0},  {1, 0, 0},    {7, 0, 0},     {0, 7, 5},
                                              {3, 15, 9}, {3, 15, 12},  {15, 3, 2},    {0, 31, 31},
                                              {7, 31, 0}, {31, 31, 17}, {1, 63, 0x2a}, {63, 0, 9}};
    for (MbAlignment const &alignment : alignments) {
        for (std::uint64_t address = 128; address < 512; ++address) {
            std::uint64_t up = address;
            while (!alignment.isAligned(up))
                ++up;
            std::uint64_t down = address;
            while (!alignment.isAligned(down))
                --down;
            ASSERT_EQ(alignment.roundUpToAlignment(address), up) << address;
            ASSERT_EQ(alignment.roundDownToAlignment(address), down) << address;
        }
    }
}

TEST(MbAlignment, GreatestDistancesAreNeverExceededAndReachedFromAnyAddress)
{
    std::vector<MbAlignment> const alignments{{0, 0, 0},  {7, 0, 0},      {0, 15, 5},
                                              {3, 31, 4}, {15, 63, 0x30}, {127, 0, 0}};
    for (MbAlignment const &alignment : alignments) {
        for (std::uint64_t multiple = 1; multiple <= 256; multiple *= 2) {
            std::uint64_t up = 0;
            std::uint64_t down = 0;
            for (std::uint64_t address = 1024; address < 2048; address += multiple) {
                up = std::max(up, alignment.roundUpToAlignment(address) - address);
                down = std::max(down, address - alignment.roundDownToAlignment(address));
            }
            EXPECT_LE(up, alignment.getRoundUpMax(multiple));
            EXPECT_LE(down, alignment.getRoundDownMax(multiple));
            if (multiple == 1 && alignment.getOffsetMask() == 0) {
                EXPECT_EQ(alignment.getRoundUpMax(multiple), up);
                EXPECT_EQ(alignment.getRoundDownMax(multiple), down);
            }
        }
    }
}

TEST(MbAlignment, DistancesFollowTheirFormulas)
{
    MbAlignment const alignment(3, 63, 0x14);
    EXPECT_EQ(alignment.getRoundUpMax(1), 63u);
    EXPECT_EQ(alignment.getRoundUpMax(32), 0x34u);
    EXPECT_EQ(alignment.getRoundUpMax(64), 0x14u);
    EXPECT_EQ(alignment.getRoundDownMax(1), 63u);
    EXPECT_EQ(alignment.getRoundDownMax(64), 0x2cu);
    EXPECT_EQ(alignment.getRoundDownMax(16), 0x3cu);
}

TEST(MbAlignment, DistancesAreAskedForPowersOfTwoOnly)
{
    MbAlignment const alignment(127, 0, 0);
    char const zero[] = "Invalid argument: Zero is not a power of two.";
    EXPECT_EQ(reasonOf<MbEx::ExInvalidArgument>([&] { alignment.getRoundUpMax(0); }), zero);
    EXPECT_EQ(reasonOf<MbEx::ExInvalidArgument>([&] { alignment.getRoundDownMax(0); }), zero);
    EXPECT_EQ(reasonOf<MbEx::ExInvalidArgument>([&] { alignment.getRoundUpMax(3); }),
              notAPowerMinus1);
    EXPECT_EQ(reasonOf<MbEx::ExInvalidArgument>([&] { alignment.getRoundDownMax(96); }),
              notAPowerMinus1);
}

TEST(MbAlignment, NoRoundingWrapsAround)
{
    MbAlignment const alignment(127, 0, 0);
    EXPECT_EQ(alignment.roundUpToAlignment(TOP - 127), TOP - 127);
    EXPECT_EQ(reasonOf<MbEx::ExRangeError>([&] { alignment.roundUpToAlignment(TOP - 126); }),
              "Out of range: Can't roundUpToAlignment() because of wrap-around.");

    MbAlignment const offset(0, 255, 16);
    EXPECT_EQ(offset.roundDownToAlignment(16), 16u);
    EXPECT_EQ(reasonOf<MbEx::ExRangeError>([&] { offset.roundDownToAlignment(15); }),
              "Out of range: Can't roundDownToAlignment() because of wrap-around.");
}

TEST(MbAlignment, MasksAreAPowerOfTwoMinusOne)
{
    EXPECT_NO_THROW(MbAlignment::checkPow2Minus1(0));
    EXPECT_NO_THROW(MbAlignment::checkPow2Minus1(1));
    EXPECT_NO_THROW(MbAlignment::checkPow2Minus1(TOP));
    for (std::uint64_t const value :
         {std::uint64_t{2}, std::uint64_t{5}, std::uint64_t{6}, TOP - 1})
        EXPECT_EQ(reasonOf<MbEx::ExInvalidArgument>([&] { MbAlignment::checkPow2Minus1(value); }),
                  notAPowerMinus1);
    EXPECT_EQ(reasonOf<MbEx::ExInvalidArgument>([] { MbAlignment(5, 0, 0); }), notAPowerMinus1);
    EXPECT_EQ(reasonOf<MbEx::ExInvalidArgument>([] { MbAlignment(0, 5, 0); }), notAPowerMinus1);
}

TEST(MbAlignment, SettersTestBeforeTheyStore)
{
    MbAlignment alignment(7, 63, 8);
    EXPECT_EQ(reasonOf<MbEx::ExInvalidArgument>([&] { alignment.setAlignmentMask(10); }),
              notAPowerMinus1);
    EXPECT_EQ(reasonOf<MbEx::ExInvalidArgument>([&] { alignment.setOffsetMask(12); }),
              notAPowerMinus1);
    EXPECT_EQ(alignment.getAlignmentMask(), 7u);
    EXPECT_EQ(alignment.getOffsetMask(), 63u);

    alignment.setAlignmentMask(15);
    alignment.setOffsetMask(127);
    alignment.setOffsetPattern(TOP);
    EXPECT_EQ(alignment.getAlignmentMask(), 15u);
    EXPECT_EQ(alignment.getOffsetMask(), 127u);
    EXPECT_EQ(alignment.getOffsetPattern(), TOP);
    EXPECT_TRUE(alignment.isAligned(0x70));
}

TEST(MbAlignment, CompoundAsksForBoth)
{
    MbAlignment alignment(7, 0, 0);
    alignment.compound(MbAlignment(0, 63, 40));
    EXPECT_EQ(alignment.getAlignmentMask(), 7u);
    EXPECT_EQ(alignment.getOffsetMask(), 63u);
    EXPECT_EQ(alignment.getOffsetPattern(), 40u);

    MbAlignment wide(0, 255, 0xd4);
    wide.compound(MbAlignment(3, 15, 4));
    EXPECT_EQ(wide.getAlignmentMask(), 3u);
    EXPECT_EQ(wide.getOffsetMask(), 255u);
    EXPECT_EQ(wide.getOffsetPattern(), 0xd4u);

    // Of two masks that are equal, the other's pattern is taken.
    MbAlignment equal(0, 15, 0x105);
    equal.compound(MbAlignment(0, 15, 0x205));
    EXPECT_EQ(equal.getOffsetPattern(), 0x205u);
}

TEST(MbAlignment, CompoundForgivesADifferenceBelowTheNewAlignment)
{
    MbAlignment alignment(0, 15, 9);
    alignment.compound(MbAlignment(7, 15, 8));
    EXPECT_EQ(alignment.getAlignmentMask(), 7u);
    EXPECT_TRUE(alignment.isAligned(8));
}

TEST(MbAlignment, CompoundThatContradictsChangesNothing)
{
    MbAlignment alignment(0, 15, 8);
    EXPECT_EQ(reasonOf<MbEx::ExRangeError>([&] { alignment.compound(MbAlignment(3, 31, 4)); }),
              "Out of range: Incompatible offsets..");
    EXPECT_EQ(alignment.getAlignmentMask(), 0u);
    EXPECT_EQ(alignment.getOffsetMask(), 15u);
    EXPECT_EQ(alignment.getOffsetPattern(), 8u);
}

} // namespace
} // namespace ZvTest
