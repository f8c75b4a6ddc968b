// What is known of a supervised sequence and of each of its devices.
#pragma once

#include "resmgt/deviceManager/access/devMgrSeqSupervisor.h"
#include "resmgt/deviceManager/devMgrFailure.h"
#include "resmgt/literals/liString.h"
#include "zvbase/containers.h"
#include "zvbase/dtTime.h"

#include <cstddef>
#include <cstdint>
#include <exception>

namespace Zv {

class DevSeqWaiters;

/// The record of a supervised sequence: its phase, its limits, and of each device the state, the
/// step in flight and how it has ended. It is told what happens, draws the conclusions, and wakes
/// the threads that wait for a change. It calls no device and no observer.
///
/// Devices have numbers. The root has the number 0, and each other device a larger one than its
/// parent.
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
        LATENCY, // the last two are calls without a step
        MARK,
        NB_STEPS
    };
    /// What a device reports.
    enum Report : unsigned
    {
        COMPLETED = 1,
        WANTS_RECOVERY = 2,
        WANTS_ABORT = 4
    };
    /// The machine's numbers of its states, which are in the order of their declaration.
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
        Life life = Life::IDLE;
        End end = End::NONE;
        std::int32_t state = INIT_STATE;
        double stateSince = 0;
        Step step = NO_STEP; // the last one
        double stepSince = 0;
        std::uint32_t serial = 0; // of the step. A completion of another one is late
        bool isAnswered = true;   // the step
        bool isDropped = false;   // its completion, within the call
        Step call = NO_STEP;
        double callSince = 0;
        bool hasFailed = false;
        Step failedIn = NO_STEP;
        LiString failure;
        std::exception_ptr exception; // the same. Null for a completion that was destroyed
        DtTime latency;
        std::uint32_t nbRefused = 0;
        double took[NB_STEPS] = {};
        bool hasTaken[NB_STEPS] = {};
        unsigned tells = 0;
        bool isAbortCalled = false;

        /// Whether the device runs in order, or aborts of its own accord.
        bool isRunning() const { return life == Life::STARTED && !hasFailed; }
        /// Whether its machine goes on in order. A device that is not live is lost for the others.
        bool isLive() const { return isRunning() && state != ABORT_STATE; }
        bool isLocked() const { return state == LOCK_STATE; }
    };

    explicit DevSeqRecord(DevSeqWaiters &waiters);

    void add(LiString const &name);
    /// Empties the record of a sequence that has ended.
    Vector<Device> takeDevices();

    std::size_t getNbDevices() const { return _devices.size(); }
    Device const &getDevice(std::size_t number) const { return _devices[number]; }
    /// Returns how the device has failed.
    DevMgrFailure getFailure(std::size_t number) const;
    DevSeqStatus makeStatus() const;

    // The phases, in their order. From `STOPPING` on a sequence goes over to the abort, or to the
    // end, by itself if its devices leave no other way.
    Phase getPhase() const { return _phase; }
    /// Whether the machines of the tree decide which device is called.
    bool isOrderly() const { return _phase == Phase::RUNNING || _phase == Phase::STOPPING; }
    void start();
    void stop();
    void beginAbort();
    /// Gives up what has not ended.
    void finish();
    /// The failure of the sequence itself. Only the first one counts.
    void failAsWhole(std::exception_ptr const &failure);
    bool hasFailedAsWhole() const { return !_failure.isEmpty(); }
    /// Returns the text of an exception. Needs no memory if there is none.
    LiString getReason(std::exception_ptr const &failure) const;

    // The limits: moments of the clock.
    void shortenLimits(double seconds, double abortSeconds);
    double getStopEnd() const { return _stopEnd; }
    double getAbortBegin() const { return _abortBegin; }
    double getAbortEnd() const { return _abortEnd; }

    // Calls of a device.
    /// Returns the number of the step, for the completion.
    std::uint32_t beginCall(std::size_t number, Step step);
    /// Of `performAbort`, in the abort.
    void beginAbortOf(std::size_t number);
    void endCall(std::size_t number, std::exception_ptr const &failure);

    // What a device or its machine tells.
    /// Returns whether the machine waits for the answer. A late one is refused.
    bool answer(std::size_t number, std::uint32_t serial);
    /// A completion has failed, or was destroyed if `failure` is null.
    void drop(std::size_t number, std::uint32_t serial, std::exception_ptr const &failure);
    void refuse(std::size_t number, Report report);
    /// The machine has refused an event that was not the device's.
    void refuseEvent(std::size_t number, std::int32_t event) const;
    /// Returns whether the state is one that an observer is told of here.
    bool changeState(std::size_t number, std::int32_t state);
    void setLatency(std::size_t number, DtTime const &latency);

    // The devices together.
    bool areLocked() const { return _nbLocked == _devices.size(); }
    bool isAnyStarted() const { return _nbStarted > 0; }
    /// Whether a device has failed or was told to abort.
    bool isAnyLost() const { return _isAnyLost; }
    /// Throws `DevMgrEx::SeqDeviceFailed` if they can no longer lock together.
    void checkLockable() const;

    // What the observer is told without a step of a machine.
    bool hasTells() const { return _nbTells > 0; }
    /// Returns false if there is nothing to tell.
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
    std::size_t _nbStarted = 0; // whose life is STARTED
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
