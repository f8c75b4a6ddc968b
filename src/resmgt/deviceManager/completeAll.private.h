// Finishing all of several things although one of them fails.
#pragma once

#include <exception>

namespace Zv {

/// Runs `action` for as long as `more` says; the first failure is kept, and thrown when all is done. For destructors:
/// while another exception is passing, the failure is dropped.
template <class More, class Action>
void completeAll(More more, Action action)
{
    std::exception_ptr failure;
    while (more()) {
        try {
            action();
        } catch (...) {
            if (!failure)
                failure = std::current_exception();
        }
    }
    if (failure && std::uncaught_exceptions() == 0)
        std::rethrow_exception(failure);
}

} // namespace Zv
