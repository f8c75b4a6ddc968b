// Device of a manager: its opening, its closing, and leaving it behind.
#pragma once

#include "resmgt/deviceProtocol/devMDPrtcl.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/locks/lkLock.h"
#include "resmgt/locks/lkSema.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "resmgt/threads/mtThread.h"
#include "zvbase/immortal.h"
#include "zvbase/objPtr.h"
#include "zvbase/platform/shared.h"
#include "zvbase/threadAnnotations.h"

#include <exception>
#include <new>

namespace Zv {

/// List of the objects that are kept until the process ends. Leak checkers find the objects through
/// it.
class DevMgrLeftBehind
{
public:
    /// Keeps the object. Never throws. If there is no memory, the object is kept, but leak checkers
    /// do not find it.
    template <class T>
    static void keep(RCShdPtr<T> const &object)
    {
        struct Kept final : DevMgrLeftBehind
        {
            explicit Kept(RCShdPtr<T> const &kept) : object(kept) {}
            RCShdPtr<T> const object;
        };
        if (auto * const kept = new (std::nothrow) Kept(object))
            kept->enter();
        else
            Immortal<RCShdPtr<T>>{object};
    }

private:
    void enter();

    DevMgrLeftBehind *_next = nullptr;
};

/// Wakes the thread that closes a manager, each time that the state of a device has changed.
/// Threads that were left behind keep it alive after the manager.
class DevMgrProgress : public RCBase<LkCounter<long>>
{
public:
    void post() { _sema.post(); }
    /// Waits for a post. Returns false if there is none within `seconds`.
    bool timedWait(double seconds) { return _sema.timedWait(seconds); }

private:
    LkSema _sema{"DevMgr progress", 0};
};

/// A device that was created for a manager.
///
/// **Threads**: one thread opens it. After that, one thread closes it, releases it or leaves it
/// behind. Any thread may read its state and its constant members, and may begin a `Call`.
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
    /// Returns the exception of the opening, or null if the opening has not failed.
    std::exception_ptr getOpenFailure() const;
    /// Returns the exception of the closing. Must be called in the states `CLOSED` and `UNCLOSED`
    /// only.
    std::exception_ptr const &getCloseFailure() const { return _closeFailure; }
    /// Returns how long `performClose` took. Must be called in the state `CLOSED` only.
    double getSecondsToClose() const { return _secondsToClose; }

    /// Calls `performOpen` if the device has an access protocol. Throws the exceptions of
    /// `performOpen`.
    void open();
    /// Records that the device stays unopened, and the reason.
    void failToOpen(std::exception_ptr const &failure);
    /// A call of the device by a supervised sequence. While there is one, the device is not closed.
    class Call
    {
    public:
        /// Throws `DevMgrEx::ManagerClosed` if the device is being closed or was closed.
        explicit Call(DevMgrDevice &device);
        ~Call();
        Call(Call const &) = delete;
        Call &operator=(Call const &) = delete;

    private:
        DevMgrDevice &_device;
    };

    /// Calls `performClose` if the device is open. Throws the exceptions of `performClose`. If
    /// there is a `Call`, the end of the last call closes the device instead.
    void close();
    /// If the device is open, starts a thread that calls `performClose`. Never throws and never
    /// blocks. If the system refuses the thread, its exception is the failure of the closing. While
    /// there is a `Call`, only records that the closing is due. The end of the last call then posts
    /// the progress.
    void startToClose();
    /// Returns true if `performClose` has returned or thrown, or if it will not be called.
    bool hasClosed() const;
    /// Waits for the end of the thread that `startToClose` has started. Must be called in the state
    /// `CLOSED` only.
    void endClosing();
    /// Keeps the device and the thread that closes it until the process ends. If there is a `Call`,
    /// the end of the last call still closes the device.
    void leaveBehind();
    /// Releases the device. If the end of a `Call` has to close the device, the device is released
    /// with this object instead. Throws the exceptions of the device's destructor.
    void release();

protected:
    ~DevMgrDevice() override;

private:
    class Closer;

    /// Enters the state `CLOSING`. Returns false if the device is not open, or if there is a
    /// `Call`. If `isLeftToCall` is true, the end of the last call then closes the device.
    bool beginClosing(bool isLeftToCall);
    void startCloser();
    void endCall();
    void performClose();
    void setState(State state);

    LiString const _name;
    RCShdPtr<DevMDPrtcl> _prtcl;
    RCShdPtr<DevMDAccessPrtcl> _access;
    RCShdPtr<DevMgrProgress> const _progress;
    ZvPlatform::Shared<State> _state{OPENING}; // written last, so that its reader sees the failures
    LkLock _callLock;                          // a leaf. Held while the state OPEN is left
    unsigned _nbCalls ZV_GUARDED_BY(_callLock) = 0;
    bool _isClosingAwaited ZV_GUARDED_BY(_callLock) = false;
    bool _isLeftToCall ZV_GUARDED_BY(_callLock) = false;
    std::exception_ptr _openFailure;
    std::exception_ptr _closeFailure;
    double _secondsToClose = 0;
    ObjPtr<MtThread> _closer;
};

} // namespace Zv
