// The graph when memory runs out.

#include "resmgt/threads/priority.h"
#include "resmgt/threads/priorityMgr.h"
#include "resmgt/threads/priorityRelation.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <optional>
#include <sstream>
#include <string>

namespace {

// Counts down; the allocation that reaches 0 fails.
thread_local int allocationsLeft = -1;

void *allocate(std::size_t size)
{
    if (allocationsLeft >= 0 && allocationsLeft-- == 0)
        throw std::bad_alloc();
    if (void * const memory = std::malloc(size ? size : 1))
        return memory;
    throw std::bad_alloc();
}

} // namespace

void *operator new(std::size_t size)
{
    return allocate(size);
}

void *operator new[](std::size_t size)
{
    return allocate(size);
}

void operator delete(void *memory) noexcept
{
    std::free(memory);
}

void operator delete[](void *memory) noexcept
{
    std::free(memory);
}

void operator delete(void *memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete[](void *memory, std::size_t) noexcept
{
    std::free(memory);
}

using namespace Zv;

namespace {

class Follower : public Priority
{
public:
    explicit Follower(PriorityMgr &mgr) : Priority("follower", mgr, NOT_SET, WHEN_CHANGED)
    {
        join();
    }
    ~Follower() noexcept(false) override { leave(); }

    void updatePriority(int priority) override { _told = priority; }

    int _told = NOT_SET;
};

std::string dumpOf(PriorityMgr const &mgr)
{
    std::ostringstream os;
    mgr.dump(os);
    return os.str();
}

/// Makes each allocation of the action fail in turn, until it gets through. The number of failures.
template <class Action, class Check>
int failEachAllocation(Action const &action, Check const &check)
{
    for (int turn = 0;; ++turn) {
        bool failed = false;
        allocationsLeft = turn;
        try {
            action();
        } catch (std::bad_alloc const &) {
            failed = true;
        }
        bool const ranOut = allocationsLeft < 0;
        allocationsLeft = -1;
        check();
        if (!failed && !ranOut)
            return turn;
    }
}

TEST(PriorityMemory, ANodeThatFailsToJoinLeavesTheGraphAsItWas)
{
    PriorityMgr mgr("mgr", 0, 6);
    Priority fixed("fixed", mgr, 3);
    std::string const before = dumpOf(mgr);
    std::optional<Follower> follower;
    EXPECT_GT(failEachAllocation(
                  [&] {
                      follower.emplace(mgr);
                      follower.reset();
                  },
                  [&] {
                      follower.reset();
                      EXPECT_EQ(dumpOf(mgr), before);
                      EXPECT_EQ(mgr.check(), PriorityMgr::NO_ERROR);
                  }),
              0);
}

TEST(PriorityMemory, ARelationThatFailsToBeMadeLeavesTheGraphAsItWas)
{
    PriorityMgr mgr("mgr", 0, 6);
    Priority fixed("fixed", mgr, 3);
    Follower follower(mgr);
    Follower other(mgr);
    PriorityRelation between("r", follower, PriorityRelation::EQUAL, other);
    std::string const before = dumpOf(mgr);
    std::optional<PriorityRelation> relation;
    EXPECT_GT(
        failEachAllocation([&] { relation.emplace("r", fixed, PriorityRelation::LESS, follower); },
                           [&] {
                               if (relation) {
                                   EXPECT_EQ(follower.getPriority(), 4);
                                   EXPECT_EQ(other._told, 4);
                                   relation.reset();
                               }
                               EXPECT_EQ(dumpOf(mgr), before);
                               EXPECT_EQ(follower._told, 0);
                               EXPECT_EQ(other._told, 0);
                           }),
        0);
}

TEST(PriorityMemory, ASolvingThatRunsOutIsMadeUpForByTheNext)
{
    PriorityMgr mgr("mgr", 0, 6);
    Priority fixed("fixed", mgr, 3);
    Follower follower(mgr);
    PriorityRelation relation("r", fixed, PriorityRelation::LESS, follower);
    int value = 0;
    EXPECT_GT(failEachAllocation([&] { fixed.setPriority(value = (value + 1) % 6); },
                                 [&] {
                                     mgr.notify(PriorityMgr::VALUE_CHANGED);
                                     EXPECT_EQ(follower.getPriority(), value + 1);
                                     EXPECT_EQ(follower._told, value + 1);
                                 }),
              0);
}

} // namespace
