// The first failure of several actions, and emptying containers whose elements may fail to end.
#pragma once

#include <exception>
#include <utility>

namespace Zv {

/// The first failure of several actions that must all be tried.
class FirstFailure
{
public:
    explicit FirstFailure(std::exception_ptr former = nullptr) : _failure(std::move(former)) {}

    template <class Action>
    void attempt(Action action)
    {
        try {
            action();
        } catch (...) {
            if (!_failure)
                _failure = std::current_exception();
        }
    }
    /// Throws the failure if there is one. Drops it while another exception is passing, as a destructor must.
    void rethrow() const
    {
        if (_failure && std::uncaught_exceptions() == 0)
            std::rethrow_exception(_failure);
    }
    std::exception_ptr const &get() const { return _failure; }

private:
    std::exception_ptr _failure;
};

/// Releases the pointers of a container, or of a map's values, one after the other, and leaves null pointers.
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

/// The same for each of the containers. For the destructor of their owner: the destructor of a standard container must
/// not meet an element whose own destructor throws.
template <class... Containers>
void releaseAll(Containers &...containers)
{
    FirstFailure failure;
    (releaseEach(containers, failure), ...);
    failure.rethrow();
}

} // namespace Zv
