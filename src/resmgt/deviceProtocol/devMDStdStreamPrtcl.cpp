#include "resmgt/deviceProtocol/devMDStdStreamPrtcl.h"

#include "resmgt/deviceProtocol/devMDStdIterator.private.h"
#include "resmgt/deviceProtocol/devPrtclEx.h"
#include "zvbase/failures.h"
#include "zvbase/firstFailure.private.h"
#include "zvbase/platform/interlocked.h"

namespace Zv {

namespace Interlocked = ZvPlatform::Interlocked;

DevMDStdStreamPrtcl::DevMDStdStreamPrtcl(LiString const &name) : _name(name) {}

DevMDStdStreamPrtcl::~DevMDStdStreamPrtcl()
{
    releaseAll(_streams);
}

ConstIterator<RCShdPtr<DevMDStream>> DevMDStdStreamPrtcl::performGetStreams()
{
    Interlocked::storeRelease(_iterCreated, true);
    return Detail::iteratorOver(_streams);
}

void DevMDStdStreamPrtcl::addStream(RCShdPtr<DevMDStream> const &stream)
{
    if (Interlocked::loadAcquire(_iterCreated))
        ZV_THROW(DevPrtclEx::ExMDStdAddStream);
    _streams.push_back(stream);
}

} // namespace Zv
