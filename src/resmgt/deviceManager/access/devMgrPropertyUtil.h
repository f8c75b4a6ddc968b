// Property access by string: typed values, and observers.
#pragma once

#include "resmgt/deviceManager/access/devMgrPropertyAcc.h"
#include "resmgt/deviceProtocol/devMDPropertyTypes.h"
#include "resmgt/export.h"

namespace Zv {

/// Reads and writes a property that holds a `T`, one of the value types of properties. There is no conversion: another
/// type is a `DevMgrEx::PropertyInvalidType` with the property's name. Beside that, what `getProperty` throws and what
/// the property throws.
template <class T>
class ZVRESMGT_EXPORT DevMgrPropertyValueUtil
{
public:
    /// Waits for the device's thread: not to be called on it, nor in an observer's `update`.
    static void getValue(DevMgrPropertyAcc &access, LiString const &config, T &value);
    /// Does not wait for the value to be stored; blocks while the device's queue is full.
    static void setValue(DevMgrPropertyAcc &access, LiString const &config, T const &value);

    DevMgrPropertyValueUtil() = delete;
};

/// Attaches and detaches observers by a property string. Throws what `getProperty` throws.
class ZVRESMGT_EXPORT DevMgrPropertyObserverUtil
{
public:
    static void attachObserver(DevMgrPropertyAcc &access, LiString const &config,
                               RCShdPtr<DevMgrPropertyObserver> observer);
    static void detachObserver(DevMgrPropertyAcc &access, LiString const &config,
                               RCShdPtr<DevMgrPropertyObserver> observer);

    DevMgrPropertyObserverUtil() = delete;
};

#define ZV_EXTERN_PROPERTY_UTIL(T) extern template class DevMgrPropertyValueUtil<T>;
ZV_FOR_EACH_PROPERTY_TYPE(ZV_EXTERN_PROPERTY_UTIL)
#undef ZV_EXTERN_PROPERTY_UTIL

} // namespace Zv
