// The result of closing a manager within a limit of time.
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "zvbase/containers.h"

#include <exception>

namespace Zv {

/// What became of the devices of a manager that was closed by `DevMgr::close`.
struct ZVRESMGT_EXPORT DevMgrCloseReport
{
    enum class End
    {
        CLOSED, ///< the device was closed
        FAILED, ///< the device was closed, and its closing or its destruction threw `failure`
        NOT_CLOSED, ///< left behind: `performClose` has not returned, or could not be called because of `failure`
        NOT_OPENED ///< left behind: `performOpen` has not returned
    };
    struct Device
    {
        LiString name;
        End end = End::CLOSED;
        std::exception_ptr failure; ///< null unless `end` says something else
        double seconds = 0; ///< how long the closing took; 0 for a device that was left behind
    };

    /// The devices that were open or being opened, the newest first.
    Vector<Device> devices;
    /// Whether the thread "DevMgr ANO" was left behind, because an observer or a device has not
    /// returned from a call.
    bool isThreadLeftBehind = false;

    /// Returns the names of the devices that were left behind, the newest first.
    Vector<LiString> getLeftBehind() const;
};

} // namespace Zv
