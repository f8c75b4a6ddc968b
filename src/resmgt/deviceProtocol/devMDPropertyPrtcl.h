// The properties of a device.
#pragma once

#include "resmgt/deviceProtocol/devMDProperty.h"
#include "resmgt/deviceProtocol/devMDPrtcl.h"

namespace Zv {

/// The face of a device that has properties: the root level of its tree of property sets. An iterator must not be used
/// after the device has been destroyed.
class ZVRESMGT_EXPORT DevMDPropertyPrtcl : public virtual DevMDPrtcl
{
public:
    virtual ConstIterator<RCShdPtr<DevMDPropertySet>> getPropertySetIter() = 0;
    virtual ConstIterator<RCShdPtr<DevMDPropertySet>> getPropertySetIterEnd() = 0;
    virtual ConstIterator<RCShdPtr<DevMDPropertyAny>> getPropertyIter() = 0;
    virtual ConstIterator<RCShdPtr<DevMDPropertyAny>> getPropertyIterEnd() = 0;

protected:
    ~DevMDPropertyPrtcl() override;
};

} // namespace Zv
