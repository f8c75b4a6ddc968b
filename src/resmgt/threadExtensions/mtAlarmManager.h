// Calls at given times.
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkSingleton.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "resmgt/threadExtensions/mtAlarmHandle.h"

namespace Zv {

class Priority;

/// Calls callbacks at given times, on one thread of the process, "MtAlarmThread". A singleton, made at first use.
///
///     RCShdPtr<MtAlarmHandle> alarm(MtAlarmManager::getInstance().createHandle());
///     alarm->setDuration(0.5);
///     alarm->setCallback(&callback);
///     MtAlarmManager::getInstance().registerAlarm(alarm);
///
/// No call comes early. A call may be late, by about a millisecond on an idle machine, and a callback delays all calls
/// that are due after it. Alarms of the same time are called in the reverse order
/// of their registration, by design.
///
/// Any thread may use the manager, callbacks among them. Registering and deregistering take no more than the
/// logarithm of the number of alarms. A null handle throws `RCEx::ExNullPtr`.
class ZVRESMGT_EXPORT MtAlarmManager
{
public:
    static MtAlarmManager &getInstance();

    MtAlarmManager(MtAlarmManager const &) = delete;
    MtAlarmManager &operator=(MtAlarmManager const &) = delete;

    /// The node in `MtPriorityMgr` that the manager's thread follows, "AlarmManagerImp". Free: relations give it its
    /// value. They end before the manager does.
    virtual Priority &getPriority() = 0;
    /// A new handle.
    virtual RCShdPtr<MtAlarmHandle> createHandle() = 0;
    /// Does nothing where the handle is registered or has no callback. Does not block. Where memory is short it throws
    /// `std::bad_alloc`, and the handle is not registered.
    virtual void registerAlarm(RCShdPtr<MtAlarmHandle> handle) = 0;
    /// When this returns, the handle is not registered and its callback does not run: a call that is under way is
    /// waited for, and is the last one. From within the alarm's own callback it does not wait. A handle that was
    /// not registered stays as it is.
    virtual void deregisterAlarm(RCShdPtr<MtAlarmHandle> handle) = 0;
    /// Seconds. A number that is kept for its users: the manager itself has no use for it. 0.02 at first.
    virtual double getResolution() const = 0;
    virtual void setResolution(double resolution) = 0;

protected:
    friend class LkSingleton<MtAlarmManager>;

    MtAlarmManager() = default;
    virtual ~MtAlarmManager() noexcept(false);
};

ZV_DECLARE_SINGLETON(MtAlarmManager);

} // namespace Zv
