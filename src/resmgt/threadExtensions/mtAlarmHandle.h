// One alarm.
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/locks/lkLock.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/threadAnnotations.h"

#include <cstddef>
#include <optional>

namespace Zv {

/// What is to happen when, for `MtAlarmManager`, which makes these objects. Times are in seconds: alarm times on the
/// clock of `Sleeper`, durations from the moment of registration.
///
/// A handle is set up, registered, and may be set up and registered again when its last call is over or it has been
/// deregistered. While it is registered the setters do nothing. The count of repeats is never set back: a handle that
/// is registered again has fewer repeats left, or none.
///
/// A handle that only the manager still refers to is dropped at its time without a call. Any thread may use a handle;
/// nothing here blocks.
class ZVRESMGT_EXPORT MtAlarmHandle : public RCBase<LkCounter<long>>
{
public:
    class Callback;

    /// Who is called; stays the caller's, and outlives the registration. Asserts that it is not null.
    void setCallback(Callback *callback);
    /// The moment of the call. In the past: at once.
    void setAlarmTime(double alarmTime);
    /// The seconds from the registration to the call.
    void setDuration(double duration);
    /// The seconds between two calls. If this is 0 or less, or if the callback takes longer than this, a repeat is due
    /// as soon as the call before it has ended. It then comes before all alarms of later moments. Alarms that are due
    /// get their turn after each 1000 calls in a row, so that no number of repeats keeps them away for good. To be
    /// called again and again, set a duration that leaves the thread time for others.
    void setRepeatDuration(double repeatDuration);
    /// How many calls follow the first. Repeat n is due n - 1 repeat durations after the first call's moment, however
    /// late a call was: by design, the first repeat is due together with the first call.
    void setRequestedRepeats(unsigned requestedRepeats);

    double getTimeRegistered() const;
    /// The next call's moment, or the last one's. With a duration, it is known from the registration on.
    double getAlarmTime() const;
    /// With an alarm time, it is known from the registration on.
    double getDuration() const;
    double getRepeatDuration() const;
    unsigned getRequestedRepeats() const;
    /// Calls so far that were repeats. A call counts when it begins.
    unsigned getRepeatCount() const;
    /// Whether a call has been made since the registration.
    bool hasOccurred() const;
    /// From the registration to the end of the last call, or to the deregistration.
    bool isRegistered() const;

protected:
    static RCShdPtr<MtAlarmHandle> create();
    MtAlarmHandle();
    ~MtAlarmHandle() noexcept(false) override;

private:
    friend class MtAlarmHandleManipulator;
    friend class MtAlarmQueue;

    static constexpr std::size_t NOWHERE = static_cast<std::size_t>(-1);

    void setRegistered(bool registered);
    void setRegisteredAlarmTime(double alarmTime);
    void callCallback(bool goingAway);
    std::optional<double> prepareForRegistration(double now);

    double _timeRegistered ZV_GUARDED_BY(_lock) = 0;
    double _alarmTime ZV_GUARDED_BY(_lock) = 0;
    double _duration ZV_GUARDED_BY(_lock) = 0;
    double _repeatDuration ZV_GUARDED_BY(_lock) = 0;
    unsigned _requestedRepeats ZV_GUARDED_BY(_lock) = 0;
    unsigned _repeatCount ZV_GUARDED_BY(_lock) = 0;
    Callback *_callback ZV_GUARDED_BY(_lock) = nullptr;
    bool _registered = false; // set under the lock; the manager clears it without
    bool _occurred ZV_GUARDED_BY(_lock) = false;
    bool _useDuration ZV_GUARDED_BY(_lock) = false;
    LkLock _lock;
    // The manager's, under its lock.
    std::size_t _position = NOWHERE; // in its queue
    unsigned _nbDeregistering = 0;   // threads that wait for the end of a call
};

/// Who is called at an alarm. Belongs to whoever gives it to a handle.
class ZVRESMGT_EXPORT MtAlarmHandle::Callback
{
public:
    virtual ~Callback() noexcept(false);
    /// On the thread of the manager, "MtAlarmThread", with no lock held: alarms may be registered and deregistered,
    /// this one as well. All other alarms wait for it. What it throws ends the process. `goingAway`: the time has not
    /// come, but the manager is being destroyed, on this thread.
    ///
    /// The thread has a stack of 64 KiB, which cannot be changed. A callback that needs more, or that takes long, must
    /// hand the work to a thread of its own.
    virtual void performAlarm(RCShdPtr<MtAlarmHandle> handle, bool goingAway) = 0;

protected:
    Callback() = default;
    Callback(Callback const &) = default;
    Callback &operator=(Callback const &) = default;
};

/// The base of alarm managers: lends them what they need of a handle.
class ZVRESMGT_EXPORT MtAlarmHandleManipulator
{
protected:
    MtAlarmHandleManipulator() = default;
    MtAlarmHandleManipulator(MtAlarmHandleManipulator const &) = delete;
    MtAlarmHandleManipulator &operator=(MtAlarmHandleManipulator const &) = delete;
    virtual ~MtAlarmHandleManipulator() noexcept(false) = 0;

    static RCShdPtr<MtAlarmHandle> createHandle();
    static void setRegistered(MtAlarmHandle &handle, bool registered);
    /// Also while the handle is registered.
    static void setRegisteredAlarmTime(MtAlarmHandle &handle, double alarmTime);
    /// Asserts that there is a callback, and calls it with no lock held.
    static void callCallback(MtAlarmHandle &handle, bool goingAway);
    /// Registers the handle and returns its alarm time. Nothing, and nothing changes, where it is registered or has no
    /// callback.
    static std::optional<double> prepareForRegistration(MtAlarmHandle &handle, double now);

    /// Threads that wait to deregister the handle. Under the manager's lock.
    static unsigned &getNbDeregistering(MtAlarmHandle &handle);
};

} // namespace Zv
