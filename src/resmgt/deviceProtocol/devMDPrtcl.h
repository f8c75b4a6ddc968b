// The root of all managed devices.
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/smartPtrs/rcBase.h"

namespace Zv {

/// A managed device: an object that the device manager finds by name and drives through up to four faces, each of
/// which derives from this class virtually, so that a device of several faces is one object with one count.
///
/// - `DevMDAccessPrtcl`: to open and close it,
/// - `DevMDSyncSeqPrtcl`: to start, synchronise and stop it together with others,
/// - `DevMDStreamPrtcl`: its streams,
/// - `DevMDPropertyPrtcl`: its properties.
///
/// A device derives from the faces that it has, mostly through the standard classes (`DevMDStdAccessPrtcl` and so
/// on), which bring every request onto the device's own thread. The manager asks for each face with a run-time cast.
class ZVRESMGT_EXPORT DevMDPrtcl : public RCBase<LkCounter<long>>
{
protected:
    ~DevMDPrtcl() override;
};

} // namespace Zv
