// Failures of devices and observers, for applications that report or handle them.
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/smartPtrs/rcBase.h"

#include <exception>
#include <iosfwd>

namespace Zv {

/// A failure of a device's sequence machine, or an exception on the thread "DevMgr ANO", with what is known of it:
///
///     if (auto const failure = sequence->getFailure("camera"))
///         std::cerr << *failure << '\n'; // device camera: event "stop" in state "stop": illegal event
struct ZVRESMGT_EXPORT DevMgrFailure
{
    /// The device whose machine met the event. Empty if the failure belongs to no machine.
    LiString device;
    /// The property whose observer threw. Empty for everything else.
    LiString property;
    /// The state in which the machine got the event, such as "wml".
    LiString state;
    /// The event: of a machine its name, such as "start", of a property the number that the device gave.
    LiString event;
    /// The exception, to be rethrown. Null if the event was illegal in the state.
    std::exception_ptr exception;

    /// Returns the exception's text with its place if it has one, and "illegal event" if there is no exception.
    LiString getReason() const;
};

/// Writes the failure as one text, as in the example above.
ZVRESMGT_EXPORT std::ostream &operator<<(std::ostream &stream, DevMgrFailure const &failure);

/// Decides whether the process goes on after an exception on the thread "DevMgr ANO". An application derives from it
/// and installs an instance with `DevMgr::setFailureHandler`.
class ZVRESMGT_EXPORT DevMgrFailureHandler : public RCBase<LkCounter<long>>
{
public:
    /// Called on "DevMgr ANO" with an exception that would end the process: one of a property observer, one of a
    /// sequence observer, one of a device that is called there, or a `DevMgrEx::SMExecutionError` because an event came
    /// for a machine that had failed. The exception has been written to the trace. If this function returns, the thread
    /// goes on with the next report. The events that the failed delivery would still have delivered are lost. If this
    /// function throws, the process ends.
    ///
    /// It is called without a lock. It must not destroy the manager or an access object, nor wait for another report.
    virtual void handle(DevMgrFailure const &failure) = 0;

protected:
    ~DevMgrFailureHandler() override;
};

} // namespace Zv
