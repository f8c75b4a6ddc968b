#include "recording.h"
#include "testing/allocations.h"
#include "testing/dump.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <sstream>

namespace ZvTest {
namespace {

class UnloadStrategies : public testing::Test
{
protected:
    ~UnloadStrategies() noexcept override {}

    MbBufferImp *make(char const *name)
    {
        buffers.push_back(MbBufferSimpleFactory(initialState(), manager).create(name, 8));
        return buffers.back().getImp().get();
    }
    /// Removes the selected buffers one after the other. Returns them in that order.
    static std::string drain(MbUnloadStrategy &strategy)
    {
        std::string order;
        while (!strategy.isEmpty()) {
            MbBufferImp * const victim = strategy.selectVictim();
            order += victim->getName().getChars();
            strategy.removeBuffer(victim);
        }
        return order;
    }

    Journal log;
    RCShdPtr<RecordingManager> manager{new RecordingManager(log)};
    std::vector<MbBuffer> buffers;
    MbBufferImp * const a = make("a");
    MbBufferImp * const b = make("b");
    MbBufferImp * const c = make("c");
    MbBufferImp * const d = make("d");
};

/// Inserts and removes the buffers in a set that has room for them.
void expectNothingIsAllocated(MbUnloadStrategy &strategy, std::vector<MbBufferImp *> const &buffers)
{
    AllocationCount const allocations;
    for (int round = 0; round < 3; ++round) {
        for (MbBufferImp * const buffer : buffers)
            strategy.insertBuffer(buffer);
        for (MbBufferImp * const buffer : buffers)
            strategy.removeBuffer(buffer);
    }
    EXPECT_EQ(allocations.get(), 0u);
    EXPECT_TRUE(strategy.isEmpty());
}

/// Makes room for the buffers in several ways, and inserts them.
template <class Strategy>
void expectRoom(MbBufferImp *stranger, std::vector<MbBufferImp *> const &buffers)
{
    Strategy atOnce(0);
    atOnce.reserve(buffers.size());
    expectNothingIsAllocated(atOnce, buffers);

    Strategy oneByOne(0);
    for (std::size_t i = 1; i <= buffers.size(); ++i)
        oneByOne.reserve(i);
    oneByOne.reserve(1);
    expectNothingIsAllocated(oneByOne, buffers);

    Strategy used(0);
    used.insertBuffer(stranger);
    used.reserve(buffers.size());
    used.removeBuffer(stranger);
    expectNothingIsAllocated(used, buffers);

    Strategy interrupted(0);
    EXPECT_LT(1, failEachAllocation([&] { interrupted.reserve(buffers.size()); }, [] {}));
    expectNothingIsAllocated(interrupted, buffers);

    Strategy full(0);
    for (MbBufferImp * const buffer : buffers)
        full.insertBuffer(buffer);
    Strategy copy(full);
    {
        FailingAllocation const failing(0);
        for (MbBufferImp * const buffer : buffers)
            copy.removeBuffer(buffer);
    }
    copy.reserve(buffers.size());
    expectNothingIsAllocated(copy, buffers);
    copy = full;
    for (MbBufferImp * const buffer : buffers)
        copy.removeBuffer(buffer);
    copy.reserve(buffers.size());
    expectNothingIsAllocated(copy, buffers);
}

/// A buffer that cannot be inserted because there is no memory leaves the set unchanged.
template <class Strategy>
void expectRefusalsLeaveNothing(std::vector<MbBufferImp *> const &buffers)
{
    Strategy strategy(0);
    std::size_t joined = 0;
    EXPECT_LT(4, failEachAllocation(
                     [&] {
                         for (; joined < buffers.size(); ++joined)
                             strategy.insertBuffer(buffers[joined]);
                     },
                     [&] {
                         for (std::size_t i = 0; i < buffers.size(); ++i)
                             strategy.removeBuffer(buffers[i]);
                         EXPECT_TRUE(strategy.isEmpty());
                         for (std::size_t i = 0; i < joined; ++i)
                             strategy.insertBuffer(buffers[i]);
                     }));
}

using LRU = UnloadStrategies;
using Random = UnloadStrategies;

TEST_F(LRU, SelectsTheOneThatJoinedFirst)
{
    MbUnloadLRU strategy(0);
    EXPECT_STREQ(strategy.getName(), "MbUnloadLRU");
    EXPECT_TRUE(strategy.isEmpty());
    strategy.insertBuffer(a);
    EXPECT_FALSE(strategy.isEmpty());
    strategy.insertBuffer(b);
    strategy.insertBuffer(c);
    EXPECT_EQ(strategy.selectVictim(), a);
    strategy.removeBuffer(a);
    strategy.insertBuffer(a);
    EXPECT_EQ(strategy.selectVictim(), b);
    strategy.removeBuffer(c);
    EXPECT_EQ(drain(strategy), "ba");
}

TEST_F(LRU, SelectsTheSameBufferTwice)
{
    MbUnloadLRU strategy(4);
    strategy.insertBuffer(c);
    strategy.insertBuffer(a);
    EXPECT_EQ(strategy.selectVictim(), c);
    EXPECT_EQ(strategy.selectVictim(), c);
}

TEST_F(LRU, DumpIsItsName)
{
    MbUnloadLRU strategy(4);
    strategy.insertBuffer(a);
    EXPECT_EQ(dumpOf(strategy), "MbUnloadLRU");
}

TEST_F(LRU, CopiesGoTheirOwnWays)
{
    MbUnloadLRU strategy(0);
    for (MbBufferImp * const buffer : {a, b, c, d})
        strategy.insertBuffer(buffer);
    strategy.removeBuffer(d);
    MbUnloadLRU copy(strategy);
    copy.removeBuffer(b);
    copy.insertBuffer(d);
    EXPECT_EQ(drain(strategy), "abc");
    EXPECT_EQ(drain(copy), "acd");
    strategy.insertBuffer(b);
    copy.insertBuffer(a);
    strategy = copy;
    strategy.insertBuffer(c);
    EXPECT_EQ(drain(strategy), "ac");
    EXPECT_EQ(drain(copy), "a");
    MbUnloadLRU &self = strategy;
    strategy.insertBuffer(a);
    strategy = self;
    EXPECT_EQ(drain(strategy), "a");
}

TEST_F(LRU, ABufferThatJoinsTwiceIsFoundAtItsNewPlace)
{
    MbUnloadLRU strategy(0);
    strategy.insertBuffer(b);
    strategy.insertBuffer(a);
    strategy.removeBuffer(b); // leaves a spare node and entry
    strategy.insertBuffer(a);
    strategy.insertBuffer(c);
    strategy.removeBuffer(a);
    // Its older place is kept.
    EXPECT_EQ(strategy.selectVictim(), a);
    strategy.insertBuffer(d);
    strategy.removeBuffer(c);
    strategy.removeBuffer(d);
    EXPECT_EQ(strategy.selectVictim(), a);
}

TEST_F(LRU, AStrangerLeavesNothingBehind)
{
    MbUnloadLRU strategy(0);
    strategy.removeBuffer(a);
    strategy.insertBuffer(b);
    strategy.removeBuffer(a);
    EXPECT_EQ(drain(strategy), "b");
}

TEST_F(LRU, AllocatesNothingIfThereIsRoom)
{
    std::vector<MbBufferImp *> many;
    for (int i = 0; i < 100; ++i)
        many.push_back(make("many"));
    expectRoom<MbUnloadLRU>(a, many);
    expectRefusalsLeaveNothing<MbUnloadLRU>(many);
}

TEST_F(LRU, KeepsTheOrderThroughALongLife)
{
    std::mt19937 random(3);
    std::vector<MbBufferImp *> all;
    for (int i = 0; i < 100; ++i)
        all.push_back(make(std::to_string(i).c_str()));
    MbUnloadLRU strategy(0);
    std::vector<MbBufferImp *> order;
    for (int i = 0; i < 20000; ++i) {
        MbBufferImp * const buffer = all[random() % all.size()];
        auto const place = std::find(order.begin(), order.end(), buffer);
        if (place == order.end()) {
            strategy.insertBuffer(buffer);
            order.push_back(buffer);
        } else {
            strategy.removeBuffer(buffer);
            order.erase(place);
        }
        ASSERT_EQ(strategy.isEmpty(), order.empty());
        if (!order.empty()) {
            ASSERT_EQ(strategy.selectVictim(), order.front());
        }
    }
}

TEST_F(LRU, ThroughAManagerUnlockAndPrefetchCountAsUse)
{
    RCShdPtr<MbManager> heap(new MbHeapManager("heap", 3 * 8, makeObj<MbUnloadLRU>(0)));
    MbBufferSimpleFactory factory(initialState(), heap);
    auto const make8 = [&](char const *name) {
        return factory.create(name, 8, MbAlignment(0, 0, 0));
    };
    MbBuffer first = make8("first");
    MbBuffer second = make8("second");
    MbBuffer third = make8("third");
    MbBuffer fourth = make8("fourth");
    for (MbBuffer const &buffer : {first, second, third})
        MbBufferRdGuardImp const guard(buffer);
    {
        MbBufferRdGuardImp const guard(fourth);
        EXPECT_FALSE(first.isLoaded());
    }
    // The order of use is second, third, fourth. A prefetch makes second the last.
    second.prefetch();
    MbBufferRdGuardImp const guard(first);
    EXPECT_FALSE(third.isLoaded());
    EXPECT_TRUE(second.isLoaded());
    EXPECT_TRUE(fourth.isLoaded());
}

TEST_F(LRU, IndexKeepsItsEntriesThroughALongLife)
{
    std::vector<MbBufferImp *> all;
    for (int i = 0; i < 100; ++i)
        all.push_back(make("many"));
    std::mt19937 random(5);
    MbUnloadIndex<int> index;
    std::map<MbBufferImp *, int> expected;
    for (int i = 0; i < 5000; ++i) {
        MbBufferImp * const buffer = all[random() % all.size()];
        if (expected.erase(buffer) != 0)
            index.erase(index.find(buffer));
        else
            EXPECT_EQ(index.insert(buffer, i).second, expected.emplace(buffer, i).second);
        std::map<MbBufferImp *, int> entries;
        for (auto const &[entry, place] : index)
            entries.emplace(entry, place);
        ASSERT_EQ(entries, expected);
        EXPECT_EQ(index.find(buffer) != index.end(), expected.count(buffer) != 0);
    }
}

TEST_F(Random, WorksWithoutReservedRoom)
{
    MbUnloadRandom strategy(0);
    EXPECT_STREQ(strategy.getName(), "MbUnloadRandom");
    EXPECT_TRUE(strategy.isEmpty());
    for (MbBufferImp * const buffer : {a, b, c, d})
        strategy.insertBuffer(buffer);
    EXPECT_FALSE(strategy.isEmpty());
    std::string order = drain(strategy);
    std::sort(order.begin(), order.end());
    EXPECT_EQ(order, "abcd");
    MbUnloadRandom(-1).insertBuffer(a);
}

TEST_F(Random, ReservesTheRoomThatIsAskedFor)
{
    auto const allocationsOf = [](int capacity) {
        AllocationCount const allocations;
        MbUnloadRandom const strategy(capacity);
        return allocations.get();
    };
    EXPECT_EQ(allocationsOf(-1), allocationsOf(0));
    EXPECT_EQ(allocationsOf(1), allocationsOf(0) + 1);
    EXPECT_EQ(allocationsOf(100), allocationsOf(0) + 1);
}

TEST_F(Random, AllocatesNothingIfThereIsRoom)
{
    std::vector<MbBufferImp *> many;
    for (int i = 0; i < 100; ++i)
        many.push_back(make("many"));
    expectRoom<MbUnloadRandom>(a, many);
    expectRefusalsLeaveNothing<MbUnloadRandom>(many);
}

/// Returns the order in the container from the dump.
std::string containerOf(MbUnloadRandom const &strategy)
{
    std::ostringstream dump;
    strategy.dump(dump);
    std::istringstream lines(dump.str());
    std::string order;
    bool isContainer = false;
    for (std::string line; std::getline(lines, line);) {
        if (isContainer && line.empty())
            break;
        if (isContainer)
            order += line.back();
        isContainer = isContainer || line == "Random buffer container: ";
    }
    return order;
}

TEST_F(Random, RemovingTheLastLeavesTheOthersAndRemovingAnotherMovesOne)
{
    MbUnloadRandom strategy(10);
    for (MbBufferImp * const buffer : {a, b, c, d})
        strategy.insertBuffer(buffer);
    EXPECT_EQ(containerOf(strategy), "abcd");
    strategy.removeBuffer(d);
    EXPECT_EQ(containerOf(strategy), "abc");
    strategy.insertBuffer(d);
    strategy.removeBuffer(b);
    EXPECT_EQ(containerOf(strategy), "adc");
    strategy.removeBuffer(d);
    EXPECT_EQ(containerOf(strategy), "ac");
    strategy.removeBuffer(b); // not in the set
    strategy.removeBuffer(a);
    strategy.removeBuffer(c);
    EXPECT_TRUE(strategy.isEmpty());
}

TEST_F(Random, DumpShowsTheContainerAndItsIndex)
{
    MbUnloadRandom strategy(10);
    EXPECT_EQ(dumpOf(strategy), "MbUnloadRandom\n"
                                "Nb loaded and unlocked buffers  = 0\n"
                                "\n"
                                "Random buffer container: \n"
                                "\n"
                                "Pair associative indexes : \n");
    strategy.insertBuffer(make("first"));
    std::string const front = "MbUnloadRandom\n"
                              "Nb loaded and unlocked buffers  = 1\n"
                              "\n"
                              "Random buffer container: \n"
                              "    0 = first\n"
                              "\n"
                              "Pair associative indexes : \n"
                              "               first = 0\n";
    EXPECT_EQ(dumpOf(strategy), front);
    strategy.insertBuffer(make("second"));
    std::string const twoFront = "MbUnloadRandom\n"
                                 "Nb loaded and unlocked buffers  = 2\n"
                                 "\n"
                                 "Random buffer container: \n"
                                 "    0 = first\n"
                                 "    1 = second\n"
                                 "\n"
                                 "Pair associative indexes : \n";
    std::string const first = "               first = 0\n";
    std::string const second = "              second = 1\n";
    std::string const dump = dumpOf(strategy);
    EXPECT_TRUE(dump == twoFront + first + second || dump == twoFront + second + first) << dump;
}

TEST_F(Random, SelectsAllOfThemAboutEquallyOften)
{
    MbUnloadRandom strategy(4);
    for (MbBufferImp * const buffer : {a, b, c, d})
        strategy.insertBuffer(buffer);
    std::map<MbBufferImp *, int> counts;
    for (int i = 0; i < 4000; ++i)
        ++counts[strategy.selectVictim()];
    for (MbBufferImp * const buffer : {a, b, c, d}) {
        EXPECT_GT(counts[buffer], 800);
        EXPECT_LT(counts[buffer], 1200);
    }
}

/// Returns the integer part of 2147483647 times the number, modulo the count.
TEST_F(Random, SelectsByTheGeneratorsNumbers)
{
    MbUnloadRandom strategy(3);
    std::vector<MbBufferImp *> const container{a, b, c};
    for (MbBufferImp * const buffer : container)
        strategy.insertBuffer(buffer);
    RnNumRecUniformRng generator;
    for (int i = 0; i < 100; ++i) {
        auto const number = static_cast<std::uint64_t>(generator.eval() * 2147483647.0);
        ASSERT_EQ(strategy.selectVictim(), container[number % 3]);
    }
}

TEST_F(Random, ACopyContinuesWithTheSameNumbers)
{
    MbUnloadRandom strategy(4);
    for (MbBufferImp * const buffer : {a, b, c, d})
        strategy.insertBuffer(buffer);
    strategy.selectVictim();
    MbUnloadRandom copy(strategy);
    MbUnloadRandom assigned(0);
    assigned = strategy;
    for (int i = 0; i < 20; ++i) {
        MbBufferImp * const victim = strategy.selectVictim();
        EXPECT_EQ(copy.selectVictim(), victim);
        EXPECT_EQ(assigned.selectVictim(), victim);
    }
    copy.removeBuffer(a);
    EXPECT_EQ(containerOf(strategy), "abcd");
}

TEST_F(Random, ABufferThatJoinsTwiceKeepsItsFirstIndex)
{
    MbUnloadRandom strategy(4);
    strategy.insertBuffer(a);
    strategy.insertBuffer(b);
    strategy.insertBuffer(a);
    EXPECT_EQ(containerOf(strategy), "aba");
    strategy.removeBuffer(b);
    EXPECT_EQ(containerOf(strategy), "aa");
}

} // namespace
} // namespace ZvTest
