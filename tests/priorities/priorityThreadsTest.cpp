// Tests of the priority graph with many threads.

#include "priorities/follower.h"
#include "resmgt/threads/mtSpecificData.h"
#include "resmgt/threads/priority.h"
#include "resmgt/threads/priorityEx.h"
#include "resmgt/threads/priorityMgr.h"
#include "testing/meeting.h"
#include "threads/threadTesting.h"
#include "zvbase/assertions.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <sstream>
#include <thread>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

TEST(PriorityThreads, ChangeReadAndDumpOneGraph)
{
    constexpr int NB_THREADS = 4;
    constexpr int NB_ROUNDS = 200;
    PriorityMgr mgr("mgr", 0, 6);
    Priority floor("floor", mgr, 2);
    Priority moving("moving", mgr, 3);
    Barrier start(NB_THREADS + 1);
    std::vector<std::thread> threads;
    for (int number = 0; number < NB_THREADS; ++number) {
        threads.emplace_back([&] {
            start.arrive_and_wait();
            for (int round = 0; round < NB_ROUNDS; ++round) {
                Follower below(mgr);
                Follower above(mgr);
                PriorityRelation atFloor("r", floor, PriorityRelation::LESS_EQUAL, below);
                PriorityRelation order("r", below, PriorityRelation::LESS, above);
                EXPECT_GE(below._told, 2);
                EXPECT_EQ(below.getPriority(), 2);
                EXPECT_EQ(above.getPriority(), 3);
                EXPECT_EQ(above._told, 3);
                above.setName("renamed");
            }
        });
    }
    threads.emplace_back([&] {
        start.arrive_and_wait();
        for (int round = 0; round < NB_ROUNDS; ++round) {
            moving.setPriority(round % 7);
            std::ostringstream os;
            mgr.dump(os);
            floor.dump(os, true);
            moving.getPriorityNoCheck();
        }
    });
    for (std::thread &thread : threads)
        thread.join();
    std::ostringstream os;
    mgr.dump(os);
    EXPECT_EQ(os.str(), "\nmgr \nPriorities:\n"
                        "\t               floor prio        2 fixed 1 lhs        2 rhs        2\n"
                        "\t              moving prio        3 fixed 1 lhs        3 rhs        3\n"
                        "Independant: \n"
                        "\t               floor prio        2 fixed 1 lhs        2 rhs        2\n"
                        "\t              moving prio        3 fixed 1 lhs        3 rhs        3\n"
                        "Relations: \n");
}

TEST(PriorityThreads, CannotCloseACycleBetweenThem)
{
    for (int round = 0; round < 100; ++round) {
        PriorityMgr mgr("mgr", 0, 6);
        Priority a("a", mgr, Priority::NOT_SET);
        Priority b("b", mgr, Priority::NOT_SET);
        Barrier start(2);
        Barrier end(2);
        std::atomic<int> nbRefused = 0;
        auto const relate = [&](Priority &lhs, Priority &rhs) {
            start.arrive_and_wait();
            try {
                PriorityRelation relation("r", lhs, PriorityRelation::LESS, rhs);
                end.arrive_and_wait();
            } catch (AssertionFailed const &) {
                ++nbRefused;
                end.arrive_and_wait();
            }
        };
        std::thread other([&] {
            relate(a, b);
            // Frees the data of the report of the refusal, because the library did not start this
            // thread.
            MtSpecificDataRegistry::getInstance().removeSpecificData();
        });
        relate(b, a);
        other.join();
        EXPECT_EQ(nbRefused, 1);
    }
}

/// Chain of nodes, each at least as high as the one before it.
class Chain
{
public:
    Chain(PriorityMgr &mgr, int length)
    {
        for (int i = 0; i != length; ++i) {
            _nodes.push_back(std::make_unique<Priority>("node", mgr, Priority::NOT_SET));
            if (i != 0)
                _relations.push_back(std::make_unique<PriorityRelation>(
                    "r", *_nodes[_nodes.size() - 2], PriorityRelation::LESS_EQUAL, *_nodes.back()));
        }
    }
    Chain(Chain const &) = delete;
    ~Chain() { _relations.clear(); }

    Priority &getFirst() { return *_nodes.front(); }
    Priority &getLast() { return *_nodes.back(); }

private:
    std::vector<std::unique_ptr<Priority>> _nodes;
    std::vector<std::unique_ptr<PriorityRelation>> _relations;
};

TEST(PriorityThreads, AThreadWithASmallStackChangesLongChains)
{
    PriorityMgr mgr("mgr", 0, 6);
    Chain chain(mgr, 20000);
    Priority floor("floor", mgr, 3);
    Priority low("low", mgr, 2);
    int level = 0;
    bool isRefused = false;
    bool isInvalid = false;
    ObjPtr<MtThread> const thread(makeThread("small", [&](TestProtocol &, MtThread *) {
        PriorityRelation lift("floor<=first", floor, PriorityRelation::LESS_EQUAL,
                              chain.getFirst());
        level = chain.getLast().getPriority();
        try {
            PriorityRelation ring("last<=first", chain.getLast(), PriorityRelation::LESS_EQUAL,
                                  chain.getFirst());
        } catch (AssertionFailed const &) {
            isRefused = true;
        }
        try {
            PriorityRelation ceiling("last<=low", chain.getLast(), PriorityRelation::LESS_EQUAL,
                                     low);
        } catch (PriorityEx const &) {
            isInvalid = true;
        }
    }));
    thread->start();
    thread->join();
    EXPECT_EQ(level, 3);
    EXPECT_TRUE(isRefused);
    EXPECT_TRUE(isInvalid);
}

} // namespace

} // namespace ZvTest
