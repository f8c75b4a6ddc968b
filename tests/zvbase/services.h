// The services of the platform under a test's control.
#pragma once

#include "platform/services.h"

#include <functional>

namespace Zv::ServiceTest {

/// What a service does instead, where a test says so. A hook is set before the threads start that meet it.
struct Hooks
{
    std::function<bool()> refusesToCreateTimer;
    std::function<bool()> refusesToSetTimer;
    std::function<bool()> refusesToClose;
    std::function<void(HANDLE, DWORD)> beforeWait;
    std::function<bool(LONGLONG &)> readsClock; // true where it has set the ticks
    std::function<bool(DWORD)> sleeps;          // true where it has slept
};

Hooks &getHooks();

/// Takes all hooks away again. No other thread calls a service then.
class Hooked
{
public:
    Hooked() = default;
    ~Hooked() { getHooks() = Hooks(); }
    Hooked(Hooked const &) = delete;
    Hooked &operator=(Hooked const &) = delete;
    Hooks *operator->() { return &getHooks(); }
};

} // namespace Zv::ServiceTest
