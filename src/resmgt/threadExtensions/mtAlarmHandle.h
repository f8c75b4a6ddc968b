// Alarm: a callback at a time, once or repeated (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/locks/lkDuration.h"
#include "resmgt/locks/lkLock.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/platform/shared.h"
#include "zvbase/threadAnnotations.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace Zv {

/// The description of an alarm: when its callback is called, and how often. `MtAlarmManager`
/// creates these objects. See there for an example.
///
/// Set up a handle, then register it. It can be set up and registered again when its last call is
/// over or when it has been deregistered. While it is registered, the setters have no effect. The
/// count of repeats is never reset, so a handle that is registered again has fewer repeats left, or
/// none.
///
/// If only the manager still refers to a handle, it is dropped at its time without a call.
///
/// **Threads**: thread-safe. Nothing here blocks.
///
/// Times are in seconds. Alarm times are on the clock of `Sleeper`. Durations are counted from the
/// registration.
class ZVRESMGT_EXPORT MtAlarmHandle : public RCBase<LkCounter<long>>
{
public:
    class Callback;

    /// Sets the object to call. The caller owns it, and must keep it until the last call has
    /// returned or `MtAlarmManager::deregisterAlarm` has. Fails an assertion if it is null.
    void setCallback(Callback *callback);
    /// Sets the time of the call. If it is in the past, the call is made at once.
    void setAlarmTime(double alarmTime);
    /// Sets the time from the registration to the call, in place of an alarm time.
    void setDuration(double duration);
    template <LkDuration Duration>
    void setDuration(Duration const &duration)
    {
        setDuration(Detail::countSeconds(duration));
    }
    /// Sets the time between two calls. If it is 0 or less, or if the callback takes longer, a
    /// repeat is due as soon as the call before it has returned. It then precedes all alarms of
    /// later times. After 1000 such calls in a row, all other alarms that are due get their turn,
    /// so that they are not delayed without end. For an alarm that repeats for long, set a duration
    /// that leaves the thread time for other alarms.
    void setRepeatDuration(double repeatDuration);
    template <LkDuration Duration>
    void setRepeatDuration(Duration const &repeatDuration)
    {
        setRepeatDuration(Detail::countSeconds(repeatDuration));
    }
    /// Sets how many calls follow the first one. Repeat n is due n - 1 repeat durations after the
    /// time of the first call, even if a call was late. So the first repeat is due together with
    /// the first call, by design.
    void setRequestedRepeats(unsigned requestedRepeats);

    double getTimeRegistered() const;
    /// Returns the time of the next call, or of the last one. If a duration was set, this is valid
    /// from the registration on.
    double getAlarmTime() const;
    /// Returns the duration. If an alarm time was set, this is valid from the registration on.
    double getDuration() const;
    double getRepeatDuration() const;
    unsigned getRequestedRepeats() const;
    /// Returns the number of calls that were repeats. A call counts when it begins.
    unsigned getRepeatCount() const;
    /// Returns whether a call has begun since the registration.
    bool hasOccurred() const;
    /// Returns true from the registration to the end of the last call, or to the deregistration.
    bool isRegistered() const;

protected:
    /// Creates a handle that is not set up.
    [[nodiscard]] static RCShdPtr<MtAlarmHandle> create();
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
    // Set under the lock, and cleared by the manager without it.
    ZvPlatform::Shared<bool> _registered{false};
    bool _occurred ZV_GUARDED_BY(_lock) = false;
    bool _useDuration ZV_GUARDED_BY(_lock) = false;
    LkLock _lock;
    // State of the manager, under its lock.
    std::size_t _position = NOWHERE; // in the manager's queue
    RCShdPtr<MtAlarmHandle> _queued; // the queue's reference to this handle, while it is there
    std::uint64_t _number = 0;       // of its addition to the queue
    unsigned _nbDeregistering = 0;   // number of threads that wait for the end of a call
};

/// The callback of an alarm.
///
/// **Owns**: the caller of `MtAlarmHandle::setCallback` owns the callback.
class ZVRESMGT_EXPORT MtAlarmHandle::Callback
{
public:
    virtual ~Callback() noexcept(false);
    /// Called at the time of the alarm, on the manager's thread "MtAlarmThread", without a lock. It
    /// may register and deregister alarms, this one too. All other alarms wait until it returns. If
    /// it throws, the process ends.
    ///
    /// If `goingAway` is true, the time has not been reached, but the manager is being destroyed.
    /// The call is then made on the thread that destroys it.
    ///
    /// The stack of the thread has 64 KiB, which cannot be changed. A callback that needs more, or
    /// that takes long, must pass the work to another thread.
    virtual void performAlarm(RCShdPtr<MtAlarmHandle> handle, bool goingAway) = 0;

protected:
    Callback() = default;
    Callback(Callback const &) = default;
    Callback &operator=(Callback const &) = default;
};

/// Base of alarm managers, with access to the internals of a handle (extenders).
class ZVRESMGT_EXPORT MtAlarmHandleManipulator
{
protected:
    MtAlarmHandleManipulator() = default;
    MtAlarmHandleManipulator(MtAlarmHandleManipulator const &) = delete;
    MtAlarmHandleManipulator &operator=(MtAlarmHandleManipulator const &) = delete;
    virtual ~MtAlarmHandleManipulator() noexcept(false) = 0;

    /// Creates a handle that is not set up.
    [[nodiscard]] static RCShdPtr<MtAlarmHandle> createHandle();
    /// Marks the handle as registered, or as not registered.
    static void setRegistered(MtAlarmHandle &handle, bool registered);
    /// Sets the alarm time, even while the handle is registered.
    static void setRegisteredAlarmTime(MtAlarmHandle &handle, double alarmTime);
    /// Calls the callback without a lock. Fails an assertion if there is none.
    static void callCallback(MtAlarmHandle &handle, bool goingAway);
    /// Marks the handle as registered and returns its alarm time. If it is registered already or
    /// has no callback, returns nothing and changes nothing.
    [[nodiscard]] static std::optional<double> prepareForRegistration(MtAlarmHandle &handle,
                                                                      double now);

    /// Returns the number of threads that wait to deregister the handle. The caller must hold the
    /// manager's lock.
    static unsigned &getNbDeregistering(MtAlarmHandle &handle);
};

} // namespace Zv
