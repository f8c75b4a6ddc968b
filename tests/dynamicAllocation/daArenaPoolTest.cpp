#include "resmgt/dynamicAllocation.h"
#include "resmgt/dynamicAllocation/daFirstFitArena.private.h"
#include "testing/allocations.h"
#include "testing/capturedLog.h"
#include "testing/failures.h"
#include "zvbase/exSysError.h"
#include "zvbase/failures.h"
#include "zvbase/lgLog.h"
#include "zvbase/lgTrace.h"
#include "zvbase/objPtr.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iomanip>
#include <map>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

constexpr std::uint64_t BASE = 0x10000;

std::string freeBlocks(DaFirstFitArena const &arena)
{
    std::ostringstream text;
    arena.dump(text);
    return text.str();
}

TEST(DaFirstFitArena, OneByteTakesEight)
{
    DaFirstFitArena arena(BASE, 64);
    EXPECT_EQ(arena.allocate(1, 0), BASE);
    EXPECT_EQ(arena.allocate(8, 0), BASE + 8);
    EXPECT_EQ(arena.allocate(9, 0), BASE + 16);
    EXPECT_EQ(freeBlocks(arena), "  free block map:\n          32        32\n");
}

TEST(DaFirstFitArena, NoBytesTakeAnAddressOfTheirOwn)
{
    DaFirstFitArena arena(BASE, 16);
    EXPECT_EQ(arena.allocate(0, 0), BASE);
    EXPECT_EQ(arena.allocate(0, 0), BASE + 8);
    EXPECT_EQ(arena.allocate(0, 0), 0u);
    arena.deallocate(BASE + 8);
    arena.deallocate(BASE);
    EXPECT_EQ(freeBlocks(arena), "  free block map:\n           0        16\n");
}

TEST(DaFirstFitArena, SizeIsRoundedDownToMultiplesOfEight)
{
    DaFirstFitArena arena(BASE, 23);
    EXPECT_EQ(arena.allocate(17, 0), 0u);
    EXPECT_EQ(arena.allocate(16, 0), BASE);
    EXPECT_EQ(arena.allocate(1, 0), 0u);
    DaFirstFitArena empty(BASE, 7);
    EXPECT_EQ(empty.allocate(1, 0), 0u);
}

TEST(DaFirstFitArena, ThreeNeighboursFreedInAnyOrderBecomeOneBlock)
{
    std::vector<std::uint64_t> order{BASE, BASE + 16, BASE + 32};
    do {
        DaFirstFitArena arena(BASE, 48);
        for (std::uint64_t const address : order) {
            static_cast<void>(address);
            ASSERT_NE(0u, arena.allocate(16, 0));
        }
        EXPECT_EQ(freeBlocks(arena), "  free block map:\n");
        for (std::uint64_t const address : order)
            arena.deallocate(address);
        EXPECT_EQ(freeBlocks(arena), "  free block map:\n           0        48\n");
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST(DaFirstFitArena, BlocksThatDoNotTouchStayApart)
{
    DaFirstFitArena arena(BASE, 40);
    for (int i = 0; i < 5; ++i)
        arena.allocate(8, 0);
    arena.deallocate(BASE);
    arena.deallocate(BASE + 32);
    arena.deallocate(BASE + 16);
    EXPECT_EQ(freeBlocks(arena),
              "  free block map:\n           0         8\n          16         8\n          32     "
              "    8\n");
}

TEST(DaFirstFitArena, AlignmentLeavesItsGapAsAFreeBlock)
{
    DaFirstFitArena arena(BASE + 8, 256);
    EXPECT_EQ(arena.allocate(16, 64), BASE + 64);
    EXPECT_EQ(freeBlocks(arena),
              "  free block map:\n           0        56\n          72       184\n");
    // The gap is used up to its last byte if a block fits.
    EXPECT_EQ(arena.allocate(56, 8), BASE + 8);
    EXPECT_EQ(freeBlocks(arena), "  free block map:\n          72       184\n");
    // There may be no rest behind an aligned block.
    EXPECT_EQ(arena.allocate(136, 64), BASE + 128);
    EXPECT_EQ(freeBlocks(arena), "  free block map:\n          72        48\n");
}

TEST(DaFirstFitArena, TheFirstBlockThatFitsIsTaken)
{
    DaFirstFitArena arena(BASE, 128);
    std::uint64_t const a = arena.allocate(32, 0);
    arena.allocate(8, 0);
    std::uint64_t const b = arena.allocate(16, 0);
    arena.allocate(8, 0);
    arena.deallocate(a);
    arena.deallocate(b);
    // The block at b fits more closely, the one at a comes first.
    EXPECT_EQ(arena.allocate(16, 0), a);
    EXPECT_EQ(arena.allocate(16, 0), a + 16);
    EXPECT_EQ(arena.allocate(16, 0), b);
}

TEST(DaFirstFitArena, ABlockTooSmallForItsAlignmentIsPassedOver)
{
    DaFirstFitArena arena(BASE, 256);
    arena.allocate(8, 0);
    std::uint64_t const small = arena.allocate(24, 0);
    arena.allocate(32, 0);
    arena.deallocate(small);
    EXPECT_EQ(arena.allocate(16, 32), BASE + 64);
    EXPECT_EQ(arena.allocate(24, 8), BASE + 8);
}

TEST(DaFirstFitArena, SizesThatCannotBeRoundedUpDoNotFit)
{
    DaFirstFitArena arena(BASE, 64);
    EXPECT_EQ(arena.allocate(~std::uint64_t{0}, 0), 0u);
    EXPECT_EQ(arena.allocate(~std::uint64_t{0} - 6, 16), 0u);
    EXPECT_EQ(arena.allocate(8, std::uint64_t{1} << 63), 0u);
    DaFirstFitArena atTheTop(~std::uint64_t{0} - 63, 56);
    EXPECT_EQ(atTheTop.allocate(8, std::uint64_t{1} << 63), 0u);
}

TEST(DaFirstFitArena, TakesBackOnlyBlocksThatItAllocated)
{
    DaFirstFitArena arena(BASE, 64);
    std::uint64_t const block = arena.allocate(16, 0);
    char const expected[] = "blockEntry != _allocatedBlocks.end()";
    EXPECT_EQ(failedAssertion([&] { arena.deallocate(block + 8); }), expected);
    arena.deallocate(block);
    EXPECT_EQ(failedAssertion([&] { arena.deallocate(block); }), expected);
}

TEST(DaFirstFitArena, DumpsSaySizeCountAndFreeBlocks)
{
    DaFirstFitArena arena(BASE, 1000004, "frames");
    arena.allocate(8, 0);
    arena.allocate(100, 0);
    std::ostringstream summary;
    arena.dumpSummary(summary);
    EXPECT_EQ(summary.str(), "Arena: frames\n"
                             "  alignment    : 8 bytes\n"
                             "  size         : 1000000 bytes\n"
                             "  nb alloc blk : 2\n");
    EXPECT_EQ(freeBlocks(arena), "  free block map:\n         112    999888\n");

    DaFirstFitArena unnamed(BASE, 8);
    std::ostringstream other;
    unnamed.dumpSummary(other);
    EXPECT_EQ(other.str(), "Arena: <Unnamed arena>\n"
                           "  alignment    : 8 bytes\n"
                           "  size         : 8 bytes\n"
                           "  nb alloc blk : 0\n");
}

/// A simple model of first fit, which looks at every unit of the range.
class Model
{
public:
    Model(std::uint64_t base, std::uint64_t size) : _base(base), _isTaken(size / UNIT, false) {}

    std::uint64_t allocate(std::uint64_t size, std::uint64_t alignment)
    {
        std::size_t const nbUnits = std::max<std::uint64_t>(1, (size + UNIT - 1) / UNIT);
        std::size_t nbFree = 0; // units from `start`
        std::size_t start = 0;
        for (std::size_t unit = 0; unit < _isTaken.size(); ++unit) {
            bool const canStart = alignment == 0 || (_base + unit * UNIT) % alignment == 0;
            if (_isTaken[unit])
                nbFree = 0;
            else if (nbFree != 0)
                ++nbFree;
            else if (canStart) {
                start = unit;
                nbFree = 1;
            }
            if (nbFree == nbUnits) {
                std::fill_n(_isTaken.begin() + static_cast<long>(start), nbUnits, true);
                _lengths[_base + start * UNIT] = nbUnits;
                return _base + start * UNIT;
            }
        }
        return 0;
    }
    void deallocate(std::uint64_t address)
    {
        std::fill_n(_isTaken.begin() + static_cast<long>((address - _base) / UNIT),
                    _lengths.at(address), false);
        _lengths.erase(address);
    }
    std::uint64_t pick(unsigned number) const
    {
        return std::next(_lengths.begin(), number % _lengths.size())->first;
    }
    std::uint64_t getLength(std::uint64_t address) const { return _lengths.at(address) * UNIT; }
    std::size_t getNbBlocks() const { return _lengths.size(); }
    std::string freeBlocks() const
    {
        std::ostringstream text;
        text << "  free block map:\n";
        for (std::size_t unit = 0; unit < _isTaken.size();) {
            std::size_t const start = unit;
            while (unit < _isTaken.size() && !_isTaken[unit])
                ++unit;
            if (unit != start)
                text << "    " << std::setw(8) << start * UNIT << "  " << std::setw(8)
                     << (unit - start) * UNIT << '\n';
            else
                ++unit;
        }
        return text.str();
    }

private:
    static constexpr std::uint64_t UNIT = 8;

    std::uint64_t _base;
    std::vector<bool> _isTaken;
    std::map<std::uint64_t, std::size_t> _lengths;
};

/// Checks the place of each block, its alignment, that no two overlap, and what remains free.
void compareWithModel(unsigned seed, std::uint64_t size, unsigned largest, unsigned nbSteps)
{
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    DaFirstFitArena arena(BASE + 24, size);
    Model model(BASE + 24, size);
    int nbRefused = 0;
    for (unsigned step = 0; step < nbSteps; ++step) {
        // Full and empty in turn.
        if (model.getNbBlocks() == 0 || random() % 8 < (step / 500 % 2 == 0 ? 5 : 3)) {
            std::uint64_t const length = random() % largest;
            std::uint64_t const alignment =
                random() % 4 == 0 ? 0 : std::uint64_t{1} << random() % 10;
            std::uint64_t const expected = model.allocate(length, alignment);
            ASSERT_EQ(arena.allocate(length, alignment), expected) << length << ", " << alignment;
            nbRefused += expected == 0;
        } else {
            std::uint64_t const address = model.pick(random());
            model.deallocate(address);
            arena.deallocate(address);
        }
        if (step % 16 == 0) {
            ASSERT_EQ(freeBlocks(arena), model.freeBlocks());
        }
    }
    EXPECT_NE(0, nbRefused);
    while (model.getNbBlocks() != 0) {
        std::uint64_t const address = model.pick(random());
        model.deallocate(address);
        arena.deallocate(address);
        ASSERT_EQ(freeBlocks(arena), model.freeBlocks());
    }
}

TEST(DaFirstFitArena, RandomBlocksHaveTheAddressesOfTheModel)
{
    for (unsigned seed = 1; seed <= 10; ++seed)
        compareWithModel(seed, 1 << 13, 300, 3000);
    compareWithModel(11, 1 << 11, 20, 5000);
    compareWithModel(12, 1 << 14, 3000, 5000);
}

/// There are so many blocks that the tree of blocks has three levels, and loses them again.
TEST(DaFirstFitArena, ThousandsOfBlocksHaveTheAddressesOfTheModel)
{
    std::mt19937 random(3);
    DaFirstFitArena arena(BASE, 1 << 16);
    Model model(BASE, 1 << 16);
    for (std::size_t const nbLeft : {1000u, 3u, 0u}) {
        while (std::uint64_t const expected = model.allocate(1 + random() % 24, 0)) {
            std::uint64_t const length = model.getLength(expected);
            ASSERT_EQ(arena.allocate(length, 0), expected);
        }
        ASSERT_GT(model.getNbBlocks(), 3500u);
        while (model.getNbBlocks() != nbLeft) {
            std::uint64_t const address = model.pick(random());
            model.deallocate(address);
            arena.deallocate(address);
            if (model.getNbBlocks() % 100 == 0) {
                ASSERT_EQ(freeBlocks(arena), model.freeBlocks());
            }
        }
    }
    EXPECT_EQ(freeBlocks(arena), "  free block map:\n           0     65536\n");
}

TEST(DaFirstFitArena, AnAllocationThatThrowsChangesNothingAndAReleaseNeverDoes)
{
    std::mt19937 random(5);
    DaFirstFitArena arena(BASE, 1 << 14);
    std::vector<std::uint64_t> blocks;
    int nbFailures = 0;
    for (int i = 0; i < 300; ++i) {
        std::string const before = freeBlocks(arena);
        std::uint64_t block = 0;
        nbFailures += failEachAllocation([&] { block = arena.allocate(8, 16); },
                                         [&] { ASSERT_EQ(freeBlocks(arena), before); });
        ASSERT_NE(0u, block);
        blocks.push_back(block);
    }
    // The nodes of the tree double a few times.
    EXPECT_GT(nbFailures, 3);
    std::shuffle(blocks.begin(), blocks.end(), random);
    {
        FailingAllocation const none(0);
        for (std::uint64_t const block : blocks)
            arena.deallocate(block);
    }
    EXPECT_EQ(freeBlocks(arena), "  free block map:\n           0     16384\n");
}

// ---- pools and allocators

struct Calls
{
    std::string text;
    bool isEmpty = false;
};

class RecordingAllocator : public DaArenaAllocator
{
public:
    explicit RecordingAllocator(Calls &calls) : _calls(calls) {}
    ~RecordingAllocator() noexcept(false) override { _calls.text += "~"; }

    void *allocate(std::uint64_t size) override
    {
        _calls.text += "+" + std::to_string(size);
        return _calls.isEmpty ? nullptr : ::operator new(size);
    }
    void deallocate(void *memory, std::uint64_t size) override
    {
        _calls.text += "-" + std::to_string(size);
        ::operator delete(memory);
    }

private:
    Calls &_calls;
};

TEST(DaArenaPool, TakesItsMemoryAtOnceAndGivesItBackInTheEnd)
{
    Calls calls;
    {
        auto * const allocator = new RecordingAllocator(calls);
        ObjPtr<DaArenaPool> pool(DaArenaPool::create(allocator, 100));
        EXPECT_EQ(calls.text, "+100");
        EXPECT_EQ(pool->getAllocator(), allocator);
        EXPECT_EQ(pool->getSize(), 100u);
        void * const a = pool->allocate(40);
        void * const b = pool->allocate(40, 16);
        ASSERT_NE(nullptr, a);
        ASSERT_NE(nullptr, b);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(b) % 16, 0u);
        std::memset(a, 1, 40);
        std::memset(b, 2, 40);
        EXPECT_EQ(pool->allocate(40), nullptr);
        pool->deallocate(a);
        pool->deallocate(b);
        EXPECT_EQ(calls.text, "+100");
    }
    EXPECT_EQ(calls.text, "+100-100~");
}

TEST(DaArenaPool, ALiveBlockFailsTheDestructorAfterTheMemoryWentBack)
{
    Calls calls;
    DaArenaPool * const pool = DaArenaPool::create(new RecordingAllocator(calls), 64);
    ASSERT_NE(nullptr, pool->allocate(8));
    EXPECT_EQ(failedAssertion([&] { delete pool; }), "_nbAllocated == 0");
    EXPECT_EQ(calls.text, "+64-64~");
}

TEST(DaArenaPool, AFailedAllocationIsNoLiveBlock)
{
    Calls calls;
    DaArenaPool * const pool = DaArenaPool::create(new RecordingAllocator(calls), 64);
    EXPECT_EQ(pool->allocate(65), nullptr);
    EXPECT_EQ(failedAssertion([&] { pool->deallocate(nullptr); }),
              "blockEntry != _allocatedBlocks.end()");
    EXPECT_EQ(failedAssertion([&] { delete pool; }), "");
}

TEST(DaArenaPool, WithoutMemoryThereIsNoPool)
{
    Calls calls;
    calls.isEmpty = true;
    EXPECT_EQ(failedAssertion([&] {
                  static_cast<void>(DaArenaPool::create(new RecordingAllocator(calls), 64));
              }),
              "_buffer != NULL");
    EXPECT_EQ(calls.text, "+64~");
}

TEST(DaArenaPool, WithoutAnAllocatorThereIsNoPool)
{
    EXPECT_THROW(static_cast<void>(DaArenaPool::create(nullptr, 64)), RCEx::ExNullPtr);
}

/// An allocator that cannot take its memory back.
class BadAllocator : public RecordingAllocator
{
public:
    using RecordingAllocator::RecordingAllocator;
    void deallocate(void *memory, std::uint64_t size) override
    {
        RecordingAllocator::deallocate(memory, size);
        throw std::runtime_error("deallocate");
    }
};

TEST(DaArenaPool, ThrowsWhatItsAllocatorThrowsUnlessAnExceptionIsHandled)
{
    Calls calls;
    EXPECT_THROW(delete DaArenaPool::create(new BadAllocator(calls), 64), std::runtime_error);
    EXPECT_EQ(calls.text, "+64-64~");
    LgLog::flush();
    CapturedLog const log;
    EXPECT_THROW(
        {
            ObjPtr<DaArenaPool> const pool(DaArenaPool::create(new BadAllocator(calls), 64));
            throw std::bad_alloc();
        },
        std::bad_alloc);
    EXPECT_EQ(calls.text, "+64-64~+64-64~");
    LgLog::flush();
    EXPECT_EQ(log.getTexts(), (Lines{"Exception: deallocate\n"}));
}

TEST(DaArenaPool, TheAllocatorIsDestroyedWithThePoolIfAnAllocationFails)
{
    for (int turn = 0;; ++turn) {
        Calls calls;
        DaArenaAllocator * const allocator = new RecordingAllocator(calls);
        FailingAllocation const failing(turn);
        try {
            delete DaArenaPool::create(allocator, 64);
        } catch (std::bad_alloc &) {
        }
        // Nothing was taken, the memory was refused, or it was taken and freed.
        ASSERT_TRUE(calls.text == "~" || calls.text == "+64~" || calls.text == "+64-64~")
            << calls.text;
        if (!failing.hasFailed()) {
            EXPECT_GE(turn, 3);
            return;
        }
    }
}

// On a machine of 32 bits, this size does not fit a pointer, and its lower half is small.
constexpr std::uint64_t TOO_MUCH =
    sizeof(void *) > 4 ? std::uint64_t{1} << 62 : (std::uint64_t{1} << 32) + 64;

TEST(DaMallocAllocator, RefusesMoreThanThereIs)
{
    ObjPtr<DaMallocAllocator> allocator(DaMallocAllocator::create());
    EXPECT_EQ(allocator->allocate(TOO_MUCH), nullptr);
}

TEST(DaMallocAllocator, GivesAndTakesMemory)
{
    ObjPtr<DaMallocAllocator> allocator(DaMallocAllocator::create());
    void * const memory = allocator->allocate(1000);
    ASSERT_NE(nullptr, memory);
    std::memset(memory, 0x55, 1000);
    allocator->deallocate(memory, 1000);
}

TEST(DaMemoryMapAllocator, GivesPagesOfZeroes)
{
    ObjPtr<DaMemoryMapAllocator> allocator(DaMemoryMapAllocator::create("pages"));
    EXPECT_STREQ(allocator->getName(), "pages");
    auto * const memory = static_cast<unsigned char *>(allocator->allocate(10000));
    ASSERT_NE(nullptr, memory);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory) % 4096, 0u);
    EXPECT_EQ(std::count(memory, memory + 10000, 0), 10000);
    std::memset(memory, 1, 10000);
    allocator->deallocate(memory, 10000);
}

TEST(DaMemoryMapAllocator, FailuresCarryTheSystemsError)
{
    ObjPtr<DaMemoryMapAllocator> allocator(DaMemoryMapAllocator::create("pages"));
    auto const errorOf = [&](auto function) {
        try {
            function();
        } catch (ExSysError const &failure) {
            return failure.getSystemError();
        }
        return 0;
    };
    // There is not so much memory, or the size is not valid.
    EXPECT_THAT(errorOf([&] { static_cast<void>(allocator->allocate(TOO_MUCH)); }),
                testing::AnyOf(8, 87));
    EXPECT_EQ(errorOf([&] { static_cast<void>(allocator->allocate(0)); }), 87);
    int onTheStack = 0;
    EXPECT_EQ(errorOf([&] { allocator->deallocate(&onTheStack, 4); }), 487);
}

TEST(DaMemoryMapAllocator, CarriesAPool)
{
    ObjPtr<DaArenaPool> pool(DaArenaPool::create(DaMemoryMapAllocator::create("pages"), 1 << 20));
    void * const memory = pool->allocate(1 << 19, 4096);
    ASSERT_NE(nullptr, memory);
    std::memset(memory, 1, 1 << 19);
    pool->deallocate(memory);
}

} // namespace
} // namespace ZvTest
