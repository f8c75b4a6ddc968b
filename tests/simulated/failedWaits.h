// Makes a wait fail, at a place and on a thread that the program chooses, or reports it.
#pragma once

#include "resmgt/locks/lkNamedSema.h"
#include "zvbase/assertions.h"

namespace Zv::Simulated {

enum class FailingWait
{
    BEFORE_SLEEPING, ///< at once, with the mutex held
    WHEN_WOKEN,      ///< after the wake-up has been used up, with the mutex held again
    IN_THE_SERVICE   ///< the service in which the thread sleeps fails
};

/// While it exists, the calling thread's next wait on a condition variable or a pulse fails an
/// assertion.
class NextWaitFails
{
public:
    explicit NextWaitFails(FailingWait where);
    ~NextWaitFails();
    NextWaitFails(NextWaitFails const &) = delete;
    NextWaitFails &operator=(NextWaitFails const &) = delete;
};

/// While it exists, the calling thread's next wait on a condition variable or a pulse posts a
/// semaphore first, with the mutex held.
class NextWaitPosts
{
public:
    explicit NextWaitPosts(LkUnnamedSema &waits);
    ~NextWaitPosts();
    NextWaitPosts(NextWaitPosts const &) = delete;
    NextWaitPosts &operator=(NextWaitPosts const &) = delete;
};

/// Runs `work`, in which the first wait fails. Returns whether `work` has finished nevertheless.
template <class Work>
bool withFailingWait(FailingWait where, Work work)
{
    NextWaitFails const failing(where);
    try {
        work();
        return true;
    } catch (AssertionFailed const &) {
        return false;
    }
}

} // namespace Zv::Simulated
