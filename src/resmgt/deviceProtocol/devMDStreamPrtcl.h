// The streams of a device.
#pragma once

#include "resmgt/containers/iterator.h"
#include "resmgt/deviceProtocol/devMDPrtcl.h"
#include "resmgt/deviceProtocol/devMDStream.h"

namespace Zv {

/// The face of a device that has streams.
class ZVRESMGT_EXPORT DevMDStreamPrtcl : public virtual DevMDPrtcl
{
public:
    /// Returns an iterator over all streams of the device, at the first one. It must not be used after the device has
    /// been destroyed.
    virtual ConstIterator<RCShdPtr<DevMDStream>> performGetStreams() = 0;

protected:
    ~DevMDStreamPrtcl() override;
};

} // namespace Zv
