// The memory model permits exactly what C++20 permits, except what it is said to leave out.
#include "simulated/litmus.h"

#include "platform/scheduler/weakMemory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>

namespace Zv::Simulated {

namespace {

using ZvPlatform::Order;
using Orders = std::vector<Order>;
using enum Order;

Orders const loads = {RELAXED, ACQUIRE, SEQ_CST};
Orders const stores = {RELAXED, RELEASE, SEQ_CST};
Orders const changes = {RELAXED, ACQUIRE, RELEASE, ACQ_REL, SEQ_CST};
/// A relaxed fence has no effect: there is none.
Orders const fences = {RELAXED, ACQUIRE, RELEASE, ACQ_REL, SEQ_CST};

constexpr unsigned X = 0, Y = 1, Z = 2;

Operation load(unsigned word, Order order)
{
    return {Operation::LOAD, order, word};
}

Operation store(unsigned word, int value, Order order)
{
    return {Operation::STORE, order, word, value};
}

Operation exchange(unsigned word, int value, Order order)
{
    return {Operation::EXCHANGE, order, word, value};
}

Operation makeFence(Order order)
{
    return {Operation::FENCE, order};
}

/// The values that are read, without the last values of the words.
Outcomes readsOf(Outcomes const &outcomes)
{
    Outcomes reads;
    for (auto const &outcome : outcomes)
        reads.insert(outcome.substr(0, outcome.find(" |")));
    return reads;
}

/// Expects that the model has those outcomes that have an order of steps.
void expectForward(Litmus const &litmus)
{
    EXPECT_EQ(outcomesOfModel(litmus), outcomesOfStandard(litmus, Extent::FORWARD))
        << toText(litmus);
}

/// Expects that the model has exactly the outcomes that C++20 permits.
void expectAll(Litmus const &litmus)
{
    EXPECT_EQ(outcomesOfModel(litmus), outcomesOfStandard(litmus, Extent::ALL)) << toText(litmus);
}

/// Expects what `expectAll` does if all operations, or none, are sequentially consistent. Otherwise
/// expects what `expectForward` does.
void expectAllUnlessMixed(Litmus const &litmus)
{
    std::size_t operations = 0, sequential = 0;
    for (auto const &thread : litmus)
        for (Operation const &operation : thread) {
            ++operations;
            sequential += operation.order == SEQ_CST;
        }
    if (sequential == 0 || sequential == operations)
        expectAll(litmus);
    else
        expectForward(litmus);
}

/// Calls `make` with each combination of one order from each list.
void forEachCombination(std::vector<Orders> const &lists,
                        std::function<void(Orders const &)> const &make)
{
    Orders combination(lists.size());
    std::function<void(std::size_t)> const choose = [&](std::size_t i) {
        if (i == lists.size()) {
            make(combination);
            return;
        }
        for (Order const order : lists[i]) {
            combination[i] = order;
            choose(i + 1);
        }
    };
    choose(0);
}

Litmus storeBuffering(Order store1, Order load1, Order store2, Order load2)
{
    return {{store(X, 1, store1), load(Y, load1)}, {store(Y, 1, store2), load(X, load2)}};
}

Litmus messagePassing(Order store1, Order store2, Order load1, Order load2)
{
    return {{store(X, 1, store1), store(Y, 1, store2)}, {load(Y, load1), load(X, load2)}};
}

Litmus independentReads(Order stored, Order first, Order second)
{
    return {{store(X, 1, stored)},
            {store(Y, 1, stored)},
            {load(X, first), load(Y, second)},
            {load(Y, first), load(X, second)}};
}

} // namespace

// ---- The classical outcomes, written out.

TEST(Litmus, StoreBuffering)
{
    EXPECT_TRUE(readsOf(outcomesOfModel(storeBuffering(RELEASE, ACQUIRE, RELEASE, ACQUIRE)))
                    .contains("0 0"));
    EXPECT_EQ(readsOf(outcomesOfModel(storeBuffering(SEQ_CST, SEQ_CST, SEQ_CST, SEQ_CST))),
              (Outcomes{"0 1", "1 0", "1 1"}));
    // One operation that is weaker is enough.
    EXPECT_TRUE(readsOf(outcomesOfModel(storeBuffering(SEQ_CST, SEQ_CST, SEQ_CST, ACQUIRE)))
                    .contains("0 0"));
}

TEST(Litmus, MessagePassing)
{
    EXPECT_TRUE(readsOf(outcomesOfModel(messagePassing(RELAXED, RELAXED, ACQUIRE, RELAXED)))
                    .contains("1 0"));
    EXPECT_TRUE(readsOf(outcomesOfModel(messagePassing(RELAXED, RELEASE, RELAXED, RELAXED)))
                    .contains("1 0"));
    EXPECT_EQ(readsOf(outcomesOfModel(messagePassing(RELAXED, RELEASE, ACQUIRE, RELAXED))),
              (Outcomes{"0 0", "0 1", "1 1"}));
}

TEST(Litmus, IndependentReadsOfIndependentWrites)
{
    EXPECT_TRUE(
        readsOf(outcomesOfModel(independentReads(RELEASE, ACQUIRE, ACQUIRE))).contains("1 0 1 0"));
    EXPECT_FALSE(
        readsOf(outcomesOfModel(independentReads(SEQ_CST, SEQ_CST, SEQ_CST))).contains("1 0 1 0"));
}

/// The values of a word are never read in another order than that in which they were stored.
TEST(Litmus, CoherenceOfOneWord)
{
    Litmus const readRead = {{store(X, 1, RELAXED), store(X, 2, RELAXED)},
                             {load(X, RELAXED), load(X, RELAXED)}};
    EXPECT_EQ(readsOf(outcomesOfModel(readRead)),
              (Outcomes{"0 0", "0 1", "0 2", "1 1", "1 2", "2 2"}));
    Litmus const writeWrite = {{store(X, 1, RELAXED), store(X, 2, RELAXED)}};
    EXPECT_EQ(outcomesOfModel(writeWrite), Outcomes{"| 2"});
    Litmus const writeRead = {{store(X, 1, RELAXED), load(X, RELAXED)}};
    EXPECT_EQ(outcomesOfModel(writeRead), Outcomes{"1 | 1"});
    Litmus const readWrite = {{load(X, RELAXED), store(X, 1, RELAXED)}};
    EXPECT_EQ(outcomesOfModel(readWrite), Outcomes{"0 | 1"});
    for (Litmus const &litmus : {readRead, writeWrite, writeRead, readWrite})
        expectAll(litmus);
}

/// A read-modify-write of another thread continues a release sequence. A store ends it.
TEST(Litmus, ReleaseSequences)
{
    auto const withMiddle = [](Operation const &middle) {
        return Litmus{{store(X, 1, RELAXED), store(Y, 1, RELEASE)},
                      {middle},
                      {load(Y, ACQUIRE), load(X, RELAXED)}};
    };
    auto const continued = readsOf(outcomesOfModel(withMiddle(exchange(Y, 2, RELAXED))));
    EXPECT_FALSE(continued.contains("1 2 0"));
    EXPECT_TRUE(continued.contains("0 2 0"));
    auto const ended = readsOf(outcomesOfModel(withMiddle(store(Y, 2, RELAXED))));
    EXPECT_TRUE(ended.contains("2 0"));
    EXPECT_FALSE(ended.contains("1 0"));
}

TEST(Litmus, Fences)
{
    auto const passed = [](Order first, Order second) {
        return readsOf(
            outcomesOfModel({{store(X, 1, RELAXED), makeFence(first), store(Y, 1, RELAXED)},
                             {load(Y, RELAXED), makeFence(second), load(X, RELAXED)}}));
    };
    EXPECT_FALSE(passed(RELEASE, ACQUIRE).contains("1 0"));
    EXPECT_TRUE(passed(ACQUIRE, ACQUIRE).contains("1 0"));
    EXPECT_TRUE(passed(RELEASE, RELEASE).contains("1 0"));
    auto const buffered = [](Order order) {
        return readsOf(
            outcomesOfModel({{store(X, 1, RELAXED), makeFence(order), load(Y, RELAXED)},
                             {store(Y, 1, RELAXED), makeFence(order), load(X, RELAXED)}}));
    };
    EXPECT_FALSE(buffered(SEQ_CST).contains("0 0"));
    EXPECT_TRUE(buffered(ACQ_REL).contains("0 0"));
}

/// In the model a load reads from a step before, a store is the last of its word when it is carried
/// out, and the sequentially consistent operations are in S in the order of their steps. C++20
/// permits these outcomes nevertheless.
TEST(Litmus, LeftOut)
{
    struct Case
    {
        Litmus litmus;
        std::string outcome;
    };
    Case const cases[] = {
        // Load buffering.
        {{{load(X, RELAXED), store(Y, 1, RELAXED)}, {load(Y, RELAXED), store(X, 1, RELAXED)}},
         "1 1 | 1 1"},
        // 2+2W.
        {{{store(X, 1, RELAXED), store(Y, 2, RELAXED)},
          {store(Y, 1, RELAXED), store(X, 2, RELAXED)}},
         "| 1 1"},
        // S.
        {{{store(X, 2, RELAXED), store(Y, 1, RELAXED)}, {load(Y, RELAXED), store(X, 1, RELAXED)}},
         "1 | 2 1"},
        // R, in which the store that comes later precedes the other one.
        {{{store(X, 1, SEQ_CST), store(Y, 1, RELEASE)}, {store(Y, 2, SEQ_CST), load(X, SEQ_CST)}},
         "0 | 1 2"},
        // Message passing, in which the message is not in the order S, but what it announces is.
        {{{store(X, 1, SEQ_CST), store(Y, 1, RELAXED)}, {load(Y, RELAXED), load(X, SEQ_CST)}},
         "1 0 | 1 1"},
    };
    for (Case const &one : cases) {
        expectForward(one.litmus);
        Outcomes const all = outcomesOfStandard(one.litmus, Extent::ALL);
        Outcomes expected = all;
        EXPECT_EQ(expected.erase(one.outcome), 1u) << toText(one.litmus);
        EXPECT_EQ(outcomesOfModel(one.litmus), expected) << toText(one.litmus);
    }
}

/// The kernel compares the lower half of a longer word. That must not end the word's history.
TEST(Litmus, FutexOfALongWordKeepsWhatWasReleased)
{
    constexpr std::uint64_t UPPER_HALF = std::uint64_t{1} << 32;
    static ZvPlatform::Simulated::WeakMemory memory;
    int data, word; // only their addresses count
    memory.reset();
    memory.start(1, 0);
    memory.construct(0, &word, 0, {});
    memory.start(2, 0);
    memory.construct(1, &data, 0, {});
    memory.store(1, &word, 0, UPPER_HALF, Order::RELEASE, {});
    memory.see(2, &word);
    EXPECT_TRUE(memory.findUnpublished(2, &data));
    memory.load(2, &word, UPPER_HALF, Order::ACQUIRE, [](unsigned) { return 0u; });
    EXPECT_FALSE(memory.findUnpublished(2, &data));
}

// ---- Each shape with each combination of orders.

TEST(LitmusOrders, StoreBuffering)
{
    forEachCombination({stores, loads, stores, loads},
                       [](Orders const &o) { expectAll(storeBuffering(o[0], o[1], o[2], o[3])); });
    forEachCombination({changes, loads, changes, loads}, [](Orders const &o) {
        expectAll({{exchange(X, 1, o[0]), load(Y, o[1])}, {exchange(Y, 1, o[2]), load(X, o[3])}});
    });
}

TEST(LitmusOrders, MessagePassing)
{
    forEachCombination({stores, stores, loads, loads}, [](Orders const &o) {
        expectAllUnlessMixed(messagePassing(o[0], o[1], o[2], o[3]));
    });
}

TEST(LitmusOrders, LoadBuffering)
{
    forEachCombination({loads, stores, loads, stores}, [](Orders const &o) {
        Litmus const litmus = {{load(X, o[0]), store(Y, 1, o[1])},
                               {load(Y, o[2]), store(X, 1, o[3])}};
        expectForward(litmus);
        EXPECT_FALSE(outcomesOfModel(litmus).contains("1 1 | 1 1"));
    });
}

TEST(LitmusOrders, IndependentReadsOfIndependentWrites)
{
    forEachCombination({stores, loads, loads}, [](Orders const &o) {
        expectAllUnlessMixed(independentReads(o[0], o[1], o[2]));
    });
    for (Order const order : fences)
        expectAllUnlessMixed({{store(X, 1, RELAXED)},
                              {store(Y, 1, RELAXED)},
                              {load(X, RELAXED), makeFence(order), load(Y, RELAXED)},
                              {load(Y, RELAXED), makeFence(order), load(X, RELAXED)}});
}

TEST(LitmusOrders, CoherenceOfOneWord)
{
    forEachCombination({stores, stores, loads, loads}, [](Orders const &o) {
        expectAll({{store(X, 1, o[0]), store(X, 2, o[1])}, {load(X, o[2]), load(X, o[3])}});
        expectAll({{store(X, 1, o[0])}, {store(X, 2, o[1])}, {load(X, o[2]), load(X, o[3])}});
        expectForward({{store(X, 1, o[0]), load(X, o[2])}, {store(X, 2, o[1]), load(X, o[3])}});
        expectForward({{load(X, o[2]), store(X, 1, o[0])}, {load(X, o[3]), store(X, 2, o[1])}});
    });
}

TEST(LitmusOrders, ReleaseSequences)
{
    forEachCombination({stores, changes, loads}, [](Orders const &o) {
        expectAll({{store(X, 1, RELAXED), store(Y, 1, o[0])},
                   {exchange(Y, 2, o[1])},
                   {load(Y, o[2]), load(X, RELAXED)}});
    });
    forEachCombination({stores, stores, loads}, [](Orders const &o) {
        expectAll({{store(X, 1, RELAXED), store(Y, 1, o[0])},
                   {store(Y, 2, o[1])},
                   {load(Y, o[2]), load(X, RELAXED)}});
        // Unlike before C++20, a store of the first thread ends its release sequence, too.
        expectAll({{store(X, 1, RELAXED), store(Y, 1, o[0]), store(Y, 2, o[1])},
                   {load(Y, o[2]), load(X, RELAXED)}});
    });
}

TEST(LitmusOrders, Fences)
{
    forEachCombination({fences, stores, loads, fences}, [](Orders const &o) {
        expectAll({{store(X, 1, RELAXED), makeFence(o[0]), store(Y, 1, o[1])},
                   {load(Y, o[2]), makeFence(o[3]), load(X, RELAXED)}});
        expectAll({{store(X, 1, o[1]), makeFence(o[0]), load(Y, RELAXED)},
                   {store(Y, 1, RELAXED), makeFence(o[3]), load(X, o[2])}});
    });
    // A fence on one side, sequentially consistent operations on the other.
    forEachCombination({fences, stores, loads}, [](Orders const &o) {
        expectAll({{store(X, 1, RELAXED), makeFence(o[0]), load(Y, RELAXED)},
                   {store(Y, 1, o[1]), load(X, o[2])}});
    });
    // Fences around a read-modify-write of a third thread.
    forEachCombination({fences, fences}, [](Orders const &o) {
        expectAll({{store(X, 1, RELAXED), makeFence(o[0]), store(Y, 1, RELAXED)},
                   {exchange(Y, 2, RELAXED)},
                   {load(Y, RELAXED), makeFence(o[1]), load(X, RELAXED)}});
    });
}

TEST(LitmusOrders, TwoTimesTwoWrites)
{
    forEachCombination({stores, stores, stores, stores}, [](Orders const &o) {
        expectForward(
            {{store(X, 1, o[0]), store(Y, 2, o[1])}, {store(Y, 1, o[2]), store(X, 2, o[3])}});
    });
}

TEST(LitmusOrders, WriteToReadCausality)
{
    forEachCombination({stores, loads, stores, loads, loads}, [](Orders const &o) {
        expectAllUnlessMixed({{store(X, 1, o[0])},
                              {load(X, o[1]), store(Y, 1, o[2])},
                              {load(Y, o[3]), load(X, o[4])}});
    });
}

TEST(LitmusOrders, CausalityThroughThreeThreads)
{
    forEachCombination({stores, loads, stores, loads}, [](Orders const &o) {
        expectAll({{store(X, 1, RELAXED), store(Y, 1, o[0])},
                   {load(Y, o[1]), store(Z, 1, o[2])},
                   {load(Z, o[3]), load(X, RELAXED)}});
    });
}

TEST(LitmusOrders, StoreAgainstStoreAndLoad)
{
    // R and S.
    forEachCombination({stores, stores, stores, loads}, [](Orders const &o) {
        expectForward({{store(X, 1, o[0]), store(Y, 1, o[1])}, {store(Y, 2, o[2]), load(X, o[3])}});
        expectForward({{store(X, 2, o[0]), store(Y, 1, o[1])}, {load(Y, o[3]), store(X, 1, o[2])}});
    });
}

/// Programs that no one has thought of.
TEST(LitmusOrders, RandomPrograms)
{
    std::mt19937 random(1);
    auto const below = [&](std::size_t bound) { return random() % bound; };
    auto const oneOf = [&](Orders const &orders) { return orders[below(orders.size())]; };
    for (int program = 0; program < 1500; ++program) {
        Litmus litmus(2 + below(2));
        int value = 0;
        std::size_t const length = litmus.size() == 2 ? 4 : 3;
        for (auto &thread : litmus)
            for (std::size_t i = 1 + below(length); i > 0; --i) {
                auto const word = static_cast<unsigned>(below(2));
                switch (below(7)) {
                case 0:
                    thread.push_back(makeFence(oneOf({ACQUIRE, RELEASE, SEQ_CST, SEQ_CST})));
                    break;
                case 1:
                    thread.push_back(exchange(word, ++value, oneOf(changes)));
                    break;
                case 2:
                case 3:
                    thread.push_back(store(word, ++value, oneOf(stores)));
                    break;
                default:
                    thread.push_back(load(word, oneOf(loads)));
                }
            }
        expectForward(litmus);
        if (HasFailure())
            return;
    }
}

} // namespace Zv::Simulated
