// The list of a device's streams.
#pragma once

#include "resmgt/deviceProtocol/devMDStreamPrtcl.h"
#include "resmgt/literals/liString.h"
#include "zvbase/containers.h"

namespace Zv {

/// Keeps a device's streams. The device adds them all in its constructor; from the first `performGetStreams` on the
/// list is only read, by any thread, without a lock.
class ZVRESMGT_EXPORT DevMDStdStreamPrtcl : public DevMDStreamPrtcl
{
public:
    explicit DevMDStdStreamPrtcl(LiString const &name);

    /// Over the streams in the order in which they were added. Ends the time of adding.
    ConstIterator<RCShdPtr<DevMDStream>> performGetStreams() override;

protected:
    ~DevMDStdStreamPrtcl() override;

    /// Throws `DevPrtclEx::ExMDStdAddStream` once `performGetStreams` has been called.
    void addStream(RCShdPtr<DevMDStream> const &stream);

private:
    LiString _name;
    Vector<RCShdPtr<DevMDStream>> _streams;
    bool _iterCreated = false; // set by each reader
};

} // namespace Zv
