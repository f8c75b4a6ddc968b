// Failures of devices and of the registry of devices.
#pragma once

#include "resmgt/export.h"
#include "zvbase/exBase.h"

#include <stdexcept>

namespace Zv {

/// Failures of devices and of the registry of devices.
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

/// "Device name not found in the registry."
class ZVRESMGT_EXPORT DevPrtclEx::ExNameNotRegistered : public std::logic_error, public DevPrtclEx
{
public:
    ExNameNotRegistered(char const *file, int line);
    ~ExNameNotRegistered() override;
    ZV_EXCEPTION_MEMBERS(ExNameNotRegistered)
};

/// "Not a unique name."
class ZVRESMGT_EXPORT DevPrtclEx::ExNameNotUnique : public std::logic_error, public DevPrtclEx
{
public:
    ExNameNotUnique(char const *file, int line);
    ~ExNameNotUnique() override;
    ZV_EXCEPTION_MEMBERS(ExNameNotUnique)
};

/// "Attempt to add stream after iterator created."
class ZVRESMGT_EXPORT DevPrtclEx::ExMDStdAddStream : public std::logic_error, public DevPrtclEx
{
public:
    ExMDStdAddStream(char const *file, int line);
    ~ExMDStdAddStream() override;
    ZV_EXCEPTION_MEMBERS(ExMDStdAddStream)
};

/// `"set" is not available for property gain".`, with the operation and the name of the property. The name has no
/// quote before it: the text is part of the interface as it is.
class ZVRESMGT_EXPORT DevPrtclEx::ExMDPropertyIllegalOp : public std::logic_error, public DevPrtclEx
{
public:
    ExMDPropertyIllegalOp(char const *file, int line, char const *operation, char const *property);
    ~ExMDPropertyIllegalOp() override;
    ZV_EXCEPTION_MEMBERS(ExMDPropertyIllegalOp)
};

/// "Read-only access to camera properties forbidden while property builders are active.", with the name of the device
/// and "properties" or "property sets".
class ZVRESMGT_EXPORT DevPrtclEx::ExMDStdPropertiesReadUnavail : public std::logic_error,
                                                                 public DevPrtclEx
{
public:
    ExMDStdPropertiesReadUnavail(char const *file, int line, char const *device,
                                 char const *subject);
    ~ExMDStdPropertiesReadUnavail() override;
    ZV_EXCEPTION_MEMBERS(ExMDStdPropertiesReadUnavail)
};

/// "Read-write access to camera properties forbidden after read-only access has started.", with the name of the device.
class ZVRESMGT_EXPORT DevPrtclEx::ExMDStdPropertiesWriteUnavail : public std::logic_error,
                                                                  public DevPrtclEx
{
public:
    ExMDStdPropertiesWriteUnavail(char const *file, int line, char const *device);
    ~ExMDStdPropertiesWriteUnavail() override;
    ZV_EXCEPTION_MEMBERS(ExMDStdPropertiesWriteUnavail)
};

/// "Trying to pop the builder's property stack when it is empty."
class ZVRESMGT_EXPORT DevPrtclEx::ExMDStdPropertySetBuilderPop : public std::logic_error,
                                                                 public DevPrtclEx
{
public:
    ExMDStdPropertySetBuilderPop(char const *file, int line);
    ~ExMDStdPropertySetBuilderPop() override;
    ZV_EXCEPTION_MEMBERS(ExMDStdPropertySetBuilderPop)
};

/// "Error while getting the value for gain", with the name of the property, or "<unknown>" where it is null.
class ZVRESMGT_EXPORT DevPrtclEx::ExMDStdPropertyGet : public std::logic_error, public DevPrtclEx
{
public:
    ExMDStdPropertyGet(char const *file, int line, char const *property);
    ~ExMDStdPropertyGet() override;
    ZV_EXCEPTION_MEMBERS(ExMDStdPropertyGet)
};

} // namespace Zv
