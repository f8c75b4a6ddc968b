// Scope guards: an action at the end of a scope, a value put back, the last action of a destructor.
#pragma once

#include "zvbase/traceCaught.private.h"
#include "zvbase/unwinding.h"

#include <utility>

namespace Zv {

/// Runs an action at the end of the scope, also if an exception leaves it. Throws what the action
/// throws. An action that may throw while an exception leaves the scope ends the process, and must
/// use `throwUnlessUnwinding`.
template <class Action>
class AtScopeEnd
{
public:
    explicit AtScopeEnd(Action action) : _action(std::move(action)) {}
    AtScopeEnd(AtScopeEnd const &) = delete;
    AtScopeEnd &operator=(AtScopeEnd const &) = delete;
    ~AtScopeEnd() noexcept(noexcept(std::declval<Action &>()())) { _action(); }

private:
    Action _action;
};

/// Gives a variable another value, and puts the former one back at the end of the scope.
template <class T>
class TemporaryValue
{
public:
    TemporaryValue(T &variable, T value)
        : _variable(variable), _former(std::exchange(variable, std::move(value)))
    {}
    TemporaryValue(TemporaryValue const &) = delete;
    TemporaryValue &operator=(TemporaryValue const &) = delete;
    ~TemporaryValue() { _variable = std::move(_former); }

private:
    T &_variable;
    T _former;
};

/// Runs an action of a destructor that may throw. What the action throws passes, unless another
/// exception is leaving the scope. Then it is written to the trace, with `file` and `line`.
template <class Action>
void throwUnlessUnwinding(Unwinding const &unwinding, char const *file, int line, Action action)
{
    try {
        action();
    } catch (...) {
        if (!unwinding.hasBegun())
            throw;
        traceCaught(file, line);
    }
}

} // namespace Zv
