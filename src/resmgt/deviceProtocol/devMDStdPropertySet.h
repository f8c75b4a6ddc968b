// A property set of the standard property protocol.
#pragma once

#include "resmgt/deviceProtocol/devMDProperty.h"

namespace Zv {

/// A node of a device's property tree. `DevMDStdPropertySetBuilder` fills it; afterwards it is only read, by any
/// thread.
class ZVRESMGT_EXPORT DevMDStdPropertySet : public DevMDPropertySet
{
public:
    DevMDStdPropertySet(LiString const &name, LiString const &description);

    LiString getName() override { return _name; }
    LiString getDescription() override { return _description; }
    ConstIterator<RCShdPtr<DevMDPropertyAny>> getPropertyIter() override;
    ConstIterator<RCShdPtr<DevMDPropertyAny>> getPropertyIterEnd() override;
    ConstIterator<RCShdPtr<DevMDPropertySet>> getPropertySetIter() override;
    ConstIterator<RCShdPtr<DevMDPropertySet>> getPropertySetIterEnd() override;

protected:
    ~DevMDStdPropertySet() override;

private:
    friend class DevMDStdPropertySetBuilder;

    Vector<RCShdPtr<DevMDPropertyAny>> &getProperties() { return _properties; }
    Vector<RCShdPtr<DevMDPropertySet>> &getPropertySets() { return _sets; }

    LiString _name;
    LiString _description;
    Vector<RCShdPtr<DevMDPropertySet>> _sets;
    Vector<RCShdPtr<DevMDPropertyAny>> _properties;
};

} // namespace Zv
