// Waits that fail, in the place and in the thread that a program wants.
#pragma once

#include "zvbase/assertions.h"

namespace Zv::Simulated {

enum class FailingWait
{
    BEFORE_SLEEPING, ///< at once, with the mutex held
    WHEN_WOKEN,      ///< when the wake-up has been used up and the mutex is held again
    IN_THE_SERVICE   ///< the system refuses the sleep itself
};

/// While it lives, the calling thread's next wait on a condition variable or a pulse fails an assertion.
class NextWaitFails
{
public:
    explicit NextWaitFails(FailingWait where);
    ~NextWaitFails();
    NextWaitFails(NextWaitFails const &) = delete;
    NextWaitFails &operator=(NextWaitFails const &) = delete;
};

/// Runs `work`, in which the first wait fails. Returns whether it came to its end nevertheless.
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
