// What the calling thread allocates, counted, and made to fail. For the folders that tests/CMakeLists.txt names.
#pragma once

#include <cstddef>
#include <new>

namespace ZvTest {

/// Allocations by the calling thread since this was built.
class AllocationCount
{
public:
    AllocationCount();
    std::size_t get() const;

private:
    std::size_t _start;
};

/// Memory that the calling thread has given back since this was built.
class ReleaseCount
{
public:
    ReleaseCount();
    std::size_t get() const;

private:
    std::size_t _start;
};

/// What tells of a failure: an exception, or null.
enum class Allocations
{
    ALL,
    THROWING,
    ANSWERING_NULL, // arrays
};

/// While it lives, that many allocations of the calling thread succeed, and the one after them fails. Those of another
/// kind succeed and do not count.
class FailingAllocation
{
public:
    explicit FailingAllocation(long nbGood, Allocations kind = Allocations::ALL);
    ~FailingAllocation();
    bool hasFailed() const;
    FailingAllocation(FailingAllocation const &) = delete;
    FailingAllocation &operator=(FailingAllocation const &) = delete;
};

/// While it lives, threads that have not allocated before it cannot.
class NewThreadsHaveNoMemory
{
public:
    NewThreadsHaveNoMemory();
    ~NewThreadsHaveNoMemory();
    NewThreadsHaveNoMemory(NewThreadsHaveNoMemory const &) = delete;
    NewThreadsHaveNoMemory &operator=(NewThreadsHaveNoMemory const &) = delete;
};

/// Calls `function` with the first allocation failing, then the second and so on, until none fails. Returns the number
/// of failures. `afterwards` is called after each failure.
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
