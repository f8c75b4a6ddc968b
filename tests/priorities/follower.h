// Priority that records its last update.
#pragma once

#include "resmgt/threads/priority.h"
#include "resmgt/threads/priorityMgr.h"

#include <atomic>

namespace ZvTest {

/// Joins `mgr` for its lifetime. `_told` is the value of the last update.
class Follower : public Zv::Priority
{
public:
    explicit Follower(Zv::PriorityMgr &mgr) : Priority("follower", mgr, NOT_SET, WHEN_CHANGED)
    {
        join();
    }
    ~Follower() noexcept(false) override { leave(); }

    void updatePriority(int priority) override { _told = priority; }

    std::atomic<int> _told = NOT_SET;
};

} // namespace ZvTest
