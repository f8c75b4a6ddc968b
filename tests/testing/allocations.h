// Counts the allocations of the calling thread, and makes them fail. For the folders with
// ALLOCATIONS in tests/CMakeLists.txt.
#pragma once

#include <cstddef>
#include <new>

namespace ZvTest {

/// Counts the allocations of the calling thread since the construction of this object.
class AllocationCount
{
public:
    AllocationCount();
    std::size_t get() const;

private:
    std::size_t _start;
};

/// Counts the blocks that the calling thread has freed since the construction of this object.
class ReleaseCount
{
public:
    ReleaseCount();
    std::size_t get() const;

private:
    std::size_t _start;
};

/// Kinds of allocations, by how they report a failure.
enum class Allocations
{
    ALL,
    THROWING,
    ANSWERING_NULL, // of arrays, with std::nothrow
};

/// While an object exists, that many allocations of the calling thread succeed, and the next one
/// fails. Allocations of another kind succeed and do not count.
class FailingAllocation
{
public:
    explicit FailingAllocation(long nbGood, Allocations kind = Allocations::ALL);
    ~FailingAllocation();
    bool hasFailed() const;
    FailingAllocation(FailingAllocation const &) = delete;
    FailingAllocation &operator=(FailingAllocation const &) = delete;
};

/// While an object exists, allocations fail in threads that have not allocated before.
class NewThreadsHaveNoMemory
{
public:
    NewThreadsHaveNoMemory();
    ~NewThreadsHaveNoMemory();
    NewThreadsHaveNoMemory(NewThreadsHaveNoMemory const &) = delete;
    NewThreadsHaveNoMemory &operator=(NewThreadsHaveNoMemory const &) = delete;
};

/// Calls `function` with the first allocation failing, then with the second one and so on, until
/// none fails. Calls `afterwards` after each failure. Returns the number of failures.
template <class Function, class Afterwards>
int failEachAllocation(Function function, Afterwards afterwards,
                       Allocations kind = Allocations::ALL)
{
    for (int turn = 0;; ++turn) {
        {
            FailingAllocation const failing(turn, kind);
            try {
                function();
            } catch (std::bad_alloc &) {
            }
            if (!failing.hasFailed())
                return turn;
        }
        afterwards();
    }
}

} // namespace ZvTest
