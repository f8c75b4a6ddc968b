// The alarm manager's inside.
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

/// The lock comes before the locks of handles. It is not held during a callback.
class MtAlarmManagerImp final : public MtAlarmManager, private MtAlarmHandleManipulator
{
public:
    MtAlarmManagerImp();
    /// Each alarm that is left is called with `goingAway`, by the caller. Nobody uses the manager any more but these
    /// callbacks.
    ~MtAlarmManagerImp() noexcept(false) override;

    Priority &getPriority() override;
    RCShdPtr<MtAlarmHandle> createHandle() override;
    void registerAlarm(RCShdPtr<MtAlarmHandle> handle) override;
    void deregisterAlarm(RCShdPtr<MtAlarmHandle> handle) override;
    double getResolution() const override;
    void setResolution(double resolution) override;

private:
    class MtAlarmThread;
    using Guard = LkGuard<LkMutex const>;

    static constexpr double AWAKE = -std::numeric_limits<double>::infinity();

    /// The thread's body.
    void run();
    void stop();
    /// The earliest alarm, where it is due and somebody else refers to it; others that are due are dropped. Else null.
    RCShdPtr<MtAlarmHandle> takeDueAlarm() ZV_REQUIRES(_lock);
    /// Makes of an alarm whose call is over what is to become of it. Returns false if it keeps others from their turn.
    bool endCall(RCShdPtr<MtAlarmHandle> const &alarm) ZV_REQUIRES(_lock);
    void waitForAlarm() ZV_REQUIRES(_lock);
    void waitForEndOfCall(MtAlarmHandle &alarm) ZV_REQUIRES(_lock);
    void insert(RCShdPtr<MtAlarmHandle> alarm, double time) ZV_REQUIRES(_lock);
    void remove(MtAlarmHandle &alarm) ZV_REQUIRES(_lock);
    /// Tells all alarms that the manager is going away.
    void dismissAlarms();

    MtAlarmQueue _alarms ZV_GUARDED_BY(_lock);
    double _now = 0;                               // the thread's alone
    double _wakeTime ZV_GUARDED_BY(_lock) = AWAKE; // the thread's, whatever comes meanwhile
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
