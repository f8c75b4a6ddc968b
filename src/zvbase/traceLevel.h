// Named switches of the trace.
#pragma once

#include "zvbase/export.h"
#include "zvbase/platform/interlocked.h"

#include <cstddef>

namespace Zv {

/// A subject that can be traced, on or off. Levels are made by `Trace::registerLevel`, live for the rest of the
/// process, and are off until somebody switches them on.
class ZVBASE_EXPORT TraceLevel
{
public:
    TraceLevel(TraceLevel const &) = delete;
    TraceLevel &operator=(TraceLevel const &) = delete;

    char const *getName() const noexcept { return _name; }
    /// One load. Any thread.
    bool isEnabled() const noexcept { return ZvPlatform::Interlocked::loadRelaxed(_isEnabled); }
    /// Any thread; others see it soon.
    void setEnabled(bool enabled) noexcept
    {
        ZvPlatform::Interlocked::storeRelaxed(_isEnabled, enabled);
    }

private:
    friend class TraceLevels;

    constexpr TraceLevel(char const *name, bool enabled) noexcept : _name(name), _isEnabled(enabled)
    {}

    char const *_name;
    bool _isEnabled;
    TraceLevel *_next = nullptr;
};

} // namespace Zv
