// One device of a manager: its opening, its closing, and leaving it behind.
#pragma once

#include "resmgt/deviceProtocol/devMDPrtcl.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/locks/lkSema.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "resmgt/threads/mtThread.h"
#include "zvbase/objPtr.h"

#include <exception>

namespace Zv {

/// Wakes the thread that closes a manager, each time that a device has been opened or closed. It outlives the manager in
/// the threads that were left behind.
class DevMgrProgress : public RCBase<LkCounter<long>>
{
public:
    void post() { _sema.post(); }
    /// Returns false if the time is over.
    bool timedWait(double seconds) { return _sema.timedWait(seconds); }

private:
    LkSema _sema{"DevMgr progress", 0};
};

/// A device that was created for a manager.
///
/// **Threads**: one thread opens it. After that, one thread closes it, releases it or leaves it behind. Any thread may ask
/// for its state and for what does not change.
class DevMgrDevice : public RCBase<LkCounter<long>>
{
public:
    enum State
    {
        OPENING,  ///< also before `open`
        UNOPENED, ///< it has no access protocol, or its opening failed
        OPEN,
        CLOSING,
        CLOSED,  ///< `performClose` has returned or thrown
        UNCLOSED ///< there was no thread to call `performClose`
    };

    DevMgrDevice(LiString const &name, RCShdPtr<DevMDPrtcl> const &prtcl,
                 RCShdPtr<DevMgrProgress> const &progress);

    LiString const &getName() const { return _name; }
    State getState() const;
    bool isOpening() const { return getState() == OPENING; }
    /// Returns what the opening has thrown; null if it has not failed.
    std::exception_ptr getOpenFailure() const;
    /// Returns what the closing has thrown. Must be called in the states `CLOSED` and `UNCLOSED` only.
    std::exception_ptr const &getCloseFailure() const { return _closeFailure; }
    /// Returns how long `performClose` took. Must be called in the state `CLOSED` only.
    double getSecondsToClose() const { return _secondsToClose; }

    /// Calls `performOpen` if the device has an access protocol. Throws what that throws.
    void open();
    /// Says that the device stays unopened, and why.
    void failToOpen(std::exception_ptr const &failure);
    /// Calls `performClose` if the device is open. Throws what that throws.
    void close();
    /// If the device is open, starts a thread that calls `performClose`. Never throws and never blocks: what the system
    /// refuses is the failure of the closing.
    void startToClose();
    /// Whether `performClose` has returned, or is not to be called.
    bool hasClosed() const;
    /// Waits for the end of the thread that `startToClose` has started. Must be called in the state `CLOSED` only.
    void endClosing();
    /// Keeps the device and the thread that closes it for the rest of the process.
    void leaveBehind();
    /// Releases the device. Throws what its destructor throws.
    void release();

protected:
    ~DevMgrDevice() override;

private:
    class Closer;

    void performClose();
    void setState(State state);

    LiString const _name;
    RCShdPtr<DevMDPrtcl> _prtcl;
    RCShdPtr<DevMDAccessPrtcl> _access;
    RCShdPtr<DevMgrProgress> const _progress;
    State _state = OPENING; // written after everything else
    std::exception_ptr _openFailure;
    std::exception_ptr _closeFailure;
    double _secondsToClose = 0;
    ObjPtr<MtThread> _closer;
};

} // namespace Zv
