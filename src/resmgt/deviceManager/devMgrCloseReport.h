// Report of a device manager that was closed with a limit (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "zvbase/containers.h"

#include <exception>

namespace Zv {

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
