// The property tree of a device.
#pragma once

#include "resmgt/deviceProtocol/devMDPropertyPrtcl.h"
#include "resmgt/deviceProtocol/devMDStdPropertySetBuilder.h"

namespace Zv {

/// Keeps a device's property tree. The device builds it in its constructor, before anyone else knows the device:
///
///     ObjPtr<DevMDStdPropertySetBuilder> builder(getPropertySetBuilder());
///     builder->pushSet("lens", "The lens");
///     builder->addProperty(RCShdPtr<DevMDPropertyAny>(new DevMDStdProperty<double>("focus", ...)));
///
/// The tree has a time of writing and then a time of reading: it cannot be read while a builder lives, and not be
/// built any more once it has been read. It has no lock: any thread may read.
class ZVRESMGT_EXPORT DevMDStdPropertyPrtcl : public DevMDPropertyPrtcl
{
public:
    explicit DevMDStdPropertyPrtcl(LiString const &name);

    /// Each throws `DevPrtclEx::ExMDStdPropertiesReadUnavail` while a builder lives.
    ConstIterator<RCShdPtr<DevMDPropertySet>> getPropertySetIter() override;
    ConstIterator<RCShdPtr<DevMDPropertySet>> getPropertySetIterEnd() override;
    ConstIterator<RCShdPtr<DevMDPropertyAny>> getPropertyIter() override;
    ConstIterator<RCShdPtr<DevMDPropertyAny>> getPropertyIterEnd() override;

protected:
    ~DevMDStdPropertyPrtcl() override;

    /// A new cursor at the root of the tree. Throws `DevPrtclEx::ExMDStdPropertiesWriteUnavail` once the tree has been
    /// read.
    virtual ObjPtrRet<DevMDStdPropertySetBuilder> getPropertySetBuilder();

private:
    void startReading(char const *subject);

    LiString _name;
    Vector<RCShdPtr<DevMDPropertySet>> _sets;
    Vector<RCShdPtr<DevMDPropertyAny>> _properties;
    int _builderCount = 0;
    bool _readStarted = false; // set by each reader
};

} // namespace Zv
