// Replaces services of the platform in tests.
#pragma once

#include "platform/services.h"

#include <functional>

namespace ZvTest {

/// Functions that replace a service. A test must set them before it starts threads that use the
/// service.
struct Hooks
{
    std::function<bool()> refusesToCreateTimer;
    std::function<bool()> refusesToSetTimer;
    std::function<bool()> refusesToClose;
    std::function<void(HANDLE, DWORD)> beforeWait;
    std::function<bool(LONGLONG &)> readsClock; // returns true if it has set the ticks or the stamp
    std::function<void(ZvPlatform::Moment &)> changesMoment; // not on Windows
    std::function<bool(DWORD)> sleeps;                       // returns true if it has slept
};

Hooks &getHooks();

/// Removes all hooks. No other thread may call a service at that time.
class Hooked
{
public:
    Hooked() = default;
    ~Hooked() { getHooks() = Hooks(); }
    Hooked(Hooked const &) = delete;
    Hooked &operator=(Hooked const &) = delete;
    Hooks *operator->() { return &getHooks(); }
};

} // namespace ZvTest
