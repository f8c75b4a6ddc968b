// Flag that is set during a scope.
#pragma once

namespace Zv {

/// Sets a flag and clears it at the end of the scope, also if an exception leaves the scope.
class FlagGuard
{
public:
    explicit FlagGuard(bool &flag) : _flag(flag) { _flag = true; }
    FlagGuard(FlagGuard const &) = delete;
    FlagGuard &operator=(FlagGuard const &) = delete;
    ~FlagGuard() { _flag = false; }

private:
    bool &_flag;
};

} // namespace Zv
