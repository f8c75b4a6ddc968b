// Switches of the trace (applications).
#pragma once

#include "zvbase/export.h"
#include "zvbase/platform/shared.h"

#include <cstddef>

namespace Zv {

/// A subject of the trace that can be switched on and off by name. `Trace::registerLevel` makes
/// levels. They exist until the process ends. A new level is off, unless the environment variable
/// `ZV_TRACE` or an earlier `Trace::setEnabled` has switched its name on.
///
///     Zv::TraceLevel *const level = Zv::Trace::registerLevel("Mixer", __FILE__);
///     level->setEnabled(true);
///
/// **Threads**: thread-safe.
class ZVBASE_EXPORT TraceLevel
{
public:
    TraceLevel(TraceLevel const &) = delete;
    TraceLevel &operator=(TraceLevel const &) = delete;

    char const *getName() const noexcept { return _name; }
    /// Returns true if the level is on. Costs one load.
    bool isEnabled() const noexcept { return _isEnabled.load(ZvPlatform::Order::RELAXED); }
    /// Switches the level. Other threads see the change soon, but not at once.
    void setEnabled(bool enabled) noexcept
    {
        _isEnabled.store(enabled, ZvPlatform::Order::RELAXED);
    }

private:
    friend class TraceLevels;

    constexpr TraceLevel(char const *name, bool enabled) noexcept : _name(name), _isEnabled(enabled)
    {}

    char const *_name;
    ZvPlatform::Shared<bool> _isEnabled;
    TraceLevel *_next = nullptr;
};

} // namespace Zv
