// Compares incremental solving with solving from scratch. Two graphs get the same changes, and
// their visible states are compared after each change.

#include "resmgt/threads/priority.h"
#include "resmgt/threads/priorityEx.h"
#include "resmgt/threads/priorityMgr.h"
#include "resmgt/threads/priorityRingSolver.private.h"
#include "resmgt/threads/prioritySolver.private.h"
#include "testing/dump.h"
#include "zvbase/assertions.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

class FromScratchMgr : public PriorityMgr
{
public:
    using PriorityMgr::PriorityMgr;

protected:
    void performUpdate() override { solveInFull(); }
};

using Log = std::vector<std::string>;

class ToldNode : public Priority
{
public:
    ToldNode(LiString const &name, PriorityMgr &mgr, int priority, bool atEachSolving, int number,
             Log &log)
        : Priority(name, mgr, priority, atEachSolving ? AT_EACH_SOLVING : WHEN_CHANGED),
          _number(number),
          _log(log)
    {
        join();
    }
    ~ToldNode() noexcept(false) override { leave(); }

    void updatePriority(int priority) override
    {
        _log.push_back(std::to_string(_number) + "=" + std::to_string(priority));
        if (_throwNext) {
            _throwNext = false;
            throw std::runtime_error("told");
        }
    }

    bool _throwNext = false;

private:
    int _number;
    Log &_log;
};

/// Node that overrides `updatePriority`, and that joins in the constructor of its base.
class SimplyDerivedNode : public Priority
{
public:
    SimplyDerivedNode(LiString const &name, PriorityMgr &mgr, int priority, int number, Log &log)
        : Priority(name, mgr, priority), _number(number), _log(log)
    {}

    void updatePriority(int priority) override
    {
        _log.push_back(std::to_string(_number) + "=" + std::to_string(priority));
    }

private:
    int _number;
    Log &_log;
};

class World
{
public:
    explicit World(std::unique_ptr<PriorityMgr> mgr) : _mgr(std::move(mgr)) {}

    World(World const &) = delete;
    ~World()
    {
        while (!_relations.empty())
            removeRelation(_relations.size() - 1);
        while (!_nodes.empty())
            removeNode(_nodes.size() - 1);
    }

    template <class Action>
    void attempt(Action const &action)
    {
        try {
            action();
        } catch (ExBase const &exception) {
            _log.push_back(exception.getReason());
        } catch (std::exception const &exception) {
            _log.push_back(exception.what());
        }
    }

    void addNode(int kind, std::string const &name, int priority)
    {
        int const number = _nbNodes++;
        attempt([&] {
            if (kind == 0)
                _nodes.push_back(std::make_unique<Priority>(name.c_str(), *_mgr, priority));
            else if (kind == 1)
                _nodes.push_back(std::make_unique<SimplyDerivedNode>(name.c_str(), *_mgr, priority,
                                                                     number, _log));
            else
                _nodes.push_back(std::make_unique<ToldNode>(name.c_str(), *_mgr, priority,
                                                            kind == 2, number, _log));
        });
    }

    void addRelation(std::string const &name, std::size_t lhs, int relation, std::size_t rhs)
    {
        attempt([&] {
            _relations.push_back(std::make_unique<PriorityRelation>(
                name.c_str(), *_nodes[lhs], static_cast<PriorityRelation::Relation>(relation),
                *_nodes[rhs]));
        });
    }

    void removeRelation(std::size_t index)
    {
        std::unique_ptr<PriorityRelation> relation = std::move(_relations[index]);
        _relations.erase(_relations.begin() + index);
        attempt([&] { delete relation.release(); });
    }

    bool isRelated(std::size_t index) const
    {
        return std::ranges::any_of(_relations,
                                   [&](auto const &r) { return r->uses(*_nodes[index]); });
    }

    void removeNode(std::size_t index)
    {
        std::unique_ptr<Priority> node = std::move(_nodes[index]);
        _nodes.erase(_nodes.begin() + index);
        attempt([&] { delete node.release(); });
    }

    std::string show() const
    {
        std::ostringstream os;
        _mgr->dump(os);
        for (auto const &node : _nodes)
            node->dump(os, true);
        for (std::string const &line : _log)
            os << line << '\n';
        os << _mgr->check() << '\n';
        return os.str();
    }

    std::unique_ptr<PriorityMgr> _mgr;
    std::vector<std::unique_ptr<Priority>> _nodes;
    std::vector<std::unique_ptr<PriorityRelation>> _relations;
    Log _log;
    int _nbNodes = 0;
};

struct Shape
{
    int _minimum;
    int _maximum;
    std::size_t _nbNodes;
    std::size_t _nbRelations;
    int _nbGraphs;
    int _nbChanges;
    bool _isTame; // most relations and values fit
};

void PrintTo(Shape const &shape, std::ostream *os)
{
    *os << shape._minimum << " to " << shape._maximum << ", " << shape._nbNodes << " nodes";
}

/// Two graphs that get the same changes.
class Twins
{
public:
    Twins(Shape const &shape, unsigned seed) : _shape(shape), _random(seed) {}

    void change()
    {
        auto const &nodes = _incremental._nodes;
        auto const &relations = _incremental._relations;
        int const what = upTo(20);
        if (nodes.size() < 2 || (what < 5 && nodes.size() < _shape._nbNodes))
            addNode();
        else if (what < 12 && relations.size() < _shape._nbRelations)
            addRelation(upTo(nodes.size()), upTo(nodes.size()));
        else if (what < 15 && !relations.empty())
            removeRelation(upTo(relations.size()));
        else if (what < 17)
            removeNode(upTo(nodes.size()));
        else
            changeNode(upTo(nodes.size()));
    }

    void inBoth(auto const &action)
    {
        action(_incremental);
        action(_fromScratch);
    }

    bool isValid() const { return _incremental._mgr->check() == PriorityMgr::ALL_VALID; }

    Shape const _shape;
    World _incremental{std::make_unique<PriorityMgr>("mgr", _shape._minimum, _shape._maximum)};
    World _fromScratch{std::make_unique<FromScratchMgr>("mgr", _shape._minimum, _shape._maximum)};

private:
    std::size_t upTo(std::size_t limit)
    {
        return std::uniform_int_distribution<std::size_t>(0, limit - 1)(_random);
    }

    int anyValue()
    {
        if (!_shape._isTame && !upTo(200))
            return std::numeric_limits<int>::max();
        return static_cast<int>(upTo(9)) - (_shape._isTame ? 0 : 2);
    }

    void addNode()
    {
        std::size_t const kind = upTo(4);
        // There are few names, so that some `==` relations connect nodes of one name.
        std::string const name(1, static_cast<char>('a' + upTo(_shape._isTame ? 26 : 8)));
        int const priority = upTo(_shape._isTame ? 6 : 3) ? Priority::NOT_SET : anyValue();
        inBoth([&](World &world) { world.addNode(static_cast<int>(kind), name, priority); });
    }

    void addRelation(std::size_t lhs, std::size_t rhs)
    {
        int const relation = static_cast<int>(upTo(3));
        std::string const name = "r" + std::to_string(_nbRelationsMade++);
        inBoth([&](World &world) { world.addRelation(name, lhs, relation, rhs); });
    }

    void removeRelation(std::size_t index)
    {
        if (upTo(8)) {
            inBoth([&](World &world) { world.removeRelation(index); });
        } else {
            // Removes the relation and adds it again, at the end of all lists.
            inBoth([&](World &world) {
                world.attempt([&] { world._mgr->remove(*world._relations[index]); });
            });
            ASSERT_EQ(_incremental.show(), _fromScratch.show());
            inBoth([&](World &world) {
                world.attempt([&] { world._mgr->add(*world._relations[index]); });
            });
        }
    }

    void removeNode(std::size_t index)
    {
        if (!_incremental.isRelated(index)) {
            inBoth([&](World &world) { world.removeNode(index); });
        } else if (!_shape._isTame && !upTo(6)) {
            // Removes the node while its relations exist, or adds it again.
            bool const off = upTo(2);
            inBoth([&](World &world) {
                world.attempt([&] {
                    if (off)
                        world._mgr->remove(*world._nodes[index]);
                    else
                        world._mgr->add(*world._nodes[index]);
                });
            });
        }
    }

    void changeNode(std::size_t index)
    {
        std::string const name(1, static_cast<char>('a' + upTo(8)));
        int const value = anyValue();
        std::size_t const what = upTo(8);
        inBoth([&](World &world) {
            Priority &node = *world._nodes[index];
            if (what == 0)
                node.setName(name.c_str());
            else if (what == 1)
                world.attempt([&] { world._mgr->notify(PriorityMgr::VALUE_CHANGED); });
            else if (what > 2)
                world.attempt([&] { node.setPriority(value); });
            else if (auto *told = dynamic_cast<ToldNode *>(&node))
                told->_throwNext = true;
        });
    }

    std::mt19937 _random;
    int _nbRelationsMade = 0;
};

class PrioritySolving : public testing::TestWithParam<Shape>
{};

TEST_P(PrioritySolving, GivesWhatSolvingFromScratchGives)
{
    int nbValid = 0;
    int nbInvalid = 0;
    for (int seed = 0; seed < GetParam()._nbGraphs; ++seed) {
        Twins twins(GetParam(), static_cast<unsigned>(seed));
        for (int step = 0; step < GetParam()._nbChanges; ++step) {
            twins.change();
            ASSERT_EQ(twins._incremental.show(), twins._fromScratch.show())
                << "graph " << seed << ", change " << step;
            twins.inBoth([](World &world) { world._log.clear(); });
            if (twins._incremental._relations.size() > 2)
                ++(twins.isValid() ? nbValid : nbInvalid);
        }
    }
    // Both kinds must occur, or the comparison would mean little.
    EXPECT_GT(nbValid, 200);
    EXPECT_GT(nbInvalid, 20);
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, PrioritySolving,
    testing::Values(Shape{0, 6, 5, 6, 150, 60, false}, Shape{0, 6, 9, 12, 60, 100, false},
                    Shape{0, 100, 8, 11, 60, 100, false}, Shape{1, 5, 8, 11, 60, 100, false},
                    Shape{-1, 5, 7, 9, 60, 80, false}, Shape{-3, 5, 7, 9, 60, 80, false},
                    Shape{0, std::numeric_limits<int>::max(), 7, 9, 60, 80, false},
                    Shape{0, 6, 12, 14, 60, 120, true}, Shape{0, 9, 40, 40, 10, 300, true}));

// ---- a change that fails
// -----------------------------------------------------------------------------

/// Ladder of diamonds. Each layer doubles the number of paths from the first node to the last one.
/// The steps are pairs of `==` nodes, like a pool and its workers.
class Ladder
{
public:
    Ladder(PriorityMgr &mgr, int nbLayers) : _mgr(mgr)
    {
        _nodes.push_back(std::make_unique<Priority>("first", mgr, Priority::NOT_SET));
        for (int layer = 0; layer != nbLayers; ++layer) {
            Priority &from = *_nodes.back();
            Priority &left = addNode(from, PriorityRelation::LESS_EQUAL, "left");
            Priority &right = addNode(from, PriorityRelation::LESS_EQUAL, "right");
            Priority &worker = addNode(left, PriorityRelation::EQUAL, "worker");
            Priority &other = addNode(right, PriorityRelation::EQUAL, "other");
            Priority &next = addNode(worker, PriorityRelation::LESS_EQUAL, "next");
            relate(other, PriorityRelation::LESS_EQUAL, next);
        }
    }
    Ladder(Ladder const &) = delete;
    ~Ladder() noexcept(false) { _relations.clear(); }

    Priority &getFirst() { return *_nodes.front(); }
    Priority &getLast() { return *_nodes.back(); }

private:
    Priority &addNode(Priority &lhs, PriorityRelation::Relation relation, char const *name)
    {
        _nodes.push_back(std::make_unique<Priority>(name, _mgr, Priority::NOT_SET));
        relate(lhs, relation, *_nodes.back());
        return *_nodes.back();
    }
    void relate(Priority &lhs, PriorityRelation::Relation relation, Priority &rhs)
    {
        _relations.push_back(std::make_unique<PriorityRelation>("r", lhs, relation, rhs));
    }

    PriorityMgr &_mgr;
    std::vector<std::unique_ptr<Priority>> _nodes;
    std::vector<std::unique_ptr<PriorityRelation>> _relations;
};

/// Returns the reason of what the action throws, and the dump of the graph after it.
std::string reportOf(PriorityMgr const &mgr, auto const &action)
{
    try {
        action();
    } catch (ExBase const &exception) {
        return exception.getReason() + dumpOf(mgr);
    }
    return "nothing thrown" + dumpOf(mgr);
}

/// Raises the ladder's first node and lowers its last one. Changes the value of a fixed node, adds
/// a relation that is refused, and adds and removes nodes. At the end, removes a node before its
/// relations. Returns all reports.
std::string breakLadder(PriorityMgr &mgr, int nbLayers)
{
    Ladder ladder(mgr, nbLayers);
    Priority low("low", mgr, 3);
    Priority high("high", mgr, 4);
    Priority floor("floor", mgr, 3);
    PriorityRelation below("low<=first", low, PriorityRelation::LESS_EQUAL, ladder.getFirst());
    std::string text = reportOf(mgr, [&] {
        PriorityRelation above("last<floor", ladder.getLast(), PriorityRelation::LESS, floor);
    });
    PriorityRelation above("last<=high", ladder.getLast(), PriorityRelation::LESS_EQUAL, high);
    text += reportOf(mgr, [&] { low.setPriority(5); });
    text += reportOf(mgr, [&] { Priority late("late", mgr, 1); });
    text += reportOf(mgr, [&] { low.setPriority(4); });
    Priority left("left early", mgr, Priority::NOT_SET);
    PriorityRelation with("last<=left early", ladder.getLast(), PriorityRelation::LESS_EQUAL, left);
    mgr.remove(left);
    text += reportOf(mgr, [&] { low.setPriority(6); });
    low.setPriority(2);
    return text + dumpOf(mgr);
}

TEST(PriorityFailing, ReportsWhatWalkingAllWaysReports)
{
    for (int const minimum : {0, -1, -3, 3}) {
        PriorityMgr mgr("mgr", minimum, 6);
        FromScratchMgr fromScratch("mgr", minimum, 6);
        EXPECT_EQ(breakLadder(mgr, 7), breakLadder(fromScratch, 7)) << minimum;
    }
}

TEST(PriorityFailing, WalksNoWayTwice)
{
    // If each path were followed, the failures alone would take far too long.
    for (int const minimum : {0, -1}) {
        PriorityMgr mgr("mgr", minimum, 6);
        std::string const text = breakLadder(mgr, 60);
        EXPECT_TRUE(text.starts_with("Transient \"first\" invalid: 3 2")) << text.substr(0, 60);
    }
}

/// Manager that keeps invalid graphs.
template <class Mgr>
class Forgiving : public Mgr
{
public:
    using Mgr::Mgr;

protected:
    void updateError(PriorityMgr::Error) override {}
};

/// Returns the dump of a graph with a fixed node outside the range. A bound that goes round the
/// ring is too late for a relation that was followed before, because `outside` has already passed
/// on its own value.
std::string pushFromOutside(PriorityMgr &mgr, int value)
{
    Priority outside("outside", mgr, value);
    Priority other("other", mgr, value < 0 ? value + 2 : value - 2);
    Priority &low = value < 0 ? outside : other;
    PriorityRelation between("low<=high", low, PriorityRelation::LESS_EQUAL,
                             &low == &other ? outside : other);
    Priority c("c", mgr, Priority::NOT_SET);
    PriorityRelation ring("outside==c", outside, PriorityRelation::EQUAL, c);
    std::string const text = dumpOf(mgr);
    mgr.remove(ring);
    return text;
}

TEST(PriorityFailing, AFixedNodeOutsideTheRangePushesOnWhatWalkingAllWaysPushes)
{
    for (int const value : {-5, 9}) {
        Forgiving<PriorityMgr> mgr("mgr", 0, 6);
        Forgiving<FromScratchMgr> fromScratch("mgr", 0, 6);
        EXPECT_EQ(pushFromOutside(mgr, value), pushFromOutside(fromScratch, value)) << value;
    }
}

/// Returns the dump of a graph with values at the end of the range of `int`. The value that the
/// second fixed node passes to `x` cannot be passed on to `y`. The value of the first one is
/// already there.
std::string pushToTheEnd(PriorityMgr &mgr, int nextToLast, int last)
{
    bool const isUpwards = last > 0;
    Priority first("first", mgr, nextToLast);
    Priority second("second", mgr, last);
    Priority x("x", mgr, Priority::NOT_SET);
    Priority y("y", mgr, Priority::NOT_SET);
    auto const relate = [isUpwards](Priority &from, PriorityRelation::Relation relation,
                                    Priority &to) {
        return std::make_unique<PriorityRelation>("r", isUpwards ? from : to, relation,
                                                  isUpwards ? to : from);
    };
    auto const toY = relate(x, PriorityRelation::LESS, y);
    auto const fromFirst = relate(first, PriorityRelation::LESS_EQUAL, x);
    auto const fromSecond = relate(second, PriorityRelation::LESS_EQUAL, x);
    return dumpOf(mgr);
}

TEST(PriorityFailing, TheEndOfTheNumbersIsPushedAsWalkingAllWaysPushesIt)
{
    using Limits = std::numeric_limits<int>;
    for (auto const &[nextToLast, last] : {std::pair(Limits::max() - 1, Limits::max()),
                                           std::pair(Limits::min() + 1, Limits::min())}) {
        Forgiving<PriorityMgr> mgr("mgr", 0, 6);
        Forgiving<FromScratchMgr> fromScratch("mgr", 0, 6);
        std::string const expected = pushToTheEnd(fromScratch, nextToLast, last);
        EXPECT_EQ(pushToTheEnd(mgr, nextToLast, last), expected);
        EXPECT_NE(expected.find(std::to_string(last)), std::string::npos);
    }
}

class PriorityRings : public testing::Test
{
protected:
    ~PriorityRings() noexcept override = default;

    /// Returns whether the bounds are found without following all paths.
    bool areTame()
    {
        PriorityRingSolver lower(0, 6);
        PriorityRingSolver upper(0, 6);
        return lower.solve(PriorityTypes::LEFT, all, ++nbSearches) &&
               upper.solve(PriorityTypes::RIGHT, all, ++nbSearches);
    }

    std::uint64_t nbSearches = 1000;
    Forgiving<PriorityMgr> mgr{"mgr", 0, 6};
    Priority fixed{"fixed", mgr, 3};
    Priority a{"a", mgr, Priority::NOT_SET};
    Priority b{"b", mgr, Priority::NOT_SET};
    PriorityRelation above{"fixed<a", fixed, PriorityRelation::LESS, a};
    PriorityRelation pair{"a==b", a, PriorityRelation::EQUAL, b};
    List<Priority *> all{&fixed, &a, &b};
};

TEST_F(PriorityRings, AreOneNodeIfNothingRisesInThem)
{
    EXPECT_TRUE(areTame());
    PriorityRelation within("a<=b", a, PriorityRelation::LESS_EQUAL, b);
    EXPECT_TRUE(areTame());
    PriorityRelation itself("b==b", b, PriorityRelation::EQUAL, b);
    EXPECT_TRUE(areTame());
}

TEST_F(PriorityRings, AreLeftToTheFullSolvingIfABoundRisesInThem)
{
    PriorityRelation within("b<a", b, PriorityRelation::LESS, a);
    EXPECT_FALSE(areTame());
}

TEST_F(PriorityRings, AreLeftToTheFullSolvingIfANodeInThemHasLeft)
{
    EXPECT_TRUE(areTame());
    mgr.remove(b);
    all.pop_back();
    EXPECT_FALSE(areTame());
}

// ---- the cost is proportional to the change
// ---------------------------------------------------------------------

/// Manager that only keeps nodes and relations. The test solves the graph.
class UnsolvedMgr : public PriorityMgr
{
public:
    UnsolvedMgr() : PriorityMgr("unsolved", 0, 6) {}

protected:
    void performUpdate() override {}
    void updateError(Error) override {}
};

class PrioritySolverCost : public testing::Test
{
protected:
    static constexpr int NB_THREADS = 1000;

    PrioritySolverCost()
    {
        for (int thread = 0; thread < NB_THREADS; ++thread) {
            addThread();
            relations.push_back(std::make_unique<PriorityRelation>(
                "std-device", floor, PriorityRelation::LESS_EQUAL, *all.back()));
        }
        EXPECT_TRUE(solver.solve(all));
    }

    ~PrioritySolverCost() noexcept override
    {
        relations.clear();
        threads.clear();
    }

    Priority &addThread(char const *name = "thread")
    {
        threads.push_back(std::make_unique<Priority>(name, mgr, Priority::NOT_SET));
        all.push_back(threads.back().get());
        return *threads.back();
    }

    std::size_t countTouched()
    {
        EXPECT_TRUE(solver.solve(all));
        return solver.getTouched().size();
    }

    UnsolvedMgr mgr;
    Priority floor{"RealTime", mgr, 1};
    std::vector<std::unique_ptr<Priority>> threads;
    std::vector<std::unique_ptr<PriorityRelation>> relations;
    List<Priority *> all{&floor};
    PrioritySolver solver{0, 6};
};

TEST_F(PrioritySolverCost, AThreadThatJoinsAmongAThousandTouchesItselfAlone)
{
    Priority &thread = addThread();
    solver.nodeAdded(thread);
    EXPECT_EQ(countTouched(), 1u);
    EXPECT_EQ(thread.getPriorityNoCheck(), 0);
    for (auto relation : {PriorityRelation::LESS_EQUAL, PriorityRelation::EQUAL}) {
        auto rise = std::make_unique<PriorityRelation>("r", floor, relation, thread);
        solver.relationAdded(*rise);
        EXPECT_EQ(countTouched(), 1u);
        EXPECT_EQ(thread.getPriorityNoCheck(), 1);
        PriorityRelation &gone = *rise;
        mgr.remove(gone);
        solver.relationRemoved(gone);
        EXPECT_EQ(countTouched(), 1u);
        EXPECT_EQ(thread.getPriorityNoCheck(), 0);
    }
    mgr.remove(thread);
    all.pop_back();
    solver.nodeRemoved();
    EXPECT_EQ(countTouched(), 0u);
}

TEST_F(PrioritySolverCost, AMemberOfAGroupOfAThousandIsAddedAndRemovedAlone)
{
    Priority &group = addThread("group");
    for (auto const &thread : threads) {
        if (thread.get() != &group)
            relations.push_back(std::make_unique<PriorityRelation>(
                "equalGroup", group, PriorityRelation::EQUAL, *thread));
    }
    solver.distrust();
    EXPECT_EQ(countTouched(), all.size());
    Priority &member = addThread();
    solver.nodeAdded(member);
    EXPECT_EQ(countTouched(), 1u);
    PriorityRelation relation("equalGroup", group, PriorityRelation::EQUAL, member);
    solver.relationAdded(relation);
    EXPECT_EQ(countTouched(), 1u);
    EXPECT_EQ(member.getPriorityNoCheck(), 1);
    mgr.remove(relation);
    solver.relationRemoved(relation);
    EXPECT_EQ(countTouched(), 1u);
    EXPECT_EQ(member.getPriorityNoCheck(), 0);
}

TEST_F(PrioritySolverCost, ASecondChangeBeforeTheSolvingCountsAsEverything)
{
    Priority &one = addThread();
    solver.nodeAdded(one);
    Priority &two = addThread();
    solver.nodeAdded(two);
    EXPECT_EQ(countTouched(), all.size());
    EXPECT_EQ(countTouched(), 0u);
}

} // namespace

} // namespace ZvTest
