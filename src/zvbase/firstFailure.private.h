// Keeps the first failure of several actions. Empties containers whose elements may throw.
#pragma once

#include "zvbase/unwinding.h"

#include <exception>
#include <utility>

namespace Zv {

/// Keeps the first failure of several actions that must all be tried.
class FirstFailure
{
public:
    explicit FirstFailure(std::exception_ptr former = nullptr) : _failure(std::move(former)) {}

    /// Runs `action`. Keeps what it throws if nothing was kept before.
    template <class Action>
    void attempt(Action action) noexcept
    {
        try {
            action();
        } catch (...) {
            if (!_failure)
                _failure = std::current_exception();
        }
    }
    /// For functions: throws the failure if there is one.
    void rethrowAlways() const
    {
        if (_failure)
            std::rethrow_exception(_failure);
    }
    /// For destructors: throws the failure if there is one, unless an exception is leaving the
    /// scope.
    void rethrow(Unwinding const &unwinding = Unwinding::ofAny()) const
    {
        if (!unwinding.hasBegun())
            rethrowAlways();
    }
    std::exception_ptr const &get() const { return _failure; }

private:
    std::exception_ptr _failure;
};

/// Releases the pointers of a container, or of a map's values, one after the other. Leaves null
/// pointers. Keeps the first failure.
template <class Container>
void releaseEach(Container &container, FirstFailure &failure)
{
    for (auto &element : container) {
        auto const release = [&failure](auto &pointer) {
            auto last = std::move(pointer);
            failure.attempt([&last] { last = nullptr; });
        };
        if constexpr (requires { element.second; })
            release(element.second);
        else
            release(element);
    }
}

/// Releases the pointers of each of the containers. For the destructor of their owner: if the
/// destructor of a standard container met an element whose own destructor throws, the process would
/// end. Throws the first failure, unless an exception is being thrown already.
template <class... Containers>
void releaseAll(Containers &...containers)
{
    FirstFailure failure;
    (releaseEach(containers, failure), ...);
    failure.rethrow();
}

} // namespace Zv
