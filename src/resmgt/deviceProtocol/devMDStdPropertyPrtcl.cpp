#include "resmgt/deviceProtocol/devMDStdPropertyPrtcl.h"

#include "resmgt/deviceProtocol/devMDStdIterator.private.h"
#include "resmgt/deviceProtocol/devPrtclEx.h"
#include "zvbase/failures.h"
#include "zvbase/firstFailure.private.h"
#include "zvbase/platform/interlocked.h"

namespace Zv {

namespace Interlocked = ZvPlatform::Interlocked;

DevMDStdPropertyPrtcl::DevMDStdPropertyPrtcl(LiString const &name) : _name(name) {}

DevMDStdPropertyPrtcl::~DevMDStdPropertyPrtcl()
{
    releaseAll(_sets, _properties);
}

ObjPtrRet<DevMDStdPropertySetBuilder> DevMDStdPropertyPrtcl::getPropertySetBuilder()
{
    if (Interlocked::loadAcquire(_readStarted))
        ZV_THROW(DevPrtclEx::ExMDStdPropertiesWriteUnavail, _name.getChars());
    auto builder = makeObj<DevMDStdPropertySetBuilder>(_sets, _properties, _builderCount);
    ++_builderCount;
    return builder;
}

ConstIterator<RCShdPtr<DevMDPropertySet>> DevMDStdPropertyPrtcl::getPropertySetIter()
{
    startReading("property sets");
    return Detail::iteratorOver(_sets);
}

ConstIterator<RCShdPtr<DevMDPropertySet>> DevMDStdPropertyPrtcl::getPropertySetIterEnd()
{
    startReading("property sets");
    return Detail::endIteratorOver(_sets);
}

ConstIterator<RCShdPtr<DevMDPropertyAny>> DevMDStdPropertyPrtcl::getPropertyIter()
{
    startReading("properties");
    return Detail::iteratorOver(_properties);
}

ConstIterator<RCShdPtr<DevMDPropertyAny>> DevMDStdPropertyPrtcl::getPropertyIterEnd()
{
    startReading("properties");
    return Detail::endIteratorOver(_properties);
}

void DevMDStdPropertyPrtcl::startReading(char const *subject)
{
    if (_builderCount >= 1)
        ZV_THROW(DevPrtclEx::ExMDStdPropertiesReadUnavail, _name.getChars(), subject);
    Interlocked::storeRelease(_readStarted, true);
}

} // namespace Zv
