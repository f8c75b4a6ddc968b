// Failure of a device or an observer, the handler that decides what happens then, and the report of
// a closed manager (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "zvbase/sequenceContainers.h"

#include <exception>
#include <iosfwd>

namespace Zv {

/// A failure of a device's sequence machine, or an exception on the thread "DevMgr ANO", with what
/// is known of it. Written to a stream it reads like `device camera: event "stop" in state "stop":
/// illegal event`.
struct ZVRESMGT_EXPORT DevMgrFailure
{
    /// The device whose machine got the event. Empty if the failure belongs to no machine.
    LiString device;
    /// The property whose observer has thrown. Empty for everything else.
    LiString property;
    /// The state in which the machine got the event, such as "wml".
    LiString state;
    /// The event of a machine, such as "start", the call of a supervised device, or the number of
    /// a property's event.
    LiString event;
    /// The exception, so that it can be thrown again. Null if the event was illegal in the state.
    std::exception_ptr exception;

    /// Returns the exception's text, for an `ExBase` with its place in the source. Returns "illegal
    /// event" if there is no exception, and "exception of an unknown class" if it is neither an
    /// `ExBase` nor a `std::exception`.
    LiString getReason() const;
};

/// Writes the failure as one text.
ZVRESMGT_EXPORT std::ostream &operator<<(std::ostream &stream, DevMgrFailure const &failure);

/// Decides whether the process goes on after an exception on the thread "DevMgr ANO". Without a
/// handler the process ends. An application derives from it and installs an instance with
/// `DevMgr::setFailureHandler`:
///
///     class GoOn : public DevMgrFailureHandler
///     {
///     public:
///         void handle(DevMgrFailure const &failure) override
///         {
///             std::fprintf(stderr, "%s\n", failure.getReason().getChars());
///         }
///     };
class ZVRESMGT_EXPORT DevMgrFailureHandler : public RCBase<LkCounter<long>>
{
public:
    /// Called on "DevMgr ANO" with an exception that would end the process. The exception was
    /// thrown by a property observer, a sequence observer, a device that was called there or the
    /// destructor of a request. Or it is a `DevMgrEx::SMExecutionError` because a machine that has
    /// failed got an event. It has been written to the trace.
    ///
    /// If this function returns, the thread goes on with the next report. The events that the
    /// failed delivery would still have delivered are lost. If it throws, the process ends.
    ///
    /// No lock is held. The function must not destroy the manager or an access object, and must not
    /// wait for another report.
    virtual void handle(DevMgrFailure const &failure) = 0;

protected:
    ~DevMgrFailureHandler() override;
};

/// The report of `DevMgr::close`: for each device whether and how it was closed.
struct ZVRESMGT_EXPORT DevMgrCloseReport
{
    /// How the device has ended.
    enum class End
    {
        CLOSED, ///< the device was closed
        FAILED, ///< the device was closed, and its closing or its destruction has thrown `failure`
        /// The device was left behind, because `performClose` has not returned, because the device
        /// is still in a call of a supervised sequence, or because of `failure`.
        NOT_CLOSED,
        NOT_OPENED ///< the device was left behind, because `performOpen` has not returned
    };
    /// One device of the report.
    struct Device
    {
        LiString name;              ///< of the device
        End end = End::CLOSED;      ///< how the device has ended
        std::exception_ptr failure; ///< null if nothing has failed
        double seconds = 0; ///< how long the closing took, or 0 if the device was left behind
    };

    /// The devices that were open or being opened, and others whose destruction has failed, the
    /// newest first.
    Vector<Device> devices;
    /// True if the thread "DevMgr ANO" was left behind, because an observer or a device has not
    /// returned from a call.
    bool isThreadLeftBehind = false;

    /// Returns the names of the devices that were left behind, the newest first.
    Vector<LiString> getLeftBehind() const;
};

} // namespace Zv
