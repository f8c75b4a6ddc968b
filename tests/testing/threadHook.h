// Function that a test sets for code that runs later on its thread.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <utility>

namespace ZvTest {

/// `std::function` for a thread_local variable. It has no destructor, because on Windows a thread's
/// variables may be freed before their destructors run. The function is deleted when another
/// function or null is assigned.
template <class Signature>
class ThreadHook
{
public:
    using Function = std::function<Signature>;

    ThreadHook &operator=(Function function)
    {
        *this = nullptr;
        _function = new Function(std::move(function));
        return *this;
    }

    ThreadHook &operator=(std::nullptr_t)
    {
        delete std::exchange(_function, nullptr);
        return *this;
    }

    explicit operator bool() const { return _function != nullptr; }

    template <class... Arguments>
    void operator()(Arguments... arguments) const
    {
        (*_function)(arguments...);
    }

    /// Returns the function and removes it from the hook. Returns null if there is none.
    std::unique_ptr<Function> take()
    {
        return std::unique_ptr<Function>(std::exchange(_function, nullptr));
    }

private:
    Function *_function = nullptr;
};

} // namespace ZvTest
