// Timer service: calls callbacks at given times (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkDuration.h"
#include "resmgt/locks/lkSingleton.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "resmgt/threadExtensions/mtAlarmHandle.h"

namespace Zv {

class Priority;

/// Calls callbacks at given times, on one thread of the process, "MtAlarmThread". A singleton.
///
///     #include <chrono>
///
///     class Reminder : public MtAlarmHandle::Callback
///     {
///     public:
///         void performAlarm(RCShdPtr<MtAlarmHandle>, bool) override {}
///     };
///
///     Reminder reminder;
///     MtAlarmManager &alarms = MtAlarmManager::getInstance();
///     RCShdPtr<MtAlarmHandle> alarm(alarms.createHandle());
///     alarm->setDuration(std::chrono::milliseconds(500));
///     alarm->setCallback(&reminder);
///     alarms.registerAlarm(alarm);
///     alarms.deregisterAlarm(alarm); // before the reminder is destroyed
///
/// No call is early. A call may be late, by about a millisecond on an idle machine. A callback
/// delays all calls that are due after it. Alarms of the same time are called in the reverse order
/// of their registration, by design. Registering and deregistering take at most logarithmic time in
/// the number of alarms.
///
/// **Threads**: thread-safe. Callbacks may use the manager too.
///
/// **Throws**: a null handle throws `RCEx::ExNullPtr`.
class ZVRESMGT_EXPORT MtAlarmManager
{
public:
    /// Returns the manager of the process, and creates it if needed.
    static MtAlarmManager &getInstance();

    MtAlarmManager(MtAlarmManager const &) = delete;
    MtAlarmManager &operator=(MtAlarmManager const &) = delete;

    /// Returns the node of `MtPriorityMgr` that the manager's thread follows, "AlarmManagerImp". It
    /// is free, so relations give it its value. They must be destroyed before the manager.
    virtual Priority &getPriority() = 0;
    /// Returns a new handle.
    [[nodiscard]] virtual RCShdPtr<MtAlarmHandle> createHandle() = 0;
    /// Registers an alarm. Does nothing if it is registered already or has no callback. Does not
    /// wait for a callback. Throws `std::bad_alloc` if memory is short. The handle is not
    /// registered then.
    virtual void registerAlarm(RCShdPtr<MtAlarmHandle> handle) = 0;
    /// Deregisters an alarm. When this returns, the handle is not registered and its callback does
    /// not run. If the handle was not registered, nothing changes.
    ///
    /// **Blocks** while the callback runs, except in that callback itself.
    virtual void deregisterAlarm(RCShdPtr<MtAlarmHandle> handle) = 0;
    /// Returns a number of seconds that the manager keeps for its users and does not use itself,
    /// initially 0.02.
    virtual double getResolution() const = 0;
    /// Sets the number that `getResolution` returns.
    virtual void setResolution(double resolution) = 0;
    template <LkDuration Duration>
    void setResolution(Duration const &resolution)
    {
        setResolution(Detail::countSeconds(resolution));
    }

protected:
    friend class LkSingleton<MtAlarmManager>;

    MtAlarmManager() = default;
    virtual ~MtAlarmManager() noexcept(false);
};

ZV_DECLARE_SINGLETON(MtAlarmManager);

} // namespace Zv
