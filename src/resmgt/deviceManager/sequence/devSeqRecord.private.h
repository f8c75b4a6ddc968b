// Record of a supervised sequence and of each of its devices.
#pragma once

#include "resmgt/deviceManager/access/devMgrSeqSupervisor.h"
#include "resmgt/deviceManager/devMgrFailure.h"
#include "resmgt/literals/liString.h"
#include "zvbase/dtTime.h"
#include "zvbase/sequenceContainers.h"

#include <cstddef>
#include <cstdint>
#include <exception>

namespace Zv {

class DevSeqWaiters;

/// The phase and the limits of a supervised sequence, and the state, the present step and the end
/// of each device. The functions record what happens, draw the conclusions, and wake the threads
/// that wait for a change. They call no device and no observer.
///
/// Devices have numbers. The root has the number 0, and each other device has a larger number than
/// its parent.
///
/// **Threads**: one thread at a time, under the sequence's lock.
class DevSeqRecord
{
public:
    using Phase = DevSeqStatus::Phase;
    using End = DevSeqDeviceStatus::End;

    enum Step
    {
        NO_STEP,
        START,
        SYNC,
        RECOVER,
        STOP,
        ABORT,
        LATENCY, // like MARK, a call that is no step
        MARK,
        NB_STEPS
    };
    /// Kinds of reports of a device.
    enum Report : unsigned
    {
        COMPLETED = 1,
        WANTS_RECOVERY = 2,
        WANTS_ABORT = 4
    };
    /// The numbers of the machine's states, in the order of their declaration.
    enum State : std::int32_t
    {
        INIT_STATE,
        START_STATE,
        WSR_STATE,
        READY_STATE,
        WML_STATE,
        SYNC_STATE,
        LOCK_STATE,
        RECOVER_STATE,
        WSS_STATE,
        STOP_STATE,
        ABORT_STATE,
        FINAL_STATE
    };
    enum class Life
    {
        IDLE,
        STARTED, // its `performStart` was called
        ENDED
    };

    struct Device
    {
        LiString name;
        LiString parent; // its name; empty for the root
        Life life = Life::IDLE;
        End end = End::NONE;
        std::int32_t state = INIT_STATE;
        double stateSince = 0;
        Step step = NO_STEP;
        double stepSince = 0;
        std::uint32_t serial = 0; // of the step; a completion of another step is late
        bool isAnswered = true;
        bool isDropped = false; // the completion was destroyed within the call
        Step call = NO_STEP;
        double callSince = 0;
        bool hasFailed = false;
        Step failedIn = NO_STEP;
        LiString failure;
        std::exception_ptr exception; // the failure; null if a completion was destroyed
        DtTime latency;
        std::uint32_t nbRefused = 0;
        double took[NB_STEPS] = {};
        bool hasTaken[NB_STEPS] = {};
        unsigned tells = 0;
        bool isAbortCalled = false;

        /// Returns true if the device has started, and has neither ended nor failed. It may be
        /// aborting of its own accord.
        bool isRunning() const { return life == Life::STARTED && !hasFailed; }
        /// Returns true if the device's machine takes part in the sequence. The other devices do
        /// not count on a device that is not live.
        bool isLive() const { return isRunning() && state != ABORT_STATE; }
        bool isLocked() const { return state == LOCK_STATE; }
    };

    explicit DevSeqRecord(DevSeqWaiters &waiters);

    void add(LiString const &name, LiString const &parent);
    /// Ends the sequence and returns its devices. The record has no devices after that.
    Vector<Device> takeDevices();

    std::size_t getNbDevices() const { return _devices.size(); }
    Device const &getDevice(std::size_t number) const { return _devices[number]; }
    /// Returns a description of the device's failure.
    DevMgrFailure getFailure(std::size_t number) const;
    DevSeqStatus makeStatus() const;

    // The phases, in their order. A sequence ends by itself when no device runs. While it is
    // stopping, it begins the abort by itself if its devices can no longer stop.
    Phase getPhase() const { return _phase; }
    /// Returns true if the machines of the tree decide which device is called.
    bool isOrderly() const { return _phase == Phase::RUNNING || _phase == Phase::STOPPING; }
    void start();
    void stop();
    void beginAbort();
    /// Ends the sequence. Gives up the devices that have not ended.
    void finish();
    /// Records a failure of the sequence itself. Only the first one counts.
    void failAsWhole(std::exception_ptr const &failure);
    bool hasFailedAsWhole() const { return !_failure.isEmpty(); }
    /// Returns the name of a step or call.
    static char const *nameOf(Step step);
    /// Returns the text of an exception. If there is no memory for the text, returns one that was
    /// made before.
    LiString getReason(std::exception_ptr const &failure) const;

    // The limits. The getters return moments of the clock.
    void shortenLimits(double seconds, double abortSeconds);
    double getStopEnd() const { return _stopEnd; }
    double getAbortBegin() const { return _abortBegin; }
    double getAbortEnd() const { return _abortEnd; }

    // Calls of a device.
    /// Records that a call begins. A step gets the next serial number of the device.
    void beginCall(std::size_t number, Step step);
    /// Records that the runner calls `performAbort`, in the abort.
    void beginAbortOf(std::size_t number);
    void endCall(std::size_t number, std::exception_ptr const &failure);

    // Events of a device or its machine.
    /// Records the completion of a step. Returns true if the device's machine must be told. A late
    /// completion is refused.
    bool answer(std::size_t number, std::uint32_t serial);
    /// Records that a completion was told of a failure, or was destroyed if `failure` is null.
    void drop(std::size_t number, std::uint32_t serial, std::exception_ptr const &failure);
    void refuse(std::size_t number, Report report);
    /// Traces an event that the device's machine has refused. The device did not cause it, so it is
    /// not counted.
    void refuseEvent(std::size_t number, std::int32_t event) const;
    /// Records a new state of the device's machine. Returns true if the caller must tell the
    /// observer. If the machine has failed, the observer is told by a task instead.
    bool changeState(std::size_t number, std::int32_t state);
    void setLatency(std::size_t number, DtTime const &latency);

    // All devices together.
    bool areLocked() const { return _nbLocked == _devices.size(); }
    bool isAnyStarted() const { return _nbStarted > 0; }
    /// Returns true if a device has failed or was told to abort.
    bool isAnyLost() const { return _isAnyLost; }
    /// Throws `DevMgrEx::SeqDeviceFailed` if the devices can no longer lock together.
    void checkLockable() const;

    // What the observer is told without a step of a machine.
    bool hasTells() const { return _nbTells > 0; }
    /// Takes the next device and state to tell the observer. Returns false if there is none.
    bool takeTell(std::size_t &number, std::int32_t &state);
    bool isFailedState(std::int32_t state) const { return state == _failedState; }

private:
    enum Tell : unsigned
    {
        FAILURE = 1,
        ABORTION = 2,
        END = 4
    };

    void traceRefused(std::size_t number, char const *what) const;
    void setState(Device &device, std::int32_t state);
    void addTell(Device &device, Tell tell);
    void fail(Device &device, Step step, std::exception_ptr const &failure);
    void endAnswered(Device &device);
    void end(Device &device, End end);

    DevSeqWaiters &_waiters;
    LiString _noReason;
    std::int32_t _failedState;
    Vector<Device> _devices;
    Phase _phase = Phase::IDLE;
    LiString _failure;
    std::size_t _nbStarted = 0; // devices whose life is STARTED
    std::size_t _nbLocked = 0;
    std::size_t _nbTells = 0;
    bool _isAnyLost = false;
    double _stopEnd;
    double _abortSeconds;
    double _abortBegin = 0;
    double _abortEnd = 0;
    double _endMoment = 0;
};

} // namespace Zv
