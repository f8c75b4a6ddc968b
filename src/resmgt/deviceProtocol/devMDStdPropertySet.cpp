#include "resmgt/deviceProtocol/devMDStdPropertySet.h"

#include "resmgt/deviceProtocol/devMDStdIterator.private.h"
#include "zvbase/firstFailure.private.h"

namespace Zv {

DevMDStdPropertySet::DevMDStdPropertySet(LiString const &name, LiString const &description)
    : _name(name), _description(description)
{}

DevMDStdPropertySet::~DevMDStdPropertySet()
{
    releaseAll(_sets, _properties);
}

ConstIterator<RCShdPtr<DevMDPropertyAny>> DevMDStdPropertySet::getPropertyIter()
{
    return Detail::iteratorOver(_properties);
}

ConstIterator<RCShdPtr<DevMDPropertyAny>> DevMDStdPropertySet::getPropertyIterEnd()
{
    return Detail::endIteratorOver(_properties);
}

ConstIterator<RCShdPtr<DevMDPropertySet>> DevMDStdPropertySet::getPropertySetIter()
{
    return Detail::iteratorOver(_sets);
}

ConstIterator<RCShdPtr<DevMDPropertySet>> DevMDStdPropertySet::getPropertySetIterEnd()
{
    return Detail::endIteratorOver(_sets);
}

} // namespace Zv
