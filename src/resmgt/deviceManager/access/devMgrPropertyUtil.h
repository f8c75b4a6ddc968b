// Values and observers of properties by property string (applications).
#pragma once

#include "resmgt/deviceManager/access/devMgrPropertyAcc.h"
#include "resmgt/deviceProtocol/devMDProperty.h"
#include "resmgt/export.h"

namespace Zv {

/// Reads and writes a property whose value is a `T`, one of the types of `DevMDPropertyValue`. See
/// `DevMgrPropertyAcc` for an example.
///
/// **Throws**: `DevMgrEx::PropertyInvalidType` with the property's name if its value has another
/// type, what `getProperty` throws, and what the property throws.
template <class T>
class ZVRESMGT_EXPORT DevMgrPropertyValueUtil
{
public:
    /// Writes the value into `value`. Blocks until the device's thread has delivered it. Must not
    /// be called on that thread nor in an observer's `update`.
    static void getValue(DevMgrPropertyAcc &access, LiString const &config, T &value);
    /// Sets the value. Returns before the device has stored it. Blocks while the device's queue is
    /// full.
    static void setValue(DevMgrPropertyAcc &access, LiString const &config, T const &value);

    DevMgrPropertyValueUtil() = delete;
};

/// Attaches and detaches observers by a property string. Both operations throw what
/// `DevMgrPropertyAcc::getProperty` throws.
class ZVRESMGT_EXPORT DevMgrPropertyObserverUtil
{
public:
    /// Attaches an observer to the property, as `DevMgrPropertyAcc::attachObserver` does.
    static void attachObserver(DevMgrPropertyAcc &access, LiString const &config,
                               RCShdPtr<DevMgrPropertyObserver> observer);
    /// Detaches an observer from the property, as `DevMgrPropertyAcc::detachObserver` does.
    static void detachObserver(DevMgrPropertyAcc &access, LiString const &config,
                               RCShdPtr<DevMgrPropertyObserver> observer);

    DevMgrPropertyObserverUtil() = delete;
};

#define ZV_EXTERN_PROPERTY_UTIL(T) extern template class DevMgrPropertyValueUtil<T>;
ZV_FOR_EACH_PROPERTY_TYPE(ZV_EXTERN_PROPERTY_UTIL)
#undef ZV_EXTERN_PROPERTY_UTIL

} // namespace Zv
