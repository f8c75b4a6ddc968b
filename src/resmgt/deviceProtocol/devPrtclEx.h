// Exceptions of devices and of the registry of devices (applications and device writers).
#pragma once

#include "resmgt/export.h"
#include "zvbase/exBase.h"

#include <stdexcept>

namespace Zv {

/// Exceptions of devices and of the registry of devices.
class ZVRESMGT_EXPORT DevPrtclEx : public ExBase
{
public:
    class ExNameNotRegistered;
    class ExNameNotUnique;
    class ExMDStdAddStream;
    class ExMDPropertyIllegalOp;
    class ExMDStdPropertiesReadUnavail;
    class ExMDStdPropertiesWriteUnavail;
    class ExMDStdPropertySetBuilderPop;
    class ExMDStdPropertyGet;

    DevPrtclEx(char const *file, int line) noexcept;
};

/// Thrown if the registry has no device of a name. "Device name not found in the registry."
ZV_EXCEPTION(ZVRESMGT_EXPORT, DevPrtclEx, ExNameNotRegistered, std::logic_error, DevPrtclEx);

/// Thrown if the registry already has a device of a name, or a property set already has a property
/// of a name. "Not a unique name."
ZV_EXCEPTION(ZVRESMGT_EXPORT, DevPrtclEx, ExNameNotUnique, std::logic_error, DevPrtclEx);

/// Thrown if a stream is added to a device after an iterator over its streams was created.
/// "Attempt to add stream after iterator created."
ZV_EXCEPTION(ZVRESMGT_EXPORT, DevPrtclEx, ExMDStdAddStream, std::logic_error, DevPrtclEx);

/// Thrown if a property does not support an operation.
/// `"set" is not available for property gain".` The missing quote is part of the interface.
ZV_EXCEPTION(ZVRESMGT_EXPORT, DevPrtclEx, ExMDPropertyIllegalOp, std::logic_error, DevPrtclEx,
             char const *operation, char const *property);

/// Thrown if the properties of a device are read while a builder still adds some.
/// "Read-only access to camera properties forbidden while property builders are active.", with the
/// name of the device, and with `subject`, which is "properties" or "property sets".
ZV_EXCEPTION(ZVRESMGT_EXPORT, DevPrtclEx, ExMDStdPropertiesReadUnavail, std::logic_error,
             DevPrtclEx, char const *device, char const *subject);

/// Thrown if properties are added to a device after they were read. "Read-write access to camera
/// properties forbidden after read-only access has started.", with the name of the device.
ZV_EXCEPTION(ZVRESMGT_EXPORT, DevPrtclEx, ExMDStdPropertiesWriteUnavail, std::logic_error,
             DevPrtclEx, char const *device);

/// Thrown if a property set is closed that was not opened.
/// "Trying to pop the builder's property stack when it is empty."
ZV_EXCEPTION(ZVRESMGT_EXPORT, DevPrtclEx, ExMDStdPropertySetBuilderPop, std::logic_error,
             DevPrtclEx);

/// Thrown if a property's value cannot be read. "Error while getting the value for gain", with the
/// name of the property, or "<unknown>" if the name is null.
ZV_EXCEPTION(ZVRESMGT_EXPORT, DevPrtclEx, ExMDStdPropertyGet, std::logic_error, DevPrtclEx,
             char const *property);

} // namespace Zv
