// Implementation of the alarm manager.
#pragma once

#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkMutex.h"
#include "resmgt/locks/lkPulse.h"
#include "resmgt/locks/lkThreadId.h"
#include "resmgt/threadExtensions/mtAlarmHandle.h"
#include "resmgt/threadExtensions/mtAlarmManager.h"
#include "resmgt/threadExtensions/mtAlarmQueue.private.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/priority.h"
#include "zvbase/objPtr.h"
#include "zvbase/threadAnnotations.h"

#include <limits>

namespace Zv {

/// The lock is acquired before the locks of handles. It is not held during a callback.
class MtAlarmManagerImp final : public MtAlarmManager, private MtAlarmHandleManipulator
{
public:
    MtAlarmManagerImp();
    /// Calls the callback of each alarm that is left, with `goingAway`. Only these callbacks may
    /// still use the manager.
    ~MtAlarmManagerImp() noexcept(false) override;

    Priority &getPriority() override;
    RCShdPtr<MtAlarmHandle> createHandle() override;
    void registerAlarm(RCShdPtr<MtAlarmHandle> handle) override;
    void deregisterAlarm(RCShdPtr<MtAlarmHandle> handle) override;
    using MtAlarmManager::setResolution;
    double getResolution() const override;
    void setResolution(double resolution) override;

private:
    class MtAlarmThread;
    using Guard = LkGuard<LkMutex const>;

    static constexpr double AWAKE = -std::numeric_limits<double>::infinity();

    /// The thread's body.
    void run();
    void stop();
    /// Removes and returns the earliest alarm that is due and to which the application still
    /// refers, or returns null. Drops the alarms before it to which only the manager refers.
    [[nodiscard]] RCShdPtr<MtAlarmHandle> takeDueAlarm() ZV_REQUIRES(_lock);
    /// Ends or repeats an alarm whose callback has returned. Returns false if it has been called so
    /// often in a row that the other alarms get their turn now.
    [[nodiscard]] bool endCall(RCShdPtr<MtAlarmHandle> const &alarm) ZV_REQUIRES(_lock);
    void waitForAlarm() ZV_REQUIRES(_lock);
    void waitForEndOfCall(MtAlarmHandle &alarm) ZV_REQUIRES(_lock);
    void insert(RCShdPtr<MtAlarmHandle> alarm, double time) ZV_REQUIRES(_lock);
    void remove(MtAlarmHandle &alarm) ZV_REQUIRES(_lock);
    /// Calls the callbacks of all alarms with `goingAway`.
    void dismissAlarms();

    MtAlarmQueue _alarms ZV_GUARDED_BY(_lock);
    double _now = 0;                                  // for the manager's thread only
    double _wakeTime ZV_GUARDED_BY(_lock) = AWAKE;    // when the manager's thread looks again
    double _awaitedTime ZV_GUARDED_BY(_lock) = AWAKE; // of the alarm that woke the thread last
    LkPulse _waitPulse;
    LkPulse _deregPulse;
    LkMutex _lock;
    ObjPtr<MtThread> _thread;
    LkThreadId _threadId ZV_GUARDED_BY(_lock);
    bool _stop ZV_GUARDED_BY(_lock) = false;
    RCShdPtr<MtAlarmHandle> _current ZV_GUARDED_BY(_lock);
    RCShdPtr<MtAlarmHandle> const _noHandle;
    Priority _priority;
    double _resolution ZV_GUARDED_BY(_lock) = 0.02;
    unsigned _nbInARow ZV_GUARDED_BY(_lock) = 0; // calls of an alarm whose time does not move on
};

} // namespace Zv
